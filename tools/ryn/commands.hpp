// The table of the tool's subcommands: each is one source file with one function that adds it to
// the application, and one row in commands.def.
#pragma once

#include <span>
#include <string>

namespace CLI {
class App;
}

namespace ryn::cli {

// Adds one subcommand (with its options and callback) to `app`; the callback stores the exit
// status in `exit_code`.
using AddCommand = void (*)(CLI::App &app, int &exit_code);

struct Command {
    const char *name;
    AddCommand add;
};

// Every subcommand, in the order that help lists them.
std::span<const Command> commands();

// Names of the subcommands as a list for messages: "translate, dict, version".
std::string command_names();

} // namespace ryn::cli
