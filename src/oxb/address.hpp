// Bus addresses: the sim: grammar with its options and the JSON bus description of config=FILE,
// and the tcp:// address of a served bus.
#pragma once

#include <string>
#include <vector>

#include "ryn/oxbsim.h"
#include "sim/drive.hpp"

namespace ryn::oxb {

struct DriveSpec {
    int axis;
    sim::Identity identity; // version and card version 0: the defaults
    std::string origin;     // what set it, the start of a message: "sim: option 'ext=ENC-2'"
    int code;               // the code when the dictionary refuses it: OXB_EOPTION, OXB_ECONFIG
};

struct SimAddress {
    std::string name;    // name=, empty for a bus of its own
    std::string options; // every option but name=, sorted: equal for equal buses
    std::vector<DriveSpec> drives;
    OXBSIM_FAULTS faults;
};

// A served bus: tcp://HOST:PORT[?token=TEXT&timeout_ms=N].
struct TcpAddress {
    std::string host; // a name, an IPv4 address or an IPv6 address without its brackets
    uint16_t port = 0;
    std::string token;     // token=, else the RYN_TOKEN environment variable, else empty
    int timeout_ms = 5000; // how long to wait for the connection, the hello and each reply
};

// Whether an address names a served bus.
bool is_tcp_address(const char *address);
// Reads a tcp:// address. Returns 0, or OXB_EADDRESS (no host or port) or OXB_EOPTION (a bad
// option) with a message that names what is wrong.
int parse_tcp_address(const char *address, TcpAddress *out, std::string *message);

// Reads a bus address. Returns 0, or OXB_EADDRESS (no known transport), OXB_EOPTION (a bad
// option) or OXB_ECONFIG (a bus description that cannot be used) with a message in *message that
// names the option and what is wrong with it.
int parse_address(const char *address, SimAddress *out, std::string *message);

// The drives of the default sim: bus.
std::vector<DriveSpec> default_bus();

} // namespace ryn::oxb
