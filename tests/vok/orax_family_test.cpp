// The embedded ORAX family answers as the product description says: products, registers, commands.
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ryn/sup.h"
#include "ryn/vok.h"

namespace {

constexpr uint32_t V(const char *text) {
    // "3.12B" -> 0x03128100, for the few fixed texts of these tables.
    uint32_t major = 0;
    const char *p = text;
    while (*p != '.')
        major = major * 10 + uint32_t(*p++ - '0');
    ++p;
    uint32_t minor = uint32_t(p[0] - '0') << 4 | uint32_t(p[1] - '0');
    uint32_t letter = 0x80u + uint32_t(p[2] - 'A');
    return major << 24 | minor << 16 | letter << 8;
}

// Opens a dictionary for one test and closes it again.
struct Dict {
    VOK_DICT *d = nullptr;
    int rc = 0;
    Dict(uint32_t p, uint32_t v, uint32_t e = 0, uint32_t ev = 0) : rc(vok_open(&d, p, v, e, ev)) {}
    ~Dict() { vok_close(&d); }
    operator const VOK_DICT *() const { return d; }
};

class OraxFamily : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(vok_load_default_family(), 0); }
};

TEST_F(OraxFamily, ProductsAndVersions) {
    struct Row {
        uint32_t product;
        const char *name;
        uint32_t default_version;
        std::vector<uint32_t> known;
        int axis63;
    };
    const Row rows[] = {
        {1, "ORX-L1", V("2.05A"), {V("2.04A"), V("2.05A")}, 0},
        {25, "ORX-L25", V("2.40A"), {V("2.40A")}, 0},
        {32, "ORX-D32", V("3.12B"), {V("3.10A"), V("3.12B"), V("3.20A")}, 0},
        {33, "ORX-D33", V("3.12B"), {V("3.12B")}, 0},
        {38, "ORX-D38", V("3.12B"), {V("3.12B")}, 0},
        {39, nullptr, 0, {}, 0},
        {43, nullptr, 0, {}, 0},
        {48, "ORX-M48", V("1.30A"), {V("1.30A")}, 1},
        {49, "ORX-M49", V("1.30A"), {V("1.30A")}, 1},
        {50, nullptr, 0, {}, 0},
        {51, "ORX-M51", V("2.01A"), {V("2.00A"), V("2.01A")}, 1},
        {60, "ORX-S60", V("1.00A"), {V("1.00A")}, 0},
        {2, nullptr, 0, {}, 0},
        {0, nullptr, 0, {}, 0},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE("product " + std::to_string(r.product));
        EXPECT_EQ(vok_get_default_version(r.product), r.default_version);
        EXPECT_STREQ(vok_get_product_name(r.product), r.name); // both null: equal
        EXPECT_EQ(vok_is_axis63_product(r.product), r.axis63);
        for (uint32_t v : r.known)
            EXPECT_TRUE(vok_is_known_version(r.product, v));
        EXPECT_FALSE(vok_is_known_version(r.product, V("9.99Z")));
    }
    EXPECT_STREQ(vok_get_ext_product_name(0x21), "IOX-8");
    EXPECT_STREQ(vok_get_ext_product_name(0x22), "ENC-2");
    EXPECT_EQ(vok_get_ext_product_name(0x23), nullptr);
}

TEST_F(OraxFamily, OpeningConfigurations) {
    struct Row {
        const char *what;
        uint32_t product, version, ext, ext_version;
        int rc;
    };
    const Row rows[] = {
        {"D32 default, no card", 32, V("3.12B"), 0, 0, 0},
        {"D32 drive only", 32, V("3.12B"), VOK_DRIVE_ONLY, 0, 0},
        {"drive only with a card version", 32, V("3.12B"), VOK_DRIVE_ONLY, 1, VOK_EBADEXTVER},
        {"D32 with IOX-8", 32, V("3.12B"), 0x21, V("1.02A"), 0},
        {"D32 3.20A with ENC-2", 32, V("3.20A"), 0x22, V("2.00A"), 0},
        {"D34 with ENC-2", 34, V("3.12B"), 0x22, V("2.00A"), 0},
        {"L1 with ENC-2 does not fit", 1, V("2.05A"), 0x22, V("2.00A"), VOK_EBADEXTVER},
        {"M51 with IOX-8 does not fit", 51, V("2.01A"), 0x21, V("1.02A"), VOK_EBADEXTVER},
        {"unknown card version", 32, V("3.12B"), 0x21, V("1.03A"), VOK_EBADEXTVER},
        {"unknown card", 32, V("3.12B"), 0x99, V("1.00A"), VOK_EBADEXTPROD},
        {"unknown drive version", 32, V("3.11A"), 0, 0, VOK_EBADDRVVER},
        {"unknown product", 7, V("1.00A"), 0, 0, VOK_EBADDRVPROD},
        {"reserved product", 39, V("1.00A"), 0, 0, VOK_EBADDRVPROD},
        {"M51 2.00A", 51, V("2.00A"), 0, 0, 0},
        {"S60", 60, V("1.00A"), 0x21, V("1.02A"), 0},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        sup_trace_clear();
        Dict d(r.product, r.version, r.ext, r.ext_version);
        EXPECT_EQ(d.rc, r.rc);
        if (r.rc == 0) {
            ASSERT_NE(d.d, nullptr);
            EXPECT_EQ(vok_get_drv_product(d), r.product);
            EXPECT_EQ(vok_get_drv_version(d), r.version);
            EXPECT_EQ(vok_get_ext_product(d), r.ext);
            EXPECT_EQ(vok_get_ext_version(d), r.ext_version);
        } else {
            EXPECT_EQ(d.d, nullptr);
            // The failure opens the trace, so that the caller's frame can follow it.
            ASSERT_EQ(sup_trace_count(), 1);
            SUP_FRAME f;
            ASSERT_EQ(sup_trace_get(0, &f), 0);
            EXPECT_STREQ(f.file, "vok");
            EXPECT_STREQ(f.function, "vok_open");
            EXPECT_EQ(f.code, r.rc);
            EXPECT_STREQ(f.message, vok_translate_error(r.rc));
        }
    }
    EXPECT_EQ(vok_open(nullptr, 32, V("3.12B"), 0, 0), VOK_EBADPARAM);
}

TEST_F(OraxFamily, OfflineOpenLeavesUnknownVersionsToTheCaller) {
    VOK_DICT *d = nullptr;
    EXPECT_EQ(vok_open_offline(&d, 0, 32, V("3.11A"), 0, 0), 0);
    EXPECT_EQ(d, nullptr);
    EXPECT_EQ(vok_open_offline(&d, 0, 7, V("1.00A"), 0, 0), VOK_EBADDRVPROD);
    EXPECT_EQ(d, nullptr);
    EXPECT_EQ(vok_open_offline(&d, 0, 32, V("3.12B"), 0x21, V("1.02A")), 0);
    ASSERT_NE(d, nullptr);
    EXPECT_TRUE(vok_register_exists(d, 13, 100, 0));
    vok_close(&d);
    EXPECT_EQ(d, nullptr);
}

// Kind words of the tables below.
constexpr uint32_t X = 1, K = 2, M = 3, KF = 34, KL = 66, KD = 98, VV = 15, TF = 48, W = 12, C = 13;

TEST_F(OraxFamily, NamedRegistersOfTheCurrentDrive) {
    struct Row {
        uint32_t kind, index;
        const char *alias; // null: none
        int length;
        const char *cls;
        int format;
    };
    const Row rows[] = {
        {K, 1, "POS_KP", 1, "Position loop", VOK_FORMAT_DECIMAL},
        {K, 2, "POS_KI", 1, "Position loop", VOK_FORMAT_DECIMAL},
        {K, 5, "SCALE3", 3, "Position loop", VOK_FORMAT_DECIMAL},
        {K, 12, "MODE", 1, "Operation", VOK_FORMAT_DECIMAL},
        {K, 20, "IO_CFG", 1, "Operation", VOK_FORMAT_HEX},
        {K, 30, "AXIS_NAME", 8, "Identification", VOK_FORMAT_STRING},
        {K, 31, "AXIS_IP", 1, "Identification", VOK_FORMAT_IP},
        {K, 40, "HOME_OFS", 1, "Homing", VOK_FORMAT_DECIMAL},
        {K, 50, nullptr, 1, "Operation", VOK_FORMAT_DECIMAL},
        {K, 60, nullptr, 4, "Operation", VOK_FORMAT_DECIMAL},
        {KL, 1, "POS_LIMIT", 1, "Limits", VOK_FORMAT_DECIMAL},
        {KF, 1, "VEL_MAX", 1, "Limits", VOK_FORMAT_FLOAT},
        {KD, 1, "ACC_MAX", 1, "Limits", VOK_FORMAT_FLOAT},
        {X, 0, nullptr, 1, nullptr, VOK_FORMAT_DECIMAL},
        {X, 1023, nullptr, 1, nullptr, VOK_FORMAT_DECIMAL},
        {M, 7, "POS_ACT", 1, nullptr, VOK_FORMAT_DECIMAL},
        {M, 60, nullptr, 1, nullptr, VOK_FORMAT_DECIMAL},
        {M, 61, nullptr, 1, nullptr, VOK_FORMAT_DECIMAL},
        {M, 85, nullptr, 4, nullptr, VOK_FORMAT_STRING},
        {M, 282, nullptr, 11, nullptr, VOK_FORMAT_DECIMAL},
        {VV, 1, "TRAJ_VEC", 4, nullptr, VOK_FORMAT_DECIMAL},
        {TF, 2, "COMP_TAB", 6, nullptr, VOK_FORMAT_FLOAT},
    };
    Dict d(32, V("3.12B"));
    ASSERT_EQ(d.rc, 0);
    for (const Row &r : rows) {
        const std::string where =
            std::string(vok_get_type_name(d, 1, r.kind)) + std::to_string(r.index);
        SCOPED_TRACE(where);
        EXPECT_TRUE(vok_index_exists(d, r.kind, r.index));
        EXPECT_EQ(vok_get_register_length(d, r.kind, r.index), r.length);
        for (int s = 0; s < r.length; ++s)
            EXPECT_TRUE(vok_register_exists(d, r.kind, r.index, s));
        EXPECT_FALSE(vok_register_exists(d, r.kind, r.index, r.length));
        const char *alias = vok_get_register_name(d, 1, r.kind, r.index, 0);
        if (r.alias)
            EXPECT_STREQ(alias, r.alias);
        else
            EXPECT_TRUE(alias == nullptr || alias[0] == 0);
        const char *desc = vok_get_register_name(d, 2, r.kind, r.index, 0);
        ASSERT_NE(desc, nullptr);
        EXPECT_NE(desc[0], 0);
        const char *cls = vok_get_register_class(d, 2, r.kind, r.index);
        if (r.cls)
            EXPECT_STREQ(cls, r.cls);
        else
            EXPECT_TRUE(cls == nullptr || cls[0] == 0);
        EXPECT_EQ(vok_get_register_format(d, r.kind, r.index, 0), r.format);
    }
}

TEST_F(OraxFamily, RangesDefaultsAndAccess) {
    struct Row {
        uint32_t kind, index, sub;
        double min, max, def;
        int writable, reserved, iso;
    };
    const Row rows[] = {
        {K, 1, 0, 0, 1000000, 1000, 1, 0, 0}, {K, 2, 0, 0, 1000000, 0, 1, 0, 0},
        {K, 5, 2, -1000, 1000, 0, 1, 0, 0},   {K, 40, 0, 0, 0, 0, 1, 0, 1},
        {K, 50, 0, 0, 0, 0, 0, 0, 0},         {K, 60, 0, 0, 0, 0, 1, 1, 0},
        {K, 60, 1, 0, 0, 0, 1, 0, 0},         {K, 60, 2, 0, 0, 0, 0, 0, 0},
        {K, 60, 3, 0, 0, 0, 0, 0, 0},         {KL, 1, 0, -1e12, 1e12, 1000000000, 1, 0, 0},
        {KF, 1, 0, 0, 50000, 1000, 1, 0, 1},  {KD, 1, 0, 0, 1e9, 10000, 1, 0, 0},
        {X, 512, 0, 0, 0, 0, 1, 0, 0},        {M, 7, 0, 0, 0, 0, 0, 0, 0},
        {M, 282, 5, 0, 0, 0, 0, 0, 0},        {VV, 1, 3, 0, 0, 0, 1, 0, 0},
        {TF, 2, 5, 0, 0, 0, 1, 0, 0},
    };
    Dict d(32, V("3.12B"));
    ASSERT_EQ(d.rc, 0);
    for (const Row &r : rows) {
        SCOPED_TRACE("kind " + std::to_string(r.kind) + " index " + std::to_string(r.index) +
                     " element " + std::to_string(r.sub));
        EXPECT_DOUBLE_EQ(vok_get_reg_min_double(d, r.kind, r.index, r.sub), r.min);
        EXPECT_DOUBLE_EQ(vok_get_reg_max_double(d, r.kind, r.index, r.sub), r.max);
        if (vok_reg_is_int64(d, r.kind)) {
            EXPECT_EQ(vok_get_reg_min_int64(d, r.kind, r.index, r.sub), int64_t(r.min));
            EXPECT_EQ(vok_get_reg_max_int64(d, r.kind, r.index, r.sub), int64_t(r.max));
            EXPECT_EQ(vok_get_reg_default_int64(d, r.kind, r.index, r.sub), int64_t(r.def));
        } else if (vok_reg_is_int32(d, r.kind)) {
            EXPECT_EQ(vok_get_reg_min_int32(d, r.kind, r.index, r.sub), int32_t(r.min));
            EXPECT_EQ(vok_get_reg_max_int32(d, r.kind, r.index, r.sub), int32_t(r.max));
            EXPECT_EQ(vok_get_reg_default_int32(d, r.kind, r.index, r.sub), int32_t(r.def));
        } else {
            EXPECT_FLOAT_EQ(vok_get_reg_default_float(d, r.kind, r.index, r.sub), float(r.def));
        }
        EXPECT_EQ(vok_register_writable(d, r.kind, r.index, r.sub), r.writable);
        EXPECT_EQ(vok_element_is_reserved(d, r.kind, r.index, r.sub), r.reserved);
        EXPECT_EQ(vok_register_is_iso(d, r.kind, r.index, r.sub), r.iso);
    }
    // A double register hands out its default's bit pattern in the 64-bit view.
    double acc = 10000.0;
    int64_t bits;
    std::memcpy(&bits, &acc, sizeof bits);
    EXPECT_EQ(vok_get_reg_default_int64(d, KD, 1, 0), bits);
    EXPECT_EQ(vok_get_reg_default_int32(d, K, 31, 0), int32_t(192u << 24 | 168u << 16 | 10u));
    for (int s = 0; s < 8; ++s)
        EXPECT_EQ(vok_get_reg_default_int32(d, K, 30, s), 0);
}

TEST_F(OraxFamily, TypesOfTheCurrentDrive) {
    Dict d(32, V("3.12B"));
    ASSERT_EQ(d.rc, 0);
    struct Row {
        uint32_t kind;
        const char *name;
        int exists, hidden, whole;
        int min_count;
    };
    const Row rows[] = {
        {1, "X", 1, 0, 0, 1024},   {33, "XF", 1, 0, 0, 1},     {65, "XL", 1, 0, 0, 1},
        {97, "XD", 1, 0, 0, 1},    {2, "K", 1, 0, 1, 200},     {34, "KF", 1, 0, 1, 1},
        {66, "KL", 1, 0, 1, 1},    {98, "KD", 1, 0, 1, 1},     {3, "M", 1, 0, 0, 283},
        {6, "Q", 1, 1, 0, 1},      {7, "A", 1, 0, 0, 0},       {8, "L", 1, 0, 0, 256},
        {9, "E", 1, 0, 0, 32},     {12, "W", 0, 0, 0, 0},      {13, "C", 1, 0, 0, 100},
        {15, "V", 1, 0, 0, 2},     {48, "TF", 1, 0, 0, 3},     {31, nullptr, 0, 0, 0, 0},
        {63, nullptr, 0, 0, 0, 0}, {127, nullptr, 0, 0, 0, 0}, {0, nullptr, 0, 0, 0, 0},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE("kind " + std::to_string(r.kind));
        EXPECT_STREQ(vok_get_type_name(d, 1, r.kind), r.name);
        EXPECT_EQ(vok_get_type_name(d, 2, r.kind) != nullptr, r.name != nullptr);
        EXPECT_EQ(vok_type_exists(d, r.kind), r.exists);
        EXPECT_EQ(vok_type_is_hidden(d, r.kind), r.hidden);
        EXPECT_EQ(vok_register_type_writable(d, r.kind), r.whole);
        EXPECT_GE(vok_get_register_count(d, r.kind), r.min_count);
    }
    EXPECT_FALSE(vok_index_exists(d, K, 13));
    EXPECT_FALSE(vok_register_exists(d, K, 13, 0));
    // Absolute addresses: any address is a one-element register, none is listed.
    EXPECT_EQ(vok_get_register_count(d, 7), 0);
    for (uint32_t a : {0u, 1000u, 65533u, 0x00FFFFFFu}) {
        EXPECT_TRUE(vok_register_exists(d, 7, a, 0)) << a;
        EXPECT_FALSE(vok_register_exists(d, 7, a, 1)) << a;
        EXPECT_TRUE(vok_register_writable(d, 7, a, 0)) << a;
        EXPECT_EQ(vok_get_register_length(d, 7, a), 1);
        EXPECT_EQ(vok_get_register_name(d, 1, 7, a, 0), nullptr);
    }
    EXPECT_FALSE(vok_register_exists(d, 7 | 0x20, 1000, 0));
    EXPECT_EQ(vok_get_register_rows(d, VV, 1), 1);
    EXPECT_EQ(vok_get_register_columns(d, VV, 1), 4);
    EXPECT_EQ(vok_get_register_rows(d, TF, 2), 2);
    EXPECT_EQ(vok_get_register_columns(d, TF, 2), 3);
    EXPECT_EQ(vok_get_register_rows(d, K, 5), 1);
    EXPECT_EQ(vok_get_register_columns(d, K, 5), 3);
    // Ranges of registers are numbered in their descriptions.
    EXPECT_STREQ(vok_get_register_name(d, 2, 8, 64, 0), "Lookup table 1, point 0");
    EXPECT_STREQ(vok_get_register_name(d, 2, 8, 255, 0), "Lookup table 3, point 63");
    EXPECT_STREQ(vok_get_register_class(d, 2, 8, 255), "Lookup table 3");
    EXPECT_STREQ(vok_get_register_name(d, 2, 1, 517, 0), "User variable 517");
    EXPECT_GE(vok_get_subindex_count(d, K), 8);
    EXPECT_GE(vok_get_subindex_count(d, M), 11);
    // Every name is a register type name the parser can tell from a command and a number.
    for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k) {
        EXPECT_EQ(vok_is_vector_kind(k), (k & 31) == 15 || (k & 31) == 16) << k;
        const char *n = vok_get_type_name(d, 1, k);
        if (n == nullptr) continue;
        std::string s = n;
        EXPECT_NE(s.back(), 'Y') << s;
        EXPECT_NE(s.rfind("SD", 0), 0u) << s;
        EXPECT_EQ(s.find_first_of("0123456789"), std::string::npos) << s;
    }
}

TEST_F(OraxFamily, ProductDifferences) {
    struct Row {
        const char *what;
        uint32_t product, version, ext, ext_version, kind, index;
        int exists;
    };
    const Row rows[] = {
        {"K100 from 3.20A", 32, V("3.20A"), 0, 0, K, 100, 1},
        {"K119 from 3.20A", 32, V("3.20A"), 0, 0, K, 119, 1},
        {"no K100 in 3.12B", 32, V("3.12B"), 0, 0, K, 100, 0},
        {"IOX-8 C100", 32, V("3.12B"), 0x21, V("1.02A"), C, 100, 1},
        {"IOX-8 C107", 32, V("3.12B"), 0x21, V("1.02A"), C, 107, 1},
        {"IOX-8 K407", 32, V("3.12B"), 0x21, V("1.02A"), K, 407, 1},
        {"no card registers drive-only", 32, V("3.12B"), VOK_DRIVE_ONLY, 0, C, 100, 0},
        {"no C100 without card", 32, V("3.12B"), 0, 0, C, 100, 0},
        {"ENC-2 K440", 33, V("3.12B"), 0x22, V("2.00A"), K, 440, 1},
        {"ENC-2 K449", 33, V("3.12B"), 0x22, V("2.00A"), K, 449, 1},
        {"W10 on M51", 51, V("2.01A"), 0, 0, W, 10, 1},
        {"W on M51 2.00A", 51, V("2.00A"), 0, 0, W, 63, 1},
        {"no W on M48", 48, V("1.30A"), 0, 0, W, 10, 0},
        {"no W on a drive", 32, V("3.12B"), 0, 0, W, 10, 0},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        Dict d(r.product, r.version, r.ext, r.ext_version);
        ASSERT_EQ(d.rc, 0);
        EXPECT_EQ(vok_index_exists(d, r.kind, r.index), r.exists);
    }
    Dict m51(51, V("2.01A"));
    EXPECT_STREQ(vok_get_register_name(m51, 1, W, 10, 0), "SYNC_PER");
    EXPECT_EQ(vok_get_reg_min_int32(m51, W, 10, 0), 1);
    EXPECT_EQ(vok_get_reg_max_int32(m51, W, 10, 0), 1000);
    EXPECT_EQ(vok_get_reg_default_int32(m51, W, 10, 0), 100);
    EXPECT_GE(vok_get_register_count(m51, W), 64);
    EXPECT_TRUE(vok_type_exists(m51, W));
    // Larger power stages allow larger current limits.
    Dict d32(32, V("3.12B")), d38(38, V("3.12B"));
    EXPECT_LT(vok_get_reg_max_int32(d32, K, 70, 0), vok_get_reg_max_int32(d38, K, 70, 0));
    EXPECT_EQ(vok_get_register_count(d32, K), vok_get_register_count(d38, K));
}

// The product category text of M85, four characters per element, first in the low byte.
std::string category(const VOK_DICT *d) {
    std::string text;
    for (int e = 0; e < vok_get_register_length(d, 3, 85); ++e) {
        uint32_t w = uint32_t(vok_get_reg_default_int32(d, 3, 85, uint32_t(e)));
        for (int c = 0; c < 4 && (w >> (8 * c) & 0xFF) != 0; ++c)
            text += char(w >> (8 * c) & 0xFF);
    }
    return text;
}

TEST_F(OraxFamily, ProductCategories) {
    const std::pair<uint32_t, const char *> rows[] = {
        {1, "LEGACY DRIVE"}, {25, "LEGACY DRIVE"}, {32, "SERVO DRIVE"},      {36, "SERVO DRIVE"},
        {48, "MOTION CTRL"}, {49, "MOTION CTRL"},  {51, "MOTION CTRL SYNC"}, {60, "SPECIAL DRIVE"}};
    for (auto [product, text] : rows) {
        Dict d(product, vok_get_default_version(product));
        ASSERT_EQ(d.rc, 0) << product;
        EXPECT_EQ(vok_get_register_format(d, 3, 85, 0), VOK_FORMAT_STRING);
        EXPECT_EQ(vok_get_register_length(d, 3, 85), 4);
        EXPECT_EQ(category(d), text) << product;
    }
}

TEST_F(OraxFamily, Commands) {
    struct ParamRow {
        uint32_t kind;
        int64_t min, max;
        int enumeration_size; // 0 none
        int vector, iso;
    };
    struct Row {
        uint32_t number;
        const char *name;
        std::vector<ParamRow> params;
    };
    const Row rows[] = {
        {17, "CLX", {}},
        {20, "SVR", {{0, 3, 10, 0, 0, 0}, {0, 0, 0, 0, 0, 0}}},
        {48, "SAV", {{0, 0, 0, 4, 0, 0}}},
        {79, "RST", {}},
        {124, "PWR", {{0, 0, 0, 2, 0, 0}}},
        {129, "STE", {{0, 0, 0, 0, 0, 0}}},
        {160, "MVE", {{0x40, 0, 0, 0, 0, 0}, {0x20, 0, 0, 0, 0, 1}, {0x60, 0, 0, 0, 0, 0}}},
        {300, "IND", {{0, 0, 35, 0, 0, 0}}},
        {310, "TRJ", {{0, 0, 0, 0, 1, 0}, {0, 0, 0, 0, 1, 0}}},
        {14340, "DBG", {{0, 0, 5, 0, 0, 0}, {0, 0, 0, 0, 0, 0}}},
    };
    Dict d(32, V("3.12B"));
    ASSERT_EQ(d.rc, 0);
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_TRUE(vok_command_exists(d, r.number));
        EXPECT_EQ(vok_find_command(d, r.number, nullptr), 0);
        EXPECT_STREQ(vok_get_command_name(d, 1, r.number), r.name);
        EXPECT_NE(vok_get_command_name(d, 2, r.number), nullptr);
        EXPECT_STREQ(vok_get_command_comment(d, 2, r.number, 0, 0, 0),
                     r.number == 129 ? nullptr : vok_get_command_name(d, 2, r.number));
        // A command that takes a list accepts 64 values; the declared groups come first.
        ASSERT_EQ(vok_get_param_count(d, r.number), r.number == 310 ? 64 : int(r.params.size()));
        bool any_vector = false;
        for (size_t i = 0; i < r.params.size(); ++i) {
            const ParamRow &p = r.params[i];
            const int pos = int(i);
            SCOPED_TRACE("parameter " + std::to_string(i));
            EXPECT_EQ(vok_get_param_kind(d, r.number, pos), p.kind);
            EXPECT_EQ(vok_param_is_int32(d, r.number, pos), p.kind == 0);
            EXPECT_EQ(vok_param_is_float(d, r.number, pos), p.kind == 0x20);
            EXPECT_EQ(vok_param_is_int64(d, r.number, pos), p.kind == 0x40);
            EXPECT_EQ(vok_param_is_double(d, r.number, pos), p.kind == 0x60);
            EXPECT_EQ(vok_get_param_min_int64(d, r.number, pos), p.min);
            EXPECT_EQ(vok_get_param_max_int64(d, r.number, pos), p.max);
            int e = vok_get_param_enum(d, r.number, pos);
            EXPECT_EQ(e != 0, p.enumeration_size != 0);
            if (e) {
                EXPECT_EQ(vok_get_enum_count(d, e), p.enumeration_size);
            }
            EXPECT_EQ(vok_param_is_vector(d, r.number, pos), p.vector);
            EXPECT_EQ(vok_get_param_is_iso(d, r.number, pos), p.iso);
            any_vector = any_vector || p.vector;
        }
        EXPECT_EQ(vok_command_has_vector_params(d, r.number), any_vector);
    }
    for (int p = 2; p < 64; ++p) {
        EXPECT_FALSE(vok_param_is_vector(d, 310, p)) << p;
        EXPECT_TRUE(vok_param_is_int32(d, 310, p)) << p;
        EXPECT_EQ(vok_get_param_name(d, 310, p), nullptr) << p;
    }
    EXPECT_EQ(vok_get_param_format(d, 14340, 1), VOK_FORMAT_HEX);
    EXPECT_EQ(vok_get_param_format(d, 14340, 0), VOK_FORMAT_DECIMAL);
    EXPECT_FALSE(vok_command_exists(d, 512));
    EXPECT_EQ(vok_find_command(d, 512, nullptr), -1);
    Dict d320(32, V("3.20A"));
    EXPECT_STREQ(vok_get_command_name(d320, 1, 512), "TUN");
    EXPECT_TRUE(vok_param_is_float(d320, 512, 0));
}

TEST_F(OraxFamily, AssignmentCommandsInEveryDictionary) {
    std::vector<uint32_t> two = {122, 123, 125, 172, 173, 174};
    for (uint32_t c = 91; c <= 101; ++c)
        two.push_back(c);
    const std::pair<uint32_t, uint32_t> configs[] = {
        {1, V("2.05A")},  {25, V("2.40A")}, {32, V("3.12B")}, {35, V("3.12B")},
        {48, V("1.30A")}, {51, V("2.01A")}, {60, V("1.00A")}};
    for (auto [p, v] : configs) {
        SCOPED_TRACE("product " + std::to_string(p));
        Dict d(p, v);
        ASSERT_EQ(d.rc, 0);
        for (uint32_t c : two) {
            SCOPED_TRACE("command " + std::to_string(c));
            if (c == 125 && p == 25) {
                EXPECT_FALSE(vok_command_exists(d, c));
                EXPECT_EQ(vok_get_dictionary_class(d), 3);
                continue;
            }
            EXPECT_TRUE(vok_command_exists(d, c));
            EXPECT_EQ(vok_get_command_name(d, 1, c), nullptr);
            ASSERT_EQ(vok_get_param_count(d, c), 2);
            EXPECT_EQ(vok_get_param_kind(d, c, 0), vok_get_param_kind(d, c, 1));
            EXPECT_EQ(vok_get_param_enum(d, c, 0), 0);
            EXPECT_EQ(vok_get_param_min_int64(d, c, 0), 0);
            EXPECT_EQ(vok_get_param_max_int64(d, c, 1), 0);
        }
        for (uint32_t c : {114u, 115u})
            EXPECT_EQ(vok_get_param_count(d, c), 1);
        EXPECT_EQ(vok_get_param_count(d, 1537), 65);
        EXPECT_EQ(vok_get_command_name(d, 1, 1537), nullptr);
        if (p != 25) {
            EXPECT_NE(vok_get_dictionary_class(d), 3);
        }
        // Every command name is a word that no register name can be taken for.
        for (uint32_t c = 0; c < VOK_COMMAND_COUNT; ++c) {
            const char *n = vok_get_command_name(d, 1, c);
            if (n == nullptr || n[0] == 0) continue;
            std::string s = n;
            EXPECT_FALSE(s.back() >= '0' && s.back() <= '9') << s;
            EXPECT_FALSE(s.size() == 3 && s.back() == 'Y') << s;
        }
    }
}

TEST_F(OraxFamily, CommentsOfAssignmentsAreRegisterDescriptions) {
    Dict d(32, V("3.12B"));
    const char *k1 = vok_get_register_name(d, 2, K, 1, 0);
    ASSERT_NE(k1, nullptr);
    for (uint32_t c : {91u, 101u, 114u, 115u, 122u, 123u, 125u, 129u, 172u, 174u, 1537u})
        EXPECT_EQ(vok_get_command_comment(d, 2, c, K, 1, 0), k1) << c;
    EXPECT_EQ(vok_get_command_comment(d, 2, 48, K, 1, 0), vok_get_command_name(d, 2, 48));
    EXPECT_EQ(vok_get_command_comment(d, 2, 123, K, 13, 0), nullptr);
}

TEST_F(OraxFamily, Enumerations) {
    Dict d(32, V("3.12B"));
    const int mode = vok_get_reg_enum(d, K, 12, 0), io = vok_get_reg_enum(d, K, 20, 0);
    ASSERT_GT(mode, 0);
    ASSERT_GT(io, 0);
    EXPECT_STREQ(vok_get_enum_name(d, mode), "OperatingMode");
    EXPECT_STREQ(vok_get_enum_name(d, io), "IoConfig");
    struct Entry {
        uint32_t index; // of the K register
        const char *name;
        int parent, mask;
        int64_t value;
    };
    const Entry rows[] = {{12, "OFF", -1, 0, 0},
                          {12, "POSITION", -1, 0, 1},
                          {12, "VELOCITY", -1, 0, 2},
                          {12, "TORQUE", -1, 0, 3},
                          {20, "INPUT_MODE", -1, 1, 0x0F},
                          {20, "IN_OFF", 0, 0, 0},
                          {20, "IN_PNP", 0, 0, 1},
                          {20, "IN_NPN", 0, 0, 2},
                          {20, "IN_ANALOG", 0, 0, 3},
                          {20, "OUTPUT_MODE", -1, 1, 0xF0},
                          {20, "OUT_OFF", 5, 0, 0x00},
                          {20, "OUT_PUSH_PULL", 5, 0, 0x10},
                          {20, "OUT_OPEN_DRAIN", 5, 0, 0x20}};
    int n = 0;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Entry &x = rows[i];
        const int e = x.index == 12 ? mode : io;
        n = i > 0 && rows[i - 1].index == x.index ? n + 1 : 0;
        SCOPED_TRACE(x.name);
        EXPECT_STREQ(vok_get_enum_entry_name(d, e, n), x.name);
        EXPECT_EQ(vok_get_enum_entry_parent(d, e, n), x.parent);
        EXPECT_EQ(vok_enum_entry_is_mask(d, e, n), x.mask);
        EXPECT_EQ(vok_get_enum_value_int32(d, e, n), int32_t(x.value));
        EXPECT_EQ(vok_get_enum_value_int64(d, e, n), x.value);
        EXPECT_FLOAT_EQ(vok_get_enum_value_float(d, e, n), float(x.value));
        EXPECT_DOUBLE_EQ(vok_get_enum_value_double(d, e, n), double(x.value));
        EXPECT_TRUE(vok_enum_entry_for_reg(d, n, K, x.index, 0));
    }
    for (auto [e, count] : {std::pair{mode, 4}, std::pair{io, 9}}) {
        EXPECT_EQ(vok_get_enum_count(d, e), count);
        EXPECT_EQ(vok_get_enum_entry_name(d, e, count), nullptr);
        EXPECT_EQ(vok_get_enum_entry_parent(d, e, -1), -1);
    }
    int save = vok_get_param_enum(d, 48, 0);
    EXPECT_STREQ(vok_get_enum_name(d, save), "SaveWhat");
    EXPECT_STREQ(vok_get_enum_entry_name(d, save, 3), "X");
    EXPECT_TRUE(vok_enum_entry_for_param(d, 3, 48, 0));
    int onoff = vok_get_param_enum(d, 124, 0);
    EXPECT_STREQ(vok_get_enum_name(d, onoff), "OnOff");
    EXPECT_EQ(vok_get_enum_value_int32(d, onoff, 1), 1);
    EXPECT_EQ(vok_get_reg_enum(d, K, 1, 0), 0);
    EXPECT_EQ(vok_get_enum_count(d, 0), 0);
    EXPECT_EQ(vok_get_enum_name(d, 9999), nullptr);
}

TEST_F(OraxFamily, TextsOutliveTheirDictionaries) {
    VOK_DICT *d = nullptr;
    ASSERT_EQ(vok_open(&d, 32, V("3.12B"), 0, 0), 0);
    const char *alias = vok_get_register_name(d, 1, K, 1, 0);
    const char *cls = vok_get_register_class(d, 2, K, 1);
    vok_close(&d);
    EXPECT_EQ(d, nullptr);
    vok_close(&d);
    vok_close(nullptr);
    EXPECT_STREQ(alias, "POS_KP");
    EXPECT_STREQ(cls, "Position loop");
    // Equal class names share one pointer, across registers and dictionaries.
    Dict a(32, V("3.12B")), b(38, V("3.12B"));
    EXPECT_EQ(vok_get_register_class(a, 2, K, 1), vok_get_register_class(b, 2, K, 2));
    EXPECT_EQ(vok_get_register_class(a, 2, K, 1), cls);
}

TEST_F(OraxFamily, NullAndOutOfRangeQueriesAnswerNothing) {
    Dict d(32, V("3.12B"));
    const VOK_DICT *none = nullptr;
    EXPECT_EQ(vok_get_register_count(none, K), 0);
    EXPECT_EQ(vok_get_type_name(none, 1, K), nullptr);
    EXPECT_EQ(vok_get_type_name(d, 1, 128), nullptr);
    EXPECT_EQ(vok_get_type_name(d, 3, K), nullptr);
    EXPECT_EQ(vok_get_register_count(d, 1000), 0);
    EXPECT_FALSE(vok_register_exists(d, 1000, 1, 0));
    EXPECT_FALSE(vok_register_exists(d, K, 0xFFFE, 0));
    EXPECT_FALSE(vok_command_exists(d, VOK_COMMAND_COUNT));
    EXPECT_EQ(vok_get_command_name(d, 1, 0xFFFFFFFF), nullptr);
    EXPECT_EQ(vok_get_param_kind(d, 160, 3), 0u);
    EXPECT_EQ(vok_get_param_kind(d, 160, -1), 0u);
    EXPECT_EQ(vok_get_param_count(none, 160), 0);
    EXPECT_EQ(vok_get_drv_product(none), 0u);
    EXPECT_EQ(vok_get_dictionary_class(none), 0);
    EXPECT_FALSE(vok_reg_is_int32(none, K));
    EXPECT_EQ(vok_get_reg_default_int64(d, K, 13, 0), 0);
}

TEST(VokVersions, TextAndValue) {
    struct Row {
        const char *text;
        int rc;
        uint32_t value;
    };
    const Row rows[] = {{"3.12B", 0, 0x03128100},
                        {"1.00A", 0, 0x01008000},
                        {"12.34C", 0, 0x0C348200},
                        {"x", VOK_EBADPARAM, 0},
                        {"", VOK_EBADPARAM, 0}};
    for (const Row &r : rows) {
        SCOPED_TRACE(r.text);
        uint32_t v = 0;
        EXPECT_EQ(vok_string_to_version(r.text, &v), r.rc);
        if (r.rc == 0) {
            EXPECT_EQ(v, r.value);
        }
    }
    EXPECT_EQ(vok_string_to_version(nullptr, nullptr), VOK_EBADPARAM);
    char buf[64];
    vok_version_to_string(buf, sizeof buf, 0x03128100, nullptr);
    EXPECT_STREQ(buf, "3.12B");
    vok_version_to_string(buf, sizeof buf, 0x03128100, "");
    EXPECT_STREQ(buf, "3.12B");
    vok_version_to_string(buf, sizeof buf, 0x03128100, "Version");
    EXPECT_STREQ(buf, "Version 3.12B");
    vok_version_to_string(buf, 4, 0x03128100, "Version");
    EXPECT_EQ(std::strlen(buf), 3u);
}

TEST(VokErrors, Texts) {
    const std::pair<int, const char *> rows[] = {
        {VOK_ESYSTEM, "system error"},
        {VOK_EBADPARAM, "bad parameter"},
        {VOK_EBADDRVPROD, "unknown drive product"},
        {VOK_EBADEXTPROD, "unknown extension card product"},
        {VOK_EBADDRVVER, "incompatible drive version"},
        {VOK_EBADEXTVER, "incompatible extension card version"},
        {-1, "unknown error"},
        {-413, "unknown error"},
    };
    for (auto [code, text] : rows)
        EXPECT_STREQ(vok_translate_error(code), text) << code;
    for (int code = VOK_EFAMILY; code <= VOK_ESYSTEM; ++code)
        EXPECT_STRNE(vok_translate_error(code), "unknown error") << code;
}

} // namespace
