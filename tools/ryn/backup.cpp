// The backup subcommand: the drives' registers uploaded into a parameter file (standard output by
// default), read-only elements as comment lines, with a progress bar and a summary.
#include <CLI/CLI.hpp>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <sys/stat.h>

#include "common.hpp"
#include "online.hpp"
#include "output.hpp"

namespace ryn::cli {

namespace {

struct BackupOptions {
    std::string output;
    std::string axes;
    std::string types;
    std::string bus = "sim:";
    bool progress = false;
    bool aliases = false, descriptions = false, groups = false, skip_defaults = false;
    bool vector = false, verbose = false, no_comments = false;
};

uint32_t layout_flags(const BackupOptions &o) {
    uint32_t flags = 0;
    if (o.aliases) flags |= TRA_FUSE_ALIASES;
    if (o.descriptions) flags |= TRA_FDESCRIPTIONS | TRA_FRESERVED_COMMENT;
    if (o.groups) flags |= TRA_FGROUP_CLASSES;
    if (o.skip_defaults) flags |= TRA_FSKIP_DEFAULTS;
    if (o.vector) flags |= TRA_FVECTOR_FORM;
    if (o.verbose) flags |= TRA_FVERBOSE;
    if (o.no_comments) flags |= TRA_FNO_COMMENTS;
    return flags;
}

// Where the lines go: standard output, or a file written under a temporary name and renamed when
// complete (a device such as /dev/full is written directly).
class Sink {
  public:
    bool open(const std::string &path, std::string *why) {
        path_ = path;
        if (path.empty() || path == "-") return true;
        struct stat st {};
        const bool regular = ::stat(path.c_str(), &st) != 0 || S_ISREG(st.st_mode);
        target_ = regular ? path + ".part" : path;
        file_ = std::fopen(target_.c_str(), "wb");
        if (file_ == nullptr) {
            *why = "cannot write '" + path + "': " + std::strerror(errno);
            return false;
        }
        return true;
    }
    bool write(const std::string &line) {
        if (file_ == nullptr) {
            out() << line << '\n';
            return !out().failed();
        }
        if (std::fputs(line.c_str(), file_) < 0 || std::fputc('\n', file_) == EOF) error_ = errno;
        return error_ == 0;
    }
    // Completes the output; false with the reason when anything could not be written.
    bool finish(bool complete, std::string *why) {
        if (file_ == nullptr) {
            if (out().flush()) return true;
            *why = std::string("cannot write standard output: ") + std::strerror(out().error());
            return false;
        }
        if (std::fflush(file_) != 0 && error_ == 0) error_ = errno;
        if (std::fclose(file_) != 0 && error_ == 0) error_ = errno;
        file_ = nullptr;
        const bool renamed = target_ == path_;
        if (error_ != 0 || !complete) {
            if (!renamed) std::remove(target_.c_str());
            if (error_ != 0) *why = "cannot write '" + path_ + "': " + std::strerror(error_);
            return false;
        }
        if (!renamed && std::rename(target_.c_str(), path_.c_str()) != 0) {
            *why = "cannot write '" + path_ + "': " + std::strerror(errno);
            std::remove(target_.c_str());
            return false;
        }
        return true;
    }
    ~Sink() {
        if (file_ != nullptr) {
            std::fclose(file_);
            if (target_ != path_) std::remove(target_.c_str());
        }
    }

  private:
    std::string path_, target_;
    std::FILE *file_ = nullptr;
    int error_ = 0;
};

int backup(const BackupOptions &o) {
    params::UploadOptions options;
    std::string why;
    if (!read_selection("backup", o.axes, o.types, &options.axes, &options.types))
        return exit_usage;
    params::Bus bus;
    if (int rc = open_bus_for("backup", o.bus, !o.axes.empty(), options.axes, bus); rc >= 0)
        return rc;
    Sink sink;
    if (!sink.open(o.output, &why)) {
        err() << "ryn backup: " << why << '\n';
        return exit_usage;
    }
    options.flags = layout_flags(o);
    options.date = fixed_date();
    ProgressBar bar("backup", o.progress);
    if (bar.enabled()) options.progress = [&bar](double p) { bar.show(p); };
    params::UploadSummary summary;
    const int rc = params::upload(
        bus, options, [&sink](const std::string &line) { return sink.write(line); }, &summary);
    bar.clear();
    std::string write_error;
    const bool written = sink.finish(rc == 0, &write_error);
    if (!written || rc == TRA_EWRITE) {
        err() << "ryn backup: " << (write_error.empty() ? summary.message : write_error)
              << "; the backup is incomplete\n";
        return exit_output;
    }
    if (rc != 0) {
        err() << "ryn backup: " << summary.message << "; the backup is incomplete\n";
        return exit_line_failed;
    }
    err() << format("ryn backup: %d axes, %u registers, %u elements (%u read-only, as comments) "
                    "in %.2f s\n",
                    summary.axes, summary.registers, summary.elements, summary.read_only,
                    summary.seconds);
    return exit_ok;
}

} // namespace

void add_backup(CLI::App &app, int &exit_code) {
    auto o = std::make_shared<BackupOptions>();
    CLI::App *sub =
        app.add_subcommand("backup", "Upload the drives' registers into a parameter file");
    sub->add_option("-o,--output", o->output, "The file to write (default: standard output)");
    sub->add_option("--axes", o->axes, "Axes to back up: 0,2-3,* (default: every drive)");
    sub->add_option("--types", o->types,
                    "Register types: K,X,... (K: every class of K; KF: floats only; default: "
                    "X,K,L,E,W,C)");
    add_bus_option(*sub, o->bus);
    sub->add_flag("--progress", o->progress, "Show the progress bar even when not on a terminal");
    sub->add_flag("--aliases", o->aliases, "Write registers under their aliases")->group("Layout");
    sub->add_flag("--descriptions", o->descriptions, "Describe types and registers in comments")
        ->group("Layout");
    sub->add_flag("--groups", o->groups, "Group registers by class, with section lines")
        ->group("Layout");
    sub->add_flag("--skip-defaults", o->skip_defaults, "Leave out elements at their default")
        ->group("Layout");
    sub->add_flag("--vector", o->vector, "One line per register with all its elements")
        ->group("Layout");
    sub->add_flag("--verbose", o->verbose, "Settings, serial numbers and index counts as comments")
        ->group("Layout");
    sub->add_flag("--no-comments", o->no_comments, "No header, axis blocks or type headers")
        ->group("Layout");
    sub->footer(
        "Read-only elements are written as comment lines (# read-only: K50.0=0), so that the\n"
        "file restores anywhere. The summary goes to standard error. With -o the file is\n"
        "written under FILE.part and renamed once complete. SOURCE_DATE_EPOCH fixes the\n"
        "header's date.\n"
        "Examples:\n  ryn backup -o drives.par\n  ryn backup --axes 0,1 --types K,X "
        "--groups --descriptions\n  ryn backup --bus tcp://127.0.0.1:7500 -o served.par");
    sub->callback([&exit_code, o] { exit_code = backup(*o); });
}

} // namespace ryn::cli
