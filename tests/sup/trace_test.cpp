// The per-thread error trace: origins, pass frames, suspension, bounds and read-back.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>

#include "ryn/sup.h"

namespace {

struct TraceTest : ::testing::Test {
    void SetUp() override { sup_trace_clear(); }
};

SUP_FRAME frame(int i) {
    SUP_FRAME f{};
    EXPECT_EQ(sup_trace_get(i, &f), 0);
    return f;
}

void origin(const char *function, int code, const char *detail = nullptr) {
    sup_trace_error("mod", 10, function, code, "message", detail, nullptr, nullptr, nullptr,
                    nullptr);
}

TEST_F(TraceTest, OriginThenPassFramesInOrder) {
    origin("inner", -515, "token");
    sup_trace_pass("mod", 20, "middle", nullptr);
    sup_trace_pass("top", 30, "outer", "Convert error in TRA_EBADPARAM");
    ASSERT_EQ(sup_trace_count(), 3);
    SUP_FRAME f = frame(0);
    EXPECT_STREQ(f.function, "inner");
    EXPECT_EQ(f.code, -515);
    EXPECT_STREQ(f.message, "message");
    EXPECT_STREQ(f.details[0], "token");
    EXPECT_STREQ(f.details[1], "");
    EXPECT_STREQ(frame(1).function, "middle");
    EXPECT_STREQ(frame(1).note, "");
    EXPECT_STREQ(frame(2).file, "top");
    EXPECT_EQ(frame(2).line, 30);
    EXPECT_STREQ(frame(2).note, "Convert error in TRA_EBADPARAM");
}

TEST_F(TraceTest, NewOriginStartsAFreshTrace) {
    origin("first", -1);
    sup_trace_pass("mod", 1, "caller", nullptr);
    origin("second", -2);
    ASSERT_EQ(sup_trace_count(), 1);
    EXPECT_STREQ(frame(0).function, "second");
}

TEST_F(TraceTest, SuspensionNestsAndRecordsNothing) {
    origin("kept", -1);
    sup_trace_suspend();
    sup_trace_suspend();
    origin("cleanup", -2);
    sup_trace_resume();
    sup_trace_pass("mod", 1, "still suspended", nullptr);
    sup_trace_resume();
    sup_trace_pass("mod", 2, "recorded", nullptr);
    ASSERT_EQ(sup_trace_count(), 2);
    EXPECT_STREQ(frame(0).function, "kept");
    EXPECT_STREQ(frame(1).function, "recorded");
    sup_trace_resume(); // one resume too many does not turn suspension negative
    sup_trace_suspend();
    origin("hidden", -3);
    sup_trace_resume();
    EXPECT_EQ(sup_trace_count(), 2);
}

TEST_F(TraceTest, BoundedAtMaxFramesAndTextsCopied) {
    std::string long_detail(500, 'x');
    {
        std::string temporary = "stack text";
        origin("origin", -1, temporary.c_str());
        temporary.assign("overwritten");
    }
    for (int i = 0; i < 3 * SUP_TRACE_MAX_FRAMES; ++i)
        sup_trace_pass("mod", i, "pass", nullptr);
    EXPECT_EQ(sup_trace_count(), SUP_TRACE_MAX_FRAMES);
    EXPECT_STREQ(frame(0).details[0], "stack text");
    origin("long", -1, long_detail.c_str());
    EXPECT_LT(std::string(frame(0).details[0]).size(), long_detail.size());
}

TEST_F(TraceTest, GetRefusesBadIndexesAndNull) {
    origin("only", -1);
    SUP_FRAME f{};
    for (int bad : {-1, 1, SUP_TRACE_MAX_FRAMES})
        EXPECT_EQ(sup_trace_get(bad, &f), SUP_EBADPARAM);
    EXPECT_EQ(sup_trace_get(0, nullptr), SUP_EBADPARAM);
}

TEST_F(TraceTest, FormatOneFrameALineOriginFirstAndBounded) {
    origin("inner", -540, "K99");
    sup_trace_pass("traa2r", 7, "outer", "Convert error in TRA_EINTERNAL");
    char text[256];
    int n = sup_trace_format(text, sizeof text);
    EXPECT_EQ(std::string(text), "mod:10 inner: -540 message (K99)\n"
                                 "  from traa2r:7 outer: Convert error in TRA_EINTERNAL\n");
    EXPECT_EQ(n, static_cast<int>(std::string(text).size()));
    // A buffer too small holds the start of the text, terminated; the length returned is the
    // whole text's, so that a result not below the size tells the caller the text was cut.
    const std::string whole(text);
    for (int size : {1, 2, 5, 20, 40, n, n + 1}) {
        std::string buffer(static_cast<std::size_t>(size) + 8, '#');
        EXPECT_EQ(sup_trace_format(buffer.data(), size), n) << "size " << size;
        std::string got(buffer.c_str());
        EXPECT_EQ(got, whole.substr(0, static_cast<std::size_t>(std::min(size - 1, n))));
        EXPECT_EQ(buffer[static_cast<std::size_t>(size)], '#') << "wrote past size " << size;
    }
    EXPECT_EQ(sup_trace_format(nullptr, 10), 0);
}

TEST_F(TraceTest, EachThreadHasItsOwnTrace) {
    origin("main thread", -1);
    std::thread other([] {
        EXPECT_EQ(sup_trace_count(), 0);
        origin("other thread", -2);
        EXPECT_EQ(sup_trace_count(), 1);
    });
    other.join();
    ASSERT_EQ(sup_trace_count(), 1);
    EXPECT_STREQ(frame(0).function, "main thread");
}

} // namespace
