// What a commissioning engineer can do about a refused line: the library's code and message stay
// as they are, and the tool adds what the dictionary allows (ranges, enumeration entries,
// read-only registers, element counts, the closest known names).
#pragma once

#include <string>
#include <vector>

#include "ryn/vok.h"

namespace ryn::cli {

// Sentences that explain why `line` was refused with `code`; empty when the tool has nothing to
// add. `dict` is the dictionary of the translator's configuration (null: only what the line
// itself shows).
std::vector<std::string> explain_failure(const VOK_DICT *dict, const std::string &line, int code);

} // namespace ryn::cli
