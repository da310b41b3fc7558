// Command envelopes: one line of command text on its way to the drives and back, sending,
// receiving and merging answers, register versions and the stream loop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <type_traits>

#include "ryn/tra.h"
#include "wire/wire.hpp"

namespace ryn::tra {

class Inbox;

inline constexpr uint32_t ENVELOPE_MAGIC = 39971; // 0x9C23

// A command envelope: the record made from one line of text, the answer merged from the drives'
// answers, and what the sender and the receivers need to know about it. It travels as the ticket
// of the records sent for it and never leaves the process: only its records go on the bus, read
// and written little-endian through the record views.
struct Envelope {
    uint32_t magic;                         // ENVELOPE_MAGIC
    uint32_t place;                         // its place among the envelopes on the bus
    uint64_t tag;                           // the caller's value, handed back with the answer
    uint32_t sent;                          // records put on the bus for it
    uint32_t answers;                       // answers received so far
    uint8_t dropped;                        // a put failed: freed once its answers are in
    uint8_t done;                           // the sender has finished with it
    uint8_t claimed;                        // awaited by its sender: other receivers pass it
    uint8_t reserved2[5];                   //
    uint64_t axes;                          // target axes (bit 63: the device at axis 63)
    uint8_t command[wire::RECORD_MAX_SIZE]; // the command record, RECORD_MAX_SLOTS slots
    uint8_t answer[wire::RECORD_MAX_SIZE];  // the merged answer, same layout
    std::atomic<int64_t> *live;             // its translator's count of live envelopes
};
static_assert(sizeof(Envelope) == 2144 && std::is_standard_layout_v<Envelope>);
static_assert(offsetof(Envelope, magic) == 0 && offsetof(Envelope, tag) == 8 &&
              offsetof(Envelope, sent) == 16 && offsetof(Envelope, answers) == 20 &&
              offsetof(Envelope, dropped) == 24 && offsetof(Envelope, done) == 25 &&
              offsetof(Envelope, axes) == 32 && offsetof(Envelope, command) == 40 &&
              offsetof(Envelope, answer) == 1088);

// Whether an envelope's command goes out in chunks (a read list longer than a read record
// carries), and so is answered in several records that are merged.
inline bool is_chunked(const Envelope &e) {
    const wire::ConstRecordView command{e.command};
    return command.kind() == wire::REC_READ && command.count() > wire::READ_CHUNK_SLOTS;
}

// The titles of register-version lines and the version slots they announce, in the order a
// stream line is offered to them.
struct VersionTitle {
    const char *title;
    int slot;
};
inline constexpr VersionTitle VERSION_TITLES[] = {
    {"User K,KL,KF,KD register version", 3}, {"User C,CL,CF,CD register version", 4},
    {"User X,XL,XF,XD register version", 5}, {"User LD lookup table version", 6},
    {"User EL trigger version", 8},          {"User W,WL,WF,WD register version", 10},
};

// What the stream loop counts, for the stream report: kept by the translator for its last stream.
struct StreamState {
    std::mutex running; // one stream at a time: they share the line buffer
    std::mutex report_lock;
    TRA_STREAM_REPORT report; // guarded by report_lock
};

// Converts one line of command text into an envelope carrying `tag`; *out is null when the line
// holds nothing to send. A null out frees the envelope made.
int _tra_create_cmd(TRA *tra, Envelope **out, const char *text, int32_t type_count,
                    const uint8_t *types, uint64_t tag);
// Puts an envelope on the bus for the axes it shares with axis_mask; *sent_out (may be null)
// becomes 1 once a record went out. From then on the envelope belongs to the bus until received.
int _tra_send_cmd(TRA *tra, Envelope *envelope, uint64_t axis_mask, uint32_t filter_mode,
                  int check_present, uint8_t *sent_out);
// Takes the next answered envelope of this translator (`wanted`: that one only), waiting up to
// timeout_ms (0 polls, negative waits without limit); a null out frees it.
int _tra_receive_cmd(TRA *tra, Envelope **out, int timeout_ms, Envelope *wanted = nullptr);
// Writes an answered envelope's answer as text (size characters at most) and its outputs; every
// output may be null.
int _tra_extract_cmd(TRA *tra, const Envelope *envelope, char *text, int size, uint8_t *ack_out,
                     uint8_t *status_out, uint8_t *request_out, uint64_t *tag_out);
// Frees an envelope that the caller holds.
void _tra_free_cmd(Envelope *envelope);
// Envelopes of a translator made and not yet freed (leak checks); 0 for a bad handle.
int64_t _tra_live_envelopes(TRA *tra);
// Merges an answer into the envelope it belongs to and completes the envelope when its sender
// is done and every answer is in; with the inbox's lock held.
void _tra_envelope_answered(Inbox &inbox, Envelope *envelope, const uint8_t *record);
// Applies a register-version line with `title` to version slot `slot` of the axes it names.
int _tra_set_version(TRA *tra, uint64_t axis_mask, const char *line, const char *title, int slot);
// Writes version 0 into version slot `slot` of the axes.
int _tra_reset_version(TRA *tra, uint64_t axis_mask, int slot);
// Runs a command stream: every line read through read_line is sent and its answer awaited.
// type_count 0 ends at once; a negative one takes every type without a type check.
int _tra_send_direct_stream(TRA *tra, uint64_t axis_mask, int32_t type_count, const uint8_t *types,
                            uint32_t filter_mode, TRA_READ_LINE read_line, void *user);

} // namespace ryn::tra
