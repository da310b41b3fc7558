// Records built slot by slot for the record-to-text tests.
#pragma once

#include <cstdint>
#include <cstring>

#include "record.hpp"

namespace ryn::test {

// A record of up to 65 slots whose count byte follows the slots added.
struct Rec {
    alignas(8) uint8_t bytes[TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)] = {};

    Rec(uint8_t kind, uint8_t command) {
        bytes[2] = command;
        bytes[3] = kind;
    }
    // A slot with a type tag and an 8-byte value (32-bit values leave the high word zero).
    Rec &slot(uint32_t tag, uint64_t value) {
        ryn::tra::RecordView v{bytes};
        int i = bytes[0]++;
        v.set_tag(i, tag);
        v.set_value64(i, value);
        return *this;
    }
    Rec &i32(uint32_t value) { return slot(0, value); }
    Rec &i64(uint64_t value) { return slot(64, value); }
    // A register written to: type, index and subindex on the record's axes.
    Rec &dest(uint32_t type, uint32_t index, uint32_t sub = 0) {
        return slot(type, ryn::tra::encode_destination(index, sub));
    }
    // A register read or given as a value: type, index, subindex and axis.
    Rec &reg(uint32_t type, uint32_t index, uint32_t sub, uint32_t axis) {
        return slot(type, ryn::tra::encode_register(index, sub, axis));
    }
    // An element reference of a vector or matrix register of the given type.
    Rec &elem(uint32_t type, uint32_t index, uint32_t element) {
        return slot(type | ryn::tra::ELEMENT_REF_TAG_BIT, ryn::tra::encode_element(index, element));
    }
    Rec &f32(float x) {
        uint32_t bits;
        std::memcpy(&bits, &x, 4);
        return slot(32, bits);
    }
    Rec &f64(double x) {
        uint64_t bits;
        std::memcpy(&bits, &x, 8);
        return slot(96, bits);
    }
    const TRA_RECORD *get() const { return reinterpret_cast<const TRA_RECORD *>(bytes); }
};

} // namespace ryn::test
