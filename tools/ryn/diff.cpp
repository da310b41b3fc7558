// The diff subcommand: two parameter files, or a file and a live upload (bus:ADDRESS), compared
// element by element; comments, order and number spelling make no difference.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "common.hpp"
#include "online.hpp"
#include "output.hpp"

namespace ryn::cli {

namespace {

struct DiffOptions {
    std::string a, b;
    std::string types;
    bool json = false;
};

// Reads one side: a file, "-", or "bus:ADDRESS" (uploaded now). Returns -1 or an exit status.
int read_side(const std::string &source, const params::UploadOptions &upload,
              params::ParamSet *set) {
    std::string why;
    if (source.rfind("bus:", 0) == 0) {
        params::Bus bus;
        if (int rc = open_bus("diff", source.substr(4), bus); rc >= 0) return rc;
        if (params::upload_set(bus, upload, set, &why) != 0) {
            err() << "ryn diff: " << source << ": " << why << '\n';
            return exit_line_failed;
        }
        return -1;
    }
    Input input;
    if (!input.open(source, &why)) {
        err() << "ryn diff: " << why << '\n';
        return exit_usage;
    }
    set->source = source;
    const int rc = params::read_set(*input.get(), params::ReadOptions{}, nullptr, set);
    if (rc != 0) {
        err() << "ryn diff: " << source << ": "
              << (rc == TRA_EGETREC ? "cannot be read" : "not a parameter file") << '\n';
        return exit_usage;
    }
    return -1;
}

int diff(const DiffOptions &o) {
    params::UploadOptions upload;
    if (!read_selection("diff", "", o.types, nullptr, &upload.types)) return exit_usage;
    params::ParamSet a, b;
    if (int rc = read_side(o.a, upload, &a); rc >= 0) return rc;
    if (int rc = read_side(o.b, upload, &b); rc >= 0) return rc;
    for (const params::ParamSet *set : {&a, &b})
        for (const params::LineProblem &p : set->problems)
            err() << "ryn diff: " << problem_text(p) << " (not compared)\n";
    const std::vector<params::Difference> differences = params::diff(a, b);
    if (o.json) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const params::Difference &d : differences)
            list.push_back({{"axis", d.key.axis},
                            {"register", d.name},
                            {"a", d.a ? nlohmann::ordered_json(*d.a) : nullptr},
                            {"b", d.b ? nlohmann::ordered_json(*d.b) : nullptr}});
        write_json({{"a", o.a}, {"b", o.b}, {"equal", differences.empty()}, {"differences", list}});
    } else {
        int axis = -1;
        for (const params::Difference &d : differences) {
            if (d.key.axis != axis) {
                axis = d.key.axis;
                out() << (axis == 63 ? std::string("axis 63 (*):") : format("axis %d:", axis))
                      << '\n';
            }
            if (d.a && d.b)
                out() << "  " << d.name << ": " << *d.a << " -> " << *d.b << '\n';
            else if (d.a)
                out() << "  " << d.name << ": " << *d.a << " (only in " << o.a << ")\n";
            else
                out() << "  " << d.name << ": " << *d.b << " (only in " << o.b << ")\n";
        }
        if (differences.empty()) out() << "no difference\n";
    }
    if (!a.problems.empty() || !b.problems.empty()) return exit_usage;
    return differences.empty() ? exit_ok : exit_line_failed;
}

} // namespace

void add_diff(CLI::App &app, int &exit_code) {
    auto o = std::make_shared<DiffOptions>();
    CLI::App *sub = app.add_subcommand(
        "diff", "Compare two parameter files, or a file and a bus (bus:ADDRESS)");
    sub->add_option("a", o->a, "A parameter file, - or bus:ADDRESS")->required();
    sub->add_option("b", o->b, "A parameter file, - or bus:ADDRESS")->required();
    sub->add_option("--types", o->types, "Register types of a live upload (default: X,K,L,E,W,C)");
    sub->add_flag("--json", o->json, "Write the differences as JSON");
    sub->footer("Values are compared as values: comments, order and number spelling (0x10 and 16)\n"
                "make no difference. Exit status 1 when A and B differ, 2 when a line could not\n"
                "be read.\n"
                "Examples:\n  ryn diff before.par after.par\n  ryn diff drives.par bus:sim:\n"
                "  ryn diff drives.par bus:tcp://127.0.0.1:7500 --json");
    sub->callback([&exit_code, o] { exit_code = diff(*o); });
}

} // namespace ryn::cli
