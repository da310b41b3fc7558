// Stand-in for the dictionary library until its model lands: no dictionary can be opened yet.
#include "ryn/vok.h"

extern "C" {
void vok_close(VOK_DICT **dict) {
    if (dict != nullptr) *dict = nullptr;
}
uint32_t vok_get_drv_product(const VOK_DICT *) { return 0; }
uint32_t vok_get_drv_version(const VOK_DICT *) { return 0; }
uint32_t vok_get_ext_product(const VOK_DICT *) { return 0; }
uint32_t vok_get_ext_version(const VOK_DICT *) { return 0; }
}
