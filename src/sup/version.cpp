// Versions as text ("4.27B") and packed (0x04278100): major, BCD minor, letter code 0x80 + n, 0.
#include "ryn/sup.h"

#include <cctype>
#include <cstdio>

namespace {
bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
} // namespace

extern "C" {

int sup_string_to_version(const char *text, uint32_t *version) {
    if (text == nullptr || version == nullptr) return SUP_EBADPARAM;
    const char *p = text;
    if (!is_digit(p[0])) return SUP_EBADPARAM;
    uint32_t major = static_cast<uint32_t>(*p++ - '0');
    if (is_digit(*p)) major = major * 10 + static_cast<uint32_t>(*p++ - '0');
    if (*p++ != '.') return SUP_EBADPARAM;
    if (!is_digit(p[0]) || !is_digit(p[1])) return SUP_EBADPARAM;
    uint32_t minor = static_cast<uint32_t>((p[0] - '0') << 4 | (p[1] - '0'));
    p += 2;
    char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
    if (letter < 'A' || letter > 'Z' || p[1] != '\0') return SUP_EBADPARAM;
    uint32_t code = 0x80u + static_cast<uint32_t>(letter - 'A');
    *version = major << 24 | minor << 16 | code << 8;
    return 0;
}

int sup_version_to_string(char *buffer, int size, uint32_t version) {
    if (buffer == nullptr || size <= 0) return SUP_EBADPARAM;
    unsigned major = version >> 24;
    unsigned minor = version >> 16 & 0xFF;
    unsigned code = version >> 8 & 0xFF;
    char letter[2] = {0, 0};
    if (code >= 0x80 && code < 0x80 + 26)
        letter[0] = static_cast<char>('A' + (code - 0x80));
    else if (code != 0)
        letter[0] = '?';
    std::snprintf(buffer, static_cast<std::size_t>(size), "%u.%X%X%s", major, minor >> 4,
                  minor & 0xF, letter);
    return 0;
}

} // extern "C"
