// Creation of offline translators for named drive configurations, shared by both translator roles.
#include "tracreate.hpp"

#include <bit>
#include <cstddef>

#include "tralkt.hpp"

namespace ryn::tra {

int create_offline(const Tracer &t, const CreateLines &lines, TRA **out, uint32_t kind,
                   uint32_t flags, const Configuration &first, const Configuration *axis63) {
    int rc = _tra_create_base(out, first.product, axis63 ? axis63->product : 0, flags, kind);
    if (rc != 0) return t.pass(lines.base, rc);
    TRA *tra = *out;
    auto fail = [&](int line, int code) {
        t.pass(line, code);
        suspended([&] { tra_destroy(out); });
        return code;
    };
    rc = guarded(t, lines.first, [&] {
        TRA_TD *td = nullptr;
        int status = _tra_get_td(tra, &td, first.product, first.version, first.ext_product,
                                 first.ext_version, 1);
        if (status != 0) return fail(lines.first, status);
        TRA_TD *td63 = td;
        if (axis63 != nullptr) {
            status = _tra_get_td(tra, &td63, axis63->product, axis63->version, axis63->ext_product,
                                 axis63->ext_version, 1);
            if (status != 0) return fail(lines.second, status);
        }
        for (int axis = 0; axis < AXES - 1; ++axis)
            tra->axis_sets[static_cast<std::size_t>(axis)] = td;
        tra->axis_sets[AXES - 1] = td63;
        return 0;
    });
    // A failure thrown half-way leaves no half-built translator behind either.
    if (rc != 0 && *out != nullptr) suspended([&] { tra_destroy(out); });
    return rc;
}

int create_on_bus(const Tracer &t, const BusCreateLines &lines, TRA **out, uint32_t kind,
                  OXB_PORT *port, uint32_t flags) {
    wire::DriveInfo info{};
    wire::store_u32(reinterpret_cast<uint8_t *>(&info), sizeof info);
    if (oxb_port_is_valid(port) == 0) return t.fail(lines.port, TRA_EBADPARAM);
    OXB_BUS *bus = nullptr;
    if (oxb_get_port_bus(port, &bus) != 0) return t.fail(lines.bus, TRA_EBADPARAM);
    // The identity of the first present drive that answers: a drive that the bus's view counts
    // as present may have left already (over tcp the view follows the server's events); without
    // any, the translator starts as on a bus without drives.
    uint64_t present = 0;
    if (oxb_get_present_axes(bus, &present) != 0) return t.convert(lines.present, TRA_EBADPARAM);
    for (; present != 0; present &= present - 1) {
        const int rc = oxb_get_drive_info(bus, std::countr_zero(present), &info);
        if (rc == 0) break;
        if (rc != OXB_ENODRIVE) return t.convert(lines.drive, TRA_EBADPARAM);
        wire::store_u32(reinterpret_cast<uint8_t *>(&info) + offsetof(wire::DriveInfo, product), 0);
    }
    const uint32_t product = wire::load_u32(reinterpret_cast<const uint8_t *>(&info) +
                                            offsetof(wire::DriveInfo, product));
    int rc = _tra_create_base(out, product, 0, flags, kind);
    if (rc != 0) return t.pass(lines.base, rc);
    TRA *tra = *out;
    tra->bus = bus;
    tra->port = port;
    if (oxb_register_handler(bus, tra, ~uint64_t(0), 0, 0, OXB_EVENT_DRIVES, _tra_bus_event, tra) !=
        0) {
        t.fail(lines.handler, TRA_EINTERNAL);
        suspended([&] { tra_destroy(out); });
        return TRA_EINTERNAL;
    }
    return 0;
}

} // namespace ryn::tra
