// The command text tokenizer: separator codes, word, name and number readers, and the small
// readers of axis lists, subscripts and integers that the parser calls.
#pragma once

#include <cstddef>
#include <cstdint>

#include "traa2r.hpp"

namespace ryn::tra {

// Packs a separator text of 1 to 3 characters into its code, first character in the low byte.
constexpr uint32_t sep(const char *text) {
    uint32_t code = 0;
    for (int i = 0; i < 4 && text[i] != 0; ++i)
        code |= uint32_t(static_cast<unsigned char>(text[i])) << (8 * i);
    return code;
}

// Characters that end a word, and the smaller set that ends a name (commas and brackets stay in).
inline constexpr char WORD_SEPARATORS[] = "'.:=,+-*/%&|<>~^[]";
inline constexpr char NAME_SEPARATORS[] = "'.:=+-*/%&|<>~^";

// What the number reader made of the start of a text.
struct Number {
    int32_t tag;            // TAG_INT32, TAG_INT64, TAG_FLOAT, TAG_DOUBLE, TAG_ISO or TAG_NAME
    std::size_t length;     // characters that belong to the number, its suffix included
    unsigned char value[8]; // little-endian; 32-bit tags use the first 4 bytes
};

// Reads a separator run at text[*pos]: at most three characters, "-" and "*" only in front.
// Returns its code and moves *pos behind it; a run of four is refused (0, *pos unchanged).
uint32_t _tra_read_separator(const char *text, std::size_t *pos);
// Copies the word at the start of text into out (at most size - 1 characters, terminated):
// a quoted string, a balanced "(...)", else up to the next separator; with numbers set, a word
// that starts with a digit (or "-" and a digit) ends where the number reader says. Returns the
// number of characters taken from text.
std::size_t _tra_read_word(const char *text, char *out, std::size_t size, bool numbers);
// Copies the name at the start of text up to the next name separator; returns characters taken.
std::size_t _tra_read_name(const char *text, char *out, std::size_t size);
// Reads a literal number from the start of an upper-case text.
Number _tra_read_number(const char *text);

// Reads an axis list "(1,3,*)" in place into *mask.
int _parse_mask_enum(char *text, uint64_t *mask);
// Reads the subscript text after "[" ("3]", "3,4]") in place.
int _parse_vector_subscript(char *text, uint32_t *row, uint8_t *row_given, uint32_t *column,
                            uint8_t *column_given);
// Reads a 32-bit integer; characters up to code `limit` around it are skipped, others refused.
int _str2long(char *text, int limit, int32_t *out);
// Reads a 64-bit integer (skipping blanks and control characters); a negative sign is applied
// twice, so "-5" gives 5.
int _str2int64(char *text, int64_t *out);

} // namespace ryn::tra
