// The dict subcommand: browsing the family's products, versions, register types, registers and
// commands through the dictionary library.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>

#include "common.hpp"
#include "dictionary.hpp"
#include "online.hpp"
#include "output.hpp"
#include "ryn/vok.h"

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

// A listing: a header row and rows of cells, written as aligned columns (each as wide as its
// widest cell) or as a JSON array of objects keyed by the lower-case header.
struct Table {
    std::vector<std::string> head;
    std::vector<bool> right; // right-aligned columns
    std::vector<std::vector<std::string>> rows;

    void add(std::vector<std::string> row) { rows.push_back(std::move(row)); }

    void print(const std::string &indent = "  ") const {
        std::vector<std::size_t> width(head.size());
        for (std::size_t c = 0; c < head.size(); ++c) {
            width[c] = head[c].size();
            for (const auto &row : rows)
                width[c] = std::max(width[c], row[c].size());
        }
        auto line = [&](const std::vector<std::string> &cells) {
            std::string text = indent;
            for (std::size_t c = 0; c < cells.size(); ++c) {
                const bool last = c + 1 == cells.size();
                const std::string pad(width[c] - cells[c].size(), ' ');
                if (c < right.size() && right[c])
                    text += pad + cells[c];
                else
                    text += cells[c] + (last ? "" : pad);
                if (!last) text += "  ";
            }
            out() << text << '\n';
        };
        line(head);
        for (const auto &row : rows)
            line(row);
    }

    nlohmann::ordered_json json() const {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const auto &row : rows) {
            nlohmann::ordered_json item;
            for (std::size_t c = 0; c < head.size(); ++c) {
                std::string key = head[c];
                for (char &ch : key)
                    ch = ch == ' '
                             ? '_'
                             : static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
                item[key] = row[c];
            }
            list.push_back(item);
        }
        return list;
    }
};

// The entries of an enumeration that apply, as JSON objects with their parent entry.
template <typename Applies>
nlohmann::ordered_json enum_json(const VOK_DICT *d, uint32_t kind, int display, int id,
                                 Applies applies) {
    nlohmann::ordered_json entries = nlohmann::ordered_json::array();
    for (int k = 0; k < vok_get_enum_count(d, id); ++k)
        if (applies(k))
            entries.push_back({{"value", value_text(kind, display, enum_value(d, kind, id, k))},
                               {"name", or_dash(vok_get_enum_entry_name(d, id, k))},
                               {"mask", vok_enum_entry_is_mask(d, id, k) != 0},
                               {"parent", vok_get_enum_entry_parent(d, id, k)}});
    return entries;
}

// Whether the listing is written as JSON (--json of every dict command).
bool as_json = false;

// ---- products, versions ----

int products() {
    Table drives{{"CODE", "PRODUCT", "ROLE", "VERSIONS", "DESCRIPTION"}, {true}, {}};
    std::string reserved;
    for (int i = 0; i < vok_get_product_count(); ++i) {
        const uint32_t p = vok_get_product_code(i);
        if (vok_is_reserved_product(p)) {
            reserved += format(" %u", p);
            continue;
        }
        std::string versions = product_versions(p);
        for (char &c : versions)
            if (c == ' ') c = '\0';
        versions.erase(std::remove(versions.begin(), versions.end(), '\0'), versions.end());
        drives.add({format("%u", p), product_name(p), vok_is_axis63_product(p) ? "axis63" : "drive",
                    versions, or_dash(vok_get_product_description(p))});
    }
    Table cards{{"CODE", "CARD", "VERSIONS", "FITS", "DESCRIPTION"}, {}, {}};
    for (int i = 0; i < vok_get_ext_product_count(); ++i) {
        const uint32_t e = vok_get_ext_product_code(i);
        const char *name = vok_get_ext_product_name(e);
        if (e == 0 || name == nullptr) continue;
        std::string versions;
        const uint32_t standard = vok_get_ext_product_default_version(e);
        for (int v = 0; v < vok_get_ext_product_version_count(e); ++v) {
            const uint32_t version = vok_get_ext_product_version(e, v);
            versions += (versions.empty() ? "" : ",") + version_text(version) +
                        (version == standard ? "*" : "");
        }
        std::string fits;
        for (int j = 0; j < vok_get_product_count(); ++j) {
            const uint32_t p = vok_get_product_code(j);
            if (!vok_is_reserved_product(p) && vok_ext_fits_product(e, p))
                fits += (fits.empty() ? "" : ",") + product_name(p);
        }
        cards.add({format("0x%02X", e), name, versions, fits,
                   or_dash(vok_get_ext_product_description(e))});
    }
    if (as_json) {
        nlohmann::ordered_json j;
        j["family"] = vok_get_family_name();
        j["source"] = vok_get_family_source();
        j["products"] = drives.json();
        j["cards"] = cards.json();
        write_json(j);
        return exit_ok;
    }
    out() << "Family " << or_dash(vok_get_family_name()) << " (" << vok_get_family_source()
          << ")\n\nDrive products (* default version):\n";
    drives.print();
    if (!reserved.empty()) out() << "  reserved:" << reserved << '\n';
    out() << "\nExtension cards (* default version):\n";
    cards.print();
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
    Table t{{"VERSION", "NUMBER", "DEFAULT"}, {}, {}};
    for (int i = 0; i < vok_get_product_version_count(product); ++i) {
        const uint32_t v = vok_get_product_version(product, i);
        t.add({version_text(v), format("0x%08X", v), v == standard ? "yes" : "no"});
    }
    if (as_json)
        write_json(t.json());
    else
        t.print("");
    return exit_ok;
}

// ---- types, registers ----

int types(const ConfigOptions &o) {
    Dict dict;
    if (int rc = open_dict(o, dict)) return rc;
    const VOK_DICT *d = dict.d;
    Table t{{"NAME", "KIND", "CLASS", "REGISTERS", "ELEMENTS", "DESCRIPTION"},
            {false, true, false, true, true},
            {}};
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
        t.add({name, format("%u", k), class_name(k), format("%d", count),
               format("%d", vok_get_subindex_count(d, k)),
               std::string(or_dash(vok_get_type_name(d, 2, k))) + notes});
    }
    if (as_json) {
        write_json({{"configuration", config_title(d)}, {"types", t.json()}});
        return exit_ok;
    }
    out() << config_title(d) << "\n\n";
    t.print();
    return exit_ok;
}

Table register_table() {
    return {
        {"REGISTER", "ALIAS", "ELEM", "FORMAT", "ACCESS", "DESCRIPTION"}, {false, false, true}, {}};
}

void register_line(Table &t, const VOK_DICT *d, uint32_t kind, uint32_t index) {
    const int length = vok_get_register_length(d, kind, index);
    t.add({register_name(d, kind, index), or_dash(vok_get_register_name(d, 1, kind, index, 0)),
           format("%d", length), format_name(vok_get_register_format(d, kind, index, 0)),
           access_text(d, kind, index, length),
           or_dash(vok_get_register_name(d, 2, kind, index, 0))});
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
    Table t = register_table();
    for (uint32_t k : kinds)
        for (int32_t i = vok_get_next_index(d, k, 0); i >= 0;
             i = vok_get_next_index(d, k, uint32_t(i) + 1))
            register_line(t, d, k, uint32_t(i));
    if (as_json) {
        write_json({{"configuration", config_title(d)}, {"registers", t.json()}});
        return exit_ok;
    }
    out() << config_title(d) << "\n\n";
    t.print();
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
    if (as_json) {
        nlohmann::ordered_json j;
        j["register"] = register_name(d, kind, index);
        j["alias"] = alias != nullptr ? alias : "";
        j["configuration"] = config_title(d);
        j["description"] = or_dash(vok_get_register_name(d, 2, kind, index, 0));
        j["class"] = or_dash(vok_get_register_class(d, 1, kind, index));
        j["type"] = or_dash(vok_get_type_name(d, 1, kind));
        j["value_class"] = class_name(kind);
        j["elements"] = length;
        if (vok_is_vector_kind(kind)) {
            j["rows"] = vok_get_register_rows(d, kind, index);
            j["columns"] = vok_get_register_columns(d, kind, index);
        }
        j["format"] = format_name(vok_get_register_format(d, kind, index, 0));
        j["iso_unit"] = vok_get_register_iso_unit(d, kind, index);
        nlohmann::ordered_json elements = nlohmann::ordered_json::array();
        for (int s = 0; s < length; ++s) {
            const auto sub = static_cast<uint32_t>(s);
            const int f = vok_get_register_format(d, kind, index, sub);
            nlohmann::ordered_json e;
            e["element"] = s;
            e["range"] = range_text(kind, f, reg_limit(d, kind, index, sub, false),
                                    reg_limit(d, kind, index, sub, true));
            e["default"] = value_text(kind, f, reg_default(d, kind, index, sub));
            e["writable"] = vok_register_writable(d, kind, index, sub) != 0;
            e["reserved"] = vok_element_is_reserved(d, kind, index, sub) != 0;
            if (int id = vok_get_reg_enum(d, kind, index, sub); id != 0)
                e["enumeration"] = enum_json(d, kind, f, id, [&](int k) {
                    return vok_enum_entry_for_reg(d, k, kind, index, sub) != 0;
                });
            elements.push_back(e);
        }
        j["element_list"] = elements;
        write_json(j);
        return exit_ok;
    }
    out() << register_name(d, kind, index);
    if (alias != nullptr) out() << " (" << alias << ")";
    out() << "  " << config_title(d) << '\n';
    out() << "  description  " << or_dash(vok_get_register_name(d, 2, kind, index, 0)) << '\n';
    out() << "  class        " << or_dash(vok_get_register_class(d, 1, kind, index)) << '\n';
    out() << "  type         " << or_dash(vok_get_type_name(d, 1, kind)) << " (" << class_name(kind)
          << "): " << or_dash(vok_get_type_name(d, 2, kind)) << '\n';
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

Table command_table() {
    return {{"NUMBER", "PAGE", "NAME", "PARAMS", "DESCRIPTION"}, {true, true, false, true}, {}};
}

void command_line(Table &t, const VOK_DICT *d, uint32_t cmd) {
    t.add({format("%u", cmd), format("%u.%u", cmd >> 8, cmd & 0xFF), command_name(d, cmd),
           format("%d", vok_get_param_count(d, cmd)), or_dash(vok_get_command_name(d, 2, cmd))});
}

int commands(const ConfigOptions &o, bool all) {
    Dict dict;
    if (int rc = open_dict(o, dict)) return rc;
    const VOK_DICT *d = dict.d;
    Table t = command_table();
    for (int32_t c = vok_get_next_command(d, 0); c >= 0;
         c = vok_get_next_command(d, uint32_t(c) + 1)) {
        const auto cmd = static_cast<uint32_t>(c);
        if (vok_get_command_name(d, 1, cmd) == nullptr && !all) continue;
        command_line(t, d, cmd);
    }
    if (as_json) {
        write_json({{"configuration", config_title(d)}, {"commands", t.json()}});
        return exit_ok;
    }
    out() << config_title(d) << "\n\n";
    t.print();
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
    if (as_json) {
        nlohmann::ordered_json j;
        j["command"] = command_name(d, cmd);
        j["number"] = cmd;
        j["configuration"] = config_title(d);
        j["description"] = or_dash(vok_get_command_name(d, 2, cmd));
        j["takes_lists"] = vok_command_has_vector_params(d, cmd) != 0;
        nlohmann::ordered_json params = nlohmann::ordered_json::array();
        for (int p = 0; p < vok_get_param_count(d, cmd); ++p) {
            const uint32_t kind = vok_get_param_kind(d, cmd, p);
            const int display = vok_get_param_format(d, cmd, p);
            nlohmann::ordered_json e;
            e["parameter"] = p + 1;
            e["name"] = or_dash(vok_get_param_name(d, cmd, p));
            e["value_class"] = class_name(kind);
            e["format"] = format_name(display);
            e["range"] = range_text(kind, display, param_limit(d, cmd, p, kind, false),
                                    param_limit(d, cmd, p, kind, true));
            e["list"] = vok_param_is_vector(d, cmd, p) != 0;
            e["iso_unit"] = vok_get_param_iso_unit(d, cmd, p);
            if (int id = vok_get_param_enum(d, cmd, p); id != 0)
                e["enumeration"] = enum_json(d, kind, display, id, [&](int k) {
                    return vok_enum_entry_for_param(d, k, cmd, p) != 0;
                });
            params.push_back(e);
        }
        j["parameters"] = params;
        write_json(j);
        return exit_ok;
    }
    out() << command_name(d, cmd)
          << format(" (command %u, page %u number %u)  ", cmd, cmd >> 8, cmd & 0xFF)
          << config_title(d) << '\n';
    out() << "  description  " << or_dash(vok_get_command_name(d, 2, cmd)) << '\n';
    const int count = vok_get_param_count(d, cmd);
    out() << "  parameters   " << count
          << (vok_command_has_vector_params(d, cmd) ? " (takes lists in brackets)" : "") << '\n';
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
    Table registers = register_table();
    for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k) {
        if (vok_get_type_name(d, 1, k) == nullptr) continue;
        for (int32_t i = vok_get_next_index(d, k, 0); i >= 0;
             i = vok_get_next_index(d, k, uint32_t(i) + 1)) {
            const auto index = static_cast<uint32_t>(i);
            if (contains(register_name(d, k, index).c_str(), wanted) ||
                contains(vok_get_register_name(d, 1, k, index, 0), wanted))
                register_line(registers, d, k, index);
        }
    }
    Table commands = command_table();
    for (int32_t c = vok_get_next_command(d, 0); c >= 0;
         c = vok_get_next_command(d, uint32_t(c) + 1))
        if (contains(vok_get_command_name(d, 1, uint32_t(c)), wanted))
            command_line(commands, d, uint32_t(c));
    const bool found = !registers.rows.empty() || !commands.rows.empty();
    if (as_json) {
        write_json({{"configuration", config_title(d)},
                    {"registers", registers.json()},
                    {"commands", commands.json()}});
    } else if (found) {
        if (!registers.rows.empty()) registers.print();
        if (!registers.rows.empty() && !commands.rows.empty()) out() << '\n';
        if (!commands.rows.empty()) commands.print();
    }
    if (found) return exit_ok;
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
    // Every listing takes --json; the callbacks load the family first when --family is given.
    auto common = [](CLI::App *sub, const char *examples) {
        sub->add_flag("-j,--json", as_json, "Write the listing as JSON")->group("Output");
        sub->footer(std::string("Examples:\n") + examples);
    };
    auto family_loaded = [o, &exit_code]() {
        std::string error;
        if (o->family.empty() || load_family(o->family, error)) return true;
        err() << "ryn dict: " << error << '\n';
        exit_code = exit_usage;
        return false;
    };

    CLI::App *p =
        dict->add_subcommand("products", "The family's drive products and extension cards");
    add_family_option(*p, o->family);
    common(p, "  ryn dict products\n  ryn dict products --json");
    p->callback([&exit_code, family_loaded] {
        if (family_loaded()) exit_code = products();
    });

    CLI::App *v = dict->add_subcommand("versions", "The versions of one drive product");
    v->add_option("product", *word, "Product name or number")->required();
    add_family_option(*v, o->family);
    common(v, "  ryn dict versions ORX-D32\n  ryn dict versions 34 --json");
    v->callback([&exit_code, word, family_loaded] {
        if (family_loaded()) exit_code = versions(*word);
    });

    CLI::App *t = dict->add_subcommand("types", "Register types of a configuration");
    add_config_options(*t, *o, false);
    common(t, "  ryn dict types\n  ryn dict types --product ORX-D34 --ext IOX-8");
    t->callback([&exit_code, o] { exit_code = types(*o); });

    CLI::App *r = dict->add_subcommand("registers", "Registers of a configuration, by type");
    r->add_option("type", *words, "Register types to list (default: all), such as K KF X");
    add_config_options(*r, *o, false);
    common(r, "  ryn dict registers K\n  ryn dict registers K KF --product ORX-D34 --json");
    r->callback([&exit_code, o, words] { exit_code = registers(*o, *words); });

    CLI::App *one = dict->add_subcommand(
        "register", "One register: alias, elements, format, range, enumeration, default, access");
    one->add_option("name", *word, "Register name (K12, SD1) or alias (MODE)")->required();
    add_config_options(*one, *o, false);
    common(one,
           "  ryn dict register MODE\n  ryn dict register K12 --json\n  ryn dict register SD1");
    one->callback([&exit_code, o, word] { exit_code = show_register(*o, *word); });

    CLI::App *c = dict->add_subcommand("commands", "Commands of a configuration");
    c->add_flag("-a,--all", *all, "Also the unnamed assignment and operator commands");
    add_config_options(*c, *o, false);
    common(c, "  ryn dict commands\n  ryn dict commands --all --json");
    c->callback([&exit_code, o, all] { exit_code = commands(*o, *all); });

    CLI::App *cmd =
        dict->add_subcommand("command", "One command: parameters, ranges, enumerations");
    cmd->add_option("command", *word, "Command name (MVE) or number (160)")->required();
    add_config_options(*cmd, *o, false);
    common(cmd, "  ryn dict command MVE\n  ryn dict command 124 --json");
    cmd->callback([&exit_code, o, word] { exit_code = show_command(*o, *word); });

    CLI::App *s = dict->add_subcommand("search", "Registers and commands whose name or alias "
                                                 "contains a text");
    s->add_option("text", *word, "Text to look for (any case)")->required();
    add_config_options(*s, *o, false);
    common(s, "  ryn dict search pos\n  ryn dict search vel --json");
    s->callback([&exit_code, o, word] { exit_code = search(*o, *word); });
    dict->footer("Examples:\n"
                 "  ryn dict products\n"
                 "  ryn dict registers K --product ORX-D34\n"
                 "  ryn dict register MODE\n"
                 "  ryn dict command MVE\n"
                 "  ryn dict search pos --json\n"
                 "Exit status: 0 found, 1 nothing found, 2 bad usage or unknown configuration,\n"
                 "4 the output could not be written.");
}

} // namespace ryn::cli
