// Looking things up in a drive configuration's dictionary for the tool: registers and commands by
// the names the language uses, value classes, display formats, bounds, and the closest names.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ryn/vok.h"

namespace ryn::cli {

// An open dictionary, closed when it goes out of scope.
struct Dict {
    VOK_DICT *d = nullptr;
    Dict() = default;
    Dict(const Dict &) = delete;
    Dict &operator=(const Dict &) = delete;
    ~Dict() { vok_close(&d); }
};

// The text, or "-" when it is null or empty.
const char *or_dash(const char *text);
// "int32", "float", "int64" or "double": the value class of a register kind or parameter kind.
const char *class_name(uint32_t kind);
// The display format as one word: "hexadecimal", "decimal", "string", "floating", "ip-address".
const char *format_name(int code);

// A value of a class: integers in `i`, floating values in `d`.
struct Value {
    int64_t i = 0;
    double d = 0;
};

// A value written as its display format shows it.
std::string value_text(uint32_t kind, int display, const Value &v);
// "min .. max", or "none" when both bounds are 0.
std::string range_text(uint32_t kind, int display, const Value &min, const Value &max);
// The value of an enumeration entry in the class of `kind`.
Value enum_value(const VOK_DICT *d, uint32_t kind, int id, int entry);

// "K12", "XAC": a register's name in the language.
std::string register_name(const VOK_DICT *d, uint32_t kind, uint32_t index);
// Finds a register by name ("K12", "kf1", "SD1") or alias ("MODE").
bool find_register(const VOK_DICT *d, const std::string &text, uint32_t &kind, uint32_t &index);
// Finds a command by name ("MVE"), number ("160") or "@160".
bool find_command(const VOK_DICT *d, const std::string &text, uint32_t &command);
// A command's name, or "@N" when it has none.
std::string command_name(const VOK_DICT *d, uint32_t command);

// Bounds and default of a register element, and bounds of a command parameter.
Value reg_limit(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t s, bool max);
Value reg_default(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t s);
Value param_limit(const VOK_DICT *d, uint32_t c, int p, uint32_t kind, bool max);

// The register names, aliases and command names closest to `text` (at most `most`, nearest
// first), for "did you mean" hints; empty when nothing is near.
std::vector<std::string> closest_names(const VOK_DICT *d, const std::string &text, int most = 3);

// Number of single-character edits between two names, ASCII case ignored.
int edit_distance(const std::string &a, const std::string &b);

} // namespace ryn::cli
