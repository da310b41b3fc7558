// Pieces every subcommand of the ryn tool shares: exit codes, drive configurations, name lookups.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace ryn::cli {

// Exit codes of the tool, the same for every subcommand.
enum Exit : int {
    exit_ok = 0,          // everything asked for was done
    exit_line_failed = 1, // the tool ran, but at least one line (or look-up) failed
    exit_usage = 2,       // bad option or argument, unknown product or version, unreadable file
    exit_failure = 3,     // the library refused to start (for instance no memory)
    exit_output = 4,      // standard output or standard error could not be written
};

// A drive configuration as the user names it on the command line.
struct ConfigOptions {
    std::string family; // empty: the active family (the embedded ORAX family)
    std::string product = "ORX-D32";
    std::string version;     // empty: the product's default version
    std::string ext;         // empty or "none": no extension card
    std::string ext_version; // empty: the card's default version
    std::string product63;   // empty: axis 63 has the same configuration as the others
    std::string version63;
    std::string ext63;
    std::string ext_version63;
};

// A drive configuration in the numbers the libraries take.
struct Configuration {
    uint32_t product = 0;
    uint32_t version = 0;
    uint32_t ext = 0;
    uint32_t ext_version = 0;
    bool has63 = false;
    uint32_t product63 = 0;
    uint32_t version63 = 0;
    uint32_t ext63 = 0;
    uint32_t ext_version63 = 0;
};

// Adds --family, which loads another family description.
void add_family_option(CLI::App &app, std::string &family);

// Adds the options of a drive configuration (--product, --drive-version, --ext, ...) to a command.
void add_config_options(CLI::App &app, ConfigOptions &options, bool with_axis63);

// Turns the named configuration into numbers; on failure writes a message that lists what the
// family holds and returns false.
// With `any_version` a drive version the family does not know is taken as it is (the translator
// then falls back to the product's default).
bool resolve_config(const ConfigOptions &options, Configuration &out, std::string &error,
                    bool any_version = false);

// Makes the family described in a JSON file the active one; false with a message.
bool load_family(const std::string &path, std::string &error);

// Drive product by name ("ORX-D32", any case) or number ("32", "0x20"); false when unknown.
bool find_product(const std::string &text, uint32_t &product, std::string &error);

// "3.12B" or a packed number for a product; false with a message listing the product's versions.
bool find_version(uint32_t product, const std::string &text, uint32_t &version, std::string &error);

// Text form of a packed version ("3.12B"); the number in hexadecimal when it has no text form.
std::string version_text(uint32_t version);

// Versions of a drive product, the default marked with "*": "3.10A, 3.12B*, 3.20A".
std::string product_versions(uint32_t product);

// Name of a product, or its number when the family has no name for it.
std::string product_name(uint32_t product);

// Reads an unsigned number in decimal or with a "0x" prefix; false when the text is not one.
bool parse_number(const std::string &text, uint64_t &value);

// Whether two names are equal, ASCII case ignored.
bool same_name(const std::string &a, const std::string &b);

// Upper-case copy of an ASCII text.
std::string upper(std::string text);

// The current error trace of this thread, one frame a line, each line indented by two blanks.
std::string trace_text();

// printf into a std::string.
std::string format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// A secret given as TEXT, or as @FILE: the first line of that file. False with `why`.
bool read_token(const std::string &option, std::string *token, std::string *why);

} // namespace ryn::cli
