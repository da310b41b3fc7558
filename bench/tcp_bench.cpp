// Served bus speed over loopback: request-and-reply exchanges through tcp:// ports and the server
// of `ryn sim serve`, beside a bare asio ping-pong of frames of the same sizes (a blocking client,
// a server thread that answers each frame), both measured in the same run; and records per second
// with 32 in flight.
#include <benchmark/benchmark.h>

#include <asio.hpp>
#include <chrono>
#include <memory>
#include <thread>

#include "frames.hpp"
#include "ryn/oxb.h"
#include "server.hpp"
#include "wire/wire.hpp"

namespace {

namespace wire = ryn::wire;
using asio::ip::tcp;
using Clock = std::chrono::steady_clock;

struct Record {
    alignas(8) uint8_t bytes[wire::RECORD_MAX_SIZE] = {};
};

// A read of K1: one slot each way, as the served bus's frames carry it.
Record read_k1() {
    Record r;
    oxb_build_record(r.bytes, 1, wire::REC_READ, 0, "i", 2u, 1u);
    return r;
}
constexpr std::size_t REQUEST_FRAME = 8 + sizeof(wire::SendBody) + 24;  // 56 bytes
constexpr std::size_t ANSWER_FRAME = 8 + sizeof(wire::AnswerBody) + 24; // 40 bytes

// The bare ping-pong: a server thread that answers every request frame with an answer frame, and
// a blocking client; TCP_NODELAY on both ends, reads as large as the socket gives.
class BarePingPong {
  public:
    BarePingPong() : acceptor_(io_, tcp::endpoint(asio::ip::make_address("127.0.0.1"), 0)) {
        const uint16_t port = acceptor_.local_endpoint().port();
        thread_ = std::thread([this] { serve(); });
        client_.connect(tcp::endpoint(asio::ip::make_address("127.0.0.1"), port));
        client_.set_option(tcp::no_delay(true));
        std::memset(request_, 0, sizeof request_);
        wire::store_frame_header(request_, REQUEST_FRAME - 8, wire::FRAME_SEND);
    }
    ~BarePingPong() {
        std::error_code ignored;
        client_.shutdown(tcp::socket::shutdown_both, ignored);
        client_.close(ignored);
        thread_.join();
    }
    // One request written, its answer read.
    bool exchange() {
        std::error_code ec;
        asio::write(client_, asio::buffer(request_, REQUEST_FRAME), ec);
        std::size_t got = 0;
        while (!ec && got < ANSWER_FRAME)
            got += client_.read_some(asio::buffer(answer_ + got, sizeof answer_ - got), ec);
        return !ec;
    }

  private:
    void serve() {
        tcp::socket s(io_);
        acceptor_.accept(s);
        s.set_option(tcp::no_delay(true));
        uint8_t in[65536];
        uint8_t out[ANSWER_FRAME] = {};
        wire::store_frame_header(out, ANSWER_FRAME - 8, wire::FRAME_ANSWER);
        std::size_t used = 0;
        for (;;) {
            std::error_code ec;
            used += s.read_some(asio::buffer(in + used, sizeof in - used), ec);
            if (ec) return;
            std::size_t pos = 0;
            while (used - pos >= 8 && used - pos >= 8 + wire::load_u32(in + pos)) {
                pos += 8 + wire::load_u32(in + pos);
                asio::write(s, asio::buffer(out), ec);
                if (ec) return;
            }
            std::memmove(in, in + pos, used - pos);
            used -= pos;
        }
    }
    asio::io_context io_;
    tcp::acceptor acceptor_;
    tcp::socket client_{io_};
    std::thread thread_;
    uint8_t request_[REQUEST_FRAME];
    uint8_t answer_[ANSWER_FRAME];
};

// Nanoseconds per bare exchange, over n of them.
double bare_ns(int n) {
    BarePingPong bare;
    for (int i = 0; i < 200; ++i)
        bare.exchange();
    const auto start = Clock::now();
    for (int i = 0; i < n; ++i)
        bare.exchange();
    return static_cast<double>(
               std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start).count()) /
           n;
}

void BM_BarePingPong(benchmark::State &state) {
    BarePingPong bare;
    for (auto _ : state)
        if (!bare.exchange()) {
            state.SkipWithError("ping-pong failed");
            break;
        }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BarePingPong)->UseRealTime();

// A served bus in this process, and a tcp:// port on it.
struct Served {
    Served() {
        ryn::serve::Options o;
        o.host = "127.0.0.1";
        o.port = 0;
        o.bus = "sim:axes=0";
        std::string why;
        if (ryn::serve::Server::create(o, &server, &why) != 0) return;
        thread = std::thread([this] { server->run(); });
        const std::string address = "tcp://127.0.0.1:" + std::to_string(server->port());
        ok = oxb_open(address.c_str(), &port) == 0;
    }
    ~Served() {
        oxb_close(&port);
        if (server) server->stop();
        if (thread.joinable()) thread.join();
    }
    bool send() { return oxb_send(port, &ticket, 1, request.bytes, 2000) == 0; }
    bool receive() { return oxb_receive(port, nullptr, 0, answer.bytes, 65, 0, 5000) == 0; }

    std::unique_ptr<ryn::serve::Server> server;
    std::thread thread;
    OXB_PORT *port = nullptr;
    bool ok = false;
    const Record request = read_k1();
    Record answer;
    int ticket = 0;
};

// One send and the receive of its answer through the served bus; the bare ping-pong measured in
// the same run beside it.
void BM_TcpExchange(benchmark::State &state) {
    const double bare = bare_ns(5000);
    Served s;
    if (!s.ok) {
        state.SkipWithError("no served bus");
        return;
    }
    const auto start = Clock::now();
    for (auto _ : state) {
        if (!s.send() || !s.receive()) {
            state.SkipWithError("exchange failed");
            break;
        }
    }
    const double ns =
        static_cast<double>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start).count()) /
        static_cast<double>(std::max<int64_t>(1, state.iterations()));
    state.SetItemsProcessed(state.iterations());
    state.counters["bare_ns"] = bare;
    state.counters["ns_per_exchange"] = ns;
    state.counters["of_bare_rate"] = bare / ns;
}
BENCHMARK(BM_TcpExchange)->UseRealTime();

// Records with 32 in flight: each answer taken is followed by one more send.
void BM_TcpPipelined(benchmark::State &state) {
    const int depth = static_cast<int>(state.range(0));
    Served s;
    if (!s.ok) {
        state.SkipWithError("no served bus");
        return;
    }
    for (int i = 0; i < depth; ++i)
        s.send();
    for (auto _ : state) {
        if (!s.receive() || !s.send()) {
            state.SkipWithError("exchange failed");
            break;
        }
    }
    for (int i = 0; i < depth; ++i)
        s.receive();
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TcpPipelined)->Arg(32)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
