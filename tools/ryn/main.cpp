// The ryn command-line tool: for now it reports the library's version and its error table.
#include <cstdio>
#include <cstring>

#include "ryn/tra.h"

namespace {

void print_version() {
    char text[80];
    tra_version_to_string(text, sizeof text, tra_get_version());
    std::printf("ryn translator library %s (0x%08X), built %u\n", text, tra_get_version(),
                tra_get_build_time());
}

void print_errors() {
    std::printf("%6s  %s\n", "code", "message");
    for (int code = -572; code <= -502; ++code) {
        const char *message = tra_translate_error(code);
        if (std::strcmp(message, "unknown error") != 0) std::printf("%6d  %s\n", code, message);
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2 || std::strcmp(argv[1], "version") == 0) {
        print_version();
        if (argc < 2) print_errors();
        return 0;
    }
    if (std::strcmp(argv[1], "errors") == 0) {
        print_errors();
        return 0;
    }
    std::fprintf(stderr, "ryn: unknown command '%s' (try: ryn version, ryn errors)\n", argv[1]);
    return 2;
}
