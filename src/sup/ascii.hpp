// ASCII text helpers shared by the libraries, independent of the C locale.
#pragma once

namespace ryn {

constexpr char ascii_lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The one case-insensitive comparison of names: character by character after lowering ASCII
// capitals, as signed characters; a name that is a prefix of the other sorts first. -1, 0 or 1.
constexpr int ascii_compare_nocase(const char *a, const char *b) {
    for (;; ++a, ++b) {
        const auto x = static_cast<signed char>(ascii_lower(*a));
        const auto y = static_cast<signed char>(ascii_lower(*b));
        if (x != y) return x < y ? -1 : 1;
        if (x == 0) return 0;
    }
}
static_assert(ascii_compare_nocase("K_A", "ka") < 0 && ascii_compare_nocase("Mve", "MVE") == 0 &&
              ascii_compare_nocase("AB", "ABC") < 0);

} // namespace ryn
