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
#include "traerr.hpp"

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

} // namespace ryn::tra

// The translator object. Settings are single atomic stores read without a lock; the set list is
// guarded by td_lock, the tables and every translation by lookup_lock, never both at once.
struct TRA {
    std::recursive_mutex td_lock;
    std::atomic<uint32_t> kind;
    std::atomic<uint32_t> flags;
    std::vector<ryn::tra::TRA_TD *> tds; // every dictionary set opened, in order of opening
    std::atomic<TRA_ISO_CONVERTER> iso_converter;
    std::atomic<void *> iso_context;
    OXB_BUS *bus;
    OXB_PORT *port;
    std::atomic<uint64_t> present_axes;
    std::array<std::atomic<ryn::tra::TRA_TD *>, ryn::tra::AXES> axis_sets;
    std::recursive_mutex lookup_lock;
    std::atomic<uint8_t> stale;
    std::array<VOK_DICT *, ryn::tra::AXES> axis_dicts;
    std::vector<ryn::tra::LookupEntry> registers;
    std::vector<ryn::tra::LookupEntry> commands;
    char type_names[128][ryn::tra::TYPE_NAME_SIZE];
    std::atomic<double> progress;
    std::atomic<uint64_t> axis_mask;
    std::atomic<uint64_t> preference_axis_mask;
    std::atomic<uint64_t> download_axis_mask;
    std::atomic<uint32_t> download_filter_mode;
    std::atomic<uint8_t> downloaded;
    char line_buffer[ryn::tra::LINE_BUFFER_SIZE];
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
// Lowest axis that has a dictionary set, else 0.
int _tra_first_axis(const TRA *tra);

// Rebuilds the lookup tables (the lookup table module); called through LookupSession.
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

// Holds the lookup lock for one translation, rebuilding stale tables first. A failed rebuild
// leaves the tables as far as they were built, stale stays set, and the translation goes on.
class LookupSession {
  public:
    explicit LookupSession(TRA &tra) : lock_(tra.lookup_lock) {
        if (tra.stale.load(std::memory_order_acquire) != 0) (void)_tra_create_lkt(&tra);
    }

  private:
    std::unique_lock<std::recursive_mutex> lock_;
};

// The frame of a locked internal call: runs work under the lookup lock (after a rebuild of stale
// tables) and passes its failure on with a frame of its own.
// A lock or an allocation that throws becomes the system error, traced here.
template <class Work>
int locked_call(TRA &tra, const Tracer &t, int line, Work &&work) {
    int rc;
    try {
        LookupSession session(tra);
        rc = work();
    } catch (const std::exception &) {
        return t.fail(line, TRA_ESYSTEM);
    }
    return rc == 0 ? 0 : t.pass(line, rc);
}

} // namespace ryn::tra
