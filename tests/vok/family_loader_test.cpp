// Loading other families: the odd test family, refused descriptions and their messages, busy state.
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dict.hpp"
#include "ryn/sup.h"
#include "ryn/vok.h"

namespace {

const std::string kOdd = std::string(RYN_TEST_DATA) + "/vok/odd_family.json";
constexpr uint32_t k100A = 0x01008000;

class OddFamily : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(vok_load_family_file(kOdd.c_str()), 0) << vok_get_family_error();
    }
    void TearDown() override { EXPECT_EQ(vok_load_default_family(), 0); }
};

TEST_F(OddFamily, OddDataForTableBuilding) {
    EXPECT_STREQ(vok_get_family_source(), kOdd.c_str());
    struct Row {
        const char *what;
        uint32_t product, kind, index;
        const char *alias;
    };
    const Row rows[] = {
        {"GAIN is K5 on ODD-D32", 32, 2, 5, "GAIN"},
        {"GAIN is M7 on ODD-D35", 35, 3, 7, "GAIN"},
        {"ODD-D35 has no K5", 35, 2, 5, nullptr},
        {"CYCLE is W1 on ODD-M48", 48, 12, 1, "CYCLE"},
        {"CYCLE is W1 on ODD-M49", 49, 12, 1, "CYCLE"},
        {"CYCLE is W2 on ODD-M51", 51, 12, 2, "CYCLE"},
        {"ODD-M51 has no W1", 51, 12, 1, nullptr},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        Dict d(r.product, vok_get_default_version(r.product), VOK_DRIVE_ONLY, 0);
        ASSERT_EQ(d.rc, 0);
        EXPECT_EQ(vok_is_axis63_product(r.product), r.product >= 48);
        const char *alias = vok_get_register_name(d, 1, r.kind, r.index, 0);
        if (r.alias) {
            EXPECT_STREQ(alias, r.alias);
        } else {
            EXPECT_EQ(alias, nullptr);
            EXPECT_FALSE(vok_index_exists(d, r.kind, r.index));
        }
    }
    Dict d32(32, k100A), d33(33, k100A), l1(1, k100A);
    EXPECT_STREQ(vok_get_command_name(d32, 1, 200), "JOG");
    EXPECT_STREQ(vok_get_command_name(d33, 1, 201), "JOG");
    EXPECT_FALSE(vok_command_exists(d33, 200));
    // A type without a name, with registers.
    EXPECT_EQ(vok_get_type_name(d33, 1, 5), nullptr);
    EXPECT_TRUE(vok_type_exists(d33, 5));
    EXPECT_EQ(vok_get_register_count(d33, 5), 4);
    EXPECT_STREQ(vok_get_register_name(d33, 2, 5, 3, 0), "Unnamed scratch 3");
    // A product whose default version is 0 is still opened by its versions.
    EXPECT_EQ(vok_get_default_version(40), 0u);
    EXPECT_TRUE(vok_is_known_version(40, k100A));
    Dict x40(40, k100A);
    EXPECT_EQ(x40.rc, 0);
    // Class 3 without command 125.
    EXPECT_EQ(vok_get_dictionary_class(l1), 3);
    EXPECT_FALSE(vok_command_exists(l1, 125));
    EXPECT_TRUE(vok_command_exists(l1, 123));
    // A later version changes some fields of a register and keeps the others.
    Dict d110(32, 0x01108000);
    ASSERT_EQ(d110.rc, 0);
    EXPECT_EQ(vok_get_reg_max_int32(d110, 2, 1, 0), 2000000);
    EXPECT_EQ(vok_get_reg_max_int32(d32, 2, 1, 0), 1000000);
    EXPECT_EQ(vok_get_reg_default_int32(d110, 2, 1, 0), 1000);
    EXPECT_STREQ(vok_get_register_name(d110, 1, 2, 1, 0), "POS_KP");
    EXPECT_TRUE(vok_index_exists(d110, 2, 3));
    EXPECT_FALSE(vok_index_exists(d32, 2, 3));
    // The ORAX names are gone with the ORAX family.
    EXPECT_EQ(vok_get_ext_product_name(0x22), nullptr);
    EXPECT_STREQ(vok_get_ext_product_name(33), "ODD-IO");
}

TEST_F(OddFamily, ReplacingAFamilyWhileDictionariesAreOpenIsRefused) {
    VOK_DICT *d = nullptr;
    ASSERT_EQ(vok_open(&d, 32, k100A, 0, 0), 0);
    const char *alias = vok_get_register_name(d, 1, 2, 1, 0);
    EXPECT_EQ(vok_load_default_family(), VOK_EBUSY);
    EXPECT_EQ(vok_load_family_file(kOdd.c_str()), VOK_EBUSY);
    EXPECT_EQ(vok_load_family_text("{}"), VOK_EBUSY);
    EXPECT_NE(std::string(vok_get_family_error()).find("open"), std::string::npos);
    EXPECT_EQ(vok_get_product_name(32), std::string("ODD-D32"));
    vok_close(&d);
    EXPECT_EQ(vok_load_default_family(), 0);
    // Texts of a replaced family stay valid.
    EXPECT_STREQ(alias, "POS_KP");
    EXPECT_EQ(vok_load_family_file(kOdd.c_str()), 0);
}

// A minimal valid family to which each refused case below adds one fault.
std::string family(const std::string &extra_types, const std::string &sets,
                   const std::string &products, const std::string &enums = "[]",
                   const std::string &cards = "[]") {
    return R"({"types": [{"code": 2, "names": ["K", "KF", "KL", "KD"]}, {"code": 1, "names": ["X"]})" +
           extra_types + R"(], "enums": )" + enums + R"(, "register_sets": )" + sets +
           R"(, "products": )" + products + R"(, "cards": )" + cards + "}";
}

// A product whose versions 1.00A, 1.01A, ... are each based on the one after, so that resolving
// the first one walks the whole chain.
std::string version_chain(int count) {
    std::string versions;
    for (int i = 0; i < count; ++i) {
        char v[16], b[16];
        std::snprintf(v, sizeof v, "%d.%02dA", 1 + i / 100, i % 100);
        std::snprintf(b, sizeof b, "%d.%02dA", 1 + (i + 1) / 100, (i + 1) % 100);
        versions += std::string(i ? ", " : "") + R"({"version": ")" + v + "\"" +
                    (i + 1 < count ? std::string(R"(, "base": ")") + b + "\"" : std::string()) +
                    "}";
    }
    return R"({"products": [{"code": 1, "name": "P", "default": "1.00A", "versions": [)" +
           versions + "]}]}";
}

const std::string kSets = R"({"base": [{"reg": "K1", "alias": "ONE"}, {"reg": "X0..9"}]})";
const std::string kProduct =
    R"([{"code": 32, "name": "P32", "default": "1.00A", "versions": [{"version": "1.00A", "register_sets": ["base"]}]}])";

// The minimal family with its register entries, extra types, products or enumerations replaced.
std::string regs(const std::string &entries) {
    return family("", R"({"base": [)" + entries + "]}", kProduct);
}
std::string types(const std::string &extra) {
    return family(extra, kSets, kProduct);
}
std::string products(const std::string &list) {
    return family("", kSets, list);
}
std::string enums(const std::string &list) {
    return family("", kSets, kProduct, list);
}
// Product 32 with the given default and list of versions; enumeration 1 with the given entries.
std::string versions(const std::string &def, const std::string &list) {
    return products(R"([{"code": 32, "name": "P", "default": ")" + def + R"(", "versions": [)" +
                    list + "]}]");
}
std::string entries(const std::string &list) {
    return enums(R"([{"id": 1, "name": "E", "entries": [)" + list + "]}]");
}

TEST(FamilyLoader, AcceptsTheMinimalFamily) {
    ASSERT_EQ(vok_load_family_text(family("", kSets, kProduct).c_str()), 0)
        << vok_get_family_error();
    EXPECT_STREQ(vok_get_family_error(), "");
    {
        Dict d(32, k100A);
        ASSERT_EQ(d.rc, 0);
        EXPECT_STREQ(vok_get_register_name(d, 1, 2, 1, 0), "ONE");
        EXPECT_EQ(vok_get_register_count(d, 1), 10);
        EXPECT_EQ(vok_get_dictionary_class(d), 1);
    }
    EXPECT_EQ(vok_load_default_family(), 0);
}

TEST(FamilyLoader, RefusedDescriptions) {
    struct Row {
        const char *what;
        std::string text;
        const char *part1, *part2 = nullptr, *part3 = nullptr; // parts the message must hold
        int rc = VOK_EFAMILY;
    };
    const std::string base = R"({"version": "1.00A", "register_sets": ["base"]}, )";
    const Row rows[] = {
        {"bad JSON", "{\"types\": [", "<text>", "line 1, column", nullptr, VOK_EFORMAT},
        {"not an object", "[1, 2]", "<text>", "must be a JSON object"},
        {"unknown top-level key", R"({"typos": []})", "typos", "unknown key"},
        {"unknown type name", regs(R"({"reg": "Z1"})"), "register_sets.base[0].reg",
         "unknown type name \"Z\""},
        {"duplicate register", regs(R"({"reg": "K1"}, {"reg": "K0..3"})"), "register_sets.base[1]",
         "duplicate register K1"},
        {"duplicate type name", types(R"(, {"code": 3, "names": ["K"]})"), "types[2].names[0]",
         "type name \"K\" used twice"},
        {"type name ending in Y", types(R"(, {"code": 3, "names": ["MY"]})"), "types[2].names[0]",
         "bad type name \"MY\""},
        {"type name starting with SD", types(R"(, {"code": 3, "names": ["SDA"]})"),
         "bad type name \"SDA\""},
        {"type code out of range", types(R"(, {"code": 32, "names": ["Z"]})"), "types[2].code",
         "out of range"},
        {"enumeration cycle",
         entries(
             R"({"name": "A", "value": 1, "parent": "B"}, {"name": "B", "value": 2, "parent": "A"})"),
         "enums[0].entries[0]", "enumeration cycle"},
        {"unknown parent entry", entries(R"({"name": "A", "value": 1, "parent": "Q"})"),
         "enums[0].entries[0].parent", "unknown parent entry \"Q\""},
        {"enumeration id 0", enums(R"([{"id": 0, "name": "E", "entries": []}])"), "enums[0].id",
         "out of range"},
        {"unknown enumeration", regs(R"({"reg": "K1", "enum": "Nope"})"),
         "register_sets.base[0].enum", "unknown enumeration \"Nope\""},
        {"version based on a missing version",
         versions("1.00A", base + R"({"version": "1.10A", "base": "1.05A"})"),
         "products[0].versions[1].base", "1.05A", "does not have"},
        {"versions based on each other",
         versions(
             "1.00A",
             R"({"version": "1.00A", "base": "1.10A"}, {"version": "1.10A", "base": "1.00A"})"),
         "circle"},
        {"base of an unknown product",
         versions("1.00A", base + R"({"version": "1.10A", "base": "P99 1.00A"})"),
         "products[0].versions[1].base", "unknown product \"P99\""},
        {"default version not listed", versions("2.00A", R"({"version": "1.00A"})"),
         "products[0].default", "2.00A"},
        {"bad version text", versions("1.00A", R"({"version": "one"})"),
         "products[0].versions[0].version", "bad version \"one\""},
        {"product declared twice",
         products(R"([{"code": 32, "reserved": true}, {"code": 32, "reserved": true}])"),
         "products[1].code", "declared twice"},
        {"unknown register set",
         versions("1.00A", R"({"version": "1.00A", "register_sets": ["nope"]})"),
         "register_sets[0]", "unknown register set \"nope\""},
        {"minimum above maximum", regs(R"({"reg": "K1", "min": 5, "max": 1})"),
         "register_sets.base[0]", "minimum above maximum in K1"},
        {"default outside the range", regs(R"({"reg": "K1", "min": 1, "max": 5, "default": 9})"),
         "default outside the range in K1"},
        {"int32 value out of range", regs(R"({"reg": "K1", "max": 99999999999})"),
         "register_sets.base[0].max", "out of range"},
        {"signed hexadecimal number", regs(R"({"reg": "K1", "max": "0x-5"})"),
         "register_sets.base[0].max", "bad number \"0x-5\""},
        {"fractional integer", regs(R"({"reg": "K1", "max": 1.5})"), "register_sets.base[0].max",
         "whole number"},
        {"string default too long",
         regs(R"({"reg": "K1", "format": "string", "default": "abcde"})"),
         "register_sets.base[0].default", "does not fit"},
        {"bad IP address", regs(R"({"reg": "K1", "format": "ip", "default": "1.2.3.400"})"),
         "bad IP address"},
        {"one alias for many registers", regs(R"({"reg": "K1..4", "alias": "SAME"})"),
         "register_sets.base[0].alias", "one alias for a range"},
        {"alias that reads as a register", regs(R"({"reg": "K1", "alias": "X12"})"),
         "register_sets.base[0].alias", "\"X12\" reads as a register"},
        {"alias that names a whole type", regs(R"({"reg": "K1", "alias": "KFY"})"),
         "\"KFY\" reads as a register"},
        {"alias of a range that reads as a register", regs(R"({"reg": "K1..3", "alias": "K{i}0"})"),
         "register_sets.base[0].alias", "\"K10\" reads as a register"},
        {"alias with a blank", regs(R"({"reg": "K1", "alias": "POS KP"})"), "bad alias \"POS KP\""},
        {"command name that names a whole type",
         family("", kSets, kProduct).substr(0, family("", kSets, kProduct).size() - 1) +
             R"(, "command_sets": {"c": [{"number": 5, "name": "KY"}]}})",
         "command_sets.c[0].name", "\"KY\" reads as a register"},
        {"register index too large", regs(R"({"reg": "K65534"})"), "above 65533"},
        {"too many elements", regs(R"({"reg": "K1", "elements": 257})"),
         "register_sets.base[0].elements", "out of range"},
        {"rows on a plain register", regs(R"({"reg": "K1", "rows": 2, "columns": 2})"),
         "only matrix registers"},
        {"unknown register key", regs(R"({"reg": "K1", "colour": "red"})"),
         "register_sets.base[0].colour", "unknown key"},
        {"removing a missing register",
         versions("1.00A",
                  base + R"({"version": "1.10A", "base": "1.00A", "remove_registers": ["K7"]})"),
         "products[0].versions[1].remove_registers[0]", "K7"},
        {"card of an unknown product",
         family("", kSets, kProduct, "[]",
                R"([{"code": 1, "name": "C", "fits": [33], "versions": []}])"),
         "cards[0].fits[0]", "product 33"},
        {"command name ending in a digit",
         R"({"command_sets": {"c": [{"number": 5, "name": "GO2"}]}})", "command_sets.c[0].name",
         "GO2"},
        {"three-letter command name ending in Y",
         R"({"command_sets": {"c": [{"number": 5, "name": "KEY"}]}})", "KEY"},
        {"command number out of range", R"({"command_sets": {"c": [{"number": 14592}]}})",
         "command_sets.c[0].number", "out of range"},
        {"duplicate command", R"({"command_sets": {"c": [{"number": 5}, {"number": 5}]}})",
         "command_sets.c[1].number", "duplicate command 5"},
        {"unknown parameter kind",
         R"({"command_sets": {"c": [{"number": 5, "params": [{"kind": "int16"}]}]}})",
         "command_sets.c[0].params[0].kind", "int16"},
        {"list values without a vector parameter",
         R"({"command_sets": {"c": [{"number": 5, "params": [{}], "list_values": 8}]}})",
         "command_sets.c[0].list_values", "vector parameter"},
        {"number beyond the double range", R"({"family": 1e999})", "<text>: ", nullptr, nullptr,
         VOK_EFORMAT},
        {"versions based on each other too deep", version_chain(300), "256 deep"},
        {"too many parameters",
         R"({"command_sets": {"c": [{"number": 5, "params": [{"repeat": 65}, {}]}]}})",
         "more than 65 parameters"},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        sup_trace_clear();
        EXPECT_EQ(vok_load_family_text(r.text.c_str()), r.rc);
        const std::string msg = vok_get_family_error();
        for (const char *part : {r.part1, r.part2, r.part3})
            EXPECT_TRUE(part == nullptr || msg.find(part) != std::string::npos)
                << "message: " << msg << "\nmissing: " << part;
        EXPECT_EQ(msg.rfind("<text>: ", 0), 0u) << msg;
        // The refusal is traced, and nothing of the description was loaded.
        SUP_FRAME f;
        ASSERT_EQ(sup_trace_get(0, &f), 0);
        EXPECT_EQ(f.code, r.rc);
        EXPECT_EQ(msg.rfind(f.details[0], 0), 0u) << f.details[0];
        EXPECT_STREQ(vok_get_family_source(), "<embedded ORAX family>");
        EXPECT_STREQ(vok_get_product_name(32), "ORX-D32");
    }
}

TEST(FamilyLoader, FileFaultsNameTheFile) {
    ASSERT_EQ(vok_load_default_family(), 0);
    const std::string missing = std::string(RYN_TEST_DATA) + "/vok/no_such_family.json";
    EXPECT_EQ(vok_load_family_file(missing.c_str()), VOK_EFILE);
    EXPECT_EQ(std::string(vok_get_family_error()).rfind(missing, 0), 0u);
    const std::string broken = std::string(RYN_TEST_DATA) + "/vok/broken_family.json";
    EXPECT_EQ(vok_load_family_file(broken.c_str()), VOK_EFAMILY);
    const std::string msg = vok_get_family_error();
    EXPECT_EQ(msg.rfind(broken + ": products[0].versions[1].base", 0), 0u) << msg;
    EXPECT_EQ(vok_load_family_file(RYN_TEST_DATA), VOK_EFILE);
    EXPECT_NE(std::string(vok_get_family_error()).find("directory"), std::string::npos);
    EXPECT_EQ(vok_load_family_file(nullptr), VOK_EBADPARAM);
    EXPECT_EQ(vok_load_family_text(nullptr), VOK_EBADPARAM);
    EXPECT_STREQ(vok_get_family_source(), "<embedded ORAX family>");
}

} // namespace
