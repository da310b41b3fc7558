// Records the drive refuses: answered without acknowledge, with the status bit, memory unchanged.
#include "drive_fixture.hpp"

namespace {

using ryn::test::DriveTest;

// Bracketed lines and spelled-out records reach the drive without the translator's checks, so
// they carry what only the drive can refuse.
class Refusals : public DriveTest, public ::testing::WithParamInterface<const char *> {};

TEST_P(Refusals, LeaveEveryElementOfMemoryAsItWas) {
    // Something to keep in the registers the lines touch, besides their defaults.
    ASSERT_TRUE(execute("K5.0=1,2,3").ack);
    ASSERT_TRUE(execute("TF2.0=[[1F,2F,3F],[4F,5F,6F]]").ack);
    const std::vector<uint64_t> before = snapshot();
    const ryn::test::Answer a = execute(GetParam());
    EXPECT_FALSE(a.ack);
    EXPECT_TRUE(a.status);
    EXPECT_EQ(snapshot(), before);
}

INSTANTIATE_TEST_SUITE_P(Range, Refusals,
                         ::testing::Values("[K1.0=1000001]", "[K1.0=-1]", "[K5:1.0=1001]",
                                           "[KF1.0=50000.5F]", "[KD1.0=-1D]",
                                           "[KL1.0=1000000000001L]", "[K1.0+=999001]",
                                           "[K5.0=1,2,3000]"));

INSTANTIATE_TEST_SUITE_P(Enumeration, Refusals,
                         ::testing::Values("[K12.0=4]", "[K12.0=-1]", "[K12.0+=4]",
                                           // IO_CFG: groups 0x0F (0..3) and 0xF0 (0x00..0x20)
                                           "[K20.0=0x04]", "[K20.0=0x30]", "[K20.0=0x100]",
                                           "[K20.0=0x80000000]"));

INSTANTIATE_TEST_SUITE_P(ReadOnly, Refusals,
                         ::testing::Values("[K50.0=3]", "[K60:2.0=1]", "[K60.0=1,1,1]", "[M7.0=5]",
                                           "[M282:3.0=1]", "[K50.0+=1]", "[A100.0=1]"));

INSTANTIATE_TEST_SUITE_P(
    Unknown, Refusals,
    ::testing::Values("[K13.0=1]", "[K300.0=1]", "[K13.0]", "[K1.0,K13.0]",
                      // Elements past a register's own count are held for reads only (R26).
                      "[K1:1.0=5]", "[K5.0=1,2,3,4]", "[K1:1.0+=1]",
                      // V1[3] and V1[4]: a vector of four elements.
                      "[MASK:1,GATE:0,CMD:1,REC:38,TYP:0x10000,PAR:2,TYP:0x1000F,"
                      "PAR:0x4000000003000001L,TYP:0x20000,PAR:1,TYP:0x20100,PAR:2]",
                      // A subindex past the type's subindex count.
                      "[MASK:1,GATE:0,CMD:0,REC:18,TYP:2,PAR:0x80001]",
                      // A literal where a read needs a register; a register type that is absent.
                      "[MASK:1,GATE:0,CMD:0,REC:18,TYP:0,PAR:1]",
                      // Reads of nothing.
                      "[MASK:1,GATE:0,CMD:0,REC:18]",
                      "[MASK:1,GATE:0,CMD:0,REC:19,TYP:0x10000,PAR:1]",
                      "[MASK:1,GATE:0,CMD:123,REC:32,TYP:12,PAR:0x40000001,TYP:0,PAR:1]"));

INSTANTIATE_TEST_SUITE_P(Commands, Refusals,
                         ::testing::Values(
                             // Unknown command numbers and record kinds.
                             "[MASK:1,GATE:0,CMD:250,REC:32]", "[MASK:1,GATE:0,CMD:1,REC:5]",
                             "[MASK:1,GATE:0,CMD:0,REC:39]", "[MASK:1,GATE:0,CMD:0,REC:89]",
                             "[MASK:1,GATE:0,CMD:0,REC:23]", "[MASK:1,GATE:0,CMD:2,REC:38]",
                             // Parameters out of range, outside their enumeration, or too many.
                             "[IND.0=36]", "[PWR.0=2]", "[SAV.0=4]", "[SVR.0=11,1]", "[SVR.0=2,1]",
                             "[PWR.0=1,1]", "[MASK:1,GATE:0,CMD:124,REC:32,TYP:2,PAR:0x0D0001]",
                             // Division by zero, also through a register holding zero.
                             "[X5.0/=0]", "[K1.0/=K2.0]", "[XD1.0%=0D]",
                             // A move needs the power stage on.
                             "MVE.0=1000L,50F,200D"));

TEST_F(DriveTest, RecordsWithMoreSlotsThanABusCarriesAreRefused) {
    ryn::test::Buffer q = record("K1.0");
    q.bytes[0] = 66;
    const ryn::test::Answer a = execute(q);
    EXPECT_FALSE(a.ack);
    EXPECT_EQ(a.record.cview().count(), 0);
}

TEST_F(DriveTest, ARefusedReadAnswersTheRequestAsItCame) {
    const ryn::test::Buffer q = record("[K1.0,K13.0]");
    const ryn::test::Answer a = execute(q);
    EXPECT_FALSE(a.ack);
    EXPECT_EQ(std::memcmp(a.record.bytes + 4, q.bytes + 4, 4 + 2 * 16), 0);
}

TEST_F(DriveTest, TheWholeTypeTakesAValueWhereItsElementsAcceptIt) {
    ASSERT_TRUE(execute("K1.0=77").ack);
    ASSERT_TRUE(execute("K12.0=2").ack);
    EXPECT_TRUE(execute("KY.0=0").ack);
    EXPECT_EQ(ask("K1.0,K12.0,K50.0"), "K1.0=0,K12.0=0,K50.0=0");
    // Where the value is outside an element's range or enumeration, that element keeps its own.
    EXPECT_TRUE(execute("[KY.0=3]").ack);
    EXPECT_EQ(ask("K1.0,K12.0,K2.0"), "K1.0=3,K12.0=3,K2.0=3");
    EXPECT_TRUE(execute("[KY.0=5]").ack);
    EXPECT_EQ(ask("K12.0"), "K12.0=3");
    // A type that may not be written as a whole is refused.
    EXPECT_FALSE(execute("[XY.0=1]").ack);
}

} // namespace
