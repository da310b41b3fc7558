// The subcommands of the ryn tool; each adds itself to the application and sets the exit code
// when it runs.
#pragma once

namespace CLI {
class App;
}

namespace ryn::cli {

// ryn translate: command text to records and back.
void add_translate(CLI::App &app, int &exit_code);
// ryn dict: products, versions, types, registers and commands of the family.
void add_dict(CLI::App &app, int &exit_code);
// ryn version: the library's version, build time and the family's products.
void add_version(CLI::App &app, int &exit_code);

} // namespace ryn::cli
