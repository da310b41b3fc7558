// Reading the error trace back in translator tests.
#pragma once

#include <string>
#include <vector>

#include "ryn/sup.h"

namespace ryn::test {

// One trace frame as plain values, for comparisons in tables.
struct Frame {
    std::string file;
    int line;
    std::string function;
    int code;
    std::string note;
    std::string detail;

    bool operator==(const Frame &) const = default;
};

inline std::vector<Frame> trace() {
    std::vector<Frame> frames;
    for (int i = 0; i < sup_trace_count(); ++i) {
        SUP_FRAME f{};
        sup_trace_get(i, &f);
        frames.push_back({f.file, f.line, f.function, f.code, f.note, f.details[0]});
    }
    return frames;
}

inline std::ostream &operator<<(std::ostream &os, const Frame &f) {
    return os << f.file << ':' << f.line << ' ' << f.function << " code " << f.code << " note '"
              << f.note << "' detail '" << f.detail << "'";
}

} // namespace ryn::test
