// Bus addresses: the sim: grammar with its options and the JSON bus description of config=FILE.
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

// Reads a bus address. Returns 0, or OXB_EADDRESS (no known transport), OXB_EOPTION (a bad
// option) or OXB_ECONFIG (a bus description that cannot be used) with a message in *message that
// names the option and what is wrong with it.
int parse_address(const char *address, SimAddress *out, std::string *message);

// The drives of the default sim: bus.
std::vector<DriveSpec> default_bus();

} // namespace ryn::oxb
