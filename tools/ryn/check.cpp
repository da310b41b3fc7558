// The check subcommand: every line of a parameter file validated for a drive configuration
// (offline) or for the drives of a bus, every bad line reported with its number.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "common.hpp"
#include "online.hpp"
#include "output.hpp"
#include "ryn/vok.h"

namespace ryn::cli {

namespace {

struct CheckOptions {
    std::string file;
    ConfigOptions config;
    std::string bus; // empty: offline, for the configuration
    bool json = false;
    // Offline without a configuration named: each axis block for the drive its header names.
    bool by_blocks = false;
};

int check(const CheckOptions &o) {
    std::string why;
    Input input;
    if (!input.open(o.file, &why)) {
        err() << "ryn check: " << why << '\n';
        return exit_usage;
    }
    params::Bus bus;
    Translator offline;
    TRA *tra = nullptr;
    std::string against;
    if (!o.bus.empty()) {
        if (int rc = open_bus("check", o.bus, bus); rc >= 0) return rc;
        tra = bus.checking();
        against = "bus " + o.bus;
    } else if (o.by_blocks) {
        if (!o.config.family.empty() && !load_family(o.config.family, why)) {
            err() << "ryn check: " << why << '\n';
            return exit_usage;
        }
        against = "the drive each axis block names";
    } else {
        Configuration c;
        if ((!o.config.family.empty() && !load_family(o.config.family, why)) ||
            !resolve_config(o.config, c, why)) {
            err() << "ryn check: " << why << '\n';
            return exit_usage;
        }
        if (int rc = tra_create_register_traductor_o(&offline.tra, c.product, c.version, c.ext,
                                                     c.ext_version, 0);
            rc != 0) {
            err() << "ryn check: cannot start the translator: " << tra_translate_error(rc) << '\n';
            return exit_failure;
        }
        tra = offline.tra;
        against = product_name(c.product) + " " + version_text(c.version);
        if (c.ext != 0) {
            const char *card = vok_get_ext_product_name(c.ext);
            against +=
                " with " + (card != nullptr ? std::string(card) : format("card 0x%X", c.ext));
        }
    }
    std::vector<params::LineProblem> problems;
    uint32_t lines = 0;
    const int bad = tra != nullptr
                        ? params::check(tra, *input.get(), o.file, &problems, &lines)
                        : params::check_by_blocks({}, *input.get(), o.file, &problems, &lines);
    if (bad < 0) {
        err() << "ryn check: " << o.file << ": "
              << (bad == TRA_EGETREC ? "cannot be read" : "not a parameter file") << '\n';
        return exit_usage;
    }
    if (o.json) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const params::LineProblem &p : problems)
            list.push_back(problem_json(p));
        write_json({{"file", o.file}, {"against", against}, {"lines", lines}, {"bad", list}});
    } else {
        for (const params::LineProblem &p : problems)
            out() << problem_text(p) << '\n';
        out() << format("%s: %u lines, %d bad (checked for %s)\n", o.file.c_str(), lines, bad,
                        against.c_str());
    }
    return bad == 0 ? exit_ok : exit_line_failed;
}

} // namespace

void add_check(CLI::App &app, int &exit_code) {
    auto o = std::make_shared<CheckOptions>();
    CLI::App *sub = app.add_subcommand(
        "check", "Validate every line of a parameter file, offline or against a bus");
    sub->add_option("file", o->file, "The parameter file; - reads standard input")->required();
    add_config_options(*sub, o->config, false);
    sub->add_option("--version", o->config.version, "The same as --drive-version")
        ->group("Configuration");
    sub->add_option("--bus", o->bus, "Check against the drives of this bus instead");
    sub->add_flag("--json", o->json, "Write the bad lines as JSON");
    sub->footer("Every line that is not a valid register assignment is reported with its number\n"
                "(not only the first); exit status 1 when any. Offline without --product, each\n"
                "axis block is checked for the drive its header names (as ryn backup writes it).\n"
                "Examples:\n  ryn check drives.par\n"
                "  ryn check drives.par --product ORX-D32 --version 3.12B\n"
                "  ryn check drives.par --product ORX-D32 --ext IOX-8\n"
                "  ryn check drives.par --bus sim:");
    sub->callback([&exit_code, o, sub] {
        o->by_blocks = o->bus.empty();
        for (const char *named :
             {"--product", "--drive-version", "--version", "--ext", "--ext-version"})
            if (sub->get_option(named)->count() > 0) o->by_blocks = false;
        exit_code = check(*o);
    });
}

} // namespace ryn::cli
