// The registry of live port and bus handles, and of named buses.
#include "registry.hpp"

namespace ryn::oxb {

Registry &Registry::get() {
    // Never destroyed: ports still open at exit must not outlive their registry.
    static Registry *const registry = new Registry;
    return *registry;
}

std::shared_ptr<Port> Registry::port(OXB_PORT *handle) {
    std::shared_lock lk(mu_);
    const auto it = ports_.find(reinterpret_cast<uintptr_t>(handle));
    return it == ports_.end() ? nullptr : it->second;
}

std::shared_ptr<Bus> Registry::bus(OXB_BUS *handle) {
    std::shared_lock lk(mu_);
    const auto it = buses_.find(reinterpret_cast<uintptr_t>(handle));
    return it == buses_.end() ? nullptr : it->second;
}

namespace {

// A weak reference: a port closed by another thread, with its bus, is released at once, not kept
// alive until this thread's next call.
struct PortCache {
    OXB_PORT *handle = nullptr;
    uint64_t closes = 0;
    std::weak_ptr<Port> port;
};
thread_local PortCache port_cache;

} // namespace

std::shared_ptr<Port> Registry::cached_port(OXB_PORT *handle) {
    PortCache &c = port_cache;
    const uint64_t closes = closes_.load(std::memory_order_acquire);
    if (handle != nullptr && c.handle == handle && c.closes == closes)
        if (std::shared_ptr<Port> p = c.port.lock()) return p;
    std::shared_ptr<Port> p = port(handle);
    c.port = p;
    c.handle = p ? handle : nullptr;
    c.closes = closes;
    return p;
}

void Registry::forget_cached_port() {
    port_cache = PortCache{};
}

uintptr_t Registry::fresh_handle() {
    std::lock_guard lk(mu_);
    next_ += 16;
    return next_;
}

OXB_PORT *Registry::add_port(const std::shared_ptr<Bus> &bus) {
    next_ += 16;
    auto *handle = reinterpret_cast<OXB_PORT *>(next_);
    auto port = std::make_shared<Port>(bus, handle);
    bus->port_opened(port.get());
    ports_[next_] = std::move(port);
    ++bus->open_ports;
    return handle;
}

int Registry::join_named(const std::string &name, const std::string &options, OXB_PORT **out,
                         std::string *message, bool *found) {
    const auto it = names_.find(name);
    *found = it != names_.end();
    if (!*found) return 0;
    if (!options.empty() && options != it->second->options) {
        *message = "sim: option 'name=" + name +
                   "': a bus of this name is open with other options (" +
                   (it->second->options.empty() ? std::string("none") : it->second->options) + ")";
        return OXB_EOPTION;
    }
    *out = add_port(it->second);
    return 0;
}

std::shared_ptr<Port> Registry::close(OXB_PORT *handle) {
    std::lock_guard lk(mu_);
    const auto it = ports_.find(reinterpret_cast<uintptr_t>(handle));
    if (it == ports_.end()) return nullptr;
    std::shared_ptr<Port> port = std::move(it->second);
    ports_.erase(it);
    closes_.fetch_add(1, std::memory_order_release);
    Bus &bus = port->bus();
    if (--bus.open_ports == 0) {
        buses_.erase(reinterpret_cast<uintptr_t>(bus.handle()));
        if (!bus.name.empty()) names_.erase(bus.name);
    }
    return port;
}

} // namespace ryn::oxb
