// Raw record text and hexadecimal dumps of command records.
#include "record_text.hpp"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "common.hpp"

namespace ryn::cli {

namespace {

uint32_t u32_at(const uint8_t *p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

uint64_t u64_at(const uint8_t *p) {
    return uint64_t(u32_at(p)) | uint64_t(u32_at(p + 4)) << 32;
}

// The PAR value of one slot, written so that the record reader stores the same 8 bytes: the
// reader picks the width by the last character ("L" 64-bit integer, "D" double, "F" float, else
// a 32-bit integer), so the form follows the tag where the value is a literal and otherwise
// whether the upper four bytes are in use.
std::string par_text(uint32_t tag, const uint8_t *value) {
    const uint64_t all = u64_at(value);
    const uint32_t low = u32_at(value);
    const bool upper_used = (all >> 32) != 0;
    const uint32_t t = tag & 0xFF;
    const bool literal = (t & 31) == 0;
    if (literal && (t & 0x60) == 0x60) {
        double d;
        std::memcpy(&d, value, sizeof d);
        if (std::isfinite(d) && !(d == 0 && std::signbit(d))) return format("%.17gD", d);
    } else if (literal && (t & 0x60) == 0x20 && !upper_used) {
        float f;
        std::memcpy(&f, value, sizeof f);
        if (std::isfinite(f) && !(f == 0 && std::signbit(f)))
            return format("%.9gF", static_cast<double>(f));
    } else if (literal && (t & 0x40) != 0) {
        return format("%lldL", static_cast<long long>(all));
    }
    if (upper_used || (literal && (t & 0x40) != 0))
        return format("0X%llXL", static_cast<unsigned long long>(all));
    if (!literal) return format("0X%X", low);
    return format("%d", static_cast<int32_t>(low));
}

} // namespace

std::string raw_record_text(const uint8_t *record, int count, uint64_t mask) {
    std::string text =
        format("[MASK:0X%llX,GATE:%u,CMD:%u,REC:%u", static_cast<unsigned long long>(mask),
               record[1] & 7u, record[2], record[3]);
    for (int i = 0; i < count; ++i) {
        const uint8_t *slot = record + 8 + 16 * i;
        const uint32_t tag = u32_at(slot);
        text += tag > 0xFF ? format(",TYP:0X%X", tag) : format(",TYP:%u", tag);
        text += ",PAR:" + par_text(tag, slot + 8);
    }
    text += "]";
    return text;
}

std::string record_hex(const uint8_t *record, int count, const std::string &indent) {
    std::string text;
    const int size = 8 + 16 * count;
    for (int i = 0; i < size; ++i) {
        if (i == 8 || (i > 8 && (i - 8) % 16 == 0))
            text += "\n" + indent;
        else if (i > 0)
            text += (i > 8 && (i - 8) % 8 == 0) ? "  " : " ";
        text += format("%02X", record[i]);
    }
    return text;
}

std::string record_hex_compact(const uint8_t *record, int count) {
    std::string text;
    for (int i = 0; i < 8 + 16 * count; ++i)
        text += format("%02X", record[i]);
    return text;
}

} // namespace ryn::cli
