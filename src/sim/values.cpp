// Register values by value class: conversions, range tests and the compound operators.
#include "sim/values.hpp"

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "wire/wire.hpp"

namespace ryn::sim {

using wire::CLASS_DOUBLE;
using wire::CLASS_FLOAT;
using wire::CLASS_INT32;
using wire::CLASS_INT64;

uint64_t raw_of_float(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}
uint64_t raw_of_double(double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}
float float_of_raw(uint64_t raw) {
    const auto bits = static_cast<uint32_t>(raw);
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}
double double_of_raw(uint64_t raw) {
    double value;
    std::memcpy(&value, &raw, sizeof value);
    return value;
}

namespace {

int32_t int32_of_raw(uint64_t raw) {
    return static_cast<int32_t>(static_cast<uint32_t>(raw));
}
uint64_t raw_of_int32(int32_t value) {
    return static_cast<uint32_t>(value);
}

// A floating value as an integer type: truncated, saturated at the type's limits, NaN as 0.
template <typename T>
T saturate(double value) {
    if (std::isnan(value)) return 0;
    if (value <= static_cast<double>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    // The maximum of a 64-bit type is not a double; 2^63 is the first value beyond it.
    if (value >= -static_cast<double>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::max();
    return static_cast<T>(value);
}

float float_of_double(double value) {
    if (value > FLT_MAX) return std::numeric_limits<float>::infinity();
    if (value < -FLT_MAX) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(value);
}

bool is_floating(uint32_t value_class) {
    return (value_class & CLASS_FLOAT) != 0;
}

// Integer operators in the arithmetic of T (int32_t or int64_t), wrapping as the drive's
// processor does.
template <typename T>
bool integer_operator(int32_t command, T a, T b, T *out) {
    using U = std::make_unsigned_t<T>;
    constexpr int width = std::numeric_limits<U>::digits;
    const U ua = static_cast<U>(a), ub = static_cast<U>(b);
    switch (command) {
    case 91:
        *out = static_cast<T>(ua + ub);
        return true;
    case 92:
        *out = static_cast<T>(ua - ub);
        return true;
    case 93:
        *out = static_cast<T>(ua * ub);
        return true;
    case 94:
    case 101:
        if (b == 0) return false;
        // The one quotient that overflows wraps to the minimum; its remainder is 0.
        if (b == -1) {
            *out = command == 94 ? static_cast<T>(U{0} - ua) : T{0};
            return true;
        }
        *out = command == 94 ? static_cast<T>(a / b) : static_cast<T>(a % b);
        return true;
    case 95:
        *out = static_cast<T>(ua & ub);
        return true;
    case 96:
        *out = static_cast<T>(ua | ub);
        return true;
    case 97:
        *out = static_cast<T>(ua & ~ub);
        return true;
    case 98:
        *out = static_cast<T>(ua | ~ub);
        return true;
    case 99:
        *out = static_cast<T>(ua ^ ub);
        return true;
    case 100:
        *out = static_cast<T>(ua ^ ~ub);
        return true;
    case 172:
    case 173:
        if (b < 0 || b >= width) return false;
        // ">>" keeps the sign (arithmetic shift), "<<" shifts the bits out.
        *out = command == 172 ? static_cast<T>(a >> b) : static_cast<T>(ua << b);
        return true;
    case 174:
        *out = static_cast<T>(~ub);
        return true;
    default:
        return false;
    }
}

template <typename F>
bool floating_operator(int32_t command, F a, F b, F *out) {
    switch (command) {
    case 91:
        *out = a + b;
        return true;
    case 92:
        *out = a - b;
        return true;
    case 93:
        *out = a * b;
        return true;
    case 94:
        if (b == F{0}) return false;
        *out = a / b;
        return true;
    case 101:
        if (b == F{0}) return false;
        *out = std::fmod(a, b);
        return true;
    default:
        return false; // bit operators have no meaning on floating values
    }
}

template <typename T>
bool in_range(T value, T min, T max) {
    if (min == T{} && max == T{}) return true;
    return !(value < min) && !(max < value);
}

} // namespace

uint64_t convert_class(uint64_t raw, uint32_t from, uint32_t to) {
    from &= wire::VALUE_CLASS_MASK;
    to &= wire::VALUE_CLASS_MASK;
    if (from == to) return narrow_to_class(raw, to);
    if (!is_floating(from)) {
        const int64_t i =
            from == CLASS_INT64 ? static_cast<int64_t>(raw) : int64_t{int32_of_raw(raw)};
        switch (to) {
        case CLASS_INT32:
            return static_cast<uint32_t>(i);
        case CLASS_INT64:
            return static_cast<uint64_t>(i);
        case CLASS_FLOAT:
            return raw_of_float(static_cast<float>(i));
        default:
            return raw_of_double(static_cast<double>(i));
        }
    }
    const double d = from == CLASS_DOUBLE ? double_of_raw(raw) : double{float_of_raw(raw)};
    switch (to) {
    case CLASS_INT32:
        return raw_of_int32(saturate<int32_t>(d));
    case CLASS_INT64:
        return static_cast<uint64_t>(saturate<int64_t>(d));
    case CLASS_FLOAT:
        return raw_of_float(float_of_double(d));
    default:
        return raw_of_double(d);
    }
}

bool within_bounds(uint64_t raw, uint64_t min, uint64_t max, uint32_t value_class) {
    switch (value_class & wire::VALUE_CLASS_MASK) {
    case CLASS_INT32:
        return in_range(int32_of_raw(raw), int32_of_raw(min), int32_of_raw(max));
    case CLASS_INT64:
        return in_range(static_cast<int64_t>(raw), static_cast<int64_t>(min),
                        static_cast<int64_t>(max));
    case CLASS_FLOAT:
        return in_range(float_of_raw(raw), float_of_raw(min), float_of_raw(max));
    default:
        return in_range(double_of_raw(raw), double_of_raw(min), double_of_raw(max));
    }
}

bool is_unbounded(uint64_t min, uint64_t max, uint32_t value_class) {
    switch (value_class & wire::VALUE_CLASS_MASK) {
    case CLASS_INT32:
        return static_cast<uint32_t>(min) == 0 && static_cast<uint32_t>(max) == 0;
    case CLASS_INT64:
        return min == 0 && max == 0;
    case CLASS_FLOAT:
        return float_of_raw(min) == 0.0f && float_of_raw(max) == 0.0f;
    default:
        return double_of_raw(min) == 0.0 && double_of_raw(max) == 0.0;
    }
}

bool apply_operator(int32_t command, uint32_t value_class, uint64_t current, uint64_t operand,
                    uint64_t *result) {
    switch (value_class & wire::VALUE_CLASS_MASK) {
    case CLASS_INT32: {
        int32_t r;
        if (!integer_operator(command, int32_of_raw(current), int32_of_raw(operand), &r))
            return false;
        *result = raw_of_int32(r);
        return true;
    }
    case CLASS_INT64: {
        int64_t r;
        if (!integer_operator(command, static_cast<int64_t>(current), static_cast<int64_t>(operand),
                              &r))
            return false;
        *result = static_cast<uint64_t>(r);
        return true;
    }
    case CLASS_FLOAT: {
        float r;
        if (!floating_operator(command, float_of_raw(current), float_of_raw(operand), &r))
            return false;
        *result = raw_of_float(r);
        return true;
    }
    default: {
        double r;
        if (!floating_operator(command, double_of_raw(current), double_of_raw(operand), &r))
            return false;
        *result = raw_of_double(r);
        return true;
    }
    }
}

} // namespace ryn::sim
