// The register memory of a simulated drive: per register type a flat array of every index's full
// subindex count of elements, their limits from the dictionary, the defaults and the saved copy.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "ryn/vok.h"

namespace ryn::sim {

// What the dictionary says of one element, kept beside its value so that writes need no lookup.
struct ElementLimits {
    uint64_t min = 0; // raw bounds in the type's value class
    uint64_t max = 0;
    int32_t enumeration = 0; // 0: none
    uint8_t flags = 0;       // ELEMENT_*
};
inline constexpr uint8_t ELEMENT_WRITABLE = 1; // assignments may change it
inline constexpr uint8_t ELEMENT_BOUNDED = 2;  // it has a range

// One register type (a kind word with its value class): `count` indexes of `subcount` elements,
// element (index, subindex) at index * subcount + subindex.
struct TypeMemory {
    uint32_t kind = 0;
    uint32_t count = 0;
    uint32_t subcount = 0;
    bool whole_writable = false;  // the type may be assigned as a whole (index 0xFFFE)
    std::vector<uint16_t> length; // per index: the register's own element count, 0 in a gap
    std::vector<ElementLimits> limits;
    std::vector<uint64_t> values, saved, defaults;

    std::size_t at(uint32_t index, uint32_t subindex) const {
        return std::size_t{index} * subcount + subindex;
    }
};

// Where an element lies: in a register's own elements, among the elements that every index holds
// up to the type's subindex count (they read 0 and refuse writes), or nowhere.
enum class Place { none, held, own };

struct Element {
    Place place = Place::none;
    uint64_t *value = nullptr;             // own elements only
    const ElementLimits *limits = nullptr; // own elements only
};

class Memory {
  public:
    // Builds every type of the dictionary with its defaults (the saved copy too). Throws
    // std::bad_alloc.
    void build(const VOK_DICT *dict);

    const TypeMemory *type(uint32_t kind) const {
        return kind < types_.size() ? types_[kind].get() : nullptr;
    }
    TypeMemory *type(uint32_t kind) { return kind < types_.size() ? types_[kind].get() : nullptr; }

    // The element of register type `kind`, index and subindex.
    Element find(uint32_t kind, uint32_t index, uint32_t subindex) {
        const Location l = locate(kind, index, subindex);
        if (l.place != Place::own) return {l.place, nullptr, nullptr};
        if (l.type == nullptr) return {Place::own, &accumulator_, &accumulator_limits_};
        TypeMemory *t = types_[kind].get();
        return {Place::own, &t->values[l.offset], &t->limits[l.offset]};
    }
    // A read of an element: its value, 0 for a held one; false when there is none.
    bool read(uint32_t kind, uint32_t index, uint32_t subindex, uint64_t *raw) const {
        const Location l = locate(kind, index, subindex);
        if (l.place == Place::none) return false;
        *raw = l.place == Place::held ? 0
               : l.type == nullptr    ? accumulator_
                                      : l.type->values[l.offset];
        return true;
    }
    // Sets an own element without any check (identity and status registers, direct writes).
    bool set(uint32_t kind, uint32_t index, uint32_t subindex, uint64_t raw) {
        const Element e = find(kind, index, subindex);
        if (e.place != Place::own) return false;
        *e.value = raw;
        return true;
    }

    // SAV of the register types whose type code (kind & 31) is `code`, or of all types for -1.
    void save(int code);
    // RST: every type back to its saved copy.
    void restore();
    // Back to the defaults, the saved copy included.
    void reset();

    static constexpr uint32_t ACCUMULATOR_KIND = 1;
    static constexpr uint32_t ACCUMULATOR_INDEX = 65535;

  private:
    // An element's place; an own element with no type is the accumulator.
    struct Location {
        Place place = Place::none;
        const TypeMemory *type = nullptr;
        std::size_t offset = 0;
    };
    Location locate(uint32_t kind, uint32_t index, uint32_t subindex) const {
        if (kind == ACCUMULATOR_KIND && index == ACCUMULATOR_INDEX && has_accumulator_)
            return subindex == 0 ? Location{Place::own, nullptr, 0} : Location{};
        const TypeMemory *t = type(kind);
        if (t == nullptr || index >= t->count || subindex >= t->subcount) return {};
        const uint32_t own = t->length[index];
        if (own == 0) return {};
        if (subindex >= own) return {Place::held, t, 0};
        return {Place::own, t, t->at(index, subindex)};
    }

    std::array<std::unique_ptr<TypeMemory>, VOK_TYPE_COUNT> types_;
    // The accumulator XAC (X index 65535) sits outside the numbered user variables.
    bool has_accumulator_ = false;
    uint64_t accumulator_ = 0, accumulator_saved_ = 0;
    ElementLimits accumulator_limits_{0, 0, 0, ELEMENT_WRITABLE};
};

} // namespace ryn::sim
