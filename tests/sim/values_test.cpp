// Conversions between value classes and range tests at their edges.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "sim/values.hpp"

namespace {

using namespace ryn::sim;

constexpr uint32_t I32 = 0x00, F32 = 0x20, I64 = 0x40, F64 = 0x60;

struct ConvertCase {
    uint64_t raw;
    uint32_t from, to;
    uint64_t expected;
};

class Convert : public ::testing::TestWithParam<ConvertCase> {};

TEST_P(Convert, KeepsWhatTheTargetCanHold) {
    const ConvertCase &c = GetParam();
    EXPECT_EQ(convert_class(c.raw, c.from, c.to), c.expected);
}

const double inf = std::numeric_limits<double>::infinity();
const double nan = std::numeric_limits<double>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(
    Edges, Convert,
    ::testing::Values(
        // Integers: sign extension, the low word of a 64-bit value, exact floating values.
        ConvertCase{0xFFFFFFFF, I32, I64, ~uint64_t{0}},
        ConvertCase{0x1FFFFFFFE, I64, I32, 0xFFFFFFFE},
        ConvertCase{0xFFFFFFFB, I32, F64, raw_of_double(-5.0)},
        ConvertCase{0xFFFFFFFB, I32, F32, raw_of_float(-5.0f)},
        // Floating values to integers: truncated, saturated, NaN as 0.
        ConvertCase{raw_of_double(-2.9), F64, I32, 0xFFFFFFFE},
        ConvertCase{raw_of_double(3e9), F64, I32, 0x7FFFFFFF},
        ConvertCase{raw_of_double(-3e9), F64, I32, 0x80000000},
        ConvertCase{raw_of_double(inf), F64, I64, 0x7FFFFFFFFFFFFFFF},
        ConvertCase{raw_of_double(9.3e18), F64, I64, 0x7FFFFFFFFFFFFFFF},
        ConvertCase{raw_of_double(-inf), F64, I64, 0x8000000000000000},
        ConvertCase{raw_of_double(nan), F64, I32, 0}, ConvertCase{raw_of_float(2.5f), F32, I64, 2},
        // Doubles beyond the float range become infinities; floats widen exactly.
        ConvertCase{raw_of_double(1e300), F64, F32,
                    raw_of_float(std::numeric_limits<float>::infinity())},
        ConvertCase{raw_of_double(-1e300), F64, F32,
                    raw_of_float(-std::numeric_limits<float>::infinity())},
        ConvertCase{raw_of_float(0.1f), F32, F64, raw_of_double(double{0.1f})},
        // The same class only drops what the class does not carry.
        ConvertCase{0xABCD00000005, I32, I32, 5},
        ConvertCase{0xABCD00000005, I64, I64, 0xABCD00000005}));

struct BoundsCase {
    uint64_t raw, min, max;
    uint32_t cls;
    bool within;
};

class Bounds : public ::testing::TestWithParam<BoundsCase> {};

TEST_P(Bounds, CompareInTheClass) {
    const BoundsCase &c = GetParam();
    EXPECT_EQ(within_bounds(c.raw, c.min, c.max, c.cls), c.within);
}

INSTANTIATE_TEST_SUITE_P(
    Edges, Bounds,
    ::testing::Values(BoundsCase{0xFFFFFFFF, 0xFFFFFFF6, 10, I32, true}, // -1 in -10..10
                      BoundsCase{11, 0xFFFFFFF6, 10, I32, false},
                      BoundsCase{0xFFFFFFFF, 0, 0, I32, true}, // 0 and 0: no range
                      BoundsCase{~uint64_t{0}, 0, 10, I64, false},
                      BoundsCase{raw_of_float(0.5f), raw_of_float(0), raw_of_float(1), F32, true},
                      BoundsCase{raw_of_float(-0.5f), raw_of_float(0), raw_of_float(1), F32, false},
                      BoundsCase{raw_of_double(nan), raw_of_double(0), raw_of_double(1), F64, true},
                      BoundsCase{raw_of_double(1e12), raw_of_double(-1), raw_of_double(1e12), F64,
                                 true}));

} // namespace
