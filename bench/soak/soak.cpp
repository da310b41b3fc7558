// Randomized soak of the online path: worker threads, one per drive, send valid and invalid command
// lines through direct translators, receive with random timeouts, back up and restore registers
// through register translators, detach and attach their drives, take the bus lock, and open and
// close buses of their own, on a sim: bus or on a bus served over tcp:// whose connections are
// broken now and then; the simulated drives drop answers, refuse acknowledges and answer late.
// Beside each drive runs a model of its register memory. After every step the worker checks:
// every answer is one of its own records, answered once; the drive's memory equals the model
// wherever an answer was acknowledged (and is the old or the new value where it was not); a
// restore that succeeded left memory equal to the file, a failed one stopped at the line that
// failed; stream progress never goes back. At every barrier, with the workers idle, the live
// ports, buses, envelopes and threads are counted. A failing run prints its seed and a sequence
// shrunk by halving, which --replay runs again (tests/soak keeps such sequences as regressions).
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ryn/oxbsim.h"
#include "ryn/sup.h"
#include "ryn/tra.h"
#include "server.hpp"
#include "tradwn.hpp"

namespace {

using Clock = std::chrono::steady_clock;

uint64_t splitmix(uint64_t &state) {
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// A draw of random numbers from one seed.
struct Rng {
    uint64_t s;
    uint64_t next() { return splitmix(s); }
    int below(int n) { return static_cast<int>(next() % static_cast<uint64_t>(n)); }
    bool chance(double p) { return static_cast<double>(next() >> 11) * 0x1p-53 < p; }
};

// ---- Operations and plans ----

enum Kind : uint8_t { WRITE, READ, BAD, RECEIVE, BACKUP, RESTORE, LOCK, PRESENCE, PORTS, BREAK };
constexpr const char *KIND_NAMES[] = {"write",   "read", "bad",      "receive", "backup",
                                      "restore", "lock", "presence", "ports",   "break"};
constexpr int KIND_WEIGHTS[] = {30, 18, 10, 20, 4, 4, 4, 2, 3, 1};
constexpr int KINDS = 10;

struct Op {
    Kind kind;
    uint64_t seed;
};
using Plan = std::vector<std::vector<Op>>; // one list of operations per worker

struct Config {
    uint64_t seed = 1;
    long ops = 20000; // over all workers
    int threads = 4;
    bool tcp = false;
    double drop = 0.01, nack = 0.01;
    uint32_t latency_us = 20, answer_ms = 20;
    int barrier_every = 500; // operations of each worker between two barriers
    bool shrink = true;
    bool verbose = false;
};

Plan make_plan(const Config &c) {
    Rng rng{c.seed};
    int total = 0;
    for (int w : KIND_WEIGHTS)
        total += w;
    Plan plan(static_cast<std::size_t>(c.threads));
    const long per = std::max(1L, c.ops / c.threads);
    for (auto &ops : plan)
        for (long i = 0; i < per; ++i) {
            int pick = rng.below(total), k = 0;
            while (pick >= KIND_WEIGHTS[k])
                pick -= KIND_WEIGHTS[k++];
            if (k == BREAK && !c.tcp) k = RECEIVE;
            ops.push_back({static_cast<Kind>(k), rng.next()});
        }
    return plan;
}

std::string plan_text(const Config &c, const Plan &plan) {
    std::ostringstream o;
    o << "# soak sequence of seed " << c.seed << "\n"
      << "config " << (c.tcp ? "tcp" : "sim") << " " << c.threads << " " << c.drop << " " << c.nack
      << " " << c.latency_us << " " << c.answer_ms << " " << c.barrier_every << "\n";
    for (std::size_t t = 0; t < plan.size(); ++t)
        for (const Op &op : plan[t])
            o << t << " " << KIND_NAMES[op.kind] << " 0x" << std::hex << op.seed << std::dec
              << "\n";
    return o.str();
}

bool parse_plan(const std::string &path, Config *c, Plan *plan) {
    std::ifstream in(path);
    if (!in) return false;
    std::string line;
    int repeat = 1;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream l(line);
        std::string first;
        l >> first;
        if (first == "repeat") {
            // A race that a sequence meets now and then: each worker's list runs so many times
            // over, so that a replay meets it too.
            if (!(l >> repeat) || repeat < 1 || repeat > 1000) return false;
            continue;
        }
        if (first == "config") {
            std::string bus;
            l >> bus >> c->threads >> c->drop >> c->nack >> c->latency_us >> c->answer_ms >>
                c->barrier_every;
            c->tcp = bus == "tcp";
            plan->assign(static_cast<std::size_t>(c->threads), {});
            continue;
        }
        const std::size_t t = std::stoul(first);
        std::string kind, seed;
        l >> kind >> seed;
        const auto k = std::find_if(std::begin(KIND_NAMES), std::end(KIND_NAMES),
                                    [&](const char *n) { return kind == n; });
        if (t >= plan->size() || k == std::end(KIND_NAMES)) return false;
        (*plan)[t].push_back(
            {static_cast<Kind>(k - std::begin(KIND_NAMES)), std::stoull(seed, nullptr, 16)});
    }
    for (std::vector<Op> &ops : *plan) {
        const std::vector<Op> once = ops;
        for (int n = 1; n < repeat; ++n)
            ops.insert(ops.end(), once.begin(), once.end());
    }
    return !plan->empty();
}

// ---- Counts ----

// A number of the process's status file: "Threads:", "VmRSS:" (kB); -1 when it is not there.
long status_value(const std::string &field) {
    std::ifstream in("/proc/self/status");
    std::string key;
    long value = -1;
    while (in >> key)
        if (key == field && (in >> value)) return value;
    return -1;
}

long peak_rss_kb() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

// ---- Registers of the model ----

struct Reg {
    const char *type; // command-language name of the type
    uint32_t kind;    // kind word: type code with value class
    uint32_t index;
    int64_t low, high; // the values the soak writes
};

std::vector<Reg> model_registers() {
    std::vector<Reg> regs;
    for (uint32_t i = 0; i < 24; ++i)
        regs.push_back({"X", 1, i, -2000000000, 2000000000});
    regs.push_back({"K", 2, 1, 0, 1000000});
    regs.push_back({"K", 2, 2, 0, 1000000});
    return regs;
}

struct Entry {
    int64_t value = 0;
    bool busy = false; // an operation on it is on the bus
};

// What a worker waits for, by the user value it gave the send.
struct Pending {
    Kind kind;
    int reg; // the register it writes or reads, -1 for none
    int64_t value;
    std::string line;
};

class Run;

// ---- One worker: one drive, two ports, a direct and a register translator ----

class Worker {
  public:
    Worker(Run &run, int axis, std::vector<Op> ops)
        : run_(run), axis_(axis), ops_(std::move(ops)) {}
    void main();

  private:
    void step(const Op &op);
    void connect();
    void disconnect();
    void reconnect();
    bool lost() const;
    [[noreturn]] void fail(const std::string &what);

    int send(const std::string &line, Kind kind, int reg, int64_t value);
    void take(uint32_t timeout);
    void drain();
    void settle(int reg, std::optional<int64_t> wanted);
    void check(int reg);
    std::string name(int reg) const;

    void op_write(Rng &r);
    void op_read(Rng &r);
    void op_bad(Rng &r);
    void op_backup(Rng &r);
    void op_restore(Rng &r);
    void op_lock(Rng &r);
    void op_presence();
    void await_translators();
    void op_ports(Rng &r);
    void close_handed(OXB_PORT *p);
    int upload(const std::vector<uint8_t> &types, int first, int count, uint32_t flags,
               std::vector<std::string> *lines);

    Run &run_;
    const int axis_;
    const std::vector<Op> ops_;
    OXB_PORT *dport_ = nullptr, *rport_ = nullptr;
    TRA *dtra_ = nullptr, *rtra_ = nullptr;
    std::vector<Reg> regs_ = model_registers();
    std::vector<Entry> model_;
    std::map<uint64_t, Pending> pending_;
    uint64_t next_user_ = 1;
    uint64_t epoch_ = 0; // of the connections, as the worker last connected
    bool attached_ = true;
    std::vector<std::string> backup_;
    std::vector<uint8_t> backup_types_;
    std::string doing_;
    std::deque<std::string> history_; // the last operations
    friend class Run;
};

struct Stop {};

class Run {
  public:
    Run(const Config &c, const Plan &plan) : config(c), plan_(plan) {}
    // Runs the plan; the first invariant broken, or nothing.
    std::optional<std::string> execute();

    void failed(const std::string &what) {
        std::lock_guard lk(mu_);
        if (!failure_) failure_ = what;
        stop.store(true);
    }
    OXB_BUS *sim_bus() const { return sim_bus_; }
    std::string address() const { return address_; }
    bool at_barrier(long done) const {
        return config.barrier_every > 0 && done % config.barrier_every == 0;
    }
    void barrier() { barrier_->arrive_and_wait(); }
    void leave() {
        left_.fetch_add(1);
        barrier_->arrive_and_drop();
    }
    // The epoch is odd while the connections break: a connection made then may break too.
    void break_connections() {
        epoch.fetch_add(1);
        if (server_) server_->disconnect_clients();
        epoch.fetch_add(1);
    }
    void counted_open(int n) { open_ports.fetch_add(n); }
    void time(Kind k, Clock::duration d) {
        spent[k].fetch_add(std::chrono::duration_cast<std::chrono::microseconds>(d).count(),
                           std::memory_order_relaxed);
        counted[k].fetch_add(1, std::memory_order_relaxed);
    }
    // Operations of each kind and the time spent in them, for tuning.
    std::atomic<long> spent[KINDS] = {}, counted[KINDS] = {};

    // Ports handed from one worker to another to close.
    void hand_over(OXB_PORT *p) {
        std::lock_guard lk(mu_);
        handed_.push_back(p);
    }
    OXB_PORT *take_handed() {
        std::lock_guard lk(mu_);
        if (handed_.empty()) return nullptr;
        OXB_PORT *p = handed_.back();
        handed_.pop_back();
        return p;
    }

    const Config config;
    std::atomic<bool> stop{false};
    std::mutex own_buses; // buses of the workers' own are opened and closed one at a time
    std::atomic<uint64_t> epoch{0};
    std::atomic<int> open_ports{0};
    std::atomic<long> operations{0};
    std::vector<OXBSIM_DRIVE> identities = std::vector<OXBSIM_DRIVE>(64);
    std::vector<std::vector<int64_t>> defaults; // of the model's registers, by axis

  private:
    void check_counts() noexcept;

    const Plan &plan_;
    std::mutex mu_;
    std::optional<std::string> failure_;
    std::vector<OXB_PORT *> handed_;
    std::unique_ptr<ryn::serve::Server> server_;
    std::thread server_thread_;
    OXB_PORT *control_ = nullptr;
    OXB_BUS *sim_bus_ = nullptr;
    std::string address_;
    std::unique_ptr<std::barrier<std::function<void()>>> barrier_;
    long base_threads_ = -1;
    // The workers, for the counts at a barrier: all of them wait there meanwhile.
    const std::vector<std::unique_ptr<Worker>> *workers_ = nullptr;
    std::atomic<int> left_{0}; // workers done: the barrier's counts no longer hold
};

// ---- Worker ----

void Worker::fail(const std::string &what) {
    std::ostringstream o;
    o << "worker " << axis_ << " (" << doing_ << ", after";
    for (const std::string &h : history_)
        o << " " << h;
    o << "): " << what;
    char trace[2048] = "";
    if (sup_trace_count() > 0 && sup_trace_format(trace, sizeof trace) >= 0)
        o << "\n  last error trace of the worker:\n" << trace;
    run_.failed(o.str());
    throw Stop{};
}

std::string Worker::name(int reg) const {
    return std::string(regs_[static_cast<std::size_t>(reg)].type) +
           std::to_string(regs_[static_cast<std::size_t>(reg)].index) + "." + std::to_string(axis_);
}

bool Worker::lost() const {
    return run_.config.tcp && run_.epoch.load() != epoch_;
}

// Opens the worker's ports and translators; a connection broken meanwhile is made again.
void Worker::connect() {
    const std::string address = run_.address();
    for (;;) {
        while ((epoch_ = run_.epoch.load()) % 2 != 0)
            std::this_thread::yield();
        int rc = oxb_open(address.c_str(), &dport_);
        if (rc == 0) rc = oxb_open(address.c_str(), &rport_);
        run_.counted_open((dport_ != nullptr) + (rport_ != nullptr));
        if (rc == 0 && (rc = tra_create_direct_traductor_e(&dtra_, dport_, 0)) == 0)
            rc = tra_create_register_traductor_e(&rtra_, rport_, 0);
        if (rc == 0) return;
        if (!lost()) fail("cannot connect to " + address + ": " + std::to_string(rc));
        disconnect();
    }
}

void Worker::disconnect() {
    tra_destroy(&dtra_);
    tra_destroy(&rtra_);
    if (dport_ != nullptr) run_.counted_open(-1);
    if (rport_ != nullptr) run_.counted_open(-1);
    oxb_close(&dport_);
    oxb_close(&rport_);
}

// After a broken connection: the answers still owed are lost with it; what they would have
// written is read back from the drive (it must be the old or the new value).
void Worker::reconnect() {
    std::map<uint64_t, Pending> owed;
    owed.swap(pending_);
    disconnect();
    connect();
    for (const auto &[user, p] : owed)
        if (p.reg >= 0) {
            model_[static_cast<std::size_t>(p.reg)].busy = false;
            settle(p.reg, p.kind == WRITE ? std::optional<int64_t>(p.value) : std::nullopt);
        }
}

// Reads a register of the drive past the bus.
static bool drive_value(OXB_BUS *bus, int axis, const Reg &r, int64_t *value) {
    uint64_t raw = 0;
    if (oxbsim_read(bus, axis, r.kind, r.index, 0, &raw) != 0) return false;
    *value = static_cast<int32_t>(static_cast<uint32_t>(raw));
    return true;
}

// The drive must hold the model's value.
void Worker::check(int reg) {
    const Entry &e = model_[static_cast<std::size_t>(reg)];
    if (e.busy || !attached_) return;
    int64_t v = 0;
    if (!drive_value(run_.sim_bus(), axis_, regs_[static_cast<std::size_t>(reg)], &v))
        fail("cannot read " + name(reg) + " past the bus");
    if (v != e.value)
        fail(name(reg) + " is " + std::to_string(v) + " in the drive, " + std::to_string(e.value) +
             " in the model");
}

// A register whose answer did not acknowledge: the drive holds the old value or, when wanted,
// that one; the model takes what the drive holds.
void Worker::settle(int reg, std::optional<int64_t> wanted) {
    Entry &e = model_[static_cast<std::size_t>(reg)];
    if (!attached_) return;
    int64_t v = 0;
    if (!drive_value(run_.sim_bus(), axis_, regs_[static_cast<std::size_t>(reg)], &v))
        fail("cannot read " + name(reg) + " past the bus");
    if (v != e.value && (!wanted || v != *wanted))
        fail(name(reg) + " is " + std::to_string(v) + " after an unacknowledged answer; model " +
             std::to_string(e.value) +
             (wanted ? ", written " + std::to_string(*wanted) : std::string()));
    e.value = v;
}

int Worker::send(const std::string &line, Kind kind, int reg, int64_t value) {
    const uint64_t user = next_user_++;
    uint8_t sent = 0;
    const int rc = tra_send_direct_cmd_e(dtra_, line.c_str(), user, &sent);
    if (rc != 0 && sent != 0)
        fail("'" + line + "' failed with " + std::to_string(rc) + " but went");
    if (sent != 0) {
        pending_[user] = {kind, reg, value, line};
        if (reg >= 0) model_[static_cast<std::size_t>(reg)].busy = true;
    }
    return rc;
}

// Takes one answer, if one comes within timeout, and checks it against what was sent.
void Worker::take(uint32_t timeout) {
    char text[512] = "";
    uint8_t ack = 0, flag = 0, request = 0;
    uint64_t user = 0;
    const int rc = tra_receive_direct_cmd_e_ex(dtra_, text, sizeof text, &ack, &flag, &request,
                                               &user, timeout);
    if (rc == TRA_ENOCOMMAND) return;
    if (rc != 0) {
        if (lost()) return reconnect();
        fail("receive failed with " + std::to_string(rc));
    }
    const auto it = pending_.find(user);
    if (it == pending_.end())
        fail("an answer with user " + std::to_string(user) +
             " that is not ours or came twice: " + text);
    const Pending p = it->second;
    pending_.erase(it);
    if (p.reg < 0) {
        if (ack != 0 && p.kind == BAD)
            fail("a bad line acknowledged: '" + p.line + "', answer " + text);
        return;
    }
    Entry &e = model_[static_cast<std::size_t>(p.reg)];
    e.busy = false;
    if (p.kind == WRITE && ack != 0) {
        if (!attached_) fail("a write to a detached drive acknowledged: " + std::string(text));
        e.value = p.value;
        check(p.reg);
    } else if (p.kind == READ && ack != 0) {
        const char *eq = std::strchr(text, '=');
        if (eq == nullptr) fail(std::string("a read answer without a value: ") + text);
        const long long v = std::strtoll(eq + 1, nullptr, 0);
        if (v != e.value) fail(std::string("read ") + text + ", model " + std::to_string(e.value));
    } else if (p.kind == BAD && ack != 0) {
        fail(std::string("a bad line acknowledged: ") + text);
    } else {
        settle(p.reg, p.kind == WRITE ? std::optional<int64_t>(p.value) : std::nullopt);
    }
}

// Takes every answer still owed; each must come within the bus's answer time and a margin.
void Worker::drain() {
    const auto end = Clock::now() + std::chrono::milliseconds(run_.config.answer_ms * 4 + 3000);
    while (!pending_.empty()) {
        if (Clock::now() > end) {
            if (lost()) return reconnect();
            fail(std::to_string(pending_.size()) + " answers never came");
        }
        take(50);
    }
}

void Worker::op_write(Rng &r) {
    const int reg = r.below(static_cast<int>(regs_.size()));
    if (model_[static_cast<std::size_t>(reg)].busy) return take(static_cast<uint32_t>(r.below(3)));
    const Reg &g = regs_[static_cast<std::size_t>(reg)];
    const int64_t v =
        g.low + static_cast<int64_t>(r.next() % static_cast<uint64_t>(g.high - g.low + 1));
    const int rc = send(name(reg) + "=" + std::to_string(v), WRITE, reg, v);
    if (rc == TRA_ENODRIVE && !attached_) return;
    if (rc != 0) {
        if (lost()) return reconnect();
        fail("'" + name(reg) + "=" + std::to_string(v) + "' refused with " + std::to_string(rc));
    }
    if (r.chance(0.5)) take(static_cast<uint32_t>(r.below(4)));
}

void Worker::op_read(Rng &r) {
    const int reg = r.below(static_cast<int>(regs_.size()));
    if (model_[static_cast<std::size_t>(reg)].busy) return take(0);
    const int rc = send(name(reg), READ, reg, 0);
    if (rc == TRA_ENODRIVE && !attached_) return;
    if (rc != 0) {
        if (lost()) return reconnect();
        fail("'" + name(reg) + "' refused with " + std::to_string(rc));
    }
    if (r.chance(0.5)) take(static_cast<uint32_t>(r.below(4)));
}

// Lines the drive or the translator must refuse; none may change a register.
void Worker::op_bad(Rng &r) {
    // Register, then the axis, then the rest: a gap index, a value outside the enumeration or the
    // range, read-only registers, a read of a gap, two assignments in one.
    static const std::pair<const char *, const char *> refused[] = {
        {"K13.", "=1"}, {"K12.", "=9"}, {"K1.", "=2000000"}, {"K50.", "=1"},
        {"M7.", "=5"},  {"K13.", ""},   {"X3.", "=1=2"}};
    const int x = r.below(24);
    std::string line;
    int reg = -1;
    const int pick = r.below(9);
    if (pick < 7) {
        line = refused[pick].first + std::to_string(axis_) + refused[pick].second;
    } else if (pick == 7) {
        if (model_[static_cast<std::size_t>(x)].busy) return;
        line = "X" + std::to_string(x) + "." + std::to_string(axis_) + "/=0"; // a division by 0
        reg = x;
    } else {
        // Characters that name no register, command or axis: the line cannot mean anything.
        static const char junk[] = "$%&[]{}<>?~^|`'\"\\ ";
        for (int n = 1 + r.below(24); n > 0; --n)
            line += junk[r.below(static_cast<int>(sizeof junk - 1))];
    }
    const int rc = send(line, BAD, reg, 0);
    (void)rc; // refused by the translator, or sent and refused by the drive
    if (reg >= 0) check(reg);
}

int Worker::upload(const std::vector<uint8_t> &types, int first, int count, uint32_t flags,
                   std::vector<std::string> *lines) {
    struct Sink {
        std::vector<std::string> *lines;
        double progress = 0;
        bool backwards = false;
    } sink{lines};
    if (tra_get_flags(rtra_) != flags) tra_set_flags(rtra_, flags); // a change rebuilds tables
    const int rc = tra_oxcom_upload_register_stream_e(
        rtra_, uint64_t{1} << axis_, static_cast<int32_t>(types.size()), types.data(), first, count,
        -1,
        [](TRA *tra, const char *line, void *user, int32_t) {
            auto &s = *static_cast<Sink *>(user);
            double p = -1;
            tra_get_progress(tra, &p);
            if (p < s.progress) s.backwards = true;
            s.progress = p;
            s.lines->push_back(line);
            return 0;
        },
        &sink);
    if (sink.backwards) fail("the upload's progress went back");
    return rc;
}

// The value lines of a parameter file (comments and blanks left out), as "name=value".
static std::vector<std::string> value_lines(const std::vector<std::string> &lines) {
    std::vector<std::string> out;
    for (std::string l : lines) {
        if (const auto c = l.find(';'); c != std::string::npos) l.erase(c);
        while (!l.empty() && (l.back() == ' ' || l.back() == '\t'))
            l.pop_back();
        if (!l.empty() && l[0] != '#') out.push_back(l);
    }
    return out;
}

// The model register a value line writes, and its value; -1 for another register.
int line_register(const std::vector<Reg> &regs, int axis, const std::string &line, int64_t *value) {
    for (std::size_t i = 0; i < regs.size(); ++i) {
        const std::string n = std::string(regs[i].type) + std::to_string(regs[i].index);
        for (const std::string &prefix : {n + "." + std::to_string(axis) + "=", n + "="})
            if (line.rfind(prefix, 0) == 0) {
                *value = std::strtoll(line.c_str() + prefix.size(), nullptr, 0);
                return static_cast<int>(i);
            }
    }
    return -1;
}

void Worker::op_backup(Rng &r) {
    drain();
    if (lost()) return reconnect();
    std::vector<uint8_t> types;
    if (r.chance(0.7)) types.push_back(1);
    if (types.empty() || r.chance(0.5)) types.push_back(2);
    const uint32_t flag_choices[] = {0, TRA_FNO_COMMENTS, TRA_FDESCRIPTIONS | TRA_FGROUP_CLASSES,
                                     TRA_FNO_AXIS | TRA_FVERBOSE, TRA_FSKIP_DEFAULTS};
    const uint32_t flags = flag_choices[r.below(5)];
    const int first = r.below(3), count = 1 + r.below(30);
    std::vector<std::string> lines;
    const int rc = upload(types, first, count, flags, &lines);
    if (rc != 0) {
        if (lost()) return reconnect();
        if (!attached_ || run_.config.drop > 0 || run_.config.nack > 0) return; // a read lost
        fail("backup failed with " + std::to_string(rc));
    }
    for (const std::string &l : value_lines(lines)) {
        int64_t v = 0;
        const int reg = line_register(regs_, axis_, l, &v);
        if (reg >= 0 && v != model_[static_cast<std::size_t>(reg)].value)
            fail("backup line '" + l + "', model " +
                 std::to_string(model_[static_cast<std::size_t>(reg)].value));
    }
    // A file meant for restoring leaves out what a download refuses: the read-only K50 and K60.
    backup_.clear();
    for (const std::string &l : lines)
        backup_.push_back(l.rfind("K50", 0) == 0 || l.rfind("K60", 0) == 0 ? "# " + l : l);
    backup_types_ = types;
    if (flags & TRA_FNO_AXIS) backup_.clear(); // lines without axes need the download's mask
}

void Worker::op_restore(Rng &r) {
    if (backup_.empty()) return op_backup(r);
    drain();
    if (lost()) return reconnect();
    std::vector<std::string> file = backup_;
    int bad_line = 0; // 1-based
    const int mutation = r.below(3);
    if (mutation == 1) {
        for (std::string &l : file) {
            int64_t v = 0;
            const int reg = line_register(regs_, axis_, l, &v);
            if (reg >= 0 && regs_[static_cast<std::size_t>(reg)].type[0] == 'X' && r.chance(0.3))
                l = name(reg) + "=" + std::to_string(static_cast<int32_t>(r.next()));
        }
    } else if (mutation == 2) {
        const std::string a = std::to_string(axis_);
        const std::string bads[] = {"CLX", "K1." + a, "=== not a line", "PWR." + a + "=1"};
        const std::size_t at = static_cast<std::size_t>(r.below(static_cast<int>(file.size()) + 1));
        file.insert(file.begin() + static_cast<std::ptrdiff_t>(at), bads[r.below(4)]);
        bad_line = static_cast<int>(at) + 1;
    }
    struct Source {
        const std::vector<std::string> *lines;
        std::size_t next = 0;
        double progress = 0;
        bool backwards = false;
    } src{&file};
    const int rc = tra_oxcom_download_register_stream_e(
        rtra_, uint64_t{1} << axis_, static_cast<int32_t>(backup_types_.size()),
        backup_types_.data(),
        [](TRA *tra, char *buffer, int32_t size, void *user) {
            auto &s = *static_cast<Source *>(user);
            double p = -1;
            tra_get_progress(tra, &p);
            if (p < s.progress) s.backwards = true;
            s.progress = p;
            if (s.next >= s.lines->size()) return -1;
            std::snprintf(buffer, static_cast<std::size_t>(size), "%s",
                          (*s.lines)[s.next++].c_str());
            return 0;
        },
        &src);
    if (src.backwards) fail("the download's progress went back");
    TRA_STREAM_REPORT report{};
    report.size = sizeof report;
    tra_get_stream_report(rtra_, &report);
    if (!attached_) return;
    // The registers that the lines read so far write (the last one may have gone or not).
    auto written_by = [&](std::size_t lines) {
        std::vector<std::optional<int64_t>> written(regs_.size());
        for (std::size_t i = 0; i < std::min(lines, file.size()); ++i) {
            int64_t v = 0;
            const int reg = line_register(regs_, axis_, file[i], &v);
            if (reg >= 0) written[static_cast<std::size_t>(reg)] = v;
        }
        return written;
    };
    if (lost()) {
        const auto written = written_by(report.lines);
        for (std::size_t reg = 0; reg < regs_.size(); ++reg)
            settle(static_cast<int>(reg), written[reg]);
        return reconnect();
    }
    std::ostringstream why;
    why << "restore " << rc << ", report lines " << report.lines << " sent " << report.sent
        << " acknowledged " << report.acknowledged << " refused " << report.refused << " skipped "
        << report.skipped << " first refused " << report.first_refused_line << " '"
        << report.first_refused_text << "', bad line " << bad_line << "; the file:";
    for (std::size_t i = 0; i < std::min<std::size_t>(file.size(), 12); ++i)
        why << "\n    " << file[i];
    why << "\n  ";
    // How each of the worker's buses sees its drive, for the message.
    for (OXB_PORT *port : {dport_, rport_}) {
        OXB_BUS *bus = nullptr;
        uint64_t present = 0;
        uint8_t info[76] = {76};
        oxb_get_port_bus(port, &bus);
        const int p = oxb_get_present_axes(bus, &present);
        why << (port == dport_ ? " direct port: present " : ", register port: present ") << p
            << " 0x" << std::hex << present << std::dec << ", drive "
            << oxb_get_drive_info(bus, axis_, info) << ", translator's product "
            << tra_get_drv_product(port == dport_ ? dtra_ : rtra_, axis_);
    }
    if (rc == 0 && bad_line != 0)
        fail(why.str() + ": a bad line passed: " + file[static_cast<std::size_t>(bad_line - 1)]);
    // A download stops at the bad line, or where a register version could not be written (the
    // reset before the first line, or a version line) because the drive's answer was lost.
    const bool version_stop =
        rc == TRA_ENOACK &&
        (report.lines == 0 || file[report.lines - 1].find(" version") != std::string::npos);
    if (rc != 0 && !version_stop && (bad_line == 0 || static_cast<int>(report.lines) != bad_line))
        fail(why.str() + ": stopped elsewhere");
    if (report.acknowledged + report.refused != report.sent) fail(why.str() + ": counts");
    if (report.refused > 0 && (report.first_refused_line < 1 ||
                               report.first_refused_line > static_cast<int32_t>(report.lines)))
        fail(why.str() + ": first refused line");
    // Memory equals the file up to where the download stopped, where acknowledged.
    const std::size_t applied =
        rc == 0 ? file.size()
                : std::min<std::size_t>(file.size(), report.lines > 0 ? report.lines - 1 : 0);
    const auto written = written_by(applied);
    for (std::size_t reg = 0; reg < regs_.size(); ++reg) {
        if (!written[reg]) {
            check(static_cast<int>(reg));
        } else if (report.refused == 0) {
            model_[reg].value = *written[reg];
            check(static_cast<int>(reg));
        } else {
            settle(static_cast<int>(reg), written[reg]);
        }
    }
    // A restore that succeeded with every line acknowledged: a new backup reads the file back.
    if (rc == 0 && report.refused == 0 && run_.config.drop == 0 && run_.config.nack == 0) {
        std::vector<std::string> again;
        if (upload(backup_types_, 0, -1, TRA_FNO_COMMENTS, &again) == 0) {
            std::map<std::string, std::string> now;
            for (const std::string &l : value_lines(again))
                now[l.substr(0, l.find('='))] = l;
            for (const std::string &l : value_lines(file))
                if (const auto it = now.find(l.substr(0, l.find('=')));
                    it != now.end() && it->second != l)
                    fail("restored '" + l + "' reads back as '" + it->second + "'");
        }
    }
}

void Worker::op_lock(Rng &r) {
    OXB_BUS *bus = nullptr;
    oxb_get_port_bus(dport_, &bus);
    const int rc = oxb_lock(bus, r.below(30));
    if (rc == OXB_ELOCKED) return;
    if (rc != 0) {
        if (lost()) return reconnect();
        fail("lock failed with " + std::to_string(rc));
    }
    const OXB_PORT *locked = dport_;
    for (int n = r.below(4); n > 0; --n)
        op_write(r);
    // A worker that made its connection again lost the lock with the old one.
    if (dport_ == locked && oxb_unlock(bus) != 0 && !lost()) fail("unlock failed");
}

// Detaches the worker's drive, or attaches it again with its memory at the defaults.
void Worker::op_presence() {
    drain(); // before a detach: answers of the drive; before an attach: the bus's own
    if (attached_) {
        if (oxbsim_detach(run_.sim_bus(), axis_) != 0) fail("detach failed");
        attached_ = false;
        await_translators();
        return;
    }
    if (oxbsim_attach(run_.sim_bus(), axis_, &run_.identities[static_cast<std::size_t>(axis_)]) !=
        0)
        fail("attach failed");
    attached_ = true;
    await_translators();
    for (std::size_t i = 0; i < regs_.size(); ++i) {
        model_[i].value = run_.defaults[static_cast<std::size_t>(axis_)][i];
        check(static_cast<int>(i));
    }
}

// On sim: the translators know of a drive attached or detached when the call returns. A tcp
// client learns of it from the server's event, a moment later: until then its lines for the drive
// are dropped as lines for an absent axis, or sent to a drive that has left.
void Worker::await_translators() {
    const auto known = [&](TRA *tra) {
        return (tra_get_drv_product(tra, axis_) != 0) == attached_;
    };
    if (!run_.config.tcp) {
        if (!(known(dtra_) && known(rtra_)))
            fail("the translators did not know that the drive came or went when the call returned");
        return;
    }
    const auto end = Clock::now() + std::chrono::seconds(3);
    while (!lost() && !(known(dtra_) && known(rtra_))) {
        if (Clock::now() > end) fail("the translators never learnt that the drive came or went");
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

// Closes a port that another worker opened and used: its bus must go at once, not when that
// worker next calls the bus library (on sim:, where no other bus comes and goes meanwhile).
void Worker::close_handed(OXB_PORT *p) {
    std::lock_guard lk(run_.own_buses);
    OXBSIM_COUNTS before{}, after{};
    oxbsim_get_counts(&before);
    if (oxb_close(&p) != 0) fail("closing a handed port");
    run_.counted_open(-1);
    oxbsim_get_counts(&after);
    if (!run_.config.tcp && after.buses != before.buses - 1)
        fail("a closed bus stays alive: " + std::to_string(after.buses) + " buses, " +
             std::to_string(before.buses) + " before the close");
}

// A bus of the worker's own, used on this thread and closed by another worker.
void Worker::op_ports(Rng &r) {
    std::lock_guard lk(run_.own_buses);
    OXB_PORT *p = nullptr;
    if (oxb_open("sim:axes=0;latency_us=10", &p) != 0) fail("cannot open a bus of its own");
    run_.counted_open(1);
    alignas(8) uint8_t record[TRA_RECORD_SIZE(2)];
    oxb_build_record(record, 1, 18, 0, "i", 1u, static_cast<uint32_t>(r.below(100)));
    int ticket = 0;
    if (oxb_send(p, &ticket, 1, record, 100) != 0) fail("send on a bus of its own");
    if (r.chance(0.5)) {
        void *got = nullptr;
        alignas(8) uint8_t answer[TRA_RECORD_SIZE(65)];
        if (oxb_receive(p, &got, 0, answer, 65, 0, 1000) != 0 || got != &ticket)
            fail("no answer on a bus of its own");
    }
    run_.hand_over(p);
}

void Worker::step(const Op &op) {
    Rng r{op.seed};
    doing_ = KIND_NAMES[op.kind];
    sup_trace_clear();
    history_.push_back(doing_);
    if (history_.size() > 8) history_.pop_front();
    if (OXB_PORT *p = run_.take_handed()) close_handed(p);
    if (lost()) reconnect();
    switch (op.kind) {
    case WRITE:
        op_write(r);
        break;
    case READ:
        op_read(r);
        break;
    case BAD:
        op_bad(r);
        break;
    case RECEIVE:
        take(pending_.empty() ? 0 : static_cast<uint32_t>(r.below(3)));
        break;
    case BACKUP:
        op_backup(r);
        break;
    case RESTORE:
        op_restore(r);
        break;
    case LOCK:
        op_lock(r);
        break;
    case PRESENCE:
        op_presence();
        break;
    case PORTS:
        op_ports(r);
        break;
    case BREAK:
        run_.break_connections();
        break;
    }
    // One register of the model compared with the drive after every step.
    check(r.below(static_cast<int>(regs_.size())));
}

void Worker::main() {
    model_.resize(regs_.size());
    for (std::size_t i = 0; i < regs_.size(); ++i)
        model_[i].value = run_.defaults[static_cast<std::size_t>(axis_)][i];
    try {
        connect();
        long done = 0;
        for (const Op &op : ops_) {
            if (run_.stop.load()) break;
            const auto began = Clock::now();
            step(op);
            run_.time(op.kind, Clock::now() - began);
            ++done;
            run_.operations.fetch_add(1, std::memory_order_relaxed);
            if (run_.at_barrier(done)) {
                doing_ = "barrier";
                drain();
                run_.barrier();
            }
        }
        doing_ = "end";
        if (!attached_) op_presence();
        drain();
        for (std::size_t i = 0; i < regs_.size(); ++i)
            check(static_cast<int>(i));
    } catch (const Stop &) {
    }
    disconnect();
    run_.leave();
}

// ---- Run ----

void Run::check_counts() noexcept {
    if (left_.load() > 0) return;
    while (OXB_PORT *p = take_handed()) {
        oxb_close(&p);
        counted_open(-1);
    }
    OXBSIM_COUNTS counts{};
    oxbsim_get_counts(&counts);
    const int64_t ports = open_ports.load() + 1; // the control port or the server's
    const int64_t buses = config.tcp ? 1 + open_ports.load() : 1;
    const long threads = status_value("Threads:");
    int64_t envelopes = 0;
    for (const auto &w : *workers_)
        envelopes +=
            ryn::tra::_tra_live_envelopes(w->dtra_) + ryn::tra::_tra_live_envelopes(w->rtra_);
    if (base_threads_ < 0) base_threads_ = threads;
    std::ostringstream o;
    if (counts.ports != ports) o << "live ports " << counts.ports << ", open " << ports << "; ";
    if (counts.buses != buses) o << "live buses " << counts.buses << ", open " << buses << "; ";
    if (envelopes != 0) o << "live envelopes " << envelopes << "; ";
    if (threads != base_threads_) o << "threads " << threads << ", first " << base_threads_ << "; ";
    if (!o.str().empty()) failed("at a barrier: " + o.str());
}

std::optional<std::string> Run::execute() {
    const std::string faults = ";answer_ms=" + std::to_string(config.answer_ms);
    static std::atomic<int> runs{0};
    if (config.tcp) {
        ryn::serve::Options o;
        o.port = 0;
        o.bus = "sim:" + faults.substr(1);
        std::string why;
        if (ryn::serve::Server::create(o, &server_, &why) != 0) return "server: " + why;
        server_thread_ = std::thread([this] { server_->run(); });
        sim_bus_ = server_->bus();
        address_ = "tcp://127.0.0.1:" + std::to_string(server_->port());
    } else {
        address_ = "sim:name=soak" + std::to_string(runs.fetch_add(1)) + faults;
        if (oxb_open(address_.c_str(), &control_) != 0) return "cannot open " + address_;
        oxb_get_port_bus(control_, &sim_bus_);
    }
    // The drives' identities and the defaults of the model's registers, read before any fault.
    const std::vector<Reg> regs = model_registers();
    for (int a = 0; a < config.threads; ++a) {
        uint8_t info[76] = {76}, ext[20] = {20};
        oxb_get_drive_info(sim_bus_, a, info);
        oxb_get_ext_info(sim_bus_, a, ext);
        auto u32 = [](const uint8_t *p) {
            uint32_t v;
            std::memcpy(&v, p, 4);
            return v;
        };
        identities[static_cast<std::size_t>(a)] = {u32(info + 4), u32(info + 16), u32(ext + 4),
                                                   u32(ext + 16), u32(info + 12), u32(info + 8)};
        std::vector<int64_t> d;
        for (const Reg &r : regs) {
            int64_t v = 0;
            drive_value(sim_bus_, a, r, &v);
            d.push_back(v);
        }
        defaults.push_back(d);
    }
    OXBSIM_FAULTS f{};
    oxbsim_get_faults(sim_bus_, &f);
    f.drop = config.drop;
    f.nack = config.nack;
    f.latency_us = config.latency_us;
    f.seed = config.seed;
    oxbsim_set_faults(sim_bus_, &f);

    barrier_ = std::make_unique<std::barrier<std::function<void()>>>(
        config.threads, std::function<void()>([this] { check_counts(); }));
    std::vector<std::unique_ptr<Worker>> workers;
    for (int a = 0; a < config.threads; ++a)
        workers.push_back(std::make_unique<Worker>(*this, a, plan_[static_cast<std::size_t>(a)]));
    workers_ = &workers;
    std::vector<std::thread> threads;
    for (auto &w : workers)
        threads.emplace_back([&w] { w->main(); });
    for (auto &t : threads)
        t.join();
    while (OXB_PORT *p = take_handed())
        oxb_close(&p);
    if (server_) {
        server_->stop();
        server_thread_.join();
        server_.reset();
    }
    oxb_close(&control_);
    OXBSIM_COUNTS counts{};
    oxbsim_get_counts(&counts);
    if (!failure_ && (counts.ports != 0 || counts.buses != 0))
        failure_ = "after the run: " + std::to_string(counts.ports) + " ports, " +
                   std::to_string(counts.buses) + " buses alive";
    return failure_;
}

// What kind of failure a message tells, without the worker, its operations and the numbers.
std::string signature(const std::string &failure) {
    std::string s = failure.substr(0, failure.find('\n'));
    if (const auto at = s.find("): "); s.rfind("worker ", 0) == 0 && at != std::string::npos)
        s.erase(0, at + 3);
    std::erase_if(s, [](char ch) { return ch == '-' || (ch >= '0' && ch <= '9'); });
    return s;
}

// Runs a plan; a failure like `like` seen in either of two tries counts (threads make runs
// differ).
std::optional<std::string> attempt(const Config &c, const Plan &plan, int tries,
                                   const std::string &like) {
    for (int i = 0; i < tries; ++i) {
        Run run(c, plan);
        if (auto f = run.execute(); f && signature(*f) == signature(like)) return f;
    }
    return std::nullopt;
}

// Removes halves, then quarters, ... of every worker's list while the run still fails.
Plan shrink(const Config &c, Plan plan, std::string *last) {
    const auto end = Clock::now() + std::chrono::seconds(120);
    std::size_t len = 0;
    for (const auto &ops : plan)
        len = std::max(len, ops.size());
    for (std::size_t chunk = len / 2; chunk >= 1 && Clock::now() < end; chunk /= 2) {
        for (std::size_t start = 0; Clock::now() < end;) {
            Plan candidate = plan;
            bool removed = false;
            for (auto &ops : candidate)
                if (start < ops.size()) {
                    ops.erase(ops.begin() + static_cast<std::ptrdiff_t>(start),
                              ops.begin() +
                                  static_cast<std::ptrdiff_t>(std::min(ops.size(), start + chunk)));
                    removed = true;
                }
            if (!removed) break;
            if (auto f = attempt(c, candidate, 2, *last)) {
                *last = *f;
                plan = std::move(candidate);
                std::fprintf(stderr, "soak: shrunk to %zu operations of worker 0: %s\n",
                             plan[0].size(), f->c_str());
            } else {
                start += chunk;
            }
        }
    }
    return plan;
}

void usage() {
    std::fprintf(stderr,
                 "usage: soak [--ops N] [--threads 1..4] [--seed N] [--tcp] [--drop P] [--nack P]\n"
                 "            [--latency-us N] [--answer-ms N] [--barrier N] [--no-shrink]\n"
                 "            [--save FILE] [--replay FILE]\n");
}

} // namespace

int main(int argc, char **argv) {
    Config c;
    c.seed = static_cast<uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
    std::string replay, save;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) {
                usage();
                std::exit(2);
            }
            return argv[++i];
        };
        if (a == "--ops")
            c.ops = std::stol(value());
        else if (a == "--threads")
            c.threads = std::clamp(std::stoi(value()), 1, 4);
        else if (a == "--seed")
            c.seed = std::stoull(value(), nullptr, 0);
        else if (a == "--tcp")
            c.tcp = true;
        else if (a == "--drop")
            c.drop = std::stod(value());
        else if (a == "--nack")
            c.nack = std::stod(value());
        else if (a == "--latency-us")
            c.latency_us = static_cast<uint32_t>(std::stoul(value()));
        else if (a == "--answer-ms")
            c.answer_ms = static_cast<uint32_t>(std::stoul(value()));
        else if (a == "--barrier")
            c.barrier_every = std::stoi(value());
        else if (a == "--no-shrink")
            c.shrink = false;
        else if (a == "--save")
            save = value();
        else if (a == "--replay")
            replay = value();
        else {
            usage();
            return 2;
        }
    }
    Plan plan;
    if (!replay.empty()) {
        c.shrink = false;
        if (!parse_plan(replay, &c, &plan)) {
            std::fprintf(stderr, "soak: cannot read the sequence %s\n", replay.c_str());
            return 2;
        }
    } else {
        plan = make_plan(c);
    }
    const std::string origin = replay.empty() ? "seed " + std::to_string(c.seed) : replay;
    std::printf("soak: %s, %s, %d workers, %zu operations each, drop %g, nack %g, latency %u us\n",
                origin.c_str(), c.tcp ? "tcp" : "sim", c.threads, plan[0].size(), c.drop, c.nack,
                c.latency_us);
    std::fflush(stdout);
    const long rss_before = status_value("VmRSS:");
    const auto start = Clock::now();
    Run run(c, plan);
    // A line every 30 seconds: operations done, their rate, and the resident memory, which must
    // stay flat over a long run.
    std::atomic<bool> finished{false};
    std::thread monitor([&] {
        auto last = Clock::now();
        while (!finished.load()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            if (Clock::now() - last < std::chrono::seconds(30)) continue;
            last = Clock::now();
            const double s = std::chrono::duration<double>(last - start).count();
            std::printf("soak: %ld operations, %.0f per second, RSS %ld kB\n",
                        run.operations.load(), static_cast<double>(run.operations.load()) / s,
                        status_value("VmRSS:"));
            std::fflush(stdout);
        }
    });
    const std::optional<std::string> failure = run.execute();
    finished.store(true);
    monitor.join();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (!failure) {
        std::printf("soak: passed: %ld operations in %.1f s (%.0f per second), RSS %ld kB before, "
                    "%ld kB after, peak %ld kB\n",
                    run.operations.load(), seconds,
                    static_cast<double>(run.operations.load()) / seconds, rss_before,
                    status_value("VmRSS:"), peak_rss_kb());
        for (int k = 0; k < KINDS; ++k)
            if (run.counted[k] > 0)
                std::printf(
                    "  %-8s %8ld operations, %8.1f us each\n", KIND_NAMES[k], run.counted[k].load(),
                    static_cast<double>(run.spent[k]) / static_cast<double>(run.counted[k]));
        return 0;
    }
    std::printf("soak: FAILED with %s: %s\n", origin.c_str(), failure->c_str());
    if (c.shrink) {
        std::string last = *failure;
        plan = shrink(c, plan, &last);
        std::printf("soak: shortest failing sequence (%s):\n", last.c_str());
    }
    const std::string text = plan_text(c, plan);
    if (!save.empty()) std::ofstream(save) << text;
    if (c.shrink && plan[0].size() <= 200) std::fputs(text.c_str(), stdout);
    return 1;
}
