// A light reading of one command line for the tool's warnings and explanations: the parts that a
// person wrote (name, axes, operator, values), before and after the library's cleaning.
#pragma once

#include <string>
#include <vector>

namespace ryn::cli {

struct ScannedLine {
    std::string raw;      // the line up to its comment (";", "#" or "//", even inside quotes)
    std::string clean;    // as the translator reads it: blanks outside quotes dropped, upper case
    std::string name;     // the first name: "K12", "MODE", "MVE", "@124" (no prefix, no subscript)
    std::string element;  // the element after ":" ("K5:2" gives "2"), "" when none
    std::string axes;     // what follows the "." of the first name: "0", "(1,2)", "!", ""
    bool has_axes = false; // the first name is followed by "."
    std::string op;       // "=", "+=", ... ; "" for a read or a command without values
    std::vector<std::string> values; // the items after the operator, split at top-level commas
    std::vector<std::string> items;  // without an operator: the comma-separated items of the line
    bool raw_record = false;         // the line is spelled out as a record "[MASK:...]"
};

// Reads a line; never fails (a line it cannot follow leaves fields empty).
ScannedLine scan_line(const std::string &line);

// Where the line's comment starts (its length when it has none).
std::size_t comment_start(const std::string &line);

// Whether a value item is a literal number, and its parts: sign, digits (with "0X"), suffix.
struct Literal {
    bool negative = false;
    bool hex = false;
    bool real = false; // has a point or an exponent
    char suffix = 0;   // 'L', 'F', 'D' or 0
    std::string digits; // without sign, "0X" and suffix
};
bool read_literal(const std::string &item, Literal &literal);

} // namespace ryn::cli
