// Register reads of kinds 18 and 19, element assignments of vectors and matrices, and the drive's
// memory as the dictionary describes it.
#include "drive_fixture.hpp"

namespace {

using ryn::test::DriveTest;
using ryn::test::ScriptCase;
using ryn::test::Scripts;

TEST_P(Scripts, AnswerWhatTheLinesLeftInMemory) {
    const ScriptCase &c = GetParam();
    const std::string lines = c.lines;
    for (std::size_t from = 0; from < lines.size();) {
        std::size_t to = lines.find(';', from);
        if (to == std::string::npos) to = lines.size();
        const std::string line = lines.substr(from, to - from);
        ASSERT_TRUE(execute(line).ack) << line;
        from = to + 1;
    }
    EXPECT_EQ(ask(c.request), c.answer) << c.request;
}

INSTANTIATE_TEST_SUITE_P(Defaults, Scripts,
                         ::testing::Values(ScriptCase{"", "K1.0", "K1.0=1000"},
                                           ScriptCase{"", "K1.0,K2.0", "K1.0=1000,K2.0=0"},
                                           ScriptCase{"", "KL1.0", "KL1.0=1000000000L"},
                                           ScriptCase{"", "KF1.0", "KF1.0=1.0E3F"},
                                           ScriptCase{"", "KD1.0", "KD1.0=10.0E3D"},
                                           ScriptCase{"", "K20.0", "K20.0=0x0"},
                                           ScriptCase{"", "K31.0", "K31.0=\"192.168.0.10\""},
                                           ScriptCase{"", "K30.0", "K30.0=\"\""},
                                           ScriptCase{"", "M85.0", "M85.0=\"SERVO DRIVE\""},
                                           ScriptCase{"", "V1.0", "V1.0=[0x0,0x0,0x0,0x0]"},
                                           ScriptCase{"", "XAC.0", "XAC.0=0"},
                                           ScriptCase{"", "A100.0", "A100.0=0"}));

INSTANTIATE_TEST_SUITE_P(
    Written, Scripts,
    ::testing::Values(ScriptCase{"K5.0=1,-2,3", "K5:1.0,K5:2.0", "K5:1.0=-2,K5:2.0=3"},
                      ScriptCase{"K30.0=\"AXIS-1\"", "K30.0", "K30.0=\"AXIS-1\""},
                      ScriptCase{"K31.0=\"10.0.0.7\"", "K31.0", "K31.0=\"10.0.0.7\""},
                      ScriptCase{"K20.0=0x23", "K20.0", "K20.0=0x23"},
                      ScriptCase{"X1023.0=-5", "X1023.0", "X1023.0=-5"}));

// Kinds 38 and 30: vector and matrix elements, read back with kind 19.
INSTANTIATE_TEST_SUITE_P(
    Elements, Scripts,
    ::testing::Values(ScriptCase{"V1.0=[1,2,3,4]", "V1.0", "V1.0=[0x1,0x2,0x3,0x4]"},
                      ScriptCase{"V1[2].0=9", "V1.0", "V1.0=[0x0,0x0,0x9,0x0]"},
                      ScriptCase{"!V1.0=[5,6,7,8]", "V1[3].0", "V1[3].0=[0x8]"},
                      ScriptCase{"TF2.0=[[1F,2F,3F],[4F,5F,6F]]", "TF2.0",
                                 "TF2.0=[[1.0F,2.0F,3.0F],[4.0F,5.0F,6.0F]]"},
                      ScriptCase{"TF2[1].0=[7F,8F,9F]", "TF2.0",
                                 "TF2.0=[[0.0F,0.0F,0.0F],[7.0F,8.0F,9.0F]]"},
                      ScriptCase{"TF2[0,2].0=2.5F", "TF2[0,2].0", "TF2[0,2].0=[[2.5F]]"},
                      ScriptCase{"[MASK:1,GATE:0,CMD:1,REC:38,TYP:0x10000,PAR:2,TYP:0x1000F,"
                                 "PAR:0x4000000001000001L,TYP:0x10002,PAR:0x1L]",
                                 "V1.0", "V1.0=[0x0,0x3E8,0x0,0x0]"}));

TEST_F(DriveTest, AnswersCarryEachRegistersValueClassInTheirTags) {
    const ryn::test::Answer a = execute("KF1.0,KL1.0,KD1.0,K1.0");
    ASSERT_TRUE(a.ack);
    EXPECT_EQ(a.tag(0) & 0x60, 0x20u);
    EXPECT_EQ(a.tag(1) & 0x60, 0x40u);
    EXPECT_EQ(a.tag(2) & 0x60, 0x60u);
    EXPECT_EQ(a.tag(3) & 0x60, 0x00u);
    EXPECT_EQ(a.value(1), 1000000000u);
    EXPECT_EQ(a.value(3), 1000u) << "a 32-bit value leaves the slot's high word zero";
}

TEST_F(DriveTest, ElementsPastARegistersOwnCountReadZeroAndRefuseWrites) {
    // K1 has one element, the type K eight; M50 sixteen of M's sixteen, M7 one.
    const ryn::test::Answer a = execute("[K1:7.0,M7:15.0,K5:3.0]");
    ASSERT_TRUE(a.ack);
    EXPECT_EQ(a.value(0), 0u);
    EXPECT_EQ(a.value(1), 0u);
    EXPECT_EQ(a.value(2), 0u);
    // Kind 19 reads them too, up to the type's subindex count.
    const ryn::test::Answer e =
        execute("[MASK:1,GATE:0,CMD:0,REC:19,TYP:0x10000,PAR:1,TYP:0x10002,"
                "PAR:0x4000000007000001L,TYP:0x10102,PAR:0x4000000000000001L]");
    ASSERT_TRUE(e.ack);
    EXPECT_EQ(e.value(1), 0u);
    EXPECT_EQ(e.value(2), 1000u);
    EXPECT_FALSE(execute("[MASK:1,GATE:0,CMD:0,REC:19,TYP:0x10000,PAR:1,TYP:0x10002,"
                         "PAR:0x4000000008000001L]")
                     .ack);
    EXPECT_FALSE(execute("[K1:1.0=5]").ack);
    uint64_t raw = 1;
    EXPECT_EQ(drive_->read(2, 1, 7, &raw), 0);
    EXPECT_EQ(raw, 0u);
    EXPECT_EQ(drive_->write(2, 1, 7, 5), -1);
    EXPECT_EQ(drive_->read(2, 1, 8, &raw), -1);
    EXPECT_EQ(drive_->read(2, 13, 0, &raw), -1) << "K13 is a gap";
}

TEST_F(DriveTest, DirectWritesPassRangeAndReadOnlyChecks) {
    EXPECT_EQ(drive_->write(2, 50, 0, 9), 0);
    EXPECT_EQ(drive_->write(2, 1, 0, 5000000), 0);
    EXPECT_EQ(drive_->write(2, 1, 0, 0x100000005), 0) << "a 32-bit class keeps the low word";
    EXPECT_EQ(raw(2, 1), 5u);
    EXPECT_EQ(ask("K50.0"), "K50.0=9");
    EXPECT_EQ(drive_->write(2, 13, 0, 1), -1);
    EXPECT_EQ(drive_->write(127, 0, 0, 1), -1);
}

// Identity and memory of other configurations: the controller at axis 63 with its W registers,
// a drive with a card, a legacy drive.
struct ConfigurationCase {
    ryn::sim::Identity identity;
    const char *request;
    const char *answer;
};

class Configurations : public DriveTest, public ::testing::WithParamInterface<ConfigurationCase> {};

TEST_P(Configurations, ReadTheirOwnRegisters) {
    make_drive(GetParam().identity);
    EXPECT_EQ(ask(GetParam().request), GetParam().answer);
}

INSTANTIATE_TEST_SUITE_P(
    Products, Configurations,
    ::testing::Values(
        ConfigurationCase{{32, 0x03128100, 0, 0, 10002, 3},
                          "M80.0,M81.0,M82.0",
                          "M80.0=10002,M81.0=0x3,M82.0=0x3128100"},
        ConfigurationCase{
            {32, 0x03128100, 0x21, 0x01028000, 0, 0}, "M84.0,C100.0", "M84.0=33,C100.0=0"},
        ConfigurationCase{{51, 0x02018000, 0, 0, 50001, 0}, "W10.0", "W10.0=100"},
        ConfigurationCase{{51, 0x02018000, 0, 0, 50001, 0}, "M85.0", "M85.0=\"MOTION CTRL SYNC\""},
        ConfigurationCase{{1, 0x02058000, 0, 0, 0, 0}, "M85.0", "M85.0=\"LEGACY DRIVE\""}));

TEST(DriveCreation, RefusesConfigurationsTheDictionaryDoesNotKnow) {
    std::unique_ptr<ryn::sim::Drive> d;
    EXPECT_EQ(ryn::sim::Drive::create({99, 0x01008000, 0, 0, 0, 0}, 0, &d), VOK_EBADDRVPROD);
    EXPECT_EQ(ryn::sim::Drive::create({32, 0x09998000, 0, 0, 0, 0}, 0, &d), VOK_EBADDRVVER);
    EXPECT_EQ(ryn::sim::Drive::create({1, 0x02058000, 0x22, 0x02008000, 0, 0}, 0, &d),
              VOK_EBADEXTVER);
    EXPECT_EQ(d, nullptr);
    // Versions 0 are the defaults.
    ASSERT_EQ(ryn::sim::Drive::create({32, 0, 0x22, 0, 0, 0}, 0, &d), 0);
    EXPECT_EQ(d->identity().version, 0x03128100u);
    EXPECT_EQ(d->identity().ext_version, 0x02008000u);
    EXPECT_EQ(ryn::sim::Drive::create({}, 0, nullptr), VOK_EBADPARAM);
}

} // namespace
