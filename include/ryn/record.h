/* Reading a command record (TRA_RECORD, or the buffer of oxb_receive) without knowing its layout.
 *
 * A record is a byte array: an 8-byte header, then 16-byte parameter slots (TRA_RECORD_SIZE(n)
 * bytes for n slots). It has no alignment requirement: the accessors read it byte by byte, so any
 * buffer will do (an unsigned char array, a TRA_RECORD *, a pointer into a larger buffer). Every
 * multi-byte field is little-endian whatever the host; the accessors return host values.
 * Header word (bytes 0..3, read as one little-endian 32-bit word): slot count in bits 0..7, gate
 * in bits 8..10, status bit 0x4000, acknowledge bit 0x8000, command byte in bits 16..23, record
 * kind in bits 24..31. Bytes 4..7 are zero.
 * Slot i (at byte 8 + 16 * i): a 32-bit type tag, 4 zero bytes, an 8-byte value; a 32-bit value
 * (int32 or float) sits in the value's first 4 bytes.
 * The accessors do not check their arguments: record must point to a whole record and a slot
 * index must lie below the record's slot count (tra_record_count). All of them are inline and
 * need no library, except tra_record_command, which the translator library (ryn::tra) exports. */
#ifndef RYN_RECORD_H
#define RYN_RECORD_H

#include <stdint.h>
#include <string.h>

#include "ryn/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Little-endian 32-bit word at byte offset of a record. */
static inline uint32_t tra_record_u32_at(const void *record, uint32_t offset) {
    const unsigned char *p = (const unsigned char *)record + offset;
    return (uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}

/* The header word of a record (bytes 0..3). */
static inline uint32_t tra_record_header(const void *record) {
    return tra_record_u32_at(record, 0);
}
/* Number of parameter slots in use (header bits 0..7). */
static inline uint32_t tra_record_count(const void *record) {
    return tra_record_header(record) & 0xFFu;
}
/* Gate of the record (header bits 8..10). */
static inline uint32_t tra_record_gate(const void *record) {
    return tra_record_header(record) >> 8 & 0x7u;
}
/* Whether an answer reports that some drive met an error (header bit 0x4000): 1 or 0. */
static inline int tra_record_status(const void *record) {
    return (tra_record_header(record) & 0x4000u) != 0;
}
/* Whether the drives acknowledged the record (header bit 0x8000): 1 or 0. */
static inline int tra_record_acknowledged(const void *record) {
    return (tra_record_header(record) & 0x8000u) != 0;
}
/* The command byte (header bits 16..23): the command number's low 8 bits. */
static inline uint32_t tra_record_command_byte(const void *record) {
    return tra_record_header(record) >> 16 & 0xFFu;
}
/* The record kind (header bits 24..31): register read, command of a page, element assignment... */
static inline uint32_t tra_record_kind(const void *record) {
    return tra_record_header(record) >> 24;
}
/* Command number that a record of a command kind carries (page * 256 + command byte, e.g. 124
 * for "PWR", 1537 for an element assignment); -1 for a kind that carries no command (a register
 * read). Exported by ryn::tra. */
RYN_EXPORT int32_t tra_record_command(const void *record);

/* Type tag of slot i: for a register, its type code and value class (vok_value_class gives the
 * class); for a plain value, the value class alone. */
static inline uint32_t tra_record_slot_tag(const void *record, uint32_t i) {
    return tra_record_u32_at(record, 8u + 16u * i);
}
/* The slot's whole 8-byte value as an unsigned 64-bit number. */
static inline uint64_t tra_record_slot_raw(const void *record, uint32_t i) {
    return (uint64_t)tra_record_u32_at(record, 16u + 16u * i) |
           (uint64_t)tra_record_u32_at(record, 20u + 16u * i) << 32;
}
/* The slot's value as a 32-bit integer (first 4 value bytes). */
static inline int32_t tra_record_slot_int32(const void *record, uint32_t i) {
    uint32_t bits = tra_record_u32_at(record, 16u + 16u * i);
    int32_t value;
    memcpy(&value, &bits, sizeof value);
    return value;
}
/* The slot's value as a 64-bit integer. */
static inline int64_t tra_record_slot_int64(const void *record, uint32_t i) {
    uint64_t bits = tra_record_slot_raw(record, i);
    int64_t value;
    memcpy(&value, &bits, sizeof value);
    return value;
}
/* The slot's value as a 32-bit IEEE 754 float (first 4 value bytes). */
static inline float tra_record_slot_float(const void *record, uint32_t i) {
    uint32_t bits = tra_record_u32_at(record, 16u + 16u * i);
    float value;
    memcpy(&value, &bits, sizeof value);
    return value;
}
/* The slot's value as a 64-bit IEEE 754 double. */
static inline double tra_record_slot_double(const void *record, uint32_t i) {
    uint64_t bits = tra_record_slot_raw(record, i);
    double value;
    memcpy(&value, &bits, sizeof value);
    return value;
}

#ifdef __cplusplus
}
#endif

#endif
