// What the translator and the simulated drive rely on in the embedded ORAX family: configurations
// that open or fail with their codes, names the tables can be built from, the assignment commands
// of every dictionary, card and version additions, and texts that outlive their dictionaries.
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dict.hpp"
#include "ryn/sup.h"
#include "ryn/vok.h"

namespace {

constexpr uint32_t V312B = 0x03128100, V320A = 0x03208000, V102A = 0x01028000, V200A = 0x02008000,
                   V201A = 0x02018000;
constexpr uint32_t K = 2, M = 3, W = 12, C = 13;

class OraxFamily : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(vok_load_default_family(), 0); }
};

TEST_F(OraxFamily, ConfigurationsOpenOrFailWithTheirCodes) {
    struct Row {
        const char *what;
        uint32_t product, version, ext, ext_version;
        int rc;
    } rows[] = {
        {"D32 with IOX-8", 32, V312B, 0x21, V102A, 0},
        {"D32 drive only", 32, V312B, VOK_DRIVE_ONLY, 0, 0},
        {"drive only with a card version", 32, V312B, VOK_DRIVE_ONLY, 1, VOK_EBADEXTVER},
        {"M51 with IOX-8 does not fit", 51, V201A, 0x21, V102A, VOK_EBADEXTVER},
        {"unknown card version", 32, V312B, 0x21, 0x01038000, VOK_EBADEXTVER},
        {"unknown card", 32, V312B, 0x99, V102A, VOK_EBADEXTPROD},
        {"unknown drive version", 32, 0x03118000, 0, 0, VOK_EBADDRVVER},
        {"unknown product", 7, V102A, 0, 0, VOK_EBADDRVPROD},
        {"reserved product", 39, V102A, 0, 0, VOK_EBADDRVPROD},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        sup_trace_clear();
        Dict d(r.product, r.version, r.ext, r.ext_version);
        EXPECT_EQ(d.rc, r.rc);
        if (r.rc == 0) {
            EXPECT_EQ(vok_get_ext_product(d), r.ext);
            continue;
        }
        EXPECT_EQ(d.d, nullptr);
        // The failure opens the trace, so that the caller's frame can follow it.
        ASSERT_EQ(sup_trace_count(), 1);
        SUP_FRAME f;
        ASSERT_EQ(sup_trace_get(0, &f), 0);
        EXPECT_STREQ(f.function, "vok_open");
        EXPECT_EQ(f.code, r.rc);
    }
    EXPECT_EQ(vok_open(nullptr, 32, V312B, 0, 0), VOK_EBADPARAM);
    // Offline, an unknown version is left to the caller: no dictionary, no failure.
    VOK_DICT *d = nullptr;
    EXPECT_EQ(vok_open_offline(&d, 0, 32, 0x03118000, 0, 0), 0);
    EXPECT_EQ(d, nullptr);
    EXPECT_EQ(vok_open_offline(&d, 0, 7, V102A, 0, 0), VOK_EBADDRVPROD);
}

// Every product the translator's tables are built from opens drive-only at its default version,
// and its names are ones the parser can tell apart: no type name ends in "Y" (the whole type),
// starts with "SD" or holds a digit, no command name ends in a digit.
TEST_F(OraxFamily, NamesOfEveryProductSuitTheTables) {
    int products = 0;
    for (uint32_t p = 0; p < 64; ++p) {
        const uint32_t version = vok_get_default_version(p);
        if (version == 0) continue;
        SCOPED_TRACE("product " + std::to_string(p));
        ++products;
        VOK_DICT *d = nullptr;
        ASSERT_EQ(vok_open(&d, p, version, VOK_DRIVE_ONLY, 0), 0);
        EXPECT_EQ(vok_is_axis63_product(p) != 0, p == 48 || p == 49 || p == 51);
        for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k) {
            const char *n = vok_get_type_name(d, 1, k);
            if (n == nullptr) continue;
            const std::string s = n;
            EXPECT_NE(s.back(), 'Y') << s;
            EXPECT_NE(s.rfind("SD", 0), 0u) << s;
            EXPECT_EQ(s.find_first_of("0123456789"), std::string::npos) << s;
        }
        for (uint32_t c = 0; c < VOK_COMMAND_COUNT; ++c) {
            const char *n = vok_get_command_name(d, 1, c);
            if (n == nullptr || n[0] == 0) continue;
            EXPECT_FALSE(std::isdigit(static_cast<unsigned char>(n[std::strlen(n) - 1]))) << n;
        }
        vok_close(&d);
    }
    EXPECT_GE(products, 12);
}

// The builder and validation take the assignments from the dictionary like any command: two
// parameters of one kind, one for the step forms, 65 for the element assignment; only a class 3
// dictionary lacks 125.
TEST_F(OraxFamily, AssignmentCommandsInEveryDictionary) {
    std::vector<uint32_t> two = {122, 123, 125, 172, 173, 174};
    for (uint32_t c = 91; c <= 101; ++c)
        two.push_back(c);
    for (uint32_t p : {1u, 25u, 32u, 48u, 51u, 60u}) {
        SCOPED_TRACE("product " + std::to_string(p));
        Dict d(p, vok_get_default_version(p));
        ASSERT_EQ(d.rc, 0);
        for (uint32_t c : two) {
            if (c == 125 && vok_get_dictionary_class(d) == 3) {
                EXPECT_FALSE(vok_command_exists(d, c));
                continue;
            }
            EXPECT_TRUE(vok_command_exists(d, c)) << c;
            EXPECT_EQ(vok_get_command_name(d, 1, c), nullptr) << c;
            ASSERT_EQ(vok_get_param_count(d, c), 2) << c;
            EXPECT_EQ(vok_get_param_kind(d, c, 0), vok_get_param_kind(d, c, 1)) << c;
        }
        EXPECT_EQ(vok_get_param_count(d, 114), 1);
        EXPECT_EQ(vok_get_param_count(d, 1537), 65);
        EXPECT_EQ(vok_get_dictionary_class(d) == 3, p == 25);
    }
    // A command that takes a list accepts 64 values.
    Dict d(32, V312B);
    EXPECT_TRUE(vok_command_has_vector_params(d, 310));
    EXPECT_EQ(vok_get_param_count(d, 310), 64);
    EXPECT_FALSE(vok_command_has_vector_params(d, 160));
    EXPECT_TRUE(vok_get_param_is_iso(d, 160, 1));
}

TEST_F(OraxFamily, CardsVersionsAndControllersAddRegisters) {
    struct Row {
        const char *what;
        uint32_t product, version, ext, ext_version, kind, index;
        int exists;
    } rows[] = {
        {"K100 from 3.20A", 32, V320A, 0, 0, K, 100, 1},
        {"no K100 in 3.12B", 32, V312B, 0, 0, K, 100, 0},
        {"IOX-8 C100", 32, V312B, 0x21, V102A, C, 100, 1},
        {"no card registers drive-only", 32, V312B, VOK_DRIVE_ONLY, 0, C, 100, 0},
        {"ENC-2 K440", 33, V312B, 0x22, V200A, K, 440, 1},
        {"W10 on M51", 51, V201A, 0, 0, W, 10, 1},
        {"no W on a drive", 32, V312B, 0, 0, W, 10, 0},
    };
    for (const Row &r : rows) {
        Dict d(r.product, r.version, r.ext, r.ext_version);
        ASSERT_EQ(d.rc, 0) << r.what;
        EXPECT_EQ(vok_index_exists(d, r.kind, r.index), r.exists) << r.what;
    }
    // Larger power stages allow larger current limits.
    Dict d32(32, V312B), d38(38, V312B);
    EXPECT_LT(vok_get_reg_max_int32(d32, K, 70, 0), vok_get_reg_max_int32(d38, K, 70, 0));
}

// The product category text of M85, four characters per element, first in the low byte: the
// simulated drive answers it and uploads write it.
TEST_F(OraxFamily, ProductCategories) {
    const std::pair<uint32_t, const char *> rows[] = {
        {25, "LEGACY DRIVE"}, {32, "SERVO DRIVE"}, {51, "MOTION CTRL SYNC"}, {60, "SPECIAL DRIVE"}};
    for (auto [product, expected] : rows) {
        Dict d(product, vok_get_default_version(product));
        ASSERT_EQ(d.rc, 0) << product;
        EXPECT_EQ(vok_get_register_format(d, M, 85, 0), VOK_FORMAT_STRING);
        std::string text;
        for (uint32_t e = 0; e < 4; ++e) {
            const auto w = static_cast<uint32_t>(vok_get_reg_default_int32(d, M, 85, e));
            for (int c = 0; c < 4 && (w >> (8 * c) & 0xFF) != 0; ++c)
                text += static_cast<char>(w >> (8 * c) & 0xFF);
        }
        EXPECT_EQ(text, expected) << product;
    }
}

TEST_F(OraxFamily, CommentsOfAssignmentsAreRegisterDescriptions) {
    Dict d(32, V312B);
    const char *k1 = vok_get_register_name(d, 2, K, 1, 0);
    ASSERT_NE(k1, nullptr);
    for (uint32_t c : {91u, 114u, 122u, 125u, 129u, 174u, 1537u})
        EXPECT_EQ(vok_get_command_comment(d, 2, c, K, 1, 0), k1) << c;
    EXPECT_EQ(vok_get_command_comment(d, 2, 48, K, 1, 0), vok_get_command_name(d, 2, 48));
    EXPECT_EQ(vok_get_command_comment(d, 2, 123, K, 13, 0), nullptr);
}

TEST_F(OraxFamily, TextsOutliveTheirDictionaries) {
    VOK_DICT *d = nullptr;
    ASSERT_EQ(vok_open(&d, 32, V312B, 0, 0), 0);
    const char *alias = vok_get_register_name(d, 1, K, 1, 0);
    const char *cls = vok_get_register_class(d, 2, K, 1);
    vok_close(&d);
    EXPECT_EQ(d, nullptr);
    vok_close(&d);
    EXPECT_STREQ(alias, "POS_KP");
    // Equal class names share one pointer, across registers and dictionaries.
    Dict a(32, V312B), b(38, V312B);
    EXPECT_EQ(vok_get_register_class(b, 2, K, 2), cls);
}

TEST_F(OraxFamily, NullAndOutOfRangeQueriesAnswerNothing) {
    Dict d(32, V312B);
    const VOK_DICT *none = nullptr;
    EXPECT_EQ(vok_get_register_count(none, K), 0);
    EXPECT_EQ(vok_get_type_name(d, 1, 128), nullptr);
    EXPECT_FALSE(vok_register_exists(d, 1000, 1, 0));
    EXPECT_FALSE(vok_command_exists(d, VOK_COMMAND_COUNT));
    EXPECT_EQ(vok_get_param_kind(d, 160, -1), 0u);
    EXPECT_EQ(vok_get_reg_default_int64(d, K, 13, 0), 0);
    for (int code = VOK_EFAMILY; code <= VOK_ESYSTEM; ++code)
        EXPECT_STRNE(vok_translate_error(code), "unknown error") << code;
}

TEST(VokVersions, TextAndValueWithAPrefix) {
    uint32_t v = 0;
    EXPECT_EQ(vok_string_to_version("12.34C", &v), 0);
    EXPECT_EQ(v, 0x0C348200u);
    EXPECT_EQ(vok_string_to_version("x", &v), VOK_EBADPARAM);
    EXPECT_EQ(vok_string_to_version(nullptr, nullptr), VOK_EBADPARAM);
    char buf[64];
    vok_version_to_string(buf, sizeof buf, V312B, "Version");
    EXPECT_STREQ(buf, "Version 3.12B");
    vok_version_to_string(buf, sizeof buf, V312B, nullptr);
    EXPECT_STREQ(buf, "3.12B");
    vok_version_to_string(buf, 4, V312B, "Version");
    EXPECT_STREQ(buf, "Ver");
}

} // namespace
