// The dict subcommand: browsing the family's products, versions, register types, registers and
// commands through the dictionary library.
#include <CLI/CLI.hpp>
#include <cstring>
#include <iostream>
#include <memory>

#include "common.hpp"
#include "ryn/vok.h"
#include "subcommands.hpp"

namespace ryn::cli {

namespace {

// An open dictionary, closed when it goes out of scope.
struct Dict {
    VOK_DICT *d = nullptr;
    Dict() = default;
    Dict(const Dict &) = delete;
    Dict &operator=(const Dict &) = delete;
    ~Dict() { vok_close(&d); }
};

// Opens the dictionary of the named configuration; 0, or the exit code after a message.
int open_dict(const ConfigOptions &o, Dict &dict) {
    Configuration c;
    std::string error;
    if (!resolve_config(o, c, error)) {
        std::cerr << "ryn dict: " << error << '\n';
        return exit_usage;
    }
    int rc = vok_open(&dict.d, c.product, c.version, c.ext, c.ext_version);
    if (rc != 0) {
        std::cerr << "ryn dict: cannot open the dictionary: error " << rc << " ("
                  << vok_translate_error(rc) << ")\n";
        return exit_failure;
    }
    return 0;
}

std::string config_title(const VOK_DICT *d) {
    std::string title =
        product_name(vok_get_drv_product(d)) + " " + version_text(vok_get_drv_version(d));
    const uint32_t ext = vok_get_ext_product(d);
    const char *card = vok_get_ext_product_name(ext);
    if (ext != 0 && ext != VOK_DRIVE_ONLY && card != nullptr)
        title += " with " + std::string(card) + " " + version_text(vok_get_ext_version(d));
    return title;
}

const char *or_dash(const char *text) {
    return text != nullptr && text[0] != '\0' ? text : "-";
}

const char *class_name(uint32_t kind) {
    switch (kind & 0x60) {
    case 0x20:
        return "float";
    case 0x40:
        return "int64";
    case 0x60:
        return "double";
    default:
        return "int32";
    }
}

const char *format_name(int code) {
    switch (code) {
    case VOK_FORMAT_HEX:
        return "hexadecimal";
    case VOK_FORMAT_DECIMAL:
        return "decimal";
    case VOK_FORMAT_STRING:
        return "string";
    case VOK_FORMAT_FLOAT:
        return "floating";
    case VOK_FORMAT_IP:
        return "IP address";
    default:
        return "none";
    }
}

// A value of a class, written as its display format shows it.
struct Value {
    int64_t i = 0;
    double d = 0;
};

std::string value_text(uint32_t kind, int display, const Value &v) {
    switch (kind & 0x60) {
    case 0x20:
    case 0x60:
        return format("%.9g", v.d);
    case 0x40:
        return display == VOK_FORMAT_HEX ? format("0x%llX", static_cast<unsigned long long>(v.i))
                                         : format("%lld", static_cast<long long>(v.i));
    default:
        break;
    }
    const auto u = static_cast<uint32_t>(v.i);
    if (display == VOK_FORMAT_HEX) return format("0x%X", u);
    if (display == VOK_FORMAT_IP)
        return format("%u.%u.%u.%u", u >> 24, (u >> 16) & 0xFF, (u >> 8) & 0xFF, u & 0xFF);
    return format("%d", static_cast<int32_t>(u));
}

std::string range_text(uint32_t kind, int display, const Value &min, const Value &max) {
    if (min.i == 0 && max.i == 0 && min.d == 0 && max.d == 0) return "none";
    return value_text(kind, display, min) + " .. " + value_text(kind, display, max);
}

Value enum_value(const VOK_DICT *d, uint32_t kind, int id, int entry) {
    Value v;
    switch (kind & 0x60) {
    case 0x20:
        v.d = vok_get_enum_value_float(d, id, entry);
        break;
    case 0x40:
        v.i = vok_get_enum_value_int64(d, id, entry);
        break;
    case 0x60:
        v.d = vok_get_enum_value_double(d, id, entry);
        break;
    default:
        v.i = vok_get_enum_value_int32(d, id, entry);
        break;
    }
    return v;
}

// The entries of an enumeration that apply, as a tree: mask entries with their values below.
template <typename Applies>
std::string enum_text(const VOK_DICT *d, uint32_t kind, int display, int id, Applies applies,
                      const std::string &indent) {
    std::string out = indent + "enumeration " + or_dash(vok_get_enum_name(d, id)) + "\n";
    const int count = vok_get_enum_count(d, id);
    auto level = [&](auto &self, int parent, const std::string &pad) -> void {
        for (int e = 0; e < count; ++e) {
            if (vok_get_enum_entry_parent(d, id, e) != parent || !applies(e)) continue;
            const std::string value = value_text(kind, display, enum_value(d, kind, id, e));
            const char *name = or_dash(vok_get_enum_entry_name(d, id, e));
            if (vok_enum_entry_is_mask(d, id, e)) {
                out += pad + "mask " + value + "  " + name + "\n";
                self(self, e, pad + "  ");
            } else {
                out += pad + value + "  " + name + "\n";
            }
        }
    };
    level(level, -1, indent + "  ");
    return out;
}

std::string register_name(const VOK_DICT *d, uint32_t kind, uint32_t index) {
    if (kind == 1 && index == 65535) return "XAC";
    return format("%s%u", or_dash(vok_get_type_name(d, 1, kind)), index);
}

// Finds a register by name ("K12", "kf1") or alias ("MODE").
bool find_register(const VOK_DICT *d, const std::string &text, uint32_t &kind, uint32_t &index) {
    if (vok_find_register_alias(d, text.c_str(), &kind, &index) == 0) return true;
    if (same_name(text, "XAC") && vok_register_exists(d, 1, 65535, 0)) { // the accumulator
        kind = 1;
        index = 65535;
        return true;
    }
    const size_t digits = text.find_first_of("0123456789");
    if (digits == std::string::npos || digits == 0) return false;
    uint64_t number = 0;
    if (!parse_number(text.substr(digits), number) || number > 0xFFFF) return false;
    const std::string type = text.substr(0, digits);
    for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k) {
        const char *name = vok_get_type_name(d, 1, k);
        if (name != nullptr && same_name(name, type) && vok_index_exists(d, k, uint32_t(number))) {
            kind = k;
            index = static_cast<uint32_t>(number);
            return true;
        }
    }
    return false;
}

// Finds a command by name ("MVE"), number ("160") or "@160".
bool find_command(const VOK_DICT *d, const std::string &text, uint32_t &command) {
    uint64_t number = 0;
    const std::string digits = !text.empty() && text[0] == '@' ? text.substr(1) : text;
    if (parse_number(digits, number)) {
        command = static_cast<uint32_t>(number);
        return number < VOK_COMMAND_COUNT && vok_command_exists(d, command);
    }
    const int32_t found = vok_find_command_name(d, text.c_str());
    if (found < 0) return false;
    command = static_cast<uint32_t>(found);
    return true;
}

// A command's name, or "@N" (the language's way to name command N) when it has none.
std::string command_name(const VOK_DICT *d, uint32_t command) {
    const char *name = vok_get_command_name(d, 1, command);
    return name != nullptr && name[0] != '\0' ? name : format("@%u", command);
}

std::string access_text(const VOK_DICT *d, uint32_t kind, uint32_t index, int length) {
    int writable = 0;
    for (int s = 0; s < length; ++s)
        writable += vok_register_writable(d, kind, index, uint32_t(s));
    return writable == length ? "rw" : writable == 0 ? "ro" : "mixed";
}

// ---- products, versions ----

int products() {
    std::cout << "Family " << or_dash(vok_get_family_name()) << " (" << vok_get_family_source()
              << ")\n\nDrive products (* default version):\n";
    for (int i = 0; i < vok_get_product_count(); ++i) {
        const uint32_t p = vok_get_product_code(i);
        if (vok_is_reserved_product(p)) continue;
        std::cout << format("  %4u  %-9s %-10s %-22s %s\n", p, product_name(p).c_str(),
                            vok_is_axis63_product(p) ? "axis 63" : "drive",
                            product_versions(p).c_str(), or_dash(vok_get_product_description(p)));
    }
    std::string reserved;
    for (int i = 0; i < vok_get_product_count(); ++i) {
        const uint32_t p = vok_get_product_code(i);
        if (vok_is_reserved_product(p)) reserved += format(" %u", p);
    }
    if (!reserved.empty()) std::cout << "  reserved:" << reserved << '\n';
    std::cout << "\nExtension cards (* default version):\n";
    for (int i = 0; i < vok_get_ext_product_count(); ++i) {
        const uint32_t e = vok_get_ext_product_code(i);
        const char *name = vok_get_ext_product_name(e);
        if (e == 0 || name == nullptr) continue;
        std::string versions;
        const uint32_t standard = vok_get_ext_product_default_version(e);
        for (int v = 0; v < vok_get_ext_product_version_count(e); ++v) {
            const uint32_t version = vok_get_ext_product_version(e, v);
            versions += (versions.empty() ? "" : ", ") + version_text(version) +
                        (version == standard ? "*" : "");
        }
        std::string fits;
        for (int j = 0; j < vok_get_product_count(); ++j) {
            const uint32_t p = vok_get_product_code(j);
            if (!vok_is_reserved_product(p) && vok_ext_fits_product(e, p))
                fits += (fits.empty() ? "" : " ") + product_name(p);
        }
        std::cout << format("  0x%02X  %-9s %-10s %s\n", e, name, versions.c_str(),
                            or_dash(vok_get_ext_product_description(e)))
                  << "              fits: " << fits << '\n';
    }
    return exit_ok;
}

int versions(const std::string &product_text) {
    uint32_t product = 0;
    std::string error;
    if (!find_product(product_text, product, error)) {
        std::cerr << "ryn dict: " << error << '\n';
        return exit_usage;
    }
    const uint32_t standard = vok_get_default_version(product);
    for (int i = 0; i < vok_get_product_version_count(product); ++i) {
        const uint32_t v = vok_get_product_version(product, i);
        std::cout << version_text(v) << format("  0x%08X", v) << (v == standard ? "  default" : "")
                  << '\n';
    }
    return exit_ok;
}

// ---- types, registers ----

int types(const ConfigOptions &o) {
    Dict dict;
    if (int rc = open_dict(o, dict)) return rc;
    const VOK_DICT *d = dict.d;
    std::cout << config_title(d) << "\n\n";
    std::cout << format("  %-5s %-4s %-7s %9s %8s  %s\n", "NAME", "KIND", "CLASS", "REGISTERS",
                        "ELEMENTS", "DESCRIPTION");
    for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k) {
        const char *name = vok_get_type_name(d, 1, k);
        if (name == nullptr || !vok_type_exists(d, k)) continue;
        int count = 0;
        for (int32_t i = vok_get_next_index(d, k, 0); i >= 0;
             i = vok_get_next_index(d, k, uint32_t(i) + 1))
            ++count;
        std::string notes;
        if (vok_type_is_hidden(d, k)) notes += " (hidden)";
        if (vok_register_type_writable(d, k)) notes += " (writable as a whole)";
        std::cout << format("  %-5s %4u %-7s %9d %8d  %s%s\n", name, k, class_name(k), count,
                            vok_get_subindex_count(d, k), or_dash(vok_get_type_name(d, 2, k)),
                            notes.c_str());
    }
    return exit_ok;
}

void register_line(const VOK_DICT *d, uint32_t kind, uint32_t index) {
    const int length = vok_get_register_length(d, kind, index);
    std::cout << format("  %-8s %-12s %4d  %-11s %-5s %s\n", register_name(d, kind, index).c_str(),
                        or_dash(vok_get_register_name(d, 1, kind, index, 0)), length,
                        format_name(vok_get_register_format(d, kind, index, 0)),
                        access_text(d, kind, index, length).c_str(),
                        or_dash(vok_get_register_name(d, 2, kind, index, 0)));
}

int registers(const ConfigOptions &o, const std::vector<std::string> &wanted) {
    Dict dict;
    if (int rc = open_dict(o, dict)) return rc;
    const VOK_DICT *d = dict.d;
    std::vector<uint32_t> kinds;
    for (const std::string &w : wanted) {
        bool found = false;
        for (uint32_t k = 0; k < VOK_TYPE_COUNT && !found; ++k) {
            const char *name = vok_get_type_name(d, 1, k);
            if (name != nullptr && same_name(name, w) && vok_type_exists(d, k)) {
                kinds.push_back(k);
                found = true;
            }
        }
        if (found) continue;
        std::string list;
        for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k) {
            const char *name = vok_get_type_name(d, 1, k);
            if (name != nullptr && vok_type_exists(d, k)) list += format(" %s", name);
        }
        std::cerr << "ryn dict: " << config_title(d) << " has no register type '" << w
                  << "'; its types:" << list << '\n';
        return exit_usage;
    }
    if (wanted.empty())
        for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k)
            if (vok_get_type_name(d, 1, k) != nullptr && vok_type_exists(d, k)) kinds.push_back(k);
    std::cout << config_title(d) << "\n\n"
              << format("  %-8s %-12s %4s  %-11s %-5s %s\n", "REGISTER", "ALIAS", "ELEM", "FORMAT",
                        "ACCESS", "DESCRIPTION");
    for (uint32_t k : kinds)
        for (int32_t i = vok_get_next_index(d, k, 0); i >= 0;
             i = vok_get_next_index(d, k, uint32_t(i) + 1))
            register_line(d, k, uint32_t(i));
    return exit_ok;
}

Value reg_limit(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t s, bool max) {
    Value v;
    switch (kind & 0x60) {
    case 0x20:
        v.d = max ? vok_get_reg_max_float(d, kind, index, s)
                  : vok_get_reg_min_float(d, kind, index, s);
        break;
    case 0x40:
        v.i = max ? vok_get_reg_max_int64(d, kind, index, s)
                  : vok_get_reg_min_int64(d, kind, index, s);
        break;
    case 0x60:
        v.d = max ? vok_get_reg_max_double(d, kind, index, s)
                  : vok_get_reg_min_double(d, kind, index, s);
        break;
    default:
        v.i = max ? vok_get_reg_max_int32(d, kind, index, s)
                  : vok_get_reg_min_int32(d, kind, index, s);
        break;
    }
    return v;
}

Value reg_default(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t s) {
    Value v;
    switch (kind & 0x60) {
    case 0x20:
        v.d = vok_get_reg_default_float(d, kind, index, s);
        break;
    case 0x40:
        v.i = vok_get_reg_default_int64(d, kind, index, s);
        break;
    case 0x60: {
        const int64_t bits = vok_get_reg_default_int64(d, kind, index, s);
        std::memcpy(&v.d, &bits, sizeof v.d);
        break;
    }
    default:
        v.i = vok_get_reg_default_int32(d, kind, index, s);
        break;
    }
    return v;
}

int show_register(const ConfigOptions &o, const std::string &name) {
    Dict dict;
    if (int rc = open_dict(o, dict)) return rc;
    const VOK_DICT *d = dict.d;
    uint32_t kind = 0, index = 0;
    if (!find_register(d, name, kind, index)) {
        std::cerr << "ryn dict: " << config_title(d) << " has no register '" << name
                  << "' (try: ryn dict search " << name << ")\n";
        return exit_line_failed;
    }
    const int length = vok_get_register_length(d, kind, index);
    const char *alias = vok_get_register_name(d, 1, kind, index, 0);
    std::cout << register_name(d, kind, index);
    if (alias != nullptr) std::cout << " (" << alias << ")";
    std::cout << "  " << config_title(d) << '\n';
    std::cout << "  description  " << or_dash(vok_get_register_name(d, 2, kind, index, 0)) << '\n';
    std::cout << "  class        " << or_dash(vok_get_register_class(d, 1, kind, index)) << '\n';
    std::cout << "  type         " << or_dash(vok_get_type_name(d, 1, kind)) << " ("
              << class_name(kind) << "): " << or_dash(vok_get_type_name(d, 2, kind)) << '\n';
    std::cout << "  elements     " << length;
    if (vok_is_vector_kind(kind))
        std::cout << format(" (%d x %d)", vok_get_register_rows(d, kind, index),
                            vok_get_register_columns(d, kind, index));
    std::cout << '\n';
    const int display = vok_get_register_format(d, kind, index, 0);
    std::cout << "  format       " << format_name(display) << '\n';
    if (int unit = vok_get_register_iso_unit(d, kind, index))
        std::cout << "  iso unit     " << unit << '\n';
    // Elements described alike are shown once, as a range of element numbers.
    std::string previous;
    int first = 0;
    auto flush = [&](int last) {
        if (previous.empty()) return;
        const std::string which =
            first == last ? format("element %d", first) : format("elements %d..%d", first, last);
        std::cout << format("  %-12s ", which.c_str()) << previous;
    };
    for (int s = 0; s < length; ++s) {
        const auto sub = static_cast<uint32_t>(s);
        const int f = vok_get_register_format(d, kind, index, sub);
        std::string body =
            format("range %s, default %s, %s",
                   range_text(kind, f, reg_limit(d, kind, index, sub, false),
                              reg_limit(d, kind, index, sub, true))
                       .c_str(),
                   value_text(kind, f, reg_default(d, kind, index, sub)).c_str(),
                   vok_register_writable(d, kind, index, sub) ? "read-write" : "read-only");
        if (vok_element_is_reserved(d, kind, index, sub)) body += ", reserved";
        body += "\n";
        const int id = vok_get_reg_enum(d, kind, index, sub);
        if (id != 0)
            body += enum_text(
                d, kind, f, id,
                [&](int e) { return vok_enum_entry_for_reg(d, e, kind, index, sub) != 0; },
                "               ");
        if (body == previous) continue;
        flush(s - 1);
        previous = body;
        first = s;
    }
    flush(length - 1);
    return exit_ok;
}

// ---- commands ----

Value param_limit(const VOK_DICT *d, uint32_t c, int p, uint32_t kind, bool max) {
    Value v;
    switch (kind & 0x60) {
    case 0x20:
        v.d = max ? vok_get_param_max_float(d, c, p) : vok_get_param_min_float(d, c, p);
        break;
    case 0x40:
        v.i = max ? vok_get_param_max_int64(d, c, p) : vok_get_param_min_int64(d, c, p);
        break;
    case 0x60:
        v.d = max ? vok_get_param_max_double(d, c, p) : vok_get_param_min_double(d, c, p);
        break;
    default:
        v.i = max ? vok_get_param_max_int32(d, c, p) : vok_get_param_min_int32(d, c, p);
        break;
    }
    return v;
}

int commands(const ConfigOptions &o, bool all) {
    Dict dict;
    if (int rc = open_dict(o, dict)) return rc;
    const VOK_DICT *d = dict.d;
    std::cout << config_title(d) << "\n\n"
              << format("  %-6s %-5s %-8s %6s  %s\n", "NUMBER", "PAGE", "NAME", "PARAMS",
                        "DESCRIPTION");
    for (int32_t c = vok_get_next_command(d, 0); c >= 0;
         c = vok_get_next_command(d, uint32_t(c) + 1)) {
        const auto cmd = static_cast<uint32_t>(c);
        const char *name = vok_get_command_name(d, 1, cmd);
        if (name == nullptr && !all) continue;
        std::cout << format("  %-6u %2u.%-3u %-8s %6d  %s\n", cmd, cmd >> 8, cmd & 0xFF,
                            command_name(d, cmd).c_str(), vok_get_param_count(d, cmd),
                            or_dash(vok_get_command_name(d, 2, cmd)));
    }
    return exit_ok;
}

int show_command(const ConfigOptions &o, const std::string &text) {
    Dict dict;
    if (int rc = open_dict(o, dict)) return rc;
    const VOK_DICT *d = dict.d;
    uint32_t cmd = 0;
    if (!find_command(d, text, cmd)) {
        std::cerr << "ryn dict: " << config_title(d) << " has no command '" << text
                  << "' (try: ryn dict commands)\n";
        return exit_line_failed;
    }
    std::cout << command_name(d, cmd)
              << format(" (command %u, page %u number %u)  ", cmd, cmd >> 8, cmd & 0xFF)
              << config_title(d) << '\n';
    std::cout << "  description  " << or_dash(vok_get_command_name(d, 2, cmd)) << '\n';
    const int count = vok_get_param_count(d, cmd);
    std::cout << "  parameters   " << count
              << (vok_command_has_vector_params(d, cmd) ? " (takes lists in brackets)" : "")
              << '\n';
    // Parameters described alike (the value slots of a list command) are shown once, as a range.
    std::string previous;
    int first = 0;
    auto flush = [&](int last) {
        if (previous.empty()) return;
        const std::string which =
            first == last ? format("%d", first + 1) : format("%d..%d", first + 1, last + 1);
        std::cout << format("  %-5s ", which.c_str()) << previous;
    };
    for (int p = 0; p < count; ++p) {
        const uint32_t kind = vok_get_param_kind(d, cmd, p);
        const int display = vok_get_param_format(d, cmd, p);
        std::string body =
            format("%-12s %-6s %-11s range %s", or_dash(vok_get_param_name(d, cmd, p)),
                   class_name(kind), format_name(display),
                   range_text(kind, display, param_limit(d, cmd, p, kind, false),
                              param_limit(d, cmd, p, kind, true))
                       .c_str());
        if (vok_param_is_vector(d, cmd, p)) body += ", list";
        if (int unit = vok_get_param_iso_unit(d, cmd, p)) body += format(", iso unit %d", unit);
        body += "\n";
        const int id = vok_get_param_enum(d, cmd, p);
        if (id != 0)
            body += enum_text(
                d, kind, display, id,
                [&](int e) { return vok_enum_entry_for_param(d, e, cmd, p) != 0; }, "        ");
        if (body == previous) continue;
        flush(p - 1);
        previous = body;
        first = p;
    }
    flush(count - 1);
    return exit_ok;
}

// ---- search ----

bool contains(const char *text, const std::string &wanted) {
    return text != nullptr && upper(text).find(wanted) != std::string::npos;
}

int search(const ConfigOptions &o, const std::string &text) {
    Dict dict;
    if (int rc = open_dict(o, dict)) return rc;
    const VOK_DICT *d = dict.d;
    const std::string wanted = upper(text);
    int found = 0;
    for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k) {
        if (vok_get_type_name(d, 1, k) == nullptr) continue;
        for (int32_t i = vok_get_next_index(d, k, 0); i >= 0;
             i = vok_get_next_index(d, k, uint32_t(i) + 1)) {
            const auto index = static_cast<uint32_t>(i);
            if (!contains(register_name(d, k, index).c_str(), wanted) &&
                !contains(vok_get_register_name(d, 1, k, index, 0), wanted))
                continue;
            if (found++ == 0)
                std::cout << format("  %-8s %-12s %4s  %-11s %-5s %s\n", "REGISTER", "ALIAS",
                                    "ELEM", "FORMAT", "ACCESS", "DESCRIPTION");
            register_line(d, k, index);
        }
    }
    int commands_found = 0;
    for (int32_t c = vok_get_next_command(d, 0); c >= 0;
         c = vok_get_next_command(d, uint32_t(c) + 1)) {
        const auto cmd = static_cast<uint32_t>(c);
        const char *name = vok_get_command_name(d, 1, cmd);
        if (!contains(name, wanted)) continue;
        if (commands_found++ == 0)
            std::cout << (found > 0 ? "\n" : "")
                      << format("  %-6s %-8s %6s  %s\n", "NUMBER", "NAME", "PARAMS", "DESCRIPTION");
        std::cout << format("  %-6u %-8s %6d  %s\n", cmd, name, vok_get_param_count(d, cmd),
                            or_dash(vok_get_command_name(d, 2, cmd)));
    }
    if (found + commands_found > 0) return exit_ok;
    std::cerr << "ryn dict: no register, alias or command of " << config_title(d) << " contains '"
              << text << "'\n";
    return exit_line_failed;
}

} // namespace

void add_dict(CLI::App &app, int &exit_code) {
    CLI::App *dict = app.add_subcommand("dict", "Browse the drive family's dictionaries");
    dict->require_subcommand(1);

    auto o = std::make_shared<ConfigOptions>();
    auto words = std::make_shared<std::vector<std::string>>();
    auto word = std::make_shared<std::string>();
    auto all = std::make_shared<bool>(false);

    dict->add_subcommand("products", "The family's drive products and extension cards")
        ->callback([&exit_code] { exit_code = products(); });

    CLI::App *v = dict->add_subcommand("versions", "The versions of one drive product");
    v->add_option("product", *word, "Product name or number")->required();
    v->callback([&exit_code, word] { exit_code = versions(*word); });

    CLI::App *t = dict->add_subcommand("types", "Register types of a configuration");
    add_config_options(*t, *o, false);
    t->callback([&exit_code, o] { exit_code = types(*o); });

    CLI::App *r = dict->add_subcommand("registers", "Registers of a configuration, by type");
    r->add_option("type", *words, "Register types to list (default: all), such as K KF X");
    add_config_options(*r, *o, false);
    r->callback([&exit_code, o, words] { exit_code = registers(*o, *words); });

    CLI::App *one = dict->add_subcommand(
        "register", "One register: alias, elements, format, range, enumeration, default, access");
    one->add_option("name", *word, "Register name (K12) or alias (MODE)")->required();
    add_config_options(*one, *o, false);
    one->callback([&exit_code, o, word] { exit_code = show_register(*o, *word); });

    CLI::App *c = dict->add_subcommand("commands", "Commands of a configuration");
    c->add_flag("-a,--all", *all, "Also the unnamed assignment and operator commands");
    add_config_options(*c, *o, false);
    c->callback([&exit_code, o, all] { exit_code = commands(*o, *all); });

    CLI::App *cmd =
        dict->add_subcommand("command", "One command: parameters, ranges, enumerations");
    cmd->add_option("command", *word, "Command name (MVE) or number (160)")->required();
    add_config_options(*cmd, *o, false);
    cmd->callback([&exit_code, o, word] { exit_code = show_command(*o, *word); });

    CLI::App *s = dict->add_subcommand("search", "Registers and commands whose name or alias "
                                                 "contains a text");
    s->add_option("text", *word, "Text to look for (any case)")->required();
    add_config_options(*s, *o, false);
    s->callback([&exit_code, o, word] { exit_code = search(*o, *word); });
    dict->footer("Examples:\n"
                 "  ryn dict products\n"
                 "  ryn dict registers K --product ORX-D34\n"
                 "  ryn dict register MODE\n"
                 "  ryn dict command MVE\n"
                 "  ryn dict search pos\n"
                 "Exit status: 0 found, 1 nothing found, 2 bad usage or unknown configuration.");
}

} // namespace ryn::cli
