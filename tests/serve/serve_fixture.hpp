// Helpers of the served bus tests: a server on a free loopback port run by a thread of the test,
// clients, and raw connections that write whatever a test wants.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bus_records.hpp"
#include "frames.hpp"
#include "ryn/oxbsim.h"
#include "server.hpp"

namespace ryn::test {

using Clock = std::chrono::steady_clock;
constexpr uint32_t K = 2;
constexpr uint32_t X = 1;

inline long ms_since(Clock::time_point start) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

// A served bus on 127.0.0.1 and a free port, run by a thread of the test.
class ServedBus {
  public:
    explicit ServedBus(serve::Options o = {}) {
        o.host = "127.0.0.1";
        o.port = 0;
        o.log = [this](const std::string &line) {
            std::lock_guard lk(mu_);
            log_.push_back(line);
        };
        std::string why;
        EXPECT_EQ(serve::Server::create(o, &server_, &why), 0) << why;
        if (server_) thread_ = std::thread([this] { server_->run(); });
    }
    ~ServedBus() { stop(); }
    void stop() {
        if (server_) server_->stop();
        if (thread_.joinable()) thread_.join();
    }
    uint16_t port() const { return server_->port(); }
    OXB_BUS *bus() const { return server_->bus(); }
    std::string address(const std::string &options = "") const {
        return "tcp://127.0.0.1:" + std::to_string(port()) + options;
    }
    // Whether a log line containing `text` came, waiting up to 2 s for it.
    bool logged(const std::string &text) {
        return eventually([&] {
            std::lock_guard lk(mu_);
            for (const std::string &line : log_)
                if (line.find(text) != std::string::npos) return true;
            return false;
        });
    }

  private:
    std::unique_ptr<serve::Server> server_;
    std::thread thread_;
    std::mutex mu_;
    std::vector<std::string> log_;
};

// A port opened on an address, closed at the end.
struct Client {
    explicit Client(const std::string &address) {
        rc = oxb_open(address.c_str(), &port);
        if (rc == 0) oxb_get_port_bus(port, &bus);
    }
    ~Client() { close(); }
    void close() {
        if (port != nullptr) oxb_close(&port);
    }
    Record exchange(uint64_t axes, const Record &r) { return test::exchange(port, axes, r); }
    OXB_PORT *port = nullptr;
    OXB_BUS *bus = nullptr;
    int rc = 0;
};

// A frame as bytes: header and body.
inline std::vector<uint8_t> frame(uint16_t type, const std::vector<uint8_t> &body,
                                  uint32_t size_field = UINT32_MAX) {
    std::vector<uint8_t> out;
    serve::append_frame(out, type, body.data(), body.size());
    if (size_field != UINT32_MAX) wire::store_u32(out.data(), size_field);
    return out;
}

inline std::vector<uint8_t> hello_body(const std::string &token = "",
                                       uint32_t version = wire::NET_VERSION,
                                       uint32_t magic = wire::NET_MAGIC) {
    std::vector<uint8_t> b(sizeof(wire::HelloBody) + token.size());
    wire::store_u32(b.data(), magic);
    wire::store_u32(b.data() + 4, version);
    wire::store_u32(b.data() + 8, static_cast<uint32_t>(token.size()));
    std::memcpy(b.data() + 16, token.data(), token.size());
    return b;
}

inline std::vector<uint8_t> send_body(uint64_t ticket, uint64_t axes, const Record &r) {
    std::vector<uint8_t> b(sizeof(wire::SendBody) + static_cast<std::size_t>(r.size()));
    wire::store_u64(b.data(), ticket);
    wire::store_u64(b.data() + 8, axes);
    std::memcpy(b.data() + 24, r.bytes, static_cast<std::size_t>(r.size()));
    return b;
}

// The loopback address at a port (0: any free one, for a listener).
inline sockaddr_in loopback(uint16_t port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return a;
}

// A plain socket on 127.0.0.1 that writes and reads what a test says.
class Raw {
  public:
    explicit Raw(uint16_t port) {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a = loopback(port);
        connected = ::connect(fd_, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0;
        const int one = 1;
        ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    ~Raw() { close(); }
    void close() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }
    // Closes with a reset instead of an orderly end, as a killed process's socket may.
    void abort() {
        const linger l{1, 0};
        ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &l, sizeof l);
        close();
    }
    bool write(const std::vector<uint8_t> &bytes) {
        return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }
    // Reads what arrives within timeout_ms; *closed tells whether the peer closed.
    std::vector<uint8_t> read(int timeout_ms, bool *closed) {
        std::vector<uint8_t> got;
        *closed = false;
        for (auto start = Clock::now(); ms_since(start) < timeout_ms;) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, 20) <= 0) continue;
            uint8_t buf[4096];
            const ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
            if (n <= 0) {
                *closed = true;
                break;
            }
            got.insert(got.end(), buf, buf + n);
        }
        return got;
    }
    bool connected = false;

  private:
    int fd_ = -1;
};

} // namespace ryn::test
