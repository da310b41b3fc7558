// The raw record text "[MASK:...,GATE:...,CMD:...,REC:...,TYP:...,PAR:...]".
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "record.hpp"
#include "traa2r.hpp"
#include "trace_helpers.hpp"

namespace {

using namespace ryn::tra;
using ryn::test::trace;

constexpr int CAPACITY = 4;
using Buffer = std::array<uint8_t, TRA_RECORD_SIZE(CAPACITY) + 16>;

TRA_RECORD *as_record(Buffer &b) {
    return reinterpret_cast<TRA_RECORD *>(b.data());
}

uint64_t bits(double d) {
    uint64_t v;
    std::memcpy(&v, &d, 8);
    return v;
}
uint32_t bits(float f) {
    uint32_t v;
    std::memcpy(&v, &f, 4);
    return v;
}

// Tag and value (all 8 bytes) of each slot, one after the other.
template <class... T>
std::vector<uint64_t> slots(T... tags_and_values) {
    return {uint64_t(tags_and_values)...};
}

TEST(RawRecord, HeaderAndSlots) {
    struct Row {
        const char *line;
        uint64_t mask;
        uint8_t gate, command, kind;
        std::vector<uint64_t> slots;
    } rows[] = {
        {"[MASK:0X3,GATE:0,CMD:123,REC:32,TYP:0,PAR:5]", 3, 0, 123, 32, slots(0, 5)},
        {"[MASK:5,GATE:9,CMD:0X7B,REC:040]", 5, 1, 123, 32, slots()},
        {"[MASK:0XFFFFFFFFFFFFFFFF,GATE:7,CMD:1,REC:38]", ~0ull, 7, 1, 38, slots()},
        {"[MASK:1,GATE:0,CMD:0,REC:18,TYP:2,PAR:1.5D,TYP:0,PAR:1.5F,TYP:0,PAR:0X10]", 1, 0, 0, 18,
         slots(2, bits(1.5), 0, bits(1.5f), 0, 16)},
        {"[MASK:1,GATE:0,CMD:0,REC:18,TYP:64,PAR:10L,TYP:0,PAR:0X1D,TYP:0XFFFFFFFF,PAR:-1]", 1, 0,
         0, 18, slots(64, 10, 0, 29, 0xFFFFFFFF, 0xFFFFFFFF)},
        {"[MASK:1,GATE:0,CMD:0,REC:18,TYP:64,PAR:-5L,TYP:96,PAR:2D,TYP:0,PAR:0X1FL]", 1, 0, 0, 18,
         slots(64, uint64_t(-5), 96, bits(2.0), 0, 31)},
        {"[MASK:1,GATE:0,CMD:0,REC:18,TYP:96,PAR:+1.5D,TYP:32,PAR:+2.5F,TYP:0,PAR:+7]", 1, 0, 0, 18,
         slots(96, bits(1.5), 32, bits(2.5f), 0, 7)},
        // Keys need not start their item; the value starts after the first ":".
        {"[XMASK:2,THEGATE:1,CMD:2,REC:3,ATYP:4,PAR:5]", 2, 1, 2, 3, slots(4, 5)},
    };
    for (const Row &r : rows) {
        Buffer b;
        b.fill(0xAA);
        int32_t count = -7;
        uint64_t mask = 0;
        sup_trace_clear();
        ASSERT_EQ(_tra_parse_raw_record(r.line, as_record(b), CAPACITY, &count, &mask), 0)
            << r.line;
        RecordView v = view(as_record(b));
        EXPECT_EQ(mask, r.mask) << r.line;
        const int n = int(r.slots.size() / 2);
        EXPECT_EQ(count, n) << r.line;
        EXPECT_EQ(v.header().count, n) << r.line;
        EXPECT_EQ(v.header().gate, r.gate) << r.line;
        EXPECT_EQ(v.header().command, r.command) << r.line;
        EXPECT_EQ(v.header().kind, r.kind) << r.line;
        EXPECT_EQ(load_u32(v.header().zero), 0u) << r.line;
        for (int i = 0; i < n; ++i) {
            EXPECT_EQ(v.tag(i), r.slots[2 * i]) << r.line << " slot " << i;
            EXPECT_EQ(load_u32(v.slot(i).zero), 0u) << r.line << " slot " << i;
            EXPECT_EQ(v.value64(i), r.slots[2 * i + 1]) << r.line << " slot " << i;
        }
        EXPECT_EQ(b[TRA_RECORD_SIZE(n)], 0xAA) << r.line << ": nothing past the slots";
    }
}

TEST(RawRecord, NotARawRecord) {
    const char *rows[] = {
        "K12=5",
        "[K12=5]",
        "MASK:1,GATE:0,CMD:1,REC:32]",
        "[MASK:1,GATE:0,CMD:1,REC:32",
        "[MASK:0,GATE:0,CMD:1,REC:32]",
        "[MASK:0X0,GATE:0,CMD:1,REC:32]",
        "[MASK:X,GATE:0,CMD:1,REC:32]",
        "[GATE:0,MASK:1,CMD:1,REC:32]",
        "[MASK:1,CMD:1,GATE:0,REC:32]",
        "[MASK:1,GATE:0,CMD:1]",
        "[MASK:1,GATE:0,CMD:1,REC:32,TYP:0]",
        "[MASK:1,GATE:0,CMD:1,REC:32,TYP:0,VAL:1]",
        "[MASK:1,GATE:0,CMD:1,REC:32,PAR:1,TYP:0]",
        "[MASK:1,GATE:0,CMD:1,REC:32,]",
        "[MASK:1,GATE:0,CMD:1,REC]",
        "[]",
        "[",
        "",
    };
    for (const char *line : rows) {
        Buffer b;
        b.fill(0xAA);
        int32_t count = -7;
        uint64_t mask = 9;
        sup_trace_clear();
        EXPECT_EQ(_tra_parse_raw_record(line, as_record(b), CAPACITY, &count, &mask),
                  TRA_ECMDSYNTAX)
            << line;
        EXPECT_EQ(count, -7) << line;
        EXPECT_EQ(mask, 9u) << line;
        EXPECT_EQ(b[0], 0xAA) << line << ": nothing written";
        EXPECT_EQ(sup_trace_count(), 0) << line << ": the builder goes on with the line";
    }
}

// A line that is a raw record in form but holds a value its field has no room for, or a value
// that is no number, is refused with a traced code naming the field; nothing is cut to fit.
TEST(RawRecord, ValuesThatDoNotFitAreRefused) {
    struct Row {
        const char *line;
        int rc;
        const char *field;
    } rows[] = {
        {"[MASK:0XFFFFFFFFFFFFFFFFFFFF,GATE:0,CMD:1,REC:32]", TRA_ERANGE, "MASK"},
        {"[MASK:99999999999999999999999,GATE:0,CMD:1,REC:32]", TRA_ERANGE, "MASK"},
        {"[MASK:1Q,GATE:0,CMD:1,REC:32]", TRA_ECMDSYNTAX, "MASK"},
        {"[MASK:1,GATE:999999999999,CMD:1,REC:32]", TRA_ERANGE, "GATE"},
        {"[MASK:1,GATE:-1,CMD:1,REC:32]", TRA_ERANGE, "GATE"},
        {"[MASK:1,GATE:0,CMD:99999,REC:32]", TRA_ERANGE, "CMD"},
        {"[MASK:1,GATE:0,CMD:256,REC:32]", TRA_ERANGE, "CMD"},
        {"[MASK:1,GATE:0,CMD:ABC,REC:32]", TRA_ECMDSYNTAX, "CMD"},
        {"[MASK:1,GATE:0,CMD:08,REC:32]", TRA_ECMDSYNTAX, "CMD"},
        {"[MASK:1,GATE:0,CMD:1,REC:-1]", TRA_ERANGE, "REC"},
        {"[MASK:1,GATE:0,CMD:1,REC:0X100]", TRA_ERANGE, "REC"},
        {"[MASK:1,GATE:0,CMD:1,REC:32,TYP:0X100000000,PAR:1]", TRA_ERANGE, "TYP"},
        {"[MASK:1,GATE:0,CMD:1,REC:32,TYP:0,PAR:4294967296]", TRA_ERANGE, "PAR"},
        {"[MASK:1,GATE:0,CMD:1,REC:32,TYP:0,PAR:-2147483649]", TRA_ERANGE, "PAR"},
        {"[MASK:1,GATE:0,CMD:1,REC:32,TYP:64,PAR:18446744073709551616L]", TRA_ERANGE, "PAR"},
        {"[MASK:1,GATE:0,CMD:1,REC:32,TYP:64,PAR:-9223372036854775809L]", TRA_ERANGE, "PAR"},
        {"[MASK:1,GATE:0,CMD:1,REC:32,TYP:96,PAR:1E999D]", TRA_ERANGE, "PAR"},
        {"[MASK:1,GATE:0,CMD:1,REC:32,TYP:32,PAR:1E39F]", TRA_ERANGE, "PAR"},
        {"[MASK:1,GATE:0,CMD:1,REC:32,TYP:0,PAR:5,TYP:0,PAR:12Z]", TRA_ECMDSYNTAX, "PAR"},
        {"[MASK:1,GATE:0,CMD:1,REC:32,TYP:96,PAR:1..5D]", TRA_ECMDSYNTAX, "PAR"},
    };
    for (const Row &r : rows) {
        Buffer b;
        b.fill(0xAA);
        int32_t count = -7;
        uint64_t mask = 9;
        bool refused = false;
        sup_trace_clear();
        EXPECT_EQ(_tra_parse_raw_record(r.line, as_record(b), CAPACITY, &count, &mask, &refused),
                  r.rc)
            << r.line;
        EXPECT_TRUE(refused) << r.line;
        EXPECT_EQ(count, -7) << r.line;
        EXPECT_EQ(mask, 9u) << r.line;
        EXPECT_EQ(b[0], 0xAA) << r.line << ": nothing written";
        ASSERT_EQ(sup_trace_count(), 1) << r.line;
        EXPECT_EQ(trace()[0].code, r.rc) << r.line;
        EXPECT_EQ(trace()[0].detail, r.field) << r.line;
    }
    // The extremes of every field still fit.
    const char *fits[] = {
        "[MASK:0XFFFFFFFFFFFFFFFF,GATE:4294967295,CMD:255,REC:255,TYP:-2147483648,PAR:4294967295]",
        ("[MASK:18446744073709551615,GATE:0,CMD:0,REC:0,TYP:0XFFFFFFFF,PAR:-2147483648,"
         "TYP:64,PAR:-9223372036854775808L,TYP:64,PAR:18446744073709551615L]"),
        "[MASK:1,GATE:0,CMD:0377,REC:0,TYP:96,PAR:1E308D,TYP:32,PAR:-3.4E38F]",
    };
    for (const char *line : fits) {
        Buffer b;
        sup_trace_clear();
        EXPECT_EQ(_tra_parse_raw_record(line, as_record(b), CAPACITY, nullptr, nullptr), 0) << line;
    }
}

TEST(RawRecord, PairsBeyondTheCapacity) {
    std::string line = "[MASK:1,GATE:0,CMD:1,REC:32";
    for (int i = 0; i < 3; ++i)
        line += ",TYP:0,PAR:" + std::to_string(i);
    line += "]";
    struct Row {
        int32_t capacity;
        int rc;
    } rows[] = {{3, 0}, {2, TRA_EBUFSIZE}, {0, TRA_EBUFSIZE}, {-1, TRA_EBADPARAM}};
    for (const Row &r : rows) {
        Buffer b;
        b.fill(0xAA);
        int32_t count = -7;
        sup_trace_clear();
        EXPECT_EQ(_tra_parse_raw_record(line.c_str(), as_record(b), r.capacity, &count, nullptr),
                  r.rc)
            << r.capacity;
        if (r.rc == 0) {
            EXPECT_EQ(count, 3);
            continue;
        }
        EXPECT_EQ(b[0], 0xAA) << r.capacity << ": nothing written";
        ASSERT_EQ(sup_trace_count(), 1) << r.capacity;
        EXPECT_EQ(trace()[0].function, "_tra_parse_raw_record");
        EXPECT_EQ(trace()[0].code, r.rc);
    }
    // Header only: a record of capacity 0 holds it.
    std::array<uint8_t, TRA_RECORD_SIZE(0)> header{};
    EXPECT_EQ(_tra_parse_raw_record("[MASK:1,GATE:1,CMD:2,REC:3]",
                                    reinterpret_cast<TRA_RECORD *>(header.data()), 0, nullptr,
                                    nullptr),
              0);
    EXPECT_EQ(header[3], 3);
}

} // namespace
