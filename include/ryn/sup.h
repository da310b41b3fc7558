/* Support library: the per-thread error trace, version text and bounded buffer printing.
 * Every function may be called from any thread; the trace is the calling thread's own. The trace
 * of a failure is kept until the thread's next failure starts a new one or sup_trace_clear; a
 * later successful call does not clear it. */
#ifndef RYN_SUP_H
#define RYN_SUP_H

#include <stdint.h>

#include "ryn/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Most frames a thread's trace holds; frames beyond them are dropped. */
#define SUP_TRACE_MAX_FRAMES 64
/* Detail values a frame carries beside its message. */
#define SUP_TRACE_DETAILS 5

/* Failure codes of the support library itself. */
#define SUP_EBADPARAM (-1)

/* One frame of the trace as the application reads it back. The texts are copies owned by the
 * calling thread's trace and stay valid until that thread's next trace operation. */
typedef struct SUP_FRAME {
    const char *file;                       /* module that wrote the frame, e.g. "traopn" */
    int line;                               /* failure site within the module */
    const char *function;                   /* function that wrote the frame */
    int code;                               /* error code of an origin frame, 0 for a pass frame */
    const char *message;                    /* message of an origin frame, "" for a pass frame */
    const char *note;                       /* note of a pass frame ("" when none) */
    const char *details[SUP_TRACE_DETAILS]; /* detail texts of an origin frame ("" when unused) */
} SUP_FRAME;

/* Records where a failure arose and starts a fresh trace for it; details may be null.
 * Texts are copied (cut to the frame's room); nothing is recorded while suspended. */
RYN_EXPORT void sup_trace_error(const char *file, int line, const char *function, int code,
                                const char *message, const char *d1, const char *d2, const char *d3,
                                const char *d4, const char *d5);
/* Records that a function passes a callee's failure on, with an optional note (may be null).
 * Frames beyond SUP_TRACE_MAX_FRAMES are dropped. */
RYN_EXPORT void sup_trace_pass(const char *file, int line, const char *function, const char *note);
/* Stops recording on this thread until the matching sup_trace_resume; calls nest. */
RYN_EXPORT void sup_trace_suspend(void);
/* Ends one sup_trace_suspend. */
RYN_EXPORT void sup_trace_resume(void);

/* Number of frames in this thread's trace. */
RYN_EXPORT int sup_trace_count(void);
/* Copies frame i (0 is the origin) into *frame; 0 on success, SUP_EBADPARAM for a bad index or a
 * null frame (*frame then not written). */
RYN_EXPORT int sup_trace_get(int i, SUP_FRAME *frame);
/* Writes the trace, one frame a line, origin first, within size; returns the whole text's length.
 * buffer holds size characters, terminator included; a longer text is cut and still terminated.
 * The text was cut exactly when the result is size or more (as snprintf). "" and 0 for an empty
 * trace; 0 and nothing written for a null buffer or a size below 1. */
RYN_EXPORT int sup_trace_format(char *buffer, int size);
/* Empties this thread's trace. */
RYN_EXPORT void sup_trace_clear(void);

/* Parses "[n]n.nnc" (e.g. "4.27B") into the packed form 0x04278100; 0 or SUP_EBADPARAM.
 * Packed: major in bits 24..31, minor as two BCD digits, letter code 0x80 + index ("A" 0x80), 0. */
RYN_EXPORT int sup_string_to_version(const char *text, uint32_t *version);
/* Writes the text form of a packed version within size, always terminated; 0 or SUP_EBADPARAM.
 * A text longer than size - 1 is cut without notice. */
RYN_EXPORT int sup_version_to_string(char *buffer, int size, uint32_t version);

/* printf into buffer, never past size, always terminated; returns the characters written.
 * Unlike snprintf the result never exceeds size - 1, so a cut is not reported; 0 and nothing
 * written for a null buffer or format or a size below 1. */
RYN_EXPORT int sup_snprintf(char *buffer, int size, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

#ifdef __cplusplus
}
#endif

#endif
