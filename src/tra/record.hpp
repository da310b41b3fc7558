// The command record as it travels on the bus: header and slots, little-endian, and the encodings
// of register and element references inside slot values.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ryn/tra.h"

namespace ryn::tra {

inline constexpr int RECORD_HEADER_SIZE = 8;
inline constexpr int RECORD_SLOT_SIZE = 16;

// Header of a record; byte 1 holds the 3-bit gate in its low bits.
struct RecordHeader {
    uint8_t count;   // parameter slots in use
    uint8_t gate;    // bits 0..2
    uint8_t command; // command number, low 8 bits
    uint8_t kind;    // record kind; for commands 32 + (command >> 8), 24 + ... with "!"
    uint8_t zero[4];
};
static_assert(sizeof(RecordHeader) == RECORD_HEADER_SIZE);
static_assert(offsetof(RecordHeader, count) == 0 && offsetof(RecordHeader, gate) == 1 &&
              offsetof(RecordHeader, command) == 2 && offsetof(RecordHeader, kind) == 3);

// One parameter slot: a 32-bit type tag, 4 zero bytes, an 8-byte value.
struct RecordSlot {
    uint8_t tag[4];
    uint8_t zero[4];
    uint8_t value[8];
};
static_assert(sizeof(RecordSlot) == RECORD_SLOT_SIZE);
static_assert(offsetof(RecordSlot, tag) == 0 && offsetof(RecordSlot, value) == 8);

// Record kinds.
inline constexpr uint8_t REC_READ = 18;          // register read list
inline constexpr uint8_t REC_VECTOR_READ = 19;   // read of a vector register
inline constexpr uint8_t REC_BANG_COMMAND = 24;  // command with the "!" prefix (+ page)
inline constexpr uint8_t REC_BANG_ELEMENTS = 30; // element assignment with "!"
inline constexpr uint8_t REC_COMMAND = 32;       // command (+ page)
inline constexpr uint8_t REC_ELEMENTS = 38;      // element assignment

// Little-endian loads and stores, whatever the host.
inline uint32_t load_u32(const uint8_t *p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline uint64_t load_u64(const uint8_t *p) {
    return load_u32(p) | uint64_t(load_u32(p + 4)) << 32;
}
inline void store_u32(uint8_t *p, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline void store_u64(uint8_t *p, uint64_t v) {
    store_u32(p, static_cast<uint32_t>(v));
    store_u32(p + 4, static_cast<uint32_t>(v >> 32));
}

// A view of a record in a caller's buffer.
struct RecordView {
    uint8_t *bytes;

    RecordHeader &header() const { return *reinterpret_cast<RecordHeader *>(bytes); }
    RecordSlot &slot(int i) const {
        return *reinterpret_cast<RecordSlot *>(bytes + RECORD_HEADER_SIZE + RECORD_SLOT_SIZE * i);
    }
    uint32_t tag(int i) const { return load_u32(slot(i).tag); }
    void set_tag(int i, uint32_t tag) const { store_u32(slot(i).tag, tag); }
    uint32_t value32(int i) const { return load_u32(slot(i).value); }
    uint64_t value64(int i) const { return load_u64(slot(i).value); }
    void set_value32(int i, uint32_t v) const { store_u32(slot(i).value, v); }
    void set_value64(int i, uint64_t v) const { store_u64(slot(i).value, v); }
    void clear(int capacity) const {
        std::memset(bytes, 0,
                    static_cast<std::size_t>(RECORD_HEADER_SIZE + RECORD_SLOT_SIZE * capacity));
    }
};

inline RecordView view(TRA_RECORD *record) {
    return {reinterpret_cast<uint8_t *>(record)};
}
inline RecordView view(const TRA_RECORD *record) {
    return {const_cast<uint8_t *>(reinterpret_cast<const uint8_t *>(record))};
}

// A register reference in a slot's first 32-bit word: 16-bit index, 8-bit first subscript,
// 7-bit axis field, bit 31 zero.
struct RegisterRef {
    uint32_t index;
    uint32_t subscript;
    uint32_t axis;
};
inline uint32_t encode_register(uint32_t index, uint32_t subscript, uint32_t axis) {
    return (index & 0xFFFF) | (subscript & 0xFF) << 16 | (axis & 0x7F) << 24;
}
inline RegisterRef decode_register(uint32_t word) {
    return {word & 0xFFFF, word >> 16 & 0xFF, word >> 24 & 0x7F};
}
// Destination of an assignment (123, 125): the 7-bit axis field holds 64 whatever the token held.
inline uint32_t encode_destination(uint32_t index, uint32_t subscript) {
    return encode_register(index, subscript, 64);
}

// An element reference (kinds 30 and 38): 24-bit index, 24-bit element, bit 62 set.
inline uint64_t encode_element(uint32_t index, uint32_t element) {
    return uint64_t(index & 0xFFFFFF) | uint64_t(element & 0xFFFFFF) << 24 | uint64_t(1) << 62;
}
inline constexpr uint32_t ELEMENT_REF_TAG_BIT = 0x00010000; // third byte of the tag: 1

// A register given as a value of an element assignment: 24-bit index, 24-bit row, 7-bit axis.
inline uint64_t encode_element_value_register(uint32_t index, uint32_t row, uint32_t axis) {
    return uint64_t(index & 0xFFFFFF) | uint64_t(row & 0xFFFFFF) << 24 |
           uint64_t(axis & 0x7F) << 56;
}

} // namespace ryn::tra
