// The ryn command-line tool: translate command text offline and browse the drive family.
#include <CLI/CLI.hpp>
#include <iostream>
#include <string>

#include "common.hpp"
#include "ryn/tra.h"
#include "subcommands.hpp"

int main(int argc, char **argv) {
    CLI::App app{"ryn: the ORAX drives' command language, offline"};
    app.name("ryn");
    app.require_subcommand(1);
    app.footer("Run 'ryn <command> --help' for the options of a command.\n"
               "Exit status: 0 success, 1 a line or look-up failed, 2 bad usage or input, "
               "3 the library could not start.");
    app.set_version_flag("--version", "ryn " + ryn::cli::version_text(tra_get_version()),
                         "Show the library's version and exit");
    int exit_code = ryn::cli::exit_ok;
    ryn::cli::add_translate(app, exit_code);
    ryn::cli::add_dict(app, exit_code);
    ryn::cli::add_version(app, exit_code);
    if (argc < 2) {
        std::cerr << app.help();
        return ryn::cli::exit_usage;
    }
    const std::string first = argv[1];
    if (first[0] != '-' && first != "translate" && first != "dict" && first != "version") {
        std::cerr << "ryn: unknown command '" << argv[1]
                  << "' (the commands: translate, dict, version; see ryn --help)\n";
        return ryn::cli::exit_usage;
    }
    if (argc == 2 && first == "dict") { // a group without its command: show what it offers
        std::cerr << app.get_subcommand("dict")->help("ryn");
        return ryn::cli::exit_usage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &e) {
        return app.exit(e); // --help
    } catch (const CLI::ParseError &e) {
        std::cerr << "ryn: " << e.what() << " (see --help)\n";
        return ryn::cli::exit_usage;
    }
    return exit_code;
}
