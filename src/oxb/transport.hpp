// The seam between a bus and what carries its records: the in-process simulated drives (sim:) or
// a served bus over TCP (tcp://). The bus core owns ports, answer queues, tickets, the lock and the
// event thread; a transport executes or forwards records and reports its drives.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
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
    int timeout_ms;         // the sender's timeout: how long the record may wait for a lock
};

// Every member is called with the bus mutex held unless it says otherwise, so that a transport
// needs no lock of its own for its state; one that has threads of its own (a network reader) keeps
// its state under a lock of its own and never takes the bus mutex from those threads.
class Transport {
  public:
    virtual ~Transport() = default;

    // Gives the transport its host, once, before any other call.
    virtual void attach_host(TransportHost *host) = 0;
    // Puts one record on the bus. Exactly one answer must reach `out.port` (Port::post), at once
    // or later, with the ticket: the drives' merged answer, or the bus's own when they are all
    // absent or do not answer within the answer time. Returns 0, or a code when the record could
    // not be put on the bus (then no answer comes).
    virtual int submit(const Outbound &out) = 0;
    // Axes where a drive is present.
    virtual int present_axes(uint64_t *mask) = 0;
    // Runs f(present axes) so that no presence event is raised between the reading and f's end:
    // a handler registered by f gets every later change as an event.
    virtual int with_presence(const std::function<int(uint64_t)> &f) {
        uint64_t mask = 0;
        const int rc = present_axes(&mask);
        return rc != 0 ? rc : f(mask);
    }
    // Identity records of a present axis; OXB_ENODRIVE when no drive is there.
    virtual int drive_info(int axis, wire::DriveInfo *info) = 0;
    virtual int ext_info(int axis, wire::ExtInfo *info) = 0;
    // Flags of the bus information record.
    virtual int bus_flags(uint32_t *flags) = 0;
    // Sets *allowed to whether every type of the list may be streamed.
    virtual int check_types(const uint8_t *types, int count, uint8_t *allowed);
    // Takes the bus for this bus object beyond the process (a served bus's lock across its
    // clients); called without the bus mutex, when the calling thread takes the bus lock first.
    virtual int acquire_lock(int /*timeout_ms*/) { return 0; }
    // Gives back what acquire_lock took; called with the bus mutex held.
    virtual void release_lock() {}
    // Whether a receiver that finds nothing on its port may read for the transport (pump) instead
    // of sleeping until another thread posts an answer: the answer then wakes the thread that
    // waits for it, not a thread of the transport.
    virtual bool receivers_read() const { return false; }
    // Reads and delivers what the connection brings until `port` holds an answer, the port is
    // closed or failed, or `until`; called without the bus mutex and the port's lock.
    virtual void pump(Port * /*port*/, Clock::time_point /*until*/) {}
    // A port of the bus was opened or is being closed; called without the bus mutex. A transport
    // that delivers answers from a thread of its own stops using a port once it is closed.
    virtual void port_opened(Port * /*port*/) {}
    virtual void port_closed(Port * /*port*/) {}
    // The simulator behind a sim: bus, null for any other transport.
    virtual SimTransport *sim() { return nullptr; }
};

// Whether every register type of a list may be streamed: the user register families, in any
// value class.
bool streamable_types(const uint8_t *types, int count);

using wire::write_bus_answer;

} // namespace ryn::oxb
