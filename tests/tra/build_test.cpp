// Text to record: every form of the command language on an offline ORX-D32 3.12B translator,
// the records it gives, and the failures with their trace frames.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "record.hpp"
#include "traa2r.hpp"
#include "trace_helpers.hpp"
#include "tralkt.hpp"

namespace {

using namespace ryn::tra;
using ryn::test::trace;

constexpr uint64_t ALL = ~uint64_t(0);

// A record as "count/command/kind tag:value ..." with tags and 64-bit values in hexadecimal.
std::string dump(const uint8_t *bytes) {
    ConstRecordView r{bytes};
    std::string s = std::to_string(r.header().count) + "/" + std::to_string(r.header().command) +
                    "/" + std::to_string(r.header().kind);
    for (int i = 0; i < r.header().count; ++i) {
        char slot[48];
        std::snprintf(slot, sizeof slot, " %x:%llx", r.tag(i),
                      static_cast<unsigned long long>(r.value64(i)));
        s += slot;
    }
    return s;
}

struct Builder : ::testing::Test {
    TRA *tra = nullptr;
    std::array<uint8_t, TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)> record{};
    uint32_t count = 0;
    uint64_t mask = 0;

    void SetUp() override {
        ASSERT_EQ(tra_create_direct_traductor_o(&tra, 32, 0x03128100, 0, 0, 0), 0);
    }
    void TearDown() override { tra_destroy(&tra); }

    int translate(const char *line, uint32_t capacity = TRA_RECORD_MAX_SLOTS) {
        sup_trace_clear();
        count = 0;
        mask = 0;
        return tra_oxcom_translate_cmd_from_ascii_ex(
            tra, reinterpret_cast<TRA_RECORD *>(record.data()), capacity, &count, &mask, line);
    }
};

struct Row {
    const char *line, *record;
    uint64_t mask;
};

void expect_records(Builder &b, const std::vector<Row> &rows) {
    for (const Row &r : rows) {
        ASSERT_EQ(b.translate(r.line), 0) << r.line;
        EXPECT_EQ(dump(b.record.data()), r.record) << r.line;
        EXPECT_EQ(b.mask, r.mask) << r.line;
        EXPECT_EQ(b.count, b.record[0]) << r.line << ": the count is the slots written";
    }
}

TEST_F(Builder, AssignmentsAndAxisForms) {
    expect_records(*this, {
                              {"K12.0=2", "2/123/32 2:4000000c 0:2", 0x1},
                              {"K12=2", "2/123/32 2:4000000c 0:2", ALL},
                              {"K1.(0,2)=5", "2/123/32 2:40000001 0:5", 0x5},
                              {"!K1.0=5", "2/123/24 2:40000001 0:5", 0x1},
                              {"K5.0=1,2,3", "4/125/32 2:40000005 0:1 0:2 0:3", 0x1},
                              {"K5:1.0=7", "2/123/32 2:40010005 0:7", 0x1},
                              {"K40.0=2.5F", "2/122/32 2:40000028 20:40200000", 0x1},
                              {"POS_KP.1=100", "2/123/32 2:40000001 0:64", 0x2},
                              {"SCALE3.0=1,2,3", "4/125/32 2:40000005 0:1 0:2 0:3", 0x1},
                              {"K1.0=K2.3", "2/123/32 2:40000001 2:3000002", 0x1},
                              {"K1.0=*K2", "2/123/32 2:40000001 2:3f000002", 0x1},
                              {"KY.0=0", "2/123/32 2:4000fffe 0:0", 0x1},
                              {"XAC.0=4", "2/123/32 1:4000ffff 0:4", 0x1},
                              {"KL1.0=5L", "2/123/32 42:40000001 40:5", 0x1},
                              {"KD1.0=2.5D", "2/123/32 62:40000001 60:4004000000000000", 0x1},
                              {"K20.0=0x12", "2/123/32 2:40000014 0:12", 0x1},
                              {"K5.0=-12", "2/123/32 2:40000005 0:fffffff4", 0x1},
                              {"K5.0=-0x10", "2/123/32 2:40000005 0:fffffff0", 0x1},
                          });
}

TEST_F(Builder, StringsAndAddresses) {
    expect_records(
        *this, {
                   {"K30.0=\"ABCDEFGHIJ\"",
                    "9/125/32 2:4000001e 0:44434241 0:48474645 0:4a49 0:0 0:0 0:0 0:0 0:0", 0x1},
                   {"K30.0=\"AB\"", "9/125/32 2:4000001e 0:4241 0:0 0:0 0:0 0:0 0:0 0:0 0:0", 0x1},
                   {"K31.0=\"192.168.0.1\"", "2/123/32 2:4000001f 0:c0a80001", 0x1},
               });
}

TEST_F(Builder, OperatorsAndStep) {
    expect_records(*this, {
                              {"K1.0+=5", "2/91/32 2:1 0:5", 0x1},
                              {"K1.0&~=5", "2/97/32 2:1 0:5", 0x1},
                              {"K1.0<<=2", "2/173/32 2:1 0:2", 0x1},
                              {"STE.0=1", "1/129/32 0:1", 0x1},
                              {"STE.0+=2", "1/114/32 0:2", 0x1},
                              {"@129.0-=2", "1/115/32 0:2", 0x1},
                          });
}

TEST_F(Builder, CommandsAndBroadcast) {
    expect_records(
        *this, {
                   {"PWR.(0,1)=1", "1/124/32 0:1", 0x3},
                   {"PWR.!=1", "1/124/32 0:1", 0x7fffffffffffffff},
                   {"*:PWR=1", "1/124/32 0:1", 0x8000000000000000},
                   {":*PWR=1", "1/124/32 0:1", 0x8000000000000000},
                   {"!PWR.0=1", "1/124/24 0:1", 0x1},
                   {"CLX.0", "0/17/32", 0x1},
                   {"@17.0", "0/17/32", 0x1},
                   {"RST.!", "0/79/32", 0x7fffffffffffffff},
                   {"SAV.0=1", "1/48/32 0:1", 0x1},
                   {"IND.0=3", "1/44/33 0:3", 0x1},
                   {"MVE.0=100L,2.5F,3.5D", "3/160/32 40:64 20:40200000 60:400c000000000000", 0x1},
                   {"DBG.0=3,0xFF", "2/4/88 0:3 0:ff", 0x1},
                   {"TRJ.0=[1,2,3],[10,20,30]",
                    "7/54/33 10000:0 30000:1 30100:2 30200:3 30000:a 30100:14 30200:1e", 0x1},
                   {"TRJ.0=1,2", "3/54/33 10000:0 10000:1 10000:2", 0x1},
                   {"TRJ.0=[[1,2]],5", "4/54/33 10000:0 20000:1 20100:2 10000:5", 0x1},
               });
}

TEST_F(Builder, VectorAndMatrixElements) {
    expect_records(
        *this,
        {
            {"V1[2].0=5", "3/1/38 10000:2 1000f:4000000002000001 10000:5", 0x1},
            {"V1.0=[1,2,3,4]",
             "6/1/38 10000:2 1000f:4000000000000001 40000:1 40100:2 40200:3 40300:4", 0x1},
            {"TF2.0=[[1.5F,2F,3F],[4F,5F,6F]]",
             "8/1/38 10000:2 10030:4000000000000002 60020:3fc00000 60120:40000000 60220:40400000 "
             "60320:40800000 60420:40a00000 60520:40c00000",
             0x1},
            {"TF2[1].0=[4F,5F,6F]",
             "5/1/38 10000:2 10030:4000000003000002 30020:40800000 30120:40a00000 30220:40c00000",
             0x1},
            {"TF2[1,2].0=1.5F", "3/1/38 10000:2 10030:4000000005000002 10020:3fc00000", 0x1},
        });
}

TEST_F(Builder, Reads) {
    expect_records(
        *this,
        {
            {"K1.0", "1/0/18 2:1", 0x1},
            {"M7.0,K1.0", "2/0/18 3:7 2:1", 0x1},
            {"K1.0,K2.0,K12.0,K5:2.0", "4/0/18 2:1 2:2 2:c 2:20005", 0x1},
            {"SD1.0", "1/0/18 3:3c", 0x1},
            {"K30.0", "8/0/18 2:1e 2:1001e 2:2001e 2:3001e 2:4001e 2:5001e 2:6001e 2:7001e", 0x1},
            {"V1.0",
             "5/0/19 10000:1 4000f:4000000000000001 4010f:4000000001000001 4020f:4000000002000001 "
             "4030f:4000000003000001",
             0x1},
            {"V1[2].0", "2/0/19 10000:1 1000f:4000000002000001", 0x1},
            {"TF2[1,2].0", "2/0/19 10000:1 10030:4000000005000002", 0x1},
        });
}

TEST_F(Builder, CleaningRawRecordsAndBrackets) {
    expect_records(*this,
                   {
                       {"K1.0=5 ; set the gain", "2/123/32 2:40000001 0:5", 0x1},
                       {"K1.0=5 // set the gain", "2/123/32 2:40000001 0:5", 0x1},
                       {"  k1 . 0 = 5   # lower case and blanks", "2/123/32 2:40000001 0:5", 0x1},
                       {"[MASK:0X3,GATE:0,CMD:123,REC:32,TYP:0,PAR:5]", "1/123/32 0:5", 0x3},
                       {"[K1.0=5000000]", "2/123/32 2:40000001 0:4c4b40", 0x1},
                   });
}

TEST_F(Builder, FailuresCarryTheirCodeOriginAndDetail) {
    struct Fail {
        const char *line;
        int code;
        const char *origin, *detail;
    } rows[] = {
        {"K1.0,K2.0,K12.0,K5.0,K20.0", TRA_ECMDSYNTAX, "_tra_asc2rec_exec", "K"},
        {"FOO.0=1", TRA_ECMDSYNTAX, "_tra_asc2rec_exec", "FOO"},
        {"XAC.0=1,2", TRA_ECMDSYNTAX, "_tra_asc2rec_exec", "XAC"},
        {"K1.0+=1,2", TRA_ECMDSYNTAX, "_tra_asc2rec_exec", "1"},
        {"CLX.0,K1", TRA_ECMDSYNTAX, "_tra_asc2rec_exec", "K"},
        {"V1.0+=5", TRA_ECMDSYNTAX, "_tra_asc2rec_exec", "5"},
        {"K13.0=1", TRA_EUNKNOWN, "_tra_check_everything", "K"},
        {"SAV.0=9", TRA_EBADENUM, "_tra_check_cmd_enum", nullptr},
        {"K12.0=5", TRA_EBADENUM, "_tra_check_reg_enum", nullptr},
        {"K1.0=1.5", TRA_EISOVALUE, "_tra_parse_floating_numbers", "1.5"},
        {"KF1.0+=5", TRA_ETYPECONV, "_tra_check_types", "5"},
        {"V1.0=1.5F", TRA_ETYPECONV, "_tra_asc2rec_exec", "1.5F"},
        {"K31.0=\"1.2.3\"", TRA_ECMDSYNTAX, "_tra_check_ip", "\"1.2.3\""},
        {"*K1.0", TRA_ECMDSYNTAX, "_tra_check_everything", nullptr},
        {"V1[1,1].0=5", TRA_EBADINDEX, "_tra_asc2rec_exec",
         "Row & column specified on vector parameter"},
        {"TF2[2,0].0=1F", TRA_EBADINDEX, "_tra_asc2rec_exec",
         "The specified index is out of range"},
        {"TF2[5].0", TRA_EBADINDEX, "_tra_asc2rec_exec", "The vector/matrix index is out of range"},
        {"V1[1].0=5,6", TRA_ETOOMANYVALUES, "_tra_asc2rec_exec",
         "A single value should be specified"},
        {"TF2.0=[[1F,2F,3F,4F]]", TRA_ETOOMANYVALUES, "_tra_asc2rec_exec",
         "Too much columns specified"},
        {"V1.0=5", TRA_EBADSUBSCRIPT, "_tra_asc2rec_exec",
         "Vector parameter element must be specified"},
        {"V1.0=[[1,2]]", TRA_EBADSUBSCRIPT, "_tra_asc2rec_exec",
         "Bad subscipt specified. use [n, m, ...]"},
        {"TF2.0=[1F,2F,3F]", TRA_EBADSUBSCRIPT, "_tra_asc2rec_exec",
         "Matrix parameter row must be specified"},
        {"TF2.0=[[1F,2F],[3F,4F,5F]]", TRA_EINCOMPLETEVECTOR, "_tra_asc2rec_exec",
         "Incomplete Vector specified"},
        {"TRJ.0=[[1,2],[3,4", TRA_ECMDSYNTAX, "_tra_asc2rec_exec",
         "End matrix element not detected"},
        {"TRJ.0=[[1,2],[3,4]", TRA_ECMDSYNTAX, "_tra_parse_asc_cmd", nullptr},
        {"K1.63=5", TRA_ERANGE, "_tra_parse_asc_cmd", "63"},
        {"SD3.0", TRA_ECMDSYNTAX, "_tra_parse_std_tokens", "SD3"},
        {"\"ABC", TRA_ECMDSYNTAX, "_tra_parse_std_tokens", "\"ABC"},
        {"[K1.0=5", TRA_ECMDSYNTAX, "_tra_asc2rec_exec", nullptr},
    };
    for (const Fail &f : rows) {
        EXPECT_EQ(translate(f.line), f.code) << f.line;
        auto frames = trace();
        ASSERT_GE(frames.size(), 3u) << f.line;
        EXPECT_EQ(frames.front().file, "traa2r") << f.line;
        EXPECT_EQ(frames.front().function, f.origin) << f.line;
        EXPECT_EQ(frames.front().code, f.code) << f.line;
        if (f.detail != nullptr) {
            EXPECT_EQ(frames.front().detail, f.detail) << f.line;
        }
        EXPECT_EQ(frames[frames.size() - 2].function, "_tra_asc2rec_ex") << f.line;
        EXPECT_EQ(frames.back().function, "tra_oxcom_translate_cmd_from_ascii_ex") << f.line;
    }
}

TEST_F(Builder, EmptyLinesAreNothingOrAnErrorByFlag) {
    for (const char *line : {"", "   ", "; only a comment", "# header", "// note"}) {
        EXPECT_EQ(translate(line), 0) << line;
        EXPECT_EQ(count, 0xFFFFFFFFu) << line;
    }
    ASSERT_EQ(tra_set_flags(tra, TRA_FEMPTY_IS_ERROR), 0);
    EXPECT_EQ(translate("  ; nothing"), TRA_EEMPTYCMD);
}

TEST_F(Builder, CapacityIsCheckedBeforeAnythingIsWritten) {
    struct Cap {
        const char *line;
        uint32_t capacity;
        int code;
        uint32_t slots; // told in the count, whether they fit or not
    } rows[] = {
        {"K5.0=1,2,3", 3, TRA_EBUFSIZE, 4},
        {"K5.0=1,2,3", 4, 0, 4},
        {"K30.0=\"AB\"", 8, TRA_EBUFSIZE, 9},
        {"K30.0=\"AB\"", 9, 0, 9},
        {"V1.0", 4, TRA_EBUFSIZE, 5},
        {"V1.0", 5, 0, 5},
        {"V1.0=[1,2,3,4]", 5, TRA_EBUFSIZE, 6},
        {"V1.0=[1,2,3,4]", 6, 0, 6},
        {"TRJ.0=[1,2],[3,4]", 4, TRA_EBUFSIZE, 5},
        {"TRJ.0=[1,2],[3,4]", 5, 0, 5},
        {"[MASK:1,GATE:0,CMD:17,REC:32,TYP:0,PAR:1,TYP:0,PAR:2]", 1, TRA_EBUFSIZE, 2},
        {"CLX.0", 0, 0, 0},
    };
    for (const Cap &c : rows) {
        // A record of exactly the capacity, so that the sanitizer sees any write past it.
        std::vector<uint8_t> exact(static_cast<std::size_t>(TRA_RECORD_SIZE(c.capacity)));
        sup_trace_clear();
        count = 12345;
        int rc = tra_oxcom_translate_cmd_from_ascii_ex(
            tra, reinterpret_cast<TRA_RECORD *>(exact.data()), c.capacity, &count, &mask, c.line);
        EXPECT_EQ(rc, c.code) << c.line << " in " << c.capacity;
        EXPECT_EQ(count, c.slots) << c.line << " in " << c.capacity;
    }
    EXPECT_EQ(translate("K1.0=1", 65536), TRA_EBADPARAM);
}

TEST_F(Builder, BadArgumentsAreRefused) {
    EXPECT_EQ(translate(nullptr), TRA_EBADPARAM);
    EXPECT_EQ(trace().front().function, "tra_oxcom_translate_cmd_from_ascii_ex");
    EXPECT_EQ(tra_oxcom_translate_cmd_from_ascii_ex(nullptr, nullptr, 1, nullptr, nullptr, "K1.0"),
              TRA_EBADPARAM);
    sup_trace_clear();
    EXPECT_EQ(_tra_asc2rec_exec(tra, nullptr, reinterpret_cast<TRA_RECORD *>(record.data()), 1, 0,
                                nullptr, nullptr, nullptr),
              TRA_EBADPARAM);
    EXPECT_EQ(sup_trace_count(), 0) << "a null text is refused without a trace";
    EXPECT_EQ(tra_oxcom_translate_cmd_from_ascii_ex(
                  tra, reinterpret_cast<TRA_RECORD *>(record.data()), 1, nullptr, nullptr, "CLX.0"),
              0)
        << "the outputs are optional";
}

TEST_F(Builder, LinesForAbsentAxesAreDropped) {
    ASSERT_EQ(translate("K1.0=1"), 0);
    tra->present_axes = 0x2; // only axis 1 answers
    EXPECT_EQ(translate("K1.0=1"), 0);
    EXPECT_EQ(count, 0xFFFFFFFFu);
    EXPECT_EQ(translate("K1=1"), 0);
    EXPECT_EQ(mask, 0x2u) << "a line without axes goes to the present ones";
    EXPECT_EQ(translate("K1.1=1"), 0);
    EXPECT_EQ(count, 2u);
}

TEST_F(Builder, StreamAxesNarrowLinesAndDefaultThem) {
    tra->download_axis_mask = 0x6; // a stream to axes 1 and 2 is running
    struct Case {
        uint32_t flags;
        const char *line;
        uint32_t count;
        uint64_t mask;
    } rows[] = {
        {0, "K1.0=1", 0xFFFFFFFFu, 0},        // outside the stream's axes: dropped
        {0, "K1.(0,1)=1", 2, 0x3},            // one common axis is enough
        {0, "K1=1", 2, ALL},                  // without the flag: every axis
        {TRA_FDOWNLOAD_AXES, "K1=1", 2, 0x6}, // with it: the stream's axes
        {TRA_FDOWNLOAD_AXES, "POS_KP=1", 2, 0x6},
    };
    for (const Case &c : rows) {
        ASSERT_EQ(tra_set_flags(tra, c.flags), 0);
        EXPECT_EQ(translate(c.line), 0) << c.line;
        EXPECT_EQ(count, c.count) << c.line;
        if (c.count != 0xFFFFFFFFu) {
            EXPECT_EQ(mask, c.mask) << c.line;
        }
    }
}

TEST_F(Builder, StreamAxesDecideWhereTheFirstAliasHolds) {
    TRA *o2 = nullptr;
    ASSERT_EQ(tra_create_direct_traductor_o2(&o2, 32, 0x03128100, 0, 0, 51, 0x02018000, 0, 0, 0),
              0);
    auto *rec = reinterpret_cast<TRA_RECORD *>(record.data());
    EXPECT_EQ(tra_oxcom_translate_cmd_from_ascii_ex(o2, rec, 65, &count, &mask, "*SYNC_PER=5"), 0);
    o2->download_axis_mask = 0x6;
    ASSERT_EQ(tra_set_flags(o2, TRA_FDOWNLOAD_AXES), 0);
    EXPECT_EQ(tra_oxcom_translate_cmd_from_ascii_ex(o2, rec, 65, &count, &mask, "*SYNC_PER=5"),
              TRA_ECMDSYNTAX)
        << "the controller's alias does not hold on the stream's axes 1 and 2";
    EXPECT_EQ(tra_oxcom_translate_cmd_from_ascii_ex(o2, rec, 65, &count, &mask, "POS_KP.1=5"), 0);
    tra_destroy(&o2);
}

TEST_F(Builder, NoCheckFlagSkipsTheDictionaryButNotTheShape) {
    ASSERT_EQ(tra_set_flags(tra, TRA_FNO_CHECK), 0);
    EXPECT_EQ(translate("K1.0=2000000"), 0);
    EXPECT_EQ(translate("K13.0=1"), 0);
    EXPECT_EQ(translate("K1.0+=1,2"), TRA_ECMDSYNTAX);
}

TEST_F(Builder, TypeFilterSkipsValidationOfOtherTypes) {
    const uint8_t only_x[] = {1};
    int32_t n = 0;
    auto *rec = reinterpret_cast<TRA_RECORD *>(record.data());
    EXPECT_EQ(_tra_asc2rec_ex(tra, "K1.0=2000000", rec, 65, 1, only_x, &n, nullptr), 0)
        << "a K line outside the filter is written unchecked";
    EXPECT_EQ(_tra_asc2rec_ex(tra, "X1.0=K13.0", rec, 65, 1, only_x, &n, nullptr), TRA_EUNKNOWN);

    // The presence test belongs to the checks the filter skips: only lines of a filtered type
    // are dropped for absent axes.
    tra->present_axes = 0x2;
    struct Case {
        const char *line;
        int32_t count;
    } rows[] = {{"X1.0=1", -1}, {"K1.0=1", 2}, {"X1.1=1", 2}};
    for (const Case &c : rows) {
        n = 0;
        EXPECT_EQ(_tra_asc2rec_ex(tra, c.line, rec, 65, 1, only_x, &n, nullptr), 0) << c.line;
        EXPECT_EQ(n, c.count) << c.line;
    }
}

TEST_F(Builder, ThreadsShareOneTranslatorAndEachGetsItsOwnRecord) {
    const char *lines[] = {"K5.0=1,2,3", "PWR.(0,1)=1", "TF2[1,2].0=1.5F", "K30.0=\"AXIS\""};
    std::string expected[4];
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(translate(lines[i]), 0);
        expected[i] = dump(record.data());
    }
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            std::array<uint8_t, TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)> own{};
            for (int n = 0; n < 200; ++n) {
                uint32_t slots = 0;
                uint64_t axes = 0;
                if (tra_oxcom_translate_cmd_from_ascii_ex(
                        tra, reinterpret_cast<TRA_RECORD *>(own.data()), TRA_RECORD_MAX_SLOTS,
                        &slots, &axes, lines[i]) != 0 ||
                    dump(own.data()) != expected[i])
                    ++mismatches[static_cast<std::size_t>(i)];
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

// Text to record to text to record gives the same record and mask, for every form of the
// language in the corpus.
TEST_F(Builder, RoundTripOfTheCorpus) {
    FILE *corpus = std::fopen(RYN_TEST_DATA "/roundtrip.txt", "r");
    ASSERT_NE(corpus, nullptr);
    char line[1024];
    int lines = 0;
    while (std::fgets(line, sizeof line, corpus) != nullptr) {
        line[std::strcspn(line, "\r\n")] = '\0';
        if (line[0] == '\0' || line[0] == '#') continue;
        ++lines;
        ASSERT_EQ(translate(line), 0) << line;
        const std::string first = dump(record.data());
        const uint64_t first_mask = mask;
        char text[1024];
        ASSERT_EQ(tra_oxcom_translate_cmd_to_ascii_ex(
                      tra, reinterpret_cast<TRA_RECORD *>(record.data()), mask, text, sizeof text),
                  0)
            << line;
        ASSERT_EQ(translate(text), 0) << line << " came back as " << text;
        EXPECT_EQ(dump(record.data()), first) << line << " came back as " << text;
        EXPECT_EQ(mask, first_mask) << line << " came back as " << text;
    }
    std::fclose(corpus);
    EXPECT_GE(lines, 40);
}

} // namespace
