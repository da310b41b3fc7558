// Register values by value class: conversions, range tests and the compound operators.
#include "sim/values.hpp"

#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <type_traits>

#include "wire/wire.hpp"

namespace ryn::sim {

using wire::CLASS_DOUBLE;
using wire::CLASS_FLOAT;
using wire::CLASS_INT32;
using wire::CLASS_INT64;

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

// An arithmetic operation in T: integers wrap as the drive's processor does (computed unsigned),
// floating values keep their own arithmetic.
template <typename T, typename Op>
T arithmetic(T a, T b, Op op) {
    if constexpr (std::is_integral_v<T>) {
        using U = std::make_unsigned_t<T>;
        return static_cast<T>(static_cast<U>(op(static_cast<U>(a), static_cast<U>(b))));
    } else {
        return op(a, b);
    }
}

// Integer operators for T = int32_t or int64_t, floating ones for float or double.
template <typename T>
bool operate(int32_t command, T a, T b, T *out) {
    switch (command) {
    case 91:
        *out = arithmetic(a, b, std::plus<>{});
        return true;
    case 92:
        *out = arithmetic(a, b, std::minus<>{});
        return true;
    case 93:
        *out = arithmetic(a, b, std::multiplies<>{});
        return true;
    case 94:
    case 101:
        if (b == T{0}) return false;
        if constexpr (std::is_integral_v<T>) {
            // The one quotient that overflows wraps to the minimum; its remainder is 0.
            if (b == T{-1}) {
                *out = command == 94 ? arithmetic(T{0}, a, std::minus<>{}) : T{0};
                return true;
            }
            *out = command == 94 ? static_cast<T>(a / b) : static_cast<T>(a % b);
        } else {
            *out = command == 94 ? a / b : std::fmod(a, b);
        }
        return true;
    default:
        break;
    }
    if constexpr (std::is_integral_v<T>) {
        using U = std::make_unsigned_t<T>;
        constexpr int width = std::numeric_limits<U>::digits;
        const U ua = static_cast<U>(a), ub = static_cast<U>(b);
        switch (command) {
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
    return false; // bit operators have no meaning on floating values
}

// A raw value as T, and back.
template <typename T>
T load(uint64_t raw) {
    if constexpr (std::is_same_v<T, float>)
        return float_of_raw(raw);
    else if constexpr (std::is_same_v<T, double>)
        return double_of_raw(raw);
    else
        return static_cast<T>(raw); // the low word for int32_t
}
template <typename T>
uint64_t store(T value) {
    if constexpr (std::is_same_v<T, float>)
        return raw_of_float(value);
    else if constexpr (std::is_same_v<T, double>)
        return raw_of_double(value);
    else
        return static_cast<std::make_unsigned_t<T>>(value);
}

// Calls f with a value of the C++ type of a value class.
template <typename F>
auto by_class(uint32_t value_class, F f) {
    switch (value_class & wire::VALUE_CLASS_MASK) {
    case CLASS_INT32:
        return f(int32_t{});
    case CLASS_INT64:
        return f(int64_t{});
    case CLASS_FLOAT:
        return f(float{});
    default:
        return f(double{});
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
    return by_class(value_class, [&](auto type) {
        using T = decltype(type);
        return in_range(load<T>(raw), load<T>(min), load<T>(max));
    });
}

bool is_unbounded(uint64_t min, uint64_t max, uint32_t value_class) {
    return by_class(value_class, [&](auto type) {
        using T = decltype(type);
        return load<T>(min) == T{} && load<T>(max) == T{};
    });
}

bool apply_operator(int32_t command, uint32_t value_class, uint64_t current, uint64_t operand,
                    uint64_t *result) {
    return by_class(value_class, [&](auto type) {
        using T = decltype(type);
        T r;
        if (!operate(command, load<T>(current), load<T>(operand), &r)) return false;
        *result = store(r);
        return true;
    });
}

} // namespace ryn::sim
