// Validation of parsed command lines against the ORAX dictionaries of the addressed axes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "traa2r.hpp"
#include "trace_helpers.hpp"

namespace {

using namespace ryn::tra;
using ryn::test::trace;

// Kind words of the ORAX register types used here.
constexpr int32_t X = 1, K = 2, M = 3, W = 12, V = 15, KF = 2 | 32, KL = 2 | 64, KD = 2 | 96,
                  TF = 16 | 32;
constexpr int32_t UNKNOWN_TYPE = -2;
constexpr uint32_t WHOLE = VOK_WHOLE_TYPE;

constexpr uint32_t version(uint32_t major, uint32_t minor_bcd, char letter) {
    return major << 24 | minor_bcd << 16 | (0x80u + static_cast<uint32_t>(letter - 'A')) << 8;
}

// ---- Tokens as the parser leaves them ----

Token named(const char *text, int32_t type) {
    Token t{};
    std::snprintf(t.text, sizeof t.text, "%s", text);
    t.type = type;
    t.list_row = -1;
    t.list_column = -1;
    return t;
}

Token reg(const char *text, int32_t kind, uint32_t index, int row = -1) {
    Token t = named(text, kind);
    t.index = index;
    if (row >= 0) {
        t.row = static_cast<uint32_t>(row);
        t.row_given = 1;
    }
    return t;
}

Token word(const char *text, uint32_t command) {
    Token t = named(text, TAG_NAME);
    t.index = command;
    return t;
}

Token i32(int32_t v) {
    Token t = named(std::to_string(v).c_str(), TAG_INT32);
    t.set(v);
    return t;
}

Token i64(int64_t v) {
    Token t = named(std::to_string(v).c_str(), TAG_INT64);
    t.set(v);
    return t;
}

Token f32(float v) {
    Token t = named(std::to_string(v).c_str(), TAG_FLOAT);
    t.set(v);
    return t;
}

Token f64(double v) {
    Token t = named(std::to_string(v).c_str(), TAG_DOUBLE);
    t.set(v);
    return t;
}

// A quoted text value (an address or a packed string chunk); the value does not matter here.
Token quoted(const char *text) {
    return named(text, TAG_INT32);
}

constexpr float FNAN = std::numeric_limits<float>::quiet_NaN();
constexpr double DNAN = std::numeric_limits<double>::quiet_NaN();

// ---- Axes: a small bus of every kind of dictionary the checks meet ----

constexpr uint64_t ax(int a) {
    return 1ull << a;
}
constexpr int D32 = 0;       // ORX-D32 3.12B, no card
constexpr int D32_IO = 1;    // ORX-D32 3.12B with IOX-8 (C100.., K400..)
constexpr int D34 = 2;       // ORX-D34 3.12B (other current limits)
constexpr int D32_320 = 3;   // ORX-D32 3.20A with ENC-2 (command TUN, K100..)
constexpr int L25 = 4;       // ORX-L25 2.40A (dictionary class 3)
constexpr int D32_AGAIN = 5; // the same dictionary as axis 0
constexpr int EMPTY = 6;     // no dictionary
constexpr int M51 = 63;      // ORX-M51 2.01A (W registers)

struct Check : ::testing::Test {
    static inline VOK_DICT *d32 = nullptr, *d32io = nullptr, *d34 = nullptr, *d320 = nullptr,
                           *l25 = nullptr, *m51 = nullptr;

    static void SetUpTestSuite() {
        ASSERT_EQ(vok_open(&d32, 32, version(3, 0x12, 'B'), 0, 0), 0);
        ASSERT_EQ(vok_open(&d32io, 32, version(3, 0x12, 'B'), 0x21, version(1, 0x02, 'A')), 0);
        ASSERT_EQ(vok_open(&d34, 34, version(3, 0x12, 'B'), 0, 0), 0);
        ASSERT_EQ(vok_open(&d320, 32, version(3, 0x20, 'A'), 0x22, version(2, 0x00, 'A')), 0);
        ASSERT_EQ(vok_open(&l25, 25, version(2, 0x40, 'A'), 0, 0), 0);
        ASSERT_EQ(vok_open(&m51, 51, version(2, 0x01, 'A'), 0, 0), 0);
    }
    static void TearDownTestSuite() {
        for (VOK_DICT **d : {&d32, &d32io, &d34, &d320, &l25, &m51})
            vok_close(d);
    }

    TRA *tra = nullptr;

    void make(uint32_t kind, uint32_t flags) {
        release();
        ASSERT_EQ(_tra_create_base(&tra, 32, 0, flags, kind), 0);
        tra->axis_dicts[D32] = d32;
        tra->axis_dicts[D32_IO] = d32io;
        tra->axis_dicts[D34] = d34;
        tra->axis_dicts[D32_320] = d320;
        tra->axis_dicts[L25] = l25;
        tra->axis_dicts[D32_AGAIN] = d32;
        tra->axis_dicts[M51] = m51;
        sup_trace_clear();
    }
    void release() {
        if (tra == nullptr) return;
        tra->axis_dicts.fill(nullptr);
        EXPECT_EQ(tra_destroy(&tra), 0);
    }
    void SetUp() override { make(KIND_DIRECT_OFFLINE, 0); }
    void TearDown() override { release(); }
};

ParseContext context(const std::vector<Token> &operands, uint64_t axes, bool bracketed = false) {
    ParseContext ctx{};
    ctx.bracketed = bracketed ? 1 : 0;
    ctx.axis_mask = axes;
    ctx.count = static_cast<int32_t>(operands.size());
    for (std::size_t i = 0; i < operands.size(); ++i)
        ctx.tokens[i] = operands[i];
    return ctx;
}

// The functions of the trace's frames, origin first; every frame comes from traa2r and the
// origin carries the code.
std::vector<std::string> frames(int code) {
    std::vector<std::string> out;
    auto t = trace();
    for (std::size_t i = 0; i < t.size(); ++i) {
        EXPECT_EQ(t[i].file, "traa2r") << t[i];
        EXPECT_EQ(t[i].code, i == 0 ? code : 0) << t[i];
        out.push_back(t[i].function);
    }
    return out;
}

using Frames = std::vector<std::string>;
const Frames NONE{};

// One row of a check's table: the operands (p is where the command's arguments start), the
// addressed axes, the command number, the result and the functions of the trace.
struct Row {
    const char *name;
    std::vector<Token> operands;
    int p;
    uint64_t axes;
    int32_t cmd;
    int code;
    Frames trace;
    uint32_t flags = 0;
    uint32_t kind = KIND_DIRECT_OFFLINE;
    bool bracketed = false;
};

using CheckFn = int (*)(TRA *, ParseContext *, int, int32_t);

template <class Fixture>
void run(Fixture &fixture, const std::vector<Row> &rows, CheckFn check) {
    for (const Row &r : rows) {
        fixture.make(r.kind, r.flags);
        ParseContext ctx = context(r.operands, r.axes, r.bracketed);
        const ParseContext before = ctx;
        EXPECT_EQ(check(fixture.tra, &ctx, r.p, r.cmd), r.code) << r.name;
        EXPECT_EQ(frames(r.code), r.trace) << r.name;
        EXPECT_EQ(std::memcmp(&ctx, &before, sizeof ctx), 0) << r.name << ": context changed";
    }
}

// ---- _tra_check_types ----

TEST_F(Check, TypesOfOperands) {
    const Frames fail{"_tra_check_types"};
    const Token k1 = reg("K1", K, 1), v1 = reg("V1", V, 1), kf1 = reg("KF1", KF, 1);
    const Token unknown = reg("Z1", UNKNOWN_TYPE, 1);
    const std::vector<Row> rows = {
        {"+= same class", {k1, i32(5)}, 0, ax(D32), 91, 0, NONE},
        {"+= float into integer", {k1, f32(1.5f)}, 0, ax(D32), 91, TRA_ETYPECONV, fail},
        {"/= register of another class", {k1, kf1}, 0, ax(D32), 94, TRA_ETYPECONV, fail},
        {"-= on a vector", {v1, i32(1)}, 0, ax(D32), 92, TRA_ENOVECTOR, fail},
        {"*= vector value before the class test", {kf1, v1}, 0, ax(D32), 93, TRA_ENOVECTOR, fail},
        {"+= unknown type, other class: -509, never -505",
         {unknown, i32(1)},
         0,
         ax(D32),
         91,
         TRA_ETYPECONV,
         fail},
        {"+= unknown type, same class returns at once",
         {unknown, f64(1.0)},
         0,
         ax(D32),
         91,
         0,
         NONE},
        {"&= is not class-checked", {k1, f32(1.5f)}, 0, ax(D32), 95, 0, NONE},
        {"%= is not class-checked", {v1, i32(1)}, 0, ax(D32), 101, 0, NONE},
        {"= one value of another class converts later", {k1, f64(2.0)}, 0, ax(D32), 123, 0, NONE},
        {"= list of one class",
         {reg("K5", K, 5), i32(1), i32(2), i32(3)},
         0,
         ax(D32),
         125,
         0,
         NONE},
        {"= list with a float",
         {reg("K5", K, 5), i32(1), f32(2.0f)},
         0,
         ax(D32),
         125,
         TRA_ETYPECONV,
         fail},
        {"= list with a vector register",
         {reg("K5", K, 5), i32(1), v1},
         0,
         ax(D32),
         125,
         TRA_ENOVECTOR,
         fail},
        {"= list, class tested before vector",
         {reg("K5", K, 5), reg("TF2", TF, 2)},
         0,
         ax(D32),
         125,
         TRA_ETYPECONV,
         fail},
        {"element assignment of values",
         {v1, i32(1), i32(2)},
         0,
         ax(D32),
         CMD_ELEMENT_ASSIGN,
         0,
         NONE},
        {"element assignment of a register",
         {v1, i32(1), k1},
         0,
         ax(D32),
         CMD_ELEMENT_ASSIGN,
         TRA_EREGADDR,
         fail},
        {"element assignment of a name",
         {v1, word("ON", 0)},
         0,
         ax(D32),
         CMD_ELEMENT_ASSIGN,
         TRA_EREGADDR,
         fail},
        {"element assignment to an unknown type",
         {unknown, i32(1)},
         0,
         ax(D32),
         CMD_ELEMENT_ASSIGN,
         TRA_EBADTYPE,
         fail},
        {"read list", {k1, kf1}, 0, ax(D32), CMD_READ_LIST, 0, NONE},
        {"read of an unknown type", {unknown}, 0, ax(D32), CMD_READ_LIST, TRA_EBADTYPE, fail},
        {"vector read of an unknown type",
         {unknown},
         0,
         ax(D32),
         CMD_VECTOR_READ,
         TRA_EBADTYPE,
         fail},
        {"command arguments are not class-checked",
         {word("MVE", 160), f32(1), i32(1)},
         1,
         ax(D32),
         160,
         0,
         NONE},
        {"bracketed line", {k1, f32(1.5f)}, 0, ax(D32), 91, 0, NONE, 0, KIND_DIRECT_OFFLINE, true},
    };
    run(*this, rows, _tra_check_types);
}

// ---- _tra_check_ip ----

TEST_F(Check, AddressValues) {
    const Frames fail{"_tra_check_ip"};
    const Token ip = reg("K31", K, 31), k1 = reg("K1", K, 1);
    const std::vector<Row> rows = {
        {"address", {ip, quoted("\"1.2.3.4\"")}, 0, ax(D32), 123, 0, NONE},
        {"groups are not range-checked", {ip, quoted("\"999.1.2.3\"")}, 0, ax(D32), 123, 0, NONE},
        {"empty groups pass", {ip, quoted("\"...\"")}, 0, ax(D32), 123, 0, NONE},
        {"three groups", {ip, quoted("\"1.2.3\"")}, 0, ax(D32), 123, TRA_ECMDSYNTAX, fail},
        {"five groups", {ip, quoted("\"1.2.3.4.5\"")}, 0, ax(D32), 123, TRA_ECMDSYNTAX, fail},
        {"a letter last", {ip, quoted("\"1.2.3.A\"")}, 0, ax(D32), 123, TRA_ECMDSYNTAX, fail},
        {"a letter first", {ip, quoted("\"A1.2.3.4\"")}, 0, ax(D32), 123, TRA_ECMDSYNTAX, fail},
        {"empty quotes", {ip, quoted("\"\"")}, 0, ax(D32), 123, TRA_ECMDSYNTAX, fail},
        {"several values", {ip, quoted("\"1.2\""), i32(3)}, 0, ax(D32), 125, TRA_ECMDSYNTAX, fail},
        {"without quotes not checked", {ip, quoted("1.2.3")}, 0, ax(D32), 123, 0, NONE},
        {"subindex written", {reg("K31", K, 31, 0), quoted("\"1.2\"")}, 0, ax(D32), 123, 0, NONE},
        {"not an address register", {k1, quoted("\"1.2\"")}, 0, ax(D32), 123, 0, NONE},
        {"compound assignment", {ip, quoted("\"1.2\"")}, 0, ax(D32), 91, 0, NONE},
        {"no value", {ip}, 0, ax(D32), 123, 0, NONE},
        {"one address axis among others",
         {ip, quoted("\"1.2\"")},
         0,
         ax(EMPTY) | ax(D32_IO) | ax(M51),
         123,
         TRA_ECMDSYNTAX,
         fail},
        {"no addressed axis", {ip, quoted("\"1.2\"")}, 0, 0, 123, 0, NONE},
        {"axis without dictionary", {ip, quoted("\"1.2\"")}, 0, ax(EMPTY), 123, 0, NONE},
        {"bracketed line",
         {ip, quoted("\"1.2\"")},
         0,
         ax(D32),
         123,
         0,
         NONE,
         0,
         KIND_DIRECT_OFFLINE,
         true},
    };
    run(*this, rows, _tra_check_ip);
}

// ---- _tra_expand_string_register ----

TEST_F(Check, StringRegistersSpanTheirElements) {
    struct ExpandRow {
        const char *name;
        std::vector<Token> operands;
        int p;
        uint64_t axes;
        int32_t cmd;
        int count; // operands afterwards
    };
    const Token name = reg("K30", K, 30), category = reg("M85", M, 85);
    std::vector<Token> filler(60, reg("X0", X, 0));
    std::vector<Token> late = filler;
    late.push_back(name);
    const std::vector<ExpandRow> rows = {
        {"read of the first element", {name}, 0, ax(D32), CMD_READ_LIST, 8},
        {"read of a four-element string", {category}, 0, ax(D32), CMD_READ_LIST, 4},
        {"read never beyond the table", late, 60, ax(D32), CMD_READ_LIST, MAX_OPERANDS},
        {"read of an element", {reg("K30", K, 30, 0)}, 0, ax(D32), CMD_READ_LIST, 1},
        {"read of a number register", {reg("K5", K, 5)}, 0, ax(D32), CMD_READ_LIST, 1},
        {"read on an axis without dictionary", {name}, 0, ax(EMPTY), CMD_READ_LIST, 1},
        {"short string padded", {name, quoted("\"ABCD"), quoted("EFG\"")}, 0, ax(D32), 125, 9},
        {"one chunk padded", {name, quoted("\"AB\"")}, 0, ax(D32), 123, 9},
        {"full string kept",
         {name, quoted("\"A"), i32(0), i32(0), i32(0), i32(0), i32(0), i32(0), i32(0)},
         0,
         ax(D32),
         125,
         9},
        {"one element short",
         {name, quoted("\"A"), i32(0), i32(0), i32(0), i32(0), i32(0), i32(0)},
         0,
         ax(D32),
         125,
         9},
        {"value not quoted", {name, i32(1)}, 0, ax(D32), 123, 2},
        {"compound assignment", {name, quoted("\"AB\"")}, 0, ax(D32), 91, 2},
        {"element written", {reg("K30", K, 30, 2), quoted("\"AB\"")}, 0, ax(D32), 123, 2},
        {"vector read", {name}, 0, ax(D32), CMD_VECTOR_READ, 1},
    };
    for (const ExpandRow &r : rows) {
        ParseContext ctx = context(r.operands, r.axes);
        const int before = ctx.count;
        EXPECT_EQ(_tra_expand_string_register(tra, &ctx, r.p, r.cmd), 0) << r.name;
        ASSERT_EQ(ctx.count, r.count) << r.name;
        for (int i = before; i < ctx.count; ++i) {
            const Token &t = ctx.tokens[i];
            if (r.cmd == CMD_READ_LIST) {
                EXPECT_EQ(t.type, ctx.tokens[r.p].type) << r.name << " operand " << i;
                EXPECT_EQ(t.index, ctx.tokens[r.p].index) << r.name << " operand " << i;
                EXPECT_EQ(t.row, static_cast<uint32_t>(i - r.p)) << r.name << " operand " << i;
            } else {
                EXPECT_TRUE(t.is_value()) << r.name << " operand " << i;
                EXPECT_EQ(t.i64(), 0) << r.name << " operand " << i;
            }
        }
    }
    EXPECT_EQ(sup_trace_count(), 0);
}

// ---- _tra_check_everything ----

TEST_F(Check, CommandsAndRegistersAreKnown) {
    const Frames fail{"_tra_check_everything"};
    const Token k1 = reg("K1", K, 1);
    const std::vector<Row> rows = {
        {"command known", {word("CLX", 17)}, 1, ax(D32), 17, 0, NONE},
        {"list assignment on a dictionary that always knows it",
         {reg("K5", K, 5), i32(1), i32(2)},
         0,
         ax(L25),
         125,
         0,
         NONE},
        {"command unknown", {word("??", 9999)}, 1, ax(D32), 9999, TRA_EUNKNOWN, fail},
        {"command of a later version only",
         {word("TUN", 512), f32(1)},
         1,
         ax(D32),
         512,
         TRA_EUNKNOWN,
         fail},
        {"one axis knowing the command is enough",
         {word("TUN", 512), f32(1)},
         1,
         ax(D32) | ax(D32_320),
         512,
         0,
         NONE},
        {"no addressed axis", {word("CLX", 17)}, 1, 0, 17, TRA_EUNKNOWN, fail},
        {"only axes without dictionary", {word("CLX", 17)}, 1, ax(EMPTY), 17, TRA_EUNKNOWN, fail},
        {"read of one axis", {k1}, 0, ax(D32_IO), CMD_READ_LIST, 0, NONE},
        {"read of two axes", {k1}, 0, ax(D32) | ax(D34), CMD_READ_LIST, TRA_ECMDSYNTAX, fail},
        {"vector read of two axes",
         {reg("V1", V, 1)},
         0,
         ax(D32) | ax(D34),
         CMD_VECTOR_READ,
         TRA_ECMDSYNTAX,
         fail},
        {"no check: unknown command passes",
         {word("??", 9999)},
         1,
         ax(D32),
         9999,
         0,
         NONE,
         TRA_FNO_CHECK},
        {"no check: read of two axes still refused",
         {k1},
         0,
         ax(D32) | ax(D34),
         CMD_READ_LIST,
         TRA_ECMDSYNTAX,
         fail,
         TRA_FNO_CHECK},
        {"register missing", {reg("K13", K, 13), i32(1)}, 0, ax(D32), 123, TRA_EUNKNOWN, fail},
        {"register missing in a read",
         {k1, reg("K13", K, 13)},
         0,
         ax(D32),
         CMD_READ_LIST,
         TRA_EUNKNOWN,
         fail},
        {"element missing", {reg("K5", K, 5, 3), i32(1)}, 0, ax(D32), 123, TRA_EUNKNOWN, fail},
        {"card register without the card",
         {reg("K400", K, 400), i32(1)},
         0,
         ax(D32),
         123,
         TRA_EUNKNOWN,
         fail},
        {"card register on one of two axes",
         {reg("K400", K, 400), i32(1)},
         0,
         ax(D32) | ax(D32_IO),
         123,
         0,
         NONE},
        {"register value missing", {k1, reg("K13", K, 13)}, 0, ax(D32), 91, TRA_EUNKNOWN, fail},
        {"register as command argument", {word("SAV", 48), k1}, 1, ax(D32), 48, 0, NONE},
        {"register beyond the command's parameters",
         {word("CLX", 17), k1},
         1,
         ax(D32),
         17,
         TRA_ETOOMANYPARAMS,
         fail},
        {"whole type is not looked up", {reg("KY", K, WHOLE), i32(0)}, 0, ax(D32), 123, 0, NONE},
        {"controller register on the controller",
         {reg("W10", W, 10), i32(5)},
         0,
         ax(M51),
         123,
         0,
         NONE},
        {"controller register on a drive",
         {reg("W10", W, 10), i32(5)},
         0,
         ax(D32),
         123,
         TRA_EUNKNOWN,
         fail},
        {"no check: missing register passes",
         {reg("K13", K, 13), i32(1)},
         0,
         ax(D32),
         123,
         0,
         NONE,
         TRA_FNO_CHECK},
        {"bracketed: nothing is checked",
         {word("??", 9999), reg("K13", K, 13)},
         1,
         ax(D32) | ax(D34),
         9999,
         0,
         NONE,
         0,
         KIND_DIRECT_OFFLINE,
         true},
    };
    run(*this, rows, _tra_check_everything);
}

TEST_F(Check, RegisterTranslatorOnlyAssignsValues) {
    const Frames fail{"_tra_check_everything"};
    const Token k1 = reg("K1", K, 1);
    std::vector<Row> rows;
    for (uint32_t kind : {KIND_REGISTER_OFFLINE, KIND_REGISTER_BUS}) {
        const std::vector<Row> some = {
            {"assignment of a value", {k1, i32(5)}, 0, ax(D32), 123, 0, NONE, 0, kind},
            {"assignment of a list",
             {reg("K5", K, 5), i32(1), i32(2)},
             0,
             ax(D32),
             125,
             0,
             NONE,
             0,
             kind},
            {"read", {k1}, 0, ax(D32), CMD_READ_LIST, 0, NONE, 0, kind},
            {"drive command",
             {word("SAV", 48), i32(0)},
             1,
             ax(D32),
             48,
             TRA_ENOTALLOWED,
             fail,
             0,
             kind},
            {"compound assignment", {k1, i32(1)}, 0, ax(D32), 91, TRA_ENOTALLOWED, fail, 0, kind},
            {"assignment of a register",
             {k1, reg("K2", K, 2)},
             0,
             ax(D32),
             123,
             TRA_ENOTALLOWED,
             fail,
             0,
             kind},
            {"vector read",
             {reg("V1", V, 1)},
             0,
             ax(D32),
             CMD_VECTOR_READ,
             TRA_ENOTALLOWED,
             fail,
             0,
             kind},
            {"no check: drive command still refused",
             {word("??", 9999)},
             1,
             ax(D32),
             9999,
             TRA_ENOTALLOWED,
             fail,
             TRA_FNO_CHECK,
             kind},
            {"unknown command is -540 first",
             {word("??", 9999)},
             1,
             ax(D32),
             9999,
             TRA_EUNKNOWN,
             fail,
             0,
             kind},
        };
        rows.insert(rows.end(), some.begin(), some.end());
    }
    run(*this, rows, _tra_check_everything);
}

TEST_F(Check, ValuesInRangeAndEnumeration) {
    const Frames fail{"_tra_check_everything"};
    const Frames reg_enum{"_tra_check_reg_enum", "_tra_check_everything"};
    const Frames reg_enum_group{"_tra_check_reg_enum", "_tra_check_reg_enum",
                                "_tra_check_everything"};
    const Frames cmd_enum{"_tra_check_cmd_enum", "_tra_check_everything"};
    const Token k1 = reg("K1", K, 1), k5 = reg("K5", K, 5), k12 = reg("K12", K, 12),
                k20 = reg("K20", K, 20);
    const Token sav = word("SAV", 48), pwr = word("PWR", 124), ind = word("IND", 300),
                dbg = word("DBG", 14340), mve = word("MVE", 160);
    const std::vector<Row> rows = {
        {"upper bound", {k1, i32(1000000)}, 0, ax(D32), 123, 0, NONE},
        {"above the maximum", {k1, i32(1000001)}, 0, ax(D32), 123, TRA_ERANGE, fail},
        {"below the minimum", {k1, i32(-1)}, 0, ax(D32), 123, TRA_ERANGE, fail},
        {"no range", {reg("K40", K, 40), i32(-2000000000)}, 0, ax(D32), 123, 0, NONE},
        {"float in range", {reg("KF1", KF, 1), f32(50000.0f)}, 0, ax(D32), 123, 0, NONE},
        {"float above", {reg("KF1", KF, 1), f32(50000.5f)}, 0, ax(D32), 123, TRA_ERANGE, fail},
        {"float below", {reg("KF1", KF, 1), f32(-0.5f)}, 0, ax(D32), 123, TRA_ERANGE, fail},
        {"float NaN passes", {reg("KF1", KF, 1), f32(FNAN)}, 0, ax(D32), 123, 0, NONE},
        {"double above", {reg("KD1", KD, 1), f64(2e9)}, 0, ax(D32), 123, TRA_ERANGE, fail},
        {"double NaN passes", {reg("KD1", KD, 1), f64(DNAN)}, 0, ax(D32), 123, 0, NONE},
        {"64-bit at the minimum",
         {reg("KL1", KL, 1), i64(-1000000000000)},
         0,
         ax(D32),
         123,
         0,
         NONE},
        {"64-bit above",
         {reg("KL1", KL, 1), i64(1000000000001)},
         0,
         ax(D32),
         123,
         TRA_ERANGE,
         fail},
        {"range of one of two drives is enough",
         {reg("K70", K, 70), i32(35000)},
         0,
         ax(D32) | ax(D34),
         123,
         0,
         NONE},
        {"range of none of them",
         {reg("K70", K, 70), i32(45000)},
         0,
         ax(D32) | ax(D34),
         123,
         TRA_ERANGE,
         fail},
        {"list within", {k5, i32(-1000), i32(0), i32(1000)}, 0, ax(D32), 125, 0, NONE},
        {"list, third element above",
         {k5, i32(1), i32(2), i32(1001)},
         0,
         ax(D32),
         125,
         TRA_ERANGE,
         fail},
        {"list from a written element",
         {reg("K5", K, 5, 1), i32(1), i32(-1001)},
         0,
         ax(D32),
         125,
         TRA_ERANGE,
         fail},
        {"enumeration entry", {k12, i32(3)}, 0, ax(D32), 123, 0, NONE},
        {"not an enumeration entry", {k12, i32(4)}, 0, ax(D32), 123, TRA_EBADENUM, reg_enum},
        {"bit groups", {k20, i32(0x23)}, 0, ax(D32), 123, 0, NONE},
        {"bit group value not listed",
         {k20, i32(0x05)},
         0,
         ax(D32),
         123,
         TRA_EBADENUM,
         reg_enum_group},
        {"second bit group value not listed",
         {k20, i32(0x30)},
         0,
         ax(D32),
         123,
         TRA_EBADENUM,
         reg_enum_group},
        {"bits outside every group", {k20, i32(0x100)}, 0, ax(D32), 123, TRA_EBADENUM, reg_enum},
        {"parameter enumeration", {sav, i32(3)}, 1, ax(D32), 48, 0, NONE},
        {"parameter not in enumeration", {sav, i32(4)}, 1, ax(D32), 48, TRA_EBADENUM, cmd_enum},
        {"on/off", {pwr, i32(2)}, 1, ax(D32), 124, TRA_EBADENUM, cmd_enum},
        {"parameter upper bound", {ind, i32(35)}, 1, ax(D32), 300, 0, NONE},
        {"parameter above", {ind, i32(36)}, 1, ax(D32), 300, TRA_ERANGE, fail},
        {"second parameter without range", {dbg, i32(5), i32(-1)}, 1, ax(D32), 14340, 0, NONE},
        {"first parameter above", {dbg, i32(6), i32(0)}, 1, ax(D32), 14340, TRA_ERANGE, fail},
        {"one parameter too many",
         {dbg, i32(1), i32(2), i32(3)},
         1,
         ax(D32),
         14340,
         TRA_ETOOMANYPARAMS,
         fail},
        {"parameter for a command without any",
         {word("CLX", 17), i32(1)},
         1,
         ax(D32),
         17,
         TRA_ETOOMANYPARAMS,
         fail},
        {"mixed parameter kinds",
         {mve, i64(5000000000), f32(FNAN), f64(1.0)},
         1,
         ax(D32),
         160,
         0,
         NONE},
        {"controller register range",
         {reg("W10", W, 10), i32(0)},
         0,
         ax(M51),
         123,
         TRA_ERANGE,
         fail},
        {"value read in the register's view",
         {reg("KF1", KF, 1), i32(1)},
         0,
         ax(D32),
         123,
         0,
         NONE},
        {"no check: out of range passes", {k1, i32(-1)}, 0, ax(D32), 123, 0, NONE, TRA_FNO_CHECK},
        {"bracketed: out of range passes",
         {k1, i32(-1)},
         0,
         ax(D32),
         123,
         0,
         NONE,
         0,
         KIND_DIRECT_OFFLINE,
         true},
    };
    run(*this, rows, _tra_check_everything);
}

TEST_F(Check, ReadOnlyRegisters) {
    const Frames fail{"_tra_check_everything"};
    const Token k50 = reg("K50", K, 50);
    const std::vector<Row> rows = {
        {"read-only register", {k50, i32(1)}, 0, ax(D32), 123, TRA_EREADONLY, fail},
        {"compound assignment to it", {k50, i32(1)}, 0, ax(D32), 91, TRA_EREADONLY, fail},
        {"shift of it", {k50, i32(1)}, 0, ax(D32), 173, TRA_EREADONLY, fail},
        {"monitoring register", {reg("M7", M, 7), i32(1)}, 0, ax(D32), 123, TRA_EREADONLY, fail},
        {"read of it", {k50}, 0, ax(D32), CMD_READ_LIST, 0, NONE},
        {"writable element", {reg("K60", K, 60, 1), i32(1)}, 0, ax(D32), 123, 0, NONE},
        {"read-only element", {reg("K60", K, 60, 2), i32(1)}, 0, ax(D32), 123, TRA_EREADONLY, fail},
        {"list running into read-only elements",
         {reg("K60", K, 60, 1), i32(1), i32(2)},
         0,
         ax(D32),
         125,
         TRA_EREADONLY,
         fail},
        {"whole writable type", {reg("KY", K, WHOLE), i32(0)}, 0, ax(D32), 123, 0, NONE},
        {"whole read-only type",
         {reg("MY", M, WHOLE), i32(0)},
         0,
         ax(D32),
         123,
         TRA_EREADONLY,
         fail},
        {"no check", {k50, i32(1)}, 0, ax(D32), 123, 0, NONE, TRA_FNO_CHECK},
        {"bracketed", {k50, i32(1)}, 0, ax(D32), 123, 0, NONE, 0, KIND_DIRECT_OFFLINE, true},
    };
    run(*this, rows, _tra_check_everything);
}

// ---- Enumeration checkers called directly ----

TEST_F(Check, EnumerationCheckersWalkTheTree) {
    const int mode = vok_get_reg_enum(d32, K, 12, 0);
    const int io = vok_get_reg_enum(d32, K, 20, 0);
    const int save = vok_get_param_enum(d32, 48, 0);
    ASSERT_NE(mode, 0);
    ASSERT_NE(io, 0);
    ASSERT_NE(save, 0);
    struct EnumRow {
        const char *name;
        int enumeration;
        int32_t value;
        int parent;
        bool command;
        uint32_t index;
        int code;
    };
    const EnumRow rows[] = {
        {"value entry", mode, 2, -1, false, 12, 0},
        {"no entry", mode, 7, -1, false, 12, TRA_EBADENUM},
        {"groups combined", io, 0x21, -1, false, 20, 0},
        {"rest outside the groups", io, 0x121, -1, false, 20, TRA_EBADENUM},
        {"command parameter", save, 1, -1, true, 0, 0},
        {"command parameter not listed", save, -1, -1, true, 0, TRA_EBADENUM},
    };
    for (const EnumRow &r : rows) {
        unsigned char value[8] = {};
        std::memcpy(value, &r.value, 4);
        const int count = vok_get_enum_count(d32, r.enumeration);
        const int rc =
            r.command
                ? _tra_check_cmd_enum(d32, value, r.enumeration, count, r.parent, 48, 0)
                : _tra_check_reg_enum(d32, value, r.enumeration, count, r.parent, K, r.index, 0);
        EXPECT_EQ(rc, r.code) << r.name;
    }
    // Without entries only zero is a member; a negative entry count means none.
    const unsigned char zero[8] = {}, five[8] = {5};
    EXPECT_EQ(_tra_check_reg_enum(d32, zero, mode, -1, -1, K, 12, 0), 0);
    EXPECT_EQ(_tra_check_reg_enum(d32, five, mode, 0, -1, K, 12, 0), TRA_EBADENUM);
}

// ---- Enumerations of every value class, on a family made for them ----

struct CheckFamily : ::testing::Test {
    static inline VOK_DICT *a = nullptr, *b = nullptr;

    static void SetUpTestSuite() {
        ASSERT_EQ(vok_load_family_file(RYN_TEST_DATA "/check-enums.json"), 0);
        ASSERT_EQ(vok_open(&a, 1, version(1, 0x00, 'A'), 0, 0), 0);
        ASSERT_EQ(vok_open(&b, 2, version(1, 0x00, 'A'), 0, 0), 0);
    }
    static void TearDownTestSuite() {
        vok_close(&a);
        vok_close(&b);
        EXPECT_EQ(vok_load_default_family(), 0);
    }

    TRA *tra = nullptr;

    // Axes 0 and 2 have the first drive, axis 1 the second.
    void make(uint32_t kind, uint32_t flags) {
        release();
        ASSERT_EQ(_tra_create_base(&tra, 1, 0, flags, kind), 0);
        tra->axis_dicts[0] = a;
        tra->axis_dicts[1] = b;
        tra->axis_dicts[2] = a;
        sup_trace_clear();
    }
    void release() {
        if (tra == nullptr) return;
        tra->axis_dicts.fill(nullptr);
        EXPECT_EQ(tra_destroy(&tra), 0);
    }
    void TearDown() override { release(); }
};

TEST_F(CheckFamily, EnumerationsOfEveryValueClass) {
    const Frames top{"_tra_check_reg_enum", "_tra_check_everything"};
    const Frames group{"_tra_check_reg_enum", "_tra_check_reg_enum", "_tra_check_everything"};
    const Frames command{"_tra_check_cmd_enum", "_tra_check_everything"};
    const Frames range{"_tra_check_everything"};
    const Token kl1 = reg("KL1", KL, 1), kd1 = reg("KD1", KD, 1), kf1 = reg("KF1", KF, 1),
                k1 = reg("K1", K, 1), k2 = reg("K2", K, 2);
    const uint64_t first = ax(0), second = ax(1), both = ax(0) | ax(1), reverse = ax(1) | ax(2);
    const std::vector<Row> rows = {
        {"64-bit group value", {kl1, i64(0x100000000)}, 0, first, 123, 0, NONE},
        {"64-bit group value not listed",
         {kl1, i64(0x300000000)},
         0,
         first,
         123,
         TRA_EBADENUM,
         group},
        {"64-bit rest outside the group",
         {kl1, i64(0x200000001)},
         0,
         first,
         123,
         TRA_EBADENUM,
         top},
        {"double entry", {kd1, f64(1.5)}, 0, first, 123, 0, NONE},
        {"double not an entry", {kd1, f64(2.0)}, 0, first, 123, TRA_EBADENUM, top},
        {"double NaN matches no entry", {kd1, f64(DNAN)}, 0, first, 123, TRA_EBADENUM, top},
        {"float entry", {kf1, f32(0.5f)}, 0, first, 123, 0, NONE},
        {"float not an entry", {kf1, f32(0.75f)}, 0, first, 123, TRA_EBADENUM, top},
        {"nested groups leave the outer rest alone", {k1, i32(0x31)}, 0, first, 123, 0, NONE},
        {"nested group value not listed",
         {k1, i32(0x13)},
         0,
         first,
         123,
         TRA_EBADENUM,
         {"_tra_check_reg_enum", "_tra_check_reg_enum", "_tra_check_reg_enum",
          "_tra_check_everything"}},
        {"bits outside the outer group", {k1, i32(0x101)}, 0, first, 123, TRA_EBADENUM, top},
        {"entry for this register", {reg("K3", K, 3), i32(1)}, 0, first, 123, 0, NONE},
        {"entry for another register", {reg("K3", K, 3), i32(2)}, 0, first, 123, TRA_EBADENUM, top},
        {"entry for the other register", {reg("K4", K, 4), i32(2)}, 0, first, 123, 0, NONE},
        {"entry for every user", {reg("K4", K, 4), i32(0)}, 0, first, 123, 0, NONE},
        {"entry for this parameter", {word("SEL", 48), i32(1)}, 1, first, 48, 0, NONE},
        {"entry for registers only",
         {word("SEL", 48), i32(2)},
         1,
         first,
         48,
         TRA_EBADENUM,
         command},
        {"64-bit parameter groups", {word("WID", 49), i64(0x200000000)}, 1, first, 49, 0, NONE},
        {"64-bit parameter rest",
         {word("WID", 49), i64(0x200000004)},
         1,
         first,
         49,
         TRA_EBADENUM,
         command},
        {"the second drive's enumeration accepts", {k2, i32(50)}, 0, both, 123, 0, NONE},
        {"the second drive alone refuses", {k2, i32(1)}, 0, second, 123, TRA_EBADENUM, top},
        {"enumeration of the last drive fails", {k2, i32(70)}, 0, reverse, 123, TRA_EBADENUM, top},
        {"range of the last drive fails", {k2, i32(70)}, 0, both, 123, TRA_ERANGE, range},
        {"both enumerations fail", {k2, i32(55)}, 0, both, 123, TRA_EBADENUM, top},
    };
    run(*this, rows, _tra_check_everything);
}

// ---- Arguments ----

TEST_F(Check, BadArgumentsAreRefused) {
    ParseContext ctx = context({reg("K1", K, 1), i32(1)}, ax(D32));
    struct ArgRow {
        const char *name;
        CheckFn check;
        const char *function;
    } rows[] = {
        {"types", _tra_check_types, "_tra_check_types"},
        {"ip", _tra_check_ip, "_tra_check_ip"},
        {"everything", _tra_check_everything, "_tra_check_everything"},
        {"expand", _tra_expand_string_register, "_tra_expand_string_register"},
    };
    for (const ArgRow &r : rows) {
        EXPECT_EQ(r.check(nullptr, &ctx, 0, 123), TRA_EBADPARAM) << r.name;
        EXPECT_EQ(frames(TRA_EBADPARAM), Frames{r.function}) << r.name;
        EXPECT_EQ(r.check(tra, nullptr, 0, 123), TRA_EBADPARAM) << r.name;
        EXPECT_EQ(r.check(tra, &ctx, 3, 123), TRA_EBADPARAM) << r.name;
        EXPECT_EQ(r.check(tra, &ctx, -1, 123), TRA_EBADPARAM) << r.name;
        ParseContext bad = ctx;
        bad.count = MAX_OPERANDS + 1;
        EXPECT_EQ(r.check(tra, &bad, 0, 123), TRA_EBADPARAM) << r.name;
    }
    EXPECT_EQ(_tra_check_reg_enum(d32, nullptr, 1, 1, -1, K, 12, 0), TRA_EBADPARAM);
    EXPECT_EQ(_tra_check_cmd_enum(d32, nullptr, 1, 1, -1, 48, 0), TRA_EBADPARAM);
}

} // namespace
