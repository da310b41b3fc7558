// Lookup tables built from the embedded ORAX family: names, axes, type names, and silence.
#include <gtest/gtest.h>

#include <string>

#include "tralkt.hpp"

namespace {

using namespace ryn::tra;

constexpr uint32_t V312B = 0x03128100;
constexpr uint32_t V201A = 0x02018000;
constexpr uint64_t ALL = ~uint64_t(0);
constexpr uint64_t AXIS63 = uint64_t(1) << 63;

// Builds the tables of a translator and returns what the build printed.
std::string build(TRA *tra) {
    testing::internal::CaptureStdout();
    int rc = _tra_create_lkt(tra);
    std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(rc, 0);
    EXPECT_FALSE(tables_stale(*tra));
    return printed;
}

struct OrxTables : ::testing::Test {
    TRA *tra = nullptr;
    void TearDown() override { tra_destroy(&tra); }
};

TEST_F(OrxTables, DriveOnEveryAxisBuildsSilentlyWithItsNames) {
    ASSERT_EQ(tra_create_direct_traductor_o(&tra, 32, V312B, 0, 0, 0), 0);
    EXPECT_EQ(build(tra), "");
    struct Row {
        const char *name;
        const std::vector<LookupEntry> &table;
        uint32_t type, index;
        uint64_t axes;
    } rows[] = {
        // A name in any case, a typed one, a controller's name (valid on no drive axis), a command.
        {"pos_kp", tra->registers, 2, 1, ALL},
        {"VEL_MAX", tra->registers, 34, 1, ALL},
        {"SYNC_PER", tra->registers, 12, 10, 0},
        {"PWR", tra->commands, COMMAND_TYPE, 124, ALL},
    };
    for (const Row &r : rows) {
        const LookupEntry *e = _tra_find_name(r.table, r.name);
        ASSERT_NE(e, nullptr) << r.name;
        EXPECT_EQ(e->type, r.type) << r.name;
        EXPECT_EQ(e->index, r.index) << r.name;
        EXPECT_EQ(e->axes, r.axes) << r.name;
    }
    EXPECT_EQ(_tra_find_name(tra->commands, "TUN"), nullptr) << "TUN comes with 3.20A";
    EXPECT_EQ(_tra_find_name(tra->registers, "NO_SUCH_ALIAS"), nullptr);
}

TEST_F(OrxTables, ControllerOnAxis63HoldsItsOwnNamesThere) {
    ASSERT_EQ(tra_create_direct_traductor_o2(&tra, 32, V312B, 0, 0, 51, V201A, 0, 0, 0), 0);
    EXPECT_EQ(build(tra), "");
    const LookupEntry *sync = _tra_find_name(tra->registers, "SYNC_PER");
    ASSERT_NE(sync, nullptr);
    EXPECT_EQ(sync->axes, AXIS63);
    EXPECT_EQ(sync->product_class_only, 1);
    const LookupEntry *kp = _tra_find_name(tra->registers, "POS_KP");
    ASSERT_NE(kp, nullptr);
    EXPECT_EQ(kp->axes & ~AXIS63, ALL & ~AXIS63);
}

TEST_F(OrxTables, EveryProductOfTheFamilyBuildsSilently) {
    for (uint32_t p : GENERIC_PRODUCTS) {
        const uint32_t version = vok_get_default_version(p);
        if (version == 0) continue;
        for (bool beside_a_drive : {false, true}) {
            int rc = beside_a_drive ? tra_create_direct_traductor_o2(&tra, 32, V312B, 0, 0, p,
                                                                     version, 0, 0, 0)
                                    : tra_create_direct_traductor_o(&tra, p, version, 0, 0, 0);
            ASSERT_EQ(rc, 0) << p;
            EXPECT_EQ(build(tra), "") << "product " << p << (beside_a_drive ? " on axis 63" : "");
            tra_destroy(&tra);
        }
    }
}

TEST_F(OrxTables, TablesAreSortedAndTypeNamesComeFromTheDictionary) {
    ASSERT_EQ(tra_create_direct_traductor_o(&tra, 32, V312B, 0, 0, 0), 0);
    build(tra);
    for (const auto *table : {&tra->registers, &tra->commands})
        for (std::size_t i = 1; i < table->size(); ++i)
            EXPECT_LE(_tra_name_compare(&(*table)[i - 1].name, &(*table)[i].name), 0);
    struct Row {
        uint32_t type;
        const char *name;
    } rows[] = {{2, "K"}, {34, "KF"}, {48, "TF"}, {31, "??"}, {127, "??"}};
    for (const Row &r : rows)
        EXPECT_STREQ(tra->type_names[r.type], r.name) << r.type;
}

TEST_F(OrxTables, DriveOnlyFlagLeavesTheCardOut) {
    ASSERT_EQ(tra_create_direct_traductor_o(&tra, 32, V312B, 0x21, 0x01028000, 0), 0);
    build(tra);
    std::size_t with_card = tra->registers.size();
    ASSERT_EQ(tra_set_flags(tra, TRA_FDRIVE_ONLY), 0);
    EXPECT_TRUE(tables_stale(*tra));
    build(tra);
    EXPECT_EQ(tra->axis_dicts[5], tra->axis_sets[5].load()->drive_only);
    EXPECT_LE(tra->registers.size(), with_card);
}

TEST_F(OrxTables, EveryTranslationEntryRebuildsOnlyWhenStale) {
    ASSERT_EQ(tra_create_direct_traductor_o(&tra, 32, V312B, 0, 0, 0), 0);
    EXPECT_TRUE(tables_stale(*tra));
    { LookupSession session(*tra); }
    EXPECT_FALSE(tables_stale(*tra));
    const LookupEntry *first = tra->registers.data();
    { LookupSession session(*tra); }
    EXPECT_EQ(tra->registers.data(), first) << "fresh tables are not rebuilt";
}

} // namespace
