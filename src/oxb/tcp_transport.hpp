// The tcp:// transport: a bus served by another process (ryn sim serve) over one TCP connection.
// Records go out as frames written by the sending thread; the server's answers, events and replies
// are read by a receiver that waits for its answer, or else by a thread of the transport, and
// handed to the ports, the bus's event queue and the threads that wait for a reply.
#pragma once

#include <memory>
#include <string>

#include "address.hpp"
#include "transport.hpp"

namespace ryn::oxb {

class TcpTransport final : public Transport {
  public:
    // Connects, says hello and reads the present axes, each within the address's timeout.
    // Returns 0, or OXB_ELOST (no connection, or the server refused it), OXB_ENOTHING (no answer
    // in time) or OXB_EOPTION (the token refused) with a message.
    static int connect(const TcpAddress &address, std::unique_ptr<TcpTransport> *out,
                       std::string *message);
    ~TcpTransport() override;

    void attach_host(TransportHost *host) override;
    int submit(const Outbound &out) override;
    int present_axes(uint64_t *mask) override;
    int with_presence(const std::function<int(uint64_t)> &f) override;
    int drive_info(int axis, wire::DriveInfo *info) override;
    int ext_info(int axis, wire::ExtInfo *info) override;
    int bus_flags(uint32_t *flags) override;
    int check_types(const uint8_t *types, int count, uint8_t *allowed) override;
    int acquire_lock(int timeout_ms) override;
    void release_lock() override;
    bool receivers_read() const override;
    void pump(Port *port, Clock::time_point until) override;
    void port_opened(Port *port) override;
    void port_closed(Port *port) override;

    struct Link;

  private:
    explicit TcpTransport(std::shared_ptr<Link> link);
    std::shared_ptr<Link> link_;
};

} // namespace ryn::oxb
