// The tcp:// transport: the hello, records written as frames by the sending thread, and the
// reading of the connection by whichever thread needs it: a receiver waiting for its answer reads
// the socket itself (its answer wakes no other thread), and a reader thread of the transport reads
// when no receiver has for a little while, for events, replies and other ports. A lost connection
// fails every port and every waiting call; a record the server leaves unanswered is answered by
// the bus itself.
#include "tcp_transport.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <asio.hpp>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "bus.hpp"
#include "ryn/oxb.h"

namespace ryn::oxb {

namespace {

using asio::ip::tcp;

// How often the readers look for records whose answer is overdue; the longest single wait on the
// socket.
constexpr auto WATCH_PERIOD = std::chrono::milliseconds(50);
// How long the reader thread leaves the socket to the receivers after one of them last read it.
constexpr auto RECEIVER_GRACE = std::chrono::milliseconds(5);
// Bytes the reader asks the socket for at once.
constexpr std::size_t READ_CHUNK = 64 * 1024;
// Most bytes waiting to be written before further sends are refused.
constexpr std::size_t OUTBOX_LIMIT = 64u << 20;
// Largest reply payload: the drive information record.
constexpr uint32_t MAX_REPLY_PAYLOAD = sizeof(wire::DriveInfo);

// The payload size a reply of a request type carries when its code is 0.
uint32_t reply_payload_size(uint16_t request) {
    switch (request) {
    case wire::FRAME_PRESENT:
        return 8;
    case wire::FRAME_DRIVE_INFO:
        return sizeof(wire::DriveInfo);
    case wire::FRAME_EXT_INFO:
        return sizeof(wire::ExtInfo);
    case wire::FRAME_BUS_INFO:
        return sizeof(wire::BusInfo);
    case wire::FRAME_CHECK_TYPES:
        return 4;
    default:
        return 0; // FRAME_LOCK
    }
}

// A bus library code from a peer, or OXB_ELOST when it is none.
int peer_code(int32_t code) {
    return code <= OXB_ESYSTEM && code >= -299 ? code : OXB_ELOST;
}

constexpr std::size_t SEND_FAILED = SIZE_MAX;

// Writes what the socket takes now without waiting: the bytes written, or SEND_FAILED when the
// connection is broken.
std::size_t send_some(int fd, const uint8_t *data, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = ::send(fd, data + done, size - done, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (n > 0) {
            done += static_cast<std::size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
        return SEND_FAILED;
    }
    return done;
}

struct InFlight {
    Port *port; // null once the port is closed: the answer is then dropped
    void *ticket;
    uint8_t request_header[wire::RECORD_HEADER_SIZE]; // for the bus's own answer
    Clock::time_point deadline;
};

struct Call {
    uint16_t type;
    bool done = false;
    int code = 0;
    uint32_t size = 0;
    uint8_t payload[MAX_REPLY_PAYLOAD] = {};
};

} // namespace

struct TcpTransport::Link {
    // Used for the connection and the hello only.
    asio::io_context io{1};
    tcp::socket socket{io};

    int fd = -1;
    int wake_fd = -1; // an eventfd that ends a reader's poll: stop, lost, port closed, writing
    int timeout_ms = 0;
    uint32_t answer_ms = 0;
    std::string origin; // "tcp://host:port", the start of messages

    std::mutex mu;
    std::condition_variable cv; // a reply arrived, or the connection was lost
    TransportHost *host = nullptr;
    bool lost = false;
    uint64_t present = 0;
    uint64_t next_id = 1;
    std::unordered_map<uint64_t, InFlight> inflight;
    std::unordered_map<uint64_t, Call *> calls;
    std::vector<Port *> ports;
    std::vector<uint8_t> outbox; // bytes the socket did not take yet
    bool writing = false;        // the outbox is written out by the readers as the socket drains
    Clock::time_point watched;   // the last look for overdue answers

    // Who reads: the reader thread, or a receiver (pump), one at a time; the one that holds the
    // read token owns `in` and `in_used`.
    std::mutex token_mu;
    std::condition_variable token_cv;
    bool reading = false;
    std::vector<uint8_t> in = std::vector<uint8_t>(READ_CHUNK);
    std::size_t in_used = 0;
    std::atomic<int> wanted{0};            // receivers waiting for the read token
    std::atomic<bool> thread_polls{false}; // the reader thread waits in poll with the token
    std::atomic<int64_t> last_pump{0};     // when a receiver last read, ns on the clock
    std::atomic<bool> stop{false};
    std::mutex thread_mu;
    std::condition_variable thread_cv; // urgent work for the reader thread, or stop
    int urgent = 0;                    // calls waiting for a reply
    std::thread thread;

    ~Link() {
        if (wake_fd >= 0) ::close(wake_fd);
        if (fd >= 0) ::close(fd);
    }

    // Takes the read token by `until`; false when another reader kept it.
    bool take_token(Clock::time_point until) {
        std::unique_lock tl(token_mu);
        if (!token_cv.wait_until(tl, until, [&] { return !reading; })) return false;
        reading = true;
        return true;
    }
    void give_token() {
        {
            std::lock_guard tl(token_mu);
            reading = false;
        }
        token_cv.notify_one();
    }
    void kick() {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t n = ::write(wake_fd, &one, sizeof one);
    }
    // With mu held: writes one frame, at once when nothing waits before it, else after what
    // waits. Returns 0, OXB_ELOST or OXB_EQUEUEFULL.
    int write_locked(const uint8_t *frame, std::size_t size);
    // With mu held: the connection is gone; every port and waiting call learns it.
    void lose_locked();
    // With mu held: a call's frame written and its reply awaited (mu released meanwhile).
    int call_locked(std::unique_lock<std::mutex> &lk, uint16_t type, int32_t arg,
                    const uint8_t *extra, uint32_t extra_size, int wait_ms, uint8_t *payload);

    // With the read token: one wait on the socket of at most `wait`, then what it brings read and
    // delivered, the outbox written, overdue answers given.
    void read_once(std::chrono::milliseconds wait);
    bool dispatch(std::size_t n);
    bool handle(uint16_t type, const uint8_t *body, uint32_t size, Clock::time_point now);
    void flush_locked();
    void watch_locked(Clock::time_point now);
    void run_thread();
    void pump(Port *port, Clock::time_point until);
};

int TcpTransport::Link::write_locked(const uint8_t *frame, std::size_t size) {
    if (lost) return OXB_ELOST;
    if (writing) {
        if (outbox.size() + size > OUTBOX_LIMIT) return OXB_EQUEUEFULL;
        outbox.insert(outbox.end(), frame, frame + size);
        return 0;
    }
    const std::size_t done = send_some(fd, frame, size);
    if (done == SEND_FAILED) {
        lose_locked();
        return OXB_ELOST;
    }
    if (done == size) return 0;
    // The socket is full: the readers write the rest as the server takes it.
    outbox.insert(outbox.end(), frame + done, frame + size);
    writing = true;
    {
        std::lock_guard tl(thread_mu);
        ++urgent;
    }
    thread_cv.notify_one();
    kick();
    return 0;
}

void TcpTransport::Link::flush_locked() {
    const std::size_t done = send_some(fd, outbox.data(), outbox.size());
    if (done == SEND_FAILED) {
        lose_locked();
        return;
    }
    outbox.erase(outbox.begin(), outbox.begin() + static_cast<std::ptrdiff_t>(done));
    if (outbox.empty() && writing) {
        writing = false;
        std::lock_guard tl(thread_mu);
        --urgent;
    }
}

void TcpTransport::Link::lose_locked() {
    if (lost) return;
    lost = true;
    for (Port *p : ports)
        p->fail(OXB_ELOST);
    inflight.clear();
    for (auto &[id, call] : calls) {
        call->done = true;
        call->code = OXB_ELOST;
    }
    outbox.clear();
    cv.notify_all();
    ::shutdown(fd, SHUT_RDWR); // the server learns it at once; the descriptor stays until the end
    kick();
}

int TcpTransport::Link::call_locked(std::unique_lock<std::mutex> &lk, uint16_t type, int32_t arg,
                                    const uint8_t *extra, uint32_t extra_size, int wait_ms,
                                    uint8_t *payload) {
    if (lost) return OXB_ELOST;
    const uint64_t id = next_id++;
    std::vector<uint8_t> frame(wire::FRAME_HEADER_SIZE + sizeof(wire::CallBody) + extra_size);
    wire::store_frame_header(frame.data(), static_cast<uint32_t>(frame.size()) - 8, type);
    uint8_t *body = frame.data() + wire::FRAME_HEADER_SIZE;
    wire::store_u64(body + offsetof(wire::CallBody, call), id);
    wire::store_u32(body + offsetof(wire::CallBody, arg), static_cast<uint32_t>(arg));
    if (extra_size > 0) std::memcpy(body + sizeof(wire::CallBody), extra, extra_size);
    Call call{type};
    calls[id] = &call;
    int rc = write_locked(frame.data(), frame.size());
    if (rc == 0) {
        // The reader thread reads at once for the reply, whatever the receivers do.
        {
            std::lock_guard tl(thread_mu);
            ++urgent;
        }
        thread_cv.notify_one();
        auto done = [&] { return call.done; };
        if (wait_ms < 0)
            cv.wait(lk, done);
        else
            cv.wait_until(lk, Clock::now() + std::chrono::milliseconds(wait_ms), done);
        rc = !call.done ? OXB_ENOTHING : call.code;
        std::lock_guard tl(thread_mu);
        --urgent;
    }
    calls.erase(id);
    if (rc == 0 && payload != nullptr) std::memcpy(payload, call.payload, call.size);
    return rc;
}

void TcpTransport::Link::read_once(std::chrono::milliseconds wait) {
    bool want_out = false;
    {
        std::lock_guard lk(mu);
        if (lost) return;
        want_out = writing;
    }
    pollfd p[2] = {{fd, static_cast<short>(POLLIN | (want_out ? POLLOUT : 0)), 0},
                   {wake_fd, POLLIN, 0}};
    const int n = ::poll(p, 2, static_cast<int>(wait.count()));
    if (n > 0 && (p[1].revents & POLLIN) != 0) {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t r = ::read(wake_fd, &count, sizeof count);
    }
    bool lost_now = false;
    if (n > 0 && (p[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
        const ssize_t got = ::recv(fd, in.data() + in_used, in.size() - in_used, MSG_DONTWAIT);
        if (got > 0)
            lost_now = !dispatch(static_cast<std::size_t>(got));
        else if (got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR))
            lost_now = true;
    }
    std::lock_guard lk(mu);
    if (lost_now) lose_locked();
    if (lost) return;
    if (writing && n > 0 && (p[0].revents & POLLOUT) != 0) flush_locked();
    const Clock::time_point now = Clock::now();
    if (now - watched >= WATCH_PERIOD) watch_locked(now);
}

bool TcpTransport::Link::dispatch(std::size_t n) {
    in_used += n;
    std::size_t pos = 0;
    {
        std::lock_guard lk(mu);
        if (lost) return true;
        const Clock::time_point now = Clock::now();
        while (in_used - pos >= wire::FRAME_HEADER_SIZE) {
            const wire::FrameHeader h = wire::load_frame_header(in.data() + pos);
            if (h.zero != 0 || h.size > wire::NET_MAX_BODY || wire::frame_fixed_size(h.type) == 0 ||
                h.size < wire::frame_fixed_size(h.type))
                return false; // not the protocol: nothing after it can be trusted
            if (in_used - pos < wire::FRAME_HEADER_SIZE + h.size) break;
            if (!handle(h.type, in.data() + pos + wire::FRAME_HEADER_SIZE, h.size, now))
                return false;
            pos += wire::FRAME_HEADER_SIZE + h.size;
        }
    }
    std::memmove(in.data(), in.data() + pos, in_used - pos);
    in_used -= pos;
    return true;
}
bool TcpTransport::Link::handle(uint16_t type, const uint8_t *body, uint32_t size,
                                Clock::time_point now) {
    switch (type) {
    case wire::FRAME_ANSWER: {
        const uint8_t *record = body + sizeof(wire::AnswerBody);
        if (!wire::holds_one_record(record, size - static_cast<uint32_t>(sizeof(wire::AnswerBody))))
            return false;
        const auto it = inflight.find(wire::load_u64(body));
        if (it == inflight.end()) return true; // answered by the bus already, or its port closed
        if (it->second.port != nullptr)
            it->second.port->post(it->second.ticket, wire::ConstRecordView{record}, now, now);
        inflight.erase(it);
        return true;
    }
    case wire::FRAME_EVENT: {
        const int32_t axis = static_cast<int32_t>(wire::load_u32(body));
        const int32_t event = static_cast<int32_t>(wire::load_u32(body + 4));
        if (size != sizeof(wire::EventBody) || axis < 0 || axis > 63 ||
            (event != OXB_EVENT_DRIVE_PRESENT && event != OXB_EVENT_DRIVE_GONE))
            return false;
        const uint64_t bit = uint64_t{1} << axis;
        present = event == OXB_EVENT_DRIVE_PRESENT ? present | bit : present & ~bit;
        if (host != nullptr) host->raise_event(axis, event);
        return true;
    }
    case wire::FRAME_REFUSED:
        return false; // the server gave up on this client
    default:
        break;
    }
    if ((type & wire::NET_REPLY) == 0) return false; // a client's frame, or the hello's reply
    const uint16_t request = type & ~wire::NET_REPLY;
    const uint64_t id = wire::load_u64(body + offsetof(wire::ReplyBody, call));
    const int32_t code =
        static_cast<int32_t>(wire::load_u32(body + offsetof(wire::ReplyBody, code)));
    const uint32_t payload = size - static_cast<uint32_t>(sizeof(wire::ReplyBody));
    if (payload != (code == 0 ? reply_payload_size(request) : 0)) return false;
    const auto it = calls.find(id);
    if (it == calls.end() || it->second->type != request) {
        if (request == wire::FRAME_LOCK && code == 0) {
            // Granted after its caller gave up waiting: given back at once.
            uint8_t frame[wire::FRAME_HEADER_SIZE + sizeof(wire::CallBody)] = {};
            wire::store_frame_header(frame, sizeof(wire::CallBody), wire::FRAME_UNLOCK);
            wire::store_u64(frame + wire::FRAME_HEADER_SIZE, id);
            write_locked(frame, sizeof frame);
        }
        return true;
    }
    Call &call = *it->second;
    call.done = true;
    call.code = code == 0 ? 0 : peer_code(code);
    call.size = payload;
    std::memcpy(call.payload, body + sizeof(wire::ReplyBody), payload);
    // The presence mask is taken here, in the order of the stream: the events that follow the
    // reply change it after, and an event already read cannot be undone by an older mask.
    if (request == wire::FRAME_PRESENT && code == 0)
        present = wire::load_u64(body + sizeof(wire::ReplyBody));
    cv.notify_all();
    return true;
}

void TcpTransport::Link::watch_locked(Clock::time_point now) {
    watched = now;
    for (auto it = inflight.begin(); it != inflight.end();) {
        if (it->second.deadline > now) {
            ++it;
            continue;
        }
        // The server has not answered in time: the bus answers the record itself.
        alignas(8) uint8_t answer[wire::RECORD_MAX_SIZE];
        wire::write_bus_answer(wire::ConstRecordView{it->second.request_header},
                               wire::RecordView{answer});
        if (it->second.port != nullptr)
            it->second.port->post(it->second.ticket, wire::ConstRecordView{answer}, now, now);
        it = inflight.erase(it);
    }
}

int64_t ticks(Clock::time_point t) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(t.time_since_epoch()).count();
}

void TcpTransport::Link::run_thread() {
    for (;;) {
        {
            // Receivers read for themselves: the thread leaves the socket to them while one has
            // read lately, unless a call waits for its reply or the outbox waits.
            std::unique_lock tl(thread_mu);
            for (;;) {
                if (stop.load() || urgent > 0) break;
                const Clock::time_point resume =
                    Clock::time_point{std::chrono::nanoseconds(last_pump.load())} + RECEIVER_GRACE;
                const Clock::time_point now = Clock::now();
                if (wanted.load() == 0 && now >= resume) break;
                thread_cv.wait_until(tl, std::max(resume, now + std::chrono::milliseconds(1)));
            }
        }
        if (stop.load()) return;
        bool gone = false;
        {
            std::lock_guard lk(mu);
            gone = lost;
        }
        if (gone) {
            // Nothing more to read: the thread waits for the end.
            std::unique_lock tl(thread_mu);
            thread_cv.wait(tl, [&] { return stop.load(); });
            return;
        }
        if (!take_token(Clock::now() + WATCH_PERIOD)) continue;
        thread_polls.store(true);
        while (!stop.load() && wanted.load() == 0) {
            read_once(WATCH_PERIOD);
            std::lock_guard lk(mu);
            if (lost) break;
        }
        thread_polls.store(false);
        give_token();
    }
}

void TcpTransport::Link::pump(Port *port, Clock::time_point until) {
    wanted.fetch_add(1);
    if (thread_polls.load()) kick(); // the reader thread gives the socket up at once
    const bool got = take_token(std::min(until, Clock::now() + WATCH_PERIOD));
    wanted.fetch_sub(1);
    if (!got) return; // the caller looks at its port and comes again
    last_pump.store(ticks(Clock::now()));
    while (!port->has_news() && !stop.load()) {
        const Clock::time_point now = Clock::now();
        if (now >= until) break;
        {
            std::lock_guard lk(mu);
            if (lost) break;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - now) +
                          std::chrono::milliseconds(1);
        read_once(std::min<std::chrono::milliseconds>(left, WATCH_PERIOD));
    }
    last_pump.store(ticks(Clock::now()));
    give_token();
}

namespace {

// Runs the context until done() or the deadline; false at the deadline.
template <typename Done>
bool run_until(asio::io_context &io, Done done, Clock::time_point deadline) {
    while (!done()) {
        if (Clock::now() >= deadline) return false;
        io.run_one_until(deadline);
        if (io.stopped()) io.restart();
    }
    return true;
}

} // namespace

int TcpTransport::connect(const TcpAddress &address, std::unique_ptr<TcpTransport> *out,
                          std::string *message) {
    auto link = std::make_shared<Link>();
    link->timeout_ms = address.timeout_ms;
    const std::string host =
        address.host.find(':') != std::string::npos ? "[" + address.host + "]" : address.host;
    link->origin = "tcp://" + host + ":" + std::to_string(address.port);
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(address.timeout_ms);
    auto fail = [&](int code, const std::string &why) {
        std::error_code ignored;
        link->socket.close(ignored);
        link->io.stop();
        *message = link->origin + ": " + why;
        return code;
    };
    auto timed_out = [&](const char *what) {
        return fail(OXB_ENOTHING, std::string("no ") + what + " within " +
                                      std::to_string(address.timeout_ms) + " ms");
    };

    // Name, connection, hello, each within what is left of the timeout.
    tcp::resolver resolver(link->io);
    std::error_code ec;
    bool resolved = false;
    tcp::resolver::results_type endpoints;
    resolver.async_resolve(address.host, std::to_string(address.port),
                           [&](std::error_code e, tcp::resolver::results_type r) {
                               ec = e;
                               endpoints = std::move(r);
                               resolved = true;
                           });
    if (!run_until(
            link->io, [&] { return resolved; }, deadline)) {
        resolver.cancel();
        return timed_out("address for the host");
    }
    if (ec) return fail(OXB_ELOST, "cannot find the host: " + ec.message());
    bool connected = false;
    asio::async_connect(link->socket, endpoints, [&](std::error_code e, const tcp::endpoint &) {
        ec = e;
        connected = true;
    });
    if (!run_until(
            link->io, [&] { return connected; }, deadline))
        return timed_out("connection");
    if (ec) return fail(OXB_ELOST, "cannot connect: " + ec.message());
    link->socket.set_option(tcp::no_delay(true), ec);

    std::vector<uint8_t> hello(wire::FRAME_HEADER_SIZE + sizeof(wire::HelloBody) +
                               address.token.size());
    wire::store_frame_header(hello.data(), static_cast<uint32_t>(hello.size()) - 8,
                             wire::FRAME_HELLO);
    uint8_t *body = hello.data() + wire::FRAME_HEADER_SIZE;
    wire::store_u32(body + offsetof(wire::HelloBody, magic), wire::NET_MAGIC);
    wire::store_u32(body + offsetof(wire::HelloBody, version), wire::NET_VERSION);
    wire::store_u32(body + offsetof(wire::HelloBody, token_size),
                    static_cast<uint32_t>(address.token.size()));
    std::memcpy(body + sizeof(wire::HelloBody), address.token.data(), address.token.size());
    bool written = false;
    asio::async_write(link->socket, asio::buffer(hello), [&](std::error_code e, std::size_t) {
        ec = e;
        written = true;
    });
    uint8_t header[wire::FRAME_HEADER_SIZE];
    bool got_header = false;
    asio::async_read(link->socket, asio::buffer(header), [&](std::error_code e, std::size_t) {
        if (!ec) ec = e;
        got_header = true;
    });
    if (!run_until(
            link->io, [&] { return written && got_header; }, deadline))
        return timed_out("answer to the hello");
    if (ec) return fail(OXB_ELOST, "the server closed the connection: " + ec.message());
    const wire::FrameHeader h = wire::load_frame_header(header);
    const bool welcome = h.type == wire::FRAME_WELCOME && h.size == sizeof(wire::WelcomeBody);
    const bool refused = h.type == wire::FRAME_REFUSED && h.size >= sizeof(wire::RefusedBody) &&
                         h.size <= sizeof(wire::RefusedBody) + wire::NET_MAX_TEXT;
    if (h.zero != 0 || (!welcome && !refused))
        return fail(OXB_ELOST, "not a served bus (the answer to the hello is not one)");
    std::vector<uint8_t> reply(h.size);
    bool got_body = false;
    asio::async_read(link->socket, asio::buffer(reply), [&](std::error_code e, std::size_t) {
        ec = e;
        got_body = true;
    });
    if (!run_until(
            link->io, [&] { return got_body; }, deadline))
        return timed_out("answer to the hello");
    if (ec) return fail(OXB_ELOST, "the server closed the connection: " + ec.message());
    if (refused) {
        const uint32_t text_size = wire::load_u32(reply.data() + 4);
        if (text_size != h.size - sizeof(wire::RefusedBody))
            return fail(OXB_ELOST, "not a served bus (a broken refusal)");
        std::string text(reinterpret_cast<const char *>(reply.data()) + sizeof(wire::RefusedBody),
                         text_size);
        for (char &c : text)
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
        return fail(peer_code(static_cast<int32_t>(wire::load_u32(reply.data()))),
                    "the server refused the connection: " + text);
    }
    const uint32_t version = wire::load_u32(reply.data() + offsetof(wire::WelcomeBody, version));
    if (version != wire::NET_VERSION)
        return fail(OXB_ELOST, "the server speaks protocol version " + std::to_string(version) +
                                   ", this library " + std::to_string(wire::NET_VERSION));
    link->answer_ms = wire::load_u32(reply.data() + offsetof(wire::WelcomeBody, answer_ms));

    // From here on the socket is read by the receivers and the reader thread, without asio.
    link->fd = link->socket.release(ec);
    link->wake_fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (ec || link->fd < 0 || link->wake_fd < 0) return fail(OXB_ESYSTEM, "no descriptor left");
    link->watched = Clock::now();
    link->thread = std::thread([l = link.get()] { l->run_thread(); });
    std::unique_ptr<TcpTransport> transport(new TcpTransport(link));

    std::unique_lock lk(link->mu);
    uint8_t mask[8];
    const int rc = link->call_locked(
        lk, wire::FRAME_PRESENT, 0, nullptr, 0,
        std::max(1, static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                         deadline - Clock::now())
                                         .count())),
        mask);
    if (rc != 0) {
        *message =
            link->origin + (rc == OXB_ENOTHING ? ": no answer to the first request within " +
                                                     std::to_string(address.timeout_ms) + " ms"
                                               : ": the connection was lost after the hello");
        return rc;
    }
    *out = std::move(transport); // the reply's mask is already in link->present
    return 0;
}

TcpTransport::TcpTransport(std::shared_ptr<Link> link) : link_(std::move(link)) {}

TcpTransport::~TcpTransport() {
    Link *l = link_.get();
    {
        std::lock_guard lk(l->mu);
        l->host = nullptr;
    }
    {
        std::lock_guard tl(l->thread_mu);
        l->stop.store(true);
    }
    l->thread_cv.notify_all();
    l->kick();
    if (l->thread.joinable()) l->thread.join();
}

bool TcpTransport::receivers_read() const {
    return true;
}

void TcpTransport::pump(Port *port, Clock::time_point until) {
    link_->pump(port, until);
}

void TcpTransport::attach_host(TransportHost *host) {
    std::lock_guard lk(link_->mu);
    link_->host = host;
}

int TcpTransport::submit(const Outbound &out) {
    Link &l = *link_;
    const uint32_t record_size = static_cast<uint32_t>(out.record.size());
    alignas(8)
        uint8_t frame[wire::FRAME_HEADER_SIZE + sizeof(wire::SendBody) + wire::RECORD_MAX_SIZE];
    const uint32_t body_size = static_cast<uint32_t>(sizeof(wire::SendBody)) + record_size;
    wire::store_frame_header(frame, body_size, wire::FRAME_SEND);
    uint8_t *body = frame + wire::FRAME_HEADER_SIZE;
    wire::store_u64(body + offsetof(wire::SendBody, axes), out.axes);
    wire::store_u32(body + offsetof(wire::SendBody, timeout_ms),
                    static_cast<uint32_t>(out.timeout_ms));
    wire::store_u32(body + offsetof(wire::SendBody, zero), 0);
    std::memcpy(body + sizeof(wire::SendBody), out.record.bytes, record_size);

    InFlight f{out.port, out.ticket, {}, {}};
    std::memcpy(f.request_header, out.record.bytes, wire::RECORD_HEADER_SIZE);
    std::lock_guard lk(l.mu);
    if (l.lost) return OXB_ELOST;
    if (l.inflight.size() >= PORT_QUEUE_LIMIT) return OXB_EQUEUEFULL;
    // The server's answer time, the time a record may wait for the lock, and the reply time.
    f.deadline = out.sent + std::chrono::milliseconds(int64_t{l.answer_ms} + l.timeout_ms +
                                                      std::max(0, out.timeout_ms));
    const uint64_t id = l.next_id++;
    wire::store_u64(body + offsetof(wire::SendBody, ticket), id);
    l.inflight.emplace(id, f);
    const int rc = l.write_locked(frame, wire::FRAME_HEADER_SIZE + body_size);
    if (rc != 0) l.inflight.erase(id);
    return rc;
}

int TcpTransport::present_axes(uint64_t *mask) {
    std::lock_guard lk(link_->mu);
    if (link_->lost) return OXB_ELOST;
    *mask = link_->present;
    return 0;
}

int TcpTransport::with_presence(const std::function<int(uint64_t)> &f) {
    // Events are raised under the same lock, in the order the server sent them.
    std::lock_guard lk(link_->mu);
    if (link_->lost) return OXB_ELOST;
    return f(link_->present);
}

int TcpTransport::drive_info(int axis, wire::DriveInfo *info) {
    uint8_t payload[sizeof(wire::DriveInfo)];
    std::unique_lock lk(link_->mu);
    const int rc = link_->call_locked(lk, wire::FRAME_DRIVE_INFO, axis, nullptr, 0,
                                      link_->timeout_ms, payload);
    if (rc != 0) return rc;
    std::memcpy(info, payload, sizeof payload);
    return 0;
}

int TcpTransport::ext_info(int axis, wire::ExtInfo *info) {
    uint8_t payload[sizeof(wire::ExtInfo)];
    std::unique_lock lk(link_->mu);
    const int rc =
        link_->call_locked(lk, wire::FRAME_EXT_INFO, axis, nullptr, 0, link_->timeout_ms, payload);
    if (rc != 0) return rc;
    std::memcpy(info, payload, sizeof payload);
    return 0;
}

int TcpTransport::bus_flags(uint32_t *flags) {
    uint8_t payload[sizeof(wire::BusInfo)];
    std::unique_lock lk(link_->mu);
    const int rc =
        link_->call_locked(lk, wire::FRAME_BUS_INFO, 0, nullptr, 0, link_->timeout_ms, payload);
    if (rc != 0) return rc;
    *flags = wire::load_u32(payload + offsetof(wire::BusInfo, flags));
    return 0;
}

int TcpTransport::check_types(const uint8_t *types, int count, uint8_t *allowed) {
    // A list longer than a frame holds is judged in pieces.
    constexpr int piece = static_cast<int>(wire::NET_MAX_BODY - sizeof(wire::CallBody));
    uint8_t all = 1;
    for (int at = 0; at == 0 || at < count; at += piece) {
        const int n = std::min(piece, count - at);
        uint8_t payload[4];
        std::unique_lock lk(link_->mu);
        const int rc = link_->call_locked(lk, wire::FRAME_CHECK_TYPES, n, types + at,
                                          static_cast<uint32_t>(n), link_->timeout_ms, payload);
        if (rc != 0) return rc;
        if (wire::load_u32(payload) == 0) all = 0;
        if (count == 0) break;
    }
    *allowed = all;
    return 0;
}

int TcpTransport::acquire_lock(int timeout_ms) {
    std::unique_lock lk(link_->mu);
    // The server answers at the lock's timeout; the reply time covers the way back.
    const int wait = timeout_ms < 0 ? -1 : timeout_ms + link_->timeout_ms;
    const int rc = link_->call_locked(lk, wire::FRAME_LOCK, timeout_ms, nullptr, 0, wait, nullptr);
    return rc == OXB_ENOTHING ? OXB_ELOCKED : rc;
}

void TcpTransport::release_lock() {
    uint8_t frame[wire::FRAME_HEADER_SIZE + sizeof(wire::CallBody)] = {};
    wire::store_frame_header(frame, sizeof(wire::CallBody), wire::FRAME_UNLOCK);
    std::lock_guard lk(link_->mu);
    wire::store_u64(frame + wire::FRAME_HEADER_SIZE, link_->next_id++);
    link_->write_locked(frame, sizeof frame); // a lost connection has released it already
}

void TcpTransport::port_opened(Port *port) {
    std::lock_guard lk(link_->mu);
    link_->ports.push_back(port);
    if (link_->lost) port->fail(OXB_ELOST);
}

void TcpTransport::port_closed(Port *port) {
    std::lock_guard lk(link_->mu);
    std::erase(link_->ports, port);
    for (auto &[id, f] : link_->inflight)
        if (f.port == port) f.port = nullptr;
    link_->kick(); // a receiver of the port that reads the socket looks again
}

} // namespace ryn::oxb
