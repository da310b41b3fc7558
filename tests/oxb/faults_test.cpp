// Faults of sim: buses: lost answers and the bus's own answer, refusals, drives that leave,
// latency, reproducible draws; and four threads with ports of their own on one bus.
#include <atomic>

#include "bus_fixture.hpp"

namespace {

using namespace ryn::test;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST_F(BusTest, DroppedAnswerTimesOutThenTheBusAnswers) {
    OXB_PORT *p = open("sim:drop=1;answer_ms=150");
    const auto start = steady_clock::now();
    int ticket = 0;
    ASSERT_EQ(oxb_send(p, &ticket, axis(0), assign(X, 4, 44).bytes, 0), 0);
    Record a;
    EXPECT_EQ(oxb_receive(p, nullptr, 0, a.bytes, 65, 0, 20), OXB_ENOTHING);
    void *t = nullptr;
    ASSERT_EQ(oxb_receive(p, &t, 0, a.bytes, 65, 0, -1), 0);
    EXPECT_GE(steady_clock::now() - start, milliseconds(150));
    EXPECT_EQ(t, &ticket);
    EXPECT_TRUE(a.is_bus_answer());
    EXPECT_EQ(memory(p, 0, X, 4), 44u) << "the drive executed it; only its answer was lost";
}

TEST_F(BusTest, RefusedAcknowledgeLeavesMemory) {
    OXB_PORT *p = open("sim:nack=1");
    const Record a = exchange(p, axis(1), assign(X, 4, 44));
    EXPECT_FALSE(a.ack());
    EXPECT_TRUE(a.status());
    EXPECT_EQ(memory(p, 1, X, 4), 0u);
}

TEST_F(BusTest, DriveLeavesAfterItsRecords) {
    OXB_PORT *p = open("sim:axes=0-1;detach_after=2");
    OXB_BUS *b = bus_of(p);
    EventLog log;
    ASSERT_EQ(oxb_register_handler(b, &log, ~0ull, 0, 0, 16, EventLog::handler, &log), 0);
    EXPECT_TRUE(exchange(p, axis(0), read(K, 1)).ack());
    EXPECT_TRUE(exchange(p, axis(0), read(K, 1)).ack());
    const auto events = log.wait_for(3);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[2].axis, 0);
    EXPECT_EQ(events[2].event, OXB_EVENT_DRIVE_GONE);
    uint64_t present = 0;
    ASSERT_EQ(oxb_get_present_axes(b, &present), 0);
    EXPECT_EQ(present, axis(1));
    EXPECT_TRUE(exchange(p, axis(0), read(K, 1), 0).is_bus_answer());
    EXPECT_EQ(oxb_unregister_handler(b, &log), 0);
}

TEST_F(BusTest, LatencyHoldsTheAnswerBack) {
    OXB_PORT *p = open("sim:latency_us=20000");
    const auto start = steady_clock::now();
    ASSERT_EQ(oxb_send(p, nullptr, axis(0), read(K, 1).bytes, 0), 0);
    Record a;
    EXPECT_EQ(oxb_receive(p, nullptr, 0, a.bytes, 65, 0, 0), OXB_ENOTHING);
    ASSERT_EQ(oxb_receive(p, nullptr, 0, a.bytes, 65, 0, -1), 0);
    EXPECT_GE(steady_clock::now() - start, milliseconds(20));
    EXPECT_TRUE(a.ack());
}

// Which of n records lost their answer, on a bus of drop=0.5 and the given seed.
std::vector<bool> drop_pattern(const std::string &seed, int n) {
    OXB_PORT *p = nullptr;
    EXPECT_EQ(oxb_open(("sim:axes=0;drop=0.5;answer_ms=0;seed=" + seed).c_str(), &p), 0);
    std::vector<bool> lost;
    for (int i = 0; i < n; ++i) {
        EXPECT_EQ(oxb_send(p, nullptr, 1, read(K, 1).bytes, 0), 0);
        Record a;
        EXPECT_EQ(oxb_receive(p, nullptr, 0, a.bytes, 65, 0, 1000), 0);
        lost.push_back(a.is_bus_answer());
    }
    oxb_close(&p);
    return lost;
}

TEST_F(BusTest, FaultsAreReproducibleWithASeed) {
    const auto a = drop_pattern("42", 64);
    EXPECT_EQ(a, drop_pattern("42", 64));
    EXPECT_NE(a, drop_pattern("43", 64));
    const auto lost = std::count(a.begin(), a.end(), true);
    EXPECT_GT(lost, 10);
    EXPECT_LT(lost, 54);

    // Setting the faults restarts the draws from the seed.
    OXB_PORT *p = open("sim:axes=0");
    OXBSIM_FAULTS f{};
    ASSERT_EQ(oxbsim_get_faults(bus_of(p), &f), 0);
    f.drop = 0.5;
    f.answer_ms = 0;
    f.seed = 42;
    ASSERT_EQ(oxbsim_set_faults(bus_of(p), &f), 0);
    std::vector<bool> again;
    for (int i = 0; i < 64; ++i)
        again.push_back(exchange(p, 1, read(K, 1)).is_bus_answer());
    EXPECT_EQ(again, a);
}

TEST(Threads, FourPortsOnOneBusEachGetTheirOwnAnswers) {
    constexpr int threads = 4;
    constexpr int records = 10000;
    constexpr int in_flight = 8;
    std::atomic<int> failures{0};
    OXB_PORT *keeper = nullptr; // keeps the named bus open while the threads come and go
    ASSERT_EQ(oxb_open("sim:name=threads", &keeper), 0);
    auto worker = [&](int id) {
        OXB_PORT *p = nullptr;
        if (oxb_open("sim:name=threads", &p) != 0) {
            ++failures;
            return;
        }
        // The ticket carries the sender and the record number; the answer echoes the value.
        auto ticket_of = [&](int i) {
            return reinterpret_cast<void *>(
                (static_cast<uintptr_t>(id) << 20 | static_cast<uintptr_t>(i)) + 1);
        };
        int sent = 0;
        int received = 0;
        while (received < records) {
            while (sent < records && sent - received < in_flight) {
                const Record r =
                    assign(X, static_cast<uint32_t>(10 + id), static_cast<uint32_t>(sent));
                if (oxb_send(p, ticket_of(sent), axis(id), r.bytes, 1000) != 0) ++failures;
                ++sent;
            }
            Record a;
            void *t = nullptr;
            if (oxb_receive(p, &t, 0, a.bytes, 65, 0, 5000) != 0 || t != ticket_of(received) ||
                !a.ack() || a.view().value32(1) != static_cast<uint32_t>(received))
                ++failures;
            ++received;
        }
        Record none;
        if (oxb_receive(p, nullptr, 0, none.bytes, 65, 0, 0) != OXB_ENOTHING) ++failures;
        oxb_close(&p);
    };
    std::vector<std::thread> pool;
    for (int i = 0; i < threads; ++i)
        pool.emplace_back(worker, i);
    for (auto &t : pool)
        t.join();
    EXPECT_EQ(failures, 0);
    oxb_close(&keeper);
}

} // namespace
