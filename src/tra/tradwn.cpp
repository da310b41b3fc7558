// Command envelopes: sending, receiving and merging answers, register versions, the stream loop.
#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "record.hpp"
#include "traa2r.hpp"
#include "traopn.hpp"

namespace ryn::tra {

namespace {

constexpr int SEND_TIMEOUT_MS = 2000;
constexpr int LOCK_TIMEOUT_MS = 1000;
constexpr uint64_t AXIS_63 = uint64_t(1) << 63;
constexpr uint32_t ANSWER_BITS = HEADER_ACK | HEADER_STATUS;

// Frees an envelope on every way out unless it was handed on.
struct EnvelopeDeleter {
    void operator()(Envelope *e) const { _tra_free_cmd(e); }
};
using HeldEnvelope = std::unique_ptr<Envelope, EnvelopeDeleter>;

// An envelope whose sender is done and whose answers are all in: handed to the receivers, or
// freed when a put failed (one that never went out stays with its sender, who frees it).
void complete(Inbox &inbox, Envelope *e) {
    inbox.leave(e);
    if (e->dropped != 0) {
        if (e->sent > 0) _tra_free_cmd(e);
        return;
    }
    inbox.ready.push_back(e);
}

// Appends the slots of a read answer to the merged answer, never past its room.
void append_slots(RecordView answer, ConstRecordView received) {
    const int at = answer.count();
    const int n = std::min(received.count(), RECORD_MAX_SLOTS - at);
    if (n <= 0) return;
    std::memcpy(answer.bytes + RECORD_HEADER_SIZE + RECORD_SLOT_SIZE * at, received.slot_bytes(0),
                static_cast<std::size_t>(RECORD_SLOT_SIZE * n));
    answer.header().count = static_cast<uint8_t>(at + n);
}

// Merges the answer to one chunk of a read list: the first answer gives the header (a refusal
// that is not a read answer gives the command itself back), later ones narrow the acknowledge,
// widen the status and add their slots.
void merge_chunk(Envelope &e, ConstRecordView received) {
    const RecordView answer{e.answer};
    const uint32_t bits = received.word() & ANSWER_BITS;
    if (e.answers == 0) {
        if (received.kind() == REC_READ) {
            answer.clear(RECORD_MAX_SLOTS);
            answer.set_word(received.word() & ~uint32_t{0xFF});
            append_slots(answer, received);
        } else {
            std::memcpy(e.answer, e.command, RECORD_MAX_SIZE);
            answer.set_word((answer.word() & ~ANSWER_BITS) | bits);
            if (received.command_byte() == CMD_SET)
                answer.header().command = static_cast<uint8_t>(CMD_SET_LIST);
        }
        return;
    }
    uint32_t word = answer.word();
    if ((bits & HEADER_ACK) == 0) word &= ~HEADER_ACK;
    word |= bits & HEADER_STATUS;
    answer.set_word(word);
    if (received.kind() == REC_READ) append_slots(answer, received);
}

// The answer of a command sent as one record: a read answer as received; for other commands the
// received record when a dictionary of the addressed axes knows the command it names, else the
// command sent; either way with the drives' acknowledge and status bits.
void settle_single(TRA &tra, Envelope &e) {
    const RecordView answer{e.answer};
    const uint32_t word = answer.word();
    if (!is_request_kind(answer.kind())) {
        const int32_t number = answer_command(answer.kind(), answer.command_byte());
        // The axes' dictionary sets, read without the lookup lock: a set lives as long as the
        // translator, and the bus's events replace an axis's set as one atomic store.
        const bool drive_only = (tra.flags.load() & TRA_FDRIVE_ONLY) != 0;
        const VOK_DICT *last = nullptr;
        bool known = false;
        for (uint64_t axes = e.axes; axes != 0 && !known; axes &= axes - 1) {
            const TRA_TD *td = tra.axis_sets[static_cast<std::size_t>(std::countr_zero(axes))];
            const VOK_DICT *d = td == nullptr ? nullptr : drive_only ? td->drive_only : td->full;
            if (d == nullptr || d == last) continue;
            last = d;
            known = vok_find_command(d, static_cast<uint32_t>(number), &e) == 0;
        }
        if (!known) std::memcpy(e.answer, e.command, RECORD_MAX_SIZE);
    }
    answer.set_word((answer.word() & ~ANSWER_BITS) | (word & ANSWER_BITS));
}

// Families whose version slots a stream resets, by the register type listed.
struct VersionReset {
    uint8_t type;
    int slot;
};
// The EL slot serves type 12 too: the controller registers share the trigger version.
constexpr VersionReset VERSION_RESETS[] = {{2, 3}, {13, 4}, {1, 5}, {8, 6}, {9, 8}, {12, 8}};

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

// The counts of a running stream, published to the translator's report when it ends.
class StreamReport {
  public:
    explicit StreamReport(TRA &tra) : tra_(tra) {
        counts_.size = sizeof(TRA_STREAM_REPORT);
        publish();
    }
    ~StreamReport() { publish(); }
    StreamReport(const StreamReport &) = delete;
    StreamReport &operator=(const StreamReport &) = delete;

    TRA_STREAM_REPORT *operator->() { return &counts_; }

    void refused(const char *line) {
        ++counts_.refused;
        if (counts_.first_refused_line != 0) return;
        counts_.first_refused_line = static_cast<int32_t>(counts_.lines);
        std::size_t n = std::strlen(line);
        while (n > 0 && is_blank(line[n - 1]))
            --n;
        n = std::min(n, sizeof counts_.first_refused_text - 1);
        std::memcpy(counts_.first_refused_text, line, n);
        counts_.first_refused_text[n] = '\0';
    }

  private:
    void publish() {
        std::lock_guard lock(tra_.stream.report_lock);
        tra_.stream.report = counts_;
    }
    TRA &tra_;
    TRA_STREAM_REPORT counts_{};
};

// The present axes of a bus-bound translator, or 0 when they cannot be read.
uint64_t present_axes(const TRA &tra) {
    uint64_t present = 0;
    if (tra.bus == nullptr || oxb_get_present_axes(tra.bus, &present) != 0) return 0;
    return present;
}

} // namespace

void _tra_free_cmd(Envelope *envelope) {
    if (envelope == nullptr) return;
    envelope->magic = 0;
    envelope->live->fetch_sub(1, std::memory_order_relaxed);
    delete envelope;
}

int64_t _tra_live_envelopes(TRA *tra) {
    return exported_value(tra, Accept::any, int64_t{0},
                          [](TRA &x) { return x.live_envelopes.load(std::memory_order_relaxed); });
}

int _tra_create_cmd(TRA *tra, Envelope **out, const char *text, int32_t type_count,
                    const uint8_t *types, uint64_t tag) {
    static constexpr Tracer t{"tradwn", "_tra_create_cmd"};
    if (out != nullptr) *out = nullptr;
    // The record areas are not cleared here: the builder clears the command record, and the
    // answer's header says how much of it an answer wrote.
    HeldEnvelope e(new (std::nothrow) Envelope);
    if (!e) return t.fail(__LINE__, TRA_ESYSTEM);
    e->live = &tra->live_envelopes;
    e->live->fetch_add(1, std::memory_order_relaxed);
    std::memset(e.get(), 0, offsetof(Envelope, command));
    std::memset(e->answer, 0, RECORD_HEADER_SIZE);
    int32_t count = -1;
    uint64_t axes = 0;
    const int rc = _tra_asc2rec_ex(tra, text, reinterpret_cast<TRA_RECORD *>(e->command),
                                   RECORD_MAX_SLOTS, type_count, types, &count, &axes);
    if (rc != 0) return t.pass(__LINE__, rc);
    if (count == -1) return 0; // nothing to send
    e->magic = ENVELOPE_MAGIC;
    e->tag = tag;
    e->axes = axes;
    if (out != nullptr) *out = e.release();
    return 0;
}

int _tra_send_cmd(TRA *tra, Envelope *e, uint64_t axis_mask, uint32_t filter_mode,
                  int check_present, uint8_t *sent_out) {
    static constexpr Tracer t{"tradwn", "_tra_send_cmd"};
    if (sent_out != nullptr) *sent_out = 0;
    if (e == nullptr || e->magic != ENVELOPE_MAGIC) return t.fail(__LINE__, TRA_EBADPARAM);
    const uint64_t m = e->axes & axis_mask;
    if (m == 0) return 0;
    if (tra->bus == nullptr || tra->port == nullptr) {
        // An offline translator has nothing to put the command on.
        return check_present != 0 ? t.fail(__LINE__, TRA_ENODRIVE, "no bus")
                                  : t.fail(__LINE__, TRA_EPUTREC, "no bus");
    }
    // The bus's events keep the translator's view of the present drives, refreshed by the
    // translation that made the envelope; the bus itself is asked only when that view has none of
    // the addressed axes, so that a drive just attached is not refused.
    if (check_present != 0 && (tra->present_axes.load() & m) == 0) {
        uint64_t present = 0;
        if (oxb_get_present_axes(tra->bus, &present) != 0) return t.convert(__LINE__, TRA_EPUTREC);
        if ((present & m) == 0) return t.fail(__LINE__, TRA_ENODRIVE);
    }
    const ConstRecordView command{e->command};
    if (filter_mode != 0) {
        // Asks each addressed axis's dictionary about the first slot's register.
        const RegisterRef ref = decode_register(command.value32(0));
        const uint32_t type = command.tag(0) & KIND_WORD_MASK;
        int yes = 0, no = 0;
        {
            LookupSession session(*tra);
            for_each_axis_dictionary(*tra, m, [&](const VOK_DICT *d) {
                (vok_test_register(d, type, ref.index, ref.subscript) != 0 ? yes : no)++;
                return false;
            });
        }
        if ((filter_mode & 3) == 1 && no == 0) return 0;
        if ((filter_mode & 3) == 2 && yes == 0) return 0;
    }

    Inbox &inbox = tra->inbox;
    void *ticket;
    {
        std::lock_guard lk(inbox.mu);
        ticket = inbox.enter(e);
        ++inbox.sending;
    }
    uint32_t sent = 0;
    int rc = 0;
    int failed_line = 0;
    bool locked = false;
    if (is_chunked(*e)) {
        // A long read list goes out in chunks that no other record may come between.
        if (oxb_lock(tra->bus, LOCK_TIMEOUT_MS) != 0) {
            rc = TRA_EPUTREC;
            failed_line = -__LINE__;
        } else {
            locked = true;
            const int items = command.count();
            for (int first = 0; first < items; first += READ_CHUNK_SLOTS) {
                alignas(8) uint8_t chunk[record_size(READ_CHUNK_SLOTS)] = {};
                const RecordView c{chunk};
                const int n = std::min(READ_CHUNK_SLOTS, items - first);
                c.header().count = static_cast<uint8_t>(n);
                c.header().kind = REC_READ;
                std::memcpy(chunk + RECORD_HEADER_SIZE, command.slot_bytes(first),
                            static_cast<std::size_t>(RECORD_SLOT_SIZE * n));
                if (oxb_send(tra->port, ticket, m, chunk, SEND_TIMEOUT_MS) != 0) {
                    rc = TRA_EPUTREC;
                    failed_line = __LINE__;
                    break;
                }
                ++sent;
                if (sent_out != nullptr) *sent_out = 1;
            }
            if (rc == 0) {
                locked = false;
                if (oxb_unlock(tra->bus) != 0) {
                    rc = TRA_EPUTREC;
                    failed_line = __LINE__;
                }
            }
        }
    } else if (oxb_send(tra->port, ticket, m, e->command, SEND_TIMEOUT_MS) != 0) {
        rc = TRA_EPUTREC;
        failed_line = __LINE__;
    } else {
        sent = 1;
        if (sent_out != nullptr) *sent_out = 1;
    }
    if (rc != 0) {
        // A lock not obtained is this function's own finding; a failed put the bus's.
        if (failed_line < 0)
            t.fail(-failed_line, rc);
        else
            t.convert(failed_line, rc);
        if (locked) suspended([&] { oxb_unlock(tra->bus); });
    }
    // From here on the envelope may be completed and taken by a receiver at any moment.
    std::lock_guard lk(inbox.mu);
    e->sent = sent;
    e->done = 1;
    if (rc != 0) e->dropped = 1;
    --inbox.sending;
    if (e->answers >= e->sent) complete(inbox, e);
    inbox.cv.notify_all();
    return rc;
}

void _tra_envelope_answered(Inbox &inbox, Envelope *e, const uint8_t *record) {
    const ConstRecordView received{record};
    if (e->dropped == 0) {
        if (is_chunked(*e))
            merge_chunk(*e, received);
        else if (e->answers == 0)
            std::memcpy(e->answer, record, static_cast<std::size_t>(received.size()));
    }
    ++e->answers;
    if (e->done != 0 && e->answers >= e->sent) complete(inbox, e);
}

int _tra_receive_cmd(TRA *tra, Envelope **out, int timeout_ms, Envelope *wanted) {
    static constexpr Tracer t{"tradwn", "_tra_receive_cmd"};
    if (out != nullptr) *out = nullptr;
    if (tra->port == nullptr) return t.fail(__LINE__, TRA_ENOCOMMAND, "no bus");
    Inbox &inbox = tra->inbox;
    HeldEnvelope e;
    {
        std::unique_lock lk(inbox.mu);
        auto find = [&] {
            if (wanted != nullptr) return std::find(inbox.ready.begin(), inbox.ready.end(), wanted);
            return std::find_if(inbox.ready.begin(), inbox.ready.end(),
                                [](const Envelope *x) { return x->claimed == 0; });
        };
        const int rc =
            inbox.wait(lk, tra->port, timeout_ms, [&] { return find() != inbox.ready.end(); });
        if (rc == OXB_ENOTHING) return t.convert(__LINE__, TRA_ENOCOMMAND);
        if (rc != 0) return t.convert(__LINE__, TRA_EGETREC);
        const auto it = find();
        e.reset(*it);
        inbox.ready.erase(it);
    }
    if (!is_chunked(*e)) settle_single(*tra, *e);
    if (out != nullptr) *out = e.release();
    return 0;
}

int _tra_extract_cmd(TRA *tra, const Envelope *e, char *text, int size, uint8_t *ack_out,
                     uint8_t *status_out, uint8_t *request_out, uint64_t *tag_out) {
    static constexpr Tracer t{"tradwn", "_tra_extract_cmd"};
    const ConstRecordView answer{e->answer};
    const ConstRecordView command{e->command};
    const bool ack = e->dropped == 0 && (answer.word() & HEADER_ACK) != 0;
    if (tag_out != nullptr) *tag_out = e->tag;
    if (ack_out != nullptr) *ack_out = ack ? 1 : 0;
    if (status_out != nullptr) *status_out = (answer.word() & HEADER_STATUS) != 0 ? 1 : 0;
    const auto *command_record = reinterpret_cast<const TRA_RECORD *>(e->command);
    const auto *answer_record = reinterpret_cast<const TRA_RECORD *>(e->answer);
    int rc;
    if (ack && is_request_kind(command.kind())) {
        if (request_out != nullptr) *request_out = 1;
        rc = tra_oxcom_translate_rqs_to_ascii_ex(tra, command_record, answer_record, e->axes, text,
                                                 size);
    } else {
        if (request_out != nullptr) *request_out = (tra->flags & TRA_FREQUEST_FLAG) != 0 ? 1 : 0;
        rc = tra_oxcom_translate_cmd_to_ascii_ex(tra, answer_record, e->axes, text, size);
    }
    return rc == 0 ? 0 : t.pass(__LINE__, rc);
}

int _tra_set_version(TRA *tra, uint64_t axis_mask, const char *line, const char *title, int slot) {
    static constexpr Tracer t{"tradwn", "_tra_set_version"};
    if (std::strstr(line, title) == nullptr) return 0;
    uint64_t selection = axis_mask;
    if (const char *p = std::strstr(line, "axis")) {
        p += 4;
        while (*p == ' ' || *p == '\t')
            ++p;
        if (*p == '*') {
            selection = AXIS_63;
        } else if (*p != '#') {
            // An axis number: its digits, whatever follows them.
            if (*p < '0' || *p > '9') return t.fail(__LINE__, TRA_ESYNTAX, line);
            unsigned n = 0;
            for (; *p >= '0' && *p <= '9'; ++p) {
                n = n * 10 + static_cast<unsigned>(*p - '0');
                if (n >= AXES) return t.fail(__LINE__, TRA_ESYNTAX, line);
            }
            selection = uint64_t(1) << n;
        }
        selection &= axis_mask;
    }
    if (selection == 0) return 0;
    const char *colon = std::strrchr(line, ':');
    if (colon == nullptr) return 0;
    const char *v = colon;
    while (*v == ':' || *v == ' ' || *v == '\n' || *v == '\r')
        ++v;
    // The version text ends at the end of the line; a line feed or blanks there are not part of it.
    char text[16];
    std::size_t n = std::strlen(v);
    while (n > 0 && (v[n - 1] == ' ' || v[n - 1] == '\n' || v[n - 1] == '\r'))
        --n;
    uint32_t version = 0;
    if (n >= sizeof text) return t.fail(__LINE__, TRA_ESYNTAX, line);
    std::memcpy(text, v, n);
    text[n] = '\0';
    if (vok_string_to_version(text, &version) != 0) return t.convert(__LINE__, TRA_ESYNTAX);

    alignas(8) uint8_t record[record_size(2)];
    if (oxb_build_record(record, 2, REC_COMMAND, CMD_SET_VERSION, "ii", 0u,
                         static_cast<unsigned>(slot), 0u, version) != 0)
        return t.fail(__LINE__, TRA_EINTERNAL);
    const int rc =
        _tra_oxb_send_receive_1(tra, selection, reinterpret_cast<TRA_RECORD *>(record), 2);
    return rc == 0 ? 0 : t.pass(__LINE__, rc);
}

int _tra_reset_version(TRA *tra, uint64_t axis_mask, int slot) {
    static constexpr Tracer t{"tradwn", "_tra_reset_version"};
    alignas(8) uint8_t record[record_size(2)];
    if (oxb_build_record(record, 2, REC_COMMAND, CMD_SET_VERSION, "ii", 0u,
                         static_cast<unsigned>(slot), 0u, 0u) != 0)
        return t.fail(__LINE__, TRA_EINTERNAL);
    const int rc =
        _tra_oxb_send_receive_1(tra, axis_mask, reinterpret_cast<TRA_RECORD *>(record), 2);
    return rc == 0 ? 0 : t.pass(__LINE__, rc);
}

int _tra_send_direct_stream(TRA *tra, uint64_t axis_mask, int32_t type_count, const uint8_t *types,
                            uint32_t filter_mode, TRA_READ_LINE read_line, void *user) {
    static constexpr Tracer t{"tradwn", "_tra_send_direct_stream"};
    // The streams of a translator share its line buffer: a second one is refused, not queued,
    // so that a reader that starts a stream of its own cannot wait for itself.
    std::unique_lock running(tra->stream.running, std::try_to_lock);
    if (!running.owns_lock())
        return t.fail(__LINE__, TRA_ENOTALLOWED, "a stream is already running on this translator");
    if (read_line == nullptr) return t.fail(__LINE__, TRA_EBADPARAM, "null read_line");
    const bool register_translator = accepts(tra, Accept::register_any);
    StreamReport report(*tra);
    tra->progress = 0.0;
    tra->downloaded = 0;
    if (axis_mask == 0 || type_count == 0) {
        tra->progress = 1.0;
        return 0;
    }

    // The stream's axes are the default of its lines while it runs, and cleared on every way out.
    tra->download_axis_mask = axis_mask;
    struct ClearAxes {
        TRA &tra;
        ~ClearAxes() { tra.download_axis_mask = 0; }
    } clear_axes{*tra};

    if (type_count > 0) {
        uint8_t allowed = 0;
        if (oxb_check_types(tra->bus, &allowed, type_count, types) < 0)
            return t.fail(__LINE__, TRA_EINTERNAL);
        if (allowed == 0) return t.fail(__LINE__, TRA_ENOTALLOWED);
        for (const VersionReset &r : VERSION_RESETS) {
            const uint8_t *end = types + type_count;
            if (std::none_of(types, end, [&](uint8_t x) { return (x & TYPE_CODE_MASK) == r.type; }))
                continue;
            const int rc = _tra_reset_version(tra, axis_mask, r.slot);
            if (rc != 0) return t.pass(__LINE__, rc);
        }
    }

    // A drive of the stream's axes that leaves the bus meanwhile ends the stream.
    const uint64_t started = present_axes(*tra) & axis_mask;
    char *const line = tra->line_buffer;
    for (;;) {
        const int got = read_line(tra, line, LINE_BUFFER_SIZE, user);
        if (got < -1) return got; // the reader's own code, as it gave it
        if (got != 0) break;
        line[LINE_BUFFER_SIZE - 1] = '\0';
        ++report->lines;

        // A version line is a comment too: applied first, then skipped with the comments.
        for (const VersionTitle &v : VERSION_TITLES) {
            const int rc = _tra_set_version(tra, axis_mask, line, v.title, v.slot);
            if (rc != 0) return t.pass(__LINE__, rc);
        }
        const char *text = line;
        while (is_blank(*text))
            ++text;
        if (*text == '\0' || *text == '#' || *text == ';') continue;
        if (started != 0 && (started & ~present_axes(*tra)) != 0)
            return t.fail(__LINE__, TRA_ENODRIVE, "a drive of the stream left the bus");

        Envelope *made = nullptr;
        tra->download_filter_mode = filter_mode;
        int rc = _tra_create_cmd(tra, &made, line, type_count, types, 0);
        tra->download_filter_mode = 0;
        if (rc != 0) return t.pass(__LINE__, rc);
        HeldEnvelope e(made);
        if (!e) {
            ++report->skipped;
            continue;
        }
        const ConstRecordView command{e->command};
        if (register_translator) {
            const KindCommand c = command_of(command.kind(), command.command_byte());
            if (!c.carries || !is_assignment(c.code))
                return t.fail(__LINE__, TRA_ENOTALLOWED, text);
            const auto tag = static_cast<uint8_t>(command.tag(0) & 0xFF);
            if (type_count > 0 && std::find(types, types + type_count, tag) == types + type_count) {
                ++report->skipped;
                continue;
            }
        }
        uint8_t sent = 0;
        e->claimed = 1;
        rc = _tra_send_cmd(tra, e.get(), axis_mask, filter_mode, 0, &sent);
        if (sent != 0) e.release(); // the bus has it now
        if (rc != 0) return t.pass(__LINE__, rc);
        if (sent == 0) {
            ++report->skipped;
            continue;
        }
        ++report->sent;
        tra->downloaded = 1;
        Envelope *answered = nullptr;
        rc = _tra_receive_cmd(tra, &answered, -1, made);
        if (rc != 0) return t.pass(__LINE__, rc);
        const HeldEnvelope a(answered);
        if (a->dropped == 0 && (ConstRecordView{a->answer}.word() & HEADER_ACK) != 0)
            ++report->acknowledged;
        else
            report.refused(text);
    }
    tra->progress = 1.0;
    return 0;
}

} // namespace ryn::tra
