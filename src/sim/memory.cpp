// The register memory of a simulated drive, built from the dictionary's defaults and limits.
#include "sim/memory.hpp"

#include <algorithm>

#include "sim/values.hpp"
#include "wire/wire.hpp"

namespace ryn::sim {

namespace {

// An element's default, minimum and maximum as raw values of its type's class.
struct Bounds {
    uint64_t def, min, max;
};

Bounds bounds_of(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t sub) {
    switch (wire::value_class(kind)) {
    case wire::CLASS_INT32:
        return {static_cast<uint32_t>(vok_get_reg_default_int32(d, kind, index, sub)),
                static_cast<uint32_t>(vok_get_reg_min_int32(d, kind, index, sub)),
                static_cast<uint32_t>(vok_get_reg_max_int32(d, kind, index, sub))};
    case wire::CLASS_FLOAT:
        return {raw_of_float(vok_get_reg_default_float(d, kind, index, sub)),
                raw_of_float(vok_get_reg_min_float(d, kind, index, sub)),
                raw_of_float(vok_get_reg_max_float(d, kind, index, sub))};
    case wire::CLASS_INT64:
        return {static_cast<uint64_t>(vok_get_reg_default_int64(d, kind, index, sub)),
                static_cast<uint64_t>(vok_get_reg_min_int64(d, kind, index, sub)),
                static_cast<uint64_t>(vok_get_reg_max_int64(d, kind, index, sub))};
    default: // the 64-bit default of a double register is the double's bit pattern
        return {static_cast<uint64_t>(vok_get_reg_default_int64(d, kind, index, sub)),
                raw_of_double(vok_get_reg_min_double(d, kind, index, sub)),
                raw_of_double(vok_get_reg_max_double(d, kind, index, sub))};
    }
}

std::unique_ptr<TypeMemory> build_type(const VOK_DICT *d, uint32_t kind) {
    const int count = vok_get_register_count(d, kind);
    const int subcount = vok_get_subindex_count(d, kind);
    if (count <= 0 || subcount <= 0) return nullptr;
    auto t = std::make_unique<TypeMemory>();
    t->kind = kind;
    t->count = static_cast<uint32_t>(count);
    t->subcount = static_cast<uint32_t>(subcount);
    t->whole_writable = vok_register_type_writable(d, kind) != 0;
    const std::size_t size = std::size_t{t->count} * t->subcount;
    t->length.assign(t->count, 0);
    t->limits.assign(size, ElementLimits{});
    t->defaults.assign(size, 0);
    for (uint32_t index = 0; index < t->count; ++index) {
        const int own = std::min(vok_get_register_length(d, kind, index), subcount);
        if (own <= 0) continue;
        t->length[index] = static_cast<uint16_t>(own);
        for (uint32_t sub = 0; sub < static_cast<uint32_t>(own); ++sub) {
            const Bounds b = bounds_of(d, kind, index, sub);
            ElementLimits &l = t->limits[t->at(index, sub)];
            l.min = b.min;
            l.max = b.max;
            l.enumeration = vok_get_reg_enum(d, kind, index, sub);
            l.flags = static_cast<uint8_t>(
                (vok_register_writable(d, kind, index, sub) != 0 ? ELEMENT_WRITABLE : 0) |
                (is_unbounded(b.min, b.max, kind) ? 0 : ELEMENT_BOUNDED));
            t->defaults[t->at(index, sub)] = b.def;
        }
    }
    t->values = t->defaults;
    t->saved = t->defaults;
    return t;
}

} // namespace

void Memory::build(const VOK_DICT *dict) {
    for (uint32_t kind = 0; kind < VOK_TYPE_COUNT; ++kind)
        types_[kind] = vok_type_exists(dict, kind) != 0 ? build_type(dict, kind) : nullptr;
    has_accumulator_ = vok_register_exists(dict, ACCUMULATOR_KIND, ACCUMULATOR_INDEX, 0) != 0;
    accumulator_ = accumulator_saved_ = 0;
}

void Memory::save(int code) {
    for (auto &t : types_)
        if (t != nullptr && (code < 0 || (t->kind & wire::TYPE_CODE_MASK) == uint32_t(code)))
            t->saved = t->values;
    if (code < 0 || uint32_t(code) == ACCUMULATOR_KIND) accumulator_saved_ = accumulator_;
}

void Memory::restore() {
    for (auto &t : types_)
        if (t != nullptr) t->values = t->saved;
    accumulator_ = accumulator_saved_;
}

void Memory::reset() {
    for (auto &t : types_)
        if (t != nullptr) t->values = t->saved = t->defaults;
    accumulator_ = accumulator_saved_ = 0;
}

} // namespace ryn::sim
