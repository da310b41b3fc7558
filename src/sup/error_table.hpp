// The shape of every library's error table: rows of code, symbolic name and message, sorted by
// code (checked when the table is compiled) and searched by halving.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

namespace ryn {

struct ErrorRow {
    int code;
    const char *name;    // "TRA_EBADPARAM"
    const char *message; // fixed English text
};

template <std::size_t N>
struct ErrorTable {
    std::array<ErrorRow, N> rows;

    // The row of a code, or null outside the table.
    constexpr const ErrorRow *find(int code) const {
        auto it = std::lower_bound(rows.begin(), rows.end(), code,
                                   [](const ErrorRow &r, int c) { return r.code < c; });
        return it != rows.end() && it->code == code ? &*it : nullptr;
    }
    constexpr const char *message(int code, const char *outside = "unknown error") const {
        const ErrorRow *r = find(code);
        return r != nullptr ? r->message : outside;
    }
    constexpr const char *name(int code) const {
        const ErrorRow *r = find(code);
        return r != nullptr ? r->name : nullptr;
    }
    // Position of a code's row, or -1: for tables kept beside this one row for row.
    constexpr std::ptrdiff_t position(int code) const {
        const ErrorRow *r = find(code);
        return r != nullptr ? r - rows.data() : -1;
    }
    static constexpr std::size_t size() { return N; }
};

// Makes a table of its rows; a table whose codes are not strictly ascending does not compile.
template <std::size_t N>
consteval ErrorTable<N> error_table(const ErrorRow (&rows)[N]) {
    ErrorTable<N> table{};
    for (std::size_t i = 0; i < N; ++i) {
        if (i > 0 && !(rows[i - 1].code < rows[i].code))
            throw "error table rows must be sorted by code, each code once";
        if (rows[i].name == nullptr || rows[i].message == nullptr)
            throw "every error table row has a name and a message";
        table.rows[i] = rows[i];
    }
    return table;
}

} // namespace ryn
