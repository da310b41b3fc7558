// Wire layout of the command record and its reference encodings.
#include <gtest/gtest.h>

#include <array>

#include "record.hpp"

namespace {

using namespace ryn::tra;

TEST(RecordWire, SlotsSitAfterTheHeaderLittleEndian) {
    std::array<uint8_t, TRA_RECORD_SIZE(2)> bytes{};
    RecordView r{bytes.data()};
    r.header().count = 2;
    r.header().command = 123;
    r.header().kind = REC_COMMAND;
    r.set_tag(1, 0x00010203);
    r.set_value64(1, 0x1122334455667788ull);
    EXPECT_EQ(bytes[0], 2);
    EXPECT_EQ(bytes[2], 123);
    EXPECT_EQ(bytes[3], 32);
    EXPECT_EQ(bytes[24], 0x03);
    EXPECT_EQ(bytes[27], 0x00);
    EXPECT_EQ(bytes[32], 0x88);
    EXPECT_EQ(bytes[39], 0x11);
    EXPECT_EQ(r.value32(1), 0x55667788u);
    EXPECT_EQ(r.tag(1), 0x00010203u);
}

TEST(RecordWire, ReferenceEncodings) {
    struct Row {
        uint32_t index, subscript, axis, word;
    } rows[] = {
        {12, 0, 0, 12},
        {5, 2, 3, 0x03020005},
        {0xFFFF, 0xFF, 63, 0x3FFFFFFF},
        {1, 0, 64, 0x40000001},
        {0x12345, 0x1FF, 0xFF, 0x7FFF2345},
    };
    for (const Row &r : rows) {
        EXPECT_EQ(encode_register(r.index, r.subscript, r.axis), r.word);
        RegisterRef back = decode_register(r.word);
        EXPECT_EQ(back.index, r.index & 0xFFFF);
        EXPECT_EQ(back.subscript, r.subscript & 0xFF);
        EXPECT_EQ(back.axis, r.axis & 0x7F);
    }
    EXPECT_EQ(encode_destination(12, 0), 0x4000000Cu);
    EXPECT_EQ(encode_element(2, 5), (1ull << 62) | (5ull << 24) | 2);
    EXPECT_EQ(encode_element_value_register(7, 1, 64), (64ull << 56) | (1ull << 24) | 7);
}

} // namespace
