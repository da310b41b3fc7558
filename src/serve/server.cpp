// The served bus: one thread runs the listener, every connection and the lock across clients;
// records are sent on one port of the served bus with a route number as their ticket, and the
// answers are routed back to the connection that sent them. Answers due at once are taken by the
// same thread right after the records that caused them; a second thread waits for the answers
// that come later (latency, the answer time), while any are outstanding.
#include "server.hpp"

#include <sys/socket.h>

#include <asio.hpp>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <deque>
#include <future>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "frames.hpp"
#include "ryn/oxbsim.h"

namespace ryn::serve {

namespace {

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;

constexpr std::size_t READ_CHUNK = 64 * 1024;
// Bytes waiting for a client that does not read them; beyond them the client is dropped.
constexpr std::size_t OUT_LIMIT = 64u << 20;
// Records of one client sent and not yet answered; beyond them the client is dropped.
constexpr std::size_t INFLIGHT_LIMIT = 65536;
// How long the answer thread waits in one receive before it looks again at its work.
constexpr int RECEIVE_SLICE_MS = 100;

struct Session {
    Session(asio::io_context &io, tcp::socket s, uint64_t n)
        : id(n), socket(std::move(s)), hello_timer(io) {}
    const uint64_t id;
    tcp::socket socket;
    asio::steady_timer hello_timer;
    std::string peer;
    bool ready = false; // said hello
    bool closed = false;
    std::vector<uint8_t> in = std::vector<uint8_t>(READ_CHUNK);
    std::size_t in_used = 0;
    std::vector<uint8_t> out;
    std::vector<uint8_t> sending;
    bool writing = false;
    bool dirty = false;       // has output to write at the end of this turn
    std::size_t inflight = 0; // records received and not answered
    std::size_t queued = 0;   // sends and locks waiting for the lock
};

// A send or a lock that waits for another client's lock.
struct Waiting {
    uint64_t session;
    uint16_t type;
    uint64_t id;
    uint64_t axes;
    bool has_deadline;
    Clock::time_point deadline;
    std::vector<uint8_t> record;
};

struct Route {
    uint64_t session;
    uint64_t ticket;
};

std::string endpoint_text(const tcp::endpoint &e) {
    const std::string a = e.address().to_string();
    return (e.address().is_v6() ? "[" + a + "]" : a) + ":" + std::to_string(e.port());
}

} // namespace

struct Server::State {
    ~State();

    Options options;
    asio::io_context io{1}; // one thread runs it
    tcp::acceptor acceptor{io};
    asio::signal_set signals{io};
    asio::steady_timer lock_timer{io};
    OXB_PORT *port = nullptr;
    OXB_BUS *bus = nullptr;
    bool handler_registered = false;
    uint32_t answer_ms = 500;
    uint16_t bound_port = 0;

    // The thread that runs the server.
    uint64_t present = 0; // as the events told it, in the order clients get them
    std::map<uint64_t, std::shared_ptr<Session>> sessions;
    uint64_t next_session = 1;
    std::unordered_map<uint64_t, Route> routes;
    uint64_t next_route = 1;
    uint64_t holder = 0; // the session that holds the lock, 0 for none
    int depth = 0;
    std::deque<Waiting> waiting;
    std::vector<std::shared_ptr<Session>> dirty;
    bool stopped = false;

    // The answer thread.
    std::thread receiver;
    std::mutex rmu;
    std::condition_variable rcv;
    bool receiving = false; // the answer thread takes the answers (else the server's thread)
    bool rstop = false;
    std::atomic<int64_t> pending{0}; // records sent on the port whose answer is not taken

    void log(const std::string &line) {
        if (options.log) options.log(line);
    }

    void start_accept();
    void on_accept(tcp::socket socket);
    void start_read(const std::shared_ptr<Session> &s, bool more);
    void receive(const std::shared_ptr<Session> &s);
    void on_read(const std::shared_ptr<Session> &s, std::size_t n);
    // Handles one frame; false when the session was closed by it.
    bool handle(Session &s, const ClientFrame &f);
    void refuse(Session &s, int32_t code, const std::string &text);
    void close_session(Session &s, const std::string &why);
    void mark(Session &s);
    void flush(const std::shared_ptr<Session> &s);
    void flush_dirty();
    void execute_send(Session &s, uint64_t ticket, uint64_t axes, const uint8_t *record);
    void answer_by_bus(Session &s, uint64_t ticket, const uint8_t *record);
    void deliver(uint64_t route, const uint8_t *record);
    void take_answers();
    // Takes, in order, every waiting send or lock that `ready` accepts, and hands it with its
    // session (when it is still there) to `act`.
    template <typename Ready, typename Act>
    void take_waiting(Ready ready, Act act);
    void run_waiting();
    void arm_lock_timer();
    void on_lock_timer();
    void broadcast(int axis, int event);
    void shutdown(const std::string &why);
    void receive_loop();

    static int on_event(OXB_BUS *, int axis, int event, void *context) {
        auto *st = static_cast<State *>(context);
        asio::post(st->io, [st, axis, event] { st->broadcast(axis, event); });
        return 0;
    }
};

// ---- connections ----

void Server::State::start_accept() {
    acceptor.async_accept([this](std::error_code ec, tcp::socket socket) {
        if (stopped) return;
        if (!ec) {
            on_accept(std::move(socket));
        } else if (ec != asio::error::operation_aborted) {
            log("accept failed: " + ec.message());
            // Out of descriptors, say: try again a little later rather than spin.
            auto timer = std::make_shared<asio::steady_timer>(io, std::chrono::milliseconds(100));
            timer->async_wait([this, timer](std::error_code) {
                if (!stopped) start_accept();
            });
            return;
        }
        start_accept();
    });
}

void Server::State::on_accept(tcp::socket socket) {
    std::error_code ec;
    const tcp::endpoint remote = socket.remote_endpoint(ec);
    const std::string peer = ec ? std::string("unknown peer") : endpoint_text(remote);
    if (static_cast<int>(sessions.size()) >= options.max_clients) {
        std::vector<uint8_t> frame;
        const std::string text =
            "the server serves " + std::to_string(options.max_clients) + " clients already";
        uint8_t body[sizeof(wire::RefusedBody)];
        wire::store_u32(body, static_cast<uint32_t>(OXB_ELOST));
        wire::store_u32(body + 4, static_cast<uint32_t>(text.size()));
        append_frame(frame, wire::FRAME_REFUSED, body, sizeof body,
                     reinterpret_cast<const uint8_t *>(text.data()), text.size());
        [[maybe_unused]] const ssize_t n =
            ::send(socket.native_handle(), frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        socket.close(ec);
        log("client " + peer + " refused: " + text);
        return;
    }
    auto s = std::make_shared<Session>(io, std::move(socket), next_session++);
    s->peer = peer;
    s->socket.set_option(tcp::no_delay(true), ec);
    s->socket.non_blocking(true, ec);
    sessions[s->id] = s;
    log("client " + peer + " connected (" + std::to_string(sessions.size()) + " of " +
        std::to_string(options.max_clients) + ")");
    s->hello_timer.expires_after(std::chrono::milliseconds(options.hello_ms));
    s->hello_timer.async_wait([this, s](std::error_code e) {
        if (!e && !s->ready)
            close_session(*s, "no hello within " + std::to_string(options.hello_ms) + " ms");
    });
    start_read(s, false);
}

void Server::State::start_read(const std::shared_ptr<Session> &s, bool more) {
    if (more) {
        // The last read filled the buffer: more may wait without a new readiness event.
        asio::post(io, [this, s] { receive(s); });
        return;
    }
    // Readiness first, then one recv: asio's own read would try the socket before waiting,
    // a system call that fails on every request of a request-and-reply client.
    s->socket.async_wait(tcp::socket::wait_read, [this, s](std::error_code ec) {
        if (s->closed) return;
        if (ec) {
            close_session(*s, "disconnected: " + ec.message());
            return;
        }
        receive(s);
    });
}

void Server::State::receive(const std::shared_ptr<Session> &s) {
    if (s->closed) return;
    const std::size_t room = s->in.size() - s->in_used;
    const ssize_t n = ::recv(s->socket.native_handle(), s->in.data() + s->in_used, room, 0);
    if (n > 0) {
        on_read(s, static_cast<std::size_t>(n));
        if (!s->closed) start_read(s, static_cast<std::size_t>(n) == room);
    } else if (n == 0) {
        close_session(*s, "disconnected");
    } else if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) {
        start_read(s, false);
    } else {
        close_session(*s, std::string("disconnected: ") + std::strerror(errno));
    }
}

void Server::State::on_read(const std::shared_ptr<Session> &s, std::size_t n) {
    s->in_used += n;
    std::size_t pos = 0;
    bool sent = false;
    for (;;) {
        ClientFrame f;
        std::size_t used = 0;
        std::string why;
        const Decoded d = next_frame(s->in.data() + pos, s->in_used - pos, &f, &used, &why);
        if (d == Decoded::need_more) break;
        if (d == Decoded::bad) {
            close_session(*s, "closed: " + why);
            break;
        }
        sent = sent || f.type == wire::FRAME_SEND;
        if (!handle(*s, f)) break;
        pos += used;
    }
    if (sent) take_answers();
    flush_dirty();
    if (s->closed) return;
    std::memmove(s->in.data(), s->in.data() + pos, s->in_used - pos);
    s->in_used -= pos;
}

void Server::State::refuse(Session &s, int32_t code, const std::string &text) {
    uint8_t body[sizeof(wire::RefusedBody)];
    wire::store_u32(body, static_cast<uint32_t>(code));
    wire::store_u32(body + 4, static_cast<uint32_t>(text.size()));
    std::vector<uint8_t> frame;
    append_frame(frame, wire::FRAME_REFUSED, body, sizeof body,
                 reinterpret_cast<const uint8_t *>(text.data()), text.size());
    [[maybe_unused]] const ssize_t n =
        ::send(s.socket.native_handle(), frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    close_session(s, "refused: " + text);
}

void Server::State::close_session(Session &s, const std::string &why) {
    if (s.closed) return;
    s.closed = true;
    std::error_code ignored;
    s.socket.shutdown(tcp::socket::shutdown_both, ignored);
    s.socket.close(ignored);
    s.hello_timer.cancel();
    log("client " + s.peer + " " + why);
    const uint64_t id = s.id;
    const std::string peer = s.peer;
    sessions.erase(id); // s may be gone from here on
    bool changed = false;
    for (auto it = waiting.begin(); it != waiting.end();)
        it = it->session == id ? (changed = true, waiting.erase(it)) : it + 1;
    if (holder == id) {
        holder = 0;
        depth = 0;
        log("client " + peer + ": its lock released");
        changed = true;
    }
    if (changed) run_waiting();
}

void Server::State::mark(Session &s) {
    if (s.dirty || s.closed) return;
    s.dirty = true;
    const auto it = sessions.find(s.id);
    if (it != sessions.end()) dirty.push_back(it->second);
}

void Server::State::flush_dirty() {
    std::vector<std::shared_ptr<Session>> list;
    list.swap(dirty);
    for (auto &s : list) {
        s->dirty = false;
        flush(s);
    }
}

void Server::State::flush(const std::shared_ptr<Session> &s) {
    if (s->closed || s->writing || s->out.empty()) return;
    if (s->out.size() > OUT_LIMIT) {
        close_session(*s, "dropped: it does not read its answers");
        return;
    }
    // Written at once when the socket takes it, which is the rule; the rest in the background.
    std::size_t done = 0;
    while (done < s->out.size()) {
        const ssize_t n = ::send(s->socket.native_handle(), s->out.data() + done,
                                 s->out.size() - done, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (n > 0) {
            done += static_cast<std::size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
        close_session(*s, "disconnected while written to");
        return;
    }
    if (done == s->out.size()) {
        s->out.clear();
        return;
    }
    s->sending.assign(s->out.begin() + static_cast<std::ptrdiff_t>(done), s->out.end());
    s->out.clear();
    s->writing = true;
    asio::async_write(s->socket, asio::buffer(s->sending),
                      [this, s](std::error_code ec, std::size_t) {
                          s->writing = false;
                          if (s->closed) return;
                          if (ec) {
                              close_session(*s, "disconnected while written to: " + ec.message());
                              return;
                          }
                          flush(s);
                      });
}

// ---- frames ----

bool Server::State::handle(Session &s, const ClientFrame &f) {
    if (!s.ready) {
        if (f.type != wire::FRAME_HELLO) {
            close_session(s, "closed: a request before the hello");
            return false;
        }
        if (f.version != wire::NET_VERSION) {
            refuse(s, OXB_ELOST,
                   "protocol version " + std::to_string(f.version) +
                       " is not served (this server speaks " + std::to_string(wire::NET_VERSION) +
                       ")");
            return false;
        }
        const std::string_view given(reinterpret_cast<const char *>(f.data), f.data_size);
        if (!options.token.empty() && !same_token(options.token, given)) {
            refuse(s, OXB_EOPTION, given.empty() ? "this server needs a token" : "wrong token");
            return false;
        }
        s.ready = true;
        s.hello_timer.cancel();
        uint8_t body[sizeof(wire::WelcomeBody)] = {};
        wire::store_u32(body + offsetof(wire::WelcomeBody, version), wire::NET_VERSION);
        wire::store_u32(body + offsetof(wire::WelcomeBody, answer_ms), answer_ms);
        wire::store_u32(body + offsetof(wire::WelcomeBody, max_body), wire::NET_MAX_BODY);
        append_frame(s.out, wire::FRAME_WELCOME, body, sizeof body);
        mark(s);
        log("client " + s.peer + " said hello");
        return true;
    }
    switch (f.type) {
    case wire::FRAME_HELLO:
        close_session(s, "closed: a second hello");
        return false;
    case wire::FRAME_SEND:
        if (s.inflight >= INFLIGHT_LIMIT) {
            close_session(s, "dropped: too many records unanswered");
            return false;
        }
        ++s.inflight;
        if ((holder == 0 || holder == s.id) && s.queued == 0) {
            execute_send(s, f.id, f.axes, f.data);
        } else if (f.arg == 0) {
            answer_by_bus(s, f.id, f.data); // no time to wait for the lock
        } else {
            ++s.queued;
            waiting.push_back({s.id, f.type, f.id, f.axes, f.arg > 0,
                               Clock::now() + std::chrono::milliseconds(std::max(0, f.arg)),
                               std::vector<uint8_t>(f.data, f.data + f.data_size)});
            arm_lock_timer();
        }
        return true;
    case wire::FRAME_LOCK:
        if (holder == s.id) {
            ++depth;
            append_reply(s.out, f.type, f.id, 0);
        } else if (holder == 0 && s.queued == 0) {
            holder = s.id;
            depth = 1;
            append_reply(s.out, f.type, f.id, 0);
        } else if (f.arg == 0) {
            append_reply(s.out, f.type, f.id, OXB_ELOCKED);
        } else {
            ++s.queued;
            waiting.push_back({s.id,
                               f.type,
                               f.id,
                               0,
                               f.arg > 0,
                               Clock::now() + std::chrono::milliseconds(std::max(0, f.arg)),
                               {}});
            arm_lock_timer();
            return true;
        }
        mark(s);
        return true;
    case wire::FRAME_UNLOCK:
        if (holder == s.id && --depth == 0) {
            holder = 0;
            run_waiting();
        }
        return true;
    case wire::FRAME_PRESENT: {
        uint8_t mask[8];
        wire::store_u64(mask, present);
        append_reply(s.out, f.type, f.id, 0, mask, sizeof mask);
        break;
    }
    case wire::FRAME_DRIVE_INFO:
    case wire::FRAME_EXT_INFO:
    case wire::FRAME_BUS_INFO: {
        const uint32_t size = f.type == wire::FRAME_DRIVE_INFO ? sizeof(wire::DriveInfo)
                              : f.type == wire::FRAME_EXT_INFO ? sizeof(wire::ExtInfo)
                                                               : sizeof(wire::BusInfo);
        uint8_t record[sizeof(wire::DriveInfo)] = {};
        wire::store_u32(record, size);
        const int rc = f.type == wire::FRAME_DRIVE_INFO ? oxb_get_drive_info(bus, f.arg, record)
                       : f.type == wire::FRAME_EXT_INFO ? oxb_get_ext_info(bus, f.arg, record)
                                                        : oxb_get_bus_info(bus, 0, record);
        append_reply(s.out, f.type, f.id, rc, record, size);
        break;
    }
    case wire::FRAME_CHECK_TYPES: {
        uint8_t allowed = 0;
        const int rc = oxb_check_types(bus, &allowed, f.arg, f.data);
        uint8_t payload[4] = {allowed, 0, 0, 0};
        append_reply(s.out, f.type, f.id, rc, payload, sizeof payload);
        break;
    }
    default:
        close_session(s, "closed: an unexpected frame");
        return false;
    }
    mark(s);
    return true;
}

// ---- records and answers ----

void Server::State::execute_send(Session &s, uint64_t ticket, uint64_t axes,
                                 const uint8_t *record) {
    const uint64_t route = next_route++;
    routes[route] = {s.id, ticket};
    pending.fetch_add(1, std::memory_order_relaxed);
    const int rc =
        oxb_send(port, reinterpret_cast<void *>(static_cast<uintptr_t>(route)), axes, record, 0);
    if (rc != 0) {
        // Refused by the bus (no axes, an unknown kind, a full queue): the bus's own answer.
        pending.fetch_sub(1, std::memory_order_relaxed);
        routes.erase(route);
        answer_by_bus(s, ticket, record);
    }
}

void Server::State::answer_by_bus(Session &s, uint64_t ticket, const uint8_t *record) {
    alignas(8) uint8_t answer[wire::RECORD_MAX_SIZE];
    wire::write_bus_answer(wire::ConstRecordView{record}, wire::RecordView{answer});
    uint8_t body[sizeof(wire::AnswerBody)];
    wire::store_u64(body, ticket);
    append_frame(s.out, wire::FRAME_ANSWER, body, sizeof body, answer, wire::RECORD_HEADER_SIZE);
    --s.inflight;
    mark(s);
}

void Server::State::deliver(uint64_t route, const uint8_t *record) {
    const auto r = routes.find(route);
    if (r == routes.end()) return;
    const Route to = r->second;
    routes.erase(r);
    const auto it = sessions.find(to.session);
    if (it == sessions.end()) return; // its client has gone
    Session &s = *it->second;
    uint8_t body[sizeof(wire::AnswerBody)];
    wire::store_u64(body, to.ticket);
    append_frame(s.out, wire::FRAME_ANSWER, body, sizeof body, record,
                 static_cast<std::size_t>(wire::ConstRecordView{record}.size()));
    --s.inflight;
    mark(s);
}

void Server::State::take_answers() {
    {
        std::lock_guard lk(rmu);
        if (receiving) return; // the answer thread takes them, in their order
    }
    alignas(8) uint8_t answer[wire::RECORD_MAX_SIZE];
    void *ticket = nullptr;
    while (pending.load(std::memory_order_relaxed) > 0 &&
           oxb_receive(port, &ticket, 0, answer, wire::RECORD_MAX_SLOTS, 0, 0) == 0) {
        pending.fetch_sub(1, std::memory_order_relaxed);
        deliver(reinterpret_cast<uintptr_t>(ticket), answer);
    }
    if (pending.load(std::memory_order_relaxed) > 0) {
        // Answers that come later (latency, the answer time): the answer thread waits for them.
        std::lock_guard lk(rmu);
        receiving = true;
        rcv.notify_one();
    }
}

void Server::State::receive_loop() {
    alignas(8) uint8_t answer[wire::RECORD_MAX_SIZE];
    for (;;) {
        {
            std::unique_lock lk(rmu);
            rcv.wait(lk, [&] { return rstop || receiving; });
            if (rstop) return;
        }
        void *ticket = nullptr;
        const int rc =
            oxb_receive(port, &ticket, 0, answer, wire::RECORD_MAX_SLOTS, 0, RECEIVE_SLICE_MS);
        if (rc == 0) {
            pending.fetch_sub(1, std::memory_order_relaxed);
            std::vector<uint8_t> copy(answer, answer + wire::ConstRecordView{answer}.size());
            asio::post(io, [this, ticket, copy = std::move(copy)] {
                deliver(reinterpret_cast<uintptr_t>(ticket), copy.data());
                flush_dirty();
            });
            continue;
        }
        std::lock_guard lk(rmu);
        if (rc != OXB_ENOTHING) return; // the port is closed: the server stops
        if (pending.load(std::memory_order_relaxed) == 0) receiving = false;
    }
}

// ---- the lock across clients ----

template <typename Ready, typename Act>
void Server::State::take_waiting(Ready ready, Act act) {
    for (auto it = waiting.begin(); it != waiting.end();) {
        if (!ready(*it)) {
            ++it;
            continue;
        }
        const auto s = sessions.find(it->session);
        if (s != sessions.end()) {
            --s->second->queued;
            act(*s->second, *it);
        }
        it = waiting.erase(it);
    }
}

void Server::State::run_waiting() {
    take_waiting([&](const Waiting &w) { return holder == 0 || holder == w.session; },
                 [&](Session &session, const Waiting &w) {
                     if (w.type == wire::FRAME_SEND) {
                         execute_send(session, w.id, w.axes, w.record.data());
                         return;
                     }
                     holder = session.id;
                     depth = 1;
                     append_reply(session.out, wire::FRAME_LOCK, w.id, 0);
                     mark(session);
                 });
    take_answers();
    flush_dirty();
    arm_lock_timer();
}

void Server::State::arm_lock_timer() {
    bool any = false;
    Clock::time_point first = Clock::time_point::max();
    for (const Waiting &w : waiting)
        if (w.has_deadline && w.deadline < first) {
            first = w.deadline;
            any = true;
        }
    if (!any) {
        lock_timer.cancel();
        return;
    }
    lock_timer.expires_at(first);
    lock_timer.async_wait([this](std::error_code ec) {
        if (!ec && !stopped) on_lock_timer();
    });
}

void Server::State::on_lock_timer() {
    const Clock::time_point now = Clock::now();
    take_waiting([&](const Waiting &w) { return w.has_deadline && w.deadline <= now; },
                 [&](Session &session, const Waiting &w) {
                     if (w.type == wire::FRAME_SEND) {
                         answer_by_bus(session, w.id, w.record.data()); // never executed
                         return;
                     }
                     append_reply(session.out, wire::FRAME_LOCK, w.id, OXB_ELOCKED);
                     mark(session);
                 });
    flush_dirty();
    arm_lock_timer();
}

// ---- events and stopping ----

void Server::State::broadcast(int axis, int event) {
    if (stopped || axis < 0 || axis > 63) return;
    const uint64_t bit = uint64_t{1} << axis;
    present = event == OXB_EVENT_DRIVE_PRESENT ? present | bit : present & ~bit;
    uint8_t body[sizeof(wire::EventBody)];
    wire::store_u32(body, static_cast<uint32_t>(axis));
    wire::store_u32(body + 4, static_cast<uint32_t>(event));
    for (auto &[id, s] : sessions)
        if (s->ready) {
            append_frame(s->out, wire::FRAME_EVENT, body, sizeof body);
            mark(*s);
        }
    flush_dirty();
}

void Server::State::shutdown(const std::string &why) {
    if (stopped) return;
    log("stopping: " + why);
    std::error_code ignored;
    acceptor.close(ignored);
    signals.cancel(ignored);
    lock_timer.cancel();
    while (!sessions.empty())
        close_session(*sessions.begin()->second, "closed: the server stops");
    stopped = true;
    std::lock_guard lk(rmu);
    rstop = true;
    rcv.notify_all();
}

// ---- Server ----

Server::Server(std::unique_ptr<State> state) : state_(std::move(state)) {}

int Server::create(const Options &options, std::unique_ptr<Server> *out, std::string *message) {
    auto st = std::make_unique<State>();
    st->options = options;
    if (st->options.max_clients < 1) st->options.max_clients = 1;
    int rc = oxb_open(options.bus.c_str(), &st->port);
    if (rc != 0) {
        *message = oxb_translate_error(rc);
        return rc;
    }
    oxb_get_port_bus(st->port, &st->bus);
    OXBSIM_FAULTS faults{};
    if (oxbsim_get_faults(st->bus, &faults) == 0) st->answer_ms = faults.answer_ms;
    // The drives present now come as events first: they make the server's presence mask.
    rc = oxb_register_handler(st->bus, st.get(), ~uint64_t{0}, 0, 0, OXB_EVENT_DRIVES,
                              &State::on_event, st.get());
    if (rc != 0) {
        *message = oxb_translate_error(rc);
        oxb_close(&st->port);
        return rc;
    }
    st->handler_registered = true;

    std::error_code ec;
    const asio::ip::address address = asio::ip::make_address(options.host, ec);
    tcp::endpoint endpoint;
    if (!ec) {
        endpoint = tcp::endpoint(address, options.port);
    } else {
        tcp::resolver resolver(st->io);
        const auto found = resolver.resolve(options.host, std::to_string(options.port), ec);
        if (!ec && found.begin() != found.end())
            endpoint = *found.begin();
        else if (!ec)
            ec = asio::error::host_not_found;
    }
    if (!ec) st->acceptor.open(endpoint.protocol(), ec);
    if (!ec) st->acceptor.set_option(tcp::acceptor::reuse_address(true), ec);
    if (!ec) st->acceptor.bind(endpoint, ec);
    if (!ec) st->acceptor.listen(asio::socket_base::max_listen_connections, ec);
    if (ec) {
        *message = "cannot listen on " + options.host + ":" + std::to_string(options.port) + ": " +
                   ec.message();
        return OXB_ELOST; // the destructor closes what was opened
    }
    st->bound_port = st->acceptor.local_endpoint(ec).port();
    if (options.handle_signals) {
        st->signals.add(SIGINT);
        st->signals.add(SIGTERM);
        State *raw = st.get();
        st->signals.async_wait([raw](std::error_code e, int signal) {
            if (!e) raw->shutdown(signal == SIGINT ? "SIGINT" : "SIGTERM");
        });
    }
    st->start_accept();
    State *raw = st.get();
    st->receiver = std::thread([raw] { raw->receive_loop(); });
    out->reset(new Server(std::move(st)));
    return 0;
}

Server::~Server() = default;

Server::State::~State() {
    {
        std::lock_guard lk(rmu);
        rstop = true;
        rcv.notify_all();
    }
    if (receiver.joinable()) receiver.join();
    if (handler_registered) oxb_unregister_handler(bus, this);
    if (port != nullptr) oxb_close(&port);
}

uint16_t Server::port() const {
    return state_->bound_port;
}

OXB_BUS *Server::bus() const {
    return state_->bus;
}

void Server::run() {
    state_->log("serving " + state_->options.bus + " on " + state_->options.host + ":" +
                std::to_string(state_->bound_port));
    state_->io.run();
}

void Server::disconnect_clients() {
    State *st = state_.get();
    std::promise<void> done;
    asio::post(st->io, [st, &done] {
        while (!st->sessions.empty())
            st->close_session(*st->sessions.begin()->second, "closed: connections broken");
        done.set_value();
    });
    done.get_future().wait();
}

void Server::stop() {
    State *st = state_.get();
    asio::post(st->io, [st] { st->shutdown("asked to"); });
}

} // namespace ryn::serve
