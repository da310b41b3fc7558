// The embedded ORAX family: the JSON description of data/orax/, placed in the library at build
// time.
#include "vokmodel.hpp"

// The assembler copies the description into read-only data and ends it with a zero byte.
__asm__(".section .rodata\n"
        ".globl ryn_vok_orax_json\n"
        ".hidden ryn_vok_orax_json\n"
        "ryn_vok_orax_json:\n"
        ".incbin \"" RYN_VOK_ORAX_JSON "\"\n"
        ".byte 0\n"
        ".previous\n");

extern "C" const char ryn_vok_orax_json[];

namespace ryn::vok {

const char *const embedded_family_name = "<embedded ORAX family>";

const char *embedded_family_text() {
    return ryn_vok_orax_json;
}

} // namespace ryn::vok
