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

// Trace lines of one bus-bound creator: the port test, its bus, the present axes, the first
// drive's identity, base creation and the registration of the bus event handler.
struct BusCreateLines {
    int port;
    int bus;
    int present;
    int drive;
    int base;
    int handler;
};

// Creates a translator of `kind` bound to the bus of `port`; the bus event handler reports each
// drive present, before this returns, and every drive that comes or goes later. On failure the
// half-built object is destroyed with tracing suspended and the caller's handle stays null.
int create_on_bus(const Tracer &t, const BusCreateLines &lines, TRA **out, uint32_t kind,
                  OXB_PORT *port, uint32_t flags);

} // namespace ryn::tra
