// Register translators on simulated buses: parameter upload in every layout against golden files,
// download with its checks and filter modes, the round trip of a backup, and faults mid-way.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "bus_helpers.hpp"
#include "traupl.hpp"

namespace {

using namespace ryn::test;

constexpr uint8_t K = 2, KL = 0x42, KF = 0x22, KD = 0x62, X = 1, C = 13, W = 12, L = 8;

// A register translator on a sim: bus; the upload date fixed.
struct RegisterBus : OnBus {
    explicit RegisterBus(uint32_t flags = 0) : OnBus("sim:", flags, true) {
        std::tm date{};
        date.tm_year = 2026 - 1900;
        date.tm_mon = 10;
        date.tm_mday = 6;
        date.tm_wday = 5;
        date.tm_hour = 9;
        date.tm_min = 5;
        date.tm_sec = 7;
        ryn::tra::_tra_set_upload_date(&date);
    }
    ~RegisterBus() { ryn::tra::_tra_set_upload_date(nullptr); }

    // Writes an element through the bus as a download would, checked.
    void set(const char *line) {
        LineSource one({line});
        ASSERT_EQ(tra_oxcom_download_register_stream_e(tra, ~uint64_t(0), -1, nullptr,
                                                       LineSource::read, &one),
                  0)
            << line;
    }
};

// Lines written by an upload; refuses the line at index `refuse_at`.
struct Sink {
    std::vector<std::string> lines;
    int refuse_at = -1;
    std::function<void(std::size_t)> before_line; // runs before each line is taken
    double progress = -1;                         // when the last line was offered
    static int write(TRA *tra, const char *line, void *user, int32_t) {
        auto &s = *static_cast<Sink *>(user);
        tra_get_progress(tra, &s.progress);
        if (s.before_line) s.before_line(s.lines.size());
        if (static_cast<int>(s.lines.size()) == s.refuse_at) return 1;
        s.lines.emplace_back(line);
        return 0;
    }
    std::string text() const {
        std::string all;
        for (const std::string &l : lines)
            all += l + "\n";
        return all;
    }
};

struct UploadArgs {
    uint64_t axes;
    std::vector<uint8_t> types; // empty: every type (count -1)
    int32_t first_index, max_index, max_subindex;
};

int upload(TRA *tra, const UploadArgs &a, Sink &sink) {
    return tra_oxcom_upload_register_stream_e(
        tra, a.axes, a.types.empty() ? -1 : static_cast<int32_t>(a.types.size()), a.types.data(),
        a.first_index, a.max_index, a.max_subindex, Sink::write, &sink);
}

} // namespace

// The lines of a backup that a download can write: read-only elements are left out, as the tool
// writes them as comments.
std::vector<std::string> writable(TRA *tra, const std::vector<std::string> &lines) {
    std::vector<std::string> out;
    for (const std::string &l : lines) {
        alignas(8) unsigned char record[TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)];
        uint32_t count = 0;
        uint64_t mask = 0;
        if (tra_oxcom_translate_cmd_from_ascii_ex(tra, reinterpret_cast<TRA_RECORD *>(record),
                                                  TRA_RECORD_MAX_SLOTS, &count, &mask,
                                                  l.c_str()) == TRA_EREADONLY)
            continue;
        out.push_back(l);
    }
    return out;
}

TEST(RegisterRoundTrip, BackupRestoresEveryTypeOnEveryAxis) {
    const std::vector<uint8_t> types = {K, KL, KF, KD, X, C, L, W};
    const uint64_t axes = 0xF | AXIS_63;
    for (uint32_t flags : {TRA_FVERBOSE | TRA_FDESCRIPTIONS | TRA_FGROUP_CLASSES |
                               TRA_FRESERVED_COMMENT | TRA_FUSE_ALIASES,
                           TRA_FVECTOR_FORM | TRA_FSKIP_DEFAULTS | TRA_FNO_COMMENTS}) {
        SCOPED_TRACE(flags);
        RegisterBus b(flags);
        for (const char *line : {"K12.1=2", "K1.0=500", "K5.2=1,-2,3", "KL1.3=-12345678901L",
                                 "KF1.0=12.5F", "KD1.2=0.25D", "X7.3=-9", "C5.1=77", "*W10=200",
                                 "K30.1=\"hello, world\"", "K31.0=\"10.0.0.7\"", "L3.2=11",
                                 "K20.3=0x12", "# User K,KL,KF,KD register version axis 1: 1.20A",
                                 "# User W,WL,WF,WD register version axis *: 2.00A"})
            b.set(line);
        Sink before, raw_before;
        ASSERT_EQ(upload(b.tra, {axes, types, 0, -1, -1}, before), 0);
        ASSERT_EQ(tra_set_flags(b.tra, TRA_FRAW_VALUES | TRA_FNO_COMMENTS), 0);
        ASSERT_EQ(upload(b.tra, {axes, types, 0, -1, -1}, raw_before), 0);
        ASSERT_EQ(tra_set_flags(b.tra, flags), 0);

        ASSERT_EQ(oxbsim_reset(b.bus, ~uint64_t(0)), 0);
        LineSource file(writable(b.tra, before.lines));
        ASSERT_EQ(tra_oxcom_download_register_stream_e(b.tra, axes, int32_t(types.size()),
                                                       types.data(), LineSource::read, &file),
                  0);
        TRA_STREAM_REPORT report{};
        report.size = sizeof report;
        ASSERT_EQ(tra_get_stream_report(b.tra, &report), 0);
        EXPECT_EQ(report.refused, 0u)
            << report.first_refused_line << ": " << report.first_refused_text;
        EXPECT_GT(report.acknowledged, 10u);

        Sink after, raw_after;
        ASSERT_EQ(upload(b.tra, {axes, types, 0, -1, -1}, after), 0);
        ASSERT_EQ(before.lines.size(), after.lines.size());
        for (std::size_t i = 0; i < before.lines.size(); ++i)
            EXPECT_EQ(before.lines[i], after.lines[i]) << "line " << i + 1;
        ASSERT_EQ(tra_set_flags(b.tra, TRA_FRAW_VALUES | TRA_FNO_COMMENTS), 0);
        ASSERT_EQ(upload(b.tra, {axes, types, 0, -1, -1}, raw_after), 0);
        EXPECT_TRUE(raw_before.lines == raw_after.lines);
    }
}

namespace {

// One golden upload: the flags, what is uploaded, and the file under tests/data/upload.
struct GoldenCase {
    const char *name;
    uint32_t flags;
    UploadArgs args;
};

void PrintTo(const GoldenCase &c, std::ostream *os) {
    *os << c.name;
}

// Values and versions every golden upload starts from.
const char *const GOLDEN_SETUP[] = {
    "K5.0=1,0,3",
    "K30.0=\"Axis one\"",
    "K31.0=\"10.0.0.7\"",
    "*W10=200",
    "# User K,KL,KF,KD register version axis 0: 1.20A",
    "# User W,WL,WF,WD register version axis *: 2.00A",
};

constexpr uint32_t DESC = TRA_FDESCRIPTIONS;

const GoldenCase GOLDEN[] = {
    {"reserved", TRA_FRESERVED_COMMENT | DESC, {0x1, {K}, 59, 61, -1}},
    {"strings", 0, {0x1, {K}, 30, 33, -1}},
    {"max_subindex", 0, {0x1, {K}, 30, 33, 2}},
    {"groups_skip_defaults", TRA_FGROUP_CLASSES | TRA_FSKIP_DEFAULTS, {0x1, {K}, 0, 14, -1}},
    {"no_comments", TRA_FNO_COMMENTS, {0x1, {K, KF}, 0, 3, -1}},
    {"tabs4", TRA_FTABS4 | DESC, {0x1, {K}, 0, 3, -1}},
    {"tabs8", TRA_FTABS8 | DESC, {0x1, {K}, 0, 3, -1}},
    {"tab", TRA_FTAB | DESC, {0x1, {K}, 0, 3, -1}},
    {"raw_vector", TRA_FRAW_VALUES | TRA_FVECTOR_FORM, {0x1, {K}, 4, 6, -1}},
    {"every_type", 0, {0x1, {}, 0, 2, -1}},
    {"groups_described_verbose",
     TRA_FGROUP_CLASSES | DESC | TRA_FRESERVED_COMMENT | TRA_FVERBOSE,
     {0x3 | AXIS_63, {K, W}, 10, 14, -1}},
    {"vector_skip_no_axis_aliases",
     TRA_FVECTOR_FORM | TRA_FSKIP_DEFAULTS | TRA_FNO_AXIS | TRA_FUSE_ALIASES,
     {0x1, {K, W}, 0, 32, -1}},
};

class GoldenUpload : public ::testing::TestWithParam<GoldenCase> {};

TEST_P(GoldenUpload, MatchesItsFile) {
    const GoldenCase &c = GetParam();
    RegisterBus b(c.flags);
    for (const char *line : GOLDEN_SETUP)
        b.set(line);
    Sink sink;
    double progress = -1;
    ASSERT_EQ(upload(b.tra, c.args, sink), 0);
    ASSERT_EQ(tra_get_progress(b.tra, &progress), 0);
    EXPECT_EQ(progress, 1.0);
    const std::string path = std::string(RYN_TEST_DATA "/upload/") + c.name + ".txt";
    if (std::getenv("RYN_UPDATE_GOLDEN") != nullptr) {
        std::ofstream(path) << sink.text();
        GTEST_SKIP() << "wrote " << path;
    }
    std::ifstream file(path);
    ASSERT_TRUE(file.good()) << path << " missing (RYN_UPDATE_GOLDEN=1 writes it)";
    std::stringstream expected;
    expected << file.rdbuf();
    EXPECT_EQ(sink.text(), expected.str()) << path;
}

INSTANTIATE_TEST_SUITE_P(Layouts, GoldenUpload, ::testing::ValuesIn(GOLDEN),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace

namespace {

// A refusal of the write callback ends the upload with 0, wherever it comes: in the header, the
// axis block, a type header, a held section line or a value line; the progress stays as it was.
TEST(RegisterUpload, RefusedLineEndsTheUploadWithoutError) {
    RegisterBus b(TRA_FGROUP_CLASSES | TRA_FVERBOSE);
    Sink full;
    const UploadArgs args{0x3, {K}, 0, 14, -1};
    ASSERT_EQ(upload(b.tra, args, full), 0);
    for (int at : {0, 3, 9, 14, 16, 20, static_cast<int>(full.lines.size()) - 1}) {
        SCOPED_TRACE(at);
        Sink sink;
        sink.refuse_at = at;
        EXPECT_EQ(upload(b.tra, args, sink), 0);
        EXPECT_EQ(sink.lines.size(), static_cast<std::size_t>(at));
        double progress = -1;
        ASSERT_EQ(tra_get_progress(b.tra, &progress), 0);
        EXPECT_EQ(progress, sink.progress);
        EXPECT_LT(progress, 1.0);
    }
}

TEST(RegisterUpload, RefusedArguments) {
    RegisterBus b;
    Sink sink;
    const uint8_t m = 3;
    EXPECT_EQ(tra_oxcom_upload_register_stream_e(b.tra, 1, 1, &m, 0, -1, -1, Sink::write, &sink),
              TRA_ENOTALLOWED);
    EXPECT_EQ(
        tra_oxcom_upload_register_stream_e(b.tra, 1, 1, nullptr, 0, -1, -1, Sink::write, &sink),
        TRA_EBADPARAM);
    EXPECT_EQ(tra_oxcom_upload_register_stream_e(b.tra, 1, 1, &K, 0, -1, -1, nullptr, &sink),
              TRA_EBADPARAM);
    TRA *offline = nullptr;
    ASSERT_EQ(tra_create_register_traductor_o(&offline, 32, 0x03128100, 0, 0, 0), 0);
    EXPECT_EQ(tra_oxcom_upload_register_stream_e(offline, 1, 1, &K, 0, -1, -1, Sink::write, &sink),
              TRA_EBADPARAM);
    LineSource none;
    EXPECT_EQ(tra_oxcom_download_register_stream_e(offline, 1, 1, &K, LineSource::read, &none),
              TRA_EBADPARAM);
    EXPECT_EQ(tra_is_valid_register_traductor(offline), 1);
    EXPECT_EQ(tra_is_valid_register_traductor_e(offline), 0);
    EXPECT_EQ(tra_is_valid_register_traductor(b.tra), 1);
    EXPECT_EQ(tra_is_valid_register_traductor_e(b.tra), 1);
    tra_destroy(&offline);
    // Nothing asked for: done at once.
    EXPECT_EQ(tra_oxcom_upload_register_stream_e(b.tra, 0, 1, &K, 0, -1, -1, Sink::write, &sink),
              0);
    EXPECT_TRUE(sink.lines.empty());
    uint8_t downloaded = 9;
    EXPECT_EQ(tra_register_downloaded(b.tra, nullptr), TRA_EBADPARAM);
    EXPECT_EQ(tra_register_downloaded(b.tra, &downloaded), 0);
    EXPECT_EQ(downloaded, 0);
}

// One download and what it leaves: its result, the report, the downloaded byte and registers.
struct DownloadCase {
    const char *name;
    std::vector<uint8_t> types;
    uint32_t filter_mode;
    std::vector<std::string> lines;
    int rc;
    uint32_t lines_read, sent, skipped;
    std::vector<Check> checks;
};

void PrintTo(const DownloadCase &c, std::ostream *os) {
    *os << c.name;
}

const DownloadCase DOWNLOADS[] = {
    {"CommentsOnly", {K}, 0, {"# nothing", "; at all", ""}, 0, 3, 0, 0, {}},
    {"CommandIsRefused",
     {K},
     0,
     {"K1.0=7", "CLX.0", "K2.0=8"},
     TRA_ENOTALLOWED,
     2,
     1,
     0,
     {{0, K, 1, 0, 7}, {0, K, 2, 0, 0}}},
    {"ReadIsRefused", {K}, 0, {"K1.0"}, TRA_ENOTALLOWED, 1, 0, 0, {}},
    {"TypeOutsideTheListIsSkipped",
     {K},
     0,
     {"X5.0=3", "K1.0=9"},
     0,
     2,
     1,
     1,
     {{0, X, 5, 0, 0}, {0, K, 1, 0, 9}}},
    {"BadLineStopsEarlierLinesStay",
     {K},
     0,
     {"K1.0=11", "K2.0=12", "K3.0=(", "K4.0=13"},
     TRA_ECMDSYNTAX,
     3,
     2,
     0,
     {{0, K, 1, 0, 11}, {0, K, 2, 0, 12}, {0, K, 4, 0, 1000}}},
    {"FilterOneSendsOnlyWhatIsNotUserData",
     {K},
     1,
     {"K1.0=21", "K60:0.0=5"},
     0,
     2,
     1,
     1,
     {{0, K, 1, 0, 1000}, {0, K, 60, 0, 5}}},
    {"FilterTwoSendsOnlyUserData",
     {K},
     2,
     {"K1.0=21", "K60:0.0=5"},
     0,
     2,
     1,
     1,
     {{0, K, 1, 0, 21}, {0, K, 60, 0, 0}}},
};

class Download : public ::testing::TestWithParam<DownloadCase> {};

TEST_P(Download, SendsWhatItShould) {
    const DownloadCase &c = GetParam();
    RegisterBus b;
    LineSource source(c.lines);
    EXPECT_EQ(tra_oxcom_download_register_stream_e2(b.tra, 0xF, int32_t(c.types.size()),
                                                    c.types.data(), c.filter_mode, LineSource::read,
                                                    &source),
              c.rc);
    TRA_STREAM_REPORT report{};
    report.size = sizeof report;
    ASSERT_EQ(tra_get_stream_report(b.tra, &report), 0);
    EXPECT_EQ(report.lines, c.lines_read);
    EXPECT_EQ(report.sent, c.sent);
    EXPECT_EQ(report.skipped, c.skipped);
    EXPECT_EQ(report.refused, 0u);
    uint8_t downloaded = 9;
    ASSERT_EQ(tra_register_downloaded(b.tra, &downloaded), 0);
    EXPECT_EQ(downloaded, c.sent > 0 ? 1 : 0);
    for (const Check &k : c.checks)
        EXPECT_EQ(b.read(k.axis, k.kind, k.index, k.sub), k.value) << k.index;
}

INSTANTIATE_TEST_SUITE_P(Lines, Download, ::testing::ValuesIn(DOWNLOADS),
                         [](const auto &info) { return std::string(info.param.name); });

// Faults that strike in the middle of a stream, and what a download of two lines reports when
// one strikes before its second line.
struct StreamFault {
    const char *name;
    std::function<void(OXB_BUS *)> fault;
    int download_rc;
    uint32_t refused;
};

const StreamFault STREAM_FAULTS[] = {
    {"DroppedAnswers",
     [](OXB_BUS *bus) {
         OXBSIM_FAULTS f{};
         ASSERT_EQ(oxbsim_get_faults(bus, &f), 0);
         f.drop = 1.0;
         f.answer_ms = 20;
         ASSERT_EQ(oxbsim_set_faults(bus, &f), 0);
     },
     0, 1},
    {"DriveDetached", [](OXB_BUS *bus) { ASSERT_EQ(oxbsim_detach(bus, 0), 0); }, TRA_ENODRIVE, 0},
};

// The upload ends with a code, and what was written is a whole-line prefix of the upload without
// the fault.
TEST(RegisterUpload, FaultMidwayEndsWithACodeAndWholeLines) {
    for (const StreamFault &f : STREAM_FAULTS) {
        SCOPED_TRACE(f.name);
        RegisterBus b;
        const UploadArgs args{0x1, {K}, 0, 40, -1};
        Sink full;
        ASSERT_EQ(upload(b.tra, args, full), 0);
        Sink sink;
        sink.before_line = [&](std::size_t n) {
            if (n == 12) f.fault(b.bus);
        };
        const int rc = upload(b.tra, args, sink);
        EXPECT_TRUE(rc == TRA_ENOACK || rc == TRA_EGETREC) << rc;
        ASSERT_LE(sink.lines.size(), full.lines.size());
        EXPECT_GE(sink.lines.size(), 12u);
        for (std::size_t i = 0; i < sink.lines.size(); ++i)
            EXPECT_EQ(sink.lines[i], full.lines[i]);
        double progress = 0;
        ASSERT_EQ(tra_get_progress(b.tra, &progress), 0);
        EXPECT_LT(progress, 1.0);
    }
}

// The first line stays acknowledged; a lost answer is a refusal of its line, a drive that left
// ends the stream.
TEST(RegisterDownload, FaultMidwayIsReported) {
    for (const StreamFault &f : STREAM_FAULTS) {
        SCOPED_TRACE(f.name);
        RegisterBus b;
        LineSource source({"K1.0=41", "K2.0=42"});
        source.before_read = [&](std::size_t next) {
            if (next == 1) f.fault(b.bus);
        };
        EXPECT_EQ(
            tra_oxcom_download_register_stream_e(b.tra, 0x1, 1, &K, LineSource::read, &source),
            f.download_rc);
        TRA_STREAM_REPORT report{};
        report.size = sizeof report;
        ASSERT_EQ(tra_get_stream_report(b.tra, &report), 0);
        EXPECT_EQ(report.acknowledged, 1u);
        EXPECT_EQ(report.refused, f.refused);
        EXPECT_EQ(report.first_refused_line, f.refused != 0 ? 2 : 0);
    }
}

} // namespace
