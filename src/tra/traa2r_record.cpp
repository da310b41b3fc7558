// The raw record text: a command record spelled out field by field in square brackets.
#include <cfloat>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "record.hpp"
#include "traa2r.hpp"

namespace ryn::tra {

namespace {

// One item of the bracketed text: the characters between two "," or "]".
struct Item {
    const char *begin;
    const char *end;

    bool has(const char *key) const {
        std::size_t n = std::strlen(key);
        std::size_t size = static_cast<std::size_t>(end - begin);
        for (std::size_t i = 0; i + n <= size; ++i)
            if (std::memcmp(begin + i, key, n) == 0) return true;
        return false;
    }
};

// The value of an item: the text after its first ":", copied so that it ends in a terminator.
struct Value {
    char text[128];
    std::size_t length;
    bool ok; // the item has a ":" and its value fits

    explicit Value(const Item &item) : text{}, length(0), ok(false) {
        const char *colon = static_cast<const char *>(
            std::memchr(item.begin, ':', static_cast<std::size_t>(item.end - item.begin)));
        if (colon == nullptr) return;
        length = static_cast<std::size_t>(item.end - colon - 1);
        if (length >= sizeof text) return;
        std::memcpy(text, colon + 1, length);
        text[length] = 0;
        ok = true;
    }
};

// Why a raw record line is refused although it has every key: a value that its field has no room
// for, or a value that is not a number at all.
struct Refusal {
    int code = 0;
    const char *field = nullptr;
    char value[128] = {};

    // Keeps the first reason only: the line is refused for the first value that is wrong.
    void set(int why, const char *name, const char *text) {
        if (code != 0) return;
        code = why;
        field = name;
        std::snprintf(value, sizeof value, "%s", text);
    }
};

// Integer syntax of the drives' tools: "0X" hexadecimal, a leading "0" octal, else decimal, with
// an optional sign; the number ends at `digits_end` (before a width suffix). Gives 0, or
// TRA_ECMDSYNTAX when the text is not such a number, TRA_ERANGE when it does not fit 64 bits.
int read_integer(const char *text, const char *digits_end, bool &negative, uint64_t &magnitude) {
    const char *p = text;
    negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    int base = 10;
    if (p[0] == '0' && p + 1 < digits_end && p[1] == 'X') {
        base = 16;
        p += 2;
    } else if (p[0] == '0' && p + 1 < digits_end) {
        base = 8;
        ++p;
    }
    if (p >= digits_end) return TRA_ECMDSYNTAX;
    const auto r = std::from_chars(p, digits_end, magnitude, base);
    if (r.ptr != digits_end || (r.ec != std::errc{} && r.ec != std::errc::result_out_of_range))
        return TRA_ECMDSYNTAX;
    if (r.ec == std::errc::result_out_of_range) return TRA_ERANGE;
    return 0;
}

// Reads an integer value that must lie in [min, max] (a negative value is stored as its two's
// complement); on failure records why in `refusal`, unless an earlier value did.
bool integer_in(const Value &v, std::size_t digits, int64_t min, uint64_t max, const char *field,
                uint64_t &out, Refusal &refusal) {
    bool negative = false;
    uint64_t magnitude = 0;
    int rc = read_integer(v.text, v.text + digits, negative, magnitude);
    if (rc == 0) {
        const uint64_t most_negative = min < 0 ? uint64_t(-(min + 1)) + 1 : 0;
        if (negative ? magnitude > most_negative : magnitude > max) rc = TRA_ERANGE;
    }
    if (rc != 0) {
        refusal.set(rc, field, v.text);
        return false;
    }
    out = negative ? uint64_t(0) - magnitude : magnitude;
    return true;
}

// A decimal real before its one-letter width suffix; a leading "+" is taken as the C library's
// conversions take it. Gives 0, TRA_ECMDSYNTAX when the text is not a real, TRA_ERANGE when its
// magnitude overflows a double.
int read_real(const Value &v, double &d) {
    const char *from = v.text[0] == '+' ? v.text + 1 : v.text;
    const char *end = v.text + v.length - 1;
    if (from >= end) return TRA_ECMDSYNTAX;
    const auto r = std::from_chars(from, end, d);
    if (r.ptr != end) return TRA_ECMDSYNTAX;
    if (r.ec == std::errc::result_out_of_range) return TRA_ERANGE;
    return r.ec == std::errc{} ? 0 : TRA_ECMDSYNTAX;
}

// Cuts the text between the brackets into items, one at a time.
struct Items {
    const char *p;
    const char *end;

    bool next(Item *item) {
        if (p > end) return false;
        const char *q = p;
        while (q < end && *q != ',' && *q != ']')
            ++q;
        *item = {p, q};
        p = q + 1;
        return true;
    }
};

// Reads the whole line; writes the record only when `record` is given. Returns the number of
// pairs, -1 when the line is not a raw record, -2 when it is one but a value does not fit its
// field (then `refusal` says which).
int walk(const char *line, std::size_t len, uint8_t *header, RecordView *record, uint64_t *mask,
         Refusal &refusal) {
    Items items{line + 1, line + len - 1};
    Item item{};
    if (!items.next(&item) || !item.has("MASK:")) return -1;
    Value m(item);
    if (!m.ok) return -1;
    {
        const bool hex = m.text[0] == '0' && m.text[1] == 'X';
        const char *digits = hex ? m.text + 2 : m.text;
        const char *end = m.text + m.length;
        uint64_t value = 0;
        const auto r = std::from_chars(digits, end, value, hex ? 16 : 10);
        if (r.ptr == digits) return -1; // no number at all: not a raw record
        if (r.ec == std::errc::result_out_of_range)
            refusal.set(TRA_ERANGE, "MASK", m.text);
        else if (r.ptr != end)
            refusal.set(TRA_ECMDSYNTAX, "MASK", m.text);
        *mask = value;
    }
    if (*mask == 0 && refusal.code == 0) return -1;

    // The gate takes any 32-bit value and keeps its low three bits; the command and the record
    // kind are one byte each.
    const char *keys[] = {"GATE:", "CMD:", "REC:"};
    const char *fields[] = {"GATE", "CMD", "REC"};
    const uint64_t limits[] = {UINT32_MAX, 0xFF, 0xFF};
    for (int k = 0; k < 3; ++k) {
        if (!items.next(&item) || !item.has(keys[k])) return -1;
        Value v(item);
        if (!v.ok) return -1;
        uint64_t value = 0;
        integer_in(v, v.length, 0, limits[k], fields[k], value, refusal);
        header[k + 1] = static_cast<uint8_t>(value & (k == 0 ? 7 : 0xFF));
    }

    int pairs = 0;
    while (items.next(&item)) {
        if (!item.has("TYP:")) return -1;
        Value typ(item);
        Item par_item{};
        if (!typ.ok || !items.next(&par_item) || !par_item.has("PAR:")) return -1;
        Value par(par_item);
        if (!par.ok) return -1;
        uint64_t tag = 0;
        integer_in(typ, typ.length, INT32_MIN, UINT32_MAX, "TYP", tag, refusal);
        const char last = par.length > 0 ? par.text[par.length - 1] : 0;
        const bool hex = par_item.has("0X");
        uint64_t value = 0;
        bool wide = true;
        if (last == 'L') {
            integer_in(par, par.length - 1, INT64_MIN, UINT64_MAX, "PAR", value, refusal);
        } else if (!hex && (last == 'D' || last == 'F')) {
            double d = 0;
            const int rc = read_real(par, d);
            if (rc != 0) refusal.set(rc, "PAR", par.text);
            if (last == 'D') {
                std::memcpy(&value, &d, sizeof value);
            } else {
                if (d > FLT_MAX || d < -FLT_MAX) refusal.set(TRA_ERANGE, "PAR", par.text);
                const auto f = static_cast<float>(d);
                uint32_t bits;
                std::memcpy(&bits, &f, sizeof bits);
                value = bits;
                wide = false;
            }
        } else {
            integer_in(par, par.length, INT32_MIN, UINT32_MAX, "PAR", value, refusal);
            value &= 0xFFFFFFFFu;
            wide = false;
        }
        if (record != nullptr) {
            RecordSlot &slot = record->slot(pairs);
            std::memset(&slot, 0, sizeof slot);
            record->set_tag(pairs, static_cast<uint32_t>(tag));
            if (wide)
                record->set_value64(pairs, value);
            else
                record->set_value32(pairs, static_cast<uint32_t>(value));
        }
        ++pairs;
    }
    return refusal.code != 0 ? -2 : pairs;
}

} // namespace

int _tra_parse_raw_record(const char *line, TRA_RECORD *record, int32_t capacity,
                          int32_t *count_out, uint64_t *mask_out, bool *refused_out) {
    static constexpr Tracer t{"traa2r", "_tra_parse_raw_record"};
    if (line == nullptr) return t.fail(__LINE__, TRA_EBADPARAM);
    std::size_t len = std::strlen(line);
    if (len < 2 || line[0] != '[' || line[len - 1] != ']') return TRA_ECMDSYNTAX;

    // First the whole line is read without writing, so that a refused line leaves the record as
    // it was.
    uint8_t header[8]{};
    uint64_t mask = 0;
    Refusal refusal;
    int pairs = walk(line, len, header, nullptr, &mask, refusal);
    // A line with every key of a raw record but a value its field cannot hold is refused here: it
    // is not read again as an ordinary command, and no value is cut to fit.
    if (pairs == -2) {
        if (refused_out != nullptr) *refused_out = true;
        return t.fail(__LINE__, refusal.code, refusal.field, refusal.value);
    }
    if (pairs < 0) return TRA_ECMDSYNTAX;
    if (record == nullptr || capacity < 0) return t.fail(__LINE__, TRA_EBADPARAM, line);
    if (count_out != nullptr) *count_out = pairs;
    if (pairs > capacity) return t.fail(__LINE__, TRA_EBUFSIZE, line);
    if (pairs > 255) return t.fail(__LINE__, TRA_ETOOMANYPARAMS, line);

    RecordView view_ = view(record);
    walk(line, len, header, &view_, &mask, refusal);
    header[0] = static_cast<uint8_t>(pairs);
    std::memcpy(&view_.header(), header, sizeof header);
    if (count_out != nullptr) *count_out = pairs;
    if (mask_out != nullptr) *mask_out = mask;
    return 0;
}

} // namespace ryn::tra
