// The translator object: base creation, destruction, settings and the name comparison.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "trace_helpers.hpp"
#include "traopn.hpp"

namespace {

using namespace ryn::tra;
using ryn::test::Frame;
using ryn::test::trace;

struct Object : ::testing::Test {
    TRA *tra = nullptr;
    void SetUp() override {
        ASSERT_EQ(_tra_create_base(&tra, 32, 0, 0x40, KIND_DIRECT_OFFLINE), 0);
        sup_trace_clear();
    }
    void TearDown() override {
        if (tra != nullptr) {
            EXPECT_EQ(tra_destroy(&tra), 0);
        }
    }
};

TEST_F(Object, BaseCreationSetsKindFlagsAndStale) {
    EXPECT_EQ(tra->kind, KIND_DIRECT_OFFLINE);
    EXPECT_EQ(tra_get_flags(tra), 0x40u);
    EXPECT_TRUE(tables_stale(*tra));
    double progress = -1;
    EXPECT_EQ(tra_get_progress(tra, &progress), 0);
    EXPECT_EQ(progress, 0.0);
    EXPECT_EQ(tra_get_oxb_port(tra), nullptr);
    EXPECT_EQ(tra_oxcom_get_preference_axis_mask(tra), 0u);
}

TEST_F(Object, DestroyNullsTheHandleAndRefusesTwice) {
    EXPECT_EQ(tra_destroy(&tra), 0);
    EXPECT_EQ(tra, nullptr);
    EXPECT_EQ(tra_destroy(&tra), TRA_EBADPARAM);
    EXPECT_EQ(tra_destroy(nullptr), TRA_EBADPARAM);
    EXPECT_EQ(sup_trace_count(), 0) << "a null handle is refused without a trace";
}

TEST_F(Object, DestroyRefusesAnOverwrittenKindAndFreesNothing) {
    tra->kind = 0x1234;
    TRA *copy = tra;
    EXPECT_EQ(tra_destroy(&copy), TRA_EBADPARAM);
    EXPECT_EQ(copy, tra);
    EXPECT_EQ(trace(), (std::vector<Frame>{{"traopn", 477, "tra_destroy", TRA_EBADPARAM, "", ""}}));
    tra->kind = KIND_DIRECT_OFFLINE; // still alive: TearDown destroys it
}

TEST_F(Object, SettersRefuseBadHandlesAtTheirLines) {
    TRA *bad = tra;
    tra->kind = KIND_DIRECT_BUS + 1;
    struct Row {
        const char *function;
        int line;
        int (*call)(TRA *);
    } rows[] = {
        {"tra_set_flags", 304, [](TRA *t) { return tra_set_flags(t, 1); }},
        {"tra_get_progress", 185,
         [](TRA *t) {
             double p;
             return tra_get_progress(t, &p);
         }},
        {"tra_set_progress", 210, [](TRA *t) { return tra_set_progress(t, 0.5); }},
        {"tra_oxcom_get_iso_converter", 238,
         [](TRA *t) { return tra_oxcom_get_iso_converter(t, nullptr, nullptr); }},
        {"tra_oxcom_set_iso_converter", 262,
         [](TRA *t) { return tra_oxcom_set_iso_converter(t, nullptr, nullptr); }},
        {"tra_oxcom_set_preference_axis_mask", 331,
         [](TRA *t) { return tra_oxcom_set_preference_axis_mask(t, 1); }},
    };
    for (TRA *handle : {static_cast<TRA *>(nullptr), bad}) {
        for (const Row &r : rows) {
            sup_trace_clear();
            EXPECT_EQ(r.call(handle), TRA_EBADPARAM) << r.function;
            EXPECT_EQ(trace(),
                      (std::vector<Frame>{{"traopn", r.line, r.function, TRA_EBADPARAM, "", ""}}));
        }
    }
    tra->kind = KIND_DIRECT_OFFLINE;
}

TEST_F(Object, ValueGettersReturnZeroUntracedForBadHandles) {
    tra->kind = 0;
    for (TRA *handle : {static_cast<TRA *>(nullptr), tra}) {
        EXPECT_EQ(tra_get_flags(handle), 0u);
        EXPECT_EQ(tra_oxcom_get_preference_axis_mask(handle), 0u);
        EXPECT_EQ(tra_get_oxb_port(handle), nullptr);
        EXPECT_EQ(tra_get_drv_product(handle, 0), 0u);
        EXPECT_EQ(tra_get_drv_version(handle, 64), 0u);
        EXPECT_EQ(tra_get_ext_product(handle, -1), 0u);
        EXPECT_EQ(tra_get_ext_version(handle, 63), 0u);
    }
    EXPECT_EQ(sup_trace_count(), 0);
    tra->kind = KIND_DIRECT_OFFLINE;
}

TEST_F(Object, ProgressOnlyGrowsWithinZeroAndOne) {
    struct Step {
        double value;
        int rc;
        double after;
    } steps[] = {
        {0.7, 0, 0.7},
        {0.5, TRA_EBADPARAM, 0.7},
        {0.7, 0, 0.7},
        {1.0, 0, 1.0},
        {1.0000001, TRA_EBADPARAM, 1.0},
        {-0.1, TRA_EBADPARAM, 1.0},
        {std::numeric_limits<double>::quiet_NaN(), TRA_EBADPARAM, 1.0},
    };
    for (const Step &s : steps) {
        sup_trace_clear();
        EXPECT_EQ(tra_set_progress(tra, s.value), s.rc) << s.value;
        double p = -1;
        tra_get_progress(tra, &p);
        EXPECT_EQ(p, s.after) << s.value;
        if (s.rc != 0) {
            EXPECT_EQ(trace(), (std::vector<Frame>{
                                   {"traopn", 214, "tra_set_progress", TRA_EBADPARAM, "", ""}}));
        }
    }
    EXPECT_EQ(tra_get_progress(tra, nullptr), 0);
}

int converter(OXB_BUS *, void *, double *, uint32_t, int32_t, int32_t, int32_t, void *) {
    return 0;
}

TEST_F(Object, IsoConverterAndPreferenceMaskAreStoredAndReadBack) {
    int context = 0;
    EXPECT_EQ(tra_oxcom_set_iso_converter(tra, converter, &context), 0);
    TRA_ISO_CONVERTER fn = nullptr;
    void *ctx = nullptr;
    EXPECT_EQ(tra_oxcom_get_iso_converter(tra, &fn, &ctx), 0);
    EXPECT_EQ(fn, converter);
    EXPECT_EQ(ctx, &context);
    EXPECT_EQ(tra_oxcom_get_iso_converter(tra, nullptr, &ctx), 0);
    EXPECT_EQ(tra_oxcom_set_preference_axis_mask(tra, 0x8000000000000004ull), 0);
    EXPECT_EQ(tra_oxcom_get_preference_axis_mask(tra), 0x8000000000000004ull);
}

TEST_F(Object, PerAxisGettersWithoutSetsReturnZero) {
    for (int axis : {0, 5, 63, 64, 1000, -1})
        EXPECT_EQ(tra_get_drv_product(tra, axis), 0u);
    EXPECT_EQ(_tra_first_axis(tra), 0);
}

TEST_F(Object, SettingsFromSeveralThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([this, i] {
            for (int n = 0; n < 1000; ++n) {
                tra_set_flags(tra, static_cast<uint32_t>(i));
                tra_set_progress(tra, n / 1000.0);
                (void)tra_get_flags(tra);
            }
        });
    for (auto &th : threads)
        th.join();
    EXPECT_LT(tra_get_flags(tra), 4u);
}

int other_converter(OXB_BUS *, void *, double *, uint32_t, int32_t, int32_t, int32_t, void *) {
    return 1;
}

TEST_F(Object, IsoConverterAndContextAreReadAsAPair) {
    static int first = 0, second = 0;
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int n = 0; n < 20000; ++n)
            tra_oxcom_set_iso_converter(tra, n % 2 ? converter : other_converter,
                                        n % 2 ? &first : &second);
        done = true;
    });
    int mismatched = 0;
    while (!done) {
        TRA_ISO_CONVERTER fn = nullptr;
        void *ctx = nullptr;
        tra_oxcom_get_iso_converter(tra, &fn, &ctx);
        if (fn != nullptr && (fn == converter) != (ctx == &first)) ++mismatched;
    }
    writer.join();
    EXPECT_EQ(mismatched, 0);
}

TEST(NameCompare, CaseInsensitiveSignedAndPrefixFirst) {
    struct Row {
        const char *a, *b;
        int expect;
    } rows[] = {
        {"POS_KP", "pos_kp", 0}, {"A", "B", -1}, {"b", "A", 1},     {"K", "K1", -1},
        {"K1", "K", 1},          {"", "", 0},    {"", "A", -1},     {"_", "a", -1},
        {"[", "a", -1},          {"Z", "[", 1},  {"\xe9", "a", -1}, {"MVE", "MVe", 0},
    };
    for (const Row &r : rows) {
        EXPECT_EQ(_tra_name_compare(&r.a, &r.b), r.expect) << r.a << " vs " << r.b;
        EXPECT_EQ(_tra_name_compare(&r.b, &r.a), -r.expect) << r.b << " vs " << r.a;
    }
}

} // namespace
