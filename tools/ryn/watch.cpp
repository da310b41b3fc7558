// The watch subcommand: registers read periodically from the drives; on a terminal a table that
// updates in place (changed values marked), otherwise one CSV line per sample, for plotting.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <bit>
#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "common.hpp"
#include "online.hpp"
#include "output.hpp"

namespace ryn::cli {

namespace {

struct WatchOptions {
    std::vector<std::string> registers;
    std::string axes;
    std::string bus = "sim:";
    unsigned interval = 500;
    unsigned count = 0; // 0: until interrupted
    bool csv = false;   // CSV even on a terminal
};

volatile std::sig_atomic_t interrupted = 0;

extern "C" void on_interrupt(int) {
    interrupted = 1;
}

// One register of one axis: the line that reads it, and its last value.
struct Cell {
    int axis;
    std::string line;
    std::string value;
    bool changed = false;
};

// Reads every cell (answers matched by their numbers, from *sequence on); a read that fails or is
// refused shows "?". False when an answer does not come within `timeout_ms`.
bool sample(TRA *tra, std::vector<Cell> &cells, unsigned timeout_ms, uint64_t *sequence) {
    std::vector<std::string> lines;
    for (const Cell &c : cells)
        lines.push_back(c.line);
    const std::vector<LineAnswer> answers = exchange_lines(tra, lines, timeout_ms, sequence);
    // A read that went out and has no answer: too late, or the receive failed.
    if (std::any_of(answers.begin(), answers.end(),
                    [](const LineAnswer &a) { return a.sent && a.code != 0; }))
        return false;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const LineAnswer &a = answers[i];
        const std::size_t eq = a.text.find('=');
        const std::string value =
            a.code == 0 && a.acknowledged && eq != std::string::npos ? a.text.substr(eq + 1) : "?";
        cells[i].changed = !cells[i].value.empty() && cells[i].value != value;
        cells[i].value = value;
    }
    return true;
}

std::string csv_field(const std::string &text) {
    if (text.find_first_of(",\"") == std::string::npos) return text;
    std::string quoted = "\"";
    for (char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string axis_name(int axis) {
    return axis == 63 ? "*" : std::to_string(axis);
}

// The table: one row per axis, one column per register; changed values in reverse video.
void draw_table(const WatchOptions &o, const std::vector<int> &axes, const std::vector<Cell> &cells,
                unsigned n, bool redraw) {
    if (redraw) out() << "\033[" << axes.size() + 2 << "A";
    out() << "\033[K" << format("sample %u, every %u ms (Ctrl-C ends)", n, o.interval) << '\n';
    out() << "\033[K" << format("%-6s", "AXIS");
    for (const std::string &r : o.registers)
        out() << format(" %14s", r.c_str());
    out() << '\n';
    for (std::size_t a = 0; a < axes.size(); ++a) {
        out() << "\033[K" << format("%-6s", axis_name(axes[a]).c_str());
        for (std::size_t r = 0; r < o.registers.size(); ++r) {
            const Cell &c = cells[a * o.registers.size() + r];
            const std::string v = format(" %14s", c.value.c_str());
            out() << (c.changed ? "\033[7m" + v + "\033[0m" : v);
        }
        out() << '\n';
    }
    out().flush();
}

int watch(const WatchOptions &o) {
    uint64_t mask = ~uint64_t(0);
    if (!read_selection("watch", o.axes, "", &mask, nullptr)) return exit_usage;
    params::Bus bus;
    if (int rc = open_bus_for("watch", o.bus, !o.axes.empty(), mask, bus); rc >= 0) return rc;
    mask &= bus.present();
    Translator direct;
    if (!start_direct("watch", bus, &direct)) return exit_failure;
    std::vector<int> axes;
    std::vector<Cell> cells;
    for (int axis = 0; axis < 64; ++axis) {
        if ((mask >> axis & 1) == 0) continue;
        axes.push_back(axis);
        for (const std::string &r : o.registers)
            cells.push_back(
                {axis, axis == 63 ? "*" + r : r + "." + std::to_string(axis), "", false});
    }
    // A register that no drive knows is a usage error, found by translating it once.
    for (const std::string &r : o.registers) {
        bool known = false;
        int code = 0;
        for (const Cell &c : cells) {
            if (c.line.find(r) == std::string::npos) continue;
            alignas(8) unsigned char record[TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)];
            uint32_t count = 0;
            code = tra_oxcom_translate_cmd_from_ascii_ex(
                direct.tra, reinterpret_cast<TRA_RECORD *>(record), TRA_RECORD_MAX_SLOTS, &count,
                nullptr, c.line.c_str());
            known = known || code == 0;
        }
        if (!known) {
            err() << "ryn watch: '" << r << "' cannot be read on any axis watched: " << code << " "
                  << tra_translate_error(code) << '\n';
            return exit_usage;
        }
    }

    const bool table = !o.csv && isatty(STDOUT_FILENO) != 0;
    struct sigaction action {};
    action.sa_handler = on_interrupt;
    sigemptyset(&action.sa_mask);
    struct sigaction previous {};
    sigaction(SIGINT, &action, &previous);
    interrupted = 0;

    if (!table) {
        out() << "time_s";
        for (const Cell &c : cells)
            out() << ',' << csv_field(c.line);
        out() << '\n';
    }
    const auto start = std::chrono::steady_clock::now();
    int status = exit_ok;
    uint64_t sequence = 0; // the number of the last read sent
    for (unsigned n = 1; interrupted == 0 && (o.count == 0 || n <= o.count); ++n) {
        const auto due = start + std::chrono::milliseconds(uint64_t(o.interval) * (n - 1));
        while (interrupted == 0 && std::chrono::steady_clock::now() < due)
            std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(
                due - std::chrono::steady_clock::now(), std::chrono::milliseconds(20)));
        if (interrupted != 0) break;
        const double at =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (!sample(direct.tra, cells, std::max(o.interval, 1000u), &sequence)) {
            err() << "ryn watch: an answer did not come in time\n";
            status = exit_line_failed;
            break;
        }
        if (table) {
            draw_table(o, axes, cells, n, n > 1);
        } else {
            out() << format("%.3f", at);
            for (const Cell &c : cells)
                out() << ',' << csv_field(c.value);
            out() << '\n';
            out().flush();
        }
        if (out().failed()) break;
    }
    sigaction(SIGINT, &previous, nullptr);
    return status;
}

} // namespace

void add_watch(CLI::App &app, int &exit_code) {
    auto o = std::make_shared<WatchOptions>();
    CLI::App *sub = app.add_subcommand("watch", "Read registers periodically from the drives");
    sub->add_option("register", o->registers, "Registers by name or alias: K12, M7, POS_ACT")
        ->required();
    sub->add_option("--axes", o->axes, "Axes to watch: 0,2-3,* (default: every drive)");
    add_bus_option(*sub, o->bus);
    sub->add_option("--interval", o->interval, "Milliseconds between samples")
        ->check(CLI::Range(1u, 3600000u))
        ->capture_default_str();
    sub->add_option("--count", o->count, "Samples to take (default: until Ctrl-C)");
    sub->add_flag("--csv", o->csv, "CSV lines even on a terminal");
    sub->footer("On a terminal a table updates in place (changed values in reverse video);\n"
                "otherwise each sample is one CSV line: seconds since the start, then one column\n"
                "per register and axis (? when a read failed). Ctrl-C ends it cleanly.\n"
                "Examples:\n  ryn watch M7 K12 --axes 0,1\n  ryn watch POS_ACT --interval 100 "
                "--count 50 > position.csv");
    sub->callback([&exit_code, o] { exit_code = watch(*o); });
}

} // namespace ryn::cli
