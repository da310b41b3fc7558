// Version text and packed versions, both ways.
#include <gtest/gtest.h>

#include <string>

#include "ryn/sup.h"

namespace {

TEST(Version, TextAndPackedFormsAgree) {
    struct Row {
        const char *text;
        uint32_t packed;
    } rows[] = {
        {"4.27B", 0x04278100},  {"3.12B", 0x03128100},  {"0.00A", 0x00008000},
        {"12.05Z", 0x0C059900}, {"99.99A", 0x63998000},
    };
    for (const Row &r : rows) {
        uint32_t v = 0;
        EXPECT_EQ(sup_string_to_version(r.text, &v), 0) << r.text;
        EXPECT_EQ(v, r.packed) << r.text;
        char text[16];
        EXPECT_EQ(sup_version_to_string(text, sizeof text, r.packed), 0);
        EXPECT_STREQ(text, r.text);
    }
}

TEST(Version, LowerCaseLetterReadsAsCapital) {
    uint32_t v = 0;
    EXPECT_EQ(sup_string_to_version("2.05a", &v), 0);
    EXPECT_EQ(v, 0x02058000u);
}

TEST(Version, MalformedTextIsRefusedAndLeavesTheValue) {
    for (const char *bad : {"", "4", "4.27", "4.2B", "427B", "123.45A", "4.27BB", "4.27B ",
                            " 4.27B", "4.271", "a.27B", "4,27B", "4.2 7B"}) {
        uint32_t v = 7;
        EXPECT_EQ(sup_string_to_version(bad, &v), SUP_EBADPARAM) << '"' << bad << '"';
        EXPECT_EQ(v, 7u);
    }
    uint32_t v;
    EXPECT_EQ(sup_string_to_version(nullptr, &v), SUP_EBADPARAM);
    EXPECT_EQ(sup_string_to_version("4.27B", nullptr), SUP_EBADPARAM);
}

TEST(Version, ToStringStaysWithinTheBuffer) {
    char text[8] = "#######";
    EXPECT_EQ(sup_version_to_string(text, 3, 0x04278100), 0);
    EXPECT_STREQ(text, "4.");
    EXPECT_EQ(text[3], '#');
    EXPECT_EQ(sup_version_to_string(text, 0, 0x04278100), SUP_EBADPARAM);
    EXPECT_EQ(sup_version_to_string(nullptr, 8, 0x04278100), SUP_EBADPARAM);
}

TEST(Version, NoLetterAndOutOfRangeLetterCodes) {
    char text[16];
    sup_version_to_string(text, sizeof text, 0);
    EXPECT_STREQ(text, "0.00");
    sup_version_to_string(text, sizeof text, 0x01024100);
    EXPECT_STREQ(text, "1.02?");
}

} // namespace
