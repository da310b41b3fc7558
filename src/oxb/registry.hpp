// The registry of live handles: every open port and bus by a handle value that is never reused,
// so that a closed handle is refused without being dereferenced; named buses by name.
#pragma once

#include <atomic>
#include <memory>
#include <shared_mutex>
#include <string>
#include <unordered_map>

#include "bus.hpp"

namespace ryn::oxb {

class Registry {
  public:
    static Registry &get();

    std::shared_ptr<Port> port(OXB_PORT *handle);
    // The open port of a handle, null when there is none, for the calls that run most often:
    // each thread remembers the last port it looked up while no port has been closed since, which
    // spares the registry lock; the memory holds no reference of its own.
    std::shared_ptr<Port> cached_port(OXB_PORT *handle);
    // Forgets the calling thread's cached port.
    static void forget_cached_port();
    std::shared_ptr<Bus> bus(OXB_BUS *handle);

    // A handle value not given before (a multiple of 16, never dereferenced).
    uintptr_t fresh_handle();

    // Opens a port on a new bus, or on the bus named `name` when one is open: then `options`
    // must be empty or equal to that bus's options (OXB_EOPTION otherwise). `make_bus` builds
    // the new bus when it is needed; it runs without the registry lock.
    template <typename MakeBus>
    int open(const std::string &name, const std::string &options, MakeBus &&make_bus,
             OXB_PORT **out, std::string *message);
    // Removes a port; the last port of a bus removes the bus and its name. Returns the port.
    std::shared_ptr<Port> close(OXB_PORT *handle);

  private:
    Registry() = default;
    // With the lock held: a port on `bus`, entered in the registry.
    OXB_PORT *add_port(const std::shared_ptr<Bus> &bus);
    int join_named(const std::string &name, const std::string &options, OXB_PORT **out,
                   std::string *message, bool *found);

    std::shared_mutex mu_;
    std::unordered_map<uintptr_t, std::shared_ptr<Port>> ports_;
    std::unordered_map<uintptr_t, std::shared_ptr<Bus>> buses_;
    std::unordered_map<std::string, std::shared_ptr<Bus>> names_;
    uintptr_t next_ = 0x10000;
    std::atomic<uint64_t> closes_{0}; // ports closed so far: a cached port is stale when it moves
};

template <typename MakeBus>
int Registry::open(const std::string &name, const std::string &options, MakeBus &&make_bus,
                   OXB_PORT **out, std::string *message) {
    bool found = false;
    if (!name.empty()) {
        std::unique_lock lk(mu_);
        const int rc = join_named(name, options, out, message, &found);
        if (found) return rc;
    }
    std::shared_ptr<Bus> bus;
    const int rc = make_bus(&bus);
    if (rc != 0) return rc;
    std::unique_lock lk(mu_);
    if (!name.empty()) {
        // Another thread may have opened the same name meanwhile: join its bus.
        const int joined = join_named(name, options, out, message, &found);
        if (found) {
            lk.unlock();
            bus.reset(); // ours was never shared
            return joined;
        }
        bus->name = name;
        bus->options = options;
        names_[name] = bus;
    }
    buses_[reinterpret_cast<uintptr_t>(bus->handle())] = bus;
    *out = add_port(bus);
    return 0;
}

} // namespace ryn::oxb
