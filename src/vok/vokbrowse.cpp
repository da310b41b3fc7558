// Browsing: lists of products, versions and cards, and walking a dictionary by index and by name.
#include <algorithm>

#include "ryn/vok.h"
#include "vokmodel.hpp"

using namespace ryn::vok;

namespace {

const Product *product(uint32_t code) {
    const Family &f = active_family();
    auto it = f.products.find(code);
    return it == f.products.end() ? nullptr : &it->second;
}

const Card *card(uint32_t code) {
    const Family &f = active_family();
    auto it = f.cards.find(code);
    return it == f.cards.end() ? nullptr : &it->second;
}

uint32_t at(const std::vector<uint32_t> &list, int i) {
    return i >= 0 && size_t(i) < list.size() ? list[size_t(i)] : 0;
}

template <typename List>
auto find_name(const List &list, const char *name) {
    auto it = std::lower_bound(list.begin(), list.end(), name,
                               [](const auto &e, const char *n) { return name_less(e.first, n); });
    return it != list.end() && !name_less(name, it->first) ? it : list.end();
}

const Param *param(const VOK_DICT *d, uint32_t c, int pos) {
    if (d == nullptr || c >= kCommandCount) return nullptr;
    const Command *x = d->dict.model->commands[c];
    return x && pos >= 0 && size_t(pos) < x->params.size() ? &x->params[size_t(pos)] : nullptr;
}

} // namespace

extern "C" {

const char *vok_get_family_name(void) {
    return active_family().name.c_str();
}

int vok_get_product_count(void) {
    return static_cast<int>(active_family().product_codes.size());
}

uint32_t vok_get_product_code(int i) {
    return at(active_family().product_codes, i);
}

const char *vok_get_product_description(uint32_t code) {
    const Product *p = product(code);
    return p ? p->description : nullptr;
}

int vok_is_reserved_product(uint32_t code) {
    const Product *p = product(code);
    return p && p->reserved ? 1 : 0;
}

int vok_get_product_version_count(uint32_t code) {
    const Product *p = product(code);
    return p ? static_cast<int>(p->versions.size()) : 0;
}

uint32_t vok_get_product_version(uint32_t code, int i) {
    const Product *p = product(code);
    return p && i >= 0 && size_t(i) < p->versions.size() ? p->versions[size_t(i)].version : 0;
}

int vok_get_ext_product_count(void) {
    return static_cast<int>(active_family().card_codes.size());
}

uint32_t vok_get_ext_product_code(int i) {
    return at(active_family().card_codes, i);
}

const char *vok_get_ext_product_description(uint32_t code) {
    const Card *c = card(code);
    return c ? c->description : nullptr;
}

int vok_get_ext_product_version_count(uint32_t code) {
    const Card *c = card(code);
    return c ? static_cast<int>(c->versions.size()) : 0;
}

uint32_t vok_get_ext_product_version(uint32_t code, int i) {
    const Card *c = card(code);
    return c && i >= 0 && size_t(i) < c->versions.size() ? c->versions[size_t(i)].version : 0;
}

uint32_t vok_get_ext_product_default_version(uint32_t code) {
    const Card *c = card(code);
    return c ? c->default_version : 0;
}

int vok_ext_fits_product(uint32_t code, uint32_t product_code) {
    const Card *c = card(code);
    return c && std::binary_search(c->fits.begin(), c->fits.end(), product_code) ? 1 : 0;
}

int32_t vok_get_next_index(const VOK_DICT *d, uint32_t type, uint32_t from) {
    if (d == nullptr || type >= kTypeCount) return -1;
    const auto &list = d->dict.model->types[type].indexes;
    auto it = std::lower_bound(list.begin(), list.end(), from);
    return it == list.end() ? -1 : static_cast<int32_t>(*it);
}

int32_t vok_get_next_command(const VOK_DICT *d, uint32_t from) {
    if (d == nullptr) return -1;
    const auto &list = d->dict.model->command_numbers;
    auto it = std::lower_bound(list.begin(), list.end(), from);
    return it == list.end() ? -1 : static_cast<int32_t>(*it);
}

int vok_find_register_alias(const VOK_DICT *d, const char *alias, uint32_t *kind, uint32_t *index) {
    if (d == nullptr || alias == nullptr || alias[0] == 0) return -1;
    const auto &list = d->dict.model->aliases;
    auto it = find_name(list, alias);
    if (it == list.end()) return -1;
    if (kind) *kind = it->second >> 16;
    if (index) *index = it->second & 0xFFFFu;
    return 0;
}

int32_t vok_find_command_name(const VOK_DICT *d, const char *name) {
    if (d == nullptr || name == nullptr || name[0] == 0) return -1;
    const auto &list = d->dict.model->command_names;
    auto it = find_name(list, name);
    return it == list.end() ? -1 : static_cast<int32_t>(it->second);
}

const char *vok_get_param_name(const VOK_DICT *d, uint32_t c, int pos) {
    const Param *p = param(d, c, pos);
    return p ? p->name : nullptr;
}

int vok_get_register_iso_unit(const VOK_DICT *d, uint32_t kind, uint32_t index) {
    if (d == nullptr || kind >= kTypeCount) return 0;
    const auto &regs = d->dict.model->types[kind].regs;
    return index < regs.size() && regs[index] ? regs[index]->iso_unit : 0;
}

int vok_get_param_iso_unit(const VOK_DICT *d, uint32_t c, int pos) {
    const Param *p = param(d, c, pos);
    return p ? p->iso_unit : 0;
}

const char *vok_get_enum_entry_description(const VOK_DICT *d, int id, int entry) {
    if (d == nullptr) return nullptr;
    const auto &enums = d->dict.model->family->enums;
    auto it = enums.find(id);
    if (it == enums.end() || entry < 0 || size_t(entry) >= it->second.entries.size())
        return nullptr;
    return it->second.entries[size_t(entry)].description;
}

} // extern "C"
