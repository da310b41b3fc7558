// The library's own version and build time, and version text conversion.
#include "ryn/version.h"
#include "traerr.hpp"

namespace {
constexpr auto library_version = static_cast<uint32_t>(RYN_VERSION);
constexpr uint32_t build_time = 0x635A8439; // 2022-10-27 13:14:33 UTC
} // namespace

using ryn::tra::Tracer;

extern "C" {

uint32_t tra_get_version(void) {
    return library_version;
}

uint32_t tra_get_ryn_version(void) {
    return tra_get_version();
}

uint32_t tra_get_build_time(void) {
    return build_time;
}

int tra_string_to_version(const char *text, uint32_t *version) {
    static constexpr Tracer t{"traver", "tra_string_to_version"};
    if (sup_string_to_version(text, version) != 0) return t.fail(134, TRA_EBADPARAM);
    return 0;
}

int tra_version_to_string(char *buffer, int size, uint32_t version) {
    return sup_version_to_string(buffer, size, version);
}

} // extern "C"
