// Dictionary look-ups shared by the tool's subcommands and its checks of command lines.
#include "dictionary.hpp"

#include <algorithm>
#include <cctype>

#include "common.hpp"
#include "wire/wire.hpp"

namespace ryn::cli {



const char *or_dash(const char *text) {
    return text != nullptr && text[0] != '\0' ? text : "-";
}

const char *class_name(uint32_t kind) {
    switch (wire::value_class(kind)) {
    case wire::CLASS_FLOAT:
        return "float";
    case wire::CLASS_INT64:
        return "int64";
    case wire::CLASS_DOUBLE:
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
        return "ip-address";
    default:
        return "none";
    }
}


std::string value_text(uint32_t kind, int display, const Value &v) {
    switch (wire::value_class(kind)) {
    case wire::CLASS_FLOAT:
    case wire::CLASS_DOUBLE:
        return format("%.9g", v.d);
    case wire::CLASS_INT64:
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
    switch (wire::value_class(kind)) {
    case wire::CLASS_FLOAT:
        v.d = vok_get_enum_value_float(d, id, entry);
        break;
    case wire::CLASS_INT64:
        v.i = vok_get_enum_value_int64(d, id, entry);
        break;
    case wire::CLASS_DOUBLE:
        v.d = vok_get_enum_value_double(d, id, entry);
        break;
    default:
        v.i = vok_get_enum_value_int32(d, id, entry);
        break;
    }
    return v;
}


std::string register_name(const VOK_DICT *d, uint32_t kind, uint32_t index) {
    if (kind == 1 && index == 65535) return "XAC";
    return format("%s%u", or_dash(vok_get_type_name(d, 1, kind)), index);
}

// Finds a register by name ("K12", "kf1") or alias ("MODE").
bool find_register(const VOK_DICT *d, const std::string &text, uint32_t &kind, uint32_t &index) {
    if (vok_find_register_alias(d, text.c_str(), &kind, &index) == 0) return true;
    // The language's other names of M60 and M61.
    if (same_name(text, "SD1") || same_name(text, "SD2"))
        return find_register(d, format("M%d", text.back() == '1' ? 60 : 61), kind, index);
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


Value reg_limit(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t s, bool max) {
    Value v;
    switch (wire::value_class(kind)) {
    case wire::CLASS_FLOAT:
        v.d = max ? vok_get_reg_max_float(d, kind, index, s)
                  : vok_get_reg_min_float(d, kind, index, s);
        break;
    case wire::CLASS_INT64:
        v.i = max ? vok_get_reg_max_int64(d, kind, index, s)
                  : vok_get_reg_min_int64(d, kind, index, s);
        break;
    case wire::CLASS_DOUBLE:
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
    switch (wire::value_class(kind)) {
    case wire::CLASS_FLOAT:
        v.d = vok_get_reg_default_float(d, kind, index, s);
        break;
    case wire::CLASS_INT64:
        v.i = vok_get_reg_default_int64(d, kind, index, s);
        break;
    case wire::CLASS_DOUBLE: {
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


Value param_limit(const VOK_DICT *d, uint32_t c, int p, uint32_t kind, bool max) {
    Value v;
    switch (wire::value_class(kind)) {
    case wire::CLASS_FLOAT:
        v.d = max ? vok_get_param_max_float(d, c, p) : vok_get_param_min_float(d, c, p);
        break;
    case wire::CLASS_INT64:
        v.i = max ? vok_get_param_max_int64(d, c, p) : vok_get_param_min_int64(d, c, p);
        break;
    case wire::CLASS_DOUBLE:
        v.d = max ? vok_get_param_max_double(d, c, p) : vok_get_param_min_double(d, c, p);
        break;
    default:
        v.i = max ? vok_get_param_max_int32(d, c, p) : vok_get_param_min_int32(d, c, p);
        break;
    }
    return v;
}


int edit_distance(const std::string &a, const std::string &b) {
    const std::string x = upper(a), y = upper(b);
    std::vector<int> row(y.size() + 1);
    for (std::size_t j = 0; j <= y.size(); ++j)
        row[j] = static_cast<int>(j);
    for (std::size_t i = 1; i <= x.size(); ++i) {
        int diagonal = row[0];
        row[0] = static_cast<int>(i);
        for (std::size_t j = 1; j <= y.size(); ++j) {
            const int above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (x[i - 1] != y[j - 1])});
            diagonal = above;
        }
    }
    return row[y.size()];
}

std::vector<std::string> closest_names(const VOK_DICT *d, const std::string &text, int most) {
    struct Candidate {
        int distance;
        std::string name;
    };
    std::vector<Candidate> found;
    const int limit = std::max(1, static_cast<int>(text.size()) / 3);
    auto consider = [&](const std::string &name) {
        if (name.empty() || same_name(name, text)) return;
        const int edits = edit_distance(name, text);
        if (edits > limit) return;
        // Among names as near, those of the same register type (first letter) come first.
        const int distance = 2 * edits + (std::toupper(static_cast<unsigned char>(name[0])) !=
                                          std::toupper(static_cast<unsigned char>(text[0])));
        for (const Candidate &c : found)
            if (same_name(c.name, name)) return;
        found.push_back({distance, name});
    };
    for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k) {
        if (vok_get_type_name(d, 1, k) == nullptr) continue;
        for (int32_t i = vok_get_next_index(d, k, 0); i >= 0;
             i = vok_get_next_index(d, k, uint32_t(i) + 1)) {
            consider(register_name(d, k, uint32_t(i)));
            const char *alias = vok_get_register_name(d, 1, k, uint32_t(i), 0);
            if (alias != nullptr) consider(alias);
        }
    }
    for (int32_t c = vok_get_next_command(d, 0); c >= 0;
         c = vok_get_next_command(d, uint32_t(c) + 1)) {
        const char *name = vok_get_command_name(d, 1, uint32_t(c));
        if (name != nullptr) consider(name);
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const Candidate &a, const Candidate &b) { return a.distance < b.distance; });
    std::vector<std::string> names;
    for (const Candidate &c : found)
        if (static_cast<int>(names.size()) < most) names.push_back(c.name);
    return names;
}

} // namespace ryn::cli
