// Compound assignment operators on each value class, and assignments converting between classes.
#include "drive_fixture.hpp"

namespace {

using ryn::test::DriveTest;
using ryn::test::ScriptCase;
using ryn::test::Scripts;

// One operator applied to a user variable of one class (X int32, XL int64, XF float, XD double,
// none of them with a range): the register starts at `initial`, gets `op` with `operand`, and
// reads back as `expected`; "refused" when the drive must refuse it and leave the value alone.
struct OperatorCase {
    const char *initial;
    const char *operation;
    const char *expected;
};

class Operators : public DriveTest, public ::testing::WithParamInterface<OperatorCase> {};

TEST_P(Operators, ChangeTheRegisterAsTheirClassComputes) {
    const OperatorCase &c = GetParam();
    ASSERT_TRUE(execute(std::string("[") + c.initial + "]").ack) << c.initial;
    const std::string reg(c.initial, std::strchr(c.initial, '='));
    const std::string before = ask(reg);
    const ryn::test::Answer a = execute(std::string("[") + c.operation + "]");
    if (std::string(c.expected) == "refused") {
        EXPECT_FALSE(a.ack) << c.operation;
        EXPECT_EQ(ask(reg), before) << c.operation;
    } else {
        EXPECT_TRUE(a.ack) << c.operation;
        EXPECT_EQ(ask(reg), c.expected) << c.operation;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Int32, Operators,
    ::testing::Values(
        OperatorCase{"X5.0=7", "X5.0+=5", "X5.0=12"}, OperatorCase{"X5.0=7", "X5.0-=9", "X5.0=-2"},
        OperatorCase{"X5.0=-7", "X5.0*=6", "X5.0=-42"},
        OperatorCase{"X5.0=-7", "X5.0/=2", "X5.0=-3"},
        OperatorCase{"X5.0=-7", "X5.0%=2", "X5.0=-1"},
        OperatorCase{"X5.0=0xF0", "X5.0&=0x3C", "X5.0=48"},
        OperatorCase{"X5.0=0xF0", "X5.0|=0x0F", "X5.0=255"},
        OperatorCase{"X5.0=0xFF", "X5.0&~=0x0F", "X5.0=240"},
        OperatorCase{"X5.0=0", "X5.0|~=0xFFFFFF00", "X5.0=255"},
        OperatorCase{"X5.0=0xFF", "X5.0^=0x0F", "X5.0=240"},
        OperatorCase{"X5.0=0", "X5.0^~=0", "X5.0=-1"},
        OperatorCase{"X5.0=-8", "X5.0>>=1", "X5.0=-4"},
        OperatorCase{"X5.0=3", "X5.0<<=4", "X5.0=48"}, OperatorCase{"X5.0=3", "X5.0~=5", "X5.0=-6"},
        // Wrap-around, the one overflowing quotient, shift counts and division by zero.
        OperatorCase{"X5.0=2147483647", "X5.0+=1", "X5.0=-2147483648"},
        OperatorCase{"X5.0=-2147483648", "X5.0/=-1", "X5.0=-2147483648"},
        OperatorCase{"X5.0=-2147483648", "X5.0%=-1", "X5.0=0"},
        OperatorCase{"X5.0=1", "X5.0<<=31", "X5.0=-2147483648"},
        OperatorCase{"X5.0=1", "X5.0<<=32", "refused"},
        OperatorCase{"X5.0=1", "X5.0>>=-1", "refused"},
        OperatorCase{"X5.0=7", "X5.0/=0", "refused"},
        OperatorCase{"X5.0=7", "X5.0%=0", "refused"}));

INSTANTIATE_TEST_SUITE_P(
    Int64, Operators,
    ::testing::Values(OperatorCase{"XL5.0=5000000000L", "XL5.0+=5000000000L", "XL5.0=10000000000L"},
                      OperatorCase{"XL5.0=5000000000L", "XL5.0*=-2L", "XL5.0=-10000000000L"},
                      OperatorCase{"XL5.0=-9000000000L", "XL5.0/=4L", "XL5.0=-2250000000L"},
                      OperatorCase{"XL5.0=9223372036854775807L", "XL5.0+=1L",
                                   "XL5.0=-9223372036854775808L"},
                      OperatorCase{"XL5.0=1L", "XL5.0<<=40L", "XL5.0=1099511627776L"},
                      OperatorCase{"XL5.0=1L", "XL5.0<<=64L", "refused"},
                      OperatorCase{"XL5.0=0x0FL", "XL5.0^=0xFFL", "XL5.0=240L"},
                      OperatorCase{"XL5.0=7L", "XL5.0%=0L", "refused"},
                      OperatorCase{"XL5.0=7L", "XL5.0/=0L", "refused"}));

INSTANTIATE_TEST_SUITE_P(Float, Operators,
                         ::testing::Values(OperatorCase{"XF5.0=1.5F", "XF5.0+=2.25F",
                                                        "XF5.0=3.75F"},
                                           OperatorCase{"XF5.0=1.5F", "XF5.0-=2.5F", "XF5.0=-1.0F"},
                                           OperatorCase{"XF5.0=1.5F", "XF5.0*=3F", "XF5.0=4.5F"},
                                           OperatorCase{"XF5.0=7F", "XF5.0/=2F", "XF5.0=3.5F"},
                                           OperatorCase{"XF5.0=7.5F", "XF5.0%=2F", "XF5.0=1.5F"},
                                           OperatorCase{"XF5.0=7F", "XF5.0/=0F", "refused"},
                                           OperatorCase{"XF5.0=7F", "XF5.0%=0F", "refused"},
                                           OperatorCase{"XF5.0=7F", "XF5.0&=1F", "refused"},
                                           OperatorCase{"XF5.0=7F", "XF5.0<<=1F", "refused"}));

INSTANTIATE_TEST_SUITE_P(
    Double, Operators,
    ::testing::Values(OperatorCase{"XD5.0=1.5D", "XD5.0+=2.25D", "XD5.0=3.75D"},
                      OperatorCase{"XD5.0=1.5D", "XD5.0-=2.5D", "XD5.0=-1.0D"},
                      OperatorCase{"XD5.0=1E100D", "XD5.0*=1E100D", "XD5.0=100.0E198D"},
                      OperatorCase{"XD5.0=1D", "XD5.0/=8D", "XD5.0=0.125D"},
                      OperatorCase{"XD5.0=-7.5D", "XD5.0%=2D", "XD5.0=-1.5D"},
                      OperatorCase{"XD5.0=7D", "XD5.0/=0D", "refused"},
                      OperatorCase{"XD5.0=7D", "XD5.0|=1D", "refused"}));

// The operand of an operator or the value of an assignment may be another register of the drive,
// of its own class or, converted, of another.
INSTANTIATE_TEST_SUITE_P(Conversions, Scripts,
                         ::testing::Values(
                             // Command 122: the value converts to the register's class.
                             ScriptCase{"X5.0=2.75F", "X5.0", "X5.0=2"},
                             ScriptCase{"X5.0=-2.75D", "X5.0", "X5.0=-2"},
                             ScriptCase{"XF5.0=3", "XF5.0", "XF5.0=3.0F"},
                             ScriptCase{"XL5.0=-3", "XL5.0", "XL5.0=-3L"},
                             ScriptCase{"X5.0=3E20D", "X5.0", "X5.0=2147483647"},
                             // Registers as values and operands.
                             ScriptCase{"X6.0=41;X5.0=X6.0", "X5.0", "X5.0=41"},
                             ScriptCase{"X6.0=41;XD5.0=X6.0", "XD5.0", "XD5.0=41.0D"},
                             ScriptCase{"K5.0=K2.0,K1.0,K2.0", "K5:1.0", "K5:1.0=1000"},
                             ScriptCase{"X6.0=4;X5.0+=X6.0", "X5.0", "X5.0=4"},
                             ScriptCase{"K1.0+=K1.0", "K1.0", "K1.0=2000"},
                             ScriptCase{"XAC.0=17", "XAC.0", "XAC.0=17"}));

} // namespace
