// The command text parser: line cleaning, tokens and their separators, axis forms, lists and
// token classification.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "ryn/vok.h"
#include "traa2r_tokens.hpp"
#include "trace_helpers.hpp"

namespace {

using namespace ryn::tra;
using ryn::test::Frame;
using ryn::test::trace;

// The register type names of the ORAX family, as the lookup-table builder fills them.
void fill_orax_type_names(TRA *tra) {
    for (auto &name : tra->type_names)
        std::strcpy(name, "??");
    struct Family {
        int code;
        const char *name;
    } families[] = {{1, "X"}, {2, "K"},  {3, "M"},  {6, "Q"},  {8, "L"},
                    {9, "E"}, {12, "W"}, {13, "C"}, {15, "V"}, {16, "T"}};
    const char *suffix[] = {"", "F", "L", "D"};
    for (const Family &f : families)
        for (int c = 0; c < 4; ++c)
            std::snprintf(tra->type_names[f.code + 32 * c], TYPE_NAME_SIZE, "%s%s", f.name,
                          suffix[c]);
    std::strcpy(tra->type_names[7], "A");
}

std::string separator_text(uint32_t code) {
    std::string s;
    for (int i = 0; i < 4 && (code >> (8 * i) & 0xFF) != 0; ++i)
        s += static_cast<char>(code >> (8 * i) & 0xFF);
    return s;
}

// One token in a short form: separator, text, "#type", then "@index" for registers and named
// numbers, subscripts in brackets, ".axis", or ":value" for literals.
std::string describe(const Token &t) {
    std::ostringstream os;
    os << separator_text(t.separator) << t.text << '#' << t.type;
    if (t.is_register() || (t.type == TAG_NAME && t.index != 0)) os << '@' << t.index;
    if (t.row_given) {
        os << '[' << t.row;
        if (t.column_given) os << ',' << t.column;
        os << ']';
    }
    if (t.axis != 0) os << '.' << int(t.axis);
    if (t.type == TAG_INT32) os << ':' << t.i32();
    if (t.type == TAG_INT64) os << ':' << t.i64();
    if (t.type == TAG_FLOAT) os << ':' << t.f32();
    if (t.type == TAG_DOUBLE || t.type == TAG_ISO) os << ':' << t.f64();
    return os.str();
}

struct Parse : ::testing::Test {
    TRA *tra = nullptr;
    ParseContext ctx{};

    void SetUp() override {
        ASSERT_EQ(_tra_create_base(&tra, 32, 0, 0, KIND_DIRECT_OFFLINE), 0);
        fill_orax_type_names(tra);
        sup_trace_clear();
    }
    void TearDown() override { EXPECT_EQ(tra_destroy(&tra), 0); }

    // Cleans a line as the builder does and runs both parser steps.
    int parse(const char *line) {
        std::vector<char> clean(std::strlen(line) + 1);
        if (int rc = _tra_clean_line(line, clean.data(), clean.size()); rc < 0) return rc;
        std::memset(&ctx, 0, sizeof ctx);
        sup_trace_clear();
        if (int rc = _tra_parse_asc_cmd(tra, &ctx, clean.data())) return rc;
        return _tra_parse_std_tokens(tra, &ctx);
    }
    std::string tokens() const {
        std::string s;
        for (int i = 0; i < ctx.count; ++i) {
            if (i > 0) s += ' ';
            s += describe(ctx.tokens[i]);
        }
        return s;
    }
};

TEST(Clean, CommentsBlanksCaseAndBroadcast) {
    const std::pair<const char *, const char *> rows[] = {
        {"k12 = 5 ; comment", "K12=5"},
        {"k12=5 # comment", "K12=5"},
        {"k12=5 // comment", "K12=5"},
        {"k1 / 2", "K1/2"},
        {"k30 = \"a b;c\"", "K30=\"A B"}, // a comment mark ends the line inside quotes too
        {"k30 = \"a b\" , 1", "K30=\"A B\",1"},
        {"\t*: k1 = 2\r\n", ":*K1=2"},
        {":*k1", ":*K1"},
        {"k1=*:", "K1=*:"},
        {"   ", ""},
        {"; only a comment", ""},
    };
    for (auto [line, clean] : rows) {
        char out[64];
        EXPECT_EQ(_tra_clean_line(line, out, sizeof out), int(std::strlen(clean))) << line;
        EXPECT_STREQ(out, clean) << line;
    }
}

TEST(Clean, RefusesSmallBuffersWithoutOverrun) {
    char out[6] = {'x', 'x', 'x', 'x', 'x', '#'};
    EXPECT_EQ(_tra_clean_line("K1 = 5", out, 5), 4);
    EXPECT_STREQ(out, "K1=5");
    EXPECT_EQ(_tra_clean_line("K12=55", out, 5), TRA_EBUFSIZE);
    EXPECT_EQ(out[5], '#');
    EXPECT_EQ(_tra_clean_line("K1", out, 0), TRA_EBUFSIZE);
    EXPECT_EQ(_tra_clean_line(nullptr, out, 5), TRA_EBADPARAM);
}

TEST_F(Parse, TokensAndClassification) {
    const std::tuple<const char *, int, const char *> rows[] = {
        {"K12=5", 0, "K#2@12 =5#0:5"},
        {"k12 = -5", 0, "K#2@12 =-5#0:-5"},
        {"K12:3=5", 0, "K#2@12[3] =5#0:5"},
        {"K12[3]=5", 0, "K#2@12[3] =5#0:5"},
        {"T5[1,2]=7", 0, "T#16@5[1,2] =7#0:7"},
        {"KF1=1.5F", 0, "KF#34@1 =1.5F#32:1.5"},
        {"KD1=1.5", 0, "KD#98@1 =1.5#-2:1.5"},
        {"KL1=7L", 0, "KL#66@1 =7L#64:7"},
        {"K1=99999999999999999999", 0, "K#2@1 =99999999999999999999#-1"},
        {"K1=-.5", TRA_ECMDSYNTAX, ""},
        {"K1+=5", 0, "K#2@1 +=5#0:5"},
        {"K1<<=2", 0, "K#2@1 <<=2#0:2"},
        {"K1~=3", 0, "K#2@1 ~=3#0:3"},
        {"K1=5,6,7", 0, "K#2@1 =5#0:5 ,6#0:6 ,7#0:7"},
        {"K1,K2,M3", 0, "K#2@1 ,K#2@2 ,M#3@3"},
        {"K1+5", 0, "K#2@1 +5#0:5"},
        {"K1+5+6", TRA_ECMDSYNTAX, ""},
        {"K1=5=6", TRA_ECMDSYNTAX, ""},
        {"K1,2=6", TRA_ECMDSYNTAX, ""},
        {"=5", TRA_ECMDSYNTAX, ""},
        {".3", TRA_ECMDSYNTAX, ""},
        {"K1=", TRA_ECMDSYNTAX, ""},
        {"K1==5", TRA_ECMDSYNTAX, ""},
        {"K1=5;", 0, "K#2@1 =5#0:5"},
        {"K1=\"AB\"X", TRA_ECMDSYNTAX, ""},
        {"K1=(1,2)", 0, "K#2@1 =(1,2)#-1"},
        {"K12[1]:2", TRA_ECMDSYNTAX, ""},
        {"K12:1:2", TRA_ECMDSYNTAX, ""},
        {"K12[1][2]", TRA_ECMDSYNTAX, ""},
        {"K1=K2[3]", TRA_ECMDSYNTAX, ""},
        {"K12[16777216]", TRA_ERANGE, ""},
        {"K12:16777216", TRA_ERANGE, ""},
        {"K12:X", TRA_ECMDSYNTAX, ""},
        {"K1=K2:4", 0, "K#2@1 =K#2@2[4]"},
        {"KY=0", 0, "KY#2@65534 =0#0:0"},
        {"KFY", 0, "KFY#34@65534"},
        {"ZY", TRA_ECMDSYNTAX, ""},
        {"ZZY", TRA_ECMDSYNTAX, ""},
        {"SD1", 0, "M#3@60"},
        {"SD2", 0, "M#3@61"},
        {"SD3", TRA_ECMDSYNTAX, ""},
        {"SDX1", 0, "SDX1#-1"},
        {"A5", 0, "A#7@5"},
        {"A5X", TRA_ECMDSYNTAX, ""},
        {"@12", 0, "@#-1@12"},
        {"XAC=5", 0, "XAC#1@65535 =5#0:5"},
        {"STE", 0, "STE#-1"},
        {"POS_KP=5", 0, "POS_KP#-1 =5#0:5"},
        {"ZZ5", 0, "ZZ5#-1"},
        {"ABC5", 0, "ABC5#-1"},
        {"??5", 0, "??5#-1"},
        {"XD3=1E5", 0, "XD#97@3 =1E5#-2:100000"},
        {"K99999999999", TRA_ERANGE, ""},
        {"INF=NAN", 0, "INF#-1 =NAN#-1"},
        {"K1=-K2", 0, "K#2@1 =-K2#-1"},
        {"TUN=1,2.5", 0, "TUN#-1 =1#0:1 ,2.5#-2:2.5"},
    };
    for (auto [line, rc, expected] : rows) {
        EXPECT_EQ(parse(line), rc) << line;
        EXPECT_EQ(rc == 0 ? tokens() : "", expected) << line;
    }
}

TEST_F(Parse, NamesLeftWholeAreMarked) {
    ASSERT_EQ(parse("POS_KP=K1,ZZ5"), 0);
    EXPECT_EQ(ctx.tokens[0].whole, 1);
    EXPECT_EQ(ctx.tokens[1].whole, 0);
    EXPECT_EQ(ctx.tokens[2].whole, 1);
}

TEST_F(Parse, AxisForms) {
    constexpr uint64_t ALL = 0x7FFFFFFFFFFFFFFFull;
    // Line, result, axis mask, whether no axis was named, the first token's axis.
    const std::tuple<const char *, int, uint64_t, bool, int> rows[] = {
        {"K12=5", 0, 0, true, 0},
        {"K12.3=5", 0, 1ull << 3, false, 3},
        {"K12.62", 0, 1ull << 62, false, 62},
        {"K12.63", TRA_ERANGE, 0, false, 0},
        {"K12.-1", TRA_ECMDSYNTAX, 0, false, 0},
        {"*:K12", 0, 1ull << 63, false, 63},
        {":*K12", 0, 1ull << 63, false, 63},
        {"*K12", 0, 1ull << 63, false, 63},
        {":K12", 0, 0, true, 0},
        {":-K12", TRA_ECMDSYNTAX, 0, false, 0},
        {"K12.!", 0, ALL, false, 64},
        {"K12.(1,3,*)", 0, 0x800000000000000Aull, false, 0},
        {"K12.(1/2)", TRA_ECMDSYNTAX, 0, false, 0},
        {"K12.(1;2)", TRA_ECMDSYNTAX, 0, false, 0}, // the comment leaves "(1" unclosed
        {"K12.(63)", TRA_ERANGE, 0, false, 0},
        {"K12.()", 0, 1, false, 0},
        {"K12.%0X3", 0, 3, false, 0},
        {"K12.%5=1", 0, 5, false, 0},
        {"K12.%0", 0, 0, false, 0},          // named, even though the mask stays empty
        {"K12.2.5", 0, 1ull << 2, false, 2}, // "2.5" is one number word, read up to its point
        {"K1=K2.5", 0, 0, true, 0},
        {"K1=K2.(1)", TRA_ECMDSYNTAX, 0, false, 0},
        {"K1=K2.%1", TRA_ECMDSYNTAX, 0, false, 0},
        {"K12.X", TRA_ECMDSYNTAX, 0, false, 0}, // no preference axes
        {"!K12=5", 0, 0, true, 0},
    };
    for (auto [line, rc, mask, no_axis, axis0] : rows) {
        EXPECT_EQ(parse(line), rc) << line;
        if (rc != 0) continue;
        EXPECT_EQ(ctx.axis_mask, mask) << line;
        EXPECT_EQ((ctx.flags & CTX_NO_AXIS) != 0, no_axis) << line;
        EXPECT_EQ(ctx.tokens[0].axis, axis0) << line;
    }
    ASSERT_EQ(parse("!K12=5"), 0);
    EXPECT_EQ(ctx.bang, 1);
    ASSERT_EQ(parse("K1=K2.5"), 0);
    EXPECT_EQ(ctx.tokens[1].axis, 5);
    ASSERT_EQ(parse("K1=*K2"), 0);
    EXPECT_EQ(ctx.tokens[1].axis, AXIS_BROADCAST);
    EXPECT_EQ(ctx.axis_mask, 0u);
}

TEST_F(Parse, PreferredAxes) {
    tra->preference_axis_mask = 0x0C;
    ASSERT_EQ(parse("K12.X=K1.X"), 0);
    EXPECT_EQ(ctx.axis_mask, 0x0Cu);
    EXPECT_EQ(ctx.tokens[0].axis, 2);
    EXPECT_EQ(ctx.tokens[1].axis, 2);
    EXPECT_EQ(ctx.flags & CTX_NO_AXIS, 0u);
    tra->preference_axis_mask = 1ull << 63;
    ASSERT_EQ(parse("K12.X"), 0);
    EXPECT_EQ(ctx.tokens[0].axis, 63);
}

// Lists: per value its row and column place, "[" / "[[" in front, "]" / "]]" behind.
TEST_F(Parse, ListMarkers) {
    // Line, result, the context's list flags (rows, matrix), the marks of the tokens after the
    // first.
    const std::tuple<const char *, int, int, int, const char *> rows[] = {
        {"V1=[1,2,3]", 0, 1, 0, "[(-1,0) (-1,1) (-1,2)]"},
        {"T1=[[1,2],[3,4]]", 0, 1, 1, "[[[(0,0) (0,1)] [(1,0) (1,1)]]]"},
        {"T1[1]=[5,6]", 0, 1, 0, "[(-1,0) (-1,1)]"},
        {"V1=[1,2", 0, 1, 0, "[(-1,0) (-1,1)"},
        {"T1=[[1,2]],5", 0, 1, 1, "[[[(0,0) (0,1)]]] (-1,-1)"},
        {"TUN=[1,2],[3,4]", 0, 1, 0, "[(-1,0) (-1,1)] [(-1,0) (-1,1)]"},
        {"TUN=1,[2,3],4", 0, 0, 0, "(-1,-1) [(-1,0) (-1,1)] (-1,-1)"},
        {"TUN=1,[[2,3]]", 0, 0, 0, "(-1,-1) [[[(0,0) (0,1)]]]"},
        {"V1=[1,2]]", TRA_ECMDSYNTAX, 0, 0, ""},
        {"V1=[1,[2]]", TRA_ECMDSYNTAX, 0, 0, ""},
        {"T1=[[1,2],[3,4]],[[5]]", TRA_ECMDSYNTAX, 0, 0, ""}, // "]],[" is a run of four
        {"V1=[1,2]+", TRA_ECMDSYNTAX, 0, 0, ""},
        {"V1=1]", TRA_ECMDSYNTAX, 0, 0, ""},
        {"T1=[[1,2],[3,4]", TRA_ECMDSYNTAX, 0, 0, ""}, // "]" alone leaves the matrix open
        {"T1=[[1,2]", TRA_ECMDSYNTAX, 0, 0, ""},
        {"T1=[[1,2],[3,4", 0, 1, 1, "[[[(0,0) (0,1)] [(1,0) (1,1)"},
        {"V1,[1", 0, 0, 0, "[(-1,0)"},
        {"V1=[1],=[2]", TRA_ECMDSYNTAX, 0, 0, ""},
    };
    for (auto [line, rc, list_rows, matrix, expected] : rows) {
        EXPECT_EQ(parse(line), rc) << line;
        if (rc != 0) continue;
        EXPECT_EQ(ctx.list_rows, list_rows) << line;
        EXPECT_EQ(ctx.list_matrix, matrix) << line;
        std::string marks;
        for (int i = 1; i < ctx.count; ++i) {
            const Token &t = ctx.tokens[i];
            if (i > 1) marks += ' ';
            if (t.opens_list) marks += "[[";
            if (t.opens_row) marks += '[';
            marks += '(' + std::to_string(t.list_row) + ',' + std::to_string(t.list_column) + ')';
            if (t.closes_row) marks += ']';
            if (t.closes_list) marks += "]]";
        }
        EXPECT_EQ(marks, expected) << line;
    }
}

TEST_F(Parse, Strings) {
    // Line, result, values of the tokens after the first.
    const std::tuple<const char *, int, std::vector<uint32_t>> rows[] = {
        {"K30=\"ABC\"", 0, {0x434241}},
        {"K30=\"ABCD\"", 0, {0x44434241}},
        {"K30=\"ABCDEFGHI\"", 0, {0x44434241, 0x48474645, 0x49}},
        {"K30=\"\"", 0, {0}},
        {"K30=\"ABCD1...\"", 0, {0x44434241, 0x2E2E2E31}}, // a part is no address
        {"K31=\"192.168.0.10\"", 0, {0xC0A8000A}},
        {"K31=\"...\"", 0, {0}},
        {"K31=\"1.2.3\"", 0, {0x2E322E31, 0x33}},
        {"K30=\"ABCDEFGH\",5", TRA_ETOOMANYPARAMS, {}},
        {"K30=\"ABC\",5", 0, {0x434241, 5}},
        {"K30=\"AB", TRA_ECMDSYNTAX, {}},
        {"K30=\"a;b\"", TRA_ECMDSYNTAX, {}}, // the comment cut the string open
    };
    for (const auto &[line, rc, values] : rows) {
        EXPECT_EQ(parse(line), rc) << line;
        if (rc != 0) continue;
        ASSERT_EQ(ctx.count, int(values.size()) + 1) << line;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const Token &t = ctx.tokens[i + 1];
            EXPECT_EQ(static_cast<uint32_t>(t.i32()), values[i]) << line << " value " << i;
            EXPECT_EQ(t.type, TAG_INT32) << line;
            EXPECT_EQ(t.separator, i == 0 ? sep("=") : sep(",")) << line;
        }
    }
    ASSERT_EQ(parse("K30=\"ABCDEFGHI\""), 0);
    EXPECT_STREQ(ctx.tokens[1].text, "\"ABCDEFGHI\"") << "the first part keeps the whole text";
}

TEST_F(Parse, TokenTableLimits) {
    auto line_of = [](int values, const char *last) {
        std::string s = "TUN=1";
        for (int i = 2; i < values; ++i)
            s += ",1";
        return s + "," + last;
    };
    EXPECT_EQ(parse(line_of(63, "1").c_str()), 0);
    EXPECT_EQ(ctx.count, 64);
    EXPECT_EQ(parse(line_of(64, "1").c_str()), TRA_ECMDSYNTAX) << "the 65th token";
    EXPECT_EQ(trace()[0].function, "_tra_parse_asc_cmd");
    // A string may fill the table to 64 tokens but not beyond.
    EXPECT_EQ(parse(line_of(62, "\"ABCDEFGH\"").c_str()), 0);
    EXPECT_EQ(ctx.count, 64);
    EXPECT_EQ(parse(line_of(62, "\"ABCDEFGHI\"").c_str()), TRA_ETOOMANYPARAMS);
    // A word too long for a token is refused, not cut.
    std::string long_name = "K1=" + std::string(65, 'Z');
    EXPECT_EQ(parse(long_name.c_str()), TRA_ECMDSYNTAX);
    std::string longest = "K1=" + std::string(64, 'Z');
    EXPECT_EQ(parse(longest.c_str()), 0);
    std::string huge = "K1=" + std::string(5000, '9');
    EXPECT_EQ(parse(huge.c_str()), TRA_ECMDSYNTAX);
}

// A frame of the parser's trace, its line left out: the origin with code and token, or a pass.
Frame at(const char *function, int code = 0, const char *detail = "") {
    return {"traa2r", 0, function, code, "", detail};
}

TEST_F(Parse, ErrorsNameTheFunctionAndTheToken) {
    const std::pair<const char *, std::vector<Frame>> rows[] = {
        {"K12.63", {at("_tra_parse_asc_cmd", TRA_ERANGE, "63")}},
        {"K12.(1/2)", {at("_parse_mask_enum", TRA_ECMDSYNTAX, "(1/2"), at("_tra_parse_asc_cmd")}},
        {"SD3", {at("_tra_parse_std_tokens", TRA_ECMDSYNTAX, "SD3")}},
        {"ZY", {at("_tra_parse_std_tokens", TRA_ECMDSYNTAX, "ZY")}},
        {"K1=-.5", {at("_tra_parse_asc_cmd", TRA_ECMDSYNTAX, "5")}},
        {"K1=5=6", {at("_tra_parse_asc_cmd", TRA_ECMDSYNTAX, "6")}},
        {"A5X", {at("_str2long", TRA_ECMDSYNTAX, "5X"), at("_tra_parse_std_tokens")}},
        {"K30=\"AB", {at("_tra_parse_std_tokens", TRA_ECMDSYNTAX, "\"AB")}},
    };
    for (const auto &[line, expected] : rows) {
        EXPECT_NE(parse(line), 0) << line;
        std::vector<Frame> frames = trace();
        for (Frame &f : frames)
            f.line = 0;
        EXPECT_EQ(frames, expected) << line;
    }
}

// ISO values, converted on every addressed axis by a converter that records its calls.
struct Iso : Parse {
    struct Converter {
        int calls = 0;
        int fail_on_axis = -1, differ_on_axis = -1; // returns 1, or another value, on this axis
        uint32_t value_class = 0;                   // of the last call
        int32_t code = -1, last_axis = -1;
    } converter;
    VOK_DICT *dict = nullptr;

    static int convert(OXB_BUS *bus, void *drive, double *iso, uint32_t value_class, int32_t code,
                       int32_t axis, int32_t direction, void *context) {
        auto *c = static_cast<Converter *>(context);
        EXPECT_EQ(bus, nullptr);
        EXPECT_EQ(direction, 0);
        ++c->calls;
        c->value_class = value_class;
        c->code = code;
        c->last_axis = axis;
        if (axis == c->fail_on_axis) return 1;
        const double v = *iso * (axis == c->differ_on_axis ? 2000 : 1000);
        auto put = [drive](auto x) { std::memcpy(drive, &x, sizeof x); };
        if (value_class == 0x20)
            put(static_cast<float>(v));
        else if (value_class == 0x40)
            put(static_cast<int64_t>(v));
        else if (value_class == 0x60)
            put(v);
        else
            put(static_cast<int32_t>(v));
        return 0;
    }

    void SetUp() override {
        Parse::SetUp();
        ASSERT_EQ(vok_open(&dict, 32, 0x03128100, 0, 0), 0);
        for (int axis = 0; axis < 4; ++axis)
            tra->axis_dicts[static_cast<std::size_t>(axis)] = dict;
        ASSERT_EQ(tra_oxcom_set_iso_converter(tra, &Iso::convert, &converter), 0);
        _tra_take_settings(tra);
    }
    void TearDown() override {
        tra->axis_dicts.fill(nullptr);
        vok_close(&dict);
        Parse::TearDown();
    }
};

TEST_F(Iso, ConvertsOnEveryAxis) {
    struct Row {
        const char *name, *line;
        int32_t cmd;
        int p;
        uint64_t axes, present;
        uint32_t filter_mode;
        int fail_on_axis, differ_on_axis, rc, calls, token; // token: the converted one
        int32_t type;
        double value;
    } rows[] = {
        {"int register", "K40=1.5", 123, 0, 0x3, 0, 0, -1, -1, 0, 2, 1, 0x00, 1500},
        {"float register", "KF1=2.5", 123, 0, 0x1, 0, 0, -1, -1, 0, 1, 1, 0x20, 2500},
        {"operator", "K40+=0.5", 91, 0, 0x1, 0, 0, -1, -1, 0, 1, 1, 0x00, 500},
        {"present axes narrow", "K40=1.5", 123, 0, 0xF, 0x2, 0, -1, -1, 0, 1, 1, 0, 1500},
        {"no converted axis", "K40=1.5", 123, 0, 0x10, 0, 0, -1, -1, TRA_EISOVALUE, 0, 1, 0, 0},
        {"no ISO register", "K1=1.5", 123, 0, 0x1, 0, 0, -1, -1, TRA_EISOVALUE, 0, 1, 0, 0},
        {"no such register", "K13=1.5", 123, 0, 0x1, 0, 0, -1, -1, TRA_EISOVALUE, 0, 1, 0, 0},
        {"converter fails", "K40=1.5", 123, 0, 0x3, 0, 0, 1, -1, TRA_EISOCONV, 2, 1, 0, 0},
        {"axes differ", "K40=1.5", 123, 0, 0x3, 0, 0, -1, 1, TRA_EISOCONV, 2, 1, 0, 0},
        {"filter exempts", "K40=1.5", 123, 0, 0x3, 0, 3, 1, -1, 0, 2, 1, 0, 1500},
        {"filter exempts, none converts", "K40=1.5", 123, 0, 0x1, 0, 3, 0, -1, TRA_EISOCONV, 1, 1,
         0, 0},
        {"command parameter", "MVE=1,2.5,3D", 160, 1, 0x1, 0, 0, -1, -1, 0, 1, 2, 0x20, 2500},
        {"no ISO parameter", "MVE=1,2,3.5", 160, 1, 0x1, 0, 0, -1, -1, TRA_EISOVALUE, 0, 3, 0, 0},
        {"literal left alone", "K40=15", 123, 0, 0x1, 0, 0, -1, -1, 0, 0, 1, 0, 15},
    };
    for (const Row &r : rows) {
        ASSERT_EQ(parse(r.line), 0) << r.name;
        ctx.axis_mask = r.axes;
        tra->present_axes = r.present;
        tra->download_filter_mode = r.filter_mode;
        converter = Converter{};
        converter.fail_on_axis = r.fail_on_axis;
        converter.differ_on_axis = r.differ_on_axis;
        sup_trace_clear();
        EXPECT_EQ(_tra_parse_floating_numbers(tra, &ctx, r.p, r.cmd), r.rc) << r.name;
        EXPECT_EQ(converter.calls, r.calls) << r.name;
        if (r.rc != 0) {
            ASSERT_EQ(sup_trace_count(), 1) << r.name;
            EXPECT_EQ(trace()[0].function, "_tra_parse_floating_numbers") << r.name;
            EXPECT_EQ(trace()[0].detail, ctx.tokens[r.token].text) << r.name;
            continue;
        }
        const Token &t = ctx.tokens[r.token];
        EXPECT_EQ(t.type, r.type) << r.name;
        if (t.type == 0x20)
            EXPECT_EQ(t.f32(), static_cast<float>(r.value)) << r.name;
        else
            EXPECT_EQ(t.i32(), static_cast<int32_t>(r.value)) << r.name;
    }
    tra->download_filter_mode = 0;
}

TEST_F(Iso, ConversionCodeAndClassComeFromTheDictionary) {
    ASSERT_EQ(parse("MVE=1,2.5,3D"), 0);
    ctx.axis_mask = 1;
    ASSERT_EQ(_tra_parse_floating_numbers(tra, &ctx, 1, 160), 0);
    EXPECT_EQ(converter.code, vok_get_param_format(dict, 160, 1));
    EXPECT_EQ(converter.value_class, vok_get_param_kind(dict, 160, 1) & 0x60);
    ASSERT_EQ(parse("K40=-0.5"), 0);
    ctx.axis_mask = 1ull << 2;
    ASSERT_EQ(_tra_parse_floating_numbers(tra, &ctx, 0, 123), 0);
    EXPECT_EQ(converter.code, vok_get_register_format(dict, 2, 40, 0));
    EXPECT_EQ(converter.last_axis, 2);
    EXPECT_EQ(ctx.tokens[1].i32(), -500);
}

} // namespace
