// The translate subcommand: command text to records and back, offline, one line or a batch.
#include "subcommands.hpp"

#include <CLI/CLI.hpp>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "common.hpp"
#include "record_text.hpp"
#include "ryn/sup.h"
#include "ryn/tra.h"

namespace ryn::cli {

namespace {

struct FlagName {
    const char *name;
    uint32_t bit;
    const char *what;
};

constexpr FlagName flag_names[] = {
    {"use-aliases", TRA_FUSE_ALIASES, "write registers under their aliases"},
    {"reserved-comment", TRA_FRESERVED_COMMENT, "comment reserved elements"},
    {"skip-defaults", TRA_FSKIP_DEFAULTS, "leave out elements at their default"},
    {"no-axis", TRA_FNO_AXIS, "no axis on value lines"},
    {"vector-form", TRA_FVECTOR_FORM, "one line per register, all elements"},
    {"iso-convert", TRA_FISO_CONVERT, "write values converted to ISO units"},
    {"group-classes", TRA_FGROUP_CLASSES, "group registers by class"},
    {"empty-is-error", TRA_FEMPTY_IS_ERROR, "an empty line is an error"},
    {"request-flag", TRA_FREQUEST_FLAG, "report the request flag to receivers"},
    {"accept-unknown-version", TRA_FACCEPT_UNKNOWN_VERSION,
     "fall back to the default version of an unknown one"},
    {"drive-only", TRA_FDRIVE_ONLY, "look names up without the card's registers"},
    {"no-check", TRA_FNO_CHECK, "skip the dictionary checks"},
    {"no-comments", TRA_FNO_COMMENTS, "no comment blocks"},
    {"verbose", TRA_FVERBOSE, "settings, axes, serials and counts in uploads"},
    {"descriptions", TRA_FDESCRIPTIONS, "write descriptions as comments"},
    {"tabs4", TRA_FTABS4, "comment column reached with tabs of width 4"},
    {"tabs8", TRA_FTABS8, "comment column reached with tabs of width 8"},
    {"tab", TRA_FTAB, "comment column reached with one tab"},
    {"raw-values", TRA_FRAW_VALUES, "strings and addresses as plain numbers"},
    {"download-axes", TRA_FDOWNLOAD_AXES, "lines without axes take the download axes"},
    {"full-precision", TRA_FFULL_PRECISION, "floating values with 20 decimals"},
};

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
};

bool parse_flags(const std::vector<std::string> &names, uint32_t &flags, std::string &error) {
    flags = 0;
    for (const std::string &name : names) {
        uint64_t number = 0;
        bool found = false;
        if (parse_number(name, number) && number <= UINT32_MAX) {
            flags |= static_cast<uint32_t>(number);
            continue;
        }
        for (const FlagName &f : flag_names)
            if (same_name(f.name, name)) {
                flags |= f.bit;
                found = true;
            }
        if (found) continue;
        error = format("unknown translator flag '%s'; the flags are:", name.c_str());
        for (const FlagName &f : flag_names)
            error += format(" %s", f.name);
        error += " (or a number)";
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
        if (f.note[0] != '\0') frame["note"] = f.note;
        nlohmann::ordered_json details = nlohmann::ordered_json::array();
        for (const char *d : f.details)
            if (d[0] != '\0') details.push_back(d);
        if (!details.empty()) frame["details"] = details;
        frames.push_back(frame);
    }
    return frames;
}

// Translates the lines of one input and writes what each gives; counts the lines that fail.
class Batch {
  public:
    Batch(TRA *tra, const Options &o, std::string source)
        : tra_(tra), o_(o), source_(std::move(source)) {}

    void line(const std::string &input) {
        ++number_;
        if (o_.reverse && !blank_or_comment(input) && !starts_with_bracket(input)) {
            sup_trace_clear();
            fail(input, TRA_ECMDSYNTAX, "not raw record text (it starts with \"[MASK:\")", false);
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
            fail(input, rc, tra_translate_error(rc), true);
            return;
        }
        const int slots = static_cast<int32_t>(count);
        if (slots < 0 || slots > TRA_RECORD_MAX_SLOTS) {
            nothing(input);
            return;
        }
        std::array<char, 1024> text{};
        sup_trace_clear();
        rc = tra_oxcom_translate_cmd_to_ascii_ex(
            tra_, reinterpret_cast<const TRA_RECORD *>(record.data()), mask, text.data(),
            static_cast<int>(text.size()));
        if (rc != 0) {
            fail(input, rc, tra_translate_error(rc), true, record.data(), slots, mask);
            return;
        }
        done(input, record.data(), slots, mask, text.data());
    }

    int failed() const { return failed_; }

  private:
    std::string where() const {
        return source_.empty() ? "" : format("%s:%d: ", source_.c_str(), number_);
    }

    void nothing(const std::string &input) {
        if (o_.json) {
            nlohmann::ordered_json j;
            j["line"] = number_;
            j["input"] = input;
            j["ok"] = true;
            j["count"] = -1;
            std::cout << j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
        } else {
            std::cout << input << '\n';
        }
    }

    void done(const std::string &input, const uint8_t *record, int slots, uint64_t mask,
              const char *text) {
        const std::string raw = raw_record_text(record, slots, mask);
        if (o_.json) {
            nlohmann::ordered_json j;
            j["line"] = number_;
            j["input"] = input;
            j["ok"] = true;
            j["count"] = slots;
            j["mask"] = format("0x%llX", static_cast<unsigned long long>(mask));
            j["record"] = raw;
            if (o_.hex) j["bytes"] = record_hex_compact(record, slots);
            j["text"] = text;
            std::cout << j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
        } else if (o_.reverse) {
            std::cout << text << '\n';
            if (o_.hex) std::cout << "  bytes  " << record_hex(record, slots, "         ") << '\n';
        } else if (o_.records) {
            std::cout << raw << '\n';
            if (o_.hex) std::cout << "  bytes  " << record_hex(record, slots, "         ") << '\n';
        } else {
            std::cout << input << "\n  record " << raw << '\n';
            if (o_.hex) std::cout << "  bytes  " << record_hex(record, slots, "         ") << '\n';
            std::cout << "  text   " << text << '\n';
        }
    }

    void fail(const std::string &input, int code, const std::string &message, bool traced,
              const uint8_t *record = nullptr, int slots = 0, uint64_t mask = 0) {
        ++failed_;
        if (o_.json) {
            nlohmann::ordered_json j;
            j["line"] = number_;
            j["input"] = input;
            j["ok"] = false;
            if (record != nullptr) {
                j["count"] = slots;
                j["mask"] = format("0x%llX", static_cast<unsigned long long>(mask));
                j["record"] = raw_record_text(record, slots, mask);
            }
            j["code"] = code;
            j["message"] = message;
            j["trace"] = traced ? trace_json() : nlohmann::ordered_json::array();
            std::cout << j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
            return;
        }
        if (!o_.reverse && !o_.records) {
            std::cout << input << '\n';
            if (record != nullptr)
                std::cout << "  record " << raw_record_text(record, slots, mask) << '\n';
        }
        std::cout.flush();
        std::cerr << "ryn: " << where() << "error " << code << " (" << message << ") in '"
                  << command_part(input) << "'\n";
        if (traced) std::cerr << trace_text();
        std::cerr.flush();
    }

    TRA *tra_;
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

int run(const Options &o) {
    Configuration config;
    std::string error;
    uint32_t flags = 0;
    if (!resolve_config(o.config, config, error) || !parse_flags(o.flags, flags, error)) {
        std::cerr << "ryn translate: " << error << '\n';
        return exit_usage;
    }
    if (!o.words.empty() && !o.file.empty()) {
        std::cerr << "ryn translate: give either a command line or --file, not both\n";
        return exit_usage;
    }
    if (o.json && o.records) {
        std::cerr << "ryn translate: --json and --records exclude each other\n";
        return exit_usage;
    }
    std::ifstream file;
    std::istream *in = &std::cin;
    std::string source = "<stdin>";
    if (!o.file.empty() && o.file != "-") {
        std::error_code ec;
        if (std::filesystem::is_directory(o.file, ec)) {
            std::cerr << "ryn translate: cannot read '" << o.file << "': it is a directory\n";
            return exit_usage;
        }
        file.open(o.file);
        if (!file) {
            std::cerr << "ryn translate: cannot read '" << o.file << "': " << std::strerror(errno)
                      << '\n';
            return exit_usage;
        }
        in = &file;
        source = o.file;
    }
    TRA *tra = nullptr;
    sup_trace_clear();
    int rc = create(&tra, o, config, flags);
    if (rc != 0) {
        std::cerr << "ryn translate: cannot create the translator: error " << rc << " ("
                  << tra_translate_error(rc) << ")\n"
                  << trace_text();
        return exit_failure;
    }
    int failed = 0;
    if (!o.words.empty()) {
        std::string line;
        for (const std::string &w : o.words)
            line += (line.empty() ? "" : " ") + w;
        Batch batch(tra, o, "");
        batch.line(line);
        failed = batch.failed();
    } else {
        Batch batch(tra, o, source);
        if (in == &std::cin && isatty(STDIN_FILENO))
            std::cerr
                << "ryn translate: reading command lines from the terminal (end with Ctrl-D)\n";
        std::string line;
        while (std::getline(*in, line)) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            batch.line(line);
        }
        failed = batch.failed();
        if (in->bad()) {
            std::cerr << "ryn translate: error while reading '" << source << "'\n";
            failed = failed == 0 ? 1 : failed;
        }
    }
    tra_destroy(&tra);
    std::cout.flush();
    return failed == 0 ? exit_ok : exit_line_failed;
}

} // namespace

void add_translate(CLI::App &app, int &exit_code) {
    auto o = std::make_shared<Options>();
    CLI::App *sub =
        app.add_subcommand("translate", "Translate command text to bus records and back, offline");
    sub->footer("A line comes from the arguments; without one, lines come from --file or standard\n"
                "input, and a line that fails is reported (code, message, trace) while the batch\n"
                "goes on.\n\n"
                "Examples:\n"
                "  ryn translate 'K12.0=2'\n"
                "  ryn translate --hex 'MVE.1=1000L,50F,200D'\n"
                "  ryn translate -f examples/commands.txt --json\n"
                "  ryn translate --records -f cmds.txt | ryn translate --reverse\n"
                "Exit status: 0 every line translated, 1 a line failed, 2 bad usage or input,\n"
                "3 the library could not start.");
    // The words of a command line are taken as they come, and a word in brackets stays whole:
    // "[MASK:0X1,...]" is one raw record, not a list of option values.
    sub->add_option("line", o->words, "The command line to translate (words are joined)")
        ->allow_extra_args(false);
    sub->allow_extras();
    sub->add_option("-f,--file", o->file, "Read lines from this file ('-': standard input)");
    add_config_options(*sub, o->config, true);
    sub->add_option("-t,--translator", o->translator, "Translator kind")
        ->check(CLI::IsMember({"direct", "register"}))
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
    sub->add_flag("--records", o->records, "Write only the raw record text, one line each")
        ->group("Output");
    sub->add_flag("-j,--json", o->json, "One JSON object per input line")->group("Output");
    sub->callback([o, sub, &exit_code] {
        for (const std::string &extra : sub->remaining()) {
            if (extra.size() > 1 && extra[0] == '-' &&
                !std::isdigit(static_cast<unsigned char>(extra[1]))) {
                std::cerr << "ryn translate: unknown option '" << extra << "' (see --help)\n";
                exit_code = exit_usage;
                return;
            }
            o->words.push_back(extra);
        }
        exit_code = run(*o);
    });
}

} // namespace ryn::cli
