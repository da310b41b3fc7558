// Helpers of the translator's tests on simulated buses: a port with a direct translator, one
// command sent and its answer read back, and a stream fed from a list of lines.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bus_records.hpp"
#include "memory_lines.hpp"
#include "ryn/oxbsim.h"
#include "ryn/sup.h"
#include "ryn/tra.h"

namespace ryn::test {

inline constexpr uint64_t AXIS_63 = uint64_t(1) << 63;
inline constexpr uint32_t VERSION_TYPE = 3, VERSION_INDEX = 282;

// The raw value of one register element of a simulated drive, read past the bus.
inline uint64_t sim_read(OXB_BUS *bus, int axis, uint32_t kind, uint32_t index, uint32_t sub) {
    uint64_t raw = ~uint64_t(0);
    EXPECT_EQ(oxbsim_read(bus, axis, kind, index, sub, &raw), 0);
    return raw;
}

// A port on a sim: bus and a translator on it: a direct translator, or a register translator
// when `register_translator`.
struct OnBus {
    OXB_PORT *port = nullptr;
    OXB_BUS *bus = nullptr;
    TRA *tra = nullptr;

    explicit OnBus(const char *address = "sim:", uint32_t flags = 0,
                   bool register_translator = false) {
        EXPECT_EQ(oxb_open(address, &port), 0) << address;
        EXPECT_EQ(oxb_get_port_bus(port, &bus), 0);
        EXPECT_EQ(register_translator ? tra_create_register_traductor_e(&tra, port, flags)
                                      : tra_create_direct_traductor_e(&tra, port, flags),
                  0);
    }
    ~OnBus() {
        tra_destroy(&tra);
        oxb_close(&port);
    }
    OnBus(const OnBus &) = delete;
    OnBus &operator=(const OnBus &) = delete;

    // The raw value of one register element of a drive.
    uint64_t read(int axis, uint32_t kind, uint32_t index, uint32_t sub = 0) const {
        return sim_read(bus, axis, kind, index, sub);
    }
};

// A register element of a drive that a case checks after a stream: kind word, index, subindex
// and the raw value expected.
struct Check {
    int axis;
    uint32_t kind, index, sub;
    uint64_t value;
};

// An answer read back as text, with the outputs of the receive.
struct Answer {
    int send_rc = 1;
    uint8_t sent = 9;
    int rc = 1;
    std::string text;
    uint8_t ack = 9, status = 9, request = 9;
    uint64_t user = 0;
};

// Receives the next answer (timeout as tra_receive_direct_cmd_e_ex takes it).
inline Answer receive(TRA *tra, uint32_t timeout = 5000) {
    Answer a;
    char text[1024] = "";
    a.rc = tra_receive_direct_cmd_e_ex(tra, text, sizeof text, &a.ack, &a.status, &a.request,
                                       &a.user, timeout);
    a.text = text;
    return a;
}

// Sends one line and, when it went out, receives its answer.
inline Answer roundtrip(TRA *tra, const char *line, uint64_t user = 77) {
    uint8_t sent = 9;
    const int rc = tra_send_direct_cmd_e(tra, line, user, &sent);
    Answer a;
    if (rc == 0 && sent != 0) a = receive(tra);
    a.send_rc = rc;
    a.sent = sent;
    return a;
}

// A stream fed from a list of lines; notes the progress each time a line is asked for, and may
// run a step before a read or fail one.
struct LineSource : MemoryLines {
    explicit LineSource(std::vector<std::string> l = {}, int fail = -1)
        : MemoryLines{std::move(l)}, fail_at(fail) {}

    int fail_at = -1;   // index of the read that fails instead
    int fail_code = -7; // with this code
    std::vector<double> progress;
    std::function<void(std::size_t)> before_read; // runs before each read, given `next`

    static int read(TRA *tra, char *buffer, int32_t size, void *user) {
        auto &s = *static_cast<LineSource *>(user);
        double p = -1;
        tra_get_progress(tra, &p);
        s.progress.push_back(p);
        if (s.before_read) s.before_read(s.next);
        if (static_cast<int>(s.next) == s.fail_at) return s.fail_code;
        return s.hand(buffer, size);
    }
};

} // namespace ryn::test
