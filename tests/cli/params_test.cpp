// The parameter-file model: a backup of the default bus restored onto a fresh bus and compared
// with it, read-only comments, product mismatches, refusals named, dry runs, checks and diffs.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "params.hpp"
#include "ryn/oxbsim.h"

namespace {

using namespace ryn::cli::params;

struct OpenBus : Bus {
    explicit OpenBus(const char *address = "sim:") {
        std::string why;
        EXPECT_EQ(open(address, &why), 0) << why;
    }
};

std::string backup(const Bus &bus, UploadSummary *summary) {
    std::ostringstream out;
    EXPECT_EQ(upload(bus, UploadOptions{}, out, summary), 0) << summary->message;
    return out.str();
}

ParamSet read_text(const std::string &text, const Bus *bus = nullptr) {
    std::istringstream in(text);
    ParamSet set;
    EXPECT_EQ(read_set(in, ReadOptions{}, bus, &set), 0);
    return set;
}

ParamSet live(const Bus &bus) {
    ParamSet set;
    std::string why;
    EXPECT_EQ(upload_set(bus, UploadOptions{}, &set, &why), 0) << why;
    return set;
}

int restore_text(const Bus &bus, const std::string &text, RestoreReport *report,
                 RestoreOptions options = {}) {
    std::istringstream in(text);
    return restore(bus, in, "f.txt", options, report);
}

TEST(Params, BackupRestoredOntoAFreshBusShowsNoDifference) {
    OpenBus a, b;
    RestoreReport report;
    ASSERT_EQ(restore_text(a, "K12.0=3\nKF1.(0,1)=2.5F\n", &report), 0);
    EXPECT_EQ(report.applied, 2u);

    UploadSummary summary;
    const std::string file = backup(a, &summary);
    EXPECT_EQ(summary.axes, 5);
    EXPECT_GT(summary.elements, summary.registers);
    EXPECT_GT(summary.read_only, 0u);
    EXPECT_NE(file.find("\n# read-only: K50.0=0\n"), std::string::npos);
    EXPECT_NE(file.find("\n#  - dev.product=ORX-M51\n"), std::string::npos);

    const ParamSet saved = read_text(file);
    EXPECT_TRUE(saved.problems.empty());
    const auto before = diff(saved, live(b));
    ASSERT_EQ(before.size(), 3u);
    EXPECT_EQ(before[0].name, "K12.0");
    EXPECT_EQ(*before[0].a, "3");
    EXPECT_EQ(*before[0].b, "0");

    ASSERT_EQ(restore_text(b, file, &report), 0);
    EXPECT_EQ(report.refused, 0u);
    EXPECT_GE(report.skipped, summary.read_only);
    EXPECT_TRUE(diff(saved, live(b)).empty());
    EXPECT_TRUE(diff(live(a), live(b)).empty());
}

TEST(Params, CommentsOrderAndSpellingMakeNoDifference) {
    const ParamSet a = read_text("K12.0=0x2 ; mode\nK11.0=1\nKF1.0=1000.0F\nK30:0.0=\"AXIS\"\n");
    const ParamSet b =
        read_text("# another order\nK30:0.0=\"AXIS\"\nKF1.0=1.0E3F\nK11.0=1\nK12.0=2\n");
    EXPECT_TRUE(diff(a, b).empty());
    const auto d = diff(a, read_text("K12.0=3\nK13.0=1\n"));
    ASSERT_EQ(d.size(), 5u);
    EXPECT_EQ(d[0].name, "K11.0");
    EXPECT_FALSE(d[0].b.has_value());
    EXPECT_EQ(d[1].name, "K12.0");
    EXPECT_EQ(*d[1].a + "->" + *d[1].b, "2->3");
    EXPECT_EQ(d[2].name, "K13.0");
    EXPECT_FALSE(d[2].a.has_value());
}

TEST(Params, AnotherProductIsRefusedUnlessForced) {
    OpenBus bus;
    const std::string file = "# ORAX Parameters Upload\n# Axis 0:\n#  - dev.product=ORX-D34\n"
                             "#  - dev.soft.version=3.10A\nK12.0=1\n";
    RestoreReport report;
    EXPECT_EQ(restore_text(bus, file, &report), TRA_EBADDRVPROD);
    EXPECT_TRUE(report.stopped);
    EXPECT_EQ(report.applied, 0u);
    ASSERT_EQ(report.mismatches.size(), 2u);
    EXPECT_EQ(report.mismatches[0].what, "product");
    EXPECT_TRUE(report.mismatches[0].refuses);
    EXPECT_EQ(report.mismatches[1].what + report.mismatches[1].drive, "version3.12B");
    RestoreOptions forced;
    forced.force = true;
    EXPECT_EQ(restore_text(bus, file, &report, forced), 0);
    EXPECT_EQ(report.applied, 1u);
}

TEST(Params, AxisBlocksAreComparedWithTheDrives) {
    struct Case {
        const char *block;              // axis block(s) of the file
        uint64_t axes;                  // restored axes
        std::vector<std::string> found; // "axis what file drive", refusing ones with "!"
    };
    const Case cases[] = {
        {"# Axis 0:\n#  - dev.product=ORX-D32\n#  - dev.soft.version=3.12B\n", 1, {}},
        {"# Axis 1:\n#  - dev.product=ORX-D32\n#  - dev.soft.version=3.12B\n",
         2,
         {"1 card none IOX-8"}},
        {"# Axis 1:\n#  - dev.product=ORX-D32\n#  - ext.product.category=IOX-8\n"
         "#  - ext.soft.version=1.00A\n",
         2,
         {"1 card version 1.00A 1.02A"}},
        {"# Axis 3:\n#  - dev.product=ORX-D32\n#  - ext.product.category=IOX-8\n",
         8,
         {"3 card IOX-8 ENC-2"}},
        {"# Axis 9:\n#  - dev.product.category=SERVO DRIVE\n",
         ~uint64_t(0),
         {"9 drive SERVO DRIVE none"}},
        {"# Axis *:\n#  - dev.product=ORX-M48\n", ~uint64_t(0), {"63 product ORX-M48 ORX-M51 !"}},
        {"# Axis *:\n#  - dev.product=ORX-M48\n", 1, {}}, // axis 63 not restored
        {"# Axis 2:\n#  - dev.product.category=SERVO DRIVE\n#  - dev.soft.version=3.20A\n",
         4,
         {"2 version 3.20A 3.12B"}}, // no product named: the version alone is compared
    };
    OpenBus bus;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.block);
        RestoreOptions o;
        o.dry_run = true;
        o.axes = c.axes;
        RestoreReport r;
        restore_text(bus, std::string("# ORAX Parameters Upload\n") + c.block, &r, o);
        std::vector<std::string> found;
        for (const Mismatch &m : r.mismatches)
            found.push_back(std::to_string(m.axis) + " " + m.what + " " + m.file + " " + m.drive +
                            (m.refuses ? " !" : ""));
        EXPECT_EQ(found, c.found);
    }
}

TEST(Params, UploadOptionsShapeTheFile) {
    OpenBus bus;
    struct Case {
        uint64_t axes;
        std::vector<uint8_t> types;
        bool read_only_comments;
        uint32_t flags;
        std::vector<std::string> contains, lacks;
        int axes_uploaded;
    };
    const Case cases[] = {
        {1, {2}, false, 0, {"\nK50.0=0\n"}, {"# read-only"}, 1},
        {1, {2}, true, 0, {"# Axis 0:\n#  - dev.product=ORX-D32\n"}, {}, 1},
        {1, {2}, true, 0, {"\n# read-only: K50.0=0\n", "\nK12.0=0\n"}, {"KF1.0"}, 1},
        {0x3, {34}, true, TRA_FNO_COMMENTS, {"KF1.1=1.0E3F"}, {"# Axis", "K12.0"}, 2},
        {uint64_t(1) << 63,
         {12},
         true,
         TRA_FUSE_ALIASES,
         {"\n*SYNC_PER=100\n", "\n*W11=0\n"},
         {"\n*W10=", "\n*K"},
         1},
    };
    for (const Case &c : cases) {
        UploadOptions o;
        o.axes = c.axes;
        o.types = c.types;
        o.read_only_comments = c.read_only_comments;
        o.flags = c.flags;
        o.date = std::time_t(0);
        double last = -1;
        o.progress = [&last](double p) {
            EXPECT_GE(p, last);
            last = p;
        };
        std::ostringstream out;
        UploadSummary summary;
        ASSERT_EQ(upload(bus, o, out, &summary), 0) << summary.message;
        const std::string file = out.str();
        SCOPED_TRACE(file.substr(0, 400));
        const bool dated = file.find("# Date: Thu Jan  1 00:00:00 1970\n") != std::string::npos;
        EXPECT_EQ(dated, (c.flags & TRA_FNO_COMMENTS) == 0);
        for (const std::string &text : c.contains)
            EXPECT_NE(file.find(text), std::string::npos) << text;
        for (const std::string &text : c.lacks)
            EXPECT_EQ(file.find(text), std::string::npos) << text;
        EXPECT_EQ(summary.axes, c.axes_uploaded);
        EXPECT_EQ(last, 1.0);
    }
}

TEST(Params, FailuresNameTheirLine) {
    struct Case {
        const char *bus;
        std::string file;
        bool dry, narrow; // narrow: axis 0 and type K only
        int rc;
        uint32_t applied, refused;
        std::vector<int> lines; // problem lines
        int first_refused;
    };
    const Case cases[] = {
        {"sim:", "K12.0=1\nCLX\nK11.0=1\n", false, false, TRA_ENOTALLOWED, 1, 0, {2}, 0},
        {"sim:nack=0.4;seed=4",
         "# ORAX Parameters Upload\nK12.0=1\nK11.0=1\nK10.0=1\n",
         false,
         true,
         TRA_EDRIVEERROR,
         2,
         1,
         {},
         4},
        {"sim:nack=1", "K12.0=1\n", false, true, TRA_ENOACK, 0, 0, {0}, 0},
        {"sim:",
         "K12.0=1\nK12.0=99999999\nK99999.0=1\nK11.0=1\n",
         true,
         false,
         TRA_EBADENUM,
         2,
         0,
         {2, 3},
         0},
        {"sim:", "K12.9=1\n", true, false, TRA_EUNKNOWN, 0, 0, {1}, 0},
        {"sim:", "hello world\n", false, false, TRA_ESTREAMFORMAT, 0, 0, {0}, 0},
        {"sim:", std::string("K12.0=1\0x\n", 10), false, false, TRA_ESTREAMFORMAT, 0, 0, {0}, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.bus + (": " + c.file));
        OpenBus bus(c.bus);
        RestoreOptions o;
        o.dry_run = c.dry;
        if (c.narrow) {
            o.axes = 1;
            o.types = {2};
        }
        RestoreReport r;
        EXPECT_EQ(restore_text(bus, c.file, &r, o), c.rc);
        EXPECT_EQ(r.applied, c.applied);
        EXPECT_EQ(r.refused, c.refused);
        EXPECT_EQ(r.first_refused_line, c.first_refused);
        ASSERT_EQ(r.problems.size(), c.lines.size());
        for (std::size_t i = 0; i < c.lines.size(); ++i)
            EXPECT_EQ(r.problems[i].line, c.lines[i]);
        uint64_t raw = 0;
        oxbsim_read(bus.bus(), 0, 2, 12, 0, &raw);
        if (c.dry) {
            EXPECT_EQ(raw, 0u) << "a dry run sends nothing";
        }
    }
}

TEST(Params, CheckListsEveryBadLine) {
    TRA *tra = nullptr;
    ASSERT_EQ(tra_create_register_traductor_o(&tra, 32, 0x03128100, 0, 0, 0), 0);
    std::istringstream in("# ORAX Parameters Upload\nK12.0=1\nK50.0=1\nK12.0=1\nMVE 1\nXZ.0=1\n");
    std::vector<LineProblem> problems;
    uint32_t lines = 0;
    EXPECT_EQ(check(tra, in, "f", &problems, &lines), 3);
    ASSERT_EQ(problems.size(), 3u);
    EXPECT_EQ(problems[0].line, 3);
    EXPECT_EQ(problems[0].code, TRA_EREADONLY);
    EXPECT_EQ(problems[1].line, 5);
    EXPECT_EQ(problems[2].line, 6);
    tra_destroy(&tra);
}

TEST(Params, AWriteErrorEndsTheBackup) {
    OpenBus bus;
    int left = 50;
    UploadSummary summary;
    EXPECT_EQ(upload(
                  bus, UploadOptions{}, [&](const std::string &) { return --left > 0; }, &summary),
              TRA_EWRITE);
    EXPECT_EQ(summary.lines, 49u);
    UploadOptions none;
    none.axes = uint64_t(1) << 40;
    EXPECT_EQ(upload(
                  bus, none, [](const std::string &) { return true; }, &summary),
              TRA_ENODRIVE);
}

TEST(Params, TypeAndAxisLists) {
    struct Case {
        const char *text;
        bool types_ok, axes_ok;
        std::vector<uint8_t> types;
        uint64_t axes;
    };
    const Case cases[] = {
        {"K", true, false, {2, 34, 66, 98}, 0},
        {"KF,x", true, false, {34, 1, 33, 65, 97}, 0},
        {"0,2-3,*", false, true, {}, 0xD | uint64_t(1) << 63},
        {"Z", false, false, {}, 0},
        {"3-1", false, false, {}, 0},
        {"64", false, false, {}, 0},
        {"", false, false, {}, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        std::vector<uint8_t> types;
        uint64_t axes = 0;
        std::string why;
        EXPECT_EQ(parse_types(c.text, &types, &why), c.types_ok) << why;
        if (c.types_ok) {
            EXPECT_EQ(types, c.types);
        }
        EXPECT_EQ(parse_axes(c.text, &axes, &why), c.axes_ok) << why;
        if (c.axes_ok) {
            EXPECT_EQ(axes, c.axes);
        }
    }
}

} // namespace
