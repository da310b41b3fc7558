/* Bus library: ports and buses of the ORAX drive bus, and the command records that travel on it. */
#ifndef RYN_OXB_H
#define RYN_OXB_H

#include <stdint.h>

#include "ryn/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A port opened on a bus by address; opaque. */
typedef struct OXB_PORT OXB_PORT;
/* The bus a port belongs to; opaque. */
typedef struct OXB_BUS OXB_BUS;

/* Most parameter slots a command record holds. */
#define OXB_RECORD_MAX_SLOTS 65

/* Error codes of the bus library. */
#define OXB_ESYSTEM (-201)   /* out of memory or another failure of the system */
#define OXB_EBADPARAM (-202) /* a bad argument */
#define OXB_ECAPACITY (-203) /* the record would not fit its buffer */
#define OXB_ENOTHING (-210)  /* nothing arrived: a poll found nothing or a wait timed out */

/* Byte size of a command record with room for slots parameter slots: 8 + 16 * slots; 0 for a
 * count outside 0..OXB_RECORD_MAX_SLOTS. */
RYN_EXPORT int oxb_record_size(int slots);
/* Builds a record of kind and command into buffer (room for capacity slots); each "i" of format
 * takes two unsigned values, a slot's type tag and its 32-bit value. */
RYN_EXPORT int oxb_build_record(void *buffer, int capacity, int kind, int command,
                                const char *format, ...);
/* Fixed English message of a bus library code; "unknown error" outside the table. */
RYN_EXPORT const char *oxb_translate_error(int code);

#ifdef __cplusplus
}
#endif

#endif
