// Register reads of kinds 18 and 19, and plain assignments read back.
#include "drive_fixture.hpp"

namespace {

using ryn::test::DriveTest;

TEST_F(DriveTest, ReadsAnswerTheDictionaryDefaults) {
    EXPECT_EQ(ask("K1.0"), "K1.0=1000");
    EXPECT_EQ(ask("K1.0,K2.0"), "K1.0=1000,K2.0=0");
}

TEST_F(DriveTest, AssignmentsAreReadBack) {
    EXPECT_TRUE(execute("K1.0=5").ack);
    EXPECT_EQ(ask("K1.0"), "K1.0=5");
}

} // namespace
