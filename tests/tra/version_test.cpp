// The library's version functions.
#include <gtest/gtest.h>

#include "ryn/tra.h"
#include "trace_helpers.hpp"

namespace {

TEST(LibraryVersion, BothNamesGiveTheSameVersionAndItReadsBack) {
    EXPECT_EQ(tra_get_version(), tra_get_ryn_version());
    char text[80];
    ASSERT_EQ(tra_version_to_string(text, sizeof text, tra_get_version()), 0);
    uint32_t back = 0;
    ASSERT_EQ(tra_string_to_version(text, &back), 0);
    EXPECT_EQ(back, tra_get_version());
    EXPECT_STREQ(text, "4.27B");
}

TEST(LibraryVersion, BadTextIsInvalidParameterNotVersionSyntax) {
    for (const char *bad : {"", "4.27", "x.yyZ", static_cast<const char *>(nullptr)}) {
        sup_trace_clear();
        uint32_t v = 0;
        EXPECT_EQ(tra_string_to_version(bad, &v), TRA_EBADPARAM);
        EXPECT_EQ(ryn::test::trace(),
                  (std::vector<ryn::test::Frame>{
                      {"traver", 134, "tra_string_to_version", TRA_EBADPARAM, "", ""}}));
    }
}

} // namespace
