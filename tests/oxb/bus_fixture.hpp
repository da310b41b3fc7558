// Helpers of the bus library's tests: records built with oxb_build_record, ports on sim: buses,
// and a recorder of handler events.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ryn/oxb.h"
#include "ryn/oxbsim.h"
#include "wire/wire.hpp"

namespace ryn::test {

constexpr uint32_t K = 2; // parameters
constexpr uint32_t X = 1; // user variables
constexpr uint32_t W = 12;
constexpr uint64_t AXIS63 = uint64_t{1} << 63;
constexpr uint64_t ALL_DRIVES = ~AXIS63; // the "!" form: axes 0..62
constexpr uint64_t DEFAULT_AXES = 0xF | AXIS63;

// ORX-D32 at its default version, no card.
inline const OXBSIM_DRIVE default_drive{32, 0, 0, 0, 12345, 1};
// A drop probability above 1.
inline const OXBSIM_FAULTS bad_faults{500, 0, 1.5, 0, 0, 1};

inline uint64_t axis(int n) {
    return uint64_t{1} << n;
}

struct Record {
    alignas(8) uint8_t bytes[wire::RECORD_MAX_SIZE] = {};
    wire::ConstRecordView view() const { return {bytes}; }
    uint32_t word() const { return view().word(); }
    int count() const { return view().count(); }
    bool ack() const { return (word() & wire::HEADER_ACK) != 0; }
    bool status() const { return (word() & wire::HEADER_STATUS) != 0; }
    // The bus's own answer: no acknowledge, the status bit, no slots.
    bool is_bus_answer() const { return !ack() && status() && count() == 0; }
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

class BusTest : public ::testing::Test {
  protected:
    void TearDown() override {
        for (OXB_PORT *&p : ports_)
            if (p != nullptr) oxb_close(&p);
    }

    OXB_PORT *open(const std::string &address) {
        OXB_PORT *p = nullptr;
        const int rc = oxb_open(address.c_str(), &p);
        EXPECT_EQ(rc, 0) << address << ": " << oxb_translate_error(rc);
        ports_.push_back(p);
        return p;
    }
    OXB_BUS *bus_of(OXB_PORT *p) {
        OXB_BUS *b = nullptr;
        EXPECT_EQ(oxb_get_port_bus(p, &b), 0);
        return b;
    }

    // Sends one record and waits for its answer.
    Record exchange(OXB_PORT *p, uint64_t axes, const Record &request, int timeout_ms = 2000) {
        int ticket = 0;
        EXPECT_EQ(oxb_send(p, &ticket, axes, request.bytes, 1000), 0);
        Record answer;
        void *got = nullptr;
        EXPECT_EQ(oxb_receive(p, &got, 0, answer.bytes, 65, 0, timeout_ms), 0);
        EXPECT_EQ(got, &ticket);
        return answer;
    }

    uint64_t memory(OXB_PORT *p, int axis, uint32_t type, uint32_t index, uint32_t sub = 0) {
        uint64_t raw = 0;
        EXPECT_EQ(oxbsim_read(bus_of(p), axis, type, index, sub, &raw), 0);
        return raw;
    }

    std::vector<OXB_PORT *> ports_;
};

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
};

} // namespace ryn::test
