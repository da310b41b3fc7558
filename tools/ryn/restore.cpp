// The restore subcommand: a parameter file downloaded to the drives, after its axis blocks were
// compared with the drives present; ends with how many lines were applied, skipped and refused.
#include <CLI/CLI.hpp>
#include <bit>
#include <memory>
#include <string>

#include "common.hpp"
#include "online.hpp"
#include "output.hpp"

namespace ryn::cli {

nlohmann::ordered_json restore_report_json(const std::string &file, const params::RestoreReport &r,
                                           int rc, bool dry_run) {
    nlohmann::ordered_json mismatches = nlohmann::ordered_json::array();
    for (const params::Mismatch &m : r.mismatches)
        mismatches.push_back({{"axis", m.axis},
                              {"what", m.what},
                              {"file", m.file},
                              {"drive", m.drive},
                              {"refuses", m.refuses}});
    nlohmann::ordered_json problems = nlohmann::ordered_json::array();
    for (const params::LineProblem &p : r.problems)
        problems.push_back(problem_json(p));
    return {{"file", file},
            {"dry_run", dry_run},
            {"ok", rc == 0},
            {"code", rc},
            {"mismatches", mismatches},
            {"stopped", r.stopped},
            {"lines", r.lines},
            {"applied", r.applied},
            {"skipped", r.skipped},
            {"refused", r.refused},
            {"first_refused", r.first_refused_line == 0
                                  ? nlohmann::ordered_json(nullptr)
                                  : nlohmann::ordered_json{{"line", r.first_refused_line},
                                                           {"text", r.first_refused_text}}},
            {"problems", problems}};
}

namespace {

struct RestoreOptions {
    std::string file;
    std::string axes;
    std::string types;
    std::string bus = "sim:";
    bool dry_run = false, force = false, progress = false, json = false;
};

std::string mismatch_text(const params::Mismatch &m) {
    if (m.what == "drive")
        return format("axis %d: the file holds a drive (%s) but the bus has none there; its lines "
                      "are skipped",
                      m.axis, m.file.c_str());
    return format("axis %d: the file's %s is %s, the drive's is %s", m.axis, m.what.c_str(),
                  m.file.c_str(), m.drive.c_str());
}

int restore(const RestoreOptions &o) {
    params::RestoreOptions options;
    std::string why;
    if (!read_selection("restore", o.axes, o.types, &options.axes, &options.types))
        return exit_usage;
    Input input;
    if (!input.open(o.file, &why)) {
        err() << "ryn restore: " << why << '\n';
        return exit_usage;
    }
    params::Bus bus;
    if (int rc = open_bus_for("restore", o.bus, !o.axes.empty(), options.axes, bus); rc >= 0)
        return rc;
    options.dry_run = o.dry_run;
    options.force = o.force;
    ProgressBar bar(o.dry_run ? "check" : "restore", o.progress);
    if (bar.enabled()) options.progress = [&bar](double p) { bar.show(p); };
    params::RestoreReport r;
    const int rc = params::restore(bus, *input.get(), o.file, options, &r);
    bar.clear();
    if (rc == TRA_ESTREAMFORMAT || rc == TRA_EGETREC) {
        err() << "ryn restore: " << o.file << ": "
              << (rc == TRA_EGETREC ? "cannot be read" : "not a parameter file") << '\n';
        return exit_usage;
    }
    if (o.json) {
        write_json(restore_report_json(o.file, r, rc, o.dry_run));
        return rc == 0 ? exit_ok : exit_line_failed;
    }
    for (const params::Mismatch &m : r.mismatches)
        err() << "ryn restore: " << (m.refuses && !o.force ? "" : "warning: ") << mismatch_text(m)
              << '\n';
    if (r.stopped) {
        err() << "ryn restore: nothing was sent: the file is for another product (--force restores "
                 "it anyway)\n";
        return exit_line_failed;
    }
    if (o.dry_run) {
        for (const params::LineProblem &p : r.problems)
            out() << problem_text(p) << '\n';
        out() << format("dry run of %s: %u lines, %u would be sent, %u skipped, %zu bad\n",
                        o.file.c_str(), r.lines, r.applied, r.skipped, r.problems.size());
        return rc == 0 ? exit_ok : exit_line_failed;
    }
    if (rc != 0 && !r.problems.empty())
        err() << "ryn restore: " << problem_text(r.problems.front())
              << "; the restore stopped there, the lines before it stay applied\n";
    if (r.refused != 0)
        err() << format("ryn restore: %s:%d: refused by the drive: %s\n", o.file.c_str(),
                        r.first_refused_line, r.first_refused_text.c_str());
    out() << format("restore of %s: %u lines, %u applied, %u skipped, %u refused in %.2f s%s\n",
                    o.file.c_str(), r.lines, r.applied, r.skipped, r.refused, r.seconds,
                    rc == 0 ? "" : " (failed)");
    return rc == 0 ? exit_ok : exit_line_failed;
}

} // namespace

void add_restore(CLI::App &app, int &exit_code) {
    auto o = std::make_shared<RestoreOptions>();
    CLI::App *sub = app.add_subcommand("restore", "Download a parameter file to the drives");
    sub->add_option("file", o->file, "The parameter file; - reads standard input")->required();
    sub->add_option("--axes", o->axes, "Axes to restore: 0,2-3,* (default: every drive)");
    sub->add_option("--types", o->types, "Register types: K,X,... (default: X,K,L,E,W,C)");
    add_bus_option(*sub, o->bus);
    sub->add_flag("--dry-run", o->dry_run,
                  "Check every line against the drives present; send nothing");
    sub->add_flag("--force", o->force, "Restore even onto another product than the file names");
    sub->add_flag("--progress", o->progress, "Show the progress bar even when not on a terminal");
    sub->add_flag("--json", o->json, "Write the report as JSON");
    sub->footer(
        "Before sending, the file's axis blocks are compared with the drives: another product\n"
        "stops the restore (unless --force), another version or card is a warning. A line that\n"
        "fails stops the restore (the lines before it stay applied); a line a drive refuses is\n"
        "counted, and any refusal is a failed restore (exit status 1).\n"
        "Examples:\n  ryn restore drives.par\n  ryn restore drives.par --dry-run\n"
        "  ryn restore drives.par --axes 0 --types K --bus tcp://127.0.0.1:7500");
    sub->callback([&exit_code, o] { exit_code = restore(*o); });
}

} // namespace ryn::cli
