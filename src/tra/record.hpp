// The translator's view of the command record: the shared wire format, reached from TRA_RECORD.
#pragma once

#include "ryn/tra.h"
#include "wire/wire.hpp"

namespace ryn::tra {

using namespace ryn::wire;

inline RecordView view(TRA_RECORD *record) {
    return {reinterpret_cast<uint8_t *>(record)};
}
inline ConstRecordView view(const TRA_RECORD *record) {
    return {reinterpret_cast<const uint8_t *>(record)};
}

} // namespace ryn::tra
