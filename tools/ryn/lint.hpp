// Warnings about command lines that the language reads as something other than what a person
// probably meant: the one check shared by translate and, later, send, shell, restore, check and
// the web page. The translator reads such lines as it must; the tool says what is actually sent.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ryn/vok.h"

namespace ryn::cli {

struct Warning {
    const char *trap; // short name of the trap: "empty-axis", "ip-group", "int-width", ...
    std::string message;
};

// The translation of a line, as far as the lint pass needs it: the record (null when the line
// failed or translated to nothing) and its slot count.
struct Translated {
    const uint8_t *record = nullptr;
    int slots = 0;
};

// Checks one line; `dict` is the dictionary of the translator's configuration (null: the checks
// that need it are skipped).
std::vector<Warning> lint_line(const VOK_DICT *dict, const std::string &line,
                               const Translated &translated);

// Every trap's short name with a one-line description, for help texts and documentation.
struct Trap {
    const char *name;
    const char *what;
};
const std::vector<Trap> &lint_traps();

} // namespace ryn::cli
