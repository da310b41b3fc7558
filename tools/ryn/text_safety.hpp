// Input echoed in messages and JSON: cut short, control bytes and invalid UTF-8 escaped, so that
// a terminal never receives raw binary and a JSON reader sees what the line held.
#pragma once

#include <cstddef>
#include <string>

namespace ryn::cli {

// The text for a terminal: control bytes (but tabs) and bytes of invalid UTF-8 as "\xNN", and
// cut after `most` characters with a note of the full length.
std::string shown(const std::string &text, std::size_t most = 120);

// Every character of the text, escaped as `shown` escapes it.
inline std::string escaped(const std::string &text) {
    return shown(text, text.size());
}

// The text itself when it is valid UTF-8; otherwise each byte that is not part of a valid
// sequence becomes "\xNN" (and a backslash "\\"), and `escaped` is set.
std::string utf8_or_escaped(const std::string &text, bool &escaped);

// As utf8_or_escaped, for fields where the escape needs no flag (messages built by the tool).
std::string json_safe(const std::string &text);

// Length of the valid UTF-8 sequence at text[i] (1 to 4), 0 when the byte starts none.
std::size_t utf8_sequence(const std::string &text, std::size_t i);

} // namespace ryn::cli
