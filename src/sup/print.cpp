// Formatted printing into a caller's buffer that never writes past its size.
#include "ryn/sup.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

extern "C" int sup_snprintf(char *buffer, int size, const char *format, ...) {
    if (buffer == nullptr || size <= 0 || format == nullptr) return 0;
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(buffer, static_cast<std::size_t>(size), format, args);
    va_end(args);
    if (n < 0) {
        buffer[0] = '\0';
        return 0;
    }
    return std::min(n, size - 1);
}
