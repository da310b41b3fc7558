// Lines held in memory handed to a translator's stream one at a time, for the tests and the
// benchmarks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ryn/tra.h"

struct MemoryLines {
    std::vector<std::string> lines;
    std::size_t next = 0;

    // The next line into buffer: 0, -1 at the end, -2 for a line longer than the buffer.
    int hand(char *buffer, int32_t size) {
        if (next >= lines.size()) return -1;
        const std::string &l = lines[next++];
        if (static_cast<int32_t>(l.size()) >= size) return -2;
        l.copy(buffer, l.size());
        buffer[l.size()] = '\0';
        return 0;
    }
    // A TRA_READ_LINE whose user value is the source.
    static int read(TRA *, char *buffer, int32_t size, void *user) {
        return static_cast<MemoryLines *>(user)->hand(buffer, size);
    }
};
