// The raw record text: a command record spelled out field by field in square brackets.
#include <cfloat>
#include <charconv>
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
    // Integer syntax of the drives' tools: "0X" hexadecimal, a leading "0" octal, else decimal.
    uint64_t integer() const { return std::strtoull(text, nullptr, 0); }
    // A decimal real; a leading "+" is taken as the C library's conversions take it.
    double real() const {
        double d = 0;
        const char *from = text[0] == '+' ? text + 1 : text;
        std::from_chars(from, text + length, d);
        return d;
    }
};

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
// pairs, or -1 when the line is not a raw record.
int walk(const char *line, std::size_t len, uint8_t *header, RecordView *record, uint64_t *mask) {
    Items items{line + 1, line + len - 1};
    Item item{};
    if (!items.next(&item) || !item.has("MASK:")) return -1;
    Value m(item);
    if (!m.ok) return -1;
    if (m.text[0] == '0' && m.text[1] == 'X')
        *mask = std::strtoull(m.text + 2, nullptr, 16);
    else
        *mask = std::strtoull(m.text, nullptr, 10);
    if (*mask == 0) return -1;

    const char *keys[] = {"GATE:", "CMD:", "REC:"};
    for (int k = 0; k < 3; ++k) {
        if (!items.next(&item) || !item.has(keys[k])) return -1;
        Value v(item);
        if (!v.ok) return -1;
        header[k + 1] = static_cast<uint8_t>(v.integer() & (k == 0 ? 7 : 0xFF));
    }

    int pairs = 0;
    while (items.next(&item)) {
        if (!item.has("TYP:")) return -1;
        Value typ(item);
        Item par_item{};
        if (!typ.ok || !items.next(&par_item) || !par_item.has("PAR:")) return -1;
        Value par(par_item);
        if (!par.ok) return -1;
        if (record != nullptr) {
            RecordSlot &slot = record->slot(pairs);
            std::memset(&slot, 0, sizeof slot);
            record->set_tag(pairs, static_cast<uint32_t>(typ.integer()));
            char last = par.length > 0 ? par.text[par.length - 1] : 0;
            bool hex = par_item.has("0X");
            if (last == 'L') {
                record->set_value64(pairs, par.integer());
            } else if (!hex && last == 'D') {
                double d = par.real();
                uint64_t bits;
                std::memcpy(&bits, &d, sizeof bits);
                record->set_value64(pairs, bits);
            } else if (!hex && last == 'F') {
                double d = par.real();
                float f = d > FLT_MAX    ? __builtin_inff()
                          : d < -FLT_MAX ? -__builtin_inff()
                                         : static_cast<float>(d);
                uint32_t bits;
                std::memcpy(&bits, &f, sizeof bits);
                record->set_value32(pairs, bits);
            } else {
                record->set_value32(pairs, static_cast<uint32_t>(par.integer()));
            }
        }
        ++pairs;
    }
    return pairs;
}

} // namespace

int _tra_parse_raw_record(const char *line, TRA_RECORD *record, int32_t capacity,
                          int32_t *count_out, uint64_t *mask_out) {
    static constexpr Tracer t{"traa2r", "_tra_parse_raw_record"};
    if (line == nullptr) return t.fail(__LINE__, TRA_EBADPARAM);
    std::size_t len = std::strlen(line);
    if (len < 2 || line[0] != '[' || line[len - 1] != ']') return TRA_ECMDSYNTAX;

    // First the whole line is read without writing, so that a refused line leaves the record as
    // it was.
    uint8_t header[8]{};
    uint64_t mask = 0;
    int pairs = walk(line, len, header, nullptr, &mask);
    if (pairs < 0) return TRA_ECMDSYNTAX;
    if (record == nullptr || capacity < 0) return t.fail(__LINE__, TRA_EBADPARAM, line);
    if (count_out != nullptr) *count_out = pairs;
    if (pairs > capacity) return t.fail(__LINE__, TRA_EBUFSIZE, line);
    if (pairs > 255) return t.fail(__LINE__, TRA_ETOOMANYPARAMS, line);

    RecordView view_ = view(record);
    walk(line, len, header, &view_, &mask);
    header[0] = static_cast<uint8_t>(pairs);
    std::memcpy(&view_.header(), header, sizeof header);
    if (count_out != nullptr) *count_out = pairs;
    if (mask_out != nullptr) *mask_out = mask;
    return 0;
}

} // namespace ryn::tra
