/* Simulator control of sim: buses, for tests and the tool: drives, faults and drive memory.
 * Statuses as in ryn/oxb.h; a bus that is not simulated is OXB_ENOTSIM. */
#ifndef RYN_OXBSIM_H
#define RYN_OXBSIM_H

#include <stdint.h>

#include "ryn/oxb.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Identity of a simulated drive. A version 0 takes the product's default version, an extension
 * card version 0 the card's default; ext_product 0 means no card. */
typedef struct OXBSIM_DRIVE {
    uint32_t product;
    uint32_t version;
    uint32_t ext_product;
    uint32_t ext_version;
    uint32_t serial;
    uint32_t boot_revision;
} OXBSIM_DRIVE;

/* Faults and timing of a simulated bus (the sim: options of the same names). */
typedef struct OXBSIM_FAULTS {
    uint32_t answer_ms;    /* time after which the bus answers a record itself */
    uint32_t latency_us;   /* delay of every drive answer */
    double drop;           /* probability that a drive's answer is lost, 0 .. 1 */
    double nack;           /* probability that a drive refuses a record, 0 .. 1 */
    uint32_t detach_after; /* a drive leaves after this many records, 0: never */
    uint64_t seed;         /* seed of the fault draws; setting the faults restarts them */
} OXBSIM_FAULTS;

/* Port and bus objects of the bus library alive in the process, of any transport: a port or bus
 * still counted after every handle was closed has leaked (or waits for a thread's next call). */
typedef struct OXBSIM_COUNTS {
    int64_t ports;
    int64_t buses;
} OXBSIM_COUNTS;

/* Attaches a drive at axis (0..63) of a simulated bus; returns once its event was handled. */
RYN_EXPORT int oxbsim_attach(OXB_BUS *bus, int axis, const OXBSIM_DRIVE *drive);
/* Detaches the drive at axis; returns once its event was handled. */
RYN_EXPORT int oxbsim_detach(OXB_BUS *bus, int axis);
/* Reads the faults and timing of a simulated bus. */
RYN_EXPORT int oxbsim_get_faults(OXB_BUS *bus, OXBSIM_FAULTS *faults);
/* Sets the faults and timing of a simulated bus and restarts its fault draws from the seed. */
RYN_EXPORT int oxbsim_set_faults(OXB_BUS *bus, const OXBSIM_FAULTS *faults);
/* Reads the raw 8-byte value of one register element (kind word with value class) of a drive. */
RYN_EXPORT int oxbsim_read(OXB_BUS *bus, int axis, uint32_t kind, uint32_t index, uint32_t subindex,
                           uint64_t *raw);
/* Writes one register element of a drive directly, past range and read-only checks. */
RYN_EXPORT int oxbsim_write(OXB_BUS *bus, int axis, uint32_t kind, uint32_t index,
                            uint32_t subindex, uint64_t raw);
/* Puts the memory (saved copy included) of the drives on the axes back to their defaults. */
RYN_EXPORT int oxbsim_reset(OXB_BUS *bus, uint64_t axes);
/* Reads the numbers of port and bus objects alive in the process, for leak checks. */
RYN_EXPORT int oxbsim_get_counts(OXBSIM_COUNTS *counts);

#ifdef __cplusplus
}
#endif

#endif
