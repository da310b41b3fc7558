// Pieces the online subcommands share: the --bus option and opening it, the progress bar, the
// fixed date of reproducible output, input files by name, and JSON output.
#pragma once

#include <ctime>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "params.hpp"

namespace CLI {
class App;
}

namespace ryn::cli {

// Adds "--bus ADDRESS" (default "sim:", the built-in demo bus).
void add_bus_option(CLI::App &app, std::string &address);

// Opens the bus for `command` ("backup"); on failure says why on standard error and gives the exit
// status (2 for an address that is not one, 3 for a bus that cannot be reached), else -1.
int open_bus(const char *command, const std::string &address, params::Bus &bus);

// Opens the bus, and when --axes was given (`axes_given`), checks that each listed axis has a
// drive. On failure says why on standard error and gives the exit status, else -1.
int open_bus_for(const char *command, const std::string &address, bool axes_given, uint64_t mask,
                 params::Bus &bus);

// Reads --axes and --types when given (an empty text leaves the default); on a bad one says why
// on standard error ("ryn backup: --axes: ...") and gives false. Either output may be null.
bool read_selection(const char *command, const std::string &axes, const std::string &types,
                    uint64_t *mask, std::vector<uint8_t> *type_list);

// A translator handle destroyed with its owner.
struct Translator {
    TRA *tra = nullptr;
    Translator() = default;
    Translator(const Translator &) = delete;
    Translator &operator=(const Translator &) = delete;
    ~Translator() { tra_destroy(&tra); }
};

// Creates a direct translator on the bus; false with a message on standard error.
bool start_direct(const char *command, const params::Bus &bus, Translator *translator);

// The answer to one line sent through a direct translator.
struct LineAnswer {
    int code = 0;              // 0, or the library's code (the line was not sent or not answered)
    bool sent = false;         // the line put a record on the bus
    bool acknowledged = false; // the drives acknowledged it
    std::string text;          // the answer as the translator writes it ("K1.0=1234")
};

// Sends the lines one after the other without waiting (64 at a time), then collects their
// answers, matched by the number each send carries (*sequence onwards, moved on, so that a late
// answer of an earlier call is dropped), until all are in or `timeout_ms` has passed; an answer
// that did not come is TRA_ENOCOMMAND.
std::vector<LineAnswer> exchange_lines(TRA *tra, const std::vector<std::string> &lines,
                                       uint32_t timeout_ms, uint64_t *sequence);

// The date written into uploads: SOURCE_DATE_EPOCH when set (reproducible output), else now.
std::optional<std::time_t> fixed_date();

// A progress bar on standard error, shown when standard error is a terminal or when forced.
class ProgressBar {
  public:
    ProgressBar(const char *label, bool force);
    ~ProgressBar();
    // Shows the fraction done (0..1).
    void show(double done);
    // Clears the bar's line.
    void clear();
    bool enabled() const { return enabled_; }

  private:
    const char *label_;
    bool enabled_;
    bool drawn_ = false;
    int last_ = -1;
};

// An input by name: "-" is standard input. On failure `error` names the file and why (missing,
// a directory, unreadable) and get() is null.
class Input {
  public:
    bool open(const std::string &path, std::string *error);
    std::istream *get() { return stream_; }

  private:
    std::ifstream file_;
    std::istream *stream_ = nullptr;
};

// How an answer to a sent line is shown: a read's value as the translator writes it
// ("K1.0=1234"), else the line and "acknowledged" or "refused" (with "(error status)").
std::string answer_line(const std::string &line, const std::string &answer, bool acknowledged,
                        bool status, bool request);

// Writes JSON to standard output, two blanks of indent, invalid UTF-8 replaced.
void write_json(const nlohmann::ordered_json &j);

// "ryn COMMAND: FILE:LINE: CODE MESSAGE: TEXT" lines of problems, as text.
std::string problem_text(const params::LineProblem &p);
nlohmann::ordered_json problem_json(const params::LineProblem &p);

// The report of a restore as JSON (`ryn restore --json`, the page of `ryn web`).
nlohmann::ordered_json restore_report_json(const std::string &file, const params::RestoreReport &r,
                                           int rc, bool dry_run);

} // namespace ryn::cli
