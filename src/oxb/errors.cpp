// Messages of the bus library's error codes.
#include "ryn/oxb.h"
#include "sup/error_table.hpp"

namespace {

constexpr auto errors = ryn::error_table({
    {OXB_ENOTHING, "OXB_ENOTHING", "nothing received"},
    {OXB_ECAPACITY, "OXB_ECAPACITY", "record does not fit its buffer"},
    {OXB_EBADPARAM, "OXB_EBADPARAM", "invalid parameter"},
    {OXB_ESYSTEM, "OXB_ESYSTEM", "system error"},
});

} // namespace

extern "C" const char *oxb_translate_error(int code) {
    return errors.message(code);
}
