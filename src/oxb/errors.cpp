// Messages of the bus library's error codes.
#include "errors.hpp"

#include <cstring>

#include "ryn/oxb.h"

namespace {

struct Detail {
    int code = 0;
    char text[512] = {};
};
thread_local Detail detail;

const char *fixed_message(int code) {
    switch (code) {
    case OXB_ESYSTEM:
        return "system error";
    case OXB_EBADPARAM:
        return "invalid parameter";
    case OXB_ECAPACITY:
        return "record does not fit its buffer";
    case OXB_EBADPORT:
        return "not an open port";
    case OXB_EBADBUS:
        return "not an open bus";
    case OXB_ECLOSED:
        return "port closed";
    case OXB_EADDRESS:
        return "unknown bus address";
    case OXB_EOPTION:
        return "bad bus address option";
    case OXB_ECONFIG:
        return "bad bus description file";
    case OXB_ENOTHING:
        return "nothing received";
    case OXB_ELOCKED:
        return "bus locked by another thread";
    case OXB_ENOTLOCKED:
        return "bus not locked by this thread";
    case OXB_EBADRECORD:
        return "bad record: slot count or kind";
    case OXB_ENODRIVE:
        return "no drive at this axis";
    case OXB_ENOHANDLER:
        return "no handler registered for this owner";
    case OXB_EHANDLER:
        return "a handler is already registered for this owner";
    case OXB_ENOTSIM:
        return "not a simulated bus";
    case OXB_EPRESENT:
        return "a drive is already attached at this axis";
    case OXB_EDRIVE:
        return "drive identity refused by the dictionary";
    case OXB_EQUEUEFULL:
        return "too many answers waiting on the port";
    default:
        return "unknown error";
    }
}

} // namespace

namespace ryn::oxb {

void set_error_detail(int code, const std::string &message) {
    detail.code = code;
    const std::size_t n = std::min(message.size(), sizeof detail.text - 1);
    std::memcpy(detail.text, message.data(), n);
    detail.text[n] = '\0';
}

void clear_error_detail() {
    detail.code = 0;
    detail.text[0] = '\0';
}

} // namespace ryn::oxb

extern "C" const char *oxb_translate_error(int code) {
    if (code != 0 && code == detail.code && detail.text[0] != '\0') return detail.text;
    return fixed_message(code);
}
