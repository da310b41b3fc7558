// Command records built by the bus library.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>

#include "ryn/oxb.h"

namespace {

uint32_t u32(const unsigned char *p) {
    return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24;
}

TEST(Record, SizeIsHeaderPlusSlots) {
    for (int n : {0, 1, 4, 65})
        EXPECT_EQ(oxb_record_size(n), 8 + 16 * n);
    for (int n : {-1, 66, INT_MAX, INT_MIN})
        EXPECT_EQ(oxb_record_size(n), 0) << n;
}

TEST(Record, BuildWritesHeaderAndSlotsLittleEndian) {
    std::array<unsigned char, 8 + 16 * 3> rec;
    rec.fill(0xEE);
    ASSERT_EQ(oxb_build_record(rec.data(), 3, 32, 20, "ii", 0u, 5u, 0u, 0x03128100u), 0);
    EXPECT_EQ(rec[0], 2);
    EXPECT_EQ(rec[1], 0);
    EXPECT_EQ(rec[2], 20);
    EXPECT_EQ(rec[3], 32);
    EXPECT_EQ(u32(&rec[4]), 0u);
    EXPECT_EQ(u32(&rec[8]), 0u);
    EXPECT_EQ(u32(&rec[16]), 5u);
    EXPECT_EQ(u32(&rec[24 + 8]), 0x03128100u);
    for (std::size_t i = 8 + 16 * 2; i < rec.size(); ++i)
        EXPECT_EQ(rec[i], 0) << i;
}

TEST(Record, RegisterReadPacksIndexAndSubindex) {
    std::array<unsigned char, 8 + 16> rec{};
    ASSERT_EQ(oxb_build_record(rec.data(), 1, 18, 0, "i", 3u, (2u << 16) | 282u), 0);
    EXPECT_EQ(rec[3], 18);
    EXPECT_EQ(u32(&rec[8]), 3u);
    EXPECT_EQ(u32(&rec[16]), (2u << 16) | 282u);
}

TEST(Record, BuildRefusesBadArguments) {
    std::array<unsigned char, 8 + 16 * 2> rec{};
    rec.fill(0xEE);
    EXPECT_EQ(oxb_build_record(rec.data(), 1, 32, 20, "ii", 0u, 1u, 0u, 2u), OXB_ECAPACITY);
    EXPECT_EQ(rec[0], 0xEE) << "nothing written when it does not fit";
    EXPECT_EQ(oxb_build_record(nullptr, 1, 18, 0, "i", 0u, 0u), OXB_EBADPARAM);
    EXPECT_EQ(oxb_build_record(rec.data(), 1, 18, 0, nullptr), OXB_EBADPARAM);
    EXPECT_EQ(oxb_build_record(rec.data(), 2, 18, 0, "ix", 0u, 0u, 0u, 0u), OXB_EBADPARAM);
    EXPECT_EQ(oxb_build_record(rec.data(), 2, 256, 0, "i", 0u, 0u), OXB_EBADPARAM);
    EXPECT_EQ(oxb_build_record(rec.data(), 66, 18, 0, "i", 0u, 0u), OXB_EBADPARAM);
}

TEST(Record, ErrorMessages) {
    EXPECT_STREQ(oxb_translate_error(OXB_ENOTHING), "nothing received");
    EXPECT_STREQ(oxb_translate_error(0), "unknown error");
}

} // namespace
