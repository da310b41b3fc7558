// Command streams on simulated buses: version lines, comments, refused lines and the stream
// report, the reader's errors, drives that never answer or leave, and the progress value.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "bus_helpers.hpp"
#include "traopn.hpp"

namespace {

using namespace ryn::test;

constexpr uint64_t V120A = 0x01208000, V102A = 0x01028000, V300C = 0x03008200;

struct Expect {
    uint32_t lines, sent, acknowledged, refused, skipped;
    int32_t first_refused_line;
    const char *first_refused_text;
};

struct StreamCase {
    const char *name;
    const char *address;
    uint32_t flags;
    uint64_t axes;
    std::vector<std::string> lines;
    int fail_at;
    int rc;
    Expect report;
    std::vector<Check> checks;
};

void PrintTo(const StreamCase &c, std::ostream *os) {
    *os << c.name;
}

const StreamCase CASES[] = {
    {"CommentsBlanksAndVersionLines",
     "sim:",
     0,
     0xF,
     {"# parameter file", "", "   \t", "; a note",
      "# User K,KL,KF,KD register version axis 1: 1.20A",
      "# User X,XL,XF,XD register version: 1.02A\r\n", "  K1.0=5", "K1.1=6 # trailing comment"},
     -1,
     0,
     {8, 2, 2, 0, 0, 0, ""},
     {{0, 2, 1, 0, 5},
      {1, 2, 1, 0, 6},
      {1, VERSION_TYPE, VERSION_INDEX, 3, V120A},
      {0, VERSION_TYPE, VERSION_INDEX, 3, 0},
      {0, VERSION_TYPE, VERSION_INDEX, 5, V102A},
      {3, VERSION_TYPE, VERSION_INDEX, 5, V102A}}},
    {"VersionForAxis63Only",
     "sim:",
     0,
     0xF | AXIS_63,
     {"# User W,WL,WF,WD register version axis *: 3.00C", "#User C,CL,CF,CD register version axis "
                                                          "3x: 1.20A"},
     -1,
     0,
     {2, 0, 0, 0, 0, 0, ""},
     {{63, VERSION_TYPE, VERSION_INDEX, 10, V300C},
      {0, VERSION_TYPE, VERSION_INDEX, 10, 0},
      {3, VERSION_TYPE, VERSION_INDEX, 4, V120A}}},
    {"VersionOutsideTheStreamAxesIsLeftAlone",
     "sim:",
     0,
     0x1,
     {"# User K,KL,KF,KD register version axis 2: 1.20A"},
     -1,
     0,
     {1, 0, 0, 0, 0, 0, ""},
     {{2, VERSION_TYPE, VERSION_INDEX, 3, 0}}},
    {"RefusedLineDoesNotStopTheStream",
     "sim:",
     TRA_FNO_CHECK,
     0xF,
     {"K12.0=1", "# next one is refused", "  K12.0=9  ", "K12.0=2"},
     -1,
     0,
     {4, 3, 2, 1, 0, 3, "K12.0=9"},
     {{0, 2, 12, 0, 2}}},
    {"LinesForAbsentAxesAreSkipped",
     "sim:axes=0-1",
     0,
     ~uint64_t(0),
     {"K1.5=3", "K1.0=3"},
     -1,
     0,
     {2, 1, 1, 0, 1, 0, ""},
     {{0, 2, 1, 0, 3}}},
    {"LinesOutsideTheStreamAxesAreSkipped",
     "sim:",
     0,
     0x2,
     {"K1.0=4", "K1.1=4", "K1=9"},
     -1,
     0,
     {3, 2, 2, 0, 1, 0, ""},
     {{0, 2, 1, 0, 1000}, {1, 2, 1, 0, 9}, {2, 2, 1, 0, 1000}}},
    {"ReaderErrorReturnedAsItIs",
     "sim:",
     0,
     0xF,
     {"K1.0=5", "K1.0=6"},
     1,
     -7,
     {1, 1, 1, 0, 0, 0, ""},
     {{0, 2, 1, 0, 5}}},
    {"ConversionErrorEndsTheStream",
     "sim:",
     0,
     0xF,
     {"K1.0=5", "K12.0=9", "K1.0=6"},
     -1,
     TRA_EBADENUM,
     {2, 1, 1, 0, 0, 0, ""},
     {{0, 2, 1, 0, 5}}},
    {"BadVersionLineEndsTheStream",
     "sim:",
     0,
     0xF,
     {"# User X,XL,XF,XD register version axis x: 1.00A", "K1.0=5"},
     -1,
     TRA_ESYNTAX,
     {1, 0, 0, 0, 0, 0, ""},
     {{0, 2, 1, 0, 1000}}},
    {"EmptyAxisMaskEndsAtOnce", "sim:", 0, 0, {"K1.0=5"}, -1, 0, {0, 0, 0, 0, 0, 0, ""}, {}},
    {"DriveThatNeverAnswersIsAnsweredByTheBus",
     "sim:axes=0;drop=1;answer_ms=20",
     0,
     0x1,
     {"K1.0=1", "K1.0=2"},
     -1,
     0,
     {2, 2, 0, 2, 0, 1, "K1.0=1"},
     {{0, 2, 1, 0, 2}}},
    {"DriveLeavingEndsTheStream",
     "sim:axes=0-1;detach_after=2",
     0,
     0x3,
     {"K1.0=1", "K1.0=2", "K1.0=3", "K1.1=3"},
     -1,
     TRA_ENODRIVE,
     {3, 2, 2, 0, 0, 0, ""},
     {{1, 2, 1, 0, 1000}}},
};

class Streams : public testing::TestWithParam<StreamCase> {};

TEST_P(Streams, RunAndReport) {
    const StreamCase &c = GetParam();
    OnBus b(c.address, c.flags);
    LineSource src(c.lines, c.fail_at);
    EXPECT_EQ(tra_oxcom_send_direct_stream_e(b.tra, c.axes, LineSource::read, &src), c.rc);

    TRA_STREAM_REPORT r{};
    r.size = sizeof r;
    ASSERT_EQ(tra_get_stream_report(b.tra, &r), 0);
    EXPECT_EQ(r.lines, c.report.lines);
    EXPECT_EQ(r.sent, c.report.sent);
    EXPECT_EQ(r.acknowledged, c.report.acknowledged);
    EXPECT_EQ(r.refused, c.report.refused);
    EXPECT_EQ(r.skipped, c.report.skipped);
    EXPECT_EQ(r.first_refused_line, c.report.first_refused_line);
    EXPECT_STREQ(r.first_refused_text, c.report.first_refused_text);

    // Progress: 0 while the stream runs, never backwards, 1 only at a clean end.
    double end = -1;
    ASSERT_EQ(tra_get_progress(b.tra, &end), 0);
    for (std::size_t i = 0; i < src.progress.size(); ++i) {
        EXPECT_EQ(src.progress[i], 0.0) << "read " << i;
    }
    EXPECT_EQ(end, c.rc == 0 ? 1.0 : 0.0);
    EXPECT_EQ(b.tra->download_axis_mask.load(), 0u) << "the stream's axes end with it";

    for (const Check &k : c.checks)
        EXPECT_EQ(b.read(k.axis, k.kind, k.index, k.sub), k.value)
            << "axis " << k.axis << " kind " << k.kind << " index " << k.index << " sub " << k.sub;
    EXPECT_EQ(receive(b.tra, 0).rc, TRA_ENOCOMMAND) << "the stream left no answer behind";
}

INSTANTIATE_TEST_SUITE_P(Sim, Streams, testing::ValuesIn(CASES),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(Streams, AnswersOfOtherCommandsStayForTheirReceiver) {
    OnBus b;
    uint8_t sent = 0;
    ASSERT_EQ(tra_send_direct_cmd_e(b.tra, "K2.0=8", 99, &sent), 0);
    LineSource src({"K1.0=1", "K1.0=2"});
    ASSERT_EQ(tra_oxcom_send_direct_stream_e(b.tra, 0xF, LineSource::read, &src), 0);
    const Answer a = receive(b.tra, 0);
    EXPECT_EQ(a.rc, 0);
    EXPECT_EQ(a.user, 99u);
    EXPECT_EQ(a.text, "K2.0=8");
}

TEST(Streams, ASecondStreamOnTheSameTranslatorIsRefusedWhileOneRuns) {
    OnBus b;
    struct Nested {
        TRA *tra;
        int inner = 1;
        int calls = 0;
        static int read(TRA *tra, char *buffer, int32_t, void *user) {
            auto &n = *static_cast<Nested *>(user);
            if (n.calls++ > 0) return -1;
            LineSource none;
            n.inner = tra_oxcom_send_direct_stream_e(tra, 1, LineSource::read, &none);
            std::strcpy(buffer, "K1.0=3");
            return 0;
        }
    } n{b.tra};
    EXPECT_EQ(tra_oxcom_send_direct_stream_e(b.tra, 1, Nested::read, &n), 0);
    EXPECT_EQ(n.inner, TRA_ENOTALLOWED);
    EXPECT_EQ(b.read(0, 2, 1), 3u);
}

TEST(Streams, ReportOfAnOlderShorterLayoutGetsItsFields) {
    OnBus b;
    LineSource src({"K1.0=1"});
    ASSERT_EQ(tra_oxcom_send_direct_stream_e(b.tra, 1, LineSource::read, &src), 0);
    TRA_STREAM_REPORT r;
    std::memset(&r, 0x5A, sizeof r);
    r.size = offsetof(TRA_STREAM_REPORT, acknowledged);
    ASSERT_EQ(tra_get_stream_report(b.tra, &r), 0);
    EXPECT_EQ(r.lines, 1u);
    EXPECT_EQ(r.sent, 1u);
    EXPECT_EQ(r.acknowledged, 0x5A5A5A5Au) << "nothing written past the caller's size";
}

} // namespace
