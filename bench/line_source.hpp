// For the benchmarks: lines held in memory handed to a translator's stream one at a time, and a
// register translator on a fresh default sim: bus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ryn/oxb.h"
#include "ryn/tra.h"

struct LineSource {
    std::vector<std::string> lines;
    std::size_t next = 0;

    // A TRA_READ_LINE: the next line, -1 at the end, -2 for a line longer than the buffer.
    static int read(TRA *, char *buffer, int32_t size, void *user) {
        auto &s = *static_cast<LineSource *>(user);
        if (s.next >= s.lines.size()) return -1;
        const std::string &l = s.lines[s.next++];
        if (static_cast<int32_t>(l.size()) >= size) return -2;
        l.copy(buffer, l.size());
        buffer[l.size()] = '\0';
        return 0;
    }
};

// A port on a fresh default sim: bus and a register translator on it; ok tells whether both opened.
struct RegisterSession {
    OXB_PORT *port = nullptr;
    TRA *tra = nullptr;
    bool ok = true;

    RegisterSession() {
        ok = oxb_open("sim:", &port) == 0 && tra_create_register_traductor_e(&tra, port, 0) == 0;
    }
    ~RegisterSession() {
        tra_destroy(&tra);
        oxb_close(&port);
    }
    RegisterSession(const RegisterSession &) = delete;
    RegisterSession &operator=(const RegisterSession &) = delete;
};
