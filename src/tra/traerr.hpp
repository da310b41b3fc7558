// The error table's internal side and the trace discipline every module follows.
#pragma once

#include "ryn/sup.h"
#include "ryn/tra.h"

namespace ryn::tra {

// Symbolic name of a library code ("TRA_EBADPARAM"), null outside the table.
const char *error_name(int code);

// Where a function writes its trace frames: its module (the trace's file name) and its own name.
struct Tracer {
    const char *module;
    const char *function;

    // The error arose here: opens the trace with the code and its message, returns the code.
    int fail(int line, int code, const char *d1 = nullptr, const char *d2 = nullptr) const {
        sup_trace_error(module, line, function, code, tra_translate_error(code), d1, d2, nullptr,
                        nullptr, nullptr);
        return code;
    }
    // As fail, with a message other than the code's own.
    int fail_with(int line, int code, const char *message, const char *d1 = nullptr) const {
        sup_trace_error(module, line, function, code, message, d1, nullptr, nullptr, nullptr,
                        nullptr);
        return code;
    }
    // A callee of this library failed: adds a pass frame, returns its code unchanged.
    int pass(int line, int code) const {
        sup_trace_pass(module, line, function, nullptr);
        return code;
    }
    // A foreign library failed and its code became `code`: passes it on with the conversion note.
    int convert(int line, int code) const;
};

// Trace lines of one dictionary call site, one per dictionary code it may convert.
struct VokLines {
    int ext_version; // -419
    int drv_version; // -418
    int ext_product; // -417
    int drv_product; // -416
    int bad_param;   // -415
    int system;      // -414
    int other;       // anything else
};

// Library code of a dictionary code (-416 -> TRA_EBADDRVPROD, ..., others TRA_EINTERNAL).
int from_vok(int vok_code);
// Converts a failed dictionary call's code and passes it on with its note at the site's line.
int convert_vok(const Tracer &t, const VokLines &lines, int vok_code);

// Runs a clean-up after a traced failure without letting it disturb the trace.
template <class F>
void suspended(F &&cleanup) {
    sup_trace_suspend();
    cleanup();
    sup_trace_resume();
}

} // namespace ryn::tra
