// A bus and its ports: answer queues with due times, the recursive bus lock, event handlers run
// on the bus's own thread, and the transport that carries the records.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ryn/oxb.h"
#include "transport.hpp"

namespace ryn::oxb {

class Bus;

// Most answers a port holds before further sends on it are refused.
inline constexpr std::size_t PORT_QUEUE_LIMIT = 65536;

// One answer waiting on a port until it is due.
struct Answer {
    Clock::time_point due;
    uint64_t seq;
    void *ticket;
    bool ready; // due when it was posted: taken without a look at the clock
    int size;
    uint8_t bytes[wire::RECORD_MAX_SIZE];
};

// Port and bus objects alive in the process, open or not yet released (leak checks).
struct LiveCounts {
    static std::atomic<int64_t> ports;
    static std::atomic<int64_t> buses;
};

class Port {
  public:
    Port(std::shared_ptr<Bus> bus, OXB_PORT *handle) : bus_(std::move(bus)), handle_(handle) {
        LiveCounts::ports.fetch_add(1, std::memory_order_relaxed);
    }
    ~Port() { LiveCounts::ports.fetch_sub(1, std::memory_order_relaxed); }
    Port(const Port &) = delete;
    Port &operator=(const Port &) = delete;

    // Queues an answer that a receiver may take from `due` on (`now`: the poster's clock, read
    // once per record). Answers come out in the order of their due times, equal ones in the order
    // they were posted. Dropped once the port is closed.
    void post(void *ticket, wire::ConstRecordView answer, Clock::time_point due,
              Clock::time_point now);
    // Takes the next due answer; see oxb_receive.
    int receive(void **ticket, uint8_t *buffer, int capacity, int timeout_ms);
    // Refuses further answers and wakes every receiver with OXB_ECLOSED.
    void close();
    // The bus behind the port is gone for good (a lost connection): once the answers already
    // queued are taken, every receive returns `code` at once, blocked receivers included.
    void fail(int code);
    // Whether the port still has room for more answers.
    bool has_room() const;
    // Whether an answer waits, or the port is closed or failed: a pumping receiver stops then.
    bool has_news() const {
        return size_.load(std::memory_order_acquire) > 0 || done_.load(std::memory_order_acquire);
    }

    Bus &bus() const { return *bus_; }
    const std::shared_ptr<Bus> &bus_ptr() const { return bus_; }
    OXB_PORT *handle() const { return handle_; }

  private:
    std::unique_ptr<Answer> take_spare();

    const std::shared_ptr<Bus> bus_;
    OXB_PORT *const handle_;
    std::mutex mu_;
    std::condition_variable cv_;
    bool closed_ = false;
    int failed_ = 0;
    std::atomic<bool> done_{false}; // closed or failed
    int waiting_ = 0;
    uint64_t seq_ = 0;
    std::atomic<std::size_t> size_{0};
    std::vector<std::unique_ptr<Answer>> queue_; // a heap, earliest due first
    std::vector<std::unique_ptr<Answer>> spare_; // answers taken, kept for reuse
};

// The event side of a bus: handlers, the queue of events and the thread that runs them. Shared
// with that thread so that a bus released from one of its own handlers still ends cleanly.
class Events {
  public:
    explicit Events(OXB_BUS *bus) : bus_(bus) {}
    // Starts the thread; `self` is this object, kept alive by the thread while it runs.
    static void start(const std::shared_ptr<Events> &self);
    // Stops the thread once the queued events are delivered; joins it unless called on it.
    void stop();

    // Adds a handler and queues the report of `present` (axes where a drive is) for it alone.
    // Returns the job to wait for, or the error code.
    int add(void *owner, uint64_t axes, int selector, OXB_HANDLER handler, void *context,
            uint64_t present, uint64_t *job);
    // Waits until a job has been delivered (at once when called on the bus's own thread, which
    // then delivers it itself).
    void wait_delivered(uint64_t job);
    // Waits until the events queued before the call have been delivered, 10 s at most (at once
    // when called on the bus's own thread, which cannot wait for itself).
    void wait_idle();
    int remove(void *owner);
    // Queues one event for every handler registered before it.
    void raise(int axis, int event);
    bool on_own_thread() const { return std::this_thread::get_id() == thread_id_; }

  private:
    struct Handler {
        void *owner;
        uint64_t axes;
        int selector;
        OXB_HANDLER handler;
        void *context;
        uint64_t first_job; // events queued before the handler are not its own
    };
    struct Job {
        uint64_t id;
        int axis;      // an event's axis, -1 for a report of present drives
        int event;     //
        uint64_t axes; // a report's axes
        void *owner;   // a report's handler
    };
    void run();
    void deliver(const Job &job, std::unique_lock<std::mutex> &lk);
    bool call(void *owner, int axis, int event, std::unique_lock<std::mutex> &lk);

    OXB_BUS *const bus_;
    std::mutex mu_;
    std::condition_variable work_cv_; // jobs queued, or stop
    std::condition_variable done_cv_; // a job delivered, or a handler call ended
    std::vector<Handler> handlers_;
    std::deque<Job> jobs_;
    uint64_t next_job_ = 1;
    uint64_t delivered_ = 0;      // every job up to this one has been delivered
    std::vector<void *> calling_; // owners whose handler runs now (nested when one registers)
    bool stop_ = false;
    std::thread thread_;
    std::thread::id thread_id_;
};

class Bus final : public TransportHost {
  public:
    Bus(std::unique_ptr<Transport> transport, OXB_BUS *handle);
    ~Bus();
    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;

    OXB_BUS *handle() const { return handle_; }

    int send(Port &port, void *ticket, uint64_t axes, const void *record, int timeout_ms);
    int lock(int timeout_ms);
    int unlock();
    int present_axes(uint64_t *mask);
    int drive_info(int axis, wire::DriveInfo *info);
    int ext_info(int axis, wire::ExtInfo *info);
    int bus_flags(uint32_t *flags);
    int check_types(const uint8_t *types, int count, uint8_t *allowed);
    // Tells the transport of a port opened or being closed (without the bus mutex).
    void port_opened(Port *port) { transport_->port_opened(port); }
    bool receivers_read() const { return receivers_read_; }
    void pump(Port *port, Clock::time_point until) { transport_->pump(port, until); }
    void port_closed(Port *port) { transport_->port_closed(port); }
    int register_handler(void *owner, uint64_t axes, int selector, OXB_HANDLER handler,
                         void *context);
    int unregister_handler(void *owner);

    // Runs f(transport) under the bus mutex: simulator control and tests.
    template <typename F>
    auto with_transport(F &&f) {
        std::lock_guard lk(mu_);
        return f(*transport_);
    }

    void raise_event(int axis, int event) override;
    // Waits until the handlers have been told of the events raised so far (see Events::wait_idle).
    void wait_events() { events_->wait_idle(); }
    uint64_t now_us() const override;

    // Name and options of a named bus (empty without a name); written once, before it is shared.
    std::string name;
    std::string options;
    int open_ports = 0; // guarded by the handle registry

  private:
    // Waits, with mu_ held, until no other thread holds the bus lock; false at the deadline.
    bool wait_unlocked(std::unique_lock<std::mutex> &lk, int timeout_ms);

    OXB_BUS *const handle_;
    const Clock::time_point epoch_;
    std::mutex mu_;
    std::condition_variable unlocked_cv_;
    std::thread::id owner_;
    int depth_ = 0;
    std::unique_ptr<Transport> transport_;
    const bool receivers_read_;
    std::shared_ptr<Events> events_;
};

} // namespace ryn::oxb
