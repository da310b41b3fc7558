// Messages of the bus library's error codes.
#include "ryn/oxb.h"

extern "C" const char *oxb_translate_error(int code) {
    switch (code) {
    case OXB_ESYSTEM:
        return "system error";
    case OXB_EBADPARAM:
        return "invalid parameter";
    case OXB_ECAPACITY:
        return "record does not fit its buffer";
    case OXB_ENOTHING:
        return "nothing received";
    default:
        return "unknown error";
    }
}
