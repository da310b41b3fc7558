// A dictionary opened for one test and closed again.
#pragma once

#include "ryn/vok.h"

struct Dict {
    VOK_DICT *d = nullptr;
    int rc = 0;
    Dict(uint32_t p, uint32_t v, uint32_t e = 0, uint32_t ev = 0) : rc(vok_open(&d, p, v, e, ev)) {}
    ~Dict() { vok_close(&d); }
    operator const VOK_DICT *() const { return d; }
};
