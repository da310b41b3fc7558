// Offline translators: creation for named configurations, dictionary sets and validity tests.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "trace_helpers.hpp"
#include "tralkt.hpp"

namespace {

using namespace ryn::tra;
using ryn::test::Frame;
using ryn::test::trace;

constexpr uint32_t V312B = 0x03128100;
constexpr uint32_t V320A = 0x03208000;
constexpr uint32_t V999A = 0x09998000;
constexpr uint32_t V201A = 0x02018000;
constexpr uint32_t IOX8 = 0x21, V102A = 0x01028000;
constexpr uint32_t ENC2 = 0x22, V200A = 0x02008000;

// The frames a failed creation leaves, leaving out the dictionary library's own origin frame.
std::vector<Frame> translator_frames() {
    std::vector<Frame> frames = trace();
    if (!frames.empty() && frames.front().file == "vok") frames.erase(frames.begin());
    return frames;
}

TEST(OfflineCreation, FailuresReturnTheFirstCodeWithItsTraceAndLeaveTheHandleNull) {
    using Create = std::function<int(TRA **)>;
    struct Row {
        const char *name;
        Create create;
        int rc;
        std::vector<Frame> frames;
    } rows[] = {
        {"unknown drive version",
         [](TRA **t) { return tra_create_direct_traductor_o(t, 32, V999A, 0, 0, 0); },
         TRA_EBADDRVVER,
         {{"tralkt", 118, "_tra_get_td", TRA_EBADDRVVER, "", ""},
          {"tradir", 104, "tra_create_direct_traductor_o", 0, "", ""}}},
        {"unknown drive product",
         [](TRA **t) { return tra_create_direct_traductor_o(t, 99, V312B, 0, 0, 0); },
         TRA_EBADDRVPROD,
         {{"tralkt", 139, "_tra_get_td", 0, "Convert error in TRA_EBADDRVPROD", ""},
          {"tradir", 104, "tra_create_direct_traductor_o", 0, "", ""}}},
        {"unknown card",
         [](TRA **t) { return tra_create_direct_traductor_o(t, 32, V312B, 0x99, V102A, 0); },
         TRA_EBADEXTPROD,
         {{"tralkt", 147, "_tra_get_td", 0, "Convert error in TRA_EBADEXTPROD", ""},
          {"tradir", 104, "tra_create_direct_traductor_o", 0, "", ""}}},
        {"card that does not fit",
         [](TRA **t) { return tra_create_direct_traductor_o(t, 1, 0x02058000, ENC2, V200A, 0); },
         TRA_EBADEXTVER,
         {{"tralkt", 151, "_tra_get_td", 0, "Convert error in TRA_EBADEXTVER", ""},
          {"tradir", 104, "tra_create_direct_traductor_o", 0, "", ""}}},
        {"axis 63 unknown version",
         [](TRA **t) {
             return tra_create_direct_traductor_o2(t, 32, V312B, 0, 0, 51, V999A, 0, 0, 0);
         },
         TRA_EBADDRVVER,
         {{"tralkt", 118, "_tra_get_td", TRA_EBADDRVVER, "", ""},
          {"tradir", 164, "tra_create_direct_traductor_o2", 0, "", ""}}},
        {"o2 first unknown",
         [](TRA **t) {
             return tra_create_direct_traductor_o2(t, 32, V999A, 0, 0, 51, V201A, 0, 0, 0);
         },
         TRA_EBADDRVVER,
         {{"tralkt", 118, "_tra_get_td", TRA_EBADDRVVER, "", ""},
          {"tradir", 155, "tra_create_direct_traductor_o2", 0, "", ""}}},
        {"register translator unknown version",
         [](TRA **t) { return tra_create_register_traductor_o(t, 32, V999A, 0, 0, 0); },
         TRA_EBADDRVVER,
         {}},
    };
    for (const Row &r : rows) {
        sup_trace_clear();
        TRA *tra = nullptr;
        EXPECT_EQ(r.create(&tra), r.rc) << r.name;
        EXPECT_EQ(tra, nullptr) << r.name;
        if (!r.frames.empty()) {
            EXPECT_EQ(translator_frames(), r.frames) << r.name;
        }
    }
}

TEST(OfflineCreation, UsedHandleIsRefusedByTheBaseCreator) {
    TRA *tra = nullptr;
    ASSERT_EQ(tra_create_direct_traductor_o(&tra, 32, V312B, 0, 0, 0), 0);
    TRA *used = tra;
    sup_trace_clear();
    EXPECT_EQ(tra_create_direct_traductor_o(&used, 32, V312B, 0, 0, 0), TRA_EBADPARAM);
    EXPECT_EQ(used, tra);
    EXPECT_EQ(trace(),
              (std::vector<Frame>{{"traopn", 95, "_tra_create_base", TRA_EBADPARAM, "", ""},
                                  {"tradir", 98, "tra_create_direct_traductor_o", 0, "", ""}}));
    EXPECT_EQ(tra_create_direct_traductor_o(nullptr, 32, V312B, 0, 0, 0), TRA_EBADPARAM);
    tra_destroy(&tra);
}

TEST(OfflineCreation, UnknownVersionFallsBackToTheDefaultWhenAllowed) {
    TRA *tra = nullptr;
    ASSERT_EQ(tra_create_direct_traductor_o(&tra, 32, V999A, 0, 0, TRA_FACCEPT_UNKNOWN_VERSION), 0);
    EXPECT_EQ(tra_get_drv_version(tra, 0), V312B);
    EXPECT_EQ(tra->axis_sets[0].load()->version_replaced, 1);
    tra_destroy(&tra);
}

TEST(OfflineCreation, AxesGetTheirConfigurationsAndGettersReadThem) {
    struct Row {
        const char *name;
        uint32_t p, v, e, ev, p63, v63;
        uint32_t product0, product63, ext0, version63;
        std::size_t sets;
    } rows[] = {
        {"one configuration", 32, V312B, IOX8, V102A, 0, 0, 32, 32, IOX8, V312B, 1},
        {"controller on axis 63", 32, V320A, ENC2, V200A, 51, V201A, 32, 51, ENC2, V201A, 2},
        {"same configuration twice", 32, V312B, 0, 0, 32, V312B, 32, 32, 0, V312B, 1},
    };
    for (const Row &r : rows) {
        TRA *tra = nullptr;
        int rc = r.p63 == 0 ? tra_create_direct_traductor_o(&tra, r.p, r.v, r.e, r.ev, 0)
                            : tra_create_direct_traductor_o2(&tra, r.p, r.v, r.e, r.ev, r.p63,
                                                             r.v63, r.p63 == 32 ? r.e : 0,
                                                             r.p63 == 32 ? r.ev : 0, 0);
        ASSERT_EQ(rc, 0) << r.name;
        EXPECT_EQ(tra_get_drv_product(tra, 0), r.product0) << r.name;
        EXPECT_EQ(tra_get_drv_product(tra, 62), r.product0) << r.name;
        EXPECT_EQ(tra_get_drv_product(tra, 63), r.product63) << r.name;
        EXPECT_EQ(tra_get_drv_product(tra, 64), r.product0) << r.name << ": 64 is the first axis";
        EXPECT_EQ(tra_get_ext_product(tra, 1000), r.ext0) << r.name;
        EXPECT_EQ(tra_get_drv_version(tra, 63), r.version63) << r.name;
        EXPECT_EQ(tra->tds.size(), r.sets) << r.name;
        if (r.sets == 1) {
            EXPECT_EQ(tra->axis_sets[0].load(), tra->axis_sets[63].load()) << r.name;
        }
        EXPECT_EQ(tra_destroy(&tra), 0);
    }
}

TEST(DictionarySets, FoundAgainByTheirFourNumbers) {
    TRA *tra = nullptr;
    ASSERT_EQ(_tra_create_base(&tra, 0, 0, 0, KIND_DIRECT_OFFLINE), 0);
    TRA_TD *a = nullptr, *b = nullptr, *c = nullptr;
    ASSERT_EQ(_tra_get_td(tra, &a, 32, V312B, 0, 0, 1), 0);
    ASSERT_EQ(_tra_get_td(tra, &b, 32, V312B, 0, 0, 1), 0);
    EXPECT_EQ(a, b);
    ASSERT_EQ(_tra_get_td(tra, &c, 32, V312B, IOX8, V102A, 1), 0);
    EXPECT_NE(a, c);
    EXPECT_EQ(vok_get_ext_product(c->drive_only), VOK_DRIVE_ONLY);
    // An unknown version that falls back is stored under the default version, so asking for the
    // unknown one again opens another set.
    TRA_TD *d = nullptr, *e = nullptr;
    ASSERT_EQ(_tra_get_td(tra, &d, 32, V999A, 0, 0, 0), 0);
    ASSERT_EQ(_tra_get_td(tra, &e, 32, V999A, 0, 0, 0), 0);
    EXPECT_NE(d, e);
    EXPECT_EQ(d->version_replaced, 1);
    EXPECT_EQ(tra->tds.size(), 4u);
    EXPECT_EQ(_tra_get_td(tra, nullptr, 32, V312B, 0, 0, 1), 0);
    EXPECT_EQ(tra->tds.size(), 4u);
    tra_destroy(&tra);
}

TEST(Validity, EachTestAcceptsItsKinds) {
    struct Row {
        uint32_t kind;
        int direct, direct_e, reg, reg_e;
    } rows[] = {
        {KIND_REGISTER_OFFLINE, 0, 0, 1, 0},
        {KIND_REGISTER_BUS, 0, 0, 1, 1},
        {KIND_DIRECT_OFFLINE, 1, 0, 0, 0},
        {KIND_DIRECT_BUS, 1, 1, 0, 0},
        {0, 0, 0, 0, 0},
        {KIND_DIRECT_BUS + 1, 0, 0, 0, 0},
    };
    TRA *tra = nullptr;
    ASSERT_EQ(_tra_create_base(&tra, 0, 0, 0, KIND_DIRECT_OFFLINE), 0);
    for (const Row &r : rows) {
        tra->kind = r.kind;
        EXPECT_EQ(tra_is_valid_direct_traductor(tra), r.direct) << std::hex << r.kind;
        EXPECT_EQ(tra_is_valid_direct_traductor_e(tra), r.direct_e) << std::hex << r.kind;
        EXPECT_EQ(tra_is_valid_register_traductor(tra), r.reg) << std::hex << r.kind;
        EXPECT_EQ(tra_is_valid_register_traductor_e(tra), r.reg_e) << std::hex << r.kind;
    }
    tra->kind = KIND_DIRECT_OFFLINE;
    tra_destroy(&tra);
    EXPECT_EQ(tra_is_valid_direct_traductor(nullptr), 0);
    EXPECT_EQ(tra_is_valid_register_traductor(nullptr), 0);
}

TEST(Validity, RegisterCreatorsMakeOfflineRegisterTranslators) {
    TRA *tra = nullptr;
    ASSERT_EQ(tra_create_register_traductor_o2(&tra, 32, V312B, 0, 0, 51, V201A, 0, 0, 0), 0);
    EXPECT_EQ(tra_is_valid_register_traductor(tra), 1);
    EXPECT_EQ(tra_is_valid_register_traductor_e(tra), 0);
    EXPECT_EQ(tra_is_valid_direct_traductor(tra), 0);
    EXPECT_EQ(tra_get_drv_product(tra, 63), 51u);
    tra_destroy(&tra);
}

} // namespace
