// The bus exchange: the inbox that routes every answer of a translator's port to whoever waits for
// it, the request-and-reply exchange and the register reads built on it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "ryn/oxb.h"
#include "ryn/tra.h"
#include "wire/wire.hpp"

namespace ryn::tra {

struct Envelope; // a command on its way to the drives and back (the download module)

// An exchange waiting for the answer to its own request.
struct PendingExchange {
    void *ticket;    // an odd value: never the address of an envelope
    uint8_t *buffer; // room for a record of RECORD_MAX_SLOTS slots
    bool answered;
};

// Every answer that arrives on a translator's port passes through its inbox. One thread at a time
// reads the port (the reader); it routes each answer to the envelope or the exchange whose ticket
// it carries and wakes the threads that wait for theirs. So a receiver and an exchange on other
// threads never take each other's answers, and an answer that the waiting thread did not ask for
// is kept for the one that will. Tickets are never dereferenced: an exchange's ticket is an odd
// number, an envelope's an even one that names its place in `live` while it is on the bus.
class Inbox {
  public:
    using Clock = std::chrono::steady_clock;

    Inbox() = default;
    ~Inbox(); // frees the envelopes still held: on the bus, or answered and never received
    Inbox(const Inbox &) = delete;
    Inbox &operator=(const Inbox &) = delete;

    // Waits, with `lk` on `mu` held, until done() holds, reading `port` while no other thread
    // does. timeout_ms 0 reads what has arrived and does not wait; a negative one waits without
    // limit. Returns 0, OXB_ENOTHING when the time ran out, or the bus code of a failed read.
    template <class Done>
    int wait(std::unique_lock<std::mutex> &lk, OXB_PORT *port, int timeout_ms, Done &&done);

    // Puts an answer where it belongs; with `mu` held.
    void route(void *ticket, const uint8_t *record);
    // Gives an envelope its place among those on the bus and returns its ticket; with `mu` held.
    void *enter(Envelope *e);
    // Takes an envelope off the bus; with `mu` held.
    void leave(Envelope *e);
    // The ticket of an envelope on the bus.
    static void *ticket_of(const Envelope *e);
    // Frees every envelope still held; with no other thread using the inbox.
    void clear();

    std::mutex mu;
    std::condition_variable cv;
    bool reading = false;                   // a thread reads the port
    int sending = 0;                        // envelopes whose sender has not finished
    std::vector<Envelope *> live;           // envelopes on the bus by place; null: free
    std::vector<uint32_t> free_places;      // places of live that are free
    std::deque<Envelope *> ready;           // answered envelopes, in the order they completed
    std::vector<PendingExchange *> pending; // exchanges waiting for their answer
    uintptr_t next_ticket = 1;              // the next exchange's ticket (odd)
};

template <class Done>
int Inbox::wait(std::unique_lock<std::mutex> &lk, OXB_PORT *port, int timeout_ms, Done &&done) {
    const bool forever = timeout_ms < 0;
    const Clock::time_point deadline =
        forever ? Clock::time_point::max() : Clock::now() + std::chrono::milliseconds(timeout_ms);
    for (;;) {
        if (done()) return 0;
        int left = -1; // milliseconds left, rounded up; -1 without limit
        if (!forever) {
            const auto rest = deadline - Clock::now();
            left =
                rest <= Clock::duration::zero()
                    ? 0
                    : static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(rest).count());
        }
        if (!reading) {
            // While a sender is still busy with an envelope, its completion comes from the sender
            // and not from the port: read in short slices so that it is seen.
            int slice = left;
            if (sending > 0 && (slice < 0 || slice > 1)) slice = 1;
            reading = true;
            lk.unlock();
            alignas(8) uint8_t record[wire::RECORD_MAX_SIZE];
            void *ticket = nullptr;
            const int rc = oxb_receive(port, &ticket, 0, record, wire::RECORD_MAX_SLOTS, 0, slice);
            lk.lock();
            reading = false;
            if (rc == 0) route(ticket, record);
            cv.notify_all(); // the port is free to read for another waiter
            if (rc == 0) continue;
            if (rc != OXB_ENOTHING) return done() ? 0 : rc;
            if (left == 0) return done() ? 0 : OXB_ENOTHING;
            continue;
        }
        if (left == 0) return OXB_ENOTHING;
        if (forever)
            cv.wait(lk);
        else
            cv.wait_until(lk, deadline);
    }
}

// Sends a request to the axes of a mask and replaces it with the reply; `capacity` is the number
// of slots the request's buffer holds.
int _tra_oxb_send_receive_1(TRA *tra, uint64_t axis_mask, TRA_RECORD *request, int capacity);
// Reads one register element of one axis into value (8 bytes for a 64-bit value, else 4).
int _tra_get_register(TRA *tra, int axis, uint32_t type, uint32_t index, uint32_t subindex,
                      void *value);
// Reads two register elements of one axis in one exchange; either value may be null.
int _tra_get_register_pair(TRA *tra, int axis, uint32_t type1, uint32_t index1, uint32_t subindex1,
                           void *value1, uint32_t type2, uint32_t index2, uint32_t subindex2,
                           void *value2);

} // namespace ryn::tra
