// Helpers of the bus library's tests: ports on sim: buses and the memory of their drives.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bus_records.hpp"
#include "ryn/oxbsim.h"

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

    uint64_t memory(OXB_PORT *p, int axis, uint32_t type, uint32_t index, uint32_t sub = 0) {
        uint64_t raw = 0;
        EXPECT_EQ(oxbsim_read(bus_of(p), axis, type, index, sub, &raw), 0);
        return raw;
    }

    std::vector<OXB_PORT *> ports_;
};

} // namespace ryn::test
