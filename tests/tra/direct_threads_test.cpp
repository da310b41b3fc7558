// The direct translator used from several threads: a sender and a receiver on one translator
// while drives come and go, exchanges beside them, and translators destroyed while the bus raises
// events. Meant to run under ThreadSanitizer as well.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bus_helpers.hpp"
#include "server.hpp"
#include "traopn.hpp"

namespace {

using namespace ryn::test;

// Attaches and detaches a drive at an axis until stopped: the bus handler runs all along.
class Churn {
  public:
    Churn(OXB_BUS *bus, int axis)
        : thread_([this, bus, axis] {
              const OXBSIM_DRIVE drive{34, 0, 0, 0, 1, 1};
              while (!stop_.load()) {
                  oxbsim_attach(bus, axis, &drive);
                  std::this_thread::yield();
                  oxbsim_detach(bus, axis);
                  ++rounds_;
              }
          }) {}
    ~Churn() {
        stop_ = true;
        thread_.join();
    }
    int rounds() const { return rounds_.load(); }

  private:
    std::atomic<bool> stop_{false};
    std::atomic<int> rounds_{0};
    std::thread thread_;
};

TEST(Threads, OneSendsWhileAnotherReceivesAndDrivesComeAndGo) {
    OnBus b("sim:axes=0-1,63");
    constexpr int N = 150;
    Churn churn(b.bus, 5);
    std::vector<uint64_t> users;
    std::atomic<int> refused{0};
    std::thread receiver([&] {
        for (int i = 0; i < N; ++i) {
            const Answer a = receive(b.tra, 0xFFFFFFFFu);
            ASSERT_EQ(a.rc, 0) << i;
            if (a.ack != 1) ++refused;
            users.push_back(a.user);
        }
    });
    for (int i = 0; i < N; ++i) {
        const std::string line =
            "X" + std::to_string(i % 50) + "." + std::to_string(i % 2) + "=" + std::to_string(i);
        uint8_t sent = 0;
        ASSERT_EQ(tra_send_direct_cmd_e(b.tra, line.c_str(), static_cast<uint64_t>(i), &sent), 0)
            << line;
        ASSERT_EQ(sent, 1);
    }
    receiver.join();
    EXPECT_EQ(refused.load(), 0);
    std::sort(users.begin(), users.end());
    for (int i = 0; i < N; ++i)
        ASSERT_EQ(users[static_cast<std::size_t>(i)], static_cast<uint64_t>(i));
    EXPECT_GT(churn.rounds(), 0);
}

TEST(Threads, ExchangesBesideAReceiverGetTheirOwnAnswers) {
    OnBus b("sim:axes=0-1");
    ASSERT_EQ(roundtrip(b.tra, "K1.1=321").ack, 1);
    constexpr int N = 200;
    std::thread reader([&] {
        for (int i = 0; i < N; ++i) {
            int32_t v = 0;
            ASSERT_EQ(ryn::tra::_tra_get_register(b.tra, 1, 2, 1, 0, &v), 0) << i;
            ASSERT_EQ(v, 321);
        }
    });
    for (int i = 0; i < N; ++i) {
        const Answer a = roundtrip(b.tra, "K2.0=5", static_cast<uint64_t>(i));
        ASSERT_EQ(a.rc, 0) << i;
        ASSERT_EQ(a.user, static_cast<uint64_t>(i));
        ASSERT_EQ(a.text, "K2.0=5");
    }
    reader.join();
}

TEST(Threads, StreamsOnTwoTranslatorsOfOneBus) {
    OXB_PORT *p1 = nullptr, *p2 = nullptr;
    ASSERT_EQ(oxb_open("sim:name=threads-shared;axes=0-1", &p1), 0);
    ASSERT_EQ(oxb_open("sim:name=threads-shared", &p2), 0);
    TRA *t1 = nullptr, *t2 = nullptr;
    ASSERT_EQ(tra_create_direct_traductor_e(&t1, p1, 0), 0);
    ASSERT_EQ(tra_create_direct_traductor_e(&t2, p2, 0), 0);
    LineSource s1, s2;
    for (int i = 0; i < 200; ++i) {
        s1.lines.push_back("X" + std::to_string(i) + ".0=" + std::to_string(i));
        s2.lines.push_back("X" + std::to_string(i) + ".1=" + std::to_string(-i));
    }
    int rc1 = 1, rc2 = 1;
    std::thread a([&] { rc1 = tra_oxcom_send_direct_stream_e(t1, 1, LineSource::read, &s1); });
    std::thread c([&] { rc2 = tra_oxcom_send_direct_stream_e(t2, 2, LineSource::read, &s2); });
    a.join();
    c.join();
    EXPECT_EQ(rc1, 0);
    EXPECT_EQ(rc2, 0);
    TRA_STREAM_REPORT r{};
    r.size = sizeof r;
    ASSERT_EQ(tra_get_stream_report(t2, &r), 0);
    EXPECT_EQ(r.acknowledged, 200u);
    tra_destroy(&t1);
    tra_destroy(&t2);
    oxb_close(&p1);
    oxb_close(&p2);
}

TEST(Threads, DestroyWhileTheBusRaisesEvents) {
    OXB_PORT *port = nullptr;
    ASSERT_EQ(oxb_open("sim:axes=0", &port), 0);
    OXB_BUS *bus = nullptr;
    ASSERT_EQ(oxb_get_port_bus(port, &bus), 0);
    Churn churn(bus, 3);
    for (int i = 0; i < 100; ++i) {
        TRA *tra = nullptr;
        ASSERT_EQ(tra_create_direct_traductor_e(&tra, port, 0), 0);
        if (i % 4 == 0) {
            // Something on the bus and a rebuild now and then.
            uint8_t sent = 0;
            ASSERT_EQ(tra_send_direct_cmd_e(tra, "K1.0=2", 1, &sent), 0);
        }
        ASSERT_EQ(tra_destroy(&tra), 0);
        ASSERT_EQ(tra, nullptr);
    }
    EXPECT_GT(churn.rounds(), 0);
    oxb_close(&port);
}

// A tcp client's view of the present drives follows the server's events: a translator created
// just after the first drive left the served bus starts from the drives that answer.
TEST(Threads, CreatedOnAServedBusJustAfterTheFirstDriveLeft) {
    ryn::serve::Options options;
    options.port = 0;
    options.bus = "sim:axes=0-1";
    std::unique_ptr<ryn::serve::Server> server;
    std::string why;
    ASSERT_EQ(ryn::serve::Server::create(options, &server, &why), 0) << why;
    std::thread serving([&] { server->run(); });
    OXB_PORT *port = nullptr;
    ASSERT_EQ(oxb_open(("tcp://127.0.0.1:" + std::to_string(server->port())).c_str(), &port), 0);
    OXB_BUS *client = nullptr;
    ASSERT_EQ(oxb_get_port_bus(port, &client), 0);
    const OXBSIM_DRIVE drive{32, 0, 0, 0, 1, 1};
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(oxbsim_detach(server->bus(), 0), 0);
        TRA *tra = nullptr;
        EXPECT_EQ(tra_create_register_traductor_e(&tra, port, 0), 0) << round;
        tra_destroy(&tra);
        ASSERT_EQ(oxbsim_attach(server->bus(), 0, &drive), 0);
        ASSERT_TRUE(eventually([&] {
            uint64_t present = 0;
            return oxb_get_present_axes(client, &present) == 0 && (present & 1) != 0;
        }));
    }
    oxb_close(&port);
    server->stop();
    serving.join();
}

} // namespace
