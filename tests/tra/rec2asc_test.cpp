// Command records, requests and answers written back as command text, and the to-text entry
// points with their truncation.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "r2a_tables.hpp"
#include "record_builder.hpp"
#include "trace_helpers.hpp"
#include "trar2a.hpp"

namespace {

using namespace ryn::tra;
using ryn::test::Frame;
using ryn::test::Rec;
using ryn::test::trace;

constexpr uint32_t K = 2, KF = 34, KL = 66, X = 1, V = 15;
constexpr uint32_t MARKER = ELEMENT_REF_TAG_BIT;

// A slot tag of a value in an element or list record: own tag, position, count.
constexpr uint32_t list_tag(uint32_t own, uint32_t position, uint32_t count) {
    return own | position << 8 | count << 16;
}

struct RecordText : ::testing::Test {
    TRA *tra = nullptr;

    void SetUp() override {
        ASSERT_EQ(_tra_create_base(&tra, 32, 0, 0, KIND_DIRECT_OFFLINE), 0);
        ryn::test::fill_test_tables(tra);
        sup_trace_clear();
    }
    void TearDown() override { EXPECT_EQ(tra_destroy(&tra), 0); }

    // The text `write` makes of a record; a failure is expected only when rc asks for the result.
    template <class Write>
    static std::string written(Write &&write, int *rc) {
        char text[REC_TEXT_SIZE];
        int result = write(text);
        if (rc != nullptr) *rc = result;
        EXPECT_TRUE(rc != nullptr || result == 0) << "result " << result;
        return result == 0 ? text : "<failed>";
    }
    std::string text_of(const Rec &r, uint64_t mask, int *rc = nullptr) {
        return written([&](char *text) { return _tra_rec2asc_exec(tra, text, r.get(), mask); }, rc);
    }
    // Records written for an axis mask, and their texts.
    struct Case {
        const char *name;
        Rec rec;
        uint64_t mask;
        const char *expected;
    };
    void expect_texts(const std::vector<Case> &rows) {
        for (const Case &r : rows)
            EXPECT_EQ(text_of(r.rec, r.mask), r.expected) << r.name;
    }
};

TEST_F(RecordText, KindsDecidePrefixAndCommand) {
    expect_texts({
        {"unknown kind", Rec(5, 0).i32(1), 1, "[05]"},
        {"kind 4: generic parameters", Rec(4, 9).i32(3), 1, "$@-1.0=3"},
        {"register read list: raw dump", Rec(18, 0).reg(K, 1, 0, 0).slot(KL, 0x1ffffffffull), 1,
         "[12]=1,1ffffffff"},
        {"vector read: raw dump after the marker, by the tag's class",
         Rec(19, 0).slot(MARKER, 1).elem(V, 1, 2), 1, "[13]=2000001"},
        {"command", Rec(32, 124).i32(1), 1, "PWR.0=1"},
        {"command with \"!\"", Rec(24, 124).i32(1), 1, "!PWR.0=1"},
        {"command on page 1", Rec(33, 44).i32(1), 0x4, "@300.2=1"},
        {"command on page 1 with \"!\"", Rec(25, 44), 0x4, "!@300.2"},
        {"kind 80", Rec(80, 1), 0x1, "!@14337.0"},
        {"kind 40 is no command", Rec(40, 1), 0x1, "[28]"},
        {"kind 23 is no command", Rec(23, 1), 0x1, "[17]"},
    });
}

TEST_F(RecordText, AssignmentsAndOperators) {
    expect_texts({
        {"set", Rec(32, 123).dest(K, 1).i32(5), 1, "K1.0=5"},
        {"set on every axis", Rec(32, 123).dest(K, 1).i32(5), 0x7FFFFFFFFFFFFFFFull, "K1.!=5"},
        {"broadcast", Rec(32, 123).dest(K, 1).i32(5), 1ull << 63, "*K1=5"},
        {"set a subindex", Rec(32, 123).dest(K, 5, 2).i32(7), 1, "K5:2.0=7"},
        {"set a 64-bit value", Rec(32, 123).dest(KL, 1).i64(1000000000000ull), 1,
         "KL1.0=1000000000000L"},
        {"set a float", Rec(32, 123).dest(KF, 1).f32(2.5f), 1, "KF1.0=2.5F"},
        {"set from a register", Rec(32, 123).dest(K, 1).reg(K, 2, 0, 3), 1, "K1.0=K2.3"},
        {"set several", Rec(32, 125).dest(K, 5).i32(1).i32(2).i32(3), 1, "K5.0=1,2,3"},
        {"convert", Rec(32, 122).dest(K, 1).f32(2.5f), 1, "K1.0=2.5F"},
        {"whole type", Rec(32, 123).dest(K, 65534).i32(0), 1, "KY.0=0"},
        {"accumulator", Rec(32, 123).dest(X, 65535).i32(4), 1, "XAC.0=4"},
        {"add", Rec(32, 91).dest(K, 1).i32(5), 1, "K1.0+=5"},
        {"multiply by a float", Rec(32, 93).dest(KF, 1).f32(0.5f), 1, "KF1.0*=0.5F"},
        {"with \"!\"", Rec(24, 91).dest(K, 1).i32(5), 1, "!K1.0+=5"},
        {"no value", Rec(32, 123).dest(K, 1), 1, "K1.0="},
        {"no slot at all", Rec(32, 123), 1, ""},
    });
    // One operator table: a two-character, a three-character and the last one.
    const std::pair<uint8_t, const char *> operators[] = {{92, "-="}, {97, "&~="}, {174, "~="}};
    for (auto [command, op] : operators)
        EXPECT_EQ(text_of(Rec(32, command).dest(K, 1).i32(5), 1), std::string("K1.0") + op + "5");
}

TEST_F(RecordText, CommandsWithParameters) {
    expect_texts({
        {"no parameter", Rec(32, 124), 1, "PWR.0"},
        {"parameters", Rec(32, 124).i32(1).i64(2).f32(1.5f), 1, "PWR.0=1,2L,1.5F"},
        {"a register parameter", Rec(32, 124).reg(K, 3, 1, 2), 1, "PWR.0=K3:1.2"},
        {"broadcast", Rec(32, 124).i32(1), 1ull << 63, "*PWR=1"},
        {"broadcast and an axis", Rec(32, 124).i32(1), 1ull << 63 | 2, "*PWR.1=1"},
        {"unnamed", Rec(32, 200).i32(1).i32(2), 1, "@200.0=1,2"},
        {"step", Rec(32, 129).i32(5), 1, "STE.0=5"},
        {"step forward", Rec(32, 114).i32(5), 1, "STE.0+=5"},
        {"step back", Rec(32, 115).i32(5), 1, "STE.0-=5"},
        {"no axis meets the name's", Rec(32, 124).i32(1), 0, "@124=1"},
    });
}

TEST_F(RecordText, ElementAssignments) {
    // Without a dictionary a register has one row and one column: values are one list each.
    expect_texts({
        {"one element", Rec(38, 1).slot(MARKER, 2).elem(V, 1, 2).slot(list_tag(0, 0, 1), 5), 1,
         "V1[2].0=5"},
        {"with \"!\"", Rec(30, 1).slot(MARKER, 2).elem(V, 1, 2).slot(list_tag(0, 0, 1), 5), 1,
         "!V1[2].0=5"},
        {"a float element",
         Rec(38, 1).slot(MARKER, 2).elem(47, 1, 0).slot(list_tag(32, 0, 1),
                                                        std::bit_cast<uint32_t>(0.5f)),
         1, "VF1.0=0.5F"},
        {"a register as value",
         Rec(38, 1).slot(MARKER, 2).elem(V, 1, 0).slot(list_tag(K, 0, 1),
                                                       encode_element_value_register(4, 0, 3)),
         1, "V1.0=K4.3"},
        {"no value", Rec(38, 1).slot(MARKER, 2).elem(V, 1, 3), 1, "V1[3].0="},
        {"marker only", Rec(38, 1).slot(MARKER, 2), 1, ""},
    });
}

TEST_F(RecordText, RefusesNullArguments) {
    char text[REC_TEXT_SIZE];
    Rec r(32, 124);
    EXPECT_EQ(_tra_rec2asc_exec(tra, text, nullptr, 1), TRA_EBADPARAM);
    EXPECT_EQ(_tra_rec2asc_exec(tra, nullptr, r.get(), 1), TRA_EBADPARAM);
    EXPECT_EQ(trace().size(), 1u);
    EXPECT_EQ(trace()[0].function, "_tra_rec2asc_exec");
    EXPECT_EQ(trace()[0].code, TRA_EBADPARAM);
}

TEST_F(RecordText, CountBeyondTheLargestRecordIsNotFollowed) {
    // A count byte above 65 is read as 65 slots: the record holds no more.
    Rec r(32, 200);
    for (int i = 0; i < TRA_RECORD_MAX_SLOTS; ++i)
        r.i32(1);
    r.bytes[0] = 255;
    std::string text = text_of(r, 1);
    std::string expected = "@200.0=1";
    for (int i = 1; i < TRA_RECORD_MAX_SLOTS; ++i)
        expected += ",1";
    EXPECT_EQ(text, expected);
}

TEST_F(RecordText, LongRecordsStayWithinTheBuffer) {
    // 65 slots of 64-bit values of 20 characters each do not fit one line: the text is cut.
    Rec r(32, 200);
    for (int i = 0; i < TRA_RECORD_MAX_SLOTS; ++i)
        r.slot(64, uint64_t(-1) >> 1);
    char text[REC_TEXT_SIZE + 16];
    std::memset(text, '#', sizeof text);
    ASSERT_EQ(_tra_rec2asc_exec(tra, text, r.get(), 1), 0);
    EXPECT_EQ(std::strlen(text), std::size_t(REC_TEXT_SIZE - 1));
    EXPECT_EQ(text[REC_TEXT_SIZE], '#');
    char small[10];
    ASSERT_EQ(_tra_rec2asc_exec(tra, small, r.get(), 1, sizeof small), 0);
    EXPECT_STREQ(small, "@200.0=92");
}

// ---- Requests and answers ----

struct RequestText : RecordText {
    using RecordText::text_of;
    std::string text_of(const Rec &q, const Rec &a, uint64_t mask, int *rc = nullptr) {
        return written(
            [&](char *text) { return _tra_rec2asc2_exec(tra, text, q.get(), a.get(), mask); }, rc);
    }
};

TEST_F(RequestText, RegistersWithTheirValues) {
    struct Row {
        const char *name;
        Rec q, a;
        uint64_t mask;
        const char *expected;
    } rows[] = {
        {"one register", Rec(18, 0).reg(K, 1, 0, 0), Rec(18, 0).i32(5), 1, "K1.0=5"},
        {"two registers", Rec(18, 0).reg(K, 1, 0, 0).reg(KL, 2, 0, 0), Rec(18, 0).i32(5).i64(7),
         0x8, "K1.3=5,KL2.3=7L"},
        {"elements of one register", Rec(18, 0).reg(K, 5, 0, 0).reg(K, 5, 1, 0),
         Rec(18, 0).i32(1).i32(2), 1, "K5.0=1,K5:1.0=2"},
        {"a float", Rec(18, 0).reg(KF, 1, 0, 0), Rec(18, 0).f32(1000.0f), 1, "KF1.0=1.0E3F"},
        {"axis 63", Rec(18, 0).reg(K, 1, 0, 63), Rec(18, 0).i32(5), 1ull << 63, "*K1=5"},
        {"a vector", Rec(19, 0).slot(MARKER, 1).elem(V, 1, 0).elem(V, 1, 1).elem(V, 1, 2),
         Rec(19, 0).slot(MARKER, 1).i32(1).i32(2).i32(0xAB), 1,
         "V1.0=[0x1],[0x2],[0xAB]"}, // no dictionary: one column
        {"a float vector element", Rec(19, 0).slot(MARKER, 1).elem(47, 2, 3),
         Rec(19, 0).slot(MARKER, 1).f32(0.5f), 1, "VF2[3].0=[0.5F]"},
        {"two vectors", Rec(19, 0).slot(MARKER, 1).elem(V, 1, 0).elem(V, 2, 0),
         Rec(19, 0).slot(MARKER, 1).i32(1).i32(2), 1, "V1.0=[0x1],V2.0=[0x2]"},
        {"nothing asked", Rec(18, 0), Rec(18, 0), 1, ""},
    };
    for (const Row &r : rows)
        EXPECT_EQ(text_of(r.q, r.a, r.mask), r.expected) << r.name;
}

TEST_F(RequestText, MismatchesAreRefused) {
    const Rec read = Rec(18, 0).reg(K, 1, 0, 0).reg(K, 2, 0, 0);
    const Rec vq = Rec(19, 0).slot(MARKER, 1).elem(V, 1, 0);
    const Rec vector_answer = Rec(19, 0);
    const Rec one_value = Rec(18, 0).i32(1);
    const Rec marker_only = Rec(19, 0).slot(MARKER, 1);
    const Rec float_answer = Rec(19, 0).slot(MARKER, 1).f32(1);
    struct Row {
        const char *name;
        const TRA_RECORD *q, *a;
        uint64_t mask;
    } rows[] = {
        {"null request", nullptr, read.get(), 1},
        {"null answer", read.get(), nullptr, 1},
        {"no axis", read.get(), read.get(), 0},
        {"two axes", read.get(), read.get(), 3},
        {"another kind", read.get(), vector_answer.get(), 1},
        {"fewer values than registers", read.get(), one_value.get(), 1},
        {"another number of values", vq.get(), marker_only.get(), 1},
        {"another value class", vq.get(), float_answer.get(), 1},
    };
    for (const Row &r : rows) {
        sup_trace_clear();
        char text[REC_TEXT_SIZE] = "untouched";
        EXPECT_EQ(_tra_rec2asc2_exec(tra, text, r.q, r.a, r.mask), TRA_EBADPARAM) << r.name;
        ASSERT_EQ(trace().size(), 1u) << r.name;
        EXPECT_EQ(trace()[0].function, "_tra_rec2asc2_exec") << r.name;
    }
}

// ---- Locked wrappers and entry points ----

TEST_F(RecordText, LockedWrappersPassFailuresOn) {
    char text[REC_TEXT_SIZE];
    EXPECT_EQ(_tra_rec2asc_ex(tra, text, nullptr, 1), TRA_EBADPARAM);
    auto frames = trace();
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].function, "_tra_rec2asc_exec");
    EXPECT_EQ(frames[1].function, "_tra_rec2asc_ex");
    EXPECT_EQ(frames[1].file, "trar2a");

    sup_trace_clear();
    Rec q = Rec(18, 0).reg(K, 1, 0, 0);
    EXPECT_EQ(_tra_rec2asc2_ex(tra, text, q.get(), q.get(), 3), TRA_EBADPARAM);
    frames = trace();
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[1].function, "_tra_rec2asc2_ex");

    Rec r = Rec(32, 124).i32(1);
    EXPECT_EQ(_tra_rec2asc_ex(tra, text, r.get(), 1), 0);
    EXPECT_STREQ(text, "PWR.0=1");
    mark_stale(*tra); // stale tables are rebuilt before the record is written
    EXPECT_EQ(_tra_rec2asc_ex(tra, text, r.get(), 1), 0);
    EXPECT_FALSE(tables_stale(*tra));
}

TEST_F(RecordText, EntryPointsCutToTheDestination) {
    Rec r = Rec(32, 124).i32(1); // "PWR.0=1", 7 characters
    Rec q = Rec(18, 0).reg(K, 1, 0, 0);
    Rec a = Rec(18, 0).i32(5); // "K1.0=5", 6 characters
    // Destination size, the command's and the request's text.
    const std::tuple<int, const char *, const char *> rows[] = {
        {1024, "PWR.0=1", "K1.0=5"}, {7, "PWR.0=", "K1.0=5"}, {2, "P", "K"}, {1, "", ""},
        {5000, "PWR.0=1", "K1.0=5"}, // larger than the text: nothing to cut, no bound needed
    };
    for (auto [size, cmd, rqs] : rows) {
        SCOPED_TRACE(size);
        std::vector<char> text(std::size_t(std::max(size, 16)) + 16, '#');
        EXPECT_EQ(tra_oxcom_translate_cmd_to_ascii_ex(tra, r.get(), 1, text.data(), size), 0);
        EXPECT_STREQ(text.data(), cmd);
        EXPECT_EQ(text[std::strlen(cmd) + 1], '#') << "nothing written after the text";
        std::fill(text.begin(), text.end(), '#');
        EXPECT_EQ(tra_oxcom_translate_rqs_to_ascii_ex(tra, q.get(), a.get(), 1, text.data(), size),
                  0);
        EXPECT_STREQ(text.data(), rqs);
    }
}

TEST_F(RecordText, EntryPointsRefuseBadHandlesAndPassFailures) {
    Rec r = Rec(32, 124).i32(1);
    char text[32] = "untouched";
    EXPECT_EQ(tra_oxcom_translate_cmd_to_ascii_ex(nullptr, r.get(), 1, text, 32), TRA_EBADPARAM);
    ASSERT_EQ(trace().size(), 1u);
    EXPECT_EQ(trace()[0].file, "tracmd");
    EXPECT_EQ(trace()[0].function, "tra_oxcom_translate_cmd_to_ascii_ex");

    const uint32_t kind = tra->kind;
    tra->kind = KIND_DIRECT_BUS + 1;
    EXPECT_EQ(tra_oxcom_translate_rqs_to_ascii_ex(tra, r.get(), r.get(), 1, text, 32),
              TRA_EBADPARAM);
    tra->kind = kind;

    sup_trace_clear();
    EXPECT_EQ(tra_oxcom_translate_cmd_to_ascii_ex(tra, nullptr, 1, text, 32), TRA_EBADPARAM);
    std::vector<std::string> functions;
    for (const Frame &f : trace())
        functions.push_back(f.function);
    EXPECT_EQ(functions, (std::vector<std::string>{"_tra_rec2asc_exec", "_tra_rec2asc_ex",
                                                   "tra_oxcom_translate_cmd_to_ascii_ex"}));
    EXPECT_STREQ(text, "untouched") << "the destination is left as it was";
    EXPECT_EQ(tra_oxcom_translate_rqs_to_ascii_ex(tra, r.get(), r.get(), 3, text, 32),
              TRA_EBADPARAM);
    EXPECT_STREQ(text, "untouched");
    EXPECT_EQ(tra_oxcom_translate_cmd_to_ascii_ex(tra, r.get(), 1, nullptr, 32), TRA_EBADPARAM);

    for (uint32_t k : {KIND_REGISTER_OFFLINE, KIND_REGISTER_BUS, KIND_DIRECT_BUS}) {
        tra->kind = k;
        EXPECT_EQ(tra_oxcom_translate_cmd_to_ascii_ex(tra, r.get(), 1, text, 32), 0) << k;
        EXPECT_STREQ(text, "PWR.0=1");
    }
    tra->kind = kind;
}

TEST_F(RecordText, ConcurrentCallsOnOneTranslator) {
    // The writers keep no state of their own: calls from several threads each get their text.
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int n = 0; n < 4; ++n)
        threads.emplace_back([&, n] {
            Rec r = Rec(32, 123).dest(K, uint32_t(n)).i32(uint32_t(n));
            const std::string expected = "K" + std::to_string(n) + ".0=" + std::to_string(n);
            char text[64];
            for (int i = 0; i < 500; ++i)
                if (tra_oxcom_translate_cmd_to_ascii_ex(tra, r.get(), 1, text, sizeof text) != 0 ||
                    expected != text)
                    ++wrong;
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);
}

TEST_F(RecordText, CutOutsideTheBoundsStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Rec r = Rec(32, 124).i32(1);
    Rec empty(5, 0); // "[05]"
    char text[2048];
    EXPECT_DEATH(tra_oxcom_translate_cmd_to_ascii_ex(tra, r.get(), 1, text, 0),
                 "destination size 0 outside 1..1024");
    EXPECT_DEATH(tra_oxcom_translate_cmd_to_ascii_ex(tra, r.get(), 1, text, -1),
                 "destination size -1 outside 1..1024");
    EXPECT_DEATH(tra_oxcom_translate_cmd_to_ascii_ex(tra, empty.get(), 1, text, -5),
                 "tra_oxcom_translate_cmd_to_ascii_ex: destination size -5");
    Rec q = Rec(18, 0).reg(K, 1, 0, 0);
    EXPECT_DEATH(tra_oxcom_translate_rqs_to_ascii_ex(tra, q.get(), q.get(), 1, text, 0),
                 "tra_oxcom_translate_rqs_to_ascii_ex: destination size 0");
}

} // namespace

namespace {

// Record to text with the dictionaries of the ORAX family: ORX-D32 3.12B on axes 0..3.
struct DictionaryText : RequestText {
    VOK_DICT *dict = nullptr;

    void SetUp() override {
        RequestText::SetUp();
        ASSERT_EQ(vok_open(&dict, 32, 0x03128100, 0, 0), 0);
        for (int a = 0; a < 4; ++a)
            tra->axis_dicts[a] = dict;
        tra->commands.push_back({"TRJ", 310, COMMAND_TYPE, ~0ull, 0, 0});
        tra->commands.push_back({"DBG", 14340, COMMAND_TYPE, ~0ull, 0, 0});
        tra->commands.push_back({"MVE", 160, COMMAND_TYPE, ~0ull, 0, 0});
        tra->command_aliases.build(tra->commands);
    }
    void TearDown() override {
        tra->axis_dicts.fill(nullptr);
        vok_close(&dict);
        RequestText::TearDown();
    }
};

uint32_t chars(const char *four) {
    uint32_t v = 0;
    for (int i = 0; i < 4 && four[i] != '\0'; ++i)
        v |= uint32_t(uint8_t(four[i])) << (8 * i);
    return v;
}

TEST_F(DictionaryText, ValuesTakeTheRegistersFormats) {
    Rec matrix = Rec(38, 1).slot(MARKER, 2).elem(48, 2, 0);
    for (int k = 0; k < 6; ++k)
        matrix.slot(list_tag(32, k, 6), std::bit_cast<uint32_t>(1.0f + k));
    Rec vector = Rec(38, 1).slot(MARKER, 2).elem(V, 1, 0);
    for (int k = 0; k < 4; ++k)
        vector.slot(list_tag(0, k, 4), k + 1);
    expect_texts({
        {"a string over three elements",
         Rec(32, 125).dest(K, 30).i32(chars("AXIS")).i32(chars("-1 m")).i32(chars("ain")), 1,
         "K30.0=\"AXIS-1 main\""},
        {"a short string", Rec(32, 123).dest(K, 30).i32(chars("ab")), 1, "K30.0=\"ab\""},
        {"a string with a register among its values",
         Rec(32, 125).dest(K, 30).i32(chars("AXIS")).reg(K, 2, 0, 1), 1, "K30.0=\"AXIS\",K2.1"},
        {"an address", Rec(32, 123).dest(K, 31).i32(0xC0A8000A), 1, "K31.0=\"192.168.0.10\""},
        {"a hexadecimal register", Rec(32, 123).dest(K, 20).i32(16), 1, "K20.0=0x10"},
        {"hexadecimal under an arithmetic operator", Rec(32, 93).dest(K, 20).i32(16), 1,
         "K20.0*=16"},
        {"hexadecimal under a bit operator", Rec(32, 97).dest(K, 20).i32(16), 1, "K20.0&~=16"},
        {"hexadecimal under +=", Rec(32, 91).dest(K, 20).i32(16), 1, "K20.0+=0x10"},
        {"converted into a hexadecimal register", Rec(32, 122).dest(K, 20).f32(2.5f), 1,
         "K20.0=2.5F"},
        {"several elements", Rec(32, 125).dest(K, 5).i32(1).i32(2), 1, "K5.0=1,2"},
        {"an element of several as a value", Rec(32, 123).dest(K, 1).reg(K, 5, 0, 0), 1,
         "K1.0=K5:0.0"},
        {"a matrix", matrix, 1, "TF2.0=[[1.0F,2.0F,3.0F],[4.0F,5.0F,6.0F]]"},
        {"a matrix element",
         Rec(38, 1).slot(MARKER, 2).elem(48, 2, 5).slot(list_tag(32, 0, 1),
                                                        std::bit_cast<uint32_t>(1.5f)),
         1, "TF2[1,2].0=1.5F"},
        {"a vector", vector, 1, "V1.0=[1,2,3,4]"},
        // A parameter's format 0 means "none": a hexadecimal parameter is written in decimal.
        {"a hexadecimal parameter", Rec(88, 4).i32(1).i32(255), 1, "DBG.0=1,255"},
        {"parameters of three classes", Rec(32, 160).i64(1000).f32(2.5f).f64(1000), 1,
         "MVE.0=1000L,2.5F,1.0E3D"},
        {"a list command",
         Rec(33, 54)
             .slot(MARKER, 0)
             .slot(list_tag(0, 0, 3), 1)
             .slot(list_tag(0, 1, 3), 2)
             .slot(list_tag(0, 2, 3), 3)
             .slot(list_tag(0, 0, 2), 10)
             .slot(list_tag(0, 1, 2), 20),
         1, "TRJ.0=[1,2,3],[10,20]"},
    });
}

TEST_F(DictionaryText, CommentsFromTheDictionary) {
    ryn::test::use_flags(tra, TRA_FDESCRIPTIONS);
    struct Row {
        const char *name;
        uint32_t flags;
        Rec rec;
        const char *expected;
    } rows[] = {
        {"add to", 0, Rec(32, 91).dest(K, 1).i32(5),
         "K1.0+=5                                 ; add to Position loop proportional gain"},
        {"substract from", 0, Rec(32, 92).dest(K, 1).i32(5),
         "K1.0-=5                                 ; substract from Position loop proportional "
         "gain"},
        {"set, one tab", TRA_FTAB, Rec(32, 123).dest(K, 1).i32(5),
         "K1.0=5\t; set Position loop proportional gain"},
        {"set several", TRA_FTABS8, Rec(32, 125).dest(K, 5).i32(1),
         "K5.0=1\t\t\t\t\t; setd Position scaling, three axes of the gantry"},
        {"elements", 0, Rec(38, 1).slot(MARKER, 2).elem(V, 1, 1).slot(list_tag(0, 0, 1), 5),
         "V1[1].0=5                               ; set Trajectory vector"},
        {"a command", 0, Rec(32, 124).i32(1),
         "PWR.0=1                                 ; Power stage on or off"},
        {"a register without a description", 0, Rec(32, 123).dest(31, 9).i32(1), "??9.0=1"},
    };
    for (const Row &r : rows) {
        ryn::test::use_flags(tra, TRA_FDESCRIPTIONS | r.flags);
        EXPECT_EQ(text_of(r.rec, 1), r.expected) << r.name;
    }
}

TEST_F(DictionaryText, IsoValuesOfConvertibleRegisters) {
    struct Scale {
        static int convert(OXB_BUS *, void *drive, double *iso, uint32_t, int32_t, int32_t, int32_t,
                           void *) {
            int32_t raw;
            std::memcpy(&raw, drive, 4);
            *iso = raw / 1000.0;
            return 0;
        }
    };
    ASSERT_EQ(tra_oxcom_set_iso_converter(tra, &Scale::convert, nullptr), 0);
    ryn::test::use_flags(tra, TRA_FISO_CONVERT);
    EXPECT_EQ(text_of(Rec(32, 123).dest(K, 40).i32(2500), 1), "K40.0=2.5") << "HOME_OFS converts";
    EXPECT_EQ(text_of(Rec(32, 123).dest(K, 1).i32(2500), 1), "K1.0=2500") << "POS_KP has no unit";
    char text[REC_TEXT_SIZE];
    Rec q = Rec(18, 0).reg(K, 40, 0, 0);
    Rec a = Rec(18, 0).i32(2500);
    ASSERT_EQ(_tra_rec2asc2_exec(tra, text, q.get(), a.get(), 1), 0);
    EXPECT_STREQ(text, "K40.0=2.5");
}

TEST_F(DictionaryText, AnswersTakeTheRegistersShape) {
    Rec vq = Rec(19, 0).slot(MARKER, 1), va = Rec(19, 0).slot(MARKER, 1);
    for (uint32_t k = 0; k < 4; ++k) {
        vq.elem(V, 1, k);
        va.i32(k + 1);
    }
    Rec mq = Rec(19, 0).slot(MARKER, 1), ma = Rec(19, 0).slot(MARKER, 1);
    for (uint32_t k = 0; k < 6; ++k) {
        mq.elem(48, 2, k);
        ma.f32(float(k));
    }
    Rec sq(18, 0), sa(18, 0);
    const char *name[] = {"AXIS", "-1", "", "", "", "", "", ""};
    for (uint32_t k = 0; k < 8; ++k) {
        sq.reg(K, 30, k, 2);
        sa.i32(chars(name[k]));
    }
    struct Row {
        const char *name;
        const Rec &q, &a;
        const char *expected;
    } rows[] = {
        {"a vector", vq, va, "V1.2=[0x1,0x2,0x3,0x4]"},
        {"a matrix", mq, ma, "TF2.2=[[0.0F,1.0F,2.0F],[3.0F,4.0F,5.0F]]"},
        {"a string", sq, sa, "K30.2=\"AXIS-1\""},
    };
    for (const Row &r : rows)
        EXPECT_EQ(text_of(r.q, r.a, 0x4), r.expected) << r.name;

    ryn::test::use_flags(tra, TRA_FDESCRIPTIONS);
    Rec q = Rec(18, 0).reg(K, 31, 0, 2);
    Rec a = Rec(18, 0).i32(0xC0A8000A);
    EXPECT_EQ(text_of(q, a, 0x4), "K31.2=\"192.168.0.10\"                    ; Axis IP address");
}

} // namespace
