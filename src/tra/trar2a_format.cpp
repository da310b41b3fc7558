// Value and register formatters of the record-to-text direction, and the bounded text they write.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "trar2a.hpp"

namespace ryn::tra {

// ---- Text ----

Text::Text(char *buffer, int size) : buffer_(buffer), size_(buffer == nullptr ? 0 : size) {
    if (size_ > 0) buffer_[0] = '\0';
}

Text Text::at_end(char *buffer, int size) {
    Text t(nullptr, 0);
    t.buffer_ = buffer;
    t.size_ = buffer == nullptr ? 0 : size;
    if (t.size_ > 0) {
        const void *end = std::memchr(buffer, '\0', static_cast<std::size_t>(t.size_));
        t.length_ = end == nullptr ? t.size_ - 1
                                   : static_cast<int>(static_cast<const char *>(end) - buffer);
        buffer[t.length_] = '\0';
    }
    return t;
}

void Text::append(const char *s, int n) {
    if (n <= 0) return;
    int room = size_ - 1 - length_;
    if (room < n) cut_ = true;
    n = std::min(n, room);
    if (n <= 0) return;
    std::memcpy(buffer_ + length_, s, static_cast<std::size_t>(n));
    length_ += n;
    buffer_[length_] = '\0';
}

void Text::append(const char *s) {
    append(s, static_cast<int>(std::strlen(s)));
}

void Text::append(char c) {
    append(&c, 1);
}

void Text::appendf(const char *format, ...) {
    if (size_ <= 0) {
        cut_ = true;
        return;
    }
    va_list args;
    va_start(args, format);
    int room = size_ - length_;
    int n = std::vsnprintf(buffer_ + length_, static_cast<std::size_t>(room), format, args);
    va_end(args);
    if (n < 0) {
        buffer_[length_] = '\0';
        return;
    }
    if (n >= room) {
        cut_ = true;
        n = room - 1;
    }
    length_ += n;
}

bool Text::ends_with(const char *s) const {
    int n = static_cast<int>(std::strlen(s));
    return n <= length_ && std::memcmp(buffer_ + length_ - n, s, static_cast<std::size_t>(n)) == 0;
}

void Text::truncate(int n) {
    if (n < 0 || n >= length_) return;
    length_ = n;
    buffer_[length_] = '\0';
}

// ---- Register references ----

RegisterAddress command_register(uint32_t tag, uint32_t word) {
    RegisterRef r = decode_register(word);
    return {tag & KIND_WORD_MASK, word, r.index, r.subscript, r.axis, false};
}

RegisterAddress element_register(uint32_t tag, uint64_t value) {
    ElementRef r = decode_element(value);
    return {tag & KIND_WORD_MASK, static_cast<uint32_t>(value), r.index, r.element, 0, true};
}

RegisterAddress element_value_register(uint32_t tag, uint64_t value) {
    RegisterRef r = decode_element_value_register(value);
    return {
        tag & KIND_WORD_MASK, static_cast<uint32_t>(value), r.index, r.subscript, r.axis, false};
}

// ---- Doubles ----

namespace {

// v / 10^e without overflowing the power for the smallest exponents.
double scale_down(double v, int e) {
    if (e < -300) {
        v *= 1e300;
        e += 300;
    }
    return e < 0 ? v * std::pow(10.0, -e) : v / std::pow(10.0, e);
}

} // namespace

void _tra_format_double(const TRA *tra, Text &out, double v, int digits) {
    char text[400];
    if ((tra->call.flags & TRA_FFULL_PRECISION) != 0) {
        int n = std::snprintf(text, sizeof text, "%.20lf", v);
        n = std::clamp(n, 0, static_cast<int>(sizeof text) - 1);
        const char *stop = static_cast<const char *>(std::memchr(text, '.', std::size_t(n)));
        // Trailing zeros go, but never the one right after the full stop.
        if (stop != nullptr)
            while (n > stop - text + 2 && text[n - 1] == '0')
                --n;
        out.append(text, n);
        return;
    }
    int p = std::max(digits, 1);
    int t = p + 1;
    if (std::isnan(v)) {
        out.append("NaN");
        return;
    }
    if (v < 0) {
        out.append('-');
        v = -v;
    }
    if (std::isinf(v)) {
        out.append("Infinite");
        return;
    }
    double l = std::log10(v);
    int f = std::isfinite(l) ? static_cast<int>(std::floor(l)) : 0;
    int e;
    if (f < -1) {
        e = 3 * ((f - 2) / 3);
        t = p;
    } else if (f == -1) {
        e = 0;
    } else {
        e = 3 * (f / 3);
        t = p;
    }
    double rounded = v + 5 * std::pow(10.0, f - p);
    if (std::isfinite(rounded)) v = rounded;
    int n = std::snprintf(text, sizeof text, "%.17f", scale_down(v, e));
    n = std::clamp(n, 0, static_cast<int>(sizeof text) - 1);
    if (n > t + 1) {
        const char *stop = static_cast<const char *>(std::memchr(text, '.', std::size_t(n)));
        int at = stop == nullptr ? n : static_cast<int>(stop - text);
        if (at < t + 1) {
            n = t + 1;
        } else {
            // More integer digits than significant ones: keep the magnitude, zero the rest.
            n = std::min(at + 1, n);
            for (int i = t; i < at; ++i)
                text[i] = '0';
        }
    }
    text[n] = '\0';
    if (n > 0 && text[n - 1] == '.') text[n++] = '0';
    const char *stop = static_cast<const char *>(std::memchr(text, '.', std::size_t(n)));
    if (stop != nullptr)
        while (n > stop - text + 2 && text[n - 1] == '0')
            --n;
    out.append(text, n);
    if (e != 0) out.appendf("E%d", e);
}

// ---- Values ----

void _tra_format_ip(Text &out, uint32_t v) {
    out.appendf("%u.%u.%u.%u", v >> 24 & 0xFF, v >> 16 & 0xFF, v >> 8 & 0xFF, v & 0xFF);
}

bool _tra_format_string_chunk(Text &out, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        char c = static_cast<char>(v >> (8 * i) & 0xFF);
        if (c == '\0') return false;
        out.append(c);
    }
    return true;
}

namespace {

enum class Iso { none, converted, disagree };

// Converts a drive value to ISO units on every axis of the mask: converted (with the one result)
// when at least one axis converted and all that converted agree.
Iso convert_to_iso(TRA *tra, uint32_t value_class, const uint8_t value[8], int format,
                   uint64_t axis_mask, double *result) {
    TRA_ISO_CONVERTER converter = tra->call.converter;
    if (converter == nullptr) return Iso::none;
    void *context = tra->call.context;
    bool have = false;
    double first = 0;
    for (int axis = 0; axis < AXES; ++axis) {
        if ((axis_mask >> axis & 1) == 0) continue;
        uint8_t drive[8];
        std::memcpy(drive, value, sizeof drive);
        if (!is_wide_class(value_class)) std::memset(drive + 4, 0, 4);
        double iso = 0;
        if (converter(tra->bus, drive, &iso, value_class, format, axis, 1, context) != 0) continue;
        if (!have) {
            have = true;
            first = iso;
        } else if (iso != first) { // as numbers: 0 and -0 agree, a NaN agrees with nothing
            return Iso::disagree;
        }
    }
    *result = first;
    return have ? Iso::converted : Iso::none;
}

double as_double(uint32_t cls, const uint8_t value[8]) {
    switch (value_class(cls)) {
    case CLASS_FLOAT:
        return std::bit_cast<float>(load_u32(value));
    case CLASS_INT64:
        return static_cast<double>(static_cast<int64_t>(load_u64(value)));
    case CLASS_DOUBLE:
        return std::bit_cast<double>(load_u64(value));
    default:
        return static_cast<int32_t>(load_u32(value));
    }
}

void format_decimal(const TRA *tra, Text &out, uint32_t cls, const uint8_t value[8]) {
    switch (value_class(cls)) {
    case CLASS_FLOAT:
        _tra_format_double(tra, out, as_double(cls, value), 15);
        out.append('F');
        break;
    case CLASS_INT64:
        out.appendf("%lldL", static_cast<long long>(load_u64(value)));
        break;
    case CLASS_DOUBLE:
        _tra_format_double(tra, out, as_double(cls, value), 15);
        out.append('D');
        break;
    default:
        out.appendf("%ld", static_cast<long>(static_cast<int32_t>(load_u32(value))));
        break;
    }
}

} // namespace

void _tra_format_value(TRA *tra, Text &out, uint32_t cls, const uint8_t value[8], bool convert,
                       int format, uint64_t axis_mask) {
    const uint32_t vclass = value_class(cls);
    if (convert && (tra->call.flags & TRA_FISO_CONVERT) != 0 && tra->call.converter != nullptr) {
        double iso = 0;
        switch (convert_to_iso(tra, vclass, value, format, axis_mask, &iso)) {
        case Iso::converted:
            _tra_format_double(tra, out, iso, 15);
            return;
        case Iso::disagree: // no single ISO value: the drive value, undecorated by its format
            format_decimal(tra, out, vclass, value);
            return;
        case Iso::none: // no axis converted: written as if no conversion had been asked
            break;
        }
    }
    switch (format) {
    case VOK_FORMAT_HEX:
        if (!is_wide_class(vclass))
            out.appendf("0x%lX", static_cast<unsigned long>(load_u32(value)));
        else
            out.appendf("0x%llXL", static_cast<unsigned long long>(load_u64(value)));
        break;
    case VOK_FORMAT_STRING:
        // The previous element of the same string ends in `",`: continue that string.
        if (out.ends_with("\",")) {
            out.truncate(out.length() - 2);
        } else {
            out.append('"');
        }
        _tra_format_string_chunk(out, load_u32(value));
        out.append('"');
        break;
    case VOK_FORMAT_FLOAT:
        _tra_format_double(tra, out, as_double(vclass, value), 15);
        out.append(is_wide_class(vclass) ? 'D' : 'F');
        break;
    case VOK_FORMAT_IP:
        out.append('"');
        _tra_format_ip(out, load_u32(value));
        out.append('"');
        break;
    default:
        format_decimal(tra, out, vclass, value);
        break;
    }
}

// ---- Axes and aliases ----

int _tra_single_axis(uint64_t axis_mask) {
    return std::popcount(axis_mask) == 1 ? std::countr_zero(axis_mask) : -1;
}

void _tra_format_axes(Text &out, uint64_t axis_mask) {
    constexpr uint64_t all = 0x7FFFFFFFFFFFFFFFull;
    axis_mask &= all;
    if (axis_mask == all) {
        out.append(".!");
        return;
    }
    int n = std::popcount(axis_mask);
    if (n == 0) return;
    if (n == 1) {
        out.appendf(".%d", std::countr_zero(axis_mask));
        return;
    }
    out.append(".(");
    const char *comma = "";
    for (int axis = 0; axis < AXES - 1; ++axis) {
        if ((axis_mask >> axis & 1) == 0) continue;
        out.appendf("%s%d", comma, axis);
        comma = ",";
    }
    out.append(')');
}

const LookupEntry *_tra_find_alias(const std::vector<LookupEntry> &table, const AliasIndex &index,
                                   uint32_t kind, uint32_t register_index, uint64_t axis_mask) {
    return index.find(table, kind, register_index, axis_mask);
}

// ---- Register names ----

namespace {

// The axes a register reference addresses by its own axis field.
uint64_t field_axes(uint32_t axis) {
    if (axis < 64) return uint64_t(1) << axis;
    return 0x7FFFFFFFFFFFFFFFull; // the "!" form
}

} // namespace

int _tra_format_register(TRA *tra, Text *out, int64_t axis_mask, const RegisterAddress &reg,
                         int matrix_form, int options, int *rows, int *columns) {
    if (out == nullptr) return TRA_EBADPARAM;
    const bool from_mask = (options & REG_AXIS_FROM_MASK) != 0;
    const uint64_t axes = from_mask ? static_cast<uint64_t>(axis_mask) : field_axes(reg.axis);
    if (from_mask ? axis_mask < 0 : reg.axis == 63) out->append('*');

    const uint32_t kind = reg.kind & KIND_WORD_MASK;
    if ((kind & TYPE_CODE_MASK) == TYPE_ADDRESS) {
        out->appendf("A%lu", static_cast<unsigned long>(reg.word));
    } else if (kind == 1 && reg.index == 65535) {
        out->append("XAC");
    } else {
        const LookupEntry *alias = nullptr;
        if ((tra->call.flags & TRA_FUSE_ALIASES) != 0)
            alias = _tra_find_alias(tra->registers, tra->register_aliases, kind, reg.index, axes);
        if (alias != nullptr && alias->name != nullptr) {
            out->append(alias->name);
        } else {
            const char *type = tra->type_names[kind];
            int n = static_cast<int>(strnlen(type, TYPE_NAME_SIZE));
            out->append(type, n);
            if (reg.index == VOK_WHOLE_TYPE)
                out->append('Y');
            else
                out->appendf("%u", reg.index);
        }
    }

    // Length, rows and columns over the addressed axes, each dictionary asked once.
    int length = 0, r = 1, c = 1;
    for_each_axis_dictionary(*tra, axes, [&](const VOK_DICT *d) {
        length = std::max(length, vok_get_register_length(d, kind, reg.index));
        r = vok_get_register_rows(d, kind, reg.index);
        c = vok_get_register_columns(d, kind, reg.index);
        return false;
    });
    if (rows != nullptr) *rows = r;
    if (columns != nullptr) *columns = c;

    const uint32_t s = reg.subindex;
    if (s != 0 || (length >= 2 && (options & REG_NO_ZERO_ELEMENT) == 0)) {
        if (!reg.element_number || !vok_is_vector_kind(kind)) {
            out->appendf(":%u", s);
        } else if (r > 1) {
            const uint32_t cols = static_cast<uint32_t>(std::max(c, 1));
            if (matrix_form == 1)
                out->appendf("[%u,%u]", s / cols, s % cols);
            else
                out->appendf("[%u]", s / cols);
        } else {
            out->appendf("[%u]", s);
        }
    }

    _tra_format_axes(*out, from_mask ? static_cast<uint64_t>(axis_mask)
                                     : (reg.axis < 64 ? uint64_t(1) << reg.axis : 0));
    return 0;
}

// ---- Comments ----

void _tra_append_comment(const TRA *tra, Text &out, const char *word, const char *comment) {
    const uint32_t flags = tra->call.flags;
    const int l = out.length();
    if ((flags & TRA_FTAB) != 0) {
        out.append('\t');
    } else if (l < 39) {
        int n;
        char fill = '\t';
        if ((flags & TRA_FTABS8) != 0) {
            n = (39 - l) / 8 + 1;
        } else if ((flags & TRA_FTABS4) != 0) {
            n = (39 - l) / 4 + 1;
        } else {
            n = 40 - l;
            fill = ' ';
        }
        for (int i = 0; i < n; ++i)
            out.append(fill);
    } else {
        out.append(' ');
    }
    out.append("; ");
    if (word != nullptr) out.append(word);
    if (comment != nullptr) out.append(comment);
}

} // namespace ryn::tra
