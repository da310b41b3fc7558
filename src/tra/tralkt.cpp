// Dictionary sets of a translator and its lookup tables of register aliases and command names.
#include "tralkt.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <unordered_map>

namespace ryn::tra {

namespace {

constexpr uint64_t ALL_AXES = ~uint64_t(0);
constexpr uint64_t AXIS_63 = uint64_t(1) << 63;

bool name_less(const LookupEntry &a, const LookupEntry &b) {
    return _tra_name_compare(&a.name, &b.name) < 0;
}

// Position of a name among the first `sorted` entries of a table, or -1.
std::ptrdiff_t search(const std::vector<LookupEntry> &table, std::size_t sorted, const char *name) {
    auto end = table.begin() + static_cast<std::ptrdiff_t>(sorted);
    auto it = std::lower_bound(table.begin(), end, name, [](const LookupEntry &e, const char *n) {
        return _tra_name_compare(&e.name, &n) < 0;
    });
    if (it == end || _tra_name_compare(&it->name, &name) != 0) return -1;
    return it - table.begin();
}

void sort_table(std::vector<LookupEntry> &table) {
    std::stable_sort(table.begin(), table.end(), name_less);
}

// A name as one dictionary gives it: register alias (type, index) or command name (index).
struct Named {
    const char *name;
    uint32_t type;
    uint32_t index;
};

bool usable(const char *name) {
    return name != nullptr && name[0] != '\0';
}

// The register aliases of a dictionary in walking order: types ascending, indexes descending.
std::vector<Named> register_names(const VOK_DICT *d) {
    std::vector<Named> names;
    for (uint32_t t = 0; t < VOK_TYPE_COUNT; ++t) {
        if (vok_type_is_hidden(d, t)) continue;
        for (int i = vok_get_register_count(d, t) - 1; i >= 0; --i) {
            const char *name = vok_get_register_name(d, 1, t, static_cast<uint32_t>(i), 0);
            if (usable(name)) names.push_back({name, t, static_cast<uint32_t>(i)});
        }
    }
    return names;
}

// The command names of a dictionary in ascending command order.
std::vector<Named> command_names(const VOK_DICT *d) {
    std::vector<Named> names;
    for (uint32_t c = 0; c < VOK_COMMAND_COUNT; ++c) {
        const char *name = vok_get_command_name(d, 1, c);
        if (usable(name)) names.push_back({name, COMMAND_TYPE, c});
    }
    return names;
}

// The generic pass of one product: every name of the product, marked with the product's class.
// Names the product adds are not searched again within the product.
void generic_pass(std::vector<LookupEntry> &table, const std::vector<Named> &names, bool axis63,
                  bool commands) {
    std::size_t sorted = table.size();
    for (const Named &n : names) {
        std::ptrdiff_t at = search(table, sorted, n.name);
        if (at < 0) {
            table.push_back({n.name, n.index, n.type, 0, uint8_t(axis63), uint8_t(!axis63)});
            continue;
        }
        LookupEntry &e = table[static_cast<std::size_t>(at)];
        if (axis63) {
            e.drive_class_only = 0;
        } else {
            if (commands && e.index != n.index)
                _tra_printf("Error COMMAND ALIAS %s defined with another index (Old index %d new "
                            "index %d)\n",
                            n.name, static_cast<int>(e.index), static_cast<int>(n.index));
            e.product_class_only = 0;
        }
    }
    sort_table(table);
}

// The per-axis pass of one axis: the axis's bit on every name its dictionary defines. A name
// that means something else on this axis is reported; only axis 63 may take the new meaning, and
// only for a name that no drive product has defined.
void axis_pass(std::vector<LookupEntry> &table, const std::vector<Named> &names, int axis,
               bool commands) {
    const uint64_t bit = uint64_t(1) << axis;
    std::size_t sorted = table.size();
    for (const Named &n : names) {
        std::ptrdiff_t at = search(table, sorted, n.name);
        if (at < 0) {
            table.push_back({n.name, n.index, n.type, bit, 0, 0});
            continue;
        }
        LookupEntry &e = table[static_cast<std::size_t>(at)];
        if (e.type != n.type || e.index != n.index) {
            bool update = axis == 63 && e.product_class_only != 0;
            if (commands)
                _tra_printf("Error COMMAND ALIAS %s defined with another index (Old index %d new "
                            "index %d)%s\n",
                            n.name, static_cast<int>(e.index), static_cast<int>(n.index),
                            update ? " Update index with new one" : "");
            else
                _tra_printf("Error REGISTER ALIAS %s defined with another typ/index (Old typ/index "
                            "%d/%d new typ/index %d/%d)%s\n",
                            n.name, static_cast<int>(e.type), static_cast<int>(e.index),
                            static_cast<int>(n.type), static_cast<int>(n.index),
                            update ? ". Update typ/index with new one" : "");
            if (update) {
                e.type = n.type;
                e.index = n.index;
            }
        }
        e.axes |= bit;
    }
    sort_table(table);
}

// Names are accepted on every axis where no drive is present: axis 63 only for names of the
// axis-63 class, the other axes only for names of drives.
void add_absent_axes(std::vector<LookupEntry> &table, uint64_t present) {
    const uint64_t absent = ~present;
    for (LookupEntry &e : table) {
        if (e.product_class_only != 0)
            e.axes |= absent & AXIS_63;
        else if (e.drive_class_only != 0)
            e.axes |= absent & ~AXIS_63;
        else
            e.axes |= absent;
    }
}

// Both generic passes of one table over the generic products, with their trace lines.
int build_generic(std::vector<LookupEntry> &table, bool commands, const Tracer &t,
                  const VokLines &lines) {
    for (uint32_t p : GENERIC_PRODUCTS) {
        uint32_t version = vok_get_default_version(p);
        if (version == 0) continue;
        VOK_DICT *h = nullptr;
        int rc = vok_open(&h, p, version, VOK_DRIVE_ONLY, 0);
        // Closed however the pass ends, an allocation that fails in it included.
        const std::unique_ptr<VOK_DICT *, void (*)(VOK_DICT **)> closer(&h, vok_close);
        if (rc != 0) return convert_vok(t, lines, rc);
        generic_pass(table, commands ? command_names(h) : register_names(h),
                     vok_is_axis63_product(p) != 0, commands);
    }
    return 0;
}

// The per-axis passes of one table; the names of a dictionary are read once and reused for every
// axis that shares it.
void build_axes(TRA *tra, std::vector<LookupEntry> &table, bool commands) {
    std::unordered_map<const VOK_DICT *, std::vector<Named>> names;
    for (int axis = 0; axis < AXES; ++axis) {
        const VOK_DICT *d = tra->axis_dicts[static_cast<std::size_t>(axis)];
        if (d == nullptr) continue;
        auto [it, fresh] = names.try_emplace(d);
        if (fresh) it->second = commands ? command_names(d) : register_names(d);
        axis_pass(table, it->second, axis, commands);
    }
}

} // namespace

int _tra_get_td(TRA *tra, TRA_TD **out, uint32_t product, uint32_t version, uint32_t ext_product,
                uint32_t ext_version, uint8_t strict) {
    static constexpr Tracer t{"tralkt", "_tra_get_td"};
    static constexpr VokLines lines{151, 143, 147, 139, 155, 159, 163};
    std::unique_lock lock(tra->td_lock);
    for (TRA_TD *td : tra->tds) {
        if (vok_get_drv_product(td->full) == product && vok_get_drv_version(td->full) == version &&
            vok_get_ext_product(td->full) == ext_product &&
            vok_get_ext_version(td->full) == ext_version) {
            if (out != nullptr) *out = td;
            return 0;
        }
    }
    TRA_TD *td = new (std::nothrow) TRA_TD{};
    if (td == nullptr) return t.fail(__LINE__, TRA_ESYSTEM);
    auto discard = [&] {
        vok_close(&td->full);
        vok_close(&td->drive_only);
        delete td;
    };

    const uint32_t kind = tra->kind;
    int rc = 0;
    if (kind == KIND_REGISTER_OFFLINE || kind == KIND_DIRECT_OFFLINE)
        rc = vok_open_offline(&td->full, 0, product, version, ext_product, ext_version);
    if (rc == 0) {
        td->version_replaced = vok_is_known_version(product, version) ? 0 : 1;
        if (td->version_replaced) {
            if ((tra->flags & TRA_FACCEPT_UNKNOWN_VERSION) == 0 && strict != 0) {
                discard();
                lock.unlock();
                return t.fail(118, TRA_EBADDRVVER);
            }
            version = vok_get_default_version(product);
        }
        if (td->full == nullptr)
            rc = vok_open(&td->full, product, version, ext_product, ext_version);
        if (rc == 0) rc = vok_open(&td->drive_only, product, version, VOK_DRIVE_ONLY, 0);
    }
    if (rc != 0) {
        discard();
        lock.unlock();
        return convert_vok(t, lines, rc);
    }
    try {
        tra->tds.push_back(td);
    } catch (const std::bad_alloc &) {
        discard();
        lock.unlock();
        return t.fail(__LINE__, TRA_ESYSTEM);
    }
    if (out != nullptr) *out = td;
    return 0;
}

void _tra_free_tds(TRA *tra) {
    std::lock_guard lock(tra->td_lock);
    for (TRA_TD *td : tra->tds) {
        vok_close(&td->full);
        vok_close(&td->drive_only);
        delete td;
    }
    tra->tds.clear();
    for (auto &set : tra->axis_sets)
        set = nullptr;
}

int _tra_create_lkt(TRA *tra) {
    std::lock_guard lock(tra->lookup_lock);
    return _tra_rebuild_lkt(tra, tra->generation.load(std::memory_order_acquire),
                            tra->flags.load(std::memory_order_acquire));
}

int _tra_rebuild_lkt(TRA *tra, uint64_t generation, uint32_t flags) noexcept {
    static constexpr Tracer t{"tralkt", "_tra_create_lkt"};
    try {
        std::lock_guard lock(tra->lookup_lock);
        tra->registers.clear();
        tra->commands.clear();
        tra->register_aliases.clear();
        tra->command_aliases.clear();

        // Offline every axis counts as present; bus-bound translators ask their bus (a bus that
        // cannot tell counts every axis as absent).
        // A drive counts as present only with its dictionary set: one whose event has not come
        // yet (just attached) or has just taken its set away (just detached) is absent, so that
        // the tables never name a present axis without a dictionary.
        uint64_t present = ALL_AXES;
        if (tra->bus != nullptr && oxb_get_present_axes(tra->bus, &present) != 0) present = 0;
        const bool drive_only = (flags & TRA_FDRIVE_ONLY) != 0;
        for (int axis = 0; axis < AXES; ++axis) {
            const TRA_TD *td = tra->axis_sets[static_cast<std::size_t>(axis)].load();
            tra->axis_dicts[static_cast<std::size_t>(axis)] = td == nullptr ? nullptr
                                                              : drive_only  ? td->drive_only
                                                                            : td->full;
            if (td == nullptr && tra->bus != nullptr) present &= ~(uint64_t{1} << axis);
        }
        tra->present_axes = present;

        tra->registers.reserve(64);
        int rc = build_generic(tra->registers, false, t, {319, 311, 315, 307, 323, 327, 331});
        if (rc != 0) return rc;
        build_axes(tra, tra->registers, false);
        tra->registers.shrink_to_fit();
        add_absent_axes(tra->registers, present);

        tra->commands.reserve(64);
        rc = build_generic(tra->commands, true, t, {531, 523, 527, 519, 535, 539, 543});
        if (rc != 0) return rc;
        build_axes(tra, tra->commands, true);
        tra->commands.shrink_to_fit();
        add_absent_axes(tra->commands, present);

        tra->register_aliases.build(tra->registers);
        tra->command_aliases.build(tra->commands);

        // A type's name is the first non-empty one that an axis dictionary gives, "??" when none;
        // a longer name is cut so that it stays terminated.
        for (uint32_t type = 0; type < VOK_TYPE_COUNT; ++type) {
            char *slot = tra->type_names[type];
            std::snprintf(slot, TYPE_NAME_SIZE, "??");
            const VOK_DICT *last = nullptr;
            for (const VOK_DICT *d : tra->axis_dicts) {
                if (d == nullptr || d == last) continue;
                last = d;
                const char *name = vok_get_type_name(d, 1, type);
                if (usable(name)) {
                    std::snprintf(slot, TYPE_NAME_SIZE, "%s", name);
                    break;
                }
            }
        }
        // Fresh only for the state it was built from: a change since moved the generation on.
        tra->built_generation = generation;
        return 0;
    } catch (...) {
        return t.fail(__LINE__, TRA_ESYSTEM);
    }
}

void AliasIndex::build(const std::vector<LookupEntry> &table) {
    keys_.clear();
    keys_.reserve(table.size());
    for (std::size_t i = 0; i < table.size(); ++i)
        keys_.push_back({table[i].type, table[i].index, static_cast<uint32_t>(i)});
    std::sort(keys_.begin(), keys_.end(), [](const Key &a, const Key &b) {
        if (a.type != b.type) return a.type < b.type;
        if (a.index != b.index) return a.index < b.index;
        return a.position < b.position;
    });
}

const LookupEntry *AliasIndex::find(const std::vector<LookupEntry> &table, uint32_t type,
                                    uint32_t index, uint64_t axes) const {
    auto it = std::lower_bound(keys_.begin(), keys_.end(), Key{type, index, 0},
                               [](const Key &a, const Key &b) {
                                   return a.type != b.type ? a.type < b.type : a.index < b.index;
                               });
    for (; it != keys_.end() && it->type == type && it->index == index; ++it) {
        if (it->position >= table.size()) break;
        const LookupEntry &e = table[it->position];
        if ((e.axes & axes) != 0) return &e;
    }
    return nullptr;
}

const LookupEntry *_tra_find_name(const std::vector<LookupEntry> &table, const char *name) {
    std::ptrdiff_t at = search(table, table.size(), name);
    return at < 0 ? nullptr : &table[static_cast<std::size_t>(at)];
}

} // namespace ryn::tra
