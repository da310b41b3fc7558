// Bounded printing into a buffer.
#include <gtest/gtest.h>

#include <string>

#include "ryn/sup.h"

namespace {

TEST(Print, NeverWritesPastTheSizeAndCountsWhatItWrote) {
    struct Row {
        int size;
        const char *expect;
        int written;
    } rows[] = {{1, "", 0}, {2, "K", 1}, {6, "K12.0", 5}, {7, "K12.0=", 6}, {64, "K12.0=2", 7}};
    for (const Row &r : rows) {
        std::string buffer(80, '#');
        EXPECT_EQ(sup_snprintf(buffer.data(), r.size, "%s%d.%d=%d", "K", 12, 0, 2), r.written);
        EXPECT_STREQ(buffer.c_str(), r.expect);
        EXPECT_EQ(buffer[static_cast<std::size_t>(r.size)], '#');
    }
}

TEST(Print, RefusesMissingBufferOrSize) {
    char c = '#';
    EXPECT_EQ(sup_snprintf(&c, 0, "x"), 0);
    EXPECT_EQ(c, '#');
    EXPECT_EQ(sup_snprintf(nullptr, 4, "x"), 0);
}

} // namespace
