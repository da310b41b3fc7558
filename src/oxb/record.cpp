// Command records as the bus carries them: the wire module's header and slots, little-endian.
#include "ryn/oxb.h"
#include "wire/wire.hpp"

#include <cstdarg>
#include <cstddef>
#include <cstring>

static_assert(OXB_RECORD_MAX_SLOTS == ryn::wire::RECORD_MAX_SLOTS);

extern "C" {

int oxb_record_size(int slots) {
    return ryn::wire::record_size(slots);
}

int oxb_build_record(void *buffer, int capacity, int kind, int command, const char *format, ...) {
    using namespace ryn::wire;
    if (buffer == nullptr || format == nullptr || capacity < 0 || capacity > RECORD_MAX_SLOTS ||
        kind < 0 || kind > 255 || command < 0 || command > 255)
        return OXB_EBADPARAM;
    std::size_t slots = std::strlen(format);
    for (std::size_t i = 0; i < slots; ++i)
        if (format[i] != 'i') return OXB_EBADPARAM;
    if (slots > static_cast<std::size_t>(capacity)) return OXB_ECAPACITY;

    const RecordView record{static_cast<uint8_t *>(buffer)};
    record.clear(capacity);
    RecordHeader &header = record.header();
    header.count = static_cast<uint8_t>(slots);
    header.command = static_cast<uint8_t>(command);
    header.kind = static_cast<uint8_t>(kind);
    va_list args;
    va_start(args, format);
    for (std::size_t i = 0; i < slots; ++i) {
        const int slot = static_cast<int>(i);
        record.set_tag(slot, va_arg(args, unsigned));
        record.set_value32(slot, va_arg(args, unsigned));
    }
    va_end(args);
    return 0;
}

} // extern "C"
