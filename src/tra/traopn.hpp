// The translator object, its kinds and settings, and the frame of every exported call.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <exception>
#include <mutex>
#include <vector>

#include "ryn/oxb.h"
#include "ryn/tra.h"
#include "ryn/vok.h"
#include "tradwn.hpp"
#include "traerr.hpp"
#include "traoxb.hpp"

namespace ryn::tra {

// The four kinds of translator: two roles, each offline or bound to a bus.
enum Kind : uint32_t {
    KIND_REGISTER_OFFLINE = 0x9B12,
    KIND_REGISTER_BUS = 0x9B13,
    KIND_DIRECT_OFFLINE = 0x9B14,
    KIND_DIRECT_BUS = 0x9B15,
};

// A dictionary set: the full and the drive-only dictionary of one drive configuration.
struct TRA_TD {
    uint8_t version_replaced; // the requested version was unknown; the default one was opened
    VOK_DICT *full;
    VOK_DICT *drive_only;
};

// One name of a lookup table: a register alias or a command name and where it is valid.
struct LookupEntry {
    const char *name; // owned by the dictionary library, valid for the life of the process
    uint32_t index;   // register index or command number
    uint32_t type;    // register type 0..127, COMMAND_TYPE in the command table
    uint64_t axes;    // bit n: the name is valid on axis n
    uint8_t product_class_only; // seen only in axis-63-class products so far
    uint8_t drive_class_only;   // seen only in products outside that class so far
};
static_assert(sizeof(LookupEntry) == 32);
inline constexpr uint32_t COMMAND_TYPE = 0xFFFFFFFFu;

inline constexpr int AXES = 64;
inline constexpr int TYPE_NAME_SIZE = 32;
inline constexpr int LINE_BUFFER_SIZE = 32768;

// The settings a call works with, read once when its lookup session opens, so that a setting
// changed by another thread meanwhile does not change the call's mind half-way.
struct CallSettings {
    uint32_t flags = 0;
    TRA_ISO_CONVERTER converter = nullptr;
    void *context = nullptr;
};

// The entries of a lookup table ordered by type and index (then by their place in the table), so
// that record-to-text finds a register's or a command's alias without a scan.
class AliasIndex {
  public:
    // Indexes every entry of the table as it stands.
    void build(const std::vector<LookupEntry> &table);
    void clear() { keys_.clear(); }
    // The first entry of the table (in table order) of this type and index valid on one of the
    // axes, or null.
    const LookupEntry *find(const std::vector<LookupEntry> &table, uint32_t type, uint32_t index,
                            uint64_t axes) const;

  private:
    struct Key {
        uint32_t type;
        uint32_t index;
        uint32_t position;
    };
    std::vector<Key> keys_;
};

} // namespace ryn::tra

// The translator object. Settings are single atomic stores read without a lock (the ISO converter
// and its context are read as a pair); the set list is guarded by td_lock, the tables and
// every translation by lookup_lock, never both at once.
struct TRA {
    std::recursive_mutex td_lock;
    std::atomic<uint32_t> kind;
    std::atomic<uint32_t> flags;
    // Every dictionary set opened, in order of opening. Append-only while the translator lives:
    // a set, once published through axis_sets, is read by the rebuild without the td lock.
    std::vector<ryn::tra::TRA_TD *> tds;
    // The ISO converter and its context, a pair: written under iso_lock with iso_sequence odd
    // meanwhile, read without a lock until the sequence is even and unchanged.
    std::mutex iso_lock;
    std::atomic<uint32_t> iso_sequence;
    std::atomic<TRA_ISO_CONVERTER> iso_converter;
    std::atomic<void *> iso_context;
    OXB_BUS *bus;
    OXB_PORT *port;
    std::atomic<uint64_t> present_axes;
    std::array<std::atomic<ryn::tra::TRA_TD *>, ryn::tra::AXES> axis_sets;
    // Moved by every change that makes the tables stale (settings, axis sets).
    std::atomic<uint64_t> generation;
    std::recursive_mutex lookup_lock;
    // Guarded by lookup_lock from here on.
    uint64_t built_generation; // the generation the tables were built for
    int session_depth;         // lookup sessions open on this thread's call
    ryn::tra::CallSettings call;
    std::array<VOK_DICT *, ryn::tra::AXES> axis_dicts;
    std::vector<ryn::tra::LookupEntry> registers;
    std::vector<ryn::tra::LookupEntry> commands;
    ryn::tra::AliasIndex register_aliases;
    ryn::tra::AliasIndex command_aliases;
    char type_names[128][ryn::tra::TYPE_NAME_SIZE];
    std::atomic<double> progress;
    std::atomic<uint64_t> axis_mask;
    std::atomic<uint64_t> preference_axis_mask;
    std::atomic<uint64_t> download_axis_mask;
    std::atomic<uint32_t> download_filter_mode;
    std::atomic<uint8_t> downloaded;
    char line_buffer[ryn::tra::LINE_BUFFER_SIZE];
    // Envelopes made and not yet freed: the soak's leak check. Declared before the inbox, whose
    // end frees the envelopes it still holds.
    std::atomic<int64_t> live_envelopes;
    // Every answer of the port passes through here to the envelope or exchange waiting for it.
    ryn::tra::Inbox inbox;
    // One stream at a time, and what the last one did.
    ryn::tra::StreamState stream;
};

namespace ryn::tra {

// Which kinds an operation accepts.
enum class Accept { any, direct, direct_bus, register_any, register_bus };

// Whether a handle is non-null and of a kind the operation accepts.
bool accepts(const TRA *tra, Accept accept = Accept::any);

// The common first step of every creator; product and product_63 are not used.
int _tra_create_base(TRA **out, uint32_t product, uint32_t product_63, uint32_t flags,
                     uint32_t kind);
// ASCII case-insensitive comparison of two names for sorting and searching the lookup tables.
int _tra_name_compare(const char *const *a, const char *const *b);
// Writes a formatted diagnostic line to standard output.
void _tra_printf(const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;
// The bus event handler of bus-bound translators: keeps the dictionary set of an axis up to date
// as its drive appears and leaves. Runs on the bus's thread; writes no trace.
int _tra_bus_event(OXB_BUS *bus, int axis, int event, void *context) noexcept;
// Lowest axis that has a dictionary set, else 0.
int _tra_first_axis(const TRA *tra);

// Rebuilds the lookup tables for the present generation and flags (the lookup table module).
int _tra_create_lkt(TRA *tra);
// Closes and frees every dictionary set of a translator.
void _tra_free_tds(TRA *tra);

// Visits the dictionary of every addressed axis in axis order, skipping axes without one and an
// axis whose dictionary is the one just visited; visit returns true to stop.
template <class Visit>
void for_each_axis_dictionary(const TRA &tra, uint64_t mask, Visit &&visit) {
    const VOK_DICT *last = nullptr;
    for (uint64_t axes = mask; axes != 0; axes &= axes - 1) {
        const VOK_DICT *d = tra.axis_dicts[static_cast<std::size_t>(std::countr_zero(axes))];
        if (d == nullptr || d == last) continue;
        last = d;
        if (visit(d)) return;
    }
}

// Marks the tables stale: the next lookup session rebuilds them.
inline void mark_stale(TRA &tra) {
    tra.generation.fetch_add(1, std::memory_order_acq_rel);
}
// Whether the tables were built for the translator's present state.
inline bool tables_stale(const TRA &tra) {
    return tra.built_generation != tra.generation.load(std::memory_order_acquire);
}
// Reads the settings of a call into tra->call: flags, ISO converter and context.
void _tra_take_settings(TRA *tra);
// Rebuilds the tables for `flags` under the lookup lock and marks them built for `generation` when
// they were built whole; an allocation that fails is TRA_ESYSTEM, traced. Throws nothing.
int _tra_rebuild_lkt(TRA *tra, uint64_t generation, uint32_t flags) noexcept;

// Holds the lookup lock for one call. The outermost session of a call reads the call's settings
// and rebuilds stale tables: the generation is read first, so a change that lands during the
// rebuild leaves the tables stale for the next call. A rebuild that fails for want of memory fails
// the call (status()); any other failed rebuild leaves the tables as far as they were built,
// still stale, and the call goes on.
class LookupSession {
  public:
    explicit LookupSession(TRA &tra) : tra_(tra), lock_(tra.lookup_lock) {
        if (tra.session_depth == 0) {
            const uint64_t generation = tra.generation.load(std::memory_order_acquire);
            _tra_take_settings(&tra);
            if (tra.built_generation != generation) {
                int rc = _tra_rebuild_lkt(&tra, generation, tra.call.flags);
                if (rc == TRA_ESYSTEM) status_ = rc;
            }
        }
        ++tra.session_depth;
    }
    ~LookupSession() { --tra_.session_depth; }
    LookupSession(const LookupSession &) = delete;
    LookupSession &operator=(const LookupSession &) = delete;

    int status() const { return status_; }

  private:
    TRA &tra_;
    std::unique_lock<std::recursive_mutex> lock_;
    int status_ = 0;
};

// ---- The frame of an exported call ----

// Runs work; an exception (an allocation or a lock that failed) becomes the system error, traced
// at `line`. Nothing thrown leaves the library.
template <class Work>
int guarded(const Tracer &t, int line, Work &&work) noexcept {
    try {
        return work();
    } catch (...) {
        return t.fail(line, TRA_ESYSTEM);
    }
}

// An exported call on a translator: the handle tested (non-null and of a kind the call accepts,
// else TRA_EBADPARAM traced at `line`), then work(tra) guarded.
template <class Work>
int exported(const Tracer &t, int line, TRA *tra, Accept accept, Work &&work) noexcept {
    if (!accepts(tra, accept)) return t.fail(line, TRA_EBADPARAM);
    return guarded(t, line, [&] { return work(*tra); });
}

// An exported call that answers a value rather than a status: `refused` for a bad handle or a
// failure, without a trace.
template <class T, class Work>
T exported_value(TRA *tra, Accept accept, T refused, Work &&work) noexcept {
    if (!accepts(tra, accept)) return refused;
    try {
        return work(*tra);
    } catch (...) {
        return refused;
    }
}

// The translation part of the frame: work runs in a lookup session, and its failure is passed on
// with a frame of its own at `line`.
template <class Work>
int in_session(TRA &tra, const Tracer &t, int line, Work &&work) noexcept {
    int rc;
    try {
        LookupSession session(tra);
        rc = session.status();
        if (rc == 0) rc = work();
    } catch (...) {
        return t.fail(line, TRA_ESYSTEM);
    }
    return rc == 0 ? 0 : t.pass(line, rc);
}

} // namespace ryn::tra
