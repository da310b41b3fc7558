// The bus exchange: routing of a port's answers, the request-and-reply exchange, register reads.
#include <algorithm>
#include <cstring>

#include "record.hpp"
#include "traopn.hpp"

namespace ryn::tra {

namespace {

// Send and reply timeouts of an exchange, in milliseconds.
constexpr int SEND_TIMEOUT_MS = 2000;
constexpr int REPLY_TIMEOUT_MS = 5000;

// Copies the value of a reply's slot into the caller's place: 8 bytes for a 64-bit value, else 4.
void copy_value(ConstRecordView reply, int slot, void *value) {
    if (value == nullptr) return;
    const uint32_t tag = reply.tag(slot);
    std::memcpy(value, reply.slot_bytes(slot) + 8,
                static_cast<std::size_t>(value_size(value_class(tag))));
}

// One exchange of a register read record of capacity RECORD_MAX_SLOTS with one axis.
int exchange_read(TRA *tra, const Tracer &t, int axis, uint8_t *record, int pass_line) {
    if (axis < 0 || axis >= AXES) return t.fail(__LINE__, TRA_EBADPARAM, "axis outside 0..63");
    const int rc = _tra_oxb_send_receive_1(
        tra, uint64_t(1) << axis, reinterpret_cast<TRA_RECORD *>(record), RECORD_MAX_SLOTS);
    return rc == 0 ? 0 : t.pass(pass_line, rc);
}

} // namespace

Inbox::~Inbox() {
    clear();
}

void Inbox::clear() {
    std::lock_guard lk(mu);
    for (Envelope *e : live)
        _tra_free_cmd(e);
    live.clear();
    free_places.clear();
    for (Envelope *e : ready)
        _tra_free_cmd(e);
    ready.clear();
}

void Inbox::route(void *ticket, const uint8_t *record) {
    const auto value = reinterpret_cast<uintptr_t>(ticket);
    if ((value & 1) != 0) {
        // An exchange's answer; one that nobody waits for any more is dropped.
        for (PendingExchange *x : pending) {
            if (x->ticket != ticket) continue;
            const ConstRecordView r{record};
            std::memcpy(x->buffer, record, static_cast<std::size_t>(r.size()));
            x->answered = true;
            return;
        }
        return;
    }
    const uintptr_t place = value / 2 - 1;
    if (value == 0 || place >= live.size() || live[place] == nullptr)
        return; // not a record of this translator's, or one of an envelope long answered
    _tra_envelope_answered(*this, live[place], record);
}

void *Inbox::ticket_of(const Envelope *e) {
    return reinterpret_cast<void *>((uintptr_t{e->place} + 1) * 2);
}

void *Inbox::enter(Envelope *e) {
    if (free_places.empty()) {
        // Both grow together, so that a place given back always finds room in free_places.
        free_places.reserve(live.size() + 1);
        live.push_back(nullptr);
        free_places.push_back(static_cast<uint32_t>(live.size() - 1));
    }
    e->place = free_places.back();
    free_places.pop_back();
    live[e->place] = e;
    return ticket_of(e);
}

void Inbox::leave(Envelope *e) {
    if (e->place >= live.size() || live[e->place] != e) return;
    live[e->place] = nullptr;
    free_places.push_back(e->place);
}

int _tra_oxb_send_receive_1(TRA *tra, uint64_t axis_mask, TRA_RECORD *request, int capacity) {
    static constexpr Tracer t{"traoxb", "_tra_oxb_send_receive_1"};
    if (tra->port == nullptr) return t.fail(__LINE__, TRA_EPUTREC, "no bus port");
    Inbox &inbox = tra->inbox;
    alignas(8) uint8_t reply[RECORD_MAX_SIZE];
    PendingExchange exchange{nullptr, reply, false};
    std::unique_lock lk(inbox.mu);
    // Start from an empty port: what was waiting is routed (an envelope's answer is kept for its
    // receiver, a late answer of an earlier exchange is dropped). With another thread reading,
    // that thread routes it.
    if (!inbox.reading) inbox.wait(lk, tra->port, 0, [] { return false; });
    exchange.ticket = reinterpret_cast<void *>(inbox.next_ticket);
    inbox.next_ticket += 2;
    inbox.pending.push_back(&exchange);
    auto forget = [&] {
        inbox.pending.erase(std::find(inbox.pending.begin(), inbox.pending.end(), &exchange));
    };
    lk.unlock();

    int rc = oxb_send(tra->port, exchange.ticket, axis_mask, request, SEND_TIMEOUT_MS);
    lk.lock();
    if (rc != 0) {
        forget();
        return t.convert(100, TRA_EPUTREC);
    }
    rc = inbox.wait(lk, tra->port, REPLY_TIMEOUT_MS, [&] { return exchange.answered; });
    forget();
    lk.unlock();
    if (rc != 0) return t.convert(111, TRA_EGETREC);

    const ConstRecordView answer{reply};
    const ConstRecordView sent{reinterpret_cast<const uint8_t *>(request)};
    if ((answer.word() & HEADER_ACK) == 0) return t.fail(118, TRA_ENOACK);
    if (answer.kind() != sent.kind()) return t.fail(122, TRA_EGETREC);
    if (answer.count() > capacity) return t.fail(126, TRA_EBADPARAM);
    std::memcpy(request, reply, static_cast<std::size_t>(oxb_record_size(answer.count())));
    return 0;
}

int _tra_get_register(TRA *tra, int axis, uint32_t type, uint32_t index, uint32_t subindex,
                      void *value) {
    static constexpr Tracer t{"traoxb", "_tra_get_register"};
    alignas(8) uint8_t record[RECORD_MAX_SIZE];
    if (oxb_build_record(record, RECORD_MAX_SLOTS, REC_READ, 0, "i", type,
                         subindex << 16 | index) != 0)
        return t.fail(190, TRA_EBADPARAM);
    const int rc = exchange_read(tra, t, axis, record, 198);
    if (rc != 0) return rc;
    const ConstRecordView reply{record};
    if (reply.count() < 1) return t.fail(__LINE__, TRA_EGETREC, "reply without a value");
    copy_value(reply, 0, value);
    return 0;
}

int _tra_get_register_pair(TRA *tra, int axis, uint32_t type1, uint32_t index1, uint32_t subindex1,
                           void *value1, uint32_t type2, uint32_t index2, uint32_t subindex2,
                           void *value2) {
    static constexpr Tracer t{"traoxb", "_tra_get_register_pair"};
    alignas(8) uint8_t record[RECORD_MAX_SIZE];
    if (oxb_build_record(record, RECORD_MAX_SLOTS, REC_READ, 0, "ii", type1,
                         subindex1 << 16 | index1, type2, subindex2 << 16 | index2) != 0)
        return t.fail(148, TRA_EBADPARAM);
    const int rc = exchange_read(tra, t, axis, record, 156);
    if (rc != 0) return rc;
    const ConstRecordView reply{record};
    if (reply.count() < 2) return t.fail(__LINE__, TRA_EGETREC, "reply without both values");
    copy_value(reply, 0, value1);
    copy_value(reply, 1, value2);
    return 0;
}

} // namespace ryn::tra
