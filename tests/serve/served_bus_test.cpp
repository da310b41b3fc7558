// A served bus seen through tcp:// ports: the same answers, identities and checks as the sim: bus
// it serves, answers only to their sender, events to every client, the lock across clients, and
// what a lost or silent server does to a client.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <future>

#include "serve_fixture.hpp"

extern char **environ;

namespace ryn::test {
namespace {

constexpr uint64_t AXIS63 = uint64_t{1} << 63;

struct ExchangeCase {
    const char *name;
    uint64_t axes;
    Record record;
};

// Every answer over tcp equals the answer of the same record on a sim: bus of the same address.
TEST(ServedBus, AnswersAreThoseOfTheServedBus) {
    ServedBus served;
    Client tcp(served.address());
    ASSERT_EQ(tcp.rc, 0) << oxb_translate_error(tcp.rc);
    Client sim("sim:");
    const ExchangeCase cases[] = {
        {"read of a parameter", 1, read(K, 1)},
        {"assignment", 2, assign(X, 1, 77)},
        {"read back", 2, read(X, 1)},
        {"several axes, one merged answer", 0xF, assign(X, 2, 5)},
        {"absent axis: the bus's own answer", uint64_t{1} << 20, read(K, 1)},
        {"the device at axis 63", AXIS63, read(K, 1)},
        {"an unknown register: refused by the drive", 1, read(K, 60000)},
    };
    for (const ExchangeCase &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(tcp.exchange(c.axes, c.record), sim.exchange(c.axes, c.record));
    }
}

TEST(ServedBus, IdentitiesAndChecksAreThoseOfTheServedBus) {
    ServedBus served;
    Client tcp(served.address());
    ASSERT_EQ(tcp.rc, 0);
    Client sim("sim:");
    uint64_t a = 0, b = 0;
    ASSERT_EQ(oxb_get_present_axes(tcp.bus, &a), 0);
    ASSERT_EQ(oxb_get_present_axes(sim.bus, &b), 0);
    EXPECT_EQ(a, b);
    for (int axis : {0, 1, 2, 3, 4, 63, 64, -1}) {
        SCOPED_TRACE(axis);
        uint8_t x[76] = {76}, y[76] = {76};
        EXPECT_EQ(oxb_get_drive_info(tcp.bus, axis, x), oxb_get_drive_info(sim.bus, axis, y));
        EXPECT_EQ(std::memcmp(x, y, sizeof x), 0);
        uint8_t e[20] = {20}, f[20] = {20};
        EXPECT_EQ(oxb_get_ext_info(tcp.bus, axis, e), oxb_get_ext_info(sim.bus, axis, f));
        EXPECT_EQ(std::memcmp(e, f, sizeof e), 0);
    }
    uint8_t bi[12] = {12}, bj[12] = {12};
    EXPECT_EQ(oxb_get_bus_info(tcp.bus, 0, bi), 0);
    EXPECT_EQ(oxb_get_bus_info(sim.bus, 0, bj), 0);
    EXPECT_EQ(std::memcmp(bi, bj, sizeof bi), 0);
    const std::vector<std::vector<uint8_t>> lists = {{},  {1, 2, 8}, {0x21, 0x4C},
                                                     {3}, {1, 0x80}, std::vector<uint8_t>(5000, 2)};
    for (const auto &list : lists) {
        uint8_t x = 9, y = 9;
        EXPECT_EQ(oxb_check_types(tcp.bus, &x, static_cast<int>(list.size()), list.data()), 0);
        EXPECT_EQ(oxb_check_types(sim.bus, &y, static_cast<int>(list.size()), list.data()), 0);
        EXPECT_EQ(x, y) << list.size() << " types";
    }
}

TEST(ServedBus, EachClientGetsOnlyItsOwnAnswers) {
    ServedBus served;
    Client a(served.address()), b(served.address());
    ASSERT_EQ(a.rc, 0);
    ASSERT_EQ(b.rc, 0);
    constexpr int N = 200;
    int tickets_a[N], tickets_b[N];
    for (int i = 0; i < N; ++i) {
        const Record ra = assign(X, 10, static_cast<uint32_t>(i));
        const Record rb = read(K, 1);
        ASSERT_EQ(oxb_send(a.port, &tickets_a[i], 1, ra.bytes, 1000), 0);
        ASSERT_EQ(oxb_send(b.port, &tickets_b[i], 2, rb.bytes, 1000), 0);
    }
    for (auto [client, tickets, kind] : {std::tuple{&a, tickets_a, wire::REC_COMMAND},
                                         std::tuple{&b, tickets_b, wire::REC_READ}}) {
        for (int i = 0; i < N; ++i) {
            Record answer;
            void *got = nullptr;
            ASSERT_EQ(oxb_receive(client->port, &got, 0, answer.bytes, 65, 0, 3000), 0);
            EXPECT_EQ(got, &tickets[i]) << "answers in the order of the sends";
            EXPECT_EQ(answer.bytes[3], kind);
        }
        Record extra;
        EXPECT_EQ(oxb_receive(client->port, nullptr, 0, extra.bytes, 65, 0, 50), OXB_ENOTHING);
    }
}

TEST(ServedBus, EveryClientSeesAttachAndDetach) {
    ServedBus served;
    Client a(served.address()), b(served.address());
    ASSERT_EQ(a.rc, 0);
    ASSERT_EQ(b.rc, 0);
    EventLog la, lb;
    ASSERT_EQ(oxb_register_handler(a.bus, &la, ~uint64_t{0}, 0, 0, OXB_EVENT_DRIVES,
                                   EventLog::handler, &la),
              0);
    ASSERT_EQ(oxb_register_handler(b.bus, &lb, ~uint64_t{0}, 0, 0, OXB_EVENT_DRIVES,
                                   EventLog::handler, &lb),
              0);
    const std::vector<std::pair<int, int>> report = {{0, 16}, {1, 16}, {2, 16}, {3, 16}, {63, 16}};
    const OXBSIM_DRIVE drive{32, 0, 0, 0, 777, 1};
    ASSERT_EQ(oxbsim_attach(served.bus(), 9, &drive), 0);
    ASSERT_EQ(oxbsim_detach(served.bus(), 0), 0);
    auto expected = report;
    expected.push_back({9, OXB_EVENT_DRIVE_PRESENT});
    expected.push_back({0, OXB_EVENT_DRIVE_GONE});
    EXPECT_EQ(la.pairs(7), expected);
    EXPECT_EQ(lb.pairs(7), expected);
    uint64_t present = 0;
    ASSERT_EQ(oxb_get_present_axes(a.bus, &present), 0);
    EXPECT_EQ(present, 0xEull | uint64_t{1} << 9 | AXIS63);
    uint8_t info[76] = {76};
    ASSERT_EQ(oxb_get_drive_info(b.bus, 9, info), 0);
    EXPECT_EQ(wire::load_u32(info + 12), 777u) << "the serial of the drive attached";
    EXPECT_EQ(oxb_unregister_handler(a.bus, &la), 0);
    EXPECT_EQ(oxb_unregister_handler(b.bus, &lb), 0);
}

// How the other client's lock ends while a send waits for it.
enum class LockEnd { unlock, holder_closes, send_times_out };

struct LockCase {
    const char *name;
    LockEnd end;
    int send_timeout_ms;
    bool executed; // the waiting record was executed, and answered by the drive
};

class LockAcrossClients : public ::testing::TestWithParam<LockCase> {};

TEST_P(LockAcrossClients, SendWaitsForTheOtherClientsLock) {
    const LockCase &c = GetParam();
    ServedBus served;
    Client holder(served.address()), other(served.address());
    ASSERT_EQ(holder.rc, 0);
    ASSERT_EQ(other.rc, 0);
    ASSERT_EQ(oxb_lock(holder.bus, 1000), 0);
    EXPECT_EQ(oxb_lock(other.bus, 100), OXB_ELOCKED) << "the bus is the other client's";
    EXPECT_EQ(holder.exchange(1, assign(X, 3, 1)).ack(), true) << "the holder goes on";

    const Record r = assign(X, 3, 2);
    int ticket = 0;
    ASSERT_EQ(oxb_send(other.port, &ticket, 1, r.bytes, c.send_timeout_ms), 0);
    Record answer;
    void *got = nullptr;
    EXPECT_EQ(oxb_receive(other.port, &got, 0, answer.bytes, 65, 0, 150), OXB_ENOTHING)
        << "the record waits";
    if (c.end == LockEnd::unlock) {
        EXPECT_EQ(oxb_unlock(holder.bus), 0);
    }
    if (c.end == LockEnd::holder_closes) holder.close();
    const auto start = Clock::now();
    ASSERT_EQ(oxb_receive(other.port, &got, 0, answer.bytes, 65, 0, 3000), 0);
    EXPECT_LT(ms_since(start), 2000);
    EXPECT_EQ(got, &ticket);
    EXPECT_EQ(answer.ack(), c.executed);
    EXPECT_EQ(answer.is_bus_answer(), !c.executed);
    uint64_t value = 0;
    ASSERT_EQ(oxbsim_read(served.bus(), 0, X, 3, 0, &value), 0);
    EXPECT_EQ(value, c.executed ? 2u : 1u);
    if (c.end == LockEnd::holder_closes) {
        EXPECT_TRUE(served.logged("its lock released"));
    }
    if (c.end != LockEnd::send_times_out) {
        EXPECT_EQ(oxb_lock(other.bus, 1000), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Ends, LockAcrossClients,
    ::testing::Values(LockCase{"unlock", LockEnd::unlock, 5000, true},
                      LockCase{"holder_closes", LockEnd::holder_closes, 5000, true},
                      LockCase{"send_times_out", LockEnd::send_times_out, 300, false}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(ServedBus, LockIsRecursiveAndPerThreadWithinAClient) {
    ServedBus served;
    Client a(served.address());
    ASSERT_EQ(a.rc, 0);
    ASSERT_EQ(oxb_lock(a.bus, 1000), 0);
    ASSERT_EQ(oxb_lock(a.bus, 1000), 0);
    auto other_thread = std::async(std::launch::async, [&] { return oxb_lock(a.bus, 100); });
    EXPECT_EQ(other_thread.get(), OXB_ELOCKED);
    EXPECT_EQ(oxb_unlock(a.bus), 0);
    EXPECT_EQ(oxb_unlock(a.bus), 0);
    EXPECT_EQ(oxb_unlock(a.bus), OXB_ENOTLOCKED);
    Client b(served.address());
    EXPECT_EQ(oxb_lock(b.bus, 1000), 0) << "released at the server too";
}

// A server started as a child process `ryn sim serve --listen 127.0.0.1:0`.
struct Child {
    explicit Child(const std::vector<std::string> &extra = {}) {
        int out[2];
        if (::pipe(out) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclose(&actions, out[0]);
        std::vector<std::string> args = {RYN_TOOL, "sim", "serve", "--listen", "127.0.0.1:0"};
        args.insert(args.end(), extra.begin(), extra.end());
        std::vector<char *> argv;
        for (auto &a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        if (posix_spawn(&pid, RYN_TOOL, &actions, nullptr, argv.data(), environ) != 0) pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        ::close(out[1]);
        FILE *f = ::fdopen(out[0], "r");
        char line[128] = {};
        unsigned p = 0;
        if (f != nullptr && std::fgets(line, sizeof line, f) != nullptr &&
            std::sscanf(line, "listening on 127.0.0.1:%u", &p) == 1)
            port = static_cast<uint16_t>(p);
        if (f != nullptr) std::fclose(f);
    }
    ~Child() { kill(SIGKILL); }
    // Sends a signal and waits for the end; the exit status, or -1.
    int kill(int signal) {
        if (pid <= 0) return -1;
        ::kill(pid, signal);
        int status = 0;
        ::waitpid(pid, &status, 0);
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    pid_t pid = -1;
    uint16_t port = 0;
};

// How the server goes away while a client waits in oxb_receive: stopped in process (0), or a
// child server ended by a signal; a child ends cleanly on SIGTERM and SIGINT.
class ServerGone : public ::testing::TestWithParam<int> {};

TEST_P(ServerGone, WakesTheWaitingReceiverAndLaterCallsFailFast) {
    const int signal = GetParam();
    std::unique_ptr<ServedBus> in_process;
    std::unique_ptr<Child> child;
    std::string address;
    if (signal == 0) {
        in_process = std::make_unique<ServedBus>();
        address = in_process->address();
    } else {
        child = std::make_unique<Child>();
        ASSERT_NE(child->port, 0) << "the chosen port is printed";
        address = "tcp://127.0.0.1:" + std::to_string(child->port);
    }
    Client c(address);
    ASSERT_EQ(c.rc, 0);
    auto waiting = std::async(std::launch::async, [&] {
        Record r;
        return oxb_receive(c.port, nullptr, 0, r.bytes, 65, 0, 5000);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto start = Clock::now();
    if (in_process) in_process->stop();
    if (child) {
        EXPECT_EQ(child->kill(signal), signal == SIGKILL ? -1 : 0) << "the exit status";
    }
    EXPECT_EQ(waiting.get(), OXB_ELOST);
    EXPECT_LT(ms_since(start), 2000);
    EXPECT_STREQ(oxb_translate_error(OXB_ELOST), "connection to the served bus lost");

    const auto later = Clock::now();
    const Record r = read(K, 1);
    int ticket = 0;
    uint64_t mask = 0;
    uint8_t info[76] = {76};
    uint8_t allowed = 0;
    Record answer;
    EXPECT_EQ(oxb_send(c.port, &ticket, 1, r.bytes, 1000), OXB_ELOST);
    EXPECT_EQ(oxb_receive(c.port, nullptr, 0, answer.bytes, 65, 0, -1), OXB_ELOST);
    EXPECT_EQ(oxb_get_present_axes(c.bus, &mask), OXB_ELOST);
    EXPECT_EQ(oxb_get_drive_info(c.bus, 0, info), OXB_ELOST);
    EXPECT_EQ(oxb_check_types(c.bus, &allowed, 0, nullptr), OXB_ELOST);
    EXPECT_EQ(oxb_lock(c.bus, -1), OXB_ELOST);
    EXPECT_LT(ms_since(later), 500) << "later calls fail at once";
    EXPECT_EQ(oxb_close(&c.port), 0);
}

INSTANTIATE_TEST_SUITE_P(Ways, ServerGone, ::testing::Values(0, SIGTERM, SIGINT, SIGKILL),
                         [](const auto &info) {
                             return std::string(info.param == 0 ? "stopped"
                                                                : strsignal(info.param));
                         });

// A server that accepts and then says nothing, or only the hello's answers; with `came` >= 0, a
// drive at that axis comes right behind the presence reply, in the same packet.
class SilentServer {
  public:
    explicit SilentServer(bool welcome, int came = -1) {
        listen_fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a = loopback(0);
        ::bind(listen_fd_, reinterpret_cast<sockaddr *>(&a), sizeof a);
        ::listen(listen_fd_, 4);
        socklen_t len = sizeof a;
        ::getsockname(listen_fd_, reinterpret_cast<sockaddr *>(&a), &len);
        port = ntohs(a.sin_port);
        thread_ = std::thread([this, welcome, came] { serve(welcome, came); });
    }
    ~SilentServer() {
        ::shutdown(listen_fd_, SHUT_RDWR);
        if (conn_ >= 0) ::shutdown(conn_, SHUT_RDWR);
        thread_.join();
        ::close(listen_fd_);
        if (conn_ >= 0) ::close(conn_);
    }
    uint16_t port = 0;

  private:
    bool read_exactly(uint8_t *p, std::size_t n) {
        while (n > 0) {
            const ssize_t got = ::recv(conn_, p, n, 0);
            if (got <= 0) return false;
            p += got;
            n -= static_cast<std::size_t>(got);
        }
        return true;
    }
    void serve(bool welcome, int came) {
        conn_ = ::accept(listen_fd_, nullptr, nullptr);
        if (conn_ < 0) return;
        uint8_t buf[4096];
        if (welcome) {
            // The hello, then the first request (the present axes): both answered.
            uint8_t header[8];
            if (!read_exactly(header, 8) || !read_exactly(buf, wire::load_u32(header))) return;
            uint8_t w[16] = {};
            wire::store_u32(w, wire::NET_VERSION);
            wire::store_u32(w + 4, 50); // answer time
            auto f = frame(wire::FRAME_WELCOME, std::vector<uint8_t>(w, w + 16));
            ::send(conn_, f.data(), f.size(), MSG_NOSIGNAL);
            if (!read_exactly(header, 8) || !read_exactly(buf, wire::load_u32(header))) return;
            std::vector<uint8_t> reply;
            const uint8_t mask[8] = {1};
            serve::append_reply(reply, wire::FRAME_PRESENT, wire::load_u64(buf), 0, mask, 8);
            if (came >= 0) {
                uint8_t e[8];
                wire::store_u32(e, static_cast<uint32_t>(came));
                wire::store_u32(e + 4, OXB_EVENT_DRIVE_PRESENT);
                const auto event = frame(wire::FRAME_EVENT, std::vector<uint8_t>(e, e + 8));
                reply.insert(reply.end(), event.begin(), event.end());
            }
            ::send(conn_, reply.data(), reply.size(), MSG_NOSIGNAL);
        }
        while (::recv(conn_, buf, sizeof buf, 0) > 0) {
        }
    }
    int listen_fd_ = -1;
    std::atomic<int> conn_{-1}; // set by the serving thread, shut down by the destructor
    std::thread thread_;
};

TEST(SilentServer, AHelloNeverAnsweredIsATimeout) {
    SilentServer server(false);
    const auto start = Clock::now();
    OXB_PORT *p = nullptr;
    const std::string address =
        "tcp://127.0.0.1:" + std::to_string(server.port) + "?timeout_ms=200";
    EXPECT_EQ(oxb_open(address.c_str(), &p), OXB_ENOTHING);
    EXPECT_EQ(p, nullptr);
    EXPECT_NE(std::string(oxb_translate_error(OXB_ENOTHING)).find("within 200 ms"),
              std::string::npos);
    EXPECT_LT(ms_since(start), 1500);
}

TEST(SilentServer, ADriveThatComesRightBehindThePresenceReplyStaysPresent) {
    // The reply's mask is taken where the reply stands in the stream: the event read after it
    // adds its drive, and the connection's older mask must not take it away again.
    for (int round = 0; round < 5; ++round) {
        SilentServer server(true, 5);
        Client c("tcp://127.0.0.1:" + std::to_string(server.port) + "?timeout_ms=200");
        ASSERT_EQ(c.rc, 0) << oxb_translate_error(c.rc);
        uint64_t mask = 0;
        EXPECT_TRUE(eventually([&] {
            return oxb_get_present_axes(c.bus, &mask) == 0 && mask == (uint64_t{1} | 1u << 5);
        })) << "round "
            << round << ": mask 0x" << std::hex << mask;
    }
}

TEST(SilentServer, RecordsAndRequestsNeverAnsweredTimeOut) {
    SilentServer server(true);
    Client c("tcp://127.0.0.1:" + std::to_string(server.port) + "?timeout_ms=200");
    ASSERT_EQ(c.rc, 0) << oxb_translate_error(c.rc);
    // A record: the bus's own answer after the answer time and the reply time, for a receiver
    // that waits without limit.
    const Record r = read(K, 1);
    int ticket = 0;
    auto start = Clock::now();
    ASSERT_EQ(oxb_send(c.port, &ticket, 1, r.bytes, 0), 0);
    Record answer;
    void *got = nullptr;
    ASSERT_EQ(oxb_receive(c.port, &got, 0, answer.bytes, 65, 0, -1), 0);
    EXPECT_EQ(got, &ticket);
    EXPECT_TRUE(answer.is_bus_answer());
    EXPECT_GE(ms_since(start), 240);
    EXPECT_LT(ms_since(start), 1500);
    start = Clock::now();
    uint8_t info[76] = {76};
    EXPECT_EQ(oxb_get_drive_info(c.bus, 0, info), OXB_ENOTHING);
    EXPECT_EQ(oxb_lock(c.bus, 100), OXB_ELOCKED);
    EXPECT_LT(ms_since(start), 1500);
}

} // namespace
} // namespace ryn::test
