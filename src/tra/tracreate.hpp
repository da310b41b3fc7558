// Creation of offline translators for named drive configurations, shared by both translator roles.
#pragma once

#include "traopn.hpp"

namespace ryn::tra {

// Trace lines of one offline creator: base creation, first and (for _o2) axis-63 configuration.
struct CreateLines {
    int base;
    int first;
    int second;
};

// A drive configuration as the creators receive it.
struct Configuration {
    uint32_t product, version, ext_product, ext_version;
};

// Creates an offline translator of `kind` whose 64 axes use `first`, or, when `axis63` is given,
// axes 0..62 `first` and axis 63 `*axis63`. On failure the half-built object is destroyed with
// tracing suspended and the caller's handle stays null.
int create_offline(const Tracer &t, const CreateLines &lines, TRA **out, uint32_t kind,
                   uint32_t flags, const Configuration &first, const Configuration *axis63);

} // namespace ryn::tra
