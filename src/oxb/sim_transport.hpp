// The sim: transport: simulated drives on up to 64 axes, executed on the sending thread under the
// bus mutex, with the faults of the bus (latency, lost answers, refusals, drives that leave).
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <string>

#include "ryn/oxbsim.h"
#include "sim/drive.hpp"
#include "transport.hpp"

namespace ryn::oxb {

// Faults and timing of a new sim: bus: answer time 500 ms, no faults, seed 1.
OXBSIM_FAULTS default_faults();

// Fills in a version 0 (the product's default) and a card version 0 (the card's default), checks
// the identity against the dictionary and makes the drive. Returns 0, or OXB_EDRIVE with a
// message in *why that says what the dictionary refuses.
int make_drive(sim::Identity identity, int axis, std::unique_ptr<sim::Drive> *out,
               std::string *why);

class SimTransport final : public Transport {
  public:
    explicit SimTransport(const OXBSIM_FAULTS &faults);

    void attach_host(TransportHost *host) override { host_ = host; }
    int submit(const Outbound &out) override;
    int present_axes(uint64_t *mask) override {
        *mask = present_;
        return 0;
    }
    int drive_info(int axis, wire::DriveInfo *info) override;
    int ext_info(int axis, wire::ExtInfo *info) override;
    int bus_flags(uint32_t *flags) override {
        *flags = 0;
        return 0;
    }
    SimTransport *sim() override { return this; }

    // Puts a drive on a free axis and raises its event; OXB_EPRESENT when the axis is taken.
    int attach(int axis, std::unique_ptr<sim::Drive> drive);
    // Takes the drive off an axis and raises its event; OXB_ENODRIVE when there is none.
    int detach(int axis);
    // The drive at an axis, null when none.
    sim::Drive *drive(int axis) const;
    const OXBSIM_FAULTS &faults() const { return faults_; }
    void set_faults(const OXBSIM_FAULTS &faults);

  private:
    // One draw of a fault of probability p, from the bus's own generator.
    bool draw(double p);

    TransportHost *host_ = nullptr;
    std::array<std::unique_ptr<sim::Drive>, 64> drives_;
    std::array<uint32_t, 64> records_{}; // records executed by each drive, for detach_after
    uint64_t present_ = 0;
    OXBSIM_FAULTS faults_;
    std::mt19937_64 rng_;
};

} // namespace ryn::oxb
