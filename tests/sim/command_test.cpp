// Named commands: version slots, saving and resetting, the power stage, errors and motion.
#include "drive_fixture.hpp"

namespace {

using ryn::test::DriveTest;
using ryn::test::ScriptCase;
using ryn::test::Scripts;

// The bits of the status word M0 (and M60).
constexpr uint64_t POWER = 1, MOVING = 2, IN_PLACE = 4;

TEST_F(DriveTest, VersionSlotsReadBackAsMonitoringRegister282) {
    // SVR: slot, version (1.00A and 2.05B as packed versions).
    EXPECT_TRUE(execute("SVR.0=3,0x01008000").ack);
    EXPECT_TRUE(execute("SVR.0=10,0x02058100").ack);
    EXPECT_EQ(ask("M282:3.0,M282:10.0,M282:4.0"),
              "M282:3.0=16809984,M282:10.0=33915136,M282:4.0=0");
    EXPECT_EQ(raw(3, 282, 3), 0x01008000u);
    // The same through the record the download builds: kind 32, command 20, two 32-bit values.
    EXPECT_TRUE(execute("[MASK:1,GATE:0,CMD:20,REC:32,TYP:0,PAR:5,TYP:0,PAR:0x03008000]").ack);
    EXPECT_EQ(raw(3, 282, 5), 0x03008000u);
    EXPECT_TRUE(execute("SVR.0=5,0").ack);
    EXPECT_EQ(raw(3, 282, 5), 0u);
}

// Saving and resetting: SAV copies the memory of the family chosen (all its value classes) to the
// saved copy, RST puts the saved copy back; steps move the position at once.
INSTANTIATE_TEST_SUITE_P(
    SaveAndReset, Scripts,
    ::testing::Values(
        ScriptCase{"K1.0=111;X7.0=7;SAV.0=0;K1.0=222;X7.0=8;RST.0", "K1.0,X7.0", "K1.0=111,X7.0=7"},
        ScriptCase{"K1.0=111;SVR.0=3,0x01008000;RST.0", "K1.0,M282:3.0", "K1.0=1000,M282:3.0=0"},
        ScriptCase{"K1.0=11;KF1.0=12F;C5.0=13;X7.0=14;SAV.0;RST.0", "K1.0,KF1.0,C5.0,X7.0",
                   "K1.0=11,KF1.0=12.0F,C5.0=13,X7.0=14"},
        ScriptCase{"K1.0=11;KF1.0=12F;C5.0=13;X7.0=14;SAV.0=1;RST.0", "K1.0,KF1.0,C5.0,X7.0",
                   "K1.0=11,KF1.0=12.0F,C5.0=0,X7.0=0"},
        ScriptCase{"K1.0=11;KF1.0=12F;C5.0=13;X7.0=14;SAV.0=2;RST.0", "K1.0,KF1.0,C5.0,X7.0",
                   "K1.0=1000,KF1.0=1.0E3F,C5.0=13,X7.0=0"},
        ScriptCase{"K1.0=11;KF1.0=12F;C5.0=13;X7.0=14;SAV.0=3;RST.0", "K1.0,KF1.0,C5.0,X7.0",
                   "K1.0=1000,KF1.0=1.0E3F,C5.0=0,X7.0=14"}));

INSTANTIATE_TEST_SUITE_P(Steps, Scripts,
                         ::testing::Values(ScriptCase{"PWR.0=1;STE.0=10;STE.0+=5;STE.0-=20", "M7.0",
                                                      "M7.0=-5"}));

TEST_F(DriveTest, ResetMemoryForgetsTheSavedCopyToo) {
    ASSERT_TRUE(execute("K1.0=111").ack);
    ASSERT_TRUE(execute("SAV.0=0").ack);
    drive_->reset_memory();
    EXPECT_EQ(ask("K1.0"), "K1.0=1000");
    ASSERT_TRUE(execute("RST.0").ack);
    EXPECT_EQ(ask("K1.0"), "K1.0=1000");
}

TEST_F(DriveTest, PowerAndErrorsShowInTheStatusWords) {
    EXPECT_EQ(raw(3, 0) & POWER, 0u);
    ASSERT_TRUE(execute("PWR.0=1").ack);
    EXPECT_EQ(raw(3, 0) & POWER, POWER);
    EXPECT_EQ(raw(3, 60), raw(3, 0)) << "SD1 shows the same status";
    // An error set from outside is cleared by CLX.
    ASSERT_EQ(drive_->write(3, 11, 0, 42), 0);
    ASSERT_TRUE(execute("CLX.0").ack);
    EXPECT_EQ(raw(3, 11), 0u);
    ASSERT_TRUE(execute("PWR.0=0").ack);
    EXPECT_EQ(raw(3, 0) & POWER, 0u);
    // Known commands without a simulated effect are acknowledged.
    EXPECT_TRUE(execute("IND.0=3").ack);
    EXPECT_TRUE(execute("DBG.0=2,0xFF").ack);
    EXPECT_TRUE(execute("!DBG.0=2,0xFF").ack);
    EXPECT_TRUE(execute("!IND.0=3").ack);
    EXPECT_TRUE(execute("TRJ.0=[0,1000,2000],[10,10,10]").ack);
}

// MVE with the power stage on: 1000 units at 100 units/s with 100 units/s^2 accelerate for 1 s
// (50 units), cruise for 9 s (900 units) and brake for 1 s (50 units).
struct MotionCase {
    uint64_t after_us;
    int64_t position;
    uint64_t status;
};

class Motion : public DriveTest, public ::testing::WithParamInterface<MotionCase> {};

TEST_P(Motion, FollowsATrapezoidalProfileOnTheBusClock) {
    ASSERT_TRUE(execute("PWR.0=1").ack);
    ASSERT_TRUE(execute("MVE.0=1000L,100F,100D").ack);
    now_us_ += GetParam().after_us;
    const ryn::test::Answer a = execute("ML7.0,M7.0,M0.0");
    ASSERT_TRUE(a.ack);
    EXPECT_NEAR(static_cast<double>(static_cast<int64_t>(a.value(0))),
                static_cast<double>(GetParam().position), 1.0);
    EXPECT_EQ(static_cast<int64_t>(static_cast<int32_t>(a.value(1))),
              static_cast<int64_t>(a.value(0)));
    EXPECT_EQ(a.value(2), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(Profile, Motion,
                         ::testing::Values(MotionCase{0, 0, POWER | MOVING},
                                           MotionCase{500000, 12, POWER | MOVING},
                                           MotionCase{1000000, 50, POWER | MOVING},
                                           MotionCase{5000000, 450, POWER | MOVING},
                                           MotionCase{10000000, 950, POWER | MOVING},
                                           MotionCase{10500000, 987, POWER | MOVING},
                                           MotionCase{11000000, 1000, POWER | IN_PLACE},
                                           MotionCase{60000000, 1000, POWER | IN_PLACE}));

TEST_F(DriveTest, AShortMoveNeverReachesItsSpeed) {
    ASSERT_TRUE(execute("PWR.0=1").ack);
    // 100 units at 100 units/s^2: a triangle of 1 s up and 1 s down, peak 100 units/s.
    ASSERT_TRUE(execute("MVE.0=-100L,1000F,100D").ack);
    now_us_ += 1000000;
    EXPECT_EQ(ask("ML7.0"), "ML7.0=-50L");
    now_us_ += 1000000;
    EXPECT_EQ(ask("ML7.0"), "ML7.0=-100L");
}

TEST_F(DriveTest, PowerOffOrAbortStopsTheMoveWhereItIs) {
    ASSERT_TRUE(execute("PWR.0=1").ack);
    ASSERT_TRUE(execute("MVE.0=1000L,100F,100D").ack);
    now_us_ += 5000000;
    ASSERT_TRUE(execute("ABO.0").ack);
    now_us_ += 5000000;
    EXPECT_EQ(ask("ML7.0"), "ML7.0=450L");
    // A new move starts from there; switching the power off freezes it again.
    ASSERT_TRUE(execute("MVE.0=0L,100F,100D").ack);
    now_us_ += 1000000;
    ASSERT_TRUE(execute("PWR.0=0").ack);
    now_us_ += 1000000;
    EXPECT_EQ(ask("ML7.0"), "ML7.0=400L");
    EXPECT_EQ(raw(3, 0) & (POWER | MOVING), 0u);
    EXPECT_FALSE(execute("MVE.0=0L,100F,100D").ack) << "no move with the power stage off";
}

TEST_F(DriveTest, MovesRefuseSpeedsAndAccelerationsThatAreNotPositive) {
    ASSERT_TRUE(execute("PWR.0=1").ack);
    for (const char *line : {"MVE.0=10L,0F,100D", "MVE.0=10L,100F,-1D", "MVE.0=10L,-5F,100D"})
        EXPECT_FALSE(execute(line).ack) << line;
    EXPECT_EQ(raw(3, 0) & MOVING, 0u);
}

TEST_F(DriveTest, APositionSetFromOutsideIsWhereTheNextMoveStarts) {
    ASSERT_EQ(drive_->write(3, 7, 0, 0xFFFFFF9C), 0); // M7 = -100
    EXPECT_EQ(ask("ML7.0,M7.0"), "ML7.0=-100L,M7.0=-100");
    ASSERT_TRUE(execute("PWR.0=1").ack);
    ASSERT_TRUE(execute("MVE.0=0L,100F,100D").ack);
    now_us_ += 1000000;
    EXPECT_EQ(ask("ML7.0"), "ML7.0=-50L");
    // Setting it while the move runs ends the move.
    ASSERT_EQ(drive_->write(0x63, 7, 0, ryn::sim::raw_of_double(7.0)), 0); // MD7
    now_us_ += 1000000;
    EXPECT_EQ(ask("M7.0,M0.0"), "M7.0=7,M0.0=1");
}

} // namespace
