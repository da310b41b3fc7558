// Lookup tables built from a family with conflicting names: the printed diagnostics, which
// meaning a name keeps, and the axes it is valid on.
#include <gtest/gtest.h>

#include <string>

#include "tralkt.hpp"

namespace {

using namespace ryn::tra;

constexpr uint32_t V100A = 0x01008000;
constexpr uint64_t AXIS63 = uint64_t(1) << 63;

std::string repeat(const std::string &line, int times) {
    std::string out;
    for (int i = 0; i < times; ++i)
        out += line;
    return out;
}

const std::string jog_generic =
    "Error COMMAND ALIAS JOG defined with another index (Old index 200 new index 201)\n";

struct OddFamily : ::testing::Test {
    TRA *tra = nullptr;
    static void SetUpTestSuite() {
        ASSERT_EQ(vok_load_family_file(RYN_TEST_DATA "/vok/odd_family.json"), 0);
    }
    static void TearDownTestSuite() { EXPECT_EQ(vok_load_default_family(), 0); }
    void TearDown() override { tra_destroy(&tra); }

    std::string build() {
        testing::internal::CaptureStdout();
        EXPECT_EQ(_tra_create_lkt(tra), 0);
        return testing::internal::GetCapturedStdout();
    }
    const LookupEntry &entry(const std::vector<LookupEntry> &table, const char *name) {
        const LookupEntry *e = _tra_find_name(table, name);
        EXPECT_NE(e, nullptr) << name;
        static const LookupEntry none{};
        return e ? *e : none;
    }
};

TEST_F(OddFamily, DiagnosticsPerConfiguration) {
    struct Row {
        const char *name;
        uint32_t product, product63;
        std::string printed;
    } rows[] = {
        {"drive whose alias means another register: every axis reports, the old meaning stays", 35,
         0,
         repeat("Error REGISTER ALIAS GAIN defined with another typ/index (Old typ/index 2/5 new "
                "typ/index 3/7)\n",
                64) +
             jog_generic},
        {"controller remaps a controller-only alias on axis 63: updated", 32, 51,
         "Error REGISTER ALIAS CYCLE defined with another typ/index (Old typ/index 12/1 new "
         "typ/index 12/2). Update typ/index with new one\n" +
             jog_generic},
        {"drive whose command has another number: every axis reports", 33, 0,
         jog_generic + repeat("Error COMMAND ALIAS JOG defined with another index (Old index 200 "
                              "new index 201)\n",
                              64)},
        {"controllers report no command conflict of their own", 48, 0, jog_generic},
    };
    for (const Row &r : rows) {
        int rc = r.product63 == 0 ? tra_create_direct_traductor_o(&tra, r.product, V100A, 0, 0, 0)
                                  : tra_create_direct_traductor_o2(&tra, r.product, V100A, 0, 0,
                                                                   r.product63, V100A, 0, 0, 0);
        ASSERT_EQ(rc, 0) << r.name;
        EXPECT_EQ(build(), r.printed) << r.name;
        tra_destroy(&tra);
    }
}

TEST_F(OddFamily, KeptAndUpdatedMeanings) {
    ASSERT_EQ(tra_create_direct_traductor_o(&tra, 35, V100A, 0, 0, 0), 0);
    build();
    const LookupEntry &gain = entry(tra->registers, "GAIN");
    EXPECT_EQ(gain.type, 2u);
    EXPECT_EQ(gain.index, 5u);
    EXPECT_EQ(gain.axes, ~uint64_t(0));
    tra_destroy(&tra);

    ASSERT_EQ(tra_create_direct_traductor_o2(&tra, 32, V100A, 0, 0, 51, V100A, 0, 0, 0), 0);
    build();
    const LookupEntry &cycle = entry(tra->registers, "CYCLE");
    EXPECT_EQ(cycle.type, 12u);
    EXPECT_EQ(cycle.index, 2u);
    EXPECT_EQ(cycle.axes, AXIS63);
    EXPECT_EQ(entry(tra->commands, "JOG").index, 200u);
}

TEST_F(OddFamily, OfflineNamesAreValidExactlyWhereTheirDictionaryDefinesThem) {
    ASSERT_EQ(tra_create_direct_traductor_o2(&tra, 32, V100A, 0, 0, 51, V100A, 0, 0, 0), 0);
    build();
    struct Row {
        const char *name;
        bool command;
        uint64_t axes;
    } rows[] = {
        {"POS_KP", false, ~AXIS63},  {"GAIN", false, ~AXIS63},    {"CYCLE", false, AXIS63},
        {"POS_ACT", false, ~AXIS63}, {"CLX", true, ~uint64_t(0)}, {"JOG", true, ~uint64_t(0)},
    };
    for (const Row &r : rows)
        EXPECT_EQ(entry(r.command ? tra->commands : tra->registers, r.name).axes, r.axes) << r.name;
}

} // namespace
