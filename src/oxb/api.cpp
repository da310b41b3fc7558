// The exported functions of the bus library: handles checked against the registry, arguments
// checked, then the work handed to the port or the bus; no exception leaves.
#include <cstring>
#include <new>
#include <type_traits>

#include "address.hpp"
#include "errors.hpp"
#include "registry.hpp"
#include "ryn/oxb.h"
#include "ryn/sup.h"
#include "sim_transport.hpp"
#include "tcp_transport.hpp"

namespace ryn::oxb {

namespace {

// Runs an exported call: allocation failure and any other exception become OXB_ESYSTEM.
template <typename F>
int guarded(F &&f) noexcept {
    try {
        return f();
    } catch (const std::bad_alloc &) {
        return OXB_ESYSTEM;
    } catch (...) {
        return OXB_ESYSTEM;
    }
}

// Record kinds a bus carries: register reads, and commands and element assignments of every
// command page, with or without the "!" prefix.
bool known_kind(uint32_t kind) {
    return wire::is_request_kind(kind) ||
           (kind >= wire::REC_BANG_COMMAND && kind <= wire::REC_COMMAND + 56);
}

// Checks the size field of a caller's information record.
bool has_size(const void *info, uint32_t size) {
    return info != nullptr && wire::load_u32(static_cast<const uint8_t *>(info)) == size;
}

// Writes an information record field by field, little-endian.
template <typename Record>
void store_record(void *info, const Record &record) {
    static_assert(sizeof(Record) % 4 == 0);
    uint32_t words[sizeof(Record) / 4];
    std::memcpy(words, &record, sizeof(Record));
    auto *out = static_cast<uint8_t *>(info);
    for (std::size_t i = 0; i < sizeof(Record) / 4; ++i)
        wire::store_u32(out + 4 * i, words[i]);
}

// Fills a drive or card information record of an axis, after checking its size field.
template <typename Record>
int identity_record(OXB_BUS *bus, int axis, void *info) {
    const auto b = Registry::get().bus(bus);
    if (!b) return OXB_EBADBUS;
    if (axis < 0 || axis > 63 || !has_size(info, sizeof(Record))) return OXB_EBADPARAM;
    Record record{};
    int rc;
    if constexpr (std::is_same_v<Record, wire::DriveInfo>)
        rc = b->drive_info(axis, &record);
    else
        rc = b->ext_info(axis, &record);
    if (rc == 0) store_record(info, record);
    return rc;
}

int open_failure(int code, const std::string &message, const char *address) {
    set_error_detail(code, message);
    sup_trace_error("oxbopn", __LINE__, "oxb_open", code, message.c_str(), address, nullptr,
                    nullptr, nullptr, nullptr);
    return code;
}

int open_port(const char *address, OXB_PORT **port) {
    clear_error_detail();
    if (address == nullptr || port == nullptr)
        return open_failure(OXB_EBADPARAM, "oxb_open: null address or port", address);
    if (*port != nullptr)
        return open_failure(OXB_EBADPARAM, "oxb_open: *port must be null", address);
    std::string message;
    if (is_tcp_address(address)) {
        // Every open of a served bus is a connection of its own, and so a bus of its own.
        TcpAddress tcp;
        int rc = parse_tcp_address(address, &tcp, &message);
        if (rc != 0) return open_failure(rc, message, address);
        auto make_bus = [&](std::shared_ptr<Bus> *bus) {
            std::unique_ptr<TcpTransport> transport;
            const int code = TcpTransport::connect(tcp, &transport, &message);
            if (code != 0) return code;
            auto *handle = reinterpret_cast<OXB_BUS *>(Registry::get().fresh_handle());
            *bus = std::make_shared<Bus>(std::move(transport), handle);
            return 0;
        };
        OXB_PORT *opened = nullptr;
        rc = Registry::get().open("", "", make_bus, &opened, &message);
        if (rc != 0) return open_failure(rc, message, address);
        *port = opened;
        return 0;
    }
    SimAddress parsed;
    int rc = parse_address(address, &parsed, &message);
    if (rc != 0) return open_failure(rc, message, address);

    auto make_bus = [&](std::shared_ptr<Bus> *bus) {
        auto transport = std::make_unique<SimTransport>(parsed.faults);
        for (const DriveSpec &entry : parsed.drives) {
            std::unique_ptr<sim::Drive> drive;
            std::string why;
            if (make_drive(entry.identity, entry.axis, &drive, &why) != 0) {
                message = entry.origin + ": " + why;
                return entry.code;
            }
            transport->attach(entry.axis, std::move(drive));
        }
        auto *handle = reinterpret_cast<OXB_BUS *>(Registry::get().fresh_handle());
        *bus = std::make_shared<Bus>(std::move(transport), handle);
        return 0;
    };
    OXB_PORT *opened = nullptr;
    rc = Registry::get().open(parsed.name, parsed.options, make_bus, &opened, &message);
    if (rc != 0) return open_failure(rc, message, address);
    *port = opened;
    return 0;
}

} // namespace

} // namespace ryn::oxb

using namespace ryn;
using namespace ryn::oxb;

extern "C" {

int oxb_open(const char *address, OXB_PORT **port) {
    return guarded([&] { return open_port(address, port); });
}

int oxb_close(OXB_PORT **port) {
    return guarded([&] {
        if (port == nullptr) return OXB_EBADPARAM;
        std::shared_ptr<Port> p = Registry::get().close(*port);
        if (!p) return OXB_EBADPORT;
        Registry::forget_cached_port();
        *port = nullptr;
        p->close();
        return 0;
    });
}

int oxb_port_is_valid(OXB_PORT *port) {
    return guarded([&] { return Registry::get().port(port) != nullptr ? 1 : 0; });
}

int oxb_get_port_bus(OXB_PORT *port, OXB_BUS **bus) {
    return guarded([&] {
        const auto p = Registry::get().port(port);
        if (!p) return OXB_EBADPORT;
        if (bus == nullptr) return OXB_EBADPARAM;
        *bus = p->bus().handle();
        return 0;
    });
}

int oxb_get_present_axes(OXB_BUS *bus, uint64_t *mask) {
    return guarded([&] {
        const auto b = Registry::get().bus(bus);
        if (!b) return OXB_EBADBUS;
        if (mask == nullptr) return OXB_EBADPARAM;
        return b->present_axes(mask);
    });
}

int oxb_get_drive_info(OXB_BUS *bus, int axis, void *info) {
    return guarded([&] { return identity_record<wire::DriveInfo>(bus, axis, info); });
}

int oxb_get_ext_info(OXB_BUS *bus, int axis, void *info) {
    return guarded([&] { return identity_record<wire::ExtInfo>(bus, axis, info); });
}

int oxb_get_bus_info(OXB_BUS *bus, int reserved, void *info) {
    return guarded([&] {
        const auto b = Registry::get().bus(bus);
        if (!b) return OXB_EBADBUS;
        if (reserved != 0 || !has_size(info, sizeof(wire::BusInfo))) return OXB_EBADPARAM;
        wire::BusInfo record{};
        record.size = sizeof(wire::BusInfo);
        const int rc = b->bus_flags(&record.flags);
        if (rc == 0) store_record(info, record);
        return rc;
    });
}

int oxb_register_handler(OXB_BUS *bus, void *owner, uint64_t axes, int reserved1, int reserved2,
                         int selector, OXB_HANDLER handler, void *context) {
    return guarded([&] {
        const auto b = Registry::get().bus(bus);
        if (!b) return OXB_EBADBUS;
        if (owner == nullptr || handler == nullptr || reserved1 != 0 || reserved2 != 0)
            return OXB_EBADPARAM;
        return b->register_handler(owner, axes, selector, handler, context);
    });
}

int oxb_unregister_handler(OXB_BUS *bus, void *owner) {
    return guarded([&] {
        const auto b = Registry::get().bus(bus);
        if (!b) return OXB_EBADBUS;
        return b->unregister_handler(owner);
    });
}

int oxb_send(OXB_PORT *port, void *ticket, uint64_t axes, const void *record, int timeout_ms) {
    return guarded([&] {
        const std::shared_ptr<Port> p = Registry::get().cached_port(port);
        if (!p) return OXB_EBADPORT;
        if (record == nullptr || axes == 0) return OXB_EBADPARAM;
        const wire::ConstRecordView r{static_cast<const uint8_t *>(record)};
        if (r.count() > wire::RECORD_MAX_SLOTS || !known_kind(r.kind())) return OXB_EBADRECORD;
        return p->bus().send(*p, ticket, axes, record, timeout_ms);
    });
}

int oxb_receive(OXB_PORT *port, void **ticket, int reserved1, void *buffer, int capacity,
                int reserved2, int timeout_ms) {
    return guarded([&] {
        const std::shared_ptr<Port> p = Registry::get().cached_port(port);
        if (!p) return OXB_EBADPORT;
        if (buffer == nullptr || capacity < 0 || reserved1 != 0 || reserved2 != 0)
            return OXB_EBADPARAM;
        return p->receive(ticket, static_cast<uint8_t *>(buffer), capacity, timeout_ms);
    });
}

int oxb_lock(OXB_BUS *bus, int timeout_ms) {
    return guarded([&] {
        const auto b = Registry::get().bus(bus);
        return b ? b->lock(timeout_ms) : OXB_EBADBUS;
    });
}

int oxb_unlock(OXB_BUS *bus) {
    return guarded([&] {
        const auto b = Registry::get().bus(bus);
        return b ? b->unlock() : OXB_EBADBUS;
    });
}

int oxb_check_types(OXB_BUS *bus, uint8_t *allowed, int count, const uint8_t *types) {
    return guarded([&] {
        const auto b = Registry::get().bus(bus);
        if (!b) return OXB_EBADBUS;
        if (allowed == nullptr || count < 0 || (count > 0 && types == nullptr))
            return OXB_EBADPARAM;
        return b->check_types(types, count, allowed);
    });
}

} // extern "C"
