// Browsing the family: product, version and card lists, walking a dictionary, lookups by name,
// and queries from many threads at once.
#include <atomic>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "ryn/vok.h"

namespace {

constexpr uint32_t k312B = 0x03128100;

class Browse : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(vok_load_default_family(), 0);
        ASSERT_EQ(vok_open(&d, 32, k312B, 0x21, 0x01028000), 0);
    }
    void TearDown() override { vok_close(&d); }
    VOK_DICT *d = nullptr;
};

TEST_F(Browse, ProductsVersionsAndCards) {
    EXPECT_STREQ(vok_get_family_name(), "ORAX");
    std::vector<uint32_t> products;
    for (int i = 0; i < vok_get_product_count(); ++i)
        products.push_back(vok_get_product_code(i));
    const std::vector<uint32_t> expected = {1,  25, 32, 33, 34, 35, 36, 37, 38, 39,
                                            40, 41, 42, 43, 48, 49, 50, 51, 60};
    EXPECT_EQ(products, expected);
    EXPECT_EQ(vok_get_product_code(-1), 0u);
    EXPECT_EQ(vok_get_product_code(vok_get_product_count()), 0u);
    // A product with versions, a reserved one and an unknown one.
    const std::tuple<uint32_t, int, std::vector<uint32_t>> rows[] = {
        {32, 0, {0x03108000, 0x03128100, 0x03208000}}, {39, 1, {}}, {7, 0, {}}};
    for (const auto &[product, reserved, versions] : rows) {
        SCOPED_TRACE("product " + std::to_string(product));
        EXPECT_EQ(vok_is_reserved_product(product), reserved);
        ASSERT_EQ(vok_get_product_version_count(product), int(versions.size()));
        for (size_t i = 0; i < versions.size(); ++i)
            EXPECT_EQ(vok_get_product_version(product, int(i)), versions[i]);
        EXPECT_EQ(vok_get_product_version(product, int(versions.size())), 0u);
    }
    EXPECT_NE(vok_get_product_description(32), nullptr);
    ASSERT_EQ(vok_get_ext_product_count(), 2);
    EXPECT_EQ(vok_get_ext_product_code(0), 0x21u);
    EXPECT_EQ(vok_get_ext_product_code(1), 0x22u);
    EXPECT_EQ(vok_get_ext_product_default_version(0x22), 0x02008000u);
    EXPECT_EQ(vok_get_ext_product_version_count(0x21), 1);
    EXPECT_EQ(vok_get_ext_product_version(0x21, 0), 0x01028000u);
    EXPECT_NE(vok_get_ext_product_description(0x21), nullptr);
    struct Fit {
        uint32_t card, product;
        int fits;
    };
    const Fit fits[] = {{0x21, 32, 1}, {0x21, 51, 0}, {0x22, 1, 0}, {0x23, 32, 0}};
    for (const Fit &f : fits)
        EXPECT_EQ(vok_ext_fits_product(f.card, f.product), f.fits) << f.card << " on " << f.product;
}

TEST_F(Browse, WalkingRegistersAndCommands) {
    for (uint32_t t : {1u, 2u, 3u, 13u, 34u, 48u}) {
        SCOPED_TRACE("type " + std::to_string(t));
        int walked = 0, counted = 0;
        int32_t last = -1;
        for (int32_t i = vok_get_next_index(d, t, 0); i >= 0;
             i = vok_get_next_index(d, t, uint32_t(i) + 1)) {
            EXPECT_GT(i, last);
            EXPECT_TRUE(vok_index_exists(d, t, uint32_t(i)));
            last = i;
            ++walked;
        }
        for (int i = 0; i < vok_get_register_count(d, t); ++i)
            counted += vok_index_exists(d, t, uint32_t(i));
        EXPECT_EQ(walked, counted);
        EXPECT_EQ(last, vok_get_register_count(d, t) - 1);
    }
    EXPECT_EQ(vok_get_next_index(d, 2, 13), 14);
    EXPECT_EQ(vok_get_next_index(d, 12, 0), -1);
    EXPECT_EQ(vok_get_next_index(nullptr, 2, 0), -1);
    int commands = 0;
    for (int32_t c = vok_get_next_command(d, 0); c >= 0;
         c = vok_get_next_command(d, uint32_t(c) + 1)) {
        EXPECT_TRUE(vok_command_exists(d, uint32_t(c)));
        ++commands;
    }
    int counted = 0;
    for (uint32_t c = 0; c < VOK_COMMAND_COUNT; ++c)
        counted += vok_command_exists(d, c);
    EXPECT_EQ(commands, counted);
    EXPECT_EQ(vok_get_next_command(d, 14341), 14341);
    EXPECT_EQ(vok_get_next_command(d, VOK_COMMAND_COUNT), -1);
}

TEST_F(Browse, LookupsByName) {
    struct Row {
        const char *alias;
        int rc;
        uint32_t kind, index;
    };
    const Row rows[] = {{"POS_KP", 0, 2, 1},    {"pos_kp", 0, 2, 1},    {"Vel_Max", 0, 34, 1},
                        {"COMP_TAB", 0, 48, 2}, {"TRAJ_VEC", 0, 15, 1}, {"POS_ACT", 0, 3, 7},
                        {"SYNC_PER", -1, 0, 0}, {"POS_K", -1, 0, 0},    {"", -1, 0, 0}};
    for (const Row &r : rows) {
        SCOPED_TRACE(r.alias);
        uint32_t kind = 99, index = 99;
        EXPECT_EQ(vok_find_register_alias(d, r.alias, &kind, &index), r.rc);
        if (r.rc == 0) {
            EXPECT_EQ(kind, r.kind);
            EXPECT_EQ(index, r.index);
        }
    }
    EXPECT_EQ(vok_find_register_alias(d, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(vok_find_command_name(d, "MVE"), 160);
    EXPECT_EQ(vok_find_command_name(d, "dbg"), 14340);
    EXPECT_EQ(vok_find_command_name(d, "TUN"), -1);
    EXPECT_EQ(vok_find_command_name(d, nullptr), -1);
    EXPECT_STREQ(vok_get_param_name(d, 160, 0), "target");
    EXPECT_STREQ(vok_get_param_name(d, 160, 2), "acceleration");
    EXPECT_EQ(vok_get_param_name(d, 160, 3), nullptr);
    EXPECT_EQ(vok_get_param_iso_unit(d, 160, 1), 21);
    EXPECT_EQ(vok_get_param_iso_unit(d, 160, 0), 0);
    EXPECT_EQ(vok_get_register_iso_unit(d, 2, 40), 20);
    EXPECT_EQ(vok_get_register_iso_unit(d, 34, 1), 21);
    EXPECT_EQ(vok_get_register_iso_unit(d, 2, 1), 0);
    int mode = vok_get_reg_enum(d, 2, 12, 0);
    EXPECT_NE(vok_get_enum_entry_description(d, mode, 2), nullptr);
    EXPECT_EQ(vok_get_enum_entry_description(d, mode, 9), nullptr);
    VOK_DICT *m51 = nullptr;
    ASSERT_EQ(vok_open(&m51, 51, 0x02018000, 0, 0), 0);
    uint32_t kind = 0, index = 0;
    EXPECT_EQ(vok_find_register_alias(m51, "sync_per", &kind, &index), 0);
    EXPECT_EQ(kind, 12u);
    EXPECT_EQ(index, 10u);
    vok_close(&m51);
}

// Many threads open the same and different configurations and read them while others do the same;
// every thread must see the same answers.
TEST(VokThreads, ConcurrentOpenAndQueries) {
    ASSERT_EQ(vok_load_default_family(), 0);
    const uint32_t products[] = {32, 33, 51, 1};
    const uint32_t versions[] = {k312B, k312B, 0x02018000, 0x02058000};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 20; ++round) {
                const int c = (t + round) % 4;
                VOK_DICT *d = nullptr;
                if (vok_open(&d, products[c], versions[c], VOK_DRIVE_ONLY, 0) != 0) {
                    ++failures;
                    continue;
                }
                long sum = 0;
                for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k)
                    for (int i = 0; i < vok_get_register_count(d, k); ++i)
                        sum += vok_get_register_length(d, k, uint32_t(i));
                for (uint32_t n = 0; n < VOK_COMMAND_COUNT; ++n)
                    sum += vok_get_param_count(d, n);
                if (vok_get_drv_product(d) != products[c] || sum <= 0) ++failures;
                if (vok_get_product_name(products[c]) == nullptr) ++failures;
                vok_close(&d);
            }
        });
    }
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(failures.load(), 0);
    // Every dictionary is closed again, so the family can be replaced.
    EXPECT_EQ(vok_load_default_family(), 0);
}

// Threads that open configurations of a freshly loaded family build its models at the same time.
TEST(VokThreads, ConcurrentFirstOpenings) {
    const std::string odd = std::string(RYN_TEST_DATA) + "/vok/odd_family.json";
    ASSERT_EQ(vok_load_family_file(odd.c_str()), 0);
    const uint32_t products[] = {1, 32, 33, 34, 35, 40, 48, 49, 51};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&] {
            for (uint32_t p : products) {
                VOK_DICT *d = nullptr;
                if (vok_open(&d, p, 0x01008000, 0, 0) != 0 || vok_get_register_count(d, 1) != 16)
                    ++failures;
                vok_close(&d);
            }
        });
    }
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(vok_load_default_family(), 0);
}

} // namespace
