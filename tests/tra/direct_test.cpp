// The direct translator on simulated buses: every form of the command language sent and its
// answer read back, the exchange's edge cases, chunked read lists, drives that come and go, the
// translator without a bus, and the refusals of the exported calls.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "bus_helpers.hpp"
#include "record.hpp"
#include "trace_helpers.hpp"
#include "traopn.hpp"

namespace {

using namespace ryn::test;
using ryn::tra::Envelope;
using Clock = std::chrono::steady_clock;

// ---- Every form of the command language, sent and answered ----

struct Form {
    const char *name;
    uint32_t flags;
    std::vector<const char *> setup; // lines sent and answered first
    const char *line;
    const char *answer;
    uint8_t ack, status, request;
};

void PrintTo(const Form &f, std::ostream *os) {
    *os << f.name;
}

const char *const READ_NINE = "[MASK:0X1,GATE:0,CMD:0,REC:18,TYP:2,PAR:1,TYP:2,PAR:2,TYP:2,PAR:12,"
                              "TYP:2,PAR:20,TYP:2,PAR:40,TYP:1,PAR:5,TYP:1,PAR:6,TYP:1,PAR:7,TYP:2,"
                              "PAR:0X1000C]";

const Form FORMS[] = {
    {"ReadList", 0, {"K1.1=7"}, "K1.1,K2.1,K5.1", "K1.1=7,K2.1=0,K5:0.1=0", 1, 0, 1},
    {"ReadListOfNineInChunks",
     0,
     {"K12.0=3", "X6.0=-4"},
     READ_NINE,
     "K1.0=1000,K2.0=0,K12.0=3,K20.0=0x0,K40.0=0,X5.0=0,X6.0=-4,X7.0=0,K12:1.0=0",
     1,
     0,
     1},
    {"StringReadInChunks", 0, {"K30.0=\"hello\""}, "K30.0", "K30.0=\"HELLO\"", 1, 0, 1},
    {"IpAddressRead", 0, {}, "K31.0", "K31.0=\"192.168.0.10\"", 1, 0, 1},
    {"VectorRead", 0, {"V1.0=[1,2,3,4]"}, "V1.0", "V1.0=[0x1,0x2,0x3,0x4]", 1, 0, 1},
    {"MatrixRead",
     0,
     {"TF2.0=[[1.5F,0.0F,0.0F],[0.0F,0.0F,-2.0F]]"},
     "TF2.0",
     "TF2.0=[[1.5F,0.0F,0.0F],[0.0F,0.0F,-2.0F]]",
     1,
     0,
     1},
    {"CompoundResult", 0, {"X5.0=3", "X5.0*=4", "X5.0-=2"}, "X5.0", "X5.0=10", 1, 0, 1},
    {"Int64", 0, {"KL1.0=77L"}, "KL1.0", "KL1.0=77L", 1, 0, 1},
    {"Float", 0, {"KF1.0=2.5F"}, "KF1.0", "KF1.0=2.5F", 1, 0, 1},
    {"Command", 0, {}, "CLX.0", "CLX.0", 1, 0, 0},
    {"CommandWithEnumeration", 0, {}, "PWR.0=1", "PWR.0=1", 1, 0, 0},
    {"CommandOfPage56", 0, {}, "DBG.0=1,0x10", "DBG.0=1,16", 1, 0, 0},
    {"ListCommand", 0, {}, "TRJ.0=[1,2],[3,4]", "TRJ.0=[1,2],[3,4]", 1, 0, 0},
    {"BangPrefix", 0, {}, "!K12.0=1", "!K12.0=1", 1, 0, 0},
    {"DefaultAxesAreThePresentOnes", 0, {}, "K12=2", "*K12.(0,1,2,3)=2", 1, 0, 0},
    {"Axis63Read", 0, {"*W10=300"}, "*W10", "*W10=300", 1, 0, 1},
    {"RawRecord",
     0,
     {},
     "[MASK:0X1,GATE:0,CMD:123,REC:32,TYP:2,PAR:0X4000000C,TYP:0,PAR:3]",
     "K12.0=3",
     1,
     0,
     0},
    {"RefusedByTheDrive", TRA_FNO_CHECK, {}, "K12.0=9", "K12.0=9", 0, 1, 0},
    {"RefusedCommand", 0, {}, "MVE.0=100L,5.0F,10.0D", "MVE.0=100L,5.0F,10.0D", 0, 1, 0},
    {"RequestFlagOfTheTranslator", TRA_FREQUEST_FLAG, {}, "K12.0=1", "K12.0=1", 1, 0, 1},
};

class CommandForms : public testing::TestWithParam<Form> {};

TEST_P(CommandForms, AnswerReadBackAsText) {
    const Form &f = GetParam();
    OnBus b("sim:", f.flags);
    for (const char *line : f.setup) {
        const Answer a = roundtrip(b.tra, line);
        ASSERT_EQ(a.send_rc, 0) << line;
        ASSERT_EQ(a.ack, 1) << line << " -> " << a.text;
    }
    const Answer a = roundtrip(b.tra, f.line, 0x1234567890ULL);
    ASSERT_EQ(a.send_rc, 0);
    EXPECT_EQ(a.sent, 1);
    ASSERT_EQ(a.rc, 0);
    EXPECT_EQ(a.text, f.answer);
    EXPECT_EQ(a.ack, f.ack);
    EXPECT_EQ(a.status, f.status);
    EXPECT_EQ(a.request, f.request);
    EXPECT_EQ(a.user, 0x1234567890ULL);
    EXPECT_EQ(receive(b.tra, 0).rc, TRA_ENOCOMMAND) << "one answer per command";
}

INSTANTIATE_TEST_SUITE_P(Sim, CommandForms, testing::ValuesIn(FORMS),
                         [](const auto &info) { return std::string(info.param.name); });

// ---- The exchange ----

// A read of K1, K2 and K12 in one record.
Record read_three() {
    Record r;
    EXPECT_EQ(oxb_build_record(r.bytes, 3, 18, 0, "iii", 2u, 1u, 2u, 2u, 2u, 12u), 0);
    return r;
}

struct ExchangeCase {
    const char *name;
    Record request;
    int capacity;
    int expected;
};

void PrintTo(const ExchangeCase &c, std::ostream *os) {
    *os << c.name;
}

const ExchangeCase EXCHANGES[] = {
    {"ReadAcknowledged", read(2, 1), 65, 0},
    {"AssignmentAcknowledged", assign(2, 12, 2), 2, 0},
    {"ReplyWithoutAcknowledge", assign(2, 12, 9), 2, TRA_ENOACK},
    {"ReplyAboveCapacity", read_three(), 2, TRA_EBADPARAM},
};

class Exchange : public testing::TestWithParam<ExchangeCase> {};

TEST_P(Exchange, ReplyReplacesTheRequestOnlyWhenItFits) {
    const ExchangeCase &c = GetParam();
    OnBus b;
    Record request = c.request;
    const Record before = request;
    sup_trace_clear();
    ASSERT_EQ(ryn::tra::_tra_oxb_send_receive_1(
                  b.tra, 1, reinterpret_cast<TRA_RECORD *>(request.bytes), c.capacity),
              c.expected);
    if (c.expected != 0) {
        EXPECT_EQ(std::memcmp(before.bytes, request.bytes, sizeof before.bytes), 0)
            << "a refused reply leaves the request as it was";
        ASSERT_FALSE(trace().empty());
        EXPECT_EQ(trace()[0].function, "_tra_oxb_send_receive_1");
        return;
    }
    const ryn::wire::ConstRecordView reply{request.bytes};
    EXPECT_NE(reply.word() & ryn::wire::HEADER_ACK, 0u);
    if (reply.kind() == 18) {
        EXPECT_EQ(reply.value32(0), 1000u) << "K1 of axis 0";
    }
}

INSTANTIATE_TEST_SUITE_P(Sim, Exchange, testing::ValuesIn(EXCHANGES),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(Exchange, RegisterReadsByValueClass) {
    OnBus b;
    ASSERT_EQ(roundtrip(b.tra, "KL1.2=-5000000000L").ack, 1);
    ASSERT_EQ(roundtrip(b.tra, "KF1.2=12.5F").ack, 1);
    int32_t k1 = 0;
    EXPECT_EQ(ryn::tra::_tra_get_register(b.tra, 2, 2, 1, 0, &k1), 0);
    EXPECT_EQ(k1, 1000);
    int64_t kl1 = 0;
    float kf1 = 0;
    EXPECT_EQ(ryn::tra::_tra_get_register_pair(b.tra, 2, 0x42, 1, 0, &kl1, 0x22, 1, 0, &kf1), 0);
    EXPECT_EQ(kl1, -5000000000LL);
    EXPECT_EQ(kf1, 12.5F);
    EXPECT_EQ(ryn::tra::_tra_get_register_pair(b.tra, 2, 2, 1, 0, nullptr, 2, 2, 0, nullptr), 0)
        << "either place may be null";
    int32_t untouched = 42;
    EXPECT_EQ(ryn::tra::_tra_get_register(b.tra, 5, 2, 1, 0, &untouched), TRA_ENOACK)
        << "no drive at axis 5: the bus answers";
    EXPECT_EQ(untouched, 42);
}

TEST(Exchange, RepliesToOtherTicketsAreSkippedAndAnswersOfEnvelopesKept) {
    OnBus b;
    // A command in flight, a late answer of an earlier exchange, and a record of someone else's.
    uint8_t sent = 0;
    ASSERT_EQ(tra_send_direct_cmd_e(b.tra, "K12.0=2", 5, &sent), 0);
    Record stray;
    ASSERT_EQ(oxb_build_record(stray.bytes, 1, 18, 0, "i", 2u, 2u), 0);
    ASSERT_EQ(oxb_send(b.port, reinterpret_cast<void *>(uintptr_t{0x11}), 1, stray.bytes, 100), 0);
    ASSERT_EQ(oxb_send(b.port, reinterpret_cast<void *>(uintptr_t{0x1000}), 1, stray.bytes, 100),
              0);
    int32_t k12 = -1;
    ASSERT_EQ(ryn::tra::_tra_get_register(b.tra, 0, 2, 12, 0, &k12), 0);
    EXPECT_EQ(k12, 2);
    const Answer a = receive(b.tra, 0);
    EXPECT_EQ(a.rc, 0) << "the command's answer waited for its receiver";
    EXPECT_EQ(a.text, "K12.0=2");
    EXPECT_EQ(a.user, 5u);
    EXPECT_EQ(receive(b.tra, 0).rc, TRA_ENOCOMMAND);
}

// ---- Read lists in chunks under the bus lock ----

TEST(Chunks, NineRegistersGoOutAsThreeRecordsAndComeBackAsOne) {
    OnBus b;
    Envelope *e = nullptr;
    ASSERT_EQ(ryn::tra::_tra_create_cmd(b.tra, &e, READ_NINE, 0, nullptr, 9), 0);
    ASSERT_NE(e, nullptr);
    uint8_t sent = 0;
    ASSERT_EQ(ryn::tra::_tra_send_cmd(b.tra, e, ~uint64_t(0), 0, 1, &sent), 0);
    EXPECT_EQ(sent, 1);
    Envelope *answered = nullptr;
    ASSERT_EQ(ryn::tra::_tra_receive_cmd(b.tra, &answered, 1000), 0);
    ASSERT_EQ(answered, e);
    EXPECT_EQ(answered->sent, 3u);
    EXPECT_EQ(answered->answers, 3u);
    const ryn::wire::ConstRecordView answer{answered->answer};
    EXPECT_EQ(answer.count(), 9);
    EXPECT_EQ(answer.kind(), 18u);
    EXPECT_NE(answer.word() & ryn::wire::HEADER_ACK, 0u);
    EXPECT_EQ(answer.value32(0), 1000u);
    ryn::tra::_tra_free_cmd(answered);
}

TEST(Chunks, TakeTheBusLockWhileSingleRecordsOnlyWaitForIt) {
    OnBus b;
    std::atomic<bool> locked{false};
    std::thread holder([&] {
        ASSERT_EQ(oxb_lock(b.bus, 100), 0);
        locked = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1300));
        oxb_unlock(b.bus);
    });
    ASSERT_TRUE(eventually([&] { return locked.load(); }));
    const auto start = Clock::now();
    uint8_t sent = 9;
    sup_trace_clear();
    EXPECT_EQ(tra_send_direct_cmd_e(b.tra, READ_NINE, 1, &sent), TRA_EPUTREC);
    EXPECT_EQ(sent, 0);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(900)) << "waited for the lock";
    ASSERT_FALSE(trace().empty());
    EXPECT_EQ(trace()[0].function, "_tra_send_cmd");
    // A single record waits in the bus until the lock is released, then goes.
    const Answer a = roundtrip(b.tra, "K12.0");
    EXPECT_EQ(a.send_rc, 0);
    EXPECT_EQ(a.ack, 1);
    holder.join();
    EXPECT_EQ(receive(b.tra, 0).rc, TRA_ENOCOMMAND) << "the refused read list left no answer";
}

// ---- Drives that come and go ----

TEST(BusEvents, EmptyBusLearnsDrivesAsTheyComeAndForgetsThemAsTheyLeave) {
    OXB_PORT *port = nullptr;
    ASSERT_EQ(oxb_open("sim:axes=0", &port), 0);
    OXB_BUS *bus = nullptr;
    ASSERT_EQ(oxb_get_port_bus(port, &bus), 0);
    ASSERT_EQ(oxbsim_detach(bus, 0), 0);
    TRA *tra = nullptr;
    ASSERT_EQ(tra_create_direct_traductor_e(&tra, port, 0), 0) << "a bus without drives";
    EXPECT_EQ(tra_get_drv_product(tra, 64), 0u);
    uint8_t sent = 9;
    EXPECT_EQ(tra_send_direct_cmd_e(tra, "K12.0=1", 1, &sent), TRA_ECMDSYNTAX)
        << "no dictionary knows the names yet";
    EXPECT_EQ(sent, 0);

    const OXBSIM_DRIVE plain{32, 0, 0, 0, 7, 1}, carded{32, 0, 0x21, 0, 8, 1};
    ASSERT_EQ(oxbsim_attach(bus, 0, &plain), 0);
    ASSERT_TRUE(eventually([&] { return tra_get_drv_product(tra, 0) == 32; }));
    EXPECT_EQ(roundtrip(tra, "K12.0=1").ack, 1) << "names resolve after the rebuild";
    ASSERT_EQ(oxbsim_attach(bus, 1, &carded), 0);
    ASSERT_TRUE(eventually([&] { return tra_get_ext_product(tra, 1) == 0x21; }));
    EXPECT_EQ(roundtrip(tra, "C100.1=1").ack, 1) << "the card's register on the carded axis";
    EXPECT_EQ(roundtrip(tra, "C100.0=1").send_rc, TRA_EUNKNOWN) << "and not elsewhere";

    ASSERT_EQ(oxbsim_detach(bus, 1), 0);
    ASSERT_TRUE(eventually([&] { return tra_get_drv_product(tra, 1) == 0; }));
    const Answer gone = roundtrip(tra, "C100.1=1");
    EXPECT_EQ(gone.send_rc, 0) << "a line for the absent axis is dropped";
    EXPECT_EQ(gone.sent, 0);
    EXPECT_EQ(roundtrip(tra, "K12.0=2").ack, 1);
    EXPECT_EQ(tra_destroy(&tra), 0);
    oxb_close(&port);
}

TEST(BusEvents, DriveLeavingAndComingBackBesideTheControllerAtAxis63) {
    OnBus b; // the default bus: drives at 0..3 and the controller at 63
    uint8_t info[76] = {76}, ext[20] = {20};
    ASSERT_EQ(oxb_get_drive_info(b.bus, 1, info), 0);
    ASSERT_EQ(oxb_get_ext_info(b.bus, 1, ext), 0);
    auto u32 = [](const uint8_t *p) { return ryn::wire::load_u32(p); };
    const OXBSIM_DRIVE again{u32(info + 4), u32(info + 16), u32(ext + 4),
                             u32(ext + 16), u32(info + 12), u32(info + 8)};
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(oxbsim_detach(b.bus, 1), 0);
        const Answer gone = roundtrip(b.tra, "X14.1=6");
        EXPECT_EQ(gone.send_rc, 0) << "a line for the absent axis is dropped, not unknown";
        EXPECT_EQ(gone.sent, 0);
        ASSERT_EQ(oxbsim_attach(b.bus, 1, &again), 0);
        EXPECT_EQ(roundtrip(b.tra, "X14.1=7").ack, 1) << "the drive is known when attach returns";
    }
}

TEST(BusEvents, RepeatedReportsOfTheSameDriveKeepTheTables) {
    OnBus b;
    ASSERT_EQ(roundtrip(b.tra, "K12.0=1").ack, 1);
    const uint64_t generation = b.tra->generation.load();
    EXPECT_EQ(ryn::tra::_tra_bus_event(b.bus, 0, OXB_EVENT_DRIVE_PRESENT, b.tra), 0);
    EXPECT_EQ(b.tra->generation.load(), generation) << "the same set: nothing to rebuild";
    EXPECT_EQ(ryn::tra::_tra_bus_event(b.bus, 7, OXB_EVENT_DRIVE_PRESENT, b.tra), OXB_ENODRIVE);
    EXPECT_EQ(b.tra->generation.load(), generation) << "a failed question changes nothing";
}

// ---- Without a bus ----

TEST(Offline, SendsFailAsNoBusAndReceivesFindNothing) {
    TRA *tra = nullptr;
    ASSERT_EQ(tra_create_direct_traductor_o(&tra, 32, 0x03128100, 0, 0, 0), 0);
    uint8_t sent = 9;
    EXPECT_EQ(tra_send_direct_cmd_e(tra, "K12.0=1", 1, &sent), TRA_ENODRIVE);
    EXPECT_EQ(sent, 0);
    EXPECT_EQ(receive(tra, 0).rc, TRA_ENOCOMMAND);
    LineSource src({"K12.0=1"});
    EXPECT_EQ(tra_oxcom_send_direct_stream_e(tra, 1, LineSource::read, &src), TRA_EPUTREC);
    uint64_t mask = 0;
    EXPECT_EQ(tra_oxcom_set_axis_mask_e(tra, 3), TRA_EBADPARAM);
    EXPECT_EQ(tra_oxcom_get_axis_mask_e(tra, &mask), TRA_EBADPARAM);
    EXPECT_EQ(tra_is_valid_direct_traductor_e(tra), 0);
    EXPECT_EQ(tra_is_valid_direct_traductor(tra), 1);
    tra_destroy(&tra);
}

// ---- Refusals of the exported calls ----

TEST(Refusals, BadHandlesAndArgumentsAreRefusedBeforeAnythingIsTaken) {
    OnBus b;
    TRA *reg = nullptr;
    ASSERT_EQ(tra_create_register_traductor_o(&reg, 32, 0x03128100, 0, 0, 0), 0);
    char text[64];
    uint8_t byte = 0;
    TRA_STREAM_REPORT report{};
    LineSource src;
    struct Call {
        const char *name;
        int rc;
    };
    // An answer waits while every refused call below runs; it must still be there afterwards.
    ASSERT_EQ(tra_send_direct_cmd_e(b.tra, "K12.0=1", 3, &byte), 0);
    const Call calls[] = {
        {"send null", tra_send_direct_cmd_e(nullptr, "K12.0=1", 0, nullptr)},
        {"send register translator", tra_send_direct_cmd_e(reg, "K12.0=1", 0, nullptr)},
        {"send null text", tra_send_direct_cmd_e(b.tra, nullptr, 0, nullptr)},
        {"receive null", tra_receive_direct_cmd_e_ex(nullptr, text, 64, 0, 0, 0, 0, 0)},
        {"receive null text", tra_receive_direct_cmd_e_ex(b.tra, nullptr, 64, 0, 0, 0, 0, 0)},
        {"receive size 0", tra_receive_direct_cmd_e(b.tra, text, 0, 0, 0, 0, 0, 1)},
        {"stream null", tra_oxcom_send_direct_stream_e(nullptr, 1, LineSource::read, &src)},
        {"stream null reader", tra_oxcom_send_direct_stream_e(b.tra, 1, nullptr, &src)},
        {"axis mask register translator", tra_oxcom_set_axis_mask_e(reg, 1)},
        {"report null", tra_get_stream_report(b.tra, nullptr)},
        {"report size unset", tra_get_stream_report(b.tra, &report)},
        {"create on null port", tra_create_direct_traductor_e(&reg, nullptr, 0)},
    };
    for (const Call &c : calls)
        EXPECT_EQ(c.rc, TRA_EBADPARAM) << c.name;
    const Answer a = receive(b.tra, 1000);
    EXPECT_EQ(a.rc, 0);
    EXPECT_EQ(a.user, 3u);
    tra_destroy(&reg);
}

TEST(Refusals, CreationOnAPortThatIsNotOpenTracesTheFirstStep) {
    OXB_PORT *port = nullptr;
    ASSERT_EQ(oxb_open("sim:", &port), 0);
    OXB_PORT *closed = port;
    ASSERT_EQ(oxb_close(&port), 0);
    TRA *tra = nullptr;
    sup_trace_clear();
    EXPECT_EQ(tra_create_direct_traductor_e(&tra, closed, 0), TRA_EBADPARAM);
    EXPECT_EQ(tra, nullptr);
    ASSERT_EQ(trace().size(), 1u);
    EXPECT_EQ(trace()[0],
              (Frame{"tradir", 204, "tra_create_direct_traductor_e", TRA_EBADPARAM, "", ""}));
}

TEST(Refusals, TextWithoutACommandSendsNothing) {
    OnBus b;
    const Answer a = roundtrip(b.tra, "   # only a comment");
    EXPECT_EQ(a.send_rc, 0);
    EXPECT_EQ(a.sent, 0);
    EXPECT_EQ(receive(b.tra, 0).rc, TRA_ENOCOMMAND);
}

TEST(AxisMask, KeptForTheApplication) {
    OnBus b;
    uint64_t mask = 1;
    EXPECT_EQ(tra_oxcom_get_axis_mask_e(b.tra, &mask), 0);
    EXPECT_EQ(mask, 0u);
    EXPECT_EQ(tra_oxcom_set_axis_mask_e(b.tra, 0x8000000000000005ULL), 0);
    EXPECT_EQ(tra_oxcom_get_axis_mask_e(b.tra, &mask), 0);
    EXPECT_EQ(mask, 0x8000000000000005ULL);
    EXPECT_EQ(tra_oxcom_get_axis_mask_e(b.tra, nullptr), 0);
    EXPECT_EQ(tra_is_valid_direct_traductor_e(b.tra), 1);
}

// ---- Faults ----

TEST(Faults, ALostAnswerIsNothingUntilTheBusAnswersForIt) {
    OnBus b("sim:axes=0;drop=1;answer_ms=300");
    uint8_t sent = 0;
    ASSERT_EQ(tra_send_direct_cmd_e(b.tra, "K12.0=1", 11, &sent), 0);
    char text[256];
    EXPECT_EQ(tra_receive_direct_cmd_e(b.tra, text, sizeof text, 0, 0, 0, 0, 0), TRA_ENOCOMMAND)
        << "a poll";
    const auto start = Clock::now();
    EXPECT_EQ(receive(b.tra, 50).rc, TRA_ENOCOMMAND) << "a wait shorter than the answer time";
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(45));
    const Answer a = receive(b.tra, 0xFFFFFFFFu);
    EXPECT_EQ(a.rc, 0) << "the bus answers in the end";
    EXPECT_EQ(a.ack, 0);
    EXPECT_EQ(a.status, 1);
    EXPECT_EQ(a.user, 11u);
}

TEST(Faults, AClosedPortEndsAWaitingReceive) {
    OnBus b("sim:axes=0");
    std::thread closer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        OXB_PORT *port = b.port;
        oxb_close(&port);
    });
    EXPECT_EQ(receive(b.tra, 0xFFFFFFFFu).rc, TRA_EGETREC);
    closer.join();
    b.port = nullptr;
}

} // namespace
