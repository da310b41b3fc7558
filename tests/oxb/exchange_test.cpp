// Records and their answers on sim: buses: one answer per record to its own port and ticket,
// merged answers of several axes, axis 63, absent axes, timeouts and closing.
#include <atomic>
#include <future>

#include "bus_fixture.hpp"

namespace {

using namespace ryn::test;
namespace wire = ryn::wire;

struct MergeCase {
    const char *what;
    uint64_t axes;
    Record request;
    bool ack;
    bool status;
};

class Merge : public BusTest, public ::testing::WithParamInterface<MergeCase> {};

// K100 exists only on ORX-D32 3.20A, the drive at axis 3 of the default bus.
const MergeCase merge_cases[] = {
    {"read", axis(0), read(K, 1), true, false},
    {"assignment on every drive", 0xF, assign(K, 12, 2), true, false},
    {"refused by all: out of range", 0xF, assign(K, 1, 5000000), false, true},
    {"refused by one of two", axis(0) | axis(3), assign(K, 100, 1), false, true},
    {"absent axes count for nothing", axis(3) | axis(9), assign(K, 100, 1), true, false},
};

TEST_P(Merge, AckOnlyIfAllAcknowledgedStatusIfAnyRefused) {
    const MergeCase &c = GetParam();
    OXB_PORT *p = open("sim:");
    const Record answer = exchange(p, c.axes, c.request);
    EXPECT_EQ(answer.ack(), c.ack);
    EXPECT_EQ(answer.status(), c.status);
    EXPECT_EQ(answer.view().kind(), c.request.view().kind());
    EXPECT_EQ(answer.view().command_byte(), c.request.view().command_byte());
    Record none;
    EXPECT_EQ(oxb_receive(p, nullptr, 0, none.bytes, 65, 0, 0), OXB_ENOTHING) << "answered once";
}

INSTANTIATE_TEST_SUITE_P(Answers, Merge, ::testing::ValuesIn(merge_cases),
                         [](const auto &info) { return "case" + std::to_string(info.index); });

TEST_F(BusTest, RefusalByOneAxisLeavesItsMemoryAndChangesTheOther) {
    OXB_PORT *p = open("sim:");
    exchange(p, axis(0) | axis(3), assign(K, 100, 3)); // K100 is 0..3, only on axis 3
    EXPECT_EQ(memory(p, 3, K, 100), 3u);
    EXPECT_EQ(oxbsim_read(bus_of(p), 0, K, 100, 0, nullptr), OXB_EBADPARAM);
}

TEST_F(BusTest, ReadAnswersTheValue) {
    OXB_PORT *p = open("sim:");
    const Record a = exchange(p, axis(2), read(K, 1));
    ASSERT_TRUE(a.ack());
    EXPECT_EQ(a.count(), 1);
    EXPECT_EQ(a.view().value32(0), 1000u);
}

TEST_F(BusTest, Bit63ReachesAxis63Alone) {
    OXB_PORT *p = open("sim:");
    ASSERT_TRUE(exchange(p, AXIS63, assign(X, 5, 63)).ack());
    for (int a : {0, 1, 2, 3})
        EXPECT_EQ(memory(p, a, X, 5), 0u) << a;
    EXPECT_EQ(memory(p, 63, X, 5), 63u);
    // W10 exists on the controller only: the read is answered by axis 63.
    const Record w = exchange(p, AXIS63, read(W, 10));
    EXPECT_TRUE(w.ack());
    EXPECT_EQ(w.view().value32(0), 100u);
}

TEST_F(BusTest, AllDrivesFormReachesEveryDriveAndIsAnsweredOnce) {
    OXB_PORT *p = open("sim:");
    EXPECT_TRUE(exchange(p, ALL_DRIVES, assign(X, 6, 9)).ack());
    Record none;
    EXPECT_EQ(oxb_receive(p, nullptr, 0, none.bytes, 65, 0, 0), OXB_ENOTHING);
    for (int a : {0, 1, 2, 3})
        EXPECT_EQ(memory(p, a, X, 6), 9u) << a;
    EXPECT_EQ(memory(p, 63, X, 6), 0u) << "axis 63 is not among the drives of '!'";
}

TEST_F(BusTest, AbsentAxesGetTheBusAnswerAtOnce) {
    OXB_PORT *p = open("sim:");
    const Record request = assign(X, 1, 1);
    const Record a = exchange(p, axis(10) | axis(20), request, 0);
    EXPECT_TRUE(a.is_bus_answer());
    EXPECT_EQ(a.word() & 0xFFFF0000u, request.word() & 0xFFFF0000u) << "the request's header";
}

TEST_F(BusTest, AnswersComeBackInOrderWithTheirTickets) {
    OXB_PORT *p = open("sim:");
    int tickets[5];
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(
            oxb_send(p, &tickets[i], axis(i % 4), assign(X, 1, static_cast<uint32_t>(i)).bytes, 0),
            0);
    for (int i = 0; i < 5; ++i) {
        Record a;
        void *t = nullptr;
        ASSERT_EQ(oxb_receive(p, &t, 0, a.bytes, 65, 0, 0), 0);
        EXPECT_EQ(t, &tickets[i]);
        EXPECT_EQ(a.view().value32(1), static_cast<uint32_t>(i));
    }
}

TEST_F(BusTest, AnswersGoOnlyToTheSendingPort) {
    OXB_PORT *a = open("sim:name=ports");
    OXB_PORT *b = open("sim:name=ports");
    EXPECT_EQ(bus_of(a), bus_of(b));
    int ticket = 0;
    ASSERT_EQ(oxb_send(a, &ticket, axis(0), read(K, 1).bytes, 0), 0);
    Record r;
    EXPECT_EQ(oxb_receive(b, nullptr, 0, r.bytes, 65, 0, 0), OXB_ENOTHING);
    EXPECT_EQ(oxb_receive(a, nullptr, 0, r.bytes, 65, 0, 0), 0);
}

TEST_F(BusTest, TimeoutsPollWaitAndGiveUp) {
    OXB_PORT *p = open("sim:");
    Record r;
    EXPECT_EQ(oxb_receive(p, nullptr, 0, r.bytes, 65, 0, 0), OXB_ENOTHING);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(oxb_receive(p, nullptr, 0, r.bytes, 65, 0, 30), OXB_ENOTHING);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

TEST_F(BusTest, ClosingAPortWakesItsReceiversAndItsHandleIsRefused) {
    OXB_PORT *p = open("sim:");
    std::atomic<int> result{1};
    std::thread receiver([&] {
        Record r;
        result = oxb_receive(p, nullptr, 0, r.bytes, 65, 0, -1);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    OXB_PORT *closing = p;
    ASSERT_EQ(oxb_close(&closing), 0);
    EXPECT_EQ(closing, nullptr);
    receiver.join();
    EXPECT_EQ(result, OXB_ECLOSED);
    EXPECT_EQ(oxb_port_is_valid(p), 0);
    EXPECT_EQ(oxb_send(p, nullptr, 1, read(K, 1).bytes, 0), OXB_EBADPORT);
    EXPECT_EQ(oxb_close(&p), OXB_EBADPORT);
    ports_.clear();
}

TEST_F(BusTest, PortUsedOnOneThreadAndClosedOnAnotherReleasesItsBusAtOnce) {
    OXBSIM_COUNTS before{}, after{};
    ASSERT_EQ(oxbsim_get_counts(&before), 0);
    std::promise<OXB_PORT *> used;
    std::promise<void> checked;
    std::thread user([&] {
        OXB_PORT *p = nullptr;
        EXPECT_EQ(oxb_open("sim:axes=0", &p), 0);
        exchange(p, 1, read(K, 1)); // the last port this thread used: remembered by it
        used.set_value(p);
        checked.get_future().wait(); // parked, without another call of the bus library
    });
    OXB_PORT *p = used.get_future().get();
    ASSERT_EQ(oxb_close(&p), 0);
    ASSERT_EQ(oxbsim_get_counts(&after), 0);
    checked.set_value();
    user.join();
    EXPECT_EQ(after.buses, before.buses) << "the bus went with its last port";
    EXPECT_EQ(after.ports, before.ports);
}

TEST_F(BusTest, AnswerTooBigForTheBufferStaysForTheNextReceive) {
    OXB_PORT *p = open("sim:");
    Record request;
    ASSERT_EQ(oxb_build_record(request.bytes, 3, wire::REC_READ, 0, "iii", K, 1u, K, 2u, K, 1u), 0);
    ASSERT_EQ(oxb_send(p, nullptr, axis(0), request.bytes, 0), 0);
    alignas(8) uint8_t small[8 + 16 * 2 + 16];
    std::memset(small, 0xEE, sizeof small);
    EXPECT_EQ(oxb_receive(p, nullptr, 0, small, 2, 0, 0), OXB_ECAPACITY);
    for (uint8_t b : small)
        ASSERT_EQ(b, 0xEE) << "nothing written";
    Record r;
    EXPECT_EQ(oxb_receive(p, nullptr, 0, r.bytes, 3, 0, 0), 0);
    EXPECT_EQ(r.count(), 3);
}

TEST_F(BusTest, StreamableTypes) {
    OXB_BUS *b = bus_of(open("sim:"));
    const struct {
        std::vector<uint8_t> types;
        uint8_t allowed;
    } cases[] = {
        {{}, 1},
        {{1, 2, 8, 9, 12, 13}, 1},
        {{0x21, 0x42, 0x68, 0x6D}, 1}, // value-class variants
        {{2, 3}, 0},                   // M is not a user family
        {{6}, 0},
        {{15}, 0},
        {{16}, 0},
        {{0x82}, 0}, // not a kind word
    };
    for (const auto &c : cases) {
        uint8_t allowed = 7;
        ASSERT_EQ(oxb_check_types(b, &allowed, static_cast<int>(c.types.size()), c.types.data()),
                  0);
        EXPECT_EQ(allowed, c.allowed) << ::testing::PrintToString(c.types);
    }
}

TEST_F(BusTest, BadArgumentsAreRefusedWithTheirCodes) {
    OXB_PORT *p = open("sim:");
    OXB_BUS *b = bus_of(p);
    OXB_PORT *closed = nullptr;
    ASSERT_EQ(oxb_open("sim:", &closed), 0);
    OXB_BUS *closed_bus = bus_of(closed);
    OXB_PORT *closing = closed;
    ASSERT_EQ(oxb_close(&closing), 0);

    Record r = read(K, 1);
    Record too_many = r;
    too_many.bytes[0] = 66;
    Record bad_kind = r;
    bad_kind.bytes[3] = 0;
    Record high_kind = r;
    high_kind.bytes[3] = 200;
    wire::DriveInfo d{};
    d.size = 75;
    wire::DriveInfo ok{};
    ok.size = 76;
    uint8_t allowed = 0;
    uint64_t mask = 0;
    OXB_PORT *not_null = p;
    int owner = 0;
    const struct {
        const char *what;
        int got;
        int expected;
    } cases[] = {
        {"open: null address", oxb_open(nullptr, &closing), OXB_EBADPARAM},
        {"open: null port", oxb_open("sim:", nullptr), OXB_EBADPARAM},
        {"open: *port not null", oxb_open("sim:", &not_null), OXB_EBADPARAM},
        {"close: null", oxb_close(nullptr), OXB_EBADPARAM},
        {"close: null handle", oxb_close(&closing), OXB_EBADPORT},
        {"valid: null", oxb_port_is_valid(nullptr), 0},
        {"valid: closed", oxb_port_is_valid(closed), 0},
        {"valid: made up", oxb_port_is_valid(reinterpret_cast<OXB_PORT *>(&owner)), 0},
        {"port bus: closed", oxb_get_port_bus(closed, &b), OXB_EBADPORT},
        {"port bus: null out", oxb_get_port_bus(p, nullptr), OXB_EBADPARAM},
        {"send: null port", oxb_send(nullptr, nullptr, 1, r.bytes, 0), OXB_EBADPORT},
        {"send: closed port", oxb_send(closed, nullptr, 1, r.bytes, 0), OXB_EBADPORT},
        {"send: null record", oxb_send(p, nullptr, 1, nullptr, 0), OXB_EBADPARAM},
        {"send: no axes", oxb_send(p, nullptr, 0, r.bytes, 0), OXB_EBADPARAM},
        {"send: 66 slots", oxb_send(p, nullptr, 1, too_many.bytes, 0), OXB_EBADRECORD},
        {"send: kind 0", oxb_send(p, nullptr, 1, bad_kind.bytes, 0), OXB_EBADRECORD},
        {"send: kind 200", oxb_send(p, nullptr, 1, high_kind.bytes, 0), OXB_EBADRECORD},
        {"receive: closed", oxb_receive(closed, nullptr, 0, r.bytes, 65, 0, 0), OXB_EBADPORT},
        {"receive: null buffer", oxb_receive(p, nullptr, 0, nullptr, 65, 0, 0), OXB_EBADPARAM},
        {"receive: capacity -1", oxb_receive(p, nullptr, 0, r.bytes, -1, 0, 0), OXB_EBADPARAM},
        {"receive: reserved", oxb_receive(p, nullptr, 1, r.bytes, 65, 0, 0), OXB_EBADPARAM},
        {"present: closed bus", oxb_get_present_axes(closed_bus, &mask), OXB_EBADBUS},
        {"present: null", oxb_get_present_axes(b, nullptr), OXB_EBADPARAM},
        {"drive info: size 75", oxb_get_drive_info(b, 0, &d), OXB_EBADPARAM},
        {"drive info: axis 64", oxb_get_drive_info(b, 64, &ok), OXB_EBADPARAM},
        {"drive info: axis -1", oxb_get_drive_info(b, -1, &ok), OXB_EBADPARAM},
        {"drive info: absent", oxb_get_drive_info(b, 7, &ok), OXB_ENODRIVE},
        {"drive info: null", oxb_get_drive_info(b, 0, nullptr), OXB_EBADPARAM},
        {"ext info: size 76", oxb_get_ext_info(b, 0, &ok), OXB_EBADPARAM},
        {"bus info: reserved", oxb_get_bus_info(b, 1, &ok), OXB_EBADPARAM},
        {"handler: null", oxb_register_handler(b, &owner, ~0ull, 0, 0, 16, nullptr, nullptr),
         OXB_EBADPARAM},
        {"handler: closed bus",
         oxb_register_handler(closed_bus, &owner, ~0ull, 0, 0, 16, EventLog::handler, nullptr),
         OXB_EBADBUS},
        {"unregister: unknown owner", oxb_unregister_handler(b, &owner), OXB_ENOHANDLER},
        {"unlock: not locked", oxb_unlock(b), OXB_ENOTLOCKED},
        {"lock: closed bus", oxb_lock(closed_bus, 0), OXB_EBADBUS},
        {"types: null answer", oxb_check_types(b, nullptr, 0, nullptr), OXB_EBADPARAM},
        {"types: count -1", oxb_check_types(b, &allowed, -1, nullptr), OXB_EBADPARAM},
        {"types: null list", oxb_check_types(b, &allowed, 1, nullptr), OXB_EBADPARAM},
        {"sim: closed bus", oxbsim_detach(closed_bus, 0), OXB_EBADBUS},
        {"sim: axis 64", oxbsim_detach(b, 64), OXB_EBADPARAM},
        {"sim: no drive", oxbsim_detach(b, 9), OXB_ENODRIVE},
        {"sim: taken axis", oxbsim_attach(b, 0, &ryn::test::default_drive), OXB_EPRESENT},
        {"sim: no such element", oxbsim_write(b, 0, K, 13, 0, 1), OXB_EBADPARAM},
        {"sim: bad faults", oxbsim_set_faults(b, &ryn::test::bad_faults), OXB_EBADPARAM},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.got, c.expected) << c.what;
    EXPECT_EQ(not_null, p) << "a refused open leaves the handle alone";
    EXPECT_EQ(oxb_receive(p, nullptr, 0, r.bytes, 65, 0, 0), OXB_ENOTHING) << "nothing was sent";
}

} // namespace
