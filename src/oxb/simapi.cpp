// The exported simulator control of sim: buses: drives attached and detached, faults, drive memory.
#include <cmath>
#include <new>

#include "errors.hpp"
#include "registry.hpp"
#include "ryn/oxbsim.h"
#include "sim_transport.hpp"

namespace ryn::oxb {

namespace {

// Runs f(SimTransport&) under the bus mutex of a sim: bus; exceptions become OXB_ESYSTEM.
// With `told`, a call that succeeded returns once the bus's handlers have been told of the events
// it raised: a drive attached or detached is known to every listener (translators among them) by
// the time the caller sends its next line.
template <typename F>
int with_sim(OXB_BUS *handle, F &&f, bool told = false) noexcept {
    try {
        const auto bus = Registry::get().bus(handle);
        if (!bus) return OXB_EBADBUS;
        const int rc = bus->with_transport([&](Transport &t) {
            SimTransport *sim = t.sim();
            return sim != nullptr ? f(*sim) : OXB_ENOTSIM;
        });
        if (rc == 0 && told) bus->wait_events();
        return rc;
    } catch (...) {
        return OXB_ESYSTEM;
    }
}

bool valid_axis(int axis) {
    return axis >= 0 && axis < 64;
}

bool valid_faults(const OXBSIM_FAULTS &f) {
    auto probability = [](double p) { return p >= 0.0 && p <= 1.0; }; // NaN fails both
    return probability(f.drop) && probability(f.nack) && f.answer_ms <= 3600000 &&
           f.latency_us <= 10000000;
}

} // namespace

} // namespace ryn::oxb

using namespace ryn;
using namespace ryn::oxb;

extern "C" {

int oxbsim_attach(OXB_BUS *bus, int axis, const OXBSIM_DRIVE *drive) {
    if (!valid_axis(axis) || drive == nullptr) return OXB_EBADPARAM;
    try {
        // The drive is made before the bus is taken: its memory takes a while to fill.
        const int kind = with_sim(bus, [](SimTransport &) { return 0; });
        if (kind != 0) return kind;
        sim::Identity id;
        id.product = drive->product;
        id.version = drive->version;
        id.ext_product = drive->ext_product;
        id.ext_version = drive->ext_version;
        id.serial = drive->serial;
        id.boot_revision = drive->boot_revision;
        std::unique_ptr<sim::Drive> made;
        std::string why;
        const int rc = make_drive(id, axis, &made, &why);
        if (rc != 0) {
            set_error_detail(rc, "oxbsim_attach: axis " + std::to_string(axis) + ": " + why);
            return rc;
        }
        return with_sim(
            bus, [&](SimTransport &sim) { return sim.attach(axis, std::move(made)); }, true);
    } catch (...) {
        return OXB_ESYSTEM;
    }
}

int oxbsim_detach(OXB_BUS *bus, int axis) {
    if (!valid_axis(axis)) return OXB_EBADPARAM;
    return with_sim(
        bus, [&](SimTransport &sim) { return sim.detach(axis); }, true);
}

int oxbsim_get_faults(OXB_BUS *bus, OXBSIM_FAULTS *faults) {
    if (faults == nullptr) return OXB_EBADPARAM;
    return with_sim(bus, [&](SimTransport &sim) {
        *faults = sim.faults();
        return 0;
    });
}

int oxbsim_set_faults(OXB_BUS *bus, const OXBSIM_FAULTS *faults) {
    if (faults == nullptr || !valid_faults(*faults)) return OXB_EBADPARAM;
    return with_sim(bus, [&](SimTransport &sim) {
        sim.set_faults(*faults);
        return 0;
    });
}

int oxbsim_read(OXB_BUS *bus, int axis, uint32_t kind, uint32_t index, uint32_t subindex,
                uint64_t *raw) {
    if (!valid_axis(axis) || raw == nullptr) return OXB_EBADPARAM;
    return with_sim(bus, [&](SimTransport &sim) {
        const sim::Drive *d = sim.drive(axis);
        if (d == nullptr) return OXB_ENODRIVE;
        return d->read(kind, index, subindex, raw) == 0 ? 0 : OXB_EBADPARAM;
    });
}

int oxbsim_write(OXB_BUS *bus, int axis, uint32_t kind, uint32_t index, uint32_t subindex,
                 uint64_t raw) {
    if (!valid_axis(axis)) return OXB_EBADPARAM;
    return with_sim(bus, [&](SimTransport &sim) {
        sim::Drive *d = sim.drive(axis);
        if (d == nullptr) return OXB_ENODRIVE;
        return d->write(kind, index, subindex, raw) == 0 ? 0 : OXB_EBADPARAM;
    });
}

int oxbsim_reset(OXB_BUS *bus, uint64_t axes) {
    return with_sim(bus, [&](SimTransport &sim) {
        int reset = 0;
        for (int axis = 0; axis < 64; ++axis)
            if (sim::Drive *d = (axes >> axis & 1) != 0 ? sim.drive(axis) : nullptr) {
                d->reset_memory();
                ++reset;
            }
        return reset > 0 ? 0 : OXB_ENODRIVE;
    });
}

int oxbsim_get_counts(OXBSIM_COUNTS *counts) {
    if (counts == nullptr) return OXB_EBADPARAM;
    counts->ports = LiveCounts::ports.load(std::memory_order_relaxed);
    counts->buses = LiveCounts::buses.load(std::memory_order_relaxed);
    return 0;
}

} // extern "C"
