// Dictionary queries: products, names, registers, commands, limits and enumerations.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "ryn/sup.h"
#include "ryn/vok.h"
#include "vokmodel.hpp"

using namespace ryn::vok;

namespace {

const Model *model(const VOK_DICT *d) {
    return d ? d->dict.model : nullptr;
}

// The accumulator XAC: X index 65535, outside the numbered user variables, on every dictionary
// that has user variables. It is writable, without range, and has no alias of its own.
const Register *accumulator() {
    static const Register acc = [] {
        Register r;
        r.kind = 1;
        r.index = 65535;
        r.description = "Accumulator";
        r.elements.resize(1);
        return r;
    }();
    return &acc;
}

const Register *reg(const VOK_DICT *d, uint32_t kind, uint32_t index) {
    const Model *m = model(d);
    if (m == nullptr || kind >= kTypeCount) return nullptr;
    const auto &t = m->types[kind];
    if (index < t.regs.size() && t.regs[index] != nullptr) return t.regs[index];
    if (kind == 1 && index == 65535 && !t.regs.empty()) return accumulator();
    return t.present ? m->family->types[kind].address_register : nullptr;
}

const Element *elem(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t sub) {
    const Register *r = reg(d, kind, index);
    return r && sub < r->elements.size() ? &r->elements[sub] : nullptr;
}

const Command *cmd(const VOK_DICT *d, uint32_t c) {
    const Model *m = model(d);
    return m && c < kCommandCount ? m->commands[c] : nullptr;
}

const Param *param(const VOK_DICT *d, uint32_t c, int pos) {
    const Command *x = cmd(d, c);
    return x && pos >= 0 && size_t(pos) < x->params.size() ? &x->params[size_t(pos)] : nullptr;
}

const Enumeration *enumeration(const VOK_DICT *d, int id) {
    const Model *m = model(d);
    if (m == nullptr) return nullptr;
    auto it = m->family->enums.find(id);
    return it == m->family->enums.end() ? nullptr : &it->second;
}

const EnumEntry *entry_of(const VOK_DICT *d, int id, int entry) {
    const Enumeration *e = enumeration(d, id);
    return e && entry >= 0 && size_t(entry) < e->entries.size() ? &e->entries[size_t(entry)]
                                                                : nullptr;
}

const Product *product(uint32_t code) {
    const Family &f = active_family();
    auto it = f.products.find(code);
    return it == f.products.end() ? nullptr : &it->second;
}

// The views of a value: integer views of floating values are truncated, float views rounded.
int32_t as_int32(const Value &v) {
    return static_cast<int32_t>(static_cast<uint32_t>(v.i));
}
int64_t as_int64(const Value &v) {
    return v.i;
}
float as_float(const Value &v) {
    return static_cast<float>(v.d);
}
double as_double(const Value &v) {
    return v.d;
}

// Command numbers of assignments and register operators: their comment is the register's text.
bool is_assignment(uint32_t c) {
    using namespace ryn::wire;
    const auto cmd = static_cast<int32_t>(c);
    return is_register_write(cmd) || cmd == CMD_CONVERT || cmd == CMD_STEP || cmd == CMD_STEP_ADD ||
           cmd == CMD_STEP_SUBTRACT || cmd == CMD_ELEMENT_ASSIGN;
}

const char *text(int form, const char *name, const char *description) {
    return form == 1 ? name : form == 2 ? description : nullptr;
}

} // namespace

extern "C" {

// ---- Products and versions ----

uint32_t vok_get_default_version(uint32_t p) {
    const Product *x = product(p);
    return x && !x->reserved ? x->default_version : 0;
}

int vok_is_known_version(uint32_t p, uint32_t version) {
    const Product *x = product(p);
    return x && x->find(version) ? 1 : 0;
}

int vok_is_axis63_product(uint32_t p) {
    const Product *x = product(p);
    return x && x->axis63 ? 1 : 0;
}

uint32_t vok_get_drv_product(const VOK_DICT *d) {
    return d ? d->dict.product : 0;
}
uint32_t vok_get_drv_version(const VOK_DICT *d) {
    return d ? d->dict.version : 0;
}
uint32_t vok_get_ext_product(const VOK_DICT *d) {
    return d ? d->dict.ext_product : 0;
}
uint32_t vok_get_ext_version(const VOK_DICT *d) {
    return d ? d->dict.ext_version : 0;
}

int vok_string_to_version(const char *t, uint32_t *version) {
    if (t == nullptr || version == nullptr) return VOK_EBADPARAM;
    return sup_string_to_version(t, version) == 0 ? 0 : VOK_EBADPARAM;
}

void vok_version_to_string(char *buffer, int size, uint32_t version, const char *title) {
    if (buffer == nullptr || size <= 0) return;
    char v[32];
    sup_version_to_string(v, sizeof v, version);
    if (title != nullptr && title[0] != 0)
        sup_snprintf(buffer, size, "%s %s", title, v);
    else
        sup_snprintf(buffer, size, "%s", v);
}

const char *vok_get_product_name(uint32_t p) {
    const Product *x = product(p);
    return x ? x->name : nullptr;
}

const char *vok_get_ext_product_name(uint32_t code) {
    const Family &f = active_family();
    auto it = f.cards.find(code);
    return it == f.cards.end() ? nullptr : it->second.name;
}

// ---- Names ----

const char *vok_get_type_name(const VOK_DICT *d, int form, uint32_t type) {
    const Model *m = model(d);
    if (m == nullptr || type >= kTypeCount) return nullptr;
    const TypeInfo &t = m->family->types[type];
    return text(form, t.name, t.description);
}

const char *vok_get_register_name(const VOK_DICT *d, int form, uint32_t type, uint32_t index,
                                  uint32_t) {
    const Register *r = reg(d, type, index);
    return r ? text(form, r->alias, r->description) : nullptr;
}

const char *vok_get_command_name(const VOK_DICT *d, int form, uint32_t c) {
    const Command *x = cmd(d, c);
    return x ? text(form, x->name, x->description) : nullptr;
}

const char *vok_get_command_comment(const VOK_DICT *d, int form, uint32_t c, uint32_t type,
                                    uint32_t index, uint32_t subindex) {
    if (is_assignment(c)) return vok_get_register_name(d, form, type, index, subindex);
    return vok_get_command_name(d, form, c);
}

// ---- Register types, registers and elements ----

int vok_get_dictionary_class(const VOK_DICT *d) {
    const Model *m = model(d);
    return m ? m->dictionary_class : 0;
}

int vok_register_exists(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t sub) {
    return elem(d, kind, index, sub) ? 1 : 0;
}

int vok_register_writable(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t sub) {
    const Element *e = elem(d, kind, index, sub);
    if (e == nullptr || model(d)->family->types[kind].readonly) return 0;
    return (e->flags & kReadOnly) ? 0 : 1;
}

int vok_register_type_writable(const VOK_DICT *d, uint32_t kind) {
    const Model *m = model(d);
    if (m == nullptr || kind >= kTypeCount) return 0;
    const TypeInfo &t = m->family->types[kind];
    return m->types[kind].present && t.whole_writable && !t.readonly ? 1 : 0;
}

int vok_get_register_format(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t) {
    const Register *r = reg(d, kind, index);
    return r ? r->format : VOK_FORMAT_DECIMAL;
}

int vok_get_register_length(const VOK_DICT *d, uint32_t kind, uint32_t index) {
    const Register *r = reg(d, kind, index);
    return r ? static_cast<int>(r->elements.size()) : 0;
}

int vok_is_vector_kind(uint32_t kind) {
    return type_code(kind) == kVectorType || type_code(kind) == kMatrixType ? 1 : 0;
}

int vok_get_register_count(const VOK_DICT *d, uint32_t type) {
    const Model *m = model(d);
    return m && type < kTypeCount ? static_cast<int>(m->types[type].regs.size()) : 0;
}

int vok_type_is_hidden(const VOK_DICT *d, uint32_t type) {
    const Model *m = model(d);
    return m && type < kTypeCount && m->family->types[type].hidden ? 1 : 0;
}

int vok_test_register(const VOK_DICT *d, uint32_t type, uint32_t index, uint32_t sub) {
    const Element *e = elem(d, type, index, sub);
    if (e == nullptr) return 0;
    const TypeInfo &t = model(d)->family->types[type];
    if (t.hidden || t.readonly) return 0;
    return (e->flags & (kReadOnly | kReserved | kFactory)) ? 0 : 1;
}

int vok_type_exists(const VOK_DICT *d, uint32_t type) {
    const Model *m = model(d);
    return m && type < kTypeCount && m->types[type].present ? 1 : 0;
}

int vok_get_subindex_count(const VOK_DICT *d, uint32_t type) {
    const Model *m = model(d);
    return m && type < kTypeCount ? static_cast<int>(m->types[type].subindex_count) : 0;
}

int vok_index_exists(const VOK_DICT *d, uint32_t type, uint32_t index) {
    return reg(d, type, index) ? 1 : 0;
}

int vok_register_is_iso(const VOK_DICT *d, uint32_t type, uint32_t index, uint32_t sub) {
    return elem(d, type, index, sub) && reg(d, type, index)->iso ? 1 : 0;
}

int vok_element_is_reserved(const VOK_DICT *d, uint32_t type, uint32_t index, uint32_t sub) {
    const Element *e = elem(d, type, index, sub);
    return e && (e->flags & kReserved) ? 1 : 0;
}

const char *vok_get_register_class(const VOK_DICT *d, int, uint32_t type, uint32_t index) {
    const Register *r = reg(d, type, index);
    return r ? r->cls : nullptr;
}

int vok_get_register_columns(const VOK_DICT *d, uint32_t kind, uint32_t index) {
    const Register *r = reg(d, kind, index);
    return r ? static_cast<int>(r->columns) : 0;
}

int vok_get_register_rows(const VOK_DICT *d, uint32_t kind, uint32_t index) {
    const Register *r = reg(d, kind, index);
    return r ? static_cast<int>(r->rows) : 0;
}

// ---- Commands and parameters ----

int vok_command_exists(const VOK_DICT *d, uint32_t c) {
    return cmd(d, c) ? 1 : 0;
}

int vok_get_param_count(const VOK_DICT *d, uint32_t c) {
    const Command *x = cmd(d, c);
    return x ? static_cast<int>(x->params.size()) : 0;
}

uint32_t vok_get_param_kind(const VOK_DICT *d, uint32_t c, int pos) {
    const Param *p = param(d, c, pos);
    return p ? p->kind : 0;
}

int vok_param_is_int32(const VOK_DICT *d, uint32_t c, int pos) {
    const Param *p = param(d, c, pos);
    return p && p->kind == kInt32 ? 1 : 0;
}
int vok_param_is_int64(const VOK_DICT *d, uint32_t c, int pos) {
    const Param *p = param(d, c, pos);
    return p && p->kind == kInt64 ? 1 : 0;
}
int vok_param_is_float(const VOK_DICT *d, uint32_t c, int pos) {
    const Param *p = param(d, c, pos);
    return p && p->kind == kFloat ? 1 : 0;
}
int vok_param_is_double(const VOK_DICT *d, uint32_t c, int pos) {
    const Param *p = param(d, c, pos);
    return p && p->kind == kDouble ? 1 : 0;
}

#define PARAM_BOUND(name, type, field, view)                                                       \
    type name(const VOK_DICT *d, uint32_t c, int pos) {                                            \
        const Param *p = param(d, c, pos);                                                         \
        return p ? view(p->field) : type{};                                                        \
    }
PARAM_BOUND(vok_get_param_min_int32, int32_t, min, as_int32)
PARAM_BOUND(vok_get_param_max_int32, int32_t, max, as_int32)
PARAM_BOUND(vok_get_param_min_int64, int64_t, min, as_int64)
PARAM_BOUND(vok_get_param_max_int64, int64_t, max, as_int64)
PARAM_BOUND(vok_get_param_min_float, float, min, as_float)
PARAM_BOUND(vok_get_param_max_float, float, max, as_float)
PARAM_BOUND(vok_get_param_min_double, double, min, as_double)
PARAM_BOUND(vok_get_param_max_double, double, max, as_double)
#undef PARAM_BOUND

int vok_find_command(const VOK_DICT *d, uint32_t c, const void *) {
    return cmd(d, c) ? 0 : -1;
}

int vok_param_is_vector(const VOK_DICT *d, uint32_t c, int group) {
    const Param *p = param(d, c, group);
    return p && p->vector ? 1 : 0;
}

int vok_command_has_vector_params(const VOK_DICT *d, uint32_t c) {
    const Command *x = cmd(d, c);
    return x && x->vector_params ? 1 : 0;
}

int vok_get_param_format(const VOK_DICT *d, uint32_t c, int pos) {
    const Param *p = param(d, c, pos);
    return p ? p->format : 0;
}

int vok_get_param_is_iso(const VOK_DICT *d, uint32_t c, int pos) {
    const Param *p = param(d, c, pos);
    return p && p->iso ? 1 : 0;
}

// ---- Value types and limits of registers ----

int vok_reg_is_int32(const VOK_DICT *d, uint32_t kind) {
    return d && kind < kTypeCount && value_class(kind) == kInt32 ? 1 : 0;
}
int vok_reg_is_int64(const VOK_DICT *d, uint32_t kind) {
    return d && kind < kTypeCount && value_class(kind) == kInt64 ? 1 : 0;
}
int vok_reg_is_float(const VOK_DICT *d, uint32_t kind) {
    return d && kind < kTypeCount && value_class(kind) == kFloat ? 1 : 0;
}
int vok_reg_is_double(const VOK_DICT *d, uint32_t kind) {
    return d && kind < kTypeCount && value_class(kind) == kDouble ? 1 : 0;
}

#define REG_VALUE(name, type, field, view)                                                         \
    type name(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t sub) {                    \
        const Element *e = elem(d, kind, index, sub);                                              \
        return e ? view(e->field) : type{};                                                        \
    }
REG_VALUE(vok_get_reg_min_int32, int32_t, min, as_int32)
REG_VALUE(vok_get_reg_max_int32, int32_t, max, as_int32)
REG_VALUE(vok_get_reg_min_int64, int64_t, min, as_int64)
REG_VALUE(vok_get_reg_max_int64, int64_t, max, as_int64)
REG_VALUE(vok_get_reg_min_float, float, min, as_float)
REG_VALUE(vok_get_reg_max_float, float, max, as_float)
REG_VALUE(vok_get_reg_min_double, double, min, as_double)
REG_VALUE(vok_get_reg_max_double, double, max, as_double)
REG_VALUE(vok_get_reg_default_int32, int32_t, def, as_int32)
REG_VALUE(vok_get_reg_default_float, float, def, as_float)
#undef REG_VALUE

uint32_t vok_value_class(uint32_t kind) {
    return value_class(kind);
}

int vok_get_reg_default_raw(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t sub,
                            uint64_t *raw) {
    const Element *e = elem(d, kind, index, sub);
    if (e == nullptr || raw == nullptr) return -1;
    switch (value_class(kind)) {
    case kFloat:
        *raw = std::bit_cast<uint32_t>(as_float(e->def));
        break;
    case kDouble:
        *raw = std::bit_cast<uint64_t>(as_double(e->def));
        break;
    case kInt64:
        *raw = static_cast<uint64_t>(as_int64(e->def));
        break;
    default:
        *raw = static_cast<uint32_t>(as_int32(e->def));
        break;
    }
    return 0;
}

int64_t vok_get_reg_default_int64(const VOK_DICT *d, uint32_t type, uint32_t index, uint32_t sub) {
    const Element *e = elem(d, type, index, sub);
    if (e == nullptr) return 0;
    if (value_class(type) == kDouble) {
        int64_t bits = 0;
        std::memcpy(&bits, &e->def.d, sizeof bits);
        return bits;
    }
    return e->def.i;
}

// ---- Enumerations ----

int vok_get_reg_enum(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t sub) {
    const Element *e = elem(d, kind, index, sub);
    return e ? e->enumeration : 0;
}

int vok_get_param_enum(const VOK_DICT *d, uint32_t c, int pos) {
    const Param *p = param(d, c, pos);
    return p ? p->enumeration : 0;
}

int vok_get_enum_count(const VOK_DICT *d, int id) {
    const Enumeration *e = enumeration(d, id);
    return e ? static_cast<int>(e->entries.size()) : 0;
}

int vok_enum_entry_for_reg(const VOK_DICT *d, int entry, uint32_t kind, uint32_t index,
                           uint32_t sub) {
    const EnumEntry *e = entry_of(d, vok_get_reg_enum(d, kind, index, sub), entry);
    if (e == nullptr) return 0;
    if (e->registers.empty() && e->params.empty()) return 1;
    return std::binary_search(e->registers.begin(), e->registers.end(), reg_key(kind, index)) ? 1
                                                                                              : 0;
}

int vok_enum_entry_for_param(const VOK_DICT *d, int entry, uint32_t c, int pos) {
    const EnumEntry *e = entry_of(d, vok_get_param_enum(d, c, pos), entry);
    if (e == nullptr || pos < 0) return 0;
    if (e->registers.empty() && e->params.empty()) return 1;
    return std::binary_search(e->params.begin(), e->params.end(), c << 8 | uint32_t(pos)) ? 1 : 0;
}

int vok_get_enum_entry_parent(const VOK_DICT *d, int id, int entry) {
    const EnumEntry *e = entry_of(d, id, entry);
    return e ? e->parent : -1;
}

int vok_enum_entry_is_mask(const VOK_DICT *d, int id, int entry) {
    const EnumEntry *e = entry_of(d, id, entry);
    return e && e->mask ? 1 : 0;
}

const char *vok_get_enum_entry_name(const VOK_DICT *d, int id, int entry) {
    const EnumEntry *e = entry_of(d, id, entry);
    return e ? e->name : nullptr;
}

const char *vok_get_enum_name(const VOK_DICT *d, int id) {
    const Enumeration *e = enumeration(d, id);
    return e ? e->name : nullptr;
}

#define ENUM_VALUE(name, type, view)                                                               \
    type name(const VOK_DICT *d, int id, int entry) {                                              \
        const EnumEntry *e = entry_of(d, id, entry);                                               \
        return e ? view(e->value) : type{};                                                        \
    }
ENUM_VALUE(vok_get_enum_value_int32, int32_t, as_int32)
ENUM_VALUE(vok_get_enum_value_int64, int64_t, as_int64)
ENUM_VALUE(vok_get_enum_value_float, float, as_float)
ENUM_VALUE(vok_get_enum_value_double, double, as_double)
#undef ENUM_VALUE

} // extern "C"
