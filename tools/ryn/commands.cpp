// The table of subcommands, built from commands.def.
#include "commands.hpp"

#include <string>

namespace ryn::cli {

#define RYN_COMMAND(name, function) void function(CLI::App &app, int &exit_code);
#include "commands.def"
#undef RYN_COMMAND

namespace {

constexpr Command table[] = {
#define RYN_COMMAND(name, function) {#name, function},
#include "commands.def"
#undef RYN_COMMAND
};

} // namespace

std::span<const Command> commands() {
    return table;
}

std::string command_names() {
    std::string names;
    for (const Command &c : table)
        names += (names.empty() ? "" : ", ") + std::string(c.name);
    return names;
}

} // namespace ryn::cli
