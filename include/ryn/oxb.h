/* Bus library: ports and buses of the ORAX drive bus, and the command records that travel on it.
 * Every status is 0 or a negative OXB_E... code (text: oxb_translate_error); booleans are int.
 * Every function may be called from any thread. Handles of closed ports and buses are refused
 * (OXB_EBADPORT, OXB_EBADBUS), never dereferenced. The caller owns every buffer it passes; a
 * record is copied when sent. Records: see ryn/record.h for reading one. */
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

/* Event handler: runs on the bus's own thread; its return value is not used. */
typedef int (*OXB_HANDLER)(OXB_BUS *bus, int axis, int event, void *context);

/* Most parameter slots a command record holds. */
#define OXB_RECORD_MAX_SLOTS 65

/* Event selector of drive presence, and the events it selects. */
#define OXB_EVENT_DRIVES 16
#define OXB_EVENT_DRIVE_PRESENT 16 /* a drive is present at the axis (or was just attached) */
#define OXB_EVENT_DRIVE_GONE 17    /* the drive at the axis has left the bus */

/* Error codes of the bus library. */
#define OXB_ESYSTEM (-201)    /* out of memory or another failure of the system */
#define OXB_EBADPARAM (-202)  /* a bad argument */
#define OXB_ECAPACITY (-203)  /* the record would not fit its buffer */
#define OXB_EBADPORT (-204)   /* not an open port */
#define OXB_EBADBUS (-205)    /* not an open bus */
#define OXB_ECLOSED (-206)    /* the port was closed while the call waited on it */
#define OXB_EADDRESS (-207)   /* a bus address that names no known transport */
#define OXB_EOPTION (-208)    /* a bad option of a bus address */
#define OXB_ECONFIG (-209)    /* a bus description file that cannot be used */
#define OXB_ENOTHING (-210)   /* nothing arrived: a poll found nothing or a wait timed out */
#define OXB_ELOCKED (-211)    /* the bus stayed locked by another thread until the timeout */
#define OXB_ENOTLOCKED (-212) /* the bus is not locked by the calling thread */
#define OXB_EBADRECORD (-213) /* a record with a slot count above 65 or an unknown kind */
#define OXB_ENODRIVE (-214)   /* no drive at that axis */
#define OXB_ENOHANDLER (-215) /* no handler registered for that owner */
#define OXB_EHANDLER (-216)   /* a handler is already registered for that owner */
#define OXB_ENOTSIM (-217)    /* the operation needs a simulated bus */
#define OXB_EPRESENT (-218)   /* a drive is already attached at that axis */
#define OXB_EDRIVE (-219)     /* the dictionary refuses the drive's identity */
#define OXB_EQUEUEFULL (-220) /* the port holds too many answers not yet received */
#define OXB_ELOST (-221)      /* the connection to a served bus was lost or refused */

/* Byte size of a command record with room for slots parameter slots: 8 + 16 * slots; 0 for a
 * count outside 0..OXB_RECORD_MAX_SLOTS. */
RYN_EXPORT int oxb_record_size(int slots);
/* Builds a record of kind and command into buffer (room for capacity slots); each "i" of format
 * takes two unsigned values, a slot's type tag and its 32-bit value.
 * command is the header's command byte (0..255). Returns 0 with the first capacity slots
 * cleared and the format's slots filled; OXB_EBADPARAM (null buffer or format, capacity outside
 * 0..65, kind or command outside 0..255, a format letter other than "i") or OXB_ECAPACITY (more
 * slots than capacity), and then the buffer is not written. */
RYN_EXPORT int oxb_build_record(void *buffer, int capacity, int kind, int command,
                                const char *format, ...);
/* Message of a bus library code; for the last failed oxb_open of this thread, its own message.
 * The text stays valid until this thread's next oxb_open. */
RYN_EXPORT const char *oxb_translate_error(int code);

/* Opens a port on the bus that address names ("sim:..." or "tcp://host:port", see docs/bus.md);
 * *port must be null. Close it with oxb_close. Codes: OXB_EBADPARAM, OXB_EADDRESS, OXB_EOPTION,
 * OXB_ECONFIG, OXB_ELOST (a served bus that cannot be reached), OXB_ESYSTEM; nothing stays
 * half-open. */
RYN_EXPORT int oxb_open(const char *address, OXB_PORT **port);
/* Closes a port, wakes its blocked receivers with OXB_ECLOSED and sets *port to null. */
RYN_EXPORT int oxb_close(OXB_PORT **port);
/* Whether port is an open port; never dereferences a closed one. */
RYN_EXPORT int oxb_port_is_valid(OXB_PORT *port);
/* The bus that a port belongs to. */
RYN_EXPORT int oxb_get_port_bus(OXB_PORT *port, OXB_BUS **bus);
/* Mask of the axes where a drive is present (bit n: axis n). */
RYN_EXPORT int oxb_get_present_axes(OXB_BUS *bus, uint64_t *mask);
/* Fills the drive information record (size field 76, set by the caller) of the drive at axis. */
RYN_EXPORT int oxb_get_drive_info(OXB_BUS *bus, int axis, void *info);
/* Fills the extension card record (size field 20) of axis; product 0 when no card is fitted. */
RYN_EXPORT int oxb_get_ext_info(OXB_BUS *bus, int axis, void *info);
/* Fills the bus information record (size field 12); reserved must be 0. */
RYN_EXPORT int oxb_get_bus_info(OXB_BUS *bus, int reserved, void *info);
/* Registers handler for the events of selector on the axes; present drives are reported first. */
RYN_EXPORT int oxb_register_handler(OXB_BUS *bus, void *owner, uint64_t axes, int reserved1,
                                    int reserved2, int selector, OXB_HANDLER handler,
                                    void *context);
/* Removes owner's handler; returns when no call of it runs any more (except from the handler). */
RYN_EXPORT int oxb_unregister_handler(OXB_BUS *bus, void *owner);
/* Sends a copy of record to the axes; its one answer comes back on port with ticket. */
RYN_EXPORT int oxb_send(OXB_PORT *port, void *ticket, uint64_t axes, const void *record,
                        int timeout_ms);
/* Takes the next answer of port into buffer (room for capacity slots) and its ticket; a timeout
 * of 0 polls, a negative one waits without limit; OXB_ENOTHING when nothing arrived.
 * OXB_ECAPACITY when the answer has more slots than capacity (it stays queued for a receive with
 * room); OXB_ECLOSED when the port is closed
 * while waiting. */
RYN_EXPORT int oxb_receive(OXB_PORT *port, void **ticket, int reserved1, void *buffer, int capacity,
                           int reserved2, int timeout_ms);
/* Takes the bus for the calling thread (recursively); other threads' sends wait until unlock. */
RYN_EXPORT int oxb_lock(OXB_BUS *bus, int timeout_ms);
/* Releases one oxb_lock of the calling thread. */
RYN_EXPORT int oxb_unlock(OXB_BUS *bus);
/* Sets *allowed to 1 when every listed register type may be streamed, else to 0. */
RYN_EXPORT int oxb_check_types(OXB_BUS *bus, uint8_t *allowed, int count, const uint8_t *types);

#ifdef __cplusplus
}
#endif

#endif
