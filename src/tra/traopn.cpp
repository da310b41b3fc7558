// The translator object: creation, destruction, settings and name comparison.
#include "traopn.hpp"

#include <cstdarg>
#include <cstdio>
#include <new>

namespace ryn::tra {

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
    TRA *tra = new (std::nothrow) TRA{};
    if (tra == nullptr) return t.fail(101, TRA_ESYSTEM);
    tra->kind = kind;
    tra->flags = flags;
    tra->stale = 1;
    *out = tra;
    return 0;
}

int _tra_name_compare(const char *const *a, const char *const *b) {
    auto lower = [](char c) { return static_cast<signed char>(c >= 'A' && c <= 'Z' ? c + 32 : c); };
    const char *x = *a;
    const char *y = *b;
    for (;; ++x, ++y) {
        signed char cx = lower(*x);
        signed char cy = lower(*y);
        if (cx != cy) return cx < cy ? -1 : 1;
        if (cx == 0) return 0;
    }
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

// The full dictionary of an axis's set, for the per-axis getters; null when there is none.
const VOK_DICT *axis_dictionary(TRA *tra, int axis) {
    if (!accepts(tra)) return nullptr;
    unsigned a = static_cast<unsigned>(axis);
    if (a >= AXES) a = static_cast<unsigned>(_tra_first_axis(tra));
    const TRA_TD *td = tra->axis_sets[a].load();
    return td != nullptr ? td->full : nullptr;
}

template <uint32_t (*Query)(const VOK_DICT *)>
uint32_t axis_query(TRA *tra, int axis) {
    const VOK_DICT *d = axis_dictionary(tra, axis);
    return d != nullptr ? Query(d) : 0;
}

} // namespace
} // namespace ryn::tra

using namespace ryn::tra;

extern "C" {

int tra_destroy(TRA **handle) {
    static constexpr Tracer t{"traopn", "tra_destroy"};
    if (handle == nullptr || *handle == nullptr) return TRA_EBADPARAM;
    TRA *tra = *handle;
    if (!accepts(tra)) return t.fail(477, TRA_EBADPARAM);
    // Unregistering the bus event handler arrives with the bus-bound translators.
    tra->bus = nullptr;
    _tra_free_tds(tra);
    tra->registers.clear();
    tra->commands.clear();
    tra->kind = 0;
    delete tra;
    *handle = nullptr;
    return 0;
}

uint32_t tra_get_flags(TRA *tra) {
    return accepts(tra) ? tra->flags.load() : 0;
}

int tra_set_flags(TRA *tra, uint32_t flags) {
    static constexpr Tracer t{"traopn", "tra_set_flags"};
    if (!accepts(tra)) return t.fail(304, TRA_EBADPARAM);
    tra->flags = flags;
    tra->stale = 1;
    return 0;
}

int tra_get_progress(TRA *tra, double *progress) {
    static constexpr Tracer t{"traopn", "tra_get_progress"};
    if (!accepts(tra)) return t.fail(185, TRA_EBADPARAM);
    if (progress != nullptr) *progress = tra->progress.load();
    return 0;
}

int tra_set_progress(TRA *tra, double progress) {
    static constexpr Tracer t{"traopn", "tra_set_progress"};
    if (!accepts(tra)) return t.fail(210, TRA_EBADPARAM);
    // Written so that NaN fails too: progress only grows within 0..1.
    if (!(progress >= 0.0 && progress <= 1.0 && progress >= tra->progress.load()))
        return t.fail(214, TRA_EBADPARAM);
    tra->progress = progress;
    return 0;
}

int tra_oxcom_get_iso_converter(TRA *tra, TRA_ISO_CONVERTER *converter, void **context) {
    static constexpr Tracer t{"traopn", "tra_oxcom_get_iso_converter"};
    if (!accepts(tra)) return t.fail(238, TRA_EBADPARAM);
    if (converter != nullptr) *converter = tra->iso_converter.load();
    if (context != nullptr) *context = tra->iso_context.load();
    return 0;
}

int tra_oxcom_set_iso_converter(TRA *tra, TRA_ISO_CONVERTER converter, void *context) {
    static constexpr Tracer t{"traopn", "tra_oxcom_set_iso_converter"};
    if (!accepts(tra)) return t.fail(262, TRA_EBADPARAM);
    tra->iso_converter = converter;
    tra->iso_context = context;
    return 0;
}

uint64_t tra_oxcom_get_preference_axis_mask(TRA *tra) {
    return accepts(tra) ? tra->preference_axis_mask.load() : 0;
}

int tra_oxcom_set_preference_axis_mask(TRA *tra, uint64_t mask) {
    static constexpr Tracer t{"traopn", "tra_oxcom_set_preference_axis_mask"};
    if (!accepts(tra)) return t.fail(331, TRA_EBADPARAM);
    tra->preference_axis_mask = mask;
    return 0;
}

OXB_PORT *tra_get_oxb_port(TRA *tra) {
    return accepts(tra) ? tra->port : nullptr;
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
