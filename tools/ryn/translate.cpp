// The translate subcommand: command text to records and back, offline, one line or a batch.
#include <CLI/CLI.hpp>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include "common.hpp"
#include "dictionary.hpp"
#include "explain.hpp"
#include "input.hpp"
#include "lint.hpp"
#include "output.hpp"
#include "record_text.hpp"
#include "ryn/sup.h"
#include "ryn/tra.h"
#include "text_safety.hpp"

namespace ryn::cli {

namespace {

struct FlagName {
    const char *name;
    uint32_t bit;
    const char *what;
};

// The translator flags that change what translate does; the others act in uploads, downloads
// or on a bus, and are refused here.
constexpr FlagName flag_names[] = {
    {"use-aliases", TRA_FUSE_ALIASES, "write registers under their aliases"},
    {"empty-is-error", TRA_FEMPTY_IS_ERROR, "an empty line is an error"},
    {"accept-unknown-version", TRA_FACCEPT_UNKNOWN_VERSION,
     "an unknown drive version falls back to the product's default"},
    {"drive-only", TRA_FDRIVE_ONLY, "look names up without the card's registers"},
    {"no-check", TRA_FNO_CHECK, "skip the dictionary checks"},
    {"descriptions", TRA_FDESCRIPTIONS, "write descriptions as comments"},
    {"tabs4", TRA_FTABS4, "comment column reached with tabs of width 4"},
    {"tabs8", TRA_FTABS8, "comment column reached with tabs of width 8"},
    {"tab", TRA_FTAB, "comment column reached with one tab"},
    {"full-precision", TRA_FFULL_PRECISION, "floating values with 20 decimals"},
};

constexpr uint32_t known_flags() {
    uint32_t all = 0;
    for (const FlagName &f : flag_names)
        all |= f.bit;
    return all;
}

struct Options {
    ConfigOptions config;
    std::string translator = "direct";
    std::vector<std::string> flags;
    std::string file;
    std::vector<std::string> words;
    bool hex = false;
    bool reverse = false;
    bool json = false;
    bool records = false;
    bool strict = false;
    bool verbose = false;
};

bool parse_flags(const std::vector<std::string> &names, uint32_t &flags, std::string &error) {
    flags = 0;
    for (const std::string &name : names) {
        uint64_t number = 0;
        if (parse_number(name, number)) {
            if (number > UINT32_MAX || (number & ~uint64_t(known_flags())) != 0) {
                error = format("flag number %s has bits that mean nothing to translate (0x%llX); "
                               "the flags are:",
                               name.c_str(),
                               static_cast<unsigned long long>(number & ~uint64_t(known_flags())));
                for (const FlagName &f : flag_names)
                    error += format(" %s (0x%X)", f.name, f.bit);
                return false;
            }
            flags |= static_cast<uint32_t>(number);
            continue;
        }
        bool found = false;
        for (const FlagName &f : flag_names)
            if (same_name(f.name, name)) {
                flags |= f.bit;
                found = true;
            }
        if (found) continue;
        error = format("unknown translator flag '%s'; the flags are:", name.c_str());
        for (const FlagName &f : flag_names)
            error += format(" %s", f.name);
        error += " (or their number)";
        return false;
    }
    return true;
}

std::string flag_help() {
    std::string text = "Translator flag by name (repeat for several, or give a number):";
    for (const FlagName &f : flag_names)
        text += format("\n  %-24s %s", f.name, f.what);
    return text;
}

// Whether a line holds nothing but blanks or a comment.
bool blank_or_comment(const std::string &line) {
    size_t i = line.find_first_not_of(" \t\r");
    if (i == std::string::npos) return true;
    return line[i] == ';' || line[i] == '#' || line.compare(i, 2, "//") == 0;
}

// The command of a line without its comment and the blanks around it, for messages.
std::string command_part(const std::string &line) {
    size_t end = line.size();
    for (size_t i = 0; i < line.size() && end == line.size(); ++i)
        if (line[i] == ';' || line[i] == '#' || line.compare(i, 2, "//") == 0) end = i;
    const size_t first = line.find_first_not_of(" \t");
    const size_t last = line.find_last_not_of(" \t", end == 0 ? 0 : end - 1);
    if (first == std::string::npos || last == std::string::npos || first >= end) return "";
    return line.substr(first, last - first + 1);
}

bool starts_with_bracket(const std::string &line) {
    size_t i = line.find_first_not_of(" \t\r");
    return i != std::string::npos && line[i] == '[';
}

nlohmann::ordered_json trace_json() {
    nlohmann::ordered_json frames = nlohmann::ordered_json::array();
    for (int i = 0; i < sup_trace_count(); ++i) {
        SUP_FRAME f{};
        if (sup_trace_get(i, &f) != 0) break;
        nlohmann::ordered_json frame;
        frame["file"] = f.file;
        frame["line"] = f.line;
        frame["function"] = f.function;
        if (f.code != 0) {
            frame["code"] = f.code;
            frame["message"] = f.message;
        }
        if (f.note[0] != '\0') frame["note"] = json_safe(f.note);
        nlohmann::ordered_json details = nlohmann::ordered_json::array();
        for (const char *d : f.details)
            if (d[0] != '\0') details.push_back(json_safe(d));
        if (!details.empty()) frame["details"] = details;
        frames.push_back(frame);
    }
    return frames;
}

// A text field of a JSON line: the text as it is when it is valid UTF-8; otherwise each byte
// that is not is written as "\xNN" and the field `<name>_escaped` says so.
void json_text(nlohmann::ordered_json &j, const char *name, const std::string &text) {
    bool escaped = false;
    j[name] = utf8_or_escaped(text, escaped);
    if (escaped) j[std::string(name) + "_escaped"] = true;
}

void write_json(const nlohmann::ordered_json &j) {
    out() << j.dump(-1, ' ', false, nlohmann::json::error_handler_t::strict) << '\n';
}

// Translates the lines of one input and writes what each gives; counts the lines that fail.
class Batch {
  public:
    Batch(TRA *tra, const VOK_DICT *dict, const Options &o, std::string source)
        : tra_(tra), dict_(dict), o_(o), source_(std::move(source)) {}

    // A line that cannot be translated at all (a NUL byte in it).
    void refuse(const std::string &input, const std::string &why) {
        ++number_;
        sup_trace_clear();
        fail(input, 0, why, false, {});
    }

    void line(const std::string &input) {
        ++number_;
        if (o_.reverse && !blank_or_comment(input) && !starts_with_bracket(input)) {
            sup_trace_clear();
            fail(input, TRA_ECMDSYNTAX, "not raw record text (it starts with \"[MASK:\")", false,
                 {});
            return;
        }
        alignas(8) std::array<uint8_t, TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)> record{};
        uint32_t count = 0;
        uint64_t mask = 0;
        sup_trace_clear();
        int rc = tra_oxcom_translate_cmd_from_ascii_ex(
            tra_, reinterpret_cast<TRA_RECORD *>(record.data()), TRA_RECORD_MAX_SLOTS, &count,
            &mask, input.c_str());
        if (rc != 0) {
            fail(input, rc, tra_translate_error(rc), true,
                 o_.reverse ? std::vector<std::string>{}
                            : explain_failure(dict_, input, rc));
            return;
        }
        const int slots = static_cast<int32_t>(count);
        if (slots < 0 || slots > TRA_RECORD_MAX_SLOTS) {
            nothing(input);
            return;
        }
        const std::vector<Warning> warnings =
            o_.reverse ? std::vector<Warning>{}
                       : lint_line(dict_, input, Translated{record.data(), slots});
        if (o_.strict && !warnings.empty()) {
            sup_trace_clear();
            std::vector<std::string> lines;
            for (const Warning &w : warnings)
                lines.push_back(format("%s [%s]", w.message.c_str(), w.trap));
            fail(input, 0, "refused under --strict", false, lines, warnings);
            return;
        }
        std::array<char, 1024> text{};
        sup_trace_clear();
        rc = tra_oxcom_translate_cmd_to_ascii_ex(
            tra_, reinterpret_cast<const TRA_RECORD *>(record.data()), mask, text.data(),
            static_cast<int>(text.size()));
        if (rc != 0) {
            fail(input, rc, tra_translate_error(rc), true, {}, {}, record.data(), slots, mask);
            return;
        }
        warn(input, warnings);
        done(input, record.data(), slots, mask, text.data(), warnings);
    }

    int failed() const { return failed_; }
    int lines() const { return number_; }

  private:
    std::string where() const {
        return source_.empty() ? "" : format("%s:%d: ", source_.c_str(), number_);
    }

    static nlohmann::ordered_json warnings_json(const std::vector<Warning> &warnings) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const Warning &w : warnings)
            list.push_back({{"trap", w.trap}, {"message", json_safe(w.message)}});
        return list;
    }

    void warn(const std::string &input, const std::vector<Warning> &warnings) {
        for (const Warning &w : warnings)
            err() << "ryn: " << where() << "warning in '" << shown(command_part(input))
                  << "': " << shown(w.message, 1000) << " [" << w.trap << "]\n";
    }

    void nothing(const std::string &input) {
        if (o_.json) {
            nlohmann::ordered_json j;
            j["line"] = number_;
            json_text(j, "input", input);
            j["ok"] = true;
            j["count"] = -1;
            write_json(j);
        } else {
            out() << escaped(input) << '\n';
        }
    }

    void done(const std::string &input, const uint8_t *record, int slots, uint64_t mask,
              const char *text, const std::vector<Warning> &warnings) {
        const std::string raw = raw_record_text(record, slots, mask);
        if (o_.json) {
            nlohmann::ordered_json j;
            j["line"] = number_;
            json_text(j, "input", input);
            j["ok"] = true;
            j["count"] = slots;
            j["mask"] = format("0x%llX", static_cast<unsigned long long>(mask));
            j["record"] = raw;
            if (o_.hex) j["bytes"] = record_hex_compact(record, slots);
            json_text(j, "text", text);
            if (!warnings.empty()) j["warnings"] = warnings_json(warnings);
            write_json(j);
        } else if (o_.reverse) {
            out() << text << '\n';
            if (o_.hex) out() << "  bytes  " << record_hex(record, slots, "         ") << '\n';
        } else if (o_.records) {
            out() << raw << '\n';
        } else {
            out() << escaped(input) << "\n  record " << raw << '\n';
            if (o_.hex) out() << "  bytes  " << record_hex(record, slots, "         ") << '\n';
            out() << "  text   " << text << '\n';
        }
    }

    void fail(const std::string &input, int code, const std::string &message, bool traced,
              const std::vector<std::string> &explanation,
              const std::vector<Warning> &warnings = {}, const uint8_t *record = nullptr,
              int slots = 0, uint64_t mask = 0) {
        ++failed_;
        if (o_.json) {
            nlohmann::ordered_json j;
            j["line"] = number_;
            json_text(j, "input", input);
            j["ok"] = false;
            if (record != nullptr) {
                j["count"] = slots;
                j["mask"] = format("0x%llX", static_cast<unsigned long long>(mask));
                j["record"] = raw_record_text(record, slots, mask);
            }
            if (code != 0) j["code"] = code;
            j["message"] = message;
            if (!explanation.empty() && warnings.empty()) {
                nlohmann::ordered_json e = nlohmann::ordered_json::array();
                for (const std::string &line : explanation)
                    e.push_back(json_safe(line));
                j["explanation"] = e;
            }
            if (!warnings.empty()) j["warnings"] = warnings_json(warnings);
            j["trace"] = traced ? trace_json() : nlohmann::ordered_json::array();
            write_json(j);
            return;
        }
        const std::string what =
            code != 0 ? format("error %d (%s)", code, message.c_str()) : message;
        if (o_.records) {
            // The output keeps one line per input line: a failed line becomes a comment that
            // carries its error, so that a reverse pass can be matched with the source.
            out() << "; " << what << ": " << shown(command_part(input)) << '\n';
        } else if (!o_.reverse) {
            out() << escaped(input) << '\n';
            if (record != nullptr)
                out() << "  record " << raw_record_text(record, slots, mask) << '\n';
        }
        err() << "ryn: " << where() << what << " in '" << shown(command_part(input)) << "'\n";
        for (const std::string &line : explanation)
            err() << "  " << shown(line, 1000) << '\n';
        if (traced && o_.verbose) err() << trace_text();
    }

    TRA *tra_;
    const VOK_DICT *dict_;
    const Options &o_;
    std::string source_;
    int number_ = 0;
    int failed_ = 0;
};

int create(TRA **tra, const Options &o, const Configuration &c, uint32_t flags) {
    const bool reg = o.translator == "register";
    if (!c.has63)
        return reg ? tra_create_register_traductor_o(tra, c.product, c.version, c.ext,
                                                     c.ext_version, flags)
                   : tra_create_direct_traductor_o(tra, c.product, c.version, c.ext, c.ext_version,
                                                   flags);
    return reg ? tra_create_register_traductor_o2(tra, c.product, c.version, c.ext, c.ext_version,
                                                  c.product63, c.version63, c.ext63,
                                                  c.ext_version63, flags)
               : tra_create_direct_traductor_o2(tra, c.product, c.version, c.ext, c.ext_version,
                                                c.product63, c.version63, c.ext63, c.ext_version63,
                                                flags);
}

// Opens the input: a file, or standard input for "" and "-". -1 after a message.
int open_input(const std::string &file, std::string &source) {
    if (file.empty() || file == "-") {
        source = "<stdin>";
        return STDIN_FILENO;
    }
    source = file;
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        err() << "ryn translate: cannot read '" << file << "': " << std::strerror(errno) << '\n';
        return -1;
    }
    struct stat st {};
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        err() << "ryn translate: cannot read '" << file << "': it is a directory\n";
        ::close(fd);
        return -1;
    }
    return fd;
}

int run(const Options &o) {
    Configuration config;
    std::string error;
    uint32_t flags = 0;
    if (!parse_flags(o.flags, flags, error)) {
        err() << "ryn translate: " << error << '\n';
        return exit_usage;
    }
    const bool any_version = (flags & TRA_FACCEPT_UNKNOWN_VERSION) != 0;
    if (!resolve_config(o.config, config, error, any_version)) {
        err() << "ryn translate: " << error << '\n';
        return exit_usage;
    }
    if (!o.words.empty() && !o.file.empty()) {
        err() << "ryn translate: give either a command line or --file, not both\n";
        return exit_usage;
    }
    if (o.json && o.records) {
        err() << "ryn translate: --json and --records exclude each other\n";
        return exit_usage;
    }
    if (o.hex && o.records) {
        err() << "ryn translate: --hex and --records exclude each other (--records writes lines "
                 "that --reverse reads back; use --json --hex for the bytes)\n";
        return exit_usage;
    }
    std::string source;
    const int fd = o.words.empty() ? open_input(o.file, source) : -1;
    if (o.words.empty() && fd < 0) return exit_usage;
    TRA *tra = nullptr;
    sup_trace_clear();
    int rc = create(&tra, o, config, flags);
    if (rc != 0) {
        err() << "ryn translate: cannot create the translator: error " << rc << " ("
              << tra_translate_error(rc) << ")\n"
              << trace_text();
        if (fd > STDIN_FILENO) ::close(fd);
        return exit_failure;
    }
    const uint32_t used = tra_get_drv_version(tra, 0);
    if (any_version && used != config.version)
        err() << "ryn translate: " << product_name(config.product) << " has no version "
              << version_text(config.version) << "; the translator uses "
              << version_text(used) << '\n';
    Dict dict;
    if (vok_open(&dict.d, tra_get_drv_product(tra, 0), used, tra_get_ext_product(tra, 0),
                 tra_get_ext_version(tra, 0)) != 0)
        dict.d = nullptr;
    int status = exit_ok;
    if (!o.words.empty()) {
        std::string line;
        for (const std::string &w : o.words)
            line += (line.empty() ? "" : " ") + w;
        Batch batch(tra, dict.d, o, "");
        batch.line(line);
        if (batch.failed() > 0) status = exit_line_failed;
    } else {
        Batch batch(tra, dict.d, o, source);
        const bool interactive = fd == STDIN_FILENO && isatty(STDIN_FILENO);
        if (interactive)
            err() << "ryn translate: reading command lines from the terminal (end with Ctrl-D)\n";
        LineReader reader(fd);
        std::string line;
        while (reader.next(line) && !out().failed()) {
            if (reader.nul_column() != 0)
                batch.refuse(line, format("the line holds a NUL byte (column %zu)",
                                          reader.nul_column()));
            else
                batch.line(line);
            if (interactive) out().flush();
        }
        if (batch.failed() > 0) {
            err() << "ryn translate: " << batch.failed() << " of " << batch.lines()
                  << " lines failed\n";
            status = exit_line_failed;
        }
        if (reader.error() != 0) {
            err() << "ryn translate: cannot read '" << source << "': "
                  << std::strerror(reader.error()) << '\n';
            status = exit_usage;
        }
        if (fd > STDIN_FILENO) ::close(fd);
    }
    tra_destroy(&tra);
    return status;
}

} // namespace

void add_translate(CLI::App &app, int &exit_code) {
    auto o = std::make_shared<Options>();
    CLI::App *sub =
        app.add_subcommand("translate", "Translate command text to bus records and back, offline");
    sub->footer(
        "A line comes from the arguments (after '--' when it starts with '-'); without one,\n"
        "lines come from --file or standard input, and a line that fails is reported (code,\n"
        "message, what the dictionary allows; the trace with -v) while the batch goes on.\n"
        "Lines that the language reads otherwise than they look (an empty axis item, an\n"
        "integer beyond its width, text in quotes upper-cased, ...) are warned about;\n"
        "--strict refuses them.\n\n"
        "Examples:\n"
        "  ryn translate 'K12.0=2'\n"
        "  ryn translate --hex 'MVE.1=1000L,50F,200D'\n"
        "  ryn translate -- -K1.0\n"
        "  ryn translate -f examples/commands.txt --json\n"
        "  ryn translate --records -f cmds.txt | ryn translate --reverse\n"
        "Exit status: 0 every line translated, 1 a line failed (or warned, with --strict),\n"
        "2 bad usage or unreadable input, 3 the library could not start, 4 the output could\n"
        "not be written.");
    // The words of a command line are taken as they come, and a word in brackets stays whole:
    // "[MASK:0X1,...]" is one raw record, not a list of option values.
    sub->add_option("line", o->words, "The command line to translate (words are joined)")
        ->allow_extra_args(false);
    sub->allow_extras();
    sub->add_option("-f,--file", o->file, "Read lines from this file ('-': standard input)");
    add_config_options(*sub, o->config, true);
    sub->add_option("-t,--translator", o->translator, "Translator kind: direct or register")
        ->transform(CLI::IsMember({"direct", "register"}, CLI::ignore_case))
        ->capture_default_str()
        ->group("Translator");
    sub->add_option("-F,--flag", o->flags, flag_help())
        ->allow_extra_args(false)
        ->delimiter(',')
        ->group("Translator");
    sub->add_flag("-x,--hex", o->hex, "Show the record's bytes in hexadecimal")->group("Output");
    sub->add_flag("-r,--reverse", o->reverse,
                  "Lines are raw record text; write them back as command text")
        ->group("Output");
    sub->add_flag("--records", o->records,
                  "Write only the raw record text, one line for each input line")
        ->group("Output");
    sub->add_flag("-j,--json", o->json, "JSON Lines: one JSON object per input line")
        ->group("Output");
    sub->add_flag("-s,--strict", o->strict, "A line with a warning fails")->group("Output");
    sub->add_flag("-v,--verbose", o->verbose, "Show the error trace of each failed line")
        ->group("Output");
    sub->callback([o, sub, &exit_code] {
        bool options_ended = false;
        for (const std::string &extra : sub->remaining()) {
            if (extra == "--" && !options_ended) { // what follows is the command line
                options_ended = true;
                continue;
            }
            if (!options_ended && extra.size() > 1 && extra[0] == '-' &&
                !std::isdigit(static_cast<unsigned char>(extra[1]))) {
                err() << "ryn translate: unknown option '" << extra
                      << "' (a command line that starts with '-' goes after '--'; see "
                         "ryn translate --help)\n";
                exit_code = exit_usage;
                return;
            }
            o->words.push_back(extra);
        }
        exit_code = run(*o);
    });
}

} // namespace ryn::cli
