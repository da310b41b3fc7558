/* Translator library: ORAX command text to bus records and back, for drives online or offline.
 *
 * Conventions of every function below:
 * - Status: 0 on success or a negative TRA_E... code (text: tra_translate_error). Every failure
 *   also leaves the calling thread's error trace (ryn/sup.h), kept until the thread's next failure
 *   or sup_trace_clear; a later success does not clear it. A bad handle (null, destroyed, or of
 *   the wrong kind for the call) and a null pointer argument that the call needs are
 *   TRA_EBADPARAM; TRA_ESYSTEM is an allocation failure, TRA_EINTERNAL a fault of the library.
 *   No exception leaves the library.
 * - Name parts: _o creates an offline translator for one named drive configuration, _o2 one with
 *   a second configuration on axis 63 (a motion controller), _e works on a bus port (bus-bound),
 *   _ex is the extended form of an older call, oxcom marks the calls of the command interface
 *   proper (translation, ISO conversion, axis masks, streams).
 * - Threads: a translator may be shared by threads; each call takes the translator's lock. Only
 *   tra_destroy must not run while another thread still uses the handle.
 * - Ownership: the caller owns every buffer it passes and keeps it; the library never keeps a
 *   pointer to one after the call. Texts returned as const char * are static. */
#ifndef RYN_TRA_H
#define RYN_TRA_H

#include <stdint.h>

#include "ryn/export.h"
#include "ryn/oxb.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Error codes (messages: tra_translate_error) ---- */

#define TRA_ENODOWNLOAD (-572)
#define TRA_ESYNTAX (-571)
#define TRA_EINTVALUE (-570)
#define TRA_EFLOATVALUE (-569)
#define TRA_ENODRIVE (-568)
#define TRA_EREADONLY (-567)
#define TRA_ETOOMANYPARAMS (-566)
#define TRA_EISOVALUE (-565)
#define TRA_EISOCONV (-564)
#define TRA_EBADENUM (-563)
#define TRA_ERANGE (-562)
#define TRA_ECMDSYNTAX (-561)
#define TRA_EEMPTYCMD (-560)
#define TRA_EWRITE (-559)
#define TRA_EDEPRECATED (-558)
#define TRA_ESTREAMFORMAT (-553)
#define TRA_EBADRESPONSE (-552)
#define TRA_EGETREC (-551)
#define TRA_EPUTREC (-550)
#define TRA_EMULTIREC (-541)
#define TRA_EUNKNOWN (-540)
#define TRA_ENOCOMMAND (-525)
#define TRA_EBUFSIZE (-524)
#define TRA_EGETINFO (-523)
#define TRA_ENOTALLOWED (-522)
#define TRA_EBADEXTPROD (-521)
#define TRA_EBADDRVPROD (-520)
#define TRA_EBADEXTVER (-519)
#define TRA_EBADDRVVER (-518)
#define TRA_EBADPARAM (-515)
#define TRA_EDRIVEERROR (-513)
#define TRA_ENOACK (-512)
#define TRA_ESYSTEM (-511)
#define TRA_EINTERNAL (-510)
#define TRA_ETYPECONV (-509)
#define TRA_EBADINDEX (-508)
#define TRA_EREGADDR (-507)
#define TRA_ENOVECTOR (-506)
#define TRA_EBADTYPE (-505)
#define TRA_ETOOMANYVALUES (-504)
#define TRA_EBADSUBSCRIPT (-503)
#define TRA_EINCOMPLETEVECTOR (-502)

/* ---- Translator flags (tra_set_flags, last argument of the creators) ---- */

#define TRA_FUSE_ALIASES 0x1u              /* write registers under their aliases */
#define TRA_FRESERVED_COMMENT 0x2u         /* upload: comment reserved elements "Reserved" */
#define TRA_FSKIP_DEFAULTS 0x4u            /* upload: leave out elements at their default */
#define TRA_FNO_AXIS 0x8u                  /* upload: no axis on value lines */
#define TRA_FVECTOR_FORM 0x10u             /* upload: one line per register, all elements */
#define TRA_FISO_CONVERT 0x20u             /* write values converted through the ISO converter */
#define TRA_FGROUP_CLASSES 0x40u           /* upload: group registers by class */
#define TRA_FEMPTY_IS_ERROR 0x100u         /* an empty command is TRA_EEMPTYCMD, not "nothing" */
#define TRA_FREQUEST_FLAG 0x200u           /* reported to receivers as the request output */
#define TRA_FACCEPT_UNKNOWN_VERSION 0x800u /* offline creators fall back to the default version */
#define TRA_FDRIVE_ONLY 0x1000u            /* look names up in the drive-only dictionaries */
#define TRA_FNO_CHECK 0x2000u              /* skip the dictionary checks of validation */
#define TRA_FNO_COMMENTS 0x10000u          /* upload: no comment blocks */
#define TRA_FVERBOSE 0x20000u              /* upload: settings, axis mask, serials, index counts */
#define TRA_FDESCRIPTIONS 0x40000u         /* write dictionary descriptions as comments */
#define TRA_FTABS4 0x100000u               /* comment column reached with tabs of width 4 */
#define TRA_FTABS8 0x200000u               /* comment column reached with tabs of width 8 */
#define TRA_FTAB 0x400000u                 /* comment column reached with one tab */
#define TRA_FRAW_VALUES 0x1000000u         /* upload: every element, strings and IPs as numbers */
#define TRA_FDOWNLOAD_AXES 0x2000000u      /* lines without axes take the download axis mask */
#define TRA_FFULL_PRECISION 0x4000000u     /* floating values written with 20 decimals */

/* ---- Types ---- */

/* A translator; opaque. */
typedef struct TRA TRA;
/* A command record: an 8-byte header, then 16-byte parameter slots; a byte array without alignment
 * requirement, little-endian. Read it with the accessors of ryn/record.h. */
typedef struct TRA_RECORD TRA_RECORD;
#define TRA_RECORD_MAX_SLOTS 65
#define TRA_RECORD_SIZE(n) (8 + 16 * (n))

/* Converts between drive units and ISO units (direction 0: ISO to drive, 1: drive to ISO).
 * Called on the translating thread with the translator's bus (null offline), an 8-byte drive
 * value buffer (a 32-bit value class uses its first 4 bytes, host order), the ISO value, the
 * value class of the register or parameter (VOK_CLASS_...), its dictionary format code as the
 * conversion, the axis and the installed context. Direction 0 (a number written with a fraction
 * or exponent and no suffix, translated to a record): reads *iso_value, writes drive_value, once
 * per addressed axis; axes must agree, else TRA_EISOCONV, as for a non-zero return; without a
 * converter, or for a target that has no ISO units, TRA_EISOVALUE. Direction 1 (records written
 * as text with TRA_FISO_CONVERT): reads drive_value, writes *iso_value; non-zero keeps the value
 * in drive units. Returns 0 on success. */
typedef int (*TRA_ISO_CONVERTER)(OXB_BUS *bus, void *drive_value, double *iso_value,
                                 uint32_t value_class, int32_t conversion, int32_t axis,
                                 int32_t direction, void *context);
/* Gives the next line of a stream into buffer: 0 a line, -1 or above 0 the end, below -1 an error.
 * The line goes into buffer, zero-terminated within size characters, without its line end. */
typedef int (*TRA_READ_LINE)(TRA *tra, char *buffer, int32_t size, void *user);
/* Takes one line of an upload stream; non-zero stops the upload. */
typedef int (*TRA_WRITE_LINE)(TRA *tra, const char *line, void *user, int32_t reserved);

/* ---- Errors ---- */

/* Fixed English message of an error code; "unknown error" outside the table. Static text. */
RYN_EXPORT const char *tra_translate_error(int code);

/* ---- Lifecycle and settings ---- */

/* Destroys a translator and nulls the caller's handle.
 * TRA_EBADPARAM for handle null or *handle not a live translator (tra_destroy(&null) is -515).
 * A bus-bound translator unregisters from its bus first; the port stays the caller's. */
RYN_EXPORT int tra_destroy(TRA **handle);
/* Flags of a translator (TRA_F...), 0 for a bad handle (tra_get_flags(NULL) is 0). */
RYN_EXPORT uint32_t tra_get_flags(TRA *tra);
/* Sets the flags; the lookup tables are rebuilt before the next translation. 0 or TRA_EBADPARAM. */
RYN_EXPORT int tra_set_flags(TRA *tra, uint32_t flags);
/* Reads the progress (0.0 to 1.0) of the running stream transfer; progress may be null. */
RYN_EXPORT int tra_get_progress(TRA *tra, double *progress);
/* Raises the progress; a value outside 0..1, NaN or below the current one is TRA_EBADPARAM. */
RYN_EXPORT int tra_set_progress(TRA *tra, double progress);
/* Reads the installed ISO converter and its context (either pointer may be null); the pair is read
 * as one, never a converter with another's context. Null and null when none is installed. */
RYN_EXPORT int tra_oxcom_get_iso_converter(TRA *tra, TRA_ISO_CONVERTER *converter, void **context);
/* Installs the ISO converter and its context (null removes it); used with TRA_FISO_CONVERT. */
RYN_EXPORT int tra_oxcom_set_iso_converter(TRA *tra, TRA_ISO_CONVERTER converter, void *context);
/* Axes assumed by the ".X" axis form (bit n: axis n), 0 for a bad handle. */
RYN_EXPORT uint64_t tra_oxcom_get_preference_axis_mask(TRA *tra);
/* Sets the axes of the ".X" axis form. */
RYN_EXPORT int tra_oxcom_set_preference_axis_mask(TRA *tra, uint64_t mask);
/* Port of a bus-bound translator; null offline or for a bad handle. The port stays the caller's. */
RYN_EXPORT OXB_PORT *tra_get_oxb_port(TRA *tra);
/* Drive product of an axis (64 or more: the first axis that has a drive); 0 when none or for a bad
 * handle. The four getters answer from the translator's view: offline, its configurations. */
RYN_EXPORT uint32_t tra_get_drv_product(TRA *tra, int axis);
/* Drive version of an axis (64 or more: the first axis that has a drive); 0 when none. */
RYN_EXPORT uint32_t tra_get_drv_version(TRA *tra, int axis);
/* Extension card product of an axis (64 or more: the first axis that has a drive); 0 when the axis
 * has no drive or no card. */
RYN_EXPORT uint32_t tra_get_ext_product(TRA *tra, int axis);
/* Extension card version of an axis (64 or more: the first axis that has a drive); 0 when none. */
RYN_EXPORT uint32_t tra_get_ext_version(TRA *tra, int axis);

/* ---- Versions ---- */

/* Version of this library in the packed form, RYN_VERSION of ryn/version.h: 0x04278100 ("4.27B").
 * Packed versions: major in bits 24..31, minor as two BCD digits in bits 16..23, letter code
 * 0x80 + letter index ("A" 0x80) in bits 8..15, 0 in bits 0..7. */
RYN_EXPORT uint32_t tra_get_version(void);
/* Version of this library under the family's name; the same as tra_get_version. */
RYN_EXPORT uint32_t tra_get_ryn_version(void);
/* Build time of this library in seconds since 1970-01-01 UTC. */
RYN_EXPORT uint32_t tra_get_build_time(void);
/* Parses "[n]n.nnc" into a packed version; TRA_EBADPARAM for any other text (*version then not
 * written). */
RYN_EXPORT int tra_string_to_version(const char *text, uint32_t *version);
/* Writes the text form of a packed version into buffer (size characters, terminator included);
 * a longer text is cut and still terminated, without notice. Returns 0. */
RYN_EXPORT int tra_version_to_string(char *buffer, int size, uint32_t version);

/* ---- Offline translators for named drive configurations ---- */

/* Creates a direct translator for one drive configuration on all 64 axes.
 * Creators (_o, _o2, _e): *out must be null (TRA_EBADPARAM otherwise, the handle untouched) and
 * holds the new translator on success, null on failure; free it with tra_destroy. Product and
 * version must be known to the dictionary: TRA_EBADDRVPROD, TRA_EBADDRVVER (a version of 0 too;
 * with TRA_FACCEPT_UNKNOWN_VERSION an unknown drive version, 0 included, takes the product's
 * default version). An extension product of 0 means no card (its version is then not looked at);
 * a card that is unknown or does not fit is TRA_EBADEXTPROD, an unknown card version (0 too)
 * TRA_EBADEXTVER; VOK_DRIVE_ONLY with version 0 uses the drive-only dictionary. TRA_ESYSTEM when
 * memory runs out. flags: TRA_F... */
RYN_EXPORT int tra_create_direct_traductor_o(TRA **out, uint32_t product, uint32_t version,
                                             uint32_t ext_product, uint32_t ext_version,
                                             uint32_t flags);
/* Creates a direct translator: one configuration on axes 0..62, a second one on axis 63 (the second
 * is checked as the first; a product_63 of 0 is TRA_EBADDRVPROD). */
RYN_EXPORT int tra_create_direct_traductor_o2(TRA **out, uint32_t product, uint32_t version,
                                              uint32_t ext_product, uint32_t ext_version,
                                              uint32_t product_63, uint32_t version_63,
                                              uint32_t ext_product_63, uint32_t ext_version_63,
                                              uint32_t flags);
/* Whether a handle is a direct translator (offline or bus-bound): 1 or 0 (0 for null). */
RYN_EXPORT int tra_is_valid_direct_traductor(TRA *tra);
/* Whether a handle is a bus-bound direct translator: 1 or 0. */
RYN_EXPORT int tra_is_valid_direct_traductor_e(TRA *tra);
/* Creates a register translator for one drive configuration on all 64 axes (as the direct one). */
RYN_EXPORT int tra_create_register_traductor_o(TRA **out, uint32_t product, uint32_t version,
                                               uint32_t ext_product, uint32_t ext_version,
                                               uint32_t flags);
/* Creates a register translator: one configuration on axes 0..62, a second one on axis 63. */
RYN_EXPORT int tra_create_register_traductor_o2(TRA **out, uint32_t product, uint32_t version,
                                                uint32_t ext_product, uint32_t ext_version,
                                                uint32_t product_63, uint32_t version_63,
                                                uint32_t ext_product_63, uint32_t ext_version_63,
                                                uint32_t flags);
/* Whether a handle is a register translator (offline or bus-bound): 1 or 0. */
RYN_EXPORT int tra_is_valid_register_traductor(TRA *tra);
/* Whether a handle is a bus-bound register translator: 1 or 0. */
RYN_EXPORT int tra_is_valid_register_traductor_e(TRA *tra);

/* ---- Direct translator on a bus ---- */

/* What the last stream of a translator did (sent, answered, refused); read after it returns. */
typedef struct TRA_STREAM_REPORT {
    uint32_t size;                /* sizeof(TRA_STREAM_REPORT), set by the caller */
    uint32_t lines;               /* lines read from the stream */
    uint32_t sent;                /* commands put on the bus */
    uint32_t acknowledged;        /* answers with the drives' acknowledge */
    uint32_t refused;             /* answers without it */
    uint32_t skipped;             /* command lines not sent: type list, filter mode, absent axes */
    int32_t first_refused_line;   /* 1-based line number of the first refused command, 0 if none */
    char first_refused_text[256]; /* its text, cut to fit */
} TRA_STREAM_REPORT;

/* Creates a register translator on a bus port; it learns each axis's drive from the bus.
 * As tra_create_direct_traductor_e: the port stays the caller's and must outlive the translator. */
RYN_EXPORT int tra_create_register_traductor_e(TRA **out, OXB_PORT *port, uint32_t flags);
/* Downloads a parameter stream (register assignments only) to the axes; see the stream report.
 * read_line gives one line at a time (0 a line, -1 the end, below -1 returned as it is). Lines of
 * types outside types[0..type_count) are skipped; the version slots of the listed types are reset
 * to 0 first. The first line that fails ends the download with its code (TRA_ENOTALLOWED for a
 * line that is not an assignment, TRA_EREADONLY, TRA_ENODRIVE when a drive leaves...); the lines
 * before it stay applied. A line a drive refuses does not end it: read tra_get_stream_report. */
RYN_EXPORT int tra_oxcom_download_register_stream_e(TRA *tra, uint64_t axis_mask,
                                                    int32_t type_count, const uint8_t *types,
                                                    TRA_READ_LINE read_line, void *user);
/* As tra_oxcom_download_register_stream_e, each line sent only as filter_mode & 3 says (1, 2). */
RYN_EXPORT int tra_oxcom_download_register_stream_e2(TRA *tra, uint64_t axis_mask,
                                                     int32_t type_count, const uint8_t *types,
                                                     uint32_t filter_mode, TRA_READ_LINE read_line,
                                                     void *user);
/* Whether the last download sent at least one command to a drive (*downloaded 1 or 0).
 * TRA_EBADPARAM for a handle that is not a register translator or a null output. */
RYN_EXPORT int tra_register_downloaded(TRA *tra, uint8_t *downloaded);
/* Uploads the registers of the axes as a commented parameter stream through write_line.
 * The layout follows the translator's upload flags (docs/parameter-files.md); type_count -1
 * uploads every type and writes no version lines; registers from first_index on, at most
 * max_index per type and max_subindex elements each (negative: no limit; max_subindex >= 0 also
 * writes strings and IP addresses as numbers). Each line is handed to write_line, whose non-zero
 * result ends the upload early with 0. Progress runs from 0.0 to 1.0. A failed read ends it with
 * its code; no partial line is written. Read-only elements are uploaded too, though a download
 * refuses them. */
RYN_EXPORT int tra_oxcom_upload_register_stream_e(TRA *tra, uint64_t axis_mask, int32_t type_count,
                                                  const uint8_t *types, int32_t first_index,
                                                  int32_t max_index, int32_t max_subindex,
                                                  TRA_WRITE_LINE write_line, void *user);
/* Creates a direct translator on a bus port; it learns each axis's drive from the bus.
 * The port stays the caller's and must outlive the translator; TRA_EBADPARAM for a port that is
 * not open, TRA_EINTERNAL when the bus refuses its event handler. */
RYN_EXPORT int tra_create_direct_traductor_e(TRA **out, OXB_PORT *port, uint32_t flags);
/* Translates one line of command text and sends it; *sent (may be null) tells whether it went.
 * *sent is 0 on every failure and for a line with nothing to send (then 0 is returned). The answer
 * comes back through tra_receive_direct_cmd_e(_ex) with user. Codes: those of translation, and
 * TRA_ENODRIVE (no drive on the line's axes, an offline translator too), TRA_EPUTREC. */
RYN_EXPORT int tra_send_direct_cmd_e(TRA *tra, const char *text, uint64_t user, uint8_t *sent);
/* Takes the next answer (timeout in ms, 0 polls, 0xFFFFFFFF waits) and writes it as text.
 * text holds size characters, terminator included; a longer text is cut to size - 1, without
 * notice. The other outputs may be null: acknowledged (1 when the drives acknowledged), flag (the
 * answer's status bit: 1 when some drive reported an error), request (1 for an acknowledged
 * register read, else the translator's TRA_FREQUEST_FLAG), user (the value given to the send). TRA_EBADPARAM for a null text or size 0 (no answer is taken);
 * TRA_ENOCOMMAND when nothing arrived in time or the translator has no bus; TRA_EGETREC. */
RYN_EXPORT int tra_receive_direct_cmd_e_ex(TRA *tra, char *text, uint32_t size,
                                           uint8_t *acknowledged, uint8_t *flag, uint8_t *request,
                                           uint64_t *user, uint32_t timeout);
/* As tra_receive_direct_cmd_e_ex, waiting without limit when wait is non-zero, else polling. */
RYN_EXPORT int tra_receive_direct_cmd_e(TRA *tra, char *text, uint32_t size, uint8_t *acknowledged,
                                        uint8_t *flag, uint8_t *request, uint64_t *user,
                                        uint8_t wait);
/* Sends every line of a stream to the axes and awaits each answer; see tra_get_stream_report.
 * read_line is called on this thread until it reports the end or an error; a refused command does
 * not stop the stream (the report counts it). Bus-bound translators only. */
RYN_EXPORT int tra_oxcom_send_direct_stream_e(TRA *tra, uint64_t axis_mask, TRA_READ_LINE read_line,
                                              void *user);
/* Reads the axis mask kept for the application by a bus-bound direct translator (TRA_EBADPARAM
 * offline); mask may be null. The translator itself does not use it. */
RYN_EXPORT int tra_oxcom_get_axis_mask_e(TRA *tra, uint64_t *mask);
/* Stores an axis mask for the application in a bus-bound direct translator. */
RYN_EXPORT int tra_oxcom_set_axis_mask_e(TRA *tra, uint64_t mask);
/* Copies the report of the translator's last stream (report->size set by the caller).
 * A size below the report's first field is TRA_EBADPARAM; a smaller size gets the fields that fit,
 * a larger one sizeof(TRA_STREAM_REPORT); report->size is set to the size copied. All zero before
 * the first stream. */
RYN_EXPORT int tra_get_stream_report(TRA *tra, TRA_STREAM_REPORT *report);

/* ---- Translation ---- */

/* Translates one line of command text into a record of capacity slots, its slot count (0xFFFFFFFF
 * when the line holds nothing to send) and its axis mask; count and axis_mask may be null.
 * record needs TRA_RECORD_SIZE(capacity) bytes. An empty or comment line returns 0 with *count
 * 0xFFFFFFFF and *axis_mask not written (TRA_EEMPTYCMD instead with TRA_FEMPTY_IS_ERROR). A record
 * too small is TRA_EBUFSIZE with *count the slots the line needs. On other failures *count and
 * *axis_mask keep their values and the record's content is undefined. Codes: TRA_EBADPARAM (null
 * text or record, capacity above 65535), the syntax, range and dictionary codes TRA_ESYNTAX ...
 * TRA_EINCOMPLETEVECTOR, TRA_EISOCONV, TRA_ESYSTEM. */
RYN_EXPORT int tra_oxcom_translate_cmd_from_ascii_ex(TRA *tra, TRA_RECORD *record,
                                                     uint32_t capacity, uint32_t *count,
                                                     uint64_t *axis_mask, const char *text);

/* Writes a record as command text; a longer text is cut to size - 1, a size below 1 aborts.
 * The cut is not reported (the result is 0): a text of size - 1 characters may have been cut.
 * "Aborts" stops the process with a message on standard error when the text does not fit a size
 * below 1. text is not written on failure. TRA_EBADPARAM for a bad handle or a null record or
 * text; a record it cannot read otherwise is written in a raw form, not refused. */
RYN_EXPORT int tra_oxcom_translate_cmd_to_ascii_ex(TRA *tra, const TRA_RECORD *record,
                                                   uint64_t axis_mask, char *text, int size);
/* Writes a request and its answer (one axis) as "register=values", cut as the function above.
 * TRA_EBADPARAM also when axis_mask names not exactly one axis or the answer does not match the
 * request (another kind, another number or class of values). */
RYN_EXPORT int tra_oxcom_translate_rqs_to_ascii_ex(TRA *tra, const TRA_RECORD *request,
                                                   const TRA_RECORD *answer, uint64_t axis_mask,
                                                   char *text, int size);

#ifdef __cplusplus
}
#endif

#endif
