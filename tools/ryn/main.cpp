// The ryn command-line tool: the application, its subcommands from the command table, and the
// tool's own wording of usage errors.
#include <CLI/CLI.hpp>
#include <regex>
#include <string>

#include "commands.hpp"
#include "common.hpp"
#include "output.hpp"
#include "ryn/tra.h"

namespace {

using namespace ryn::cli;

// "ryn dict register" for a subcommand, "ryn" for the application.
std::string path_of(const CLI::App *app) {
    std::string path;
    for (; app != nullptr; app = app->get_parent())
        path = app->get_name() + (path.empty() ? "" : " " + path);
    return path;
}

std::string subcommand_list(const CLI::App *app) {
    std::string list;
    for (const CLI::App *sub : app->get_subcommands([](const CLI::App *) { return true; }))
        list += (list.empty() ? "" : ", ") + sub->get_name();
    return list;
}

bool is_group(const CLI::App *app) {
    return !app->get_subcommands([](const CLI::App *) { return true; }).empty();
}

// The deepest subcommand that the parse reached.
const CLI::App *deepest(const CLI::App *app) {
    for (;;) {
        const auto parsed = app->get_subcommands();
        if (parsed.empty()) return app;
        app = parsed.front();
    }
}

// Walks the leading words of the command line through the groups of subcommands: a word that
// names no command of a group is refused with the group's commands, and a group given without
// a command shows its help. Returns -1 to go on parsing, else the exit status.
int check_commands(CLI::App &app, int argc, char **argv) {
    CLI::App *at = &app;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.empty() || word[0] == '-') return -1; // options: left to the parser
        if (!is_group(at)) return -1;
        CLI::App *sub = nullptr;
        try {
            sub = at->get_subcommand(word);
        } catch (const CLI::OptionNotFound &) {
        }
        if (sub == nullptr) {
            err() << path_of(at) << ": unknown command '" << word
                  << "' (the commands: " << subcommand_list(at) << "; see " << path_of(at)
                  << " --help)\n";
            return exit_usage;
        }
        at = sub;
    }
    if (!is_group(at)) return -1;
    err() << at->help(path_of(at->get_parent() ? at->get_parent() : at));
    return exit_usage;
}

// CLI11's message of a parse error, reworded as the tool's sentence.
std::string reword(const std::string &what) {
    std::smatch m;
    static const std::regex at_most("(.*): At Most ([0-9]+) required but received ([0-9]+)");
    static const std::regex missing("(.*): [0-9]+ required [A-Z]+ missing");
    static const std::regex not_expected(
        "The following arguments? (?:was|were) not expected: (.*)");
    static const std::regex not_in("(.*): (.*) not in \\{(.*)\\}");
    static const std::regex required("(.*) is required");
    if (std::regex_match(what, m, at_most))
        return m[2] == "1" ? m[1].str() + " takes one value, but was given " + m[3].str()
                           : m[1].str() + " takes at most " + m[2].str() +
                                 " values, but was given " + m[3].str();
    if (std::regex_match(what, m, missing)) return m[1].str() + " needs a value";
    if (std::regex_match(what, m, not_expected)) return "unexpected argument '" + m[1].str() + "'";
    if (std::regex_match(what, m, not_in)) {
        std::string choices = m[3].str();
        for (char &c : choices)
            if (c == ',') c = '|';
        return m[1].str() + " takes one of " + choices + ", not '" + m[2].str() + "'";
    }
    if (std::regex_match(what, m, required)) return "missing argument <" + m[1].str() + ">";
    std::string text = what;
    if (!text.empty())
        text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

int run(int argc, char **argv) {
    CLI::App app{"ryn: the ORAX drives' command language, offline and on a bus"};
    app.name("ryn");
    app.require_subcommand(1);
    app.footer("Run 'ryn <command> --help' for the options of a command.\n"
               "Exit status: 0 success, 1 a line or look-up failed, 2 bad usage or input, "
               "3 the library could not start, 4 the output could not be written.");
    app.set_version_flag("--version", "ryn " + version_text(tra_get_version()),
                         "Show the library's version and exit");
    int exit_code = exit_ok;
    for (const Command &c : commands())
        c.add(app, exit_code);
    if (argc < 2) {
        err() << app.help();
        return exit_usage;
    }
    if (int rc = check_commands(app, argc, argv); rc >= 0) return rc;
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        out() << deepest(&app)->help(path_of(deepest(&app)->get_parent()));
        return exit_ok;
    } catch (const CLI::CallForVersion &e) {
        out() << e.what() << '\n';
        return exit_ok;
    } catch (const CLI::ParseError &e) {
        const CLI::App *at = deepest(&app);
        err() << path_of(at) << ": " << reword(e.what()) << " (see " << path_of(at) << " --help)\n";
        return exit_usage;
    }
    return exit_code;
}

} // namespace

int main(int argc, char **argv) {
    setup_streams();
    int rc = run(argc, argv);
    if (!finish_streams()) rc = exit_output;
    return rc;
}
