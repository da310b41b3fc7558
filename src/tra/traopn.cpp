// The translator object: creation, destruction, settings and name comparison.
#include "traopn.hpp"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <new>

#include "sup/ascii.hpp"
#include "tralkt.hpp"

namespace ryn::tra {

namespace {

// The ISO converter and its context as one pair, never one of an older setting with one of a
// newer; the reader retries while a writer is between the two stores. Every access is sequentially
// consistent, so the four stores of a writer and the four loads of a reader are seen in one order.
void get_iso_pair(const TRA &tra, TRA_ISO_CONVERTER *converter, void **context) {
    for (;;) {
        const uint32_t before = tra.iso_sequence.load();
        TRA_ISO_CONVERTER c = tra.iso_converter.load();
        void *x = tra.iso_context.load();
        if ((before & 1) == 0 && tra.iso_sequence.load() == before) {
            *converter = c;
            *context = x;
            return;
        }
    }
}

void set_iso_pair(TRA &tra, TRA_ISO_CONVERTER converter, void *context) {
    std::lock_guard lock(tra.iso_lock);
    const uint32_t sequence = tra.iso_sequence.load();
    tra.iso_sequence.store(sequence + 1);
    tra.iso_converter.store(converter);
    tra.iso_context.store(context);
    tra.iso_sequence.store(sequence + 2);
}

} // namespace

bool accepts(const TRA *tra, Accept accept) {
    if (tra == nullptr) return false;
    uint32_t kind = tra->kind.load(std::memory_order_relaxed);
    switch (accept) {
    case Accept::any:
        return kind >= KIND_REGISTER_OFFLINE && kind <= KIND_DIRECT_BUS;
    case Accept::direct:
        return kind == KIND_DIRECT_OFFLINE || kind == KIND_DIRECT_BUS;
    case Accept::direct_bus:
        return kind == KIND_DIRECT_BUS;
    case Accept::register_any:
        return kind == KIND_REGISTER_OFFLINE || kind == KIND_REGISTER_BUS;
    case Accept::register_bus:
        return kind == KIND_REGISTER_BUS;
    }
    return false;
}

int _tra_create_base(TRA **out, uint32_t, uint32_t, uint32_t flags, uint32_t kind) {
    static constexpr Tracer t{"traopn", "_tra_create_base"};
    if (out == nullptr || *out != nullptr) return t.fail(95, TRA_EBADPARAM);
    // The object's members may allocate as they are built (the inbox), so the whole construction
    // is guarded, not only its storage.
    TRA *tra = nullptr;
    try {
        tra = new TRA{};
    } catch (...) {
        return t.fail(101, TRA_ESYSTEM);
    }
    tra->kind = kind;
    tra->flags = flags;
    tra->built_generation = ~uint64_t(0); // no tables yet: stale
    *out = tra;
    return 0;
}

void _tra_take_settings(TRA *tra) {
    tra->call.flags = tra->flags.load(std::memory_order_acquire);
    get_iso_pair(*tra, &tra->call.converter, &tra->call.context);
}

int _tra_name_compare(const char *const *a, const char *const *b) {
    return ascii_compare_nocase(*a, *b);
}

void _tra_printf(const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::fflush(stdout);
}

int _tra_first_axis(const TRA *tra) {
    for (int axis = 0; axis < AXES; ++axis)
        if (tra->axis_sets[static_cast<std::size_t>(axis)].load() != nullptr) return axis;
    return 0;
}

namespace {

// A 32-bit field of an information record as the bus library writes it.
template <class Record>
uint32_t info_field(const Record &record, std::size_t offset) {
    return wire::load_u32(reinterpret_cast<const uint8_t *>(&record) + offset);
}

} // namespace

int _tra_bus_event(OXB_BUS *bus, int axis, int event, void *context) noexcept {
    if (context == nullptr || axis < 0 || axis >= AXES) return TRA_EBADPARAM;
    TRA &tra = *static_cast<TRA *>(context);
    const auto a = static_cast<std::size_t>(axis);
    // Only the bus-bound kinds follow their bus.
    const uint32_t kind = tra.kind.load();
    const bool follows = kind == KIND_REGISTER_BUS || kind == KIND_DIRECT_BUS;
    auto leave = [&] {
        // The axis drops out of the tables: no dictionary, and absent at the next rebuild.
        if (follows && tra.axis_sets[a].exchange(nullptr) != nullptr) mark_stale(tra);
    };
    if (event == OXB_EVENT_DRIVE_GONE) {
        leave();
        return 0;
    }
    wire::DriveInfo drive{};
    wire::store_u32(reinterpret_cast<uint8_t *>(&drive), sizeof drive);
    int rc = oxb_get_drive_info(bus, axis, &drive);
    if (rc == OXB_ENODRIVE) leave(); // it left before its event was handled
    if (rc != 0) return rc;
    wire::ExtInfo card{};
    wire::store_u32(reinterpret_cast<uint8_t *>(&card), sizeof card);
    rc = oxb_get_ext_info(bus, axis, &card);
    if (rc != 0) return rc;

    TRA_TD *td = nullptr;
    // The handler writes no trace of its own: what the set's opening might trace is left out.
    suspended([&] {
        try {
            rc = _tra_get_td(&tra, &td, info_field(drive, offsetof(wire::DriveInfo, product)),
                             info_field(drive, offsetof(wire::DriveInfo, version)),
                             info_field(card, offsetof(wire::ExtInfo, product)),
                             info_field(card, offsetof(wire::ExtInfo, version)), 0);
        } catch (...) {
            rc = TRA_ESYSTEM;
        }
    });
    if (rc != 0) return rc;
    if (follows && tra.axis_sets[a].exchange(td) != td) mark_stale(tra);
    return 0;
}

namespace {

// What the full dictionary of an axis's set answers (an axis outside 0..63: the first axis that
// has a set); 0 for a bad handle or an axis without a set.
template <uint32_t (*Query)(const VOK_DICT *)>
uint32_t axis_query(TRA *tra, int axis) {
    return exported_value(tra, Accept::any, 0u, [&](TRA &x) {
        unsigned a = static_cast<unsigned>(axis);
        if (a >= AXES) a = static_cast<unsigned>(_tra_first_axis(&x));
        const TRA_TD *td = x.axis_sets[a].load();
        return td != nullptr ? Query(td->full) : 0u;
    });
}

} // namespace
} // namespace ryn::tra

using namespace ryn::tra;

extern "C" {

int tra_destroy(TRA **handle) {
    static constexpr Tracer t{"traopn", "tra_destroy"};
    if (handle == nullptr || *handle == nullptr) return TRA_EBADPARAM;
    return exported(t, 477, *handle, Accept::any, [&](TRA &tra) {
        // No event reaches the translator once this returns, so it may go.
        if (tra.bus != nullptr) oxb_unregister_handler(tra.bus, &tra);
        tra.bus = nullptr;
        tra.inbox.clear();
        _tra_free_tds(&tra);
        tra.kind = 0;
        delete &tra;
        *handle = nullptr;
        return 0;
    });
}

uint32_t tra_get_flags(TRA *tra) {
    return exported_value(tra, Accept::any, 0u, [](TRA &x) { return x.flags.load(); });
}

int tra_set_flags(TRA *tra, uint32_t flags) {
    static constexpr Tracer t{"traopn", "tra_set_flags"};
    return exported(t, 304, tra, Accept::any, [&](TRA &x) {
        x.flags = flags;
        mark_stale(x);
        return 0;
    });
}

int tra_get_progress(TRA *tra, double *progress) {
    static constexpr Tracer t{"traopn", "tra_get_progress"};
    return exported(t, 185, tra, Accept::any, [&](TRA &x) {
        if (progress != nullptr) *progress = x.progress.load();
        return 0;
    });
}

int tra_set_progress(TRA *tra, double progress) {
    static constexpr Tracer t{"traopn", "tra_set_progress"};
    return exported(t, 210, tra, Accept::any, [&](TRA &x) {
        // Written so that NaN fails too: progress only grows within 0..1.
        if (!(progress >= 0.0 && progress <= 1.0 && progress >= x.progress.load()))
            return t.fail(214, TRA_EBADPARAM);
        x.progress = progress;
        return 0;
    });
}

int tra_oxcom_get_iso_converter(TRA *tra, TRA_ISO_CONVERTER *converter, void **context) {
    static constexpr Tracer t{"traopn", "tra_oxcom_get_iso_converter"};
    return exported(t, 238, tra, Accept::any, [&](TRA &x) {
        TRA_ISO_CONVERTER c;
        void *k;
        get_iso_pair(x, &c, &k);
        if (converter != nullptr) *converter = c;
        if (context != nullptr) *context = k;
        return 0;
    });
}

int tra_oxcom_set_iso_converter(TRA *tra, TRA_ISO_CONVERTER converter, void *context) {
    static constexpr Tracer t{"traopn", "tra_oxcom_set_iso_converter"};
    return exported(t, 262, tra, Accept::any, [&](TRA &x) {
        set_iso_pair(x, converter, context);
        return 0;
    });
}

uint64_t tra_oxcom_get_preference_axis_mask(TRA *tra) {
    return exported_value(tra, Accept::any, uint64_t(0),
                          [](TRA &x) { return x.preference_axis_mask.load(); });
}

int tra_oxcom_set_preference_axis_mask(TRA *tra, uint64_t mask) {
    static constexpr Tracer t{"traopn", "tra_oxcom_set_preference_axis_mask"};
    return exported(t, 331, tra, Accept::any, [&](TRA &x) {
        x.preference_axis_mask = mask;
        return 0;
    });
}

OXB_PORT *tra_get_oxb_port(TRA *tra) {
    return exported_value(tra, Accept::any, static_cast<OXB_PORT *>(nullptr),
                          [](TRA &x) { return x.port; });
}

uint32_t tra_get_drv_product(TRA *tra, int axis) {
    return axis_query<vok_get_drv_product>(tra, axis);
}
uint32_t tra_get_drv_version(TRA *tra, int axis) {
    return axis_query<vok_get_drv_version>(tra, axis);
}
uint32_t tra_get_ext_product(TRA *tra, int axis) {
    return axis_query<vok_get_ext_product>(tra, axis);
}
uint32_t tra_get_ext_version(TRA *tra, int axis) {
    return axis_query<vok_get_ext_version>(tra, axis);
}

} // extern "C"
