// For the benchmarks: lines held in memory handed to a translator's stream one at a time, and a
// register translator on a fresh default sim: bus.
#pragma once

#include "memory_lines.hpp"
#include "ryn/oxb.h"
#include "ryn/tra.h"

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
