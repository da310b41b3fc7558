// Value, register and axis formatters of the record-to-text direction.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "r2a_tables.hpp"
#include "trar2a.hpp"

namespace {

using namespace ryn::tra;

// A translator whose tables are filled by hand: type names, a few aliases and commands.
struct Formatting : ::testing::Test {
    TRA *tra = nullptr;
    char buffer[REC_TEXT_SIZE];

    void SetUp() override {
        ASSERT_EQ(_tra_create_base(&tra, 32, 0, 0, KIND_DIRECT_OFFLINE), 0);
        ryn::test::fill_test_tables(tra);
    }
    void TearDown() override { EXPECT_EQ(tra_destroy(&tra), 0); }

    Text text() { return Text(buffer, sizeof buffer); }
};

TEST_F(Formatting, DoublesInEngineeringNotation) {
    const double inf = std::numeric_limits<double>::infinity();
    // Value, significant digits, text.
    const std::tuple<double, int, const char *> rows[] = {
        {1500, 15, "1.5E3"},
        {0.5, 15, "0.5"},
        {0.01, 15, "10.0E-3"},
        {0, 15, "0.0"},
        {-0.0, 15, "0.0"}, // minus zero is not negative
        {std::nan(""), 15, "NaN"},
        {-inf, 15, "-Infinite"},
        {-2.5, 15, "-2.5"},
        {123456, 15, "123.456E3"},
        {1e-7, 15, "100.0E-9"},
        {1.0 / 3, 15, "0.333333333333333"}, // between 0.1 and 1: one digit more, no exponent
        {0.1, 15, "0.1"},
        {1e-320, 15, "9.99988867182683E-321"}, // subnormal: no infinite power of ten
        {std::numeric_limits<double>::max(), 15, "179.769313486231E306"}, // no rounding up to inf
        {1500, 1, "2.0E3"},
        {150, 0, "200.0"}, // fewer than one digit counts as one
        {999.9999999999999, 15, "1.0E3"},
    };
    for (auto [value, digits, expected] : rows) {
        Text out = text();
        _tra_format_double(tra, out, value, digits);
        EXPECT_STREQ(out.c_str(), expected) << value << " with " << digits << " digits";
    }
}

TEST_F(Formatting, FullPrecisionDoubles) {
    ryn::test::use_flags(tra, TRA_FFULL_PRECISION);
    const std::pair<double, const char *> rows[] = {
        {2.5, "2.5"},
        {1.0, "1.0"}, // the zero right after the full stop stays
        {0.1, "0.10000000000000000555"},
        {-1500, "-1500.0"},
        {std::nan(""), "nan"}, // no special text in this mode
    };
    for (auto [value, expected] : rows) {
        Text out = text();
        _tra_format_double(tra, out, value, 15);
        EXPECT_STREQ(out.c_str(), expected) << value;
    }
}

TEST_F(Formatting, ValuesByClassAndDisplayFormat) {
    // What, value class, the value's 8 bytes, display format, text.
    const std::tuple<const char *, uint32_t, uint64_t, int, const char *> rows[] = {
        {"int32 decimal", 0x00, 5, VOK_FORMAT_DECIMAL, "5"},
        {"int64 decimal", 0x40, 5, VOK_FORMAT_DECIMAL, "5L"},
        {"int64 hex", 0x40, 5, VOK_FORMAT_HEX, "0x5L"},
        {"int32 hex", 0x00, 255, VOK_FORMAT_HEX, "0xFF"},
        {"negative int32 hex", 0x00, uint32_t(-1), VOK_FORMAT_HEX, "0xFFFFFFFF"},
        {"float decimal", 0x20, std::bit_cast<uint32_t>(2.5f), VOK_FORMAT_DECIMAL, "2.5F"},
        {"double decimal", 0x60, std::bit_cast<uint64_t>(2.5), VOK_FORMAT_DECIMAL, "2.5D"},
        {"float floating", 0x20, std::bit_cast<uint32_t>(0.015625f), VOK_FORMAT_FLOAT,
         "15.625E-3F"},
        {"int32 floating", 0x00, 3, VOK_FORMAT_FLOAT, "3.0F"},
        {"float hex", 0x20, 0x40200000, VOK_FORMAT_HEX, "0x40200000"},
        {"IP address", 0x00, 0xC0A80001, VOK_FORMAT_IP, "\"192.168.0.1\""},
        {"string", 0x00, 0x64636261, VOK_FORMAT_STRING, "\"abcd\""},
        {"empty string", 0x00, 0, VOK_FORMAT_STRING, "\"\""},
        {"unknown format", 0x00, 42, 99, "42"},
        {"32-bit class ignores the high word", 0x00, 0xFFFFFFFF00000007ull, 3, "7"},
    };
    for (auto [name, value_class, bits, format, expected] : rows) {
        uint8_t value[8];
        store_u64(value, bits);
        Text out = text();
        _tra_format_value(tra, out, value_class, value, false, format, 1);
        EXPECT_STREQ(out.c_str(), expected) << name;
    }
}

TEST_F(Formatting, StringElementsJoinIntoOneQuotedString) {
    // "abcdefg" over two elements, written one after the other with a comma between, as the
    // writers of lists do: the second continues the first's string.
    Text out = text();
    uint8_t value[8] = {};
    out.append("K30=");
    store_u32(value, 0x64636261); // "abcd"
    _tra_format_value(tra, out, 0, value, false, VOK_FORMAT_STRING, 1);
    out.append(',');
    store_u32(value, 0x00676665); // "efg"
    _tra_format_value(tra, out, 0, value, false, VOK_FORMAT_STRING, 1);
    EXPECT_STREQ(out.c_str(), "K30=\"abcdefg\"");

    Text chunk = text();
    EXPECT_TRUE(_tra_format_string_chunk(chunk, 0x64636261));
    EXPECT_FALSE(_tra_format_string_chunk(chunk, 0x64006261)) << "a zero byte ends the string";
    EXPECT_STREQ(chunk.c_str(), "abcdab");
}

// An ISO converter for tests: each axis multiplies by its own factor; factor 0 refuses.
struct Converter {
    double factor[64] = {};
    std::vector<std::string> calls;

    static int convert(OXB_BUS *, void *drive, double *iso, uint32_t value_class,
                       int32_t conversion, int32_t axis, int32_t direction, void *context) {
        auto *self = static_cast<Converter *>(context);
        int32_t raw;
        std::memcpy(&raw, drive, 4);
        self->calls.push_back(std::to_string(axis) + "/" + std::to_string(value_class) + "/" +
                              std::to_string(conversion) + "/" + std::to_string(direction));
        if (self->factor[axis] == 0) return -1;
        *iso = raw * self->factor[axis];
        return 0;
    }
};

TEST_F(Formatting, ValuesConvertedToIsoUnits) {
    struct Row {
        const char *name;
        uint32_t flags;
        bool convert, installed;
        uint64_t mask;
        double f0, f1; // factors of axes 0 and 1
        const char *expected;
    } rows[] = {
        {"one axis converts", TRA_FISO_CONVERT, true, true, 0x1, 0.5, 0, "2.5"},
        {"two axes agree", TRA_FISO_CONVERT, true, true, 0x3, 0.5, 0.5, "2.5"},
        {"a refusing axis is skipped", TRA_FISO_CONVERT, true, true, 0x3, 0, 0.001, "5.0E-3"},
        {"axes disagree: plain decimal", TRA_FISO_CONVERT, true, true, 0x3, 0.5, 2, "5"},
        {"no axis converts: display format", TRA_FISO_CONVERT, true, true, 0x3, 0, 0, "0x5"},
        {"translator does not convert", 0, true, true, 0x1, 0.5, 0, "0x5"},
        {"register has no conversion", TRA_FISO_CONVERT, false, true, 0x1, 0.5, 0, "0x5"},
        {"no converter installed", TRA_FISO_CONVERT, true, false, 0x1, 0.5, 0, "0x5"},
    };
    for (const Row &r : rows) {
        Converter c;
        c.factor[0] = r.f0;
        c.factor[1] = r.f1;
        ASSERT_EQ(tra_oxcom_set_iso_converter(tra, r.installed ? &Converter::convert : nullptr, &c),
                  0);
        ryn::test::use_flags(tra, r.flags);
        uint8_t value[8] = {5, 0, 0, 0, 0xEE, 0xEE, 0xEE, 0xEE}; // high word: not the value's
        Text out = text();
        _tra_format_value(tra, out, 0x00, value, r.convert, VOK_FORMAT_HEX, r.mask);
        EXPECT_STREQ(out.c_str(), r.expected) << r.name;
    }
}

// Axes whose converted values are equal numbers agree, whatever their bits.
TEST_F(Formatting, IsoResultsOfSeveralAxesCompareAsNumbers) {
    struct Fixed {
        static int convert(OXB_BUS *, void *, double *iso, uint32_t, int32_t, int32_t axis, int32_t,
                           void *context) {
            *iso = static_cast<const double *>(context)[axis];
            return 0;
        }
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Row {
        const char *name;
        double axis0, axis1;
        const char *expected;
    } rows[] = {
        {"equal values", 2.5, 2.5, "2.5"},
        {"zero and minus zero agree", 0.0, -0.0, "0.0"},
        {"minus zero and zero agree", -0.0, 0.0, "0.0"},
        {"two NaNs do not agree", nan, nan, "5"},
        {"a NaN and a number do not agree", 1.0, nan, "5"},
    };
    ryn::test::use_flags(tra, TRA_FISO_CONVERT);
    for (const Row &r : rows) {
        double results[2] = {r.axis0, r.axis1};
        ASSERT_EQ(tra_oxcom_set_iso_converter(tra, &Fixed::convert, results), 0);
        ryn::tra::_tra_take_settings(tra);
        uint8_t value[8] = {5};
        Text out = text();
        _tra_format_value(tra, out, 0x00, value, true, VOK_FORMAT_HEX, 0x3);
        EXPECT_STREQ(out.c_str(), r.expected) << r.name;
    }
}

TEST_F(Formatting, ConverterReceivesAxisClassFormatAndDirection) {
    Converter c;
    c.factor[2] = 1;
    c.factor[5] = 1;
    ASSERT_EQ(tra_oxcom_set_iso_converter(tra, &Converter::convert, &c), 0);
    ryn::test::use_flags(tra, TRA_FISO_CONVERT);
    uint8_t value[8] = {};
    store_u32(value, std::bit_cast<uint32_t>(1.5f));
    Text out = text();
    _tra_format_value(tra, out, 0x20 | 2, value, true, 21, (1u << 2) | (1u << 5));
    EXPECT_EQ(c.calls, (std::vector<std::string>{"2/32/21/1", "5/32/21/1"}))
        << "value class bits only, the display format as conversion code, direction 1";
}

TEST_F(Formatting, AxisSuffixes) {
    const std::pair<uint64_t, const char *> rows[] = {
        {0, ""},
        {0x1, ".0"},
        {0x5, ".(0,2)"},
        {1ull << 62, ".62"},
        {1ull << 63, ""}, // bit 63 is never written
        {(1ull << 63) | 0x8, ".3"},
        {0x7FFFFFFFFFFFFFFFull, ".!"},
        {~0ull, ".!"},
        {0x7FFFFFFFFFFFFFFEull, nullptr}, // all but axis 0: a list of 62 axes
    };
    for (auto [mask, expected] : rows) {
        Text out = text();
        _tra_format_axes(out, mask);
        std::string list = ".(";
        for (int a = 1; a < 63; ++a)
            list += std::to_string(a) + (a < 62 ? "," : ")");
        EXPECT_EQ(out.c_str(), std::string(expected ? expected : list)) << std::hex << mask;
    }
}

TEST_F(Formatting, AliasesByTypeIndexAndAxes) {
    const auto &table = tra->registers;
    const AliasIndex &index = tra->register_aliases;
    EXPECT_EQ(_tra_find_alias(table, index, 2, 1, 0x2), &table[0]) << "the first match wins";
    EXPECT_EQ(_tra_find_alias(table, index, 2, 1, 0x4), &table[0]);
    EXPECT_EQ(_tra_find_alias(table, index, 2, 7, 0x1), nullptr) << "no common axis";
    EXPECT_EQ(_tra_find_alias(table, index, 2, 7, 1ull << 63), &table[2]);
    EXPECT_EQ(_tra_find_alias(table, index, 34, 1, ~0ull), nullptr) << "KF1 is not K1";
    EXPECT_EQ(_tra_find_alias(table, AliasIndex{}, 2, 1, ~0ull), nullptr) << "nothing indexed";
    // The first in table order wins whatever order the index was built in.
    tra->registers[0].axes = 0x1;
    EXPECT_EQ(_tra_find_alias(table, index, 2, 1, 0x3), &table[0]);
    EXPECT_EQ(_tra_find_alias(table, index, 2, 1, 0x2), &table[1]);
}

// A register reference of a command record: type, index, subindex and axis.
RegisterAddress reg(uint32_t type, uint32_t index, uint32_t sub, uint32_t axis) {
    return command_register(type, encode_register(index, sub, axis));
}

TEST_F(Formatting, RegisterNames) {
    // What, flags, register, mask, options, text.
    const std::tuple<const char *, uint32_t, RegisterAddress, int64_t, int, const char *> rows[] = {
        {"axis from the reference", 0, reg(2, 1, 0, 3), 0, 0, "K1.3"},
        {"broadcast reference", 0, reg(2, 1, 0, 63), 0, 0, "*K1"},
        {"all-axes reference", 0, reg(2, 1, 0, 64), 0, 0, "K1"},
        {"axis from the mask", 0, reg(2, 1, 0, 64), 0x5, 1, "K1.(0,2)"},
        {"broadcast mask", 0, reg(2, 1, 0, 3), int64_t(1ull << 63 | 1), 1, "*K1.0"},
        {"subindex", 0, reg(2, 5, 2, 0), 0, 0, "K5:2.0"},
        {"subindex with option 2", 0, reg(2, 5, 2, 0), 0, 2, "K5:2.0"},
        {"class in the type", 0, reg(98, 1, 0, 0), 0, 0, "KD1.0"},
        {"whole type", 0, reg(2, 65534, 0, 0), 0, 0, "KY.0"},
        {"accumulator", 0, reg(1, 65535, 0, 0), 0, 0, "XAC.0"},
        {"address keeps its whole word", 0, reg(7, 1234, 0, 2), 0, 0, "A33555666.2"},
        {"address of another value class", 0, reg(7 | 64, 1234, 0, 2), 0, 0, "A33555666.2"},
        {"type without a name", 0, reg(31, 5, 0, 0), 0, 0, "??5.0"},
        {"alias", TRA_FUSE_ALIASES, reg(2, 1, 0, 0), 0, 0, "POS_KP.0"},
        {"alias with a subindex", TRA_FUSE_ALIASES, reg(2, 1, 1, 4), 0, 0, "POS_KP:1.4"},
        {"alias of other axes", TRA_FUSE_ALIASES, reg(2, 7, 0, 0), 0, 0, "K7.0"},
        {"alias on its axis", TRA_FUSE_ALIASES, reg(2, 7, 0, 63), 0, 0, "*CTRL_K7"},
        {"aliases off", 0, reg(2, 1, 0, 0), 0, 0, "K1.0"},
        {"vector element", 0, element_register(15 | ELEMENT_REF_TAG_BIT, encode_element(1, 2)), 0x1,
         3, "V1[2].0"},
        {"vector element 0 with option 2", 0,
         element_register(15 | ELEMENT_REF_TAG_BIT, encode_element(1, 0)), 0x1, 3, "V1.0"},
        {"vector as a value", 0, element_value_register(15, encode_element_value_register(1, 3, 5)),
         0, 0, "V1:3.5"},
    };
    for (auto [name, flags, reg, mask, options, expected] : rows) {
        ryn::test::use_flags(tra, flags);
        Text out = text();
        int rows_out = -1, columns_out = -1;
        EXPECT_EQ(_tra_format_register(tra, &out, mask, reg, 1, options, &rows_out, &columns_out),
                  0);
        EXPECT_STREQ(out.c_str(), expected) << name;
        EXPECT_EQ(rows_out + columns_out, 2) << name << ": no dictionary, one row and column";
    }
    EXPECT_EQ(_tra_format_register(tra, nullptr, 0, command_register(2, 1), 1, 0, nullptr, nullptr),
              TRA_EBADPARAM);
}

TEST_F(Formatting, CommentColumn) {
    // Flags, length of the line before the comment, what fills the gap.
    const std::tuple<uint32_t, int, const char *> rows[] = {
        {0, 10, "                              "}, // blanks up to column 40
        {0, 39, " "},
        {0, 60, " "},
        {TRA_FTAB, 10, "\t"},
        {TRA_FTABS8, 10, "\t\t\t\t"},         // (39 - 10) / 8 + 1
        {TRA_FTABS4, 10, "\t\t\t\t\t\t\t\t"}, // (39 - 10) / 4 + 1
        {TRA_FTABS4, 39, " "},
        {TRA_FTABS4 | TRA_FTABS8, 10, "\t\t\t\t"}, // tabs of 8 win
    };
    for (auto [flags, length, fill] : rows) {
        ryn::test::use_flags(tra, flags);
        Text out = text();
        out.append(std::string(std::size_t(length), 'x').c_str());
        _tra_append_comment(tra, out, "add to ", "Position gain");
        EXPECT_EQ(std::string(out.c_str()).substr(std::size_t(length)),
                  std::string(fill) + "; add to Position gain")
            << "flags " << std::hex << flags << std::dec << " length " << length;
    }
}

TEST(Text, AppendsNeverPassTheBuffer) {
    char buffer[8];
    std::memset(buffer, '#', sizeof buffer);
    Text out(buffer, 6);
    out.append("abc");
    out.appendf("%d", 12345);
    EXPECT_STREQ(buffer, "abc12");
    EXPECT_TRUE(out.cut());
    EXPECT_EQ(buffer[6], '#') << "nothing written past the size";
    out.append('z');
    out.append("more");
    EXPECT_STREQ(buffer, "abc12");
    EXPECT_EQ(out.length(), 5);

    Text more = Text::at_end(buffer, 8);
    EXPECT_EQ(more.length(), 5);
    more.append("xyz");
    EXPECT_STREQ(buffer, "abc12xy");
    EXPECT_TRUE(more.ends_with("xy"));
    more.truncate(3);
    EXPECT_STREQ(buffer, "abc");

    Text none(nullptr, 10);
    none.append("abc");
    EXPECT_EQ(none.length(), 0);
    EXPECT_STREQ(none.c_str(), "");
}

} // namespace
