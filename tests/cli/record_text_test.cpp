// The tool's raw record text: each value form, and records of every shape read back by the
// translator into the same bytes.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "record_text.hpp"
#include "ryn/tra.h"

namespace {

using Bytes = std::array<uint8_t, TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)>;

// Stores the low `bytes` bytes of v little-endian.
void put(uint8_t *p, uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i)
        p[i] = uint8_t(v >> (8 * i));
}
template <class T>
auto bits(T x) { // the value's bits, as wide as the value
    return std::bit_cast<std::conditional_t<sizeof(T) == 8, uint64_t, uint32_t>>(x);
}

// A one-slot record with command 123, kind 32, and the slot's tag and 8 value bytes.
Bytes one_slot(uint32_t tag, uint64_t value) {
    Bytes b{};
    b[0] = 1;
    b[2] = 123;
    b[3] = 32;
    put(&b[8], tag, 4);
    put(&b[16], value, 8);
    return b;
}

TEST(RawRecordText, EachValueFormIsWrittenSoThatItsWidthIsKept) {
    struct Row {
        const char *name;
        uint32_t tag;
        uint64_t value;
        const char *par;
    } rows[] = {
        {"32-bit integer", 0, 5, "TYP:0,PAR:5"},
        {"negative 32-bit integer", 0, 0xFFFFFFF9u, "TYP:0,PAR:-7"},
        {"float", 32, bits(1.5f), "TYP:32,PAR:1.5F"},
        {"double", 96, bits(2.5), "TYP:96,PAR:2.5D"},
        {"64-bit integer", 64, uint64_t(-5), "TYP:64,PAR:-5L"},
        {"register reference", 2, 0x4000000C, "TYP:2,PAR:0X4000000C"},
        {"element reference", 0x1000F, 0x4000000000000001, "TYP:0X1000F,PAR:0X4000000000000001L"},
        {"32-bit tag with upper bytes in use", 0, uint64_t(1) << 32, "TYP:0,PAR:0X100000000L"},
        {"float NaN as its bits", 32, bits(std::numeric_limits<float>::quiet_NaN()),
         "TYP:32,PAR:2143289344"},
        {"negative zero double as its bits", 96, bits(-0.0), "TYP:96,PAR:0X8000000000000000L"},
        {"float with upper bytes in use", 32, (uint64_t(1) << 40) | bits(1.0f),
         "TYP:32,PAR:0X1003F800000L"},
    };
    for (const Row &row : rows) {
        const Bytes b = one_slot(row.tag, row.value);
        EXPECT_EQ(ryn::cli::raw_record_text(b.data(), 1, 1),
                  std::string("[MASK:0X1,GATE:0,CMD:123,REC:32,") + row.par + "]")
            << row.name;
    }
}

TEST(RawRecordText, HeaderAndHexDump) {
    Bytes b{};
    b[1] = 0xFD; // only the gate's three bits are part of the record
    b[2] = 17;
    b[3] = 32;
    EXPECT_EQ(ryn::cli::raw_record_text(b.data(), 0, 0x8000000000000000u),
              "[MASK:0X8000000000000000,GATE:5,CMD:17,REC:32]");
    const Bytes r = one_slot(2, 0x4000000C);
    EXPECT_EQ(ryn::cli::record_hex(r.data(), 1, ".."),
              "01 00 7B 20 00 00 00 00\n..02 00 00 00 00 00 00 00  0C 00 00 40 00 00 00 00");
    EXPECT_EQ(ryn::cli::record_hex_compact(r.data(), 0), "01007B2000000000");
}

class ReadBack : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(tra_create_direct_traductor_o(&tra, 32, 0x03128100, 0, 0, 0), 0);
    }
    void TearDown() override { tra_destroy(&tra); }

    // Translates a text; the record's bytes, its slot count and mask.
    int translate(const std::string &text, Bytes &b, int &count, uint64_t &mask) {
        b.fill(0xEE);
        uint32_t n = 0;
        int rc =
            tra_oxcom_translate_cmd_from_ascii_ex(tra, reinterpret_cast<TRA_RECORD *>(b.data()),
                                                  TRA_RECORD_MAX_SLOTS, &n, &mask, text.c_str());
        count = static_cast<int32_t>(n);
        return rc;
    }

    TRA *tra = nullptr;
};

// The translator reads the tool's raw text of a record into the same bytes, for records built
// from command text of every form.
TEST_F(ReadBack, RecordsOfCommandTextSurviveTheirRawText) {
    // Records of one and several slots, of each value class, every header kind the tool meets
    // (assignment, read, vector read, "!", page 1, list command, element assignment).
    const char *lines[] = {"K5.0=10,20,30",
                           "KL1.0=-2000000000L",
                           "KF1.2=2500.5F",
                           "KD1.0=15000.25D",
                           "M7.0",
                           "V1.0",
                           "X5.!=0",
                           "*:CLX",
                           "!K12.0=1",
                           "DBG.0=2,0xFF",
                           "TRJ.0=[0,1000,2000],[10,10,10]",
                           "TF2:1.0=[1.5F,-2.5F,3.5F]"};
    for (const char *line : lines) {
        Bytes first{}, again{};
        int n1 = 0, n2 = 0;
        uint64_t m1 = 0, m2 = 0;
        ASSERT_EQ(translate(line, first, n1, m1), 0) << line;
        ASSERT_GE(n1, 0) << line;
        const std::string raw = ryn::cli::raw_record_text(first.data(), n1, m1);
        ASSERT_EQ(translate(raw, again, n2, m2), 0) << line << " -> " << raw;
        EXPECT_EQ(n2, n1) << raw;
        EXPECT_EQ(m2, m1) << raw;
        EXPECT_EQ(0, std::memcmp(first.data(), again.data(), size_t(TRA_RECORD_SIZE(n1))))
            << line << " -> " << raw;
    }
}

// The same for records of arbitrary content: every header byte, tags of every value form and
// random values, up to the largest slot count.
TEST_F(ReadBack, ArbitraryRecordsSurviveTheirRawText) {
    std::mt19937_64 random(8);
    const uint32_t tags[] = {0,  32, 64, 96,      1,       2,       34,
                             66, 98, 7,  0x10000, 0x1000F, 0x40100, 0x30220};
    for (int round = 0; round < 300; ++round) {
        Bytes b{};
        const int count = int(random() % (TRA_RECORD_MAX_SLOTS + 1));
        b[0] = uint8_t(count);
        b[1] = uint8_t(random() % 8);
        b[2] = uint8_t(random());
        b[3] = uint8_t(random());
        for (int i = 0; i < count; ++i) {
            uint8_t *slot = &b[size_t(8 + 16 * i)];
            const uint32_t tag = random() % 4 == 0 ? uint32_t(random()) : tags[random() % 14];
            uint64_t value = random();
            if (random() % 2 == 0) value &= 0xFFFFFFFFu; // as 32-bit forms leave it
            put(slot, tag, 4);
            put(slot + 8, value, 8);
        }
        uint64_t mask = random() | 1;
        const std::string raw = ryn::cli::raw_record_text(b.data(), count, mask);
        Bytes again{};
        int n = 0;
        uint64_t m = 0;
        ASSERT_EQ(translate(raw, again, n, m), 0) << raw;
        EXPECT_EQ(n, count) << raw;
        EXPECT_EQ(m, mask) << raw;
        EXPECT_EQ(0, std::memcmp(b.data(), again.data(), size_t(TRA_RECORD_SIZE(count)))) << raw;
    }
}

} // namespace
