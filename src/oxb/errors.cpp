// Messages of the bus library's error codes.
#include "errors.hpp"

#include <cstring>

#include "ryn/oxb.h"
#include "sup/error_table.hpp"

namespace {

constexpr auto errors = ryn::error_table({
    {OXB_ELOST, "OXB_ELOST", "connection to the served bus lost"},
    {OXB_EQUEUEFULL, "OXB_EQUEUEFULL", "too many answers waiting on the port"},
    {OXB_EDRIVE, "OXB_EDRIVE", "drive identity refused by the dictionary"},
    {OXB_EPRESENT, "OXB_EPRESENT", "a drive is already attached at this axis"},
    {OXB_ENOTSIM, "OXB_ENOTSIM", "not a simulated bus"},
    {OXB_EHANDLER, "OXB_EHANDLER", "a handler is already registered for this owner"},
    {OXB_ENOHANDLER, "OXB_ENOHANDLER", "no handler registered for this owner"},
    {OXB_ENODRIVE, "OXB_ENODRIVE", "no drive at this axis"},
    {OXB_EBADRECORD, "OXB_EBADRECORD", "bad record: slot count or kind"},
    {OXB_ENOTLOCKED, "OXB_ENOTLOCKED", "bus not locked by this thread"},
    {OXB_ELOCKED, "OXB_ELOCKED", "bus locked by another thread"},
    {OXB_ENOTHING, "OXB_ENOTHING", "nothing received"},
    {OXB_ECONFIG, "OXB_ECONFIG", "bad bus description file"},
    {OXB_EOPTION, "OXB_EOPTION", "bad bus address option"},
    {OXB_EADDRESS, "OXB_EADDRESS", "unknown bus address"},
    {OXB_ECLOSED, "OXB_ECLOSED", "port closed"},
    {OXB_EBADBUS, "OXB_EBADBUS", "not an open bus"},
    {OXB_EBADPORT, "OXB_EBADPORT", "not an open port"},
    {OXB_ECAPACITY, "OXB_ECAPACITY", "record does not fit its buffer"},
    {OXB_EBADPARAM, "OXB_EBADPARAM", "invalid parameter"},
    {OXB_ESYSTEM, "OXB_ESYSTEM", "system error"},
});

struct Detail {
    int code = 0;
    char text[512] = {};
};
thread_local Detail detail;

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
    return errors.message(code);
}
