// Stand-in for the dictionary library until its model lands: no dictionary can be opened yet.
#include "ryn/vok.h"

extern "C" {
void vok_close(VOK_DICT **dict) {
    if (dict != nullptr) *dict = nullptr;
}
uint32_t vok_get_drv_product(const VOK_DICT *) {
    return 0;
}
uint32_t vok_get_drv_version(const VOK_DICT *) {
    return 0;
}
uint32_t vok_get_ext_product(const VOK_DICT *) {
    return 0;
}
uint32_t vok_get_ext_version(const VOK_DICT *) {
    return 0;
}
// Queries of the record-to-text writers: no dictionary is ever open, so nothing is known.
int vok_is_vector_kind(uint32_t kind) {
    return (kind & 31) == 15 || (kind & 31) == 16;
}
int vok_get_register_length(const VOK_DICT *, uint32_t, uint32_t) {
    return 0;
}
int vok_get_register_rows(const VOK_DICT *, uint32_t, uint32_t) {
    return 1;
}
int vok_get_register_columns(const VOK_DICT *, uint32_t, uint32_t) {
    return 1;
}
int vok_register_exists(const VOK_DICT *, uint32_t, uint32_t, uint32_t) {
    return 0;
}
int vok_get_register_format(const VOK_DICT *, uint32_t, uint32_t, uint32_t) {
    return 3;
}
int vok_register_is_iso(const VOK_DICT *, uint32_t, uint32_t, uint32_t) {
    return 0;
}
const char *vok_get_register_name(const VOK_DICT *, int, uint32_t, uint32_t, uint32_t) {
    return nullptr;
}
const char *vok_get_command_name(const VOK_DICT *, int, uint32_t) {
    return nullptr;
}
int vok_command_has_vector_params(const VOK_DICT *, uint32_t) {
    return 0;
}
int vok_param_is_vector(const VOK_DICT *, uint32_t, int) {
    return 0;
}
int vok_get_param_format(const VOK_DICT *, uint32_t, int) {
    return 0;
}
int vok_get_param_is_iso(const VOK_DICT *, uint32_t, int) {
    return 0;
}
}
