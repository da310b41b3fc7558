// Ports' answer queues, the bus lock, event delivery on the bus's thread, and sends through the
// transport.
#include "bus.hpp"

#include "registry.hpp"

#include <algorithm>
#include <cstring>

namespace ryn::oxb {

namespace {

// Earliest due first, then the order of posting: std heaps keep the "largest" on top.
bool later(const std::unique_ptr<Answer> &a, const std::unique_ptr<Answer> &b) {
    return a->due != b->due ? a->due > b->due : a->seq > b->seq;
}

Clock::time_point deadline_after(Clock::time_point now, int timeout_ms) {
    return now + std::chrono::milliseconds(timeout_ms);
}

} // namespace

bool streamable_types(const uint8_t *types, int count) {
    // The user register families, in any value class: X 1, K 2, LD 8, EL 9, W 12, C 13.
    constexpr uint32_t streamable = 1u << 1 | 1u << 2 | 1u << 8 | 1u << 9 | 1u << 12 | 1u << 13;
    bool ok = true;
    for (int i = 0; i < count; ++i) {
        const uint32_t type = types[i];
        if ((type & ~(wire::VALUE_CLASS_MASK | wire::TYPE_CODE_MASK)) != 0 ||
            (streamable >> (type & wire::TYPE_CODE_MASK) & 1) == 0)
            ok = false;
    }
    return ok;
}

int Transport::check_types(const uint8_t *types, int count, uint8_t *allowed) {
    *allowed = streamable_types(types, count) ? 1 : 0;
    return 0;
}

// ---- Port ----

std::unique_ptr<Answer> Port::take_spare() {
    if (spare_.empty()) return std::make_unique<Answer>();
    auto a = std::move(spare_.back());
    spare_.pop_back();
    return a;
}

void Port::post(void *ticket, wire::ConstRecordView answer, Clock::time_point due,
                Clock::time_point now) {
    std::lock_guard lk(mu_);
    if (closed_) return;
    auto a = take_spare();
    a->due = due;
    a->seq = seq_++;
    a->ticket = ticket;
    a->ready = due <= now;
    a->size = answer.size();
    std::memcpy(a->bytes, answer.bytes, static_cast<std::size_t>(a->size));
    queue_.push_back(std::move(a));
    std::push_heap(queue_.begin(), queue_.end(), later);
    size_.store(queue_.size(), std::memory_order_relaxed);
    if (waiting_ > 0) cv_.notify_all();
}

bool Port::has_room() const {
    return size_.load(std::memory_order_relaxed) < PORT_QUEUE_LIMIT;
}

int Port::receive(void **ticket, uint8_t *buffer, int capacity, int timeout_ms) {
    std::unique_lock lk(mu_);
    // An answer that was due when posted is taken without reading the clock: the clock costs
    // more than the rest of an exchange on some machines.
    Clock::time_point now = Clock::time_point::min();
    if (queue_.empty() || !queue_.front()->ready) now = Clock::now();
    const Clock::time_point deadline =
        timeout_ms >= 0 ? deadline_after(now, timeout_ms) : Clock::time_point::max();
    for (;;) {
        if (closed_) return OXB_ECLOSED;
        if (!queue_.empty() && (queue_.front()->ready || queue_.front()->due <= now || failed_)) {
            Answer &a = *queue_.front();
            if (a.size > wire::record_size(std::min(capacity, wire::RECORD_MAX_SLOTS)))
                return OXB_ECAPACITY; // kept for a receiver with room for it
            std::memcpy(buffer, a.bytes, static_cast<std::size_t>(a.size));
            if (ticket != nullptr) *ticket = a.ticket;
            std::pop_heap(queue_.begin(), queue_.end(), later);
            spare_.push_back(std::move(queue_.back()));
            queue_.pop_back();
            size_.store(queue_.size(), std::memory_order_relaxed);
            return 0;
        }
        if (failed_ != 0) return failed_;
        if (now >= deadline) return OXB_ENOTHING;
        Clock::time_point wake = deadline;
        if (!queue_.empty()) wake = std::min(wake, queue_.front()->due);
        if (bus_->receivers_read() && queue_.empty()) {
            // This thread reads the connection itself until its answer is there.
            lk.unlock();
            bus_->pump(this, wake);
            lk.lock();
            now = Clock::now();
            continue;
        }
        ++waiting_;
        if (wake == Clock::time_point::max())
            cv_.wait(lk);
        else
            cv_.wait_until(lk, wake);
        --waiting_;
        now = Clock::now();
    }
}

void Port::fail(int code) {
    std::lock_guard lk(mu_);
    failed_ = code;
    done_.store(true, std::memory_order_release);
    cv_.notify_all();
}

void Port::close() {
    {
        std::lock_guard lk(mu_);
        closed_ = true;
        done_.store(true, std::memory_order_release);
    }
    bus_->port_closed(this); // wakes a receiver that pumps
    std::lock_guard lk(mu_);
    queue_.clear();
    spare_.clear();
    size_.store(0, std::memory_order_relaxed);
    cv_.notify_all();
}

// ---- Events ----

void Events::start(const std::shared_ptr<Events> &self) {
    self->thread_ = std::thread([self] { self->run(); });
    self->thread_id_ = self->thread_.get_id();
}

void Events::stop() {
    {
        std::lock_guard lk(mu_);
        stop_ = true;
        work_cv_.notify_all();
    }
    if (!thread_.joinable()) return;
    if (on_own_thread())
        thread_.detach(); // released from one of its own handlers: it ends after the call
    else
        thread_.join();
}

int Events::add(void *owner, uint64_t axes, int selector, OXB_HANDLER handler, void *context,
                uint64_t present, uint64_t *job) {
    std::lock_guard lk(mu_);
    for (const Handler &h : handlers_)
        if (h.owner == owner) return OXB_EHANDLER;
    const uint64_t id = next_job_++;
    handlers_.push_back({owner, axes, selector, handler, context, id});
    const uint64_t report = (selector & OXB_EVENT_DRIVES) != 0 ? present & axes : 0;
    jobs_.push_back({id, -1, OXB_EVENT_DRIVE_PRESENT, report, owner});
    work_cv_.notify_one();
    *job = id;
    return 0;
}

void Events::wait_delivered(uint64_t job) {
    std::unique_lock lk(mu_);
    if (on_own_thread()) {
        // Registered from a handler: the thread cannot wait for itself, so the report is
        // delivered here, ahead of the events queued before it.
        auto it =
            std::find_if(jobs_.begin(), jobs_.end(), [&](const Job &j) { return j.id == job; });
        if (it == jobs_.end()) return;
        Job j = *it;
        jobs_.erase(it);
        deliver(j, lk);
        return;
    }
    done_cv_.wait(lk, [&] { return delivered_ >= job || stop_; });
}

void Events::wait_idle() {
    std::unique_lock lk(mu_);
    if (on_own_thread()) return;
    const uint64_t last = next_job_ - 1;
    // A job delivered ahead of its turn (by a handler that registered another) does not move
    // delivered_: an empty queue with no handler running counts as delivered too.
    done_cv_.wait_for(lk, std::chrono::seconds(10), [&] {
        return delivered_ >= last || stop_ || (jobs_.empty() && calling_.empty());
    });
}

int Events::remove(void *owner) {
    std::unique_lock lk(mu_);
    auto it = std::find_if(handlers_.begin(), handlers_.end(),
                           [&](const Handler &h) { return h.owner == owner; });
    if (it == handlers_.end()) return OXB_ENOHANDLER;
    handlers_.erase(it);
    if (!on_own_thread())
        done_cv_.wait(lk, [&] {
            return std::find(calling_.begin(), calling_.end(), owner) == calling_.end();
        });
    return 0;
}

void Events::raise(int axis, int event) {
    std::lock_guard lk(mu_);
    jobs_.push_back({next_job_++, axis, event, 0, nullptr});
    work_cv_.notify_one();
}

void Events::run() {
    std::unique_lock lk(mu_);
    for (;;) {
        work_cv_.wait(lk, [&] { return stop_ || !jobs_.empty(); });
        if (stop_) return;
        Job job = jobs_.front();
        jobs_.erase(jobs_.begin());
        deliver(job, lk);
        delivered_ = job.id;
        done_cv_.notify_all();
    }
}

void Events::deliver(const Job &job, std::unique_lock<std::mutex> &lk) {
    if (job.axis < 0) {
        for (int axis = 0; axis < 64; ++axis)
            if ((job.axes >> axis & 1) != 0 && !call(job.owner, axis, job.event, lk)) return;
        return;
    }
    std::vector<void *> owners;
    for (const Handler &h : handlers_)
        if (job.id > h.first_job && (h.axes >> job.axis & 1) != 0 && (h.selector & job.event) != 0)
            owners.push_back(h.owner);
    for (void *owner : owners)
        call(owner, job.axis, job.event, lk);
}

bool Events::call(void *owner, int axis, int event, std::unique_lock<std::mutex> &lk) {
    auto it = std::find_if(handlers_.begin(), handlers_.end(),
                           [&](const Handler &h) { return h.owner == owner; });
    if (it == handlers_.end()) return false; // unregistered meanwhile
    const OXB_HANDLER handler = it->handler;
    void *const context = it->context;
    calling_.push_back(owner);
    lk.unlock();
    handler(bus_, axis, event, context);
    lk.lock();
    calling_.erase(std::find(calling_.begin(), calling_.end(), owner));
    done_cv_.notify_all();
    return true;
}

// ---- Bus ----

std::atomic<int64_t> LiveCounts::ports{0};
std::atomic<int64_t> LiveCounts::buses{0};

Bus::Bus(std::unique_ptr<Transport> transport, OXB_BUS *handle)
    : handle_(handle), epoch_(Clock::now()), transport_(std::move(transport)),
      receivers_read_(transport_->receivers_read()), events_(std::make_shared<Events>(handle)) {
    LiveCounts::buses.fetch_add(1, std::memory_order_relaxed);
    transport_->attach_host(this);
    Events::start(events_);
}

Bus::~Bus() {
    transport_.reset(); // its threads raise events no more
    events_->stop();
    LiveCounts::buses.fetch_sub(1, std::memory_order_relaxed);
}

bool Bus::wait_unlocked(std::unique_lock<std::mutex> &lk, int timeout_ms) {
    const auto me = std::this_thread::get_id();
    auto free = [&] { return depth_ == 0 || owner_ == me; };
    if (free()) return true;
    if (timeout_ms == 0) return false;
    if (timeout_ms < 0) {
        unlocked_cv_.wait(lk, free);
        return true;
    }
    return unlocked_cv_.wait_until(lk, deadline_after(Clock::now(), timeout_ms), free);
}

int Bus::send(Port &port, void *ticket, uint64_t axes, const void *record, int timeout_ms) {
    if (!port.has_room()) return OXB_EQUEUEFULL;
    const wire::ConstRecordView request{static_cast<const uint8_t *>(record)};
    std::unique_lock lk(mu_);
    if (!wait_unlocked(lk, timeout_ms)) return OXB_ELOCKED;
    const Clock::time_point now = Clock::now();
    return transport_->submit(
        {request, axes, ticket, &port, now,
         static_cast<uint64_t>(
             std::chrono::duration_cast<std::chrono::microseconds>(now - epoch_).count()),
         timeout_ms});
}

int Bus::lock(int timeout_ms) {
    const Clock::time_point start = Clock::now();
    std::unique_lock lk(mu_);
    if (!wait_unlocked(lk, timeout_ms)) return OXB_ELOCKED;
    const auto me = std::this_thread::get_id();
    if (depth_ > 0) {
        ++depth_;
        return 0;
    }
    // The first take: held here at once, so that this process's other threads wait, then taken
    // from the transport (across the clients of a served bus) without the bus mutex.
    owner_ = me;
    depth_ = 1;
    lk.unlock();
    int left = timeout_ms;
    if (timeout_ms > 0) {
        const auto spent =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
        left = static_cast<int>(std::max<int64_t>(0, timeout_ms - spent));
    }
    const int rc = transport_->acquire_lock(left);
    if (rc == 0) return 0;
    lk.lock();
    owner_ = std::thread::id();
    depth_ = 0;
    unlocked_cv_.notify_all();
    return rc;
}

int Bus::unlock() {
    std::lock_guard lk(mu_);
    if (depth_ == 0 || owner_ != std::this_thread::get_id()) return OXB_ENOTLOCKED;
    if (--depth_ == 0) {
        transport_->release_lock();
        owner_ = std::thread::id();
        unlocked_cv_.notify_all();
    }
    return 0;
}

int Bus::present_axes(uint64_t *mask) {
    std::lock_guard lk(mu_);
    return transport_->present_axes(mask);
}

int Bus::drive_info(int axis, wire::DriveInfo *info) {
    std::lock_guard lk(mu_);
    return transport_->drive_info(axis, info);
}

int Bus::ext_info(int axis, wire::ExtInfo *info) {
    std::lock_guard lk(mu_);
    return transport_->ext_info(axis, info);
}

int Bus::bus_flags(uint32_t *flags) {
    std::lock_guard lk(mu_);
    return transport_->bus_flags(flags);
}

int Bus::check_types(const uint8_t *types, int count, uint8_t *allowed) {
    std::lock_guard lk(mu_);
    return transport_->check_types(types, count, allowed);
}

int Bus::register_handler(void *owner, uint64_t axes, int selector, OXB_HANDLER handler,
                          void *context) {
    uint64_t job = 0;
    {
        // Presence is read and the handler added under the bus mutex, so that every later
        // attach or detach reaches the handler as an event after its report.
        std::lock_guard lk(mu_);
        const int rc = transport_->with_presence([&](uint64_t present) {
            return events_->add(owner, axes, selector, handler, context, present, &job);
        });
        if (rc != 0) return rc;
    }
    events_->wait_delivered(job);
    return 0;
}

int Bus::unregister_handler(void *owner) {
    return events_->remove(owner);
}

void Bus::raise_event(int axis, int event) {
    events_->raise(axis, event);
}

uint64_t Bus::now_us() const {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - epoch_).count());
}

} // namespace ryn::oxb
