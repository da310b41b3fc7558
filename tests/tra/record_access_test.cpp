// ryn/record.h read against the wire module: every accessor on translated records, on a record
// at an odd address, and the values of every class.
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "ryn/record.h"
#include "ryn/tra.h"
#include "wire/wire.hpp"

namespace {

using namespace ryn::wire;

struct Translator {
    TRA *tra = nullptr;
    Translator() { EXPECT_EQ(tra_create_direct_traductor_o(&tra, 32, 0x03128100, 0, 0, 0), 0); }
    ~Translator() { tra_destroy(&tra); }
};

TEST(RecordAccess, AgreesWithTheWireModuleOnTranslatedRecords) {
    Translator t;
    struct Row {
        const char *text;
        int32_t command; // -1: a kind that carries none
    } rows[] = {
        {"K12.0=2", CMD_SET}, {"PWR.(0,1)=1", CMD_POWER}, {"MVE.1=1000L,50.0F,200.0D", CMD_MOVE},
        {"K12.0", -1},        {"K1.0+=5", CMD_ADD},       {"SAV.0", CMD_SAVE},
    };
    for (const Row &r : rows) {
        // One byte past an aligned start: the accessors need no alignment.
        alignas(8) std::array<uint8_t, TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS) + 1> buffer{};
        uint8_t *bytes = buffer.data() + 1;
        uint32_t count = 0;
        uint64_t axes = 0;
        ASSERT_EQ(
            tra_oxcom_translate_cmd_from_ascii_ex(t.tra, reinterpret_cast<TRA_RECORD *>(bytes),
                                                  TRA_RECORD_MAX_SLOTS, &count, &axes, r.text),
            0)
            << r.text;
        const ConstRecordView view{bytes};
        EXPECT_EQ(tra_record_header(bytes), view.word()) << r.text;
        EXPECT_EQ(tra_record_count(bytes), count) << r.text;
        EXPECT_EQ(tra_record_kind(bytes), view.kind()) << r.text;
        EXPECT_EQ(tra_record_command_byte(bytes), view.command_byte()) << r.text;
        EXPECT_EQ(tra_record_command(bytes), r.command) << r.text;
        for (uint32_t i = 0; i < count; ++i) {
            const int slot = static_cast<int>(i);
            EXPECT_EQ(tra_record_slot_tag(bytes, i), view.tag(slot)) << r.text << " slot " << i;
            EXPECT_EQ(tra_record_slot_raw(bytes, i), view.value64(slot)) << r.text;
            EXPECT_EQ(static_cast<uint32_t>(tra_record_slot_int32(bytes, i)), view.value32(slot));
        }
    }
}

TEST(RecordAccess, ValuesOfEveryClassAndTheHeaderBits) {
    alignas(8) std::array<uint8_t, TRA_RECORD_SIZE(4) + 3> buffer{};
    uint8_t *bytes = buffer.data() + 3;
    const RecordView r{bytes};
    r.set_word(HEADER_ACK | HEADER_STATUS | 0x0500u | 4u | uint32_t(CMD_MOVE) << 16 |
               uint32_t(REC_COMMAND) << 24);
    const float f = -2.5f;
    const double d = 1e300;
    uint32_t fbits;
    uint64_t dbits;
    std::memcpy(&fbits, &f, 4);
    std::memcpy(&dbits, &d, 8);
    r.set_value32(0, 0xFFFFFFFEu);
    r.set_value64(1, 0x8000000000000001ull);
    r.set_value32(2, fbits);
    r.set_value64(3, dbits);
    r.set_tag(3, CLASS_DOUBLE | 5);
    EXPECT_EQ(tra_record_count(bytes), 4u);
    EXPECT_EQ(tra_record_gate(bytes), 5u);
    EXPECT_EQ(tra_record_acknowledged(bytes), 1);
    EXPECT_EQ(tra_record_status(bytes), 1);
    EXPECT_EQ(tra_record_command(bytes), CMD_MOVE);
    EXPECT_EQ(tra_record_slot_int32(bytes, 0), -2);
    EXPECT_EQ(tra_record_slot_int64(bytes, 1), INT64_MIN + 1);
    EXPECT_EQ(tra_record_slot_float(bytes, 2), f);
    EXPECT_EQ(tra_record_slot_double(bytes, 3), d);
    EXPECT_EQ(tra_record_slot_tag(bytes, 3), CLASS_DOUBLE | 5);
    r.set_word(4u);
    EXPECT_EQ(tra_record_acknowledged(bytes), 0);
    EXPECT_EQ(tra_record_status(bytes), 0);
    EXPECT_EQ(tra_record_gate(bytes), 0u);
    EXPECT_EQ(tra_record_command(nullptr), -1);
}

} // namespace
