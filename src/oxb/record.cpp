// Command records as the bus carries them: 8-byte header, 16-byte slots, little-endian.
#include "ryn/oxb.h"

#include <cstdarg>
#include <cstddef>
#include <cstring>

namespace {

constexpr int header_size = 8;
constexpr int slot_size = 16;

void store_u32(unsigned char *at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        at[i] = static_cast<unsigned char>(v >> (8 * i));
}

} // namespace

extern "C" {

int oxb_record_size(int slots) {
    return header_size + slot_size * slots;
}

int oxb_build_record(void *buffer, int capacity, int kind, int command, const char *format, ...) {
    if (buffer == nullptr || format == nullptr || capacity < 0 || capacity > OXB_RECORD_MAX_SLOTS ||
        kind < 0 || kind > 255 || command < 0 || command > 255)
        return OXB_EBADPARAM;
    std::size_t slots = std::strlen(format);
    for (std::size_t i = 0; i < slots; ++i)
        if (format[i] != 'i') return OXB_EBADPARAM;
    if (slots > static_cast<std::size_t>(capacity)) return OXB_ECAPACITY;

    auto *record = static_cast<unsigned char *>(buffer);
    std::memset(record, 0, static_cast<std::size_t>(oxb_record_size(capacity)));
    record[0] = static_cast<unsigned char>(slots);
    record[2] = static_cast<unsigned char>(command);
    record[3] = static_cast<unsigned char>(kind);
    va_list args;
    va_start(args, format);
    for (std::size_t i = 0; i < slots; ++i) {
        unsigned char *slot = record + header_size + slot_size * i;
        store_u32(slot, va_arg(args, unsigned));
        store_u32(slot + 8, va_arg(args, unsigned));
    }
    va_end(args);
    return 0;
}

} // extern "C"
