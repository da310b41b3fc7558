// The seam between a bus and what carries its records: the in-process simulated drives (sim:) now,
// a served bus over TCP later. The bus core owns ports, answer queues, tickets, the lock and the
// event thread; a transport executes or forwards records and reports its drives.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>

#include "wire/wire.hpp"

namespace ryn::oxb {

using Clock = std::chrono::steady_clock;

class Port;
class SimTransport;

// What a transport may ask of the bus that owns it. Called with the bus mutex held.
class TransportHost {
  public:
    // Queues one event for the bus's thread (OXB_EVENT_DRIVE_PRESENT or _GONE of an axis).
    virtual void raise_event(int axis, int event) = 0;
    // The bus's clock in microseconds since the bus was made.
    virtual uint64_t now_us() const = 0;

  protected:
    ~TransportHost() = default;
};

// A record on its way: a copy owned by the bus for the length of the submit call.
struct Outbound {
    wire::ConstRecordView record;
    uint64_t axes;
    void *ticket;
    Port *port;
    Clock::time_point sent; // when it was sent
    uint64_t sent_us;       // the same on the bus's clock (microseconds since the bus was made)
};

// Every member is called with the bus mutex held, so a transport needs no lock of its own for its
// state; one that has threads of its own (a network reader) takes the bus mutex to touch it.
class Transport {
  public:
    virtual ~Transport() = default;

    // Gives the transport its host, once, before any other call.
    virtual void attach_host(TransportHost *host) = 0;
    // Puts one record on the bus. Exactly one answer must reach `out.port` (Port::post), at once
    // or later, with the ticket: the drives' merged answer, or the bus's own when they are all
    // absent or do not answer within the answer time.
    virtual void submit(const Outbound &out) = 0;
    // Axes where a drive is present.
    virtual uint64_t present_axes() const = 0;
    // Identity records of a present axis; OXB_ENODRIVE when no drive is there.
    virtual int drive_info(int axis, wire::DriveInfo *info) const = 0;
    virtual int ext_info(int axis, wire::ExtInfo *info) const = 0;
    // Flags of the bus information record.
    virtual uint32_t bus_flags() const = 0;
    // The simulator behind a sim: bus, null for any other transport.
    virtual SimTransport *sim() { return nullptr; }
};

// The answer the bus gives itself for a record that no drive answered: the request's header
// without acknowledge, with the status bit and without slots.
void write_bus_answer(wire::ConstRecordView request, wire::RecordView answer);

} // namespace ryn::oxb
