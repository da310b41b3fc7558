// Validation of parsed command lines against the ORAX dictionaries of the addressed axes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <set>
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
constexpr int32_t READ = CMD_READ_LIST, ELEM = CMD_ELEMENT_ASSIGN;
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

template <class T, int32_t tag>
Token value(T v) {
    Token t = named(std::to_string(v).c_str(), tag);
    t.set(v);
    return t;
}
constexpr auto i32 = value<int32_t, TAG_INT32>;
constexpr auto i64 = value<int64_t, TAG_INT64>;
constexpr auto f32 = value<float, TAG_FLOAT>;
constexpr auto f64 = value<double, TAG_DOUBLE>;

// A quoted text value (an address or a packed string chunk); the value does not matter here.
const auto quoted = [](const char *text) { return named(text, TAG_INT32); };

// The operands of a row, as a list that the tables can pack onto few lines.
template <class... T>
std::vector<Token> ops(const T &...tokens) {
    return {tokens...};
}

constexpr float FNAN = std::numeric_limits<float>::quiet_NaN();
constexpr double DNAN = std::numeric_limits<double>::quiet_NaN();

constexpr auto ax = [](int a) { return 1ull << a; };

// A translator of the given kind and flags whose axes carry the dictionaries `install` sets.
struct CheckBase : ::testing::Test {
    TRA *tra = nullptr;

    virtual uint32_t drive() const = 0;
    virtual void install() = 0;

    void make(uint32_t kind, uint32_t flags) {
        release();
        ASSERT_EQ(_tra_create_base(&tra, drive(), 0, flags, kind), 0);
        _tra_take_settings(tra); // the checks run as a call with these flags
        install();
        sup_trace_clear();
    }
    void release() {
        if (tra == nullptr) return;
        tra->axis_dicts.fill(nullptr);
        EXPECT_EQ(tra_destroy(&tra), 0);
    }
    void TearDown() override { release(); }
};

// ---- Axes: a small bus of every kind of dictionary the checks meet ----

constexpr int D32 = 0;       // ORX-D32 3.12B, no card
constexpr int D32_IO = 1;    // ORX-D32 3.12B with IOX-8 (C100.., K400..)
constexpr int D34 = 2;       // ORX-D34 3.12B (other current limits)
constexpr int D32_320 = 3;   // ORX-D32 3.20A with ENC-2 (command TUN, K100..)
constexpr int L25 = 4;       // ORX-L25 2.40A (dictionary class 3)
constexpr int D32_AGAIN = 5; // the same dictionary as axis 0
constexpr int EMPTY = 6;     // no dictionary
constexpr int M51 = 63;      // ORX-M51 2.01A (W registers)

struct Check : CheckBase {
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

    uint32_t drive() const override { return 32; }
    void install() override {
        tra->axis_dicts[D32] = d32;
        tra->axis_dicts[D32_IO] = d32io;
        tra->axis_dicts[D34] = d34;
        tra->axis_dicts[D32_320] = d320;
        tra->axis_dicts[L25] = l25;
        tra->axis_dicts[D32_AGAIN] = d32;
        tra->axis_dicts[M51] = m51;
    }
    void SetUp() override { make(KIND_DIRECT_OFFLINE, 0); }
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

// One row of a check's table: the command number, the operands (the command's arguments start
// after a leading command word), the result, the addressed axes, the translator's flags, whether
// the line was bracketed and, for a failure, the functions of the trace when they are not the
// table's usual ones.
struct Row {
    const char *name;
    int32_t cmd;
    std::vector<Token> operands;
    int code = 0;
    uint64_t axes = ax(D32);
    uint32_t flags = 0;
    bool bracketed = false;
    Frames trace = {};
};

using CheckFn = int (*)(TRA *, ParseContext *, int, int32_t);

void run(CheckBase &fixture, const std::vector<Row> &rows, CheckFn check, const Frames &fail,
         uint32_t kind = KIND_DIRECT_OFFLINE) {
    for (const Row &r : rows) {
        fixture.make(kind, r.flags);
        ParseContext ctx = context(r.operands, r.axes, r.bracketed);
        const ParseContext before = ctx;
        const int p = !r.operands.empty() && r.operands[0].type == TAG_NAME ? 1 : 0;
        EXPECT_EQ(check(fixture.tra, &ctx, p, r.cmd), r.code) << r.name;
        EXPECT_EQ(frames(r.code), r.code == 0       ? Frames{}
                                  : r.trace.empty() ? fail
                                                    : r.trace)
            << r.name;
        EXPECT_EQ(std::memcmp(&ctx, &before, sizeof ctx), 0) << r.name << ": context changed";
    }
}

// ---- _tra_check_types ----

TEST_F(Check, TypesOfOperands) {
    const Token k1 = reg("K1", K, 1), v1 = reg("V1", V, 1), kf1 = reg("KF1", KF, 1),
                k5 = reg("K5", K, 5), unknown = reg("Z1", UNKNOWN_TYPE, 1);
    const std::vector<Row> rows = {
        {"+= same class", 91, ops(k1, i32(5))},
        {"+= float into integer", 91, ops(k1, f32(1.5f)), TRA_ETYPECONV},
        {"/= register of another class", 94, ops(k1, kf1), TRA_ETYPECONV},
        {"+= without a value", 91, ops(k1), TRA_ECMDSYNTAX},
        {"-= on a vector", 92, ops(v1, i32(1)), TRA_ENOVECTOR},
        {"*= vector value before the class test", 93, ops(kf1, v1), TRA_ENOVECTOR},
        {"+= unknown type, other class: -509, never -505", 91, ops(unknown, i32(1)), TRA_ETYPECONV},
        {"+= unknown type, same class returns at once", 91, ops(unknown, f64(1.0))},
        {"&= is not class-checked", 95, ops(k1, f32(1.5f))},
        {"= one value of another class converts later", 123, ops(k1, f64(2.0))},
        {"= list of one class", 125, ops(k5, i32(1), i32(2), i32(3))},
        {"= list with a float", 125, ops(k5, i32(1), f32(2.0f)), TRA_ETYPECONV},
        {"= list with a vector register", 125, ops(k5, i32(1), v1), TRA_ENOVECTOR},
        {"= list, class tested before vector", 125, ops(k5, reg("TF2", TF, 2)), TRA_ETYPECONV},
        {"element assignment of values", ELEM, ops(v1, i32(1), i32(2))},
        {"element assignment of a register", ELEM, ops(v1, i32(1), k1), TRA_EREGADDR},
        {"element assignment to an unknown type", ELEM, ops(unknown, i32(1)), TRA_EBADTYPE},
        {"read list", READ, ops(k1, kf1)},
        {"read of an unknown type", READ, ops(unknown), TRA_EBADTYPE},
        {"vector read of an unknown type", CMD_VECTOR_READ, ops(unknown), TRA_EBADTYPE},
        {"command arguments are not class-checked", 160, ops(word("MVE", 160), f32(1), i32(1))},
        {"bracketed line", 91, ops(k1, f32(1.5f)), 0, ax(D32), 0, true},
    };
    run(*this, rows, _tra_check_types, {"_tra_check_types"});
}

// ---- _tra_check_ip ----

TEST_F(Check, AddressValues) {
    const Token ip = reg("K31", K, 31), address = quoted("\"1.2\"");
    const uint64_t mixed = ax(EMPTY) | ax(D32_IO) | ax(M51);
    const std::vector<Row> rows = {
        {"address", 123, ops(ip, quoted("\"1.2.3.4\""))},
        {"empty groups pass", 123, ops(ip, quoted("\"...\""))},
        {"three groups", 123, ops(ip, quoted("\"1.2.3\"")), TRA_ECMDSYNTAX},
        {"a letter", 123, ops(ip, quoted("\"1.2.3.A\"")), TRA_ECMDSYNTAX},
        {"empty quotes", 123, ops(ip, quoted("\"\"")), TRA_ECMDSYNTAX},
        {"several values", 125, ops(ip, address, i32(3)), TRA_ECMDSYNTAX},
        {"without quotes not checked", 123, ops(ip, quoted("1.2.3"))},
        {"subindex written", 123, ops(reg("K31", K, 31, 0), address)},
        {"not an address register", 123, ops(reg("K1", K, 1), address)},
        {"compound assignment", 91, ops(ip, address)},
        {"no value", 123, ops(ip)},
        {"one address axis among others", 123, ops(ip, address), TRA_ECMDSYNTAX, mixed},
        {"no addressed axis", 123, ops(ip, address), 0, 0},
        {"axis without dictionary", 123, ops(ip, address), 0, ax(EMPTY)},
        {"bracketed line", 123, ops(ip, address), 0, ax(D32), 0, true},
    };
    run(*this, rows, _tra_check_ip, {"_tra_check_ip"});
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
    // K30 given a first chunk and then the given number of further values.
    auto chunks = [&](std::size_t values) {
        std::vector<Token> operands{name, quoted("\"A")};
        operands.insert(operands.end(), values, i32(0));
        return operands;
    };
    std::vector<Token> late(60, reg("X0", X, 0));
    late.push_back(name);
    const std::vector<ExpandRow> rows = {
        {"read of the first element", {name}, 0, ax(D32), READ, 8},
        {"read of a four-element string", {category}, 0, ax(D32), READ, 4},
        {"read never beyond the table", late, 60, ax(D32), READ, MAX_OPERANDS},
        {"read of an element", {reg("K30", K, 30, 0)}, 0, ax(D32), READ, 1},
        {"read of a number register", {reg("K5", K, 5)}, 0, ax(D32), READ, 1},
        {"read on an axis without dictionary", {name}, 0, ax(EMPTY), READ, 1},
        {"short string padded", {name, quoted("\"ABCD"), quoted("EFG\"")}, 0, ax(D32), 125, 9},
        {"one chunk padded", {name, quoted("\"AB\"")}, 0, ax(D32), 123, 9},
        {"full string kept", chunks(7), 0, ax(D32), 125, 9},
        {"one element short", chunks(6), 0, ax(D32), 125, 9},
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
    const Token k1 = reg("K1", K, 1), k13 = reg("K13", K, 13), k400 = reg("K400", K, 400),
                w10 = reg("W10", W, 10), tun = word("TUN", 512), clx = word("CLX", 17),
                none = word("??", 9999);
    const uint64_t two = ax(D32) | ax(D34);
    const std::vector<Row> rows = {
        {"command known", 17, ops(clx)},
        {"list assignment on a class 3 dictionary", 125, ops(reg("K5", K, 5), i32(1), i32(2)), 0,
         ax(L25)},
        {"command unknown", 9999, ops(none), TRA_EUNKNOWN},
        {"command of a later version only", 512, ops(tun, f32(1)), TRA_EUNKNOWN},
        {"one axis knowing the command is enough", 512, ops(tun, f32(1)), 0, ax(D32) | ax(D32_320)},
        {"no addressed axis", 17, ops(clx), TRA_EUNKNOWN, 0},
        {"only axes without dictionary", 17, ops(clx), TRA_EUNKNOWN, ax(EMPTY)},
        {"read of one axis", READ, ops(k1), 0, ax(D32_IO)},
        {"read of two axes", READ, ops(k1), TRA_ECMDSYNTAX, two},
        {"vector read of two axes", CMD_VECTOR_READ, ops(reg("V1", V, 1)), TRA_ECMDSYNTAX, two},
        {"no check: unknown command passes", 9999, ops(none), 0, ax(D32), TRA_FNO_CHECK},
        {"no check: two-axis read refused", READ, ops(k1), TRA_ECMDSYNTAX, two, TRA_FNO_CHECK},
        {"register missing", 123, ops(k13, i32(1)), TRA_EUNKNOWN},
        {"register missing in a read", READ, ops(k1, k13), TRA_EUNKNOWN},
        {"element missing", 123, ops(reg("K5", K, 5, 3), i32(1)), TRA_EUNKNOWN},
        {"card register without the card", 123, ops(k400, i32(1)), TRA_EUNKNOWN},
        {"card register on one of two axes", 123, ops(k400, i32(1)), 0, ax(D32) | ax(D32_IO)},
        {"register value missing", 91, ops(k1, k13), TRA_EUNKNOWN},
        {"register as command argument", 48, ops(word("SAV", 48), k1)},
        {"register beyond the command's parameters", 17, ops(clx, k1), TRA_ETOOMANYPARAMS},
        {"whole type is not looked up", 123, ops(reg("KY", K, WHOLE), i32(0))},
        {"controller register on the controller", 123, ops(w10, i32(5)), 0, ax(M51)},
        {"controller register on a drive", 123, ops(w10, i32(5)), TRA_EUNKNOWN},
        {"no check: missing register passes", 123, ops(k13, i32(1)), 0, ax(D32), TRA_FNO_CHECK},
        {"bracketed: nothing is checked", 9999, ops(none, k13), 0, two, 0, true},
    };
    run(*this, rows, _tra_check_everything, {"_tra_check_everything"});
}

TEST_F(Check, RegisterTranslatorOnlyAssignsValues) {
    const Token k1 = reg("K1", K, 1), none = word("??", 9999);
    const std::vector<Row> rows = {
        {"assignment of a value", 123, ops(k1, i32(5))},
        {"assignment of a list", 125, ops(reg("K5", K, 5), i32(1), i32(2))},
        {"read", READ, ops(k1)},
        {"drive command", 48, ops(word("SAV", 48), i32(0)), TRA_ENOTALLOWED},
        {"compound assignment", 91, ops(k1, i32(1)), TRA_ENOTALLOWED},
        {"assignment of a register", 123, ops(k1, reg("K2", K, 2)), TRA_ENOTALLOWED},
        {"vector read", CMD_VECTOR_READ, ops(reg("V1", V, 1)), TRA_ENOTALLOWED},
        {"no check: command still refused", 9999, ops(none), TRA_ENOTALLOWED, ax(D32),
         TRA_FNO_CHECK},
        {"unknown command is -540 first", 9999, ops(none), TRA_EUNKNOWN},
    };
    for (uint32_t kind : {KIND_REGISTER_OFFLINE, KIND_REGISTER_BUS}) {
        SCOPED_TRACE(kind);
        run(*this, rows, _tra_check_everything, {"_tra_check_everything"}, kind);
    }
}

TEST_F(Check, ValuesInRangeAndEnumeration) {
    const Frames reg_enum{"_tra_check_reg_enum", "_tra_check_everything"};
    const Frames cmd_enum{"_tra_check_cmd_enum", "_tra_check_everything"};
    const Frames group{"_tra_check_reg_enum", "_tra_check_reg_enum", "_tra_check_everything"};
    const Token k1 = reg("K1", K, 1), k5 = reg("K5", K, 5), k12 = reg("K12", K, 12),
                k20 = reg("K20", K, 20), k70 = reg("K70", K, 70), kf1 = reg("KF1", KF, 1);
    const Token sav = word("SAV", 48), ind = word("IND", 300), dbg = word("DBG", 14340);
    const uint64_t two = ax(D32) | ax(D34);
    const std::vector<Row> rows = {
        {"upper bound", 123, ops(k1, i32(1000000))},
        {"above the maximum", 123, ops(k1, i32(1000001)), TRA_ERANGE},
        {"below the minimum", 123, ops(k1, i32(-1)), TRA_ERANGE},
        {"no range", 123, ops(reg("K40", K, 40), i32(-2000000000))},
        {"float in range", 123, ops(kf1, f32(50000.0f))},
        {"float above", 123, ops(kf1, f32(50000.5f)), TRA_ERANGE},
        {"float NaN passes", 123, ops(kf1, f32(FNAN))},
        {"double above", 123, ops(reg("KD1", KD, 1), f64(2e9)), TRA_ERANGE},
        {"double NaN passes", 123, ops(reg("KD1", KD, 1), f64(DNAN))},
        {"64-bit at the minimum", 123, ops(reg("KL1", KL, 1), i64(-1000000000000))},
        {"64-bit above", 123, ops(reg("KL1", KL, 1), i64(1000000000001)), TRA_ERANGE},
        {"range of one of two drives is enough", 123, ops(k70, i32(35000)), 0, two},
        {"range of none of them", 123, ops(k70, i32(45000)), TRA_ERANGE, two},
        {"list within", 125, ops(k5, i32(-1000), i32(0), i32(1000))},
        {"list, third element above", 125, ops(k5, i32(1), i32(2), i32(1001)), TRA_ERANGE},
        {"list from a written element", 125, ops(reg("K5", K, 5, 1), i32(1), i32(-1001)),
         TRA_ERANGE},
        {"enumeration entry", 123, ops(k12, i32(3))},
        {"not an enumeration entry", 123, ops(k12, i32(4)), TRA_EBADENUM, ax(D32), 0, false,
         reg_enum},
        {"bit groups", 123, ops(k20, i32(0x23))},
        {"bit group value not listed", 123, ops(k20, i32(0x05)), TRA_EBADENUM, ax(D32), 0, false,
         group},
        {"bits outside every group", 123, ops(k20, i32(0x100)), TRA_EBADENUM, ax(D32), 0, false,
         reg_enum},
        {"parameter enumeration", 48, ops(sav, i32(3))},
        {"parameter not in enumeration", 48, ops(sav, i32(4)), TRA_EBADENUM, ax(D32), 0, false,
         cmd_enum},
        {"on/off", 124, ops(word("PWR", 124), i32(2)), TRA_EBADENUM, ax(D32), 0, false, cmd_enum},
        {"parameter above", 300, ops(ind, i32(36)), TRA_ERANGE},
        {"second parameter without range", 14340, ops(dbg, i32(5), i32(-1))},
        {"first parameter above", 14340, ops(dbg, i32(6), i32(0)), TRA_ERANGE},
        {"one parameter too many", 14340, ops(dbg, i32(1), i32(2), i32(3)), TRA_ETOOMANYPARAMS},
        {"parameter for a command without any", 17, ops(word("CLX", 17), i32(1)),
         TRA_ETOOMANYPARAMS},
        {"mixed parameter kinds", 160, ops(word("MVE", 160), i64(5000000000), f32(FNAN), f64(1.0))},
        {"controller register range", 123, ops(reg("W10", W, 10), i32(0)), TRA_ERANGE, ax(M51)},
        {"value read in the register's view", 123, ops(kf1, i32(1))},
        {"no check: out of range passes", 123, ops(k1, i32(-1)), 0, ax(D32), TRA_FNO_CHECK},
        {"bracketed: out of range passes", 123, ops(k1, i32(-1)), 0, ax(D32), 0, true},
    };
    run(*this, rows, _tra_check_everything, {"_tra_check_everything"});
}

TEST_F(Check, ReadOnlyRegisters) {
    const Token k50 = reg("K50", K, 50);
    const std::vector<Row> rows = {
        {"read-only register", 123, ops(k50, i32(1)), TRA_EREADONLY},
        {"compound assignment to it", 91, ops(k50, i32(1)), TRA_EREADONLY},
        {"monitoring register", 123, ops(reg("M7", M, 7), i32(1)), TRA_EREADONLY},
        {"read of it", READ, ops(k50)},
        {"writable element", 123, ops(reg("K60", K, 60, 1), i32(1))},
        {"read-only element", 123, ops(reg("K60", K, 60, 2), i32(1)), TRA_EREADONLY},
        {"list into read-only elements", 125, ops(reg("K60", K, 60, 1), i32(1), i32(2)),
         TRA_EREADONLY},
        {"whole writable type", 123, ops(reg("KY", K, WHOLE), i32(0))},
        {"whole read-only type", 123, ops(reg("MY", M, WHOLE), i32(0)), TRA_EREADONLY},
        {"no check", 123, ops(k50, i32(1)), 0, ax(D32), TRA_FNO_CHECK},
        {"bracketed", 123, ops(k50, i32(1)), 0, ax(D32), 0, true},
    };
    run(*this, rows, _tra_check_everything, {"_tra_check_everything"});
}

// ---- Enumerations of every value class, on a family made for them ----

// Axes 0 and 2 have the first drive, axis 1 the second.
struct CheckFamily : CheckBase {
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

    uint32_t drive() const override { return 1; }
    void install() override {
        tra->axis_dicts[0] = a;
        tra->axis_dicts[1] = b;
        tra->axis_dicts[2] = a;
    }
};

TEST_F(CheckFamily, EnumerationsOfEveryValueClass) {
    const Frames group{"_tra_check_reg_enum", "_tra_check_reg_enum", "_tra_check_everything"};
    const Frames nested{"_tra_check_reg_enum", "_tra_check_reg_enum", "_tra_check_reg_enum",
                        "_tra_check_everything"};
    const Frames command{"_tra_check_cmd_enum", "_tra_check_everything"};
    const Frames range{"_tra_check_everything"};
    const Token kl1 = reg("KL1", KL, 1), kd1 = reg("KD1", KD, 1), kf1 = reg("KF1", KF, 1),
                k1 = reg("K1", K, 1), k2 = reg("K2", K, 2), k3 = reg("K3", K, 3),
                k4 = reg("K4", K, 4), sel = word("SEL", 48), wid = word("WID", 49);
    const uint64_t first = ax(0), second = ax(1), both = ax(0) | ax(1), reverse = ax(1) | ax(2);
    const std::vector<Row> rows = {
        {"64-bit group value", 123, ops(kl1, i64(0x100000000))},
        {"64-bit group value not listed", 123, ops(kl1, i64(0x300000000)), TRA_EBADENUM, first, 0,
         false, group},
        {"64-bit rest outside the group", 123, ops(kl1, i64(0x200000001)), TRA_EBADENUM},
        {"double entry", 123, ops(kd1, f64(1.5))},
        {"double not an entry", 123, ops(kd1, f64(2.0)), TRA_EBADENUM},
        {"double NaN matches no entry", 123, ops(kd1, f64(DNAN)), TRA_EBADENUM},
        {"float entry", 123, ops(kf1, f32(0.5f))},
        {"float not an entry", 123, ops(kf1, f32(0.75f)), TRA_EBADENUM},
        {"nested groups leave the outer rest alone", 123, ops(k1, i32(0x31))},
        {"nested group value not listed", 123, ops(k1, i32(0x13)), TRA_EBADENUM, first, 0, false,
         nested},
        {"bits outside the outer group", 123, ops(k1, i32(0x101)), TRA_EBADENUM},
        {"entry for this register", 123, ops(k3, i32(1))},
        {"entry for another register", 123, ops(k3, i32(2)), TRA_EBADENUM},
        {"entry for the other register", 123, ops(k4, i32(2))},
        {"entry for every user", 123, ops(k4, i32(0))},
        {"entry for this parameter", 48, ops(sel, i32(1))},
        {"entry for registers only", 48, ops(sel, i32(2)), TRA_EBADENUM, first, 0, false, command},
        {"64-bit parameter groups", 49, ops(wid, i64(0x200000000))},
        {"64-bit parameter rest", 49, ops(wid, i64(0x200000004)), TRA_EBADENUM, first, 0, false,
         command},
        {"the second drive's enumeration accepts", 123, ops(k2, i32(50)), 0, both},
        {"the second drive alone refuses", 123, ops(k2, i32(1)), TRA_EBADENUM, second},
        {"enumeration of the last drive fails", 123, ops(k2, i32(70)), TRA_EBADENUM, reverse},
        {"range of the last drive fails", 123, ops(k2, i32(70)), TRA_ERANGE, both, 0, false, range},
        {"both enumerations fail", 123, ops(k2, i32(55)), TRA_EBADENUM, both},
    };
    run(*this, rows, _tra_check_everything, {"_tra_check_reg_enum", "_tra_check_everything"});
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
        // Each kind of refusal is its own failure site with its own line in the trace.
        std::set<int> lines;
        auto origin_line = [&] {
            auto t = trace();
            return t.empty() ? -1 : t[0].line;
        };
        EXPECT_EQ(r.check(nullptr, &ctx, 0, 123), TRA_EBADPARAM) << r.name;
        EXPECT_EQ(frames(TRA_EBADPARAM), Frames{r.function}) << r.name;
        lines.insert(origin_line());
        EXPECT_EQ(r.check(tra, nullptr, 0, 123), TRA_EBADPARAM) << r.name;
        lines.insert(origin_line());
        EXPECT_EQ(r.check(tra, &ctx, 3, 123), TRA_EBADPARAM) << r.name;
        lines.insert(origin_line());
        EXPECT_EQ(r.check(tra, &ctx, -1, 123), TRA_EBADPARAM) << r.name;
        ParseContext bad = ctx;
        bad.count = MAX_OPERANDS + 1;
        EXPECT_EQ(r.check(tra, &bad, 0, 123), TRA_EBADPARAM) << r.name;
        lines.insert(origin_line());
        EXPECT_EQ(lines.size(), 4u) << r.name << ": four refusals, four lines";
    }
    EXPECT_EQ(_tra_check_reg_enum(d32, nullptr, 1, 1, -1, K, 12, 0), TRA_EBADPARAM);
    EXPECT_EQ(_tra_check_cmd_enum(d32, nullptr, 1, 1, -1, 48, 0), TRA_EBADPARAM);
}

} // namespace
