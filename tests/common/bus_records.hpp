// What the tests of the bus library, the served bus and the translator on buses share: records
// built with oxb_build_record, one exchange on a port, a recorder of handler events, and a wait
// for a condition.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "ryn/oxb.h"
#include "wire/wire.hpp"

namespace ryn::test {

// A record buffer of the largest size.
struct Record {
    alignas(8) uint8_t bytes[wire::RECORD_MAX_SIZE] = {};
    wire::ConstRecordView view() const { return {bytes}; }
    uint32_t word() const { return view().word(); }
    int count() const { return view().count(); }
    int size() const { return wire::record_size(bytes[0]); }
    bool ack() const { return (word() & wire::HEADER_ACK) != 0; }
    bool status() const { return (word() & wire::HEADER_STATUS) != 0; }
    // The bus's own answer: no acknowledge, the status bit, no slots.
    bool is_bus_answer() const { return !ack() && status() && count() == 0; }
    bool operator==(const Record &o) const {
        return size() == o.size() && std::memcmp(bytes, o.bytes, size()) == 0;
    }
};

// A read of one register element (kind 18).
inline Record read(uint32_t type, uint32_t index, uint32_t sub = 0) {
    Record r;
    EXPECT_EQ(oxb_build_record(r.bytes, 1, wire::REC_READ, 0, "i", type, sub << 16 | index), 0);
    return r;
}

// An assignment of one 32-bit value (command 123).
inline Record assign(uint32_t type, uint32_t index, uint32_t value, uint32_t sub = 0) {
    Record r;
    EXPECT_EQ(oxb_build_record(r.bytes, 2, wire::REC_COMMAND, wire::CMD_SET, "ii", type,
                               wire::encode_destination(index, sub), 0u, value),
              0);
    return r;
}

// Sends one record and waits for its answer, which must carry the record's ticket.
inline Record exchange(OXB_PORT *port, uint64_t axes, const Record &request,
                       int timeout_ms = 3000) {
    int ticket = 0;
    EXPECT_EQ(oxb_send(port, &ticket, axes, request.bytes, 1000), 0);
    Record answer;
    void *got = nullptr;
    EXPECT_EQ(oxb_receive(port, &got, 0, answer.bytes, 65, 0, timeout_ms), 0);
    EXPECT_EQ(got, &ticket);
    return answer;
}

// Waits until what(), for at most two seconds.
inline bool eventually(const std::function<bool()> &what) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (!what()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Records the events a handler receives, and the threads it ran on.
struct EventLog {
    struct Event {
        int axis;
        int event;
        std::thread::id thread;
    };
    std::mutex mu;
    std::condition_variable cv;
    std::vector<Event> events;

    static int handler(OXB_BUS *, int axis, int event, void *context) {
        auto *log = static_cast<EventLog *>(context);
        std::lock_guard lk(log->mu);
        log->events.push_back({axis, event, std::this_thread::get_id()});
        log->cv.notify_all();
        return 0;
    }
    // Waits up to 5 s until n events have arrived; returns them.
    std::vector<Event> wait_for(std::size_t n) {
        std::unique_lock lk(mu);
        cv.wait_for(lk, std::chrono::seconds(5), [&] { return events.size() >= n; });
        return events;
    }
    std::vector<Event> snapshot() {
        std::lock_guard lk(mu);
        return events;
    }
    // The first n events as (axis, event) pairs, waiting for them as wait_for does.
    std::vector<std::pair<int, int>> pairs(std::size_t n) {
        std::vector<std::pair<int, int>> out;
        for (const Event &e : wait_for(n))
            out.emplace_back(e.axis, e.event);
        return out;
    }
};

} // namespace ryn::test
