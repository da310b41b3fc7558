// The dict subcommand: browsing the family's products, versions, register types, registers and
// commands through the dictionary library.
#include <CLI/CLI.hpp>
#include <cstring>
#include <memory>

#include "common.hpp"
#include "dictionary.hpp"
#include "ryn/vok.h"
#include "output.hpp"

namespace ryn::cli {

namespace {

// Opens the dictionary of the named configuration; 0, or the exit code after a message.
int open_dict(const ConfigOptions &o, Dict &dict) {
    Configuration c;
    std::string error;
    if (!resolve_config(o, c, error)) {
        err() << "ryn dict: " << error << '\n';
        return exit_usage;
    }
    int rc = vok_open(&dict.d, c.product, c.version, c.ext, c.ext_version);
    if (rc != 0) {
        err() << "ryn dict: cannot open the dictionary: error " << rc << " ("
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

std::string access_text(const VOK_DICT *d, uint32_t kind, uint32_t index, int length) {
    int writable = 0;
    for (int s = 0; s < length; ++s)
        writable += vok_register_writable(d, kind, index, uint32_t(s));
    return writable == length ? "rw" : writable == 0 ? "ro" : "mixed";
}

// ---- products, versions ----

int products() {
    out() << "Family " << or_dash(vok_get_family_name()) << " (" << vok_get_family_source()
              << ")\n\nDrive products (* default version):\n";
    for (int i = 0; i < vok_get_product_count(); ++i) {
        const uint32_t p = vok_get_product_code(i);
        if (vok_is_reserved_product(p)) continue;
        out() << format("  %4u  %-9s %-10s %-22s %s\n", p, product_name(p).c_str(),
                            vok_is_axis63_product(p) ? "axis 63" : "drive",
                            product_versions(p).c_str(), or_dash(vok_get_product_description(p)));
    }
    std::string reserved;
    for (int i = 0; i < vok_get_product_count(); ++i) {
        const uint32_t p = vok_get_product_code(i);
        if (vok_is_reserved_product(p)) reserved += format(" %u", p);
    }
    if (!reserved.empty()) out() << "  reserved:" << reserved << '\n';
    out() << "\nExtension cards (* default version):\n";
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
        out() << format("  0x%02X  %-9s %-10s %s\n", e, name, versions.c_str(),
                            or_dash(vok_get_ext_product_description(e)))
                  << "              fits: " << fits << '\n';
    }
    return exit_ok;
}

int versions(const std::string &product_text) {
    uint32_t product = 0;
    std::string error;
    if (!find_product(product_text, product, error)) {
        err() << "ryn dict: " << error << '\n';
        return exit_usage;
    }
    const uint32_t standard = vok_get_default_version(product);
    for (int i = 0; i < vok_get_product_version_count(product); ++i) {
        const uint32_t v = vok_get_product_version(product, i);
        out() << version_text(v) << format("  0x%08X", v) << (v == standard ? "  default" : "")
                  << '\n';
    }
    return exit_ok;
}

// ---- types, registers ----

int types(const ConfigOptions &o) {
    Dict dict;
    if (int rc = open_dict(o, dict)) return rc;
    const VOK_DICT *d = dict.d;
    out() << config_title(d) << "\n\n";
    out() << format("  %-5s %-4s %-7s %9s %8s  %s\n", "NAME", "KIND", "CLASS", "REGISTERS",
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
        out() << format("  %-5s %4u %-7s %9d %8d  %s%s\n", name, k, class_name(k), count,
                            vok_get_subindex_count(d, k), or_dash(vok_get_type_name(d, 2, k)),
                            notes.c_str());
    }
    return exit_ok;
}

void register_line(const VOK_DICT *d, uint32_t kind, uint32_t index) {
    const int length = vok_get_register_length(d, kind, index);
    out() << format("  %-8s %-12s %4d  %-11s %-5s %s\n", register_name(d, kind, index).c_str(),
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
        err() << "ryn dict: " << config_title(d) << " has no register type '" << w
                  << "'; its types:" << list << '\n';
        return exit_usage;
    }
    if (wanted.empty())
        for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k)
            if (vok_get_type_name(d, 1, k) != nullptr && vok_type_exists(d, k)) kinds.push_back(k);
    out() << config_title(d) << "\n\n"
              << format("  %-8s %-12s %4s  %-11s %-5s %s\n", "REGISTER", "ALIAS", "ELEM", "FORMAT",
                        "ACCESS", "DESCRIPTION");
    for (uint32_t k : kinds)
        for (int32_t i = vok_get_next_index(d, k, 0); i >= 0;
             i = vok_get_next_index(d, k, uint32_t(i) + 1))
            register_line(d, k, uint32_t(i));
    return exit_ok;
}

int show_register(const ConfigOptions &o, const std::string &name) {
    Dict dict;
    if (int rc = open_dict(o, dict)) return rc;
    const VOK_DICT *d = dict.d;
    uint32_t kind = 0, index = 0;
    if (!find_register(d, name, kind, index)) {
        err() << "ryn dict: " << config_title(d) << " has no register '" << name
                  << "' (try: ryn dict search " << name << ")\n";
        return exit_line_failed;
    }
    const int length = vok_get_register_length(d, kind, index);
    const char *alias = vok_get_register_name(d, 1, kind, index, 0);
    out() << register_name(d, kind, index);
    if (alias != nullptr) out() << " (" << alias << ")";
    out() << "  " << config_title(d) << '\n';
    out() << "  description  " << or_dash(vok_get_register_name(d, 2, kind, index, 0)) << '\n';
    out() << "  class        " << or_dash(vok_get_register_class(d, 1, kind, index)) << '\n';
    out() << "  type         " << or_dash(vok_get_type_name(d, 1, kind)) << " ("
              << class_name(kind) << "): " << or_dash(vok_get_type_name(d, 2, kind)) << '\n';
    out() << "  elements     " << length;
    if (vok_is_vector_kind(kind))
        out() << format(" (%d x %d)", vok_get_register_rows(d, kind, index),
                            vok_get_register_columns(d, kind, index));
    out() << '\n';
    const int display = vok_get_register_format(d, kind, index, 0);
    out() << "  format       " << format_name(display) << '\n';
    if (int unit = vok_get_register_iso_unit(d, kind, index))
        out() << "  iso unit     " << unit << '\n';
    // Elements described alike are shown once, as a range of element numbers.
    std::string previous;
    int first = 0;
    auto flush = [&](int last) {
        if (previous.empty()) return;
        const std::string which =
            first == last ? format("element %d", first) : format("elements %d..%d", first, last);
        out() << format("  %-12s ", which.c_str()) << previous;
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

int commands(const ConfigOptions &o, bool all) {
    Dict dict;
    if (int rc = open_dict(o, dict)) return rc;
    const VOK_DICT *d = dict.d;
    out() << config_title(d) << "\n\n"
              << format("  %-6s %-5s %-8s %6s  %s\n", "NUMBER", "PAGE", "NAME", "PARAMS",
                        "DESCRIPTION");
    for (int32_t c = vok_get_next_command(d, 0); c >= 0;
         c = vok_get_next_command(d, uint32_t(c) + 1)) {
        const auto cmd = static_cast<uint32_t>(c);
        const char *name = vok_get_command_name(d, 1, cmd);
        if (name == nullptr && !all) continue;
        out() << format("  %-6u %2u.%-3u %-8s %6d  %s\n", cmd, cmd >> 8, cmd & 0xFF,
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
        err() << "ryn dict: " << config_title(d) << " has no command '" << text
                  << "' (try: ryn dict commands)\n";
        return exit_line_failed;
    }
    out() << command_name(d, cmd)
              << format(" (command %u, page %u number %u)  ", cmd, cmd >> 8, cmd & 0xFF)
              << config_title(d) << '\n';
    out() << "  description  " << or_dash(vok_get_command_name(d, 2, cmd)) << '\n';
    const int count = vok_get_param_count(d, cmd);
    out() << "  parameters   " << count
              << (vok_command_has_vector_params(d, cmd) ? " (takes lists in brackets)" : "")
              << '\n';
    // Parameters described alike (the value slots of a list command) are shown once, as a range.
    std::string previous;
    int first = 0;
    auto flush = [&](int last) {
        if (previous.empty()) return;
        const std::string which =
            first == last ? format("%d", first + 1) : format("%d..%d", first + 1, last + 1);
        out() << format("  %-5s ", which.c_str()) << previous;
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
                out() << format("  %-8s %-12s %4s  %-11s %-5s %s\n", "REGISTER", "ALIAS",
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
            out() << (found > 0 ? "\n" : "")
                      << format("  %-6s %-8s %6s  %s\n", "NUMBER", "NAME", "PARAMS", "DESCRIPTION");
        out() << format("  %-6u %-8s %6d  %s\n", cmd, name, vok_get_param_count(d, cmd),
                            or_dash(vok_get_command_name(d, 2, cmd)));
    }
    if (found + commands_found > 0) return exit_ok;
    err() << "ryn dict: no register, alias or command of " << config_title(d) << " contains '"
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
