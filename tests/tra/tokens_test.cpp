// The command text tokenizer: separators, words, names, numbers, axis lists, subscripts, integers.
#include <gtest/gtest.h>

#include <cstdlib>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "traa2r_tokens.hpp"
#include "trace_helpers.hpp"

namespace {

using namespace ryn::tra;
using ryn::test::Frame;
using ryn::test::trace;

TEST(Separator, CodesAndAdvance) {
    // Text, code, characters taken.
    const std::tuple<const char *, uint32_t, std::size_t> rows[] = {
        {"=5", 61, 1},         {"+=5", 15659, 2},     {"<<=2", 4013116, 3},
        {"=[[1", 5987133, 3},  {"=-5", 61, 1}, // "-" only in front: "=" then "-5"
        {":*K1", ':', 1},                      // "*" only in front too
        {"-=1", sep("-="), 2},                 // in front they are taken
        {"--5", '-', 1},       {"-.5", sep("-."), 2}, {"],[1", sep("],["), 3},
        {"]],[1", 0, 0}, // a run of four is refused and not consumed
        {"K1", 0, 0},          {"]", ']', 1},
    };
    for (auto [text, code, advance] : rows) {
        std::size_t pos = 0;
        EXPECT_EQ(_tra_read_separator(text, &pos), code) << text;
        EXPECT_EQ(pos, advance) << text;
    }
    EXPECT_EQ(sep("="), 61u);
    EXPECT_EQ(sep("=[["), 5987133u);
}

TEST(Number, TagsValuesAndLength) {
    struct Row {
        const char *text;
        int32_t tag;
        std::size_t length;
        int64_t integer; // for integer tags
        double real;     // for float, double and ISO tags
    } rows[] = {
        {"0X10L", TAG_INT64, 5, 16, 0},
        {"0X10", TAG_INT32, 4, 16, 0},
        {"0XFFFFFFFF", TAG_INT32, 10, 0xFFFFFFFF, 0},
        {"0X1FFFFFFFF", TAG_NAME, 0, 0, 0},
        {"0XFFFFFFFFFFFFFFFFL", TAG_INT64, 19, -1, 0},
        {"0X1FFFFFFFFFFFFFFFFL", TAG_NAME, 0, 0, 0},
        {"0X1D", TAG_INT32, 4, 29, 0},
        {"1.5F", TAG_FLOAT, 4, 0, 1.5},
        {"1.5D", TAG_DOUBLE, 4, 0, 1.5},
        {"1.5", TAG_ISO, 3, 0, 1.5},
        {"1E5", TAG_ISO, 3, 0, 1e5},
        {"1E5D", TAG_DOUBLE, 4, 0, 1e5},
        {"-0.5", TAG_ISO, 4, 0, -0.5},
        {"7", TAG_INT32, 1, 7, 0},
        {"-5", TAG_INT32, 2, 0xFFFFFFFB, 0},
        {"010", TAG_INT32, 3, 8, 0}, // a leading zero reads octal
        {"-0X10", TAG_INT32, 5, 0xFFFFFFF0, 0},
        {"4294967295", TAG_INT32, 10, 0xFFFFFFFF, 0},
        {"4294967296", TAG_NAME, 0, 0, 0},
        {"4294967296L", TAG_INT64, 11, 4294967296, 0},
        {"99999999999999999999", TAG_NAME, 0, 0, 0},
        {"99999999999999999999L", TAG_NAME, 0, 0, 0},
        {"99999999999999999999D", TAG_DOUBLE, 21, 0, 1e20},
        {"5K", TAG_INT32, 1, 5, 0},
        {"1.5X", TAG_ISO, 3, 0, 1.5},
        {"NAN", TAG_NAME, 0, 0, 0},
        {"K12", TAG_NAME, 0, 0, 0},
        {"", TAG_NAME, 0, 0, 0},
        {"-", TAG_NAME, 0, 0, 0},
    };
    for (const Row &r : rows) {
        Number n = _tra_read_number(r.text);
        EXPECT_EQ(n.tag, r.tag) << r.text;
        if (n.tag == TAG_NAME) continue;
        EXPECT_EQ(n.length, r.length) << r.text;
        int64_t i64;
        int32_t i32;
        float f;
        double d;
        std::memcpy(&i64, n.value, 8);
        std::memcpy(&i32, n.value, 4);
        std::memcpy(&f, n.value, 4);
        std::memcpy(&d, n.value, 8);
        switch (n.tag) {
        case TAG_INT32:
            EXPECT_EQ(static_cast<uint32_t>(i32), static_cast<uint32_t>(r.integer)) << r.text;
            EXPECT_EQ(n.value[4] | n.value[5] | n.value[6] | n.value[7], 0) << r.text;
            break;
        case TAG_INT64:
            EXPECT_EQ(i64, r.integer) << r.text;
            break;
        case TAG_FLOAT:
            EXPECT_EQ(f, static_cast<float>(r.real)) << r.text;
            break;
        default:
            EXPECT_EQ(d, r.real) << r.text;
        }
    }
}

// Whole numbers with a "D" or "F" suffix give the double that the standard conversion of their
// digits gives, up to the 64-bit limits and around the last exact doubles.
TEST(Number, WholeNumbersWithSuffixesReadAsTheStandardConversion) {
    std::vector<std::string> digits = {"-2147483648", "9007199254740993", "-9007199254740993",
                                       "18446744073709551615", "-9223372036854775808"};
    uint64_t x = 0x9E3779B97F4A7C15ull;
    for (int i = 0; i < 200; ++i) {
        x ^= x << 13, x ^= x >> 7, x ^= x << 17;
        digits.push_back(std::to_string(x >> (i % 60)));
    }
    for (const std::string &d : digits) {
        const double expected = std::strtod(d.c_str(), nullptr);
        Number n = _tra_read_number((d + "D").c_str());
        ASSERT_EQ(n.tag, TAG_DOUBLE) << d;
        double got;
        std::memcpy(&got, n.value, 8);
        EXPECT_EQ(got, expected) << d;
        n = _tra_read_number((d + "F").c_str());
        ASSERT_EQ(n.tag, TAG_FLOAT) << d;
        float f;
        std::memcpy(&f, n.value, 4);
        EXPECT_EQ(f, static_cast<float>(expected)) << d;
    }
}

TEST(Word, ReaderRules) {
    // Text, whether numbers are read whole, buffer size, the word and the characters taken.
    const std::tuple<const char *, bool, std::size_t, const char *, std::size_t> rows[] = {
        {"K12=5", true, 64, "K12", 3},
        {"1.5=2", true, 64, "1.5", 3},
        {"1.5=2", false, 64, "1", 1},
        {"-5,3", true, 64, "-5", 2},
        {"1E+5,2", true, 64, "1E+5", 4},
        {"1.5F,2", true, 64, "1.5F", 4},
        {"\"A,B=C\"=1", true, 64, "\"A,B=C\"", 7},
        {"\"ABC", true, 64, "\"ABC", 4},
        {"(1,(2,3))X", true, 64, "(1,(2,3))", 9},
        {"(1,2", true, 64, "(1,2", 4},
        {"ABCDEFG", true, 4, "ABC", 3},
        {"\"ABCDEF\"", true, 4, "\"AB", 3},
        {"(1,2,3)", true, 4, "(1,", 3},
        {"123456", true, 4, "123", 3},
        {"=5", true, 64, "", 0},
    };
    for (auto [text, numbers, size, word, taken] : rows) {
        std::vector<char> out(size, '?');
        EXPECT_EQ(_tra_read_word(text, out.data(), size, numbers), taken) << text;
        EXPECT_STREQ(out.data(), word) << text;
    }
}

TEST(Word, NameReaderKeepsCommasAndBrackets) {
    const std::pair<const char *, const char *> rows[] = {
        {"3,4]=5", "3,4]"}, {"1].2", "1]"}, {"1]", "1]"}, {"=", ""}, {"A[1],B:2", "A[1],B"}};
    for (auto [text, name] : rows) {
        char out[16];
        EXPECT_EQ(_tra_read_name(text, out, sizeof out), std::strlen(name)) << text;
        EXPECT_STREQ(out, name) << text;
    }
}

TEST(MaskEnum, AxisLists) {
    const std::tuple<const char *, int, uint64_t> rows[] = {
        {"(1,3,*)", 0, 0x800000000000000Aull},
        {"(62)", 0, 1ull << 62},
        {"(63)", TRA_ERANGE, 0},
        {"(-1)", TRA_ERANGE, 0},
        {"(99999999999999999999)", TRA_ERANGE, 0},
        {"(1;2)", TRA_ECMDSYNTAX, 0},
        {"(1*)", TRA_ECMDSYNTAX, 0},
        {"()", 0, 1},
        {"(1,)", 0, 3},
        {"(*,*)", 0, 1ull << 63},
        {"1,2)", TRA_ECMDSYNTAX, 0},
        {"(1,2", TRA_ECMDSYNTAX, 0},
        {"(", TRA_ECMDSYNTAX, 0},
    };
    for (auto [line, rc, expected] : rows) {
        SCOPED_TRACE(line);
        std::string text = line;
        uint64_t mask = 0xDEAD;
        sup_trace_clear();
        EXPECT_EQ(_parse_mask_enum(text.data(), &mask), rc);
        if (rc == 0) {
            EXPECT_EQ(mask, expected);
            continue;
        }
        EXPECT_EQ(mask, 0xDEADu) << "nothing written on failure";
        EXPECT_EQ(trace(), (std::vector<Frame>{{"traa2r", trace()[0].line, "_parse_mask_enum", rc,
                                                "", trace()[0].detail}}));
    }
    uint64_t mask = 0;
    EXPECT_EQ(_parse_mask_enum(nullptr, &mask), TRA_EINTERNAL);
}

TEST(Subscript, RowAndColumn) {
    // Text, result, row and whether given, column and whether given.
    const std::tuple<const char *, int, uint32_t, uint8_t, uint32_t, uint8_t> rows[] = {
        {"3,4]", 0, 3, 1, 4, 1},
        {"7]", 0, 7, 1, 0, 0},
        {"16777215]", 0, 16777215, 1, 0, 0},
        {"16777216]", TRA_ERANGE, 0, 0, 0, 0},
        {"1,16777216]", TRA_ERANGE, 0, 0, 0, 0},
        {"-1]", TRA_ERANGE, 0, 0, 0, 0},
        {"3", TRA_ECMDSYNTAX, 0, 0, 0, 0},
        {"3;4]", TRA_ECMDSYNTAX, 0, 0, 0, 0},
        {"3,4,5]", TRA_ECMDSYNTAX, 0, 0, 0, 0},
        {"3,4X]", TRA_ECMDSYNTAX, 0, 0, 0, 0},
        {"3]]", TRA_ECMDSYNTAX, 0, 0, 0, 0},
        {"", TRA_ECMDSYNTAX, 0, 0, 0, 0},
    };
    for (auto [line, rc, row, row_given, column, column_given] : rows) {
        SCOPED_TRACE(line);
        std::string text = line;
        uint32_t r = 99, c = 99;
        uint8_t r_given = 0, c_given = 0;
        EXPECT_EQ(_parse_vector_subscript(text.data(), &r, &r_given, &c, &c_given), rc);
        if (rc != 0) {
            EXPECT_EQ(trace()[0].function, "_parse_vector_subscript");
            continue;
        }
        EXPECT_EQ(std::tie(r, r_given, c, c_given), std::tie(row, row_given, column, column_given));
    }
}

TEST(Integers, Str2Long) {
    // Text, limit of the characters after the number, result and value.
    const std::tuple<const char *, int, int, int32_t> rows[] = {
        {"12", 63, 0, 12},
        {"-5", 1024, 0, -5},
        {"--5", 1024, 0, 5},
        {"010", 63, 0, 10}, // never octal
        {"0X1F", 63, 0, 31},
        {"3.9", 1024, 0, 3}, // the rest is skipped under a high limit
        {"5X", 1024, 0, 5},
        {"5X", 63, TRA_ECMDSYNTAX, 0},
        {"X5", 63, TRA_ECMDSYNTAX, 0},
        {"2147483647", 63, 0, 2147483647},
        {"4294967295", 63, 0, -1}, // through the unsigned reading
        {"4294967296", 63, TRA_ERANGE, 0},
        {"", 1024, TRA_ECMDSYNTAX, 0},
        {"-", 1024, TRA_ECMDSYNTAX, 0},
        {"ABC", 1024, TRA_ECMDSYNTAX, 0}, // no digit at all
    };
    for (auto [line, limit, rc, expected] : rows) {
        std::string text = line;
        int32_t value = 12345;
        sup_trace_clear();
        EXPECT_EQ(_str2long(text.data(), limit, &value), rc) << line;
        EXPECT_EQ(rc == 0 ? value : 0, expected) << line;
        EXPECT_TRUE(rc == 0 || trace()[0].function == "_str2long") << line;
    }
}

TEST(Integers, Str2Int64NegatesTwice) {
    // Text, result, value and the text after the call: a negative number is rewritten in place.
    const std::tuple<const char *, int, int64_t, const char *> rows[] = {
        {"5", 0, 5, "5"},
        {"-5", 0, 5, "-5"},
        {"-005", 0, 5, "-0-5"},
        {"0X10", 0, 16, "0X10"},
        {"-0X10", 0, 16, "-0X10"},
        {"18446744073709551615", 0, -1, "18446744073709551615"},
        {"18446744073709551616", TRA_ERANGE, 0, "18446744073709551616"},
        {"9223372036854775807", 0, INT64_MAX, "9223372036854775807"},
        {"A1", TRA_ECMDSYNTAX, 0, "A1"},
        {"1A", TRA_ECMDSYNTAX, 0, "1A"},
    };
    for (auto [line, rc, expected, after] : rows) {
        std::string text = line;
        int64_t value = 0;
        EXPECT_EQ(_str2int64(text.data(), &value), rc) << line;
        EXPECT_STREQ(text.c_str(), after) << line;
        EXPECT_EQ(value, expected) << line;
    }
}

} // namespace
