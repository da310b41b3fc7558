// The bus side of `ryn web`: what the page's HTTP handlers ask of the drives, safe to call from
// many handler threads at once. Register reads, edits and console lines go through a pool of
// direct translators (one port each), so that requests run side by side and never see each
// other's answers; scope streams sample on a translator of their own; backups, restores and diffs
// run one at a time on the tool's parameter module, with their progress kept as a job.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "online.hpp"
#include "params.hpp"
#include "ryn/tra.h"
#include "ryn/vok.h"

namespace ryn::cli::web {

using Json = nlohmann::ordered_json;

// A failure that the HTTP side answers with `status` and `message`.
struct Failure {
    int status = 0; // 0: none
    std::string message;
    explicit operator bool() const { return status != 0; }
};

// What a drive answered to one line.
using Answer = LineAnswer;

// A port on the bus with its direct translator; used by one thread at a time.
class Session {
  public:
    Session() = default;
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
    ~Session();
    int open(const std::string &address);
    // Sends the lines one after the other without waiting, then collects their answers (matched
    // by the number each send carries, so a late answer of an earlier call is dropped) until all
    // are in or `timeout_ms` has passed; an answer that did not come is TRA_ENOCOMMAND.
    std::vector<Answer> exchange(const std::vector<std::string> &lines, uint32_t timeout_ms);

  private:
    OXB_PORT *port_ = nullptr;
    TRA *tra_ = nullptr;
    uint64_t sequence_ = 0;
};

// A backup or restore running in the background.
struct Job {
    int id = 0;
    std::string kind; // "backup", "restore"
    std::atomic<double> progress{0};
    std::atomic<bool> done{false};
    // Set once before `done` turns true.
    int code = 0;
    Json result;
    std::string file; // the parameter file of a backup
};

class Hub;

// One scope stream: a thread samples the channels at the period and keeps the samples until the
// stream takes them. Each sample is [number, milliseconds since the start, value per channel].
class Scope {
  public:
    Scope(Hub &hub, std::vector<std::string> channels, int period_ms);
    ~Scope();
    // Waits up to `wait_ms` for samples and moves them out (empty when none came).
    Json take(int wait_ms);
    int start(const std::string &address);

  private:
    void run();
    Hub &hub_;
    std::vector<std::string> channels_;
    int period_ms_;
    Session session_;
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<Json> samples_;
    uint64_t missed_ = 0; // periods that passed without a sample (the reads took too long)
    bool stop_ = false;
    std::thread thread_;
};

class Hub {
  public:
    // Opens the bus: the parameter module's port, and `sessions` ports for the handlers.
    static int open(const std::string &address, int sessions, std::unique_ptr<Hub> *out,
                    std::string *why);
    Hub(const Hub &) = delete;
    Hub &operator=(const Hub &) = delete;
    ~Hub();

    // Tells every waiting stream to end (the server is stopping).
    void stop();
    bool stopping() const { return stopping_; }

    Json drives();
    // Sends one line of the command language; the result holds the answer and, for a refused
    // line, the dictionary's explanation (axis: the dictionary to explain with).
    Json send(const std::string &line, int axis);
    // Registers of an axis whose name, alias or description holds `query`, with their dictionary
    // data and (with `values`) current values: rows offset .. offset + limit of the matches.
    Failure registers(int axis, const std::string &query, int offset, int limit, bool values,
                      Json *out);
    // Names to complete a command line with: commands, register types and aliases of an axis.
    Failure names(int axis, Json *out);
    // Attaches or detaches a drive of a simulated bus.
    Failure simulate(int axis, bool attach);

    // Scope streams: checks the channels ("M7.0", "K5:1.2"), starts a sampler.
    Failure scope(const std::vector<std::string> &channels, int period_ms,
                  std::unique_ptr<Scope> *out);
    void scope_ended();

    // Backup and restore jobs, one at a time (409 while one runs); diff waits for its turn.
    Failure start_backup(const std::string &axes, std::shared_ptr<Job> *job);
    Failure start_restore(const std::string &text, bool dry_run, bool force,
                          std::shared_ptr<Job> *job);
    std::shared_ptr<Job> job(int id);
    Failure diff(const std::string &text, Json *out);

  private:
    Hub() = default;
    class Lease;
    std::unique_ptr<Session> take_session();
    void give_session(std::unique_ptr<Session> s);
    // The dictionary of the drive at an axis (null when none), opened once per configuration.
    const VOK_DICT *dictionary(int axis);
    Failure start_job(const std::string &kind, std::function<void(Job &)> work,
                      std::shared_ptr<Job> *job);

    std::string address_; // the bus address every port opens (a named sim: bus)
    params::Bus bus_;     // the parameter module's port; used under params_mutex_
    std::mutex params_mutex_;

    std::mutex pool_mutex_;
    std::condition_variable pool_ready_;
    std::vector<std::unique_ptr<Session>> idle_;

    std::mutex dict_mutex_;
    std::map<std::vector<uint32_t>, VOK_DICT *> dicts_;

    std::mutex jobs_mutex_;
    std::map<int, std::shared_ptr<Job>> jobs_;
    int next_job_ = 1;
    std::thread worker_;

    std::atomic<int> scopes_{0};
    std::atomic<bool> stopping_{false};
    friend class Scope;
};

} // namespace ryn::cli::web
