// Register translators on simulated buses: parameter upload in every layout against golden files,
// download with its checks and filter modes, the round trip of a backup, and faults mid-way.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "bus_helpers.hpp"
#include "traupl.hpp"

namespace {

using namespace ryn::test;

constexpr uint8_t K = 2, KL = 0x42, KF = 0x22, KD = 0x62, X = 1, C = 13, W = 12, L = 8, V = 15;

// A port on a sim: bus and a register translator on it; the upload date fixed.
struct RegisterBus {
    OXB_PORT *port = nullptr;
    OXB_BUS *bus = nullptr;
    TRA *tra = nullptr;

    explicit RegisterBus(uint32_t flags = 0, const char *address = "sim:") {
        EXPECT_EQ(oxb_open(address, &port), 0) << address;
        EXPECT_EQ(oxb_get_port_bus(port, &bus), 0);
        EXPECT_EQ(tra_create_register_traductor_e(&tra, port, flags), 0);
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
    ~RegisterBus() {
        ryn::tra::_tra_set_upload_date(nullptr);
        tra_destroy(&tra);
        oxb_close(&port);
    }
    RegisterBus(const RegisterBus &) = delete;
    RegisterBus &operator=(const RegisterBus &) = delete;

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
    static int write(TRA *, const char *line, void *user, int32_t) {
        auto &s = *static_cast<Sink *>(user);
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
