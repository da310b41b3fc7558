// The simulated drive: one axis's identity, register memory and saved copy, executing command
// records as an ORAX drive would. Used by the bus library's sim: transport and the sim server.
#pragma once

#include <cstdint>
#include <memory>

#include "wire/wire.hpp"

namespace ryn::sim {

// Who a drive is: what its information records report and which dictionary it is built from.
struct Identity {
    uint32_t product = 32;         // ORX-D32
    uint32_t version = 0x03128100; // 3.12B
    uint32_t ext_product = 0;      // no card
    uint32_t ext_version = 0;
    uint32_t serial = 0;
    uint32_t boot_revision = 0;
};

class Drive {
  public:
    // Opens the drive's dictionary and fills its memory with the dictionary's defaults. A version
    // 0 takes the product's (or the card's) default version, which identity() then reports.
    // Returns 0 or the dictionary library's code (unknown product or version, incompatible card).
    static int create(const Identity &identity, int axis, std::unique_ptr<Drive> *out);
    virtual ~Drive() = default;

    // Executes one record addressed to this drive and writes its answer into `answer` (room for
    // RECORD_MAX_SLOTS slots, apart from the request's buffer): header word with HEADER_ACK when
    // the drive accepted it, with HEADER_STATUS and without HEADER_ACK when it refused it (memory
    // then unchanged). `now_us` is the bus's clock in microseconds, used for motion. Not
    // thread-safe: the bus serialises calls.
    virtual void execute(wire::ConstRecordView request, wire::RecordView answer,
                         uint64_t now_us) = 0;

    // Direct memory access for tests and the tool (oxbsim.h): the raw 8-byte value of one element
    // of register type `kind` (kind word with value class), index and subindex. Returns 0, or -1
    // when the drive has no such element. Writes bypass range and read-only checks.
    virtual int read(uint32_t kind, uint32_t index, uint32_t subindex, uint64_t *raw) const = 0;
    virtual int write(uint32_t kind, uint32_t index, uint32_t subindex, uint64_t raw) = 0;

    // Back to the dictionary's defaults, the saved copy included.
    virtual void reset_memory() = 0;

    virtual const Identity &identity() const = 0;
};

} // namespace ryn::sim
