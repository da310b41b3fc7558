// Register values of the simulated drive by value class: raw 8-byte storage, conversions between
// classes, range tests and the compound assignment operators.
#pragma once

#include <bit>
#include <cstdint>

namespace ryn::sim {

// A value is kept as 8 raw bytes: a 32-bit class in the low 4 (the high 4 zero), a 64-bit class
// in all 8; floating values as their bit patterns.
inline uint64_t raw_of_float(float value) {
    return std::bit_cast<uint32_t>(value);
}
inline uint64_t raw_of_double(double value) {
    return std::bit_cast<uint64_t>(value);
}
inline float float_of_raw(uint64_t raw) {
    return std::bit_cast<float>(static_cast<uint32_t>(raw));
}
inline double double_of_raw(uint64_t raw) {
    return std::bit_cast<double>(raw);
}

// The raw value of a slot's 8 value bytes read in a class: 4 bytes for the 32-bit classes.
constexpr uint64_t narrow_to_class(uint64_t raw, uint32_t value_class) {
    return (value_class & 0x40) != 0 ? raw : raw & 0xFFFFFFFFu;
}

// Converts a value of one class to another: integers to floating values exactly as the target can
// hold them, floating values to integers truncated towards zero and saturated (NaN becomes 0),
// doubles to floats rounded (beyond the float range an infinity), 64-bit integers to 32-bit ones
// by their low 32 bits.
uint64_t convert_class(uint64_t raw, uint32_t from_class, uint32_t to_class);

// Whether a value lies within an element's bounds, compared in its class. Bounds of 0 and 0 mean
// that the element has no range; a NaN lies within any range.
bool within_bounds(uint64_t raw, uint64_t min, uint64_t max, uint32_t value_class);
// Whether the bounds 0 and 0 (no range) are what the raw bounds say in this class.
bool is_unbounded(uint64_t min, uint64_t max, uint32_t value_class);

// Applies compound operator `command` (91..101, 172..174) to `current` with `operand`, both of
// `value_class`: integer classes with two's complement wrap-around, floating classes with their
// own arithmetic. Returns false, leaving `result` alone, for a division or modulo by zero, a shift
// count outside 0 .. width - 1, a bit operator on a floating class, or an unknown operator.
bool apply_operator(int32_t command, uint32_t value_class, uint64_t current, uint64_t operand,
                    uint64_t *result);

} // namespace ryn::sim
