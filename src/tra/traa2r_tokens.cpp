// The command text tokenizer: separators, words, names, numbers, axis lists and subscripts, and
// the conversion of ISO values into drive units.
#include "traa2r_tokens.hpp"

#include <cfloat>
#include <charconv>
#include <cstring>

namespace ryn::tra {

namespace {

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool in_set(const char *set, char c) {
    return c != 0 && std::strchr(set, c) != nullptr;
}

int digit_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return 99;
}

// An integer as the C library's string conversions see it: optional sign, then with base 0
// "0X" hexadecimal, a leading "0" octal, else decimal. The magnitude saturates on overflow.
struct IntScan {
    std::size_t length = 0; // 0 when no digit was read
    bool negative = false;
    bool overflow = false; // the magnitude does not fit in 64 bits
    uint64_t magnitude = 0;

    bool fits_signed(int bits) const {
        uint64_t top = uint64_t(1) << (bits - 1);
        return !overflow && (negative ? magnitude <= top : magnitude < top);
    }
    bool fits_unsigned(int bits) const {
        return !overflow && (bits == 64 || magnitude <= (uint64_t(1) << bits) - 1);
    }
    // The value as the signed or unsigned conversion of that width gives it (two's complement).
    uint64_t value() const { return negative ? 0 - magnitude : magnitude; }
};

IntScan scan_integer(const char *s, int base) {
    IntScan r;
    std::size_t i = 0;
    if (s[i] == '-' || s[i] == '+') {
        r.negative = s[i] == '-';
        ++i;
    }
    if (base == 0) {
        if (s[i] == '0' && (s[i + 1] == 'X' || s[i + 1] == 'x') && digit_value(s[i + 2]) < 16) {
            base = 16;
            i += 2;
        } else if (s[i] == '0') {
            base = 8;
        } else {
            base = 10;
        }
    }
    std::size_t first = i;
    for (; digit_value(s[i]) < base; ++i) {
        uint64_t d = static_cast<uint64_t>(digit_value(s[i]));
        if (r.magnitude > (UINT64_MAX - d) / static_cast<uint64_t>(base)) {
            r.overflow = true;
            r.magnitude = UINT64_MAX;
        } else if (!r.overflow) {
            r.magnitude = r.magnitude * static_cast<uint64_t>(base) + d;
        }
    }
    r.length = i > first ? i : 0;
    return r;
}

float narrow(double d) {
    if (d > FLT_MAX) return __builtin_inff();
    if (d < -FLT_MAX) return -__builtin_inff();
    return static_cast<float>(d);
}

template <class T>
void store(unsigned char (&value)[8], T v) {
    std::memset(value, 0, sizeof value);
    std::memcpy(value, &v, sizeof v);
}

// The number reader for a text that begins "0X": 64-bit with "L", else 32-bit.
Number read_hex(const char *text) {
    Number n{TAG_NAME, 0, {}};
    IntScan s = scan_integer(text, 0);
    if (!s.fits_signed(64) && !s.fits_unsigned(64)) return n;
    if (text[s.length] == 'L') {
        n.tag = TAG_INT64;
        n.length = s.length + 1;
        store(n.value, s.value());
        return n;
    }
    if (!s.fits_signed(32) && !s.fits_unsigned(32)) return n;
    n.tag = TAG_INT32;
    n.length = s.length;
    store(n.value, static_cast<uint32_t>(s.value()));
    return n;
}

} // namespace

uint32_t _tra_read_separator(const char *text, std::size_t *pos) {
    uint32_t code = 0;
    std::size_t n = 0;
    while (n < 4) {
        char c = text[*pos + n];
        if (!in_set(WORD_SEPARATORS, c)) break;
        if (n > 0 && (c == '-' || c == '*')) break;
        code |= uint32_t(static_cast<unsigned char>(c)) << (8 * n);
        ++n;
    }
    if (n == 4) return 0;
    *pos += n;
    return code;
}

std::size_t _tra_read_word(const char *text, char *out, std::size_t size, bool numbers) {
    if (size == 0) return 0;
    std::size_t limit = size - 1;
    std::size_t n = 0;
    if (text[0] == '"') {
        // Up to and including the closing quote.
        while (n < limit && text[n] != 0) {
            ++n;
            if (n > 1 && text[n - 1] == '"') break;
        }
    } else if (text[0] == '(') {
        int depth = 0;
        while (n < limit && text[n] != 0) {
            if (text[n] == '(') ++depth;
            if (text[n] == ')') --depth;
            ++n;
            if (depth == 0) break;
        }
    } else {
        std::size_t end = 0;
        bool number_start = is_digit(text[0]) || (text[0] == '-' && is_digit(text[1]));
        if (numbers && number_start) {
            Number num = _tra_read_number(text);
            if (num.tag != TAG_NAME) end = num.length;
        }
        if (end == 0)
            while (text[end] != 0 && !in_set(WORD_SEPARATORS, text[end]))
                ++end;
        n = end < limit ? end : limit;
    }
    std::memcpy(out, text, n);
    out[n] = 0;
    return n;
}

std::size_t _tra_read_name(const char *text, char *out, std::size_t size) {
    if (size == 0) return 0;
    std::size_t n = 0;
    while (n < size - 1 && text[n] != 0 && !in_set(NAME_SEPARATORS, text[n]))
        ++n;
    std::memcpy(out, text, n);
    out[n] = 0;
    return n;
}

Number _tra_read_number(const char *text) {
    Number n{TAG_NAME, 0, {}};
    if (text[0] == '0' && text[1] == 'X') return read_hex(text);

    // Only decimal forms: a name such as "INF" or "NAN" must stay a name.
    std::size_t lead = text[0] == '-' ? 1 : 0;
    if (!is_digit(text[lead]) && !(text[lead] == '.' && is_digit(text[lead + 1]))) return n;

    IntScan s = scan_integer(text, 0);
    bool overflow64 = !s.fits_signed(64) && !s.fits_unsigned(64);
    bool overflow32 = !s.fits_signed(32) && !s.fits_unsigned(32);
    double d = 0;
    std::size_t dlen = 0;
    const char after = text[s.length];
    if (s.length > 0 && text[lead] != '0' && after != '.' && after != 'E' && !s.overflow) {
        // A decimal whole number without fraction or exponent reads as a double exactly as its
        // integer value converts: no need for the general floating-point reader.
        d = s.negative ? -static_cast<double>(s.magnitude) : static_cast<double>(s.magnitude);
        dlen = s.length;
    } else {
        const char *end = text + std::strlen(text);
        auto [ptr, ec] = std::from_chars(text, end, d, std::chars_format::general);
        if (ec == std::errc{}) dlen = static_cast<std::size_t>(ptr - text);
    }
    if (s.length == 0 && dlen == 0) return n;

    if (dlen > s.length) {
        char next = text[dlen];
        if (next == 'D') {
            n.tag = TAG_DOUBLE;
            n.length = dlen + 1;
            store(n.value, d);
        } else if (next == 'F') {
            n.tag = TAG_FLOAT;
            n.length = dlen + 1;
            store(n.value, narrow(d));
        } else {
            bool suffix = next == 0 && (text[dlen - 1] == 'D' || text[dlen - 1] == 'E');
            n.tag = suffix ? TAG_DOUBLE : TAG_ISO;
            n.length = dlen;
            store(n.value, d);
        }
        return n;
    }
    char next = text[s.length];
    n.length = s.length + 1;
    if (next == 'D') {
        n.tag = TAG_DOUBLE;
        store(n.value, d);
    } else if (next == 'F') {
        n.tag = TAG_FLOAT;
        store(n.value, narrow(d));
    } else if (next == 'L') {
        if (overflow64) return Number{TAG_NAME, 0, {}};
        n.tag = TAG_INT64;
        store(n.value, s.value());
    } else {
        if (overflow32) return Number{TAG_NAME, 0, {}};
        n.tag = TAG_INT32;
        n.length = s.length;
        store(n.value, static_cast<uint32_t>(s.value()));
    }
    return n;
}

int _parse_mask_enum(char *text, uint64_t *mask) {
    static constexpr Tracer t{"traa2r", "_parse_mask_enum"};
    if (text == nullptr || mask == nullptr) return t.fail(__LINE__, TRA_EINTERNAL);
    std::size_t len = std::strlen(text);
    if (len < 2 || text[0] != '(' || text[len - 1] != ')')
        return t.fail(__LINE__, TRA_ECMDSYNTAX, text);
    text[len - 1] = 0;
    uint64_t result = 0;
    const char *p = text + 1;
    for (;;) {
        uint64_t axis;
        if (*p == '*') {
            axis = 63;
            ++p;
        } else {
            IntScan s = scan_integer(p, 10);
            axis = s.overflow ? UINT64_MAX : s.value();
            p += s.length;
            if (axis > 62) return t.fail(__LINE__, TRA_ERANGE, text);
        }
        result |= uint64_t(1) << axis;
        if (*p == 0) break;
        if (*p != ',') return t.fail(__LINE__, TRA_ECMDSYNTAX, text);
        ++p;
    }
    *mask = result;
    return 0;
}

int _parse_vector_subscript(char *text, uint32_t *row, uint8_t *row_given, uint32_t *column,
                            uint8_t *column_given) {
    static constexpr Tracer t{"traa2r", "_parse_vector_subscript"};
    if (text == nullptr || row == nullptr || row_given == nullptr || column == nullptr ||
        column_given == nullptr)
        return t.fail(__LINE__, TRA_EINTERNAL);
    std::size_t len = std::strlen(text);
    if (len == 0 || text[len - 1] != ']') return t.fail(__LINE__, TRA_ECMDSYNTAX, text);
    text[len - 1] = 0;
    *row = 0;
    *column = 0;
    // One subscript: decimal, at most 24 bits; a sign makes it huge, as an unsigned reading does.
    auto read = [&](const char *&p, uint32_t *out) {
        IntScan s = scan_integer(p, 10);
        uint64_t v = s.overflow ? UINT64_MAX : s.value();
        if (s.length != 0) p += s.length;
        if (v > 0xFFFFFF) return false;
        *out = static_cast<uint32_t>(v);
        return true;
    };
    const char *p = text;
    if (!read(p, row)) return t.fail(__LINE__, TRA_ERANGE, text);
    *row_given = 1;
    if (*p == 0) return 0;
    if (*p != ',') return t.fail(__LINE__, TRA_ECMDSYNTAX, text);
    ++p;
    if (!read(p, column)) return t.fail(__LINE__, TRA_ERANGE, text);
    *column_given = 1;
    if (*p != 0) return t.fail(__LINE__, TRA_ECMDSYNTAX, text);
    return 0;
}

namespace {

// The common walk of _str2long and _str2int64: signs and skipped characters in front, the number,
// skipped characters behind. `bits` is 32 or 64; `negate_in_text` is the 64-bit reader's way of
// reading a negative number.
int read_integer(const Tracer &t, char *text, int limit, int bits, bool negate_in_text,
                 uint64_t *out) {
    if (text == nullptr || out == nullptr) return t.fail(__LINE__, TRA_EINTERNAL);
    bool negative = false;
    std::size_t i = 0;
    for (;; ++i) {
        char c = text[i];
        if (c == 0) return t.fail(__LINE__, TRA_ECMDSYNTAX, text);
        if (c == '-') {
            negative = !negative;
            continue;
        }
        if (is_digit(c)) break;
        if (static_cast<unsigned char>(c) > limit) return t.fail(__LINE__, TRA_ECMDSYNTAX, text);
    }
    if (!(text[i] == '0' && (text[i + 1] == 'X' || text[i + 1] == 'x'))) {
        // Leading zeros are dropped so that the number is never read as octal.
        while (text[i] == '0')
            ++i;
        if (text[i] == 0) {
            *out = 0;
            return 0;
        }
    }
    std::size_t start = i;
    if (negate_in_text && negative && start > 0) text[--start] = '-';
    IntScan s = scan_integer(text + start, 0);
    uint64_t v;
    if (s.fits_signed(bits) || s.fits_unsigned(bits))
        v = s.value();
    else
        return t.fail(__LINE__, TRA_ERANGE, text);
    for (std::size_t j = start + s.length; text[j] != 0; ++j)
        if (static_cast<unsigned char>(text[j]) > limit)
            return t.fail(__LINE__, TRA_ECMDSYNTAX, text);
    *out = negative ? 0 - v : v;
    return 0;
}

} // namespace

int _str2long(char *text, int limit, int32_t *out) {
    static constexpr Tracer t{"traa2r", "_str2long"};
    uint64_t v = 0;
    int rc = read_integer(t, text, limit, 32, false, &v);
    if (rc == 0) *out = static_cast<int32_t>(static_cast<uint32_t>(v));
    return rc;
}

int _str2int64(char *text, int64_t *out) {
    static constexpr Tracer t{"traa2r", "_str2int64"};
    uint64_t v = 0;
    int rc = read_integer(t, text, ' ', 64, true, &v);
    if (rc == 0) *out = static_cast<int64_t>(v);
    return rc;
}

namespace {

// What one axis's dictionary says about converting the value at hand.
struct Conversion {
    bool skip = false;   // the register does not exist on this axis: the axis is passed over
    bool exempt = false; // a filtered stream download does not check this axis's result
    int code = 0;        // conversion code: the display format of the register or parameter
    uint32_t value_class = 0;
};

} // namespace

int _tra_parse_floating_numbers(TRA *tra, ParseContext *ctx, int p, int32_t cmd) {
    static constexpr Tracer t{"traa2r", "_tra_parse_floating_numbers"};
    if (tra == nullptr || ctx == nullptr || p < 0 || ctx->count > MAX_OPERANDS || p > ctx->count)
        return t.fail(__LINE__, TRA_EINTERNAL);
    // The values of an assignment in register units follow its destination register.
    const bool assignment = is_unit_assignment(cmd);
    int first = assignment ? p + 1 : p;
    uint64_t axes = ctx->axis_mask;
    uint64_t present = tra->present_axes.load();
    if (present != 0) axes &= present;

    for (int i = first; i < ctx->count; ++i) {
        Token &tok = ctx->tokens[i];
        // Only a number written with a fraction or an exponent and no suffix; a register of an
        // unknown type carries the same tag but is no number.
        if (tok.type != TAG_ISO || _tra_read_number(tok.text).tag != TAG_ISO) continue;
        TRA_ISO_CONVERTER converter = tra->call.converter;
        if (converter == nullptr) return t.fail(__LINE__, TRA_EISOVALUE, tok.text);

        const Token &destination = ctx->tokens[p];
        uint32_t element = destination.row + static_cast<uint32_t>(i - p) - 1;
        int param = i - first;
        uint32_t filter_mode = tra->download_filter_mode.load();

        const VOK_DICT *previous = nullptr;
        Conversion how;
        bool converted = false; // the converter was asked on some axis
        bool succeeded = false; // and answered 0 there
        bool have_reference = false;
        uint32_t reference_class = 0;
        unsigned char reference[8] = {};
        uint32_t last_class = 0;
        unsigned char last[8] = {};
        for (int axis = 0; axis < AXES; ++axis) {
            if ((axes >> axis & 1) == 0) continue;
            const VOK_DICT *dict = tra->axis_dicts[static_cast<std::size_t>(axis)];
            if (dict == nullptr) continue;
            if (dict != previous) {
                previous = dict;
                how = Conversion{};
                if (!assignment) {
                    if (!vok_get_param_is_iso(dict, static_cast<uint32_t>(cmd), param))
                        return t.fail(__LINE__, TRA_EISOVALUE, tok.text);
                    how.code = vok_get_param_format(dict, static_cast<uint32_t>(cmd), param);
                    how.value_class =
                        value_class(vok_get_param_kind(dict, static_cast<uint32_t>(cmd), param));
                } else {
                    uint32_t kind = static_cast<uint32_t>(destination.type);
                    if (!vok_register_exists(dict, kind, destination.index, element)) {
                        how.skip = true;
                    } else {
                        if (!vok_register_is_iso(dict, kind, destination.index, element))
                            return t.fail(__LINE__, TRA_EISOVALUE, tok.text);
                        how.code = vok_get_register_format(dict, kind, destination.index, element);
                        how.value_class = value_class(kind);
                        if (filter_mode != 0) {
                            bool user =
                                vok_test_register(dict, kind, destination.index, element) != 0;
                            how.exempt = (user && (filter_mode & 1) != 0) ||
                                         (!user && (filter_mode & 2) != 0);
                        }
                    }
                }
            }
            if (how.skip) continue;
            unsigned char drive[8] = {};
            double iso = tok.f64();
            int rc = converter(tra->bus, drive, &iso, how.value_class, how.code, axis, 0,
                               tra->call.context);
            converted = true;
            if (rc == 0) {
                succeeded = true;
                last_class = how.value_class;
                std::memcpy(last, drive, sizeof last);
            }
            if (how.exempt) continue;
            if (rc != 0) return t.fail(__LINE__, TRA_EISOCONV, tok.text);
            if (have_reference &&
                (how.value_class != reference_class || std::memcmp(drive, reference, 8) != 0))
                return t.fail(__LINE__, TRA_EISOCONV, tok.text);
            if (!have_reference) {
                have_reference = true;
                reference_class = how.value_class;
                std::memcpy(reference, drive, sizeof reference);
            }
        }
        // No addressed axis could take the value in ISO units.
        if (!converted) return t.fail(__LINE__, TRA_EISOVALUE, tok.text);
        // Every axis was exempt from checking, and every conversion failed.
        if (!succeeded) return t.fail(__LINE__, TRA_EISOCONV, tok.text);
        if (have_reference) {
            last_class = reference_class;
            std::memcpy(last, reference, sizeof last);
        }
        tok.type = static_cast<int32_t>(last_class);
        std::memset(tok.value, 0, sizeof tok.value);
        std::memcpy(tok.value, last, static_cast<std::size_t>(value_size(last_class)));
    }
    return 0;
}

} // namespace ryn::tra
