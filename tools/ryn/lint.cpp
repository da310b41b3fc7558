// The lint pass over command lines: empty axis items, address groups above 255, integers beyond
// their width, upper-cased text, floats that overflow, blanks inside words, literals of another
// type than a command parameter, commands given fewer parameters than they declare, and gates
// of spelled-out records that keep only their low three bits.
#include "lint.hpp"

#include <cctype>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdlib>

#include "common.hpp"
#include "dictionary.hpp"
#include "line_scan.hpp"
#include "wire/wire.hpp"

namespace ryn::cli {

namespace {

const char *suffix_of_class(uint32_t value_class) {
    switch (value_class) {
    case wire::CLASS_FLOAT:
        return "F";
    case wire::CLASS_INT64:
        return "L";
    case wire::CLASS_DOUBLE:
        return "D";
    default:
        return "";
    }
}

const char *literal_class_name(uint32_t value_class) {
    switch (value_class) {
    case wire::CLASS_FLOAT:
        return "a 32-bit float";
    case wire::CLASS_INT64:
        return "a 64-bit integer";
    case wire::CLASS_DOUBLE:
        return "a 64-bit double";
    default:
        return "a 32-bit integer";
    }
}

// 6: an empty item in an axis list ("()", "(1,)", "(,1)") reads as axis 0.
void empty_axis(const ScannedLine &s, std::vector<Warning> &w) {
    if (s.axes.size() < 2 || s.axes.front() != '(') return;
    const std::string inside = s.axes.substr(1, s.axes.size() - 2 + (s.axes.back() != ')'));
    std::vector<std::string> items{""};
    for (char c : inside) {
        if (c == ',')
            items.emplace_back();
        else
            items.back() += c;
    }
    std::string sent;
    bool empty = false;
    for (const std::string &item : items) {
        empty = empty || item.empty();
        sent += (sent.empty() ? "" : ",") + (item.empty() ? std::string("0") : item);
    }
    if (!empty) return;
    w.push_back({"empty-axis", format("an empty item in the axis list reads as axis 0: '.%s' "
                                      "addresses axes (%s)",
                                      s.axes.c_str(), sent.c_str())});
}

// The destination register of an assignment, when the dictionary knows it.
bool destination(const VOK_DICT *d, const ScannedLine &s, uint32_t &kind, uint32_t &index) {
    return d != nullptr && s.op == "=" && !s.name.empty() && find_register(d, s.name, kind, index);
}

// 7: an address group above 255 keeps its low 8 bits.
void ip_groups(const VOK_DICT *d, const ScannedLine &s, std::vector<Warning> &w) {
    uint32_t kind = 0, index = 0;
    if (s.values.size() != 1 || !destination(d, s, kind, index)) return;
    if (vok_get_register_format(d, kind, index, 0) != VOK_FORMAT_IP) return;
    const std::string &v = s.values[0];
    if (v.size() < 3 || v.front() != '"' || v.back() != '"') return;
    std::vector<std::string> parts{""};
    for (std::size_t i = 1; i + 1 < v.size(); ++i) {
        if (v[i] == '.')
            parts.emplace_back();
        else if (std::isdigit(static_cast<unsigned char>(v[i])) && parts.back().size() < 9)
            parts.back() += v[i];
        else
            return;
    }
    if (parts.size() != 4) return;
    unsigned long groups[4] = {};
    for (int g = 0; g < 4; ++g)
        groups[g] = parts[g].empty() ? 0 : std::strtoul(parts[g].c_str(), nullptr, 10);
    bool wraps = false;
    for (unsigned long g : groups)
        wraps = wraps || g > 255;
    if (!wraps) return;
    w.push_back({"ip-group", format("an address group above 255 keeps its low 8 bits: %s is sent "
                                    "as %lu.%lu.%lu.%lu",
                                    v.c_str(), groups[0] & 255, groups[1] & 255, groups[2] & 255,
                                    groups[3] & 255)});
}

// 8, 10: integers beyond their width wrap, floats beyond their range become infinite.
void literal_widths(const std::vector<std::string> &items, std::vector<Warning> &w) {
    for (const std::string &item : items) {
        Literal l;
        if (!read_literal(item, l)) continue;
        if (l.real || l.suffix == 'F' || l.suffix == 'D') {
            if (l.suffix != 'F') continue; // a double that overflows is refused as a syntax error
            const double value = std::strtod(l.digits.c_str(), nullptr);
            if (std::isfinite(value) && value <= FLT_MAX) continue;
            w.push_back({"float-overflow",
                         format("%s is beyond the 32-bit floats (about 3.4E38): it is sent as "
                                "%sinfinity, which the language cannot read back",
                                item.c_str(), l.negative ? "minus " : "")});
            continue;
        }
        uint64_t magnitude = 0;
        const char *end = l.digits.data() + l.digits.size();
        const auto r = std::from_chars(l.digits.data(), end, magnitude, l.hex ? 16 : 10);
        if (r.ec != std::errc{} || r.ptr != end) continue; // refused by the translator
        const bool wide = l.suffix == 'L';
        // Beyond what the width holds signed or unsigned the translator refuses the literal; a
        // negative value beyond the signed range wraps, and so does a decimal above it.
        if (!wide && magnitude > UINT32_MAX) continue;
        const uint64_t half = wide ? uint64_t(1) << 63 : uint64_t(1) << 31;
        const bool wraps = l.negative ? magnitude > half : (!l.hex && magnitude >= half);
        if (!wraps) continue;
        const uint64_t bits = l.negative ? uint64_t(0) - magnitude : magnitude;
        const long long sent = wide ? static_cast<long long>(bits)
                                    : static_cast<int32_t>(static_cast<uint32_t>(bits));
        w.push_back({"int-width", format("%s does not fit a %s integer: it is sent as %lld%s",
                                         item.c_str(), wide ? "64-bit" : "32-bit", sent,
                                         wide ? "L" : "")});
    }
}

// 9: text in quotes is upper-cased.
void quoted_case(const ScannedLine &s, std::vector<Warning> &w) {
    bool quoted = false;
    std::string text;
    for (char c : s.raw) {
        if (c == '"') {
            if (quoted && text != upper(text))
                w.push_back({"upper-case", format("text in quotes is upper-cased: \"%s\" is sent "
                                                  "as \"%s\"",
                                                  text.c_str(), upper(text).c_str())});
            quoted = !quoted;
            text.clear();
            continue;
        }
        if (quoted) text += c;
    }
}

// 11: blanks inside a number, a name or an axis are dropped.
void inner_blanks(const ScannedLine &s, std::vector<Warning> &w) {
    auto word = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_' || c == '@';
    };
    bool quoted = false;
    const std::string &r = s.raw;
    for (std::size_t i = 0; i < r.size(); ++i) {
        if (r[i] == '"') quoted = !quoted;
        if (quoted || (r[i] != ' ' && r[i] != '\t') || i == 0 || !word(r[i - 1])) continue;
        std::size_t j = i;
        while (j < r.size() && (r[j] == ' ' || r[j] == '\t'))
            ++j;
        if (j >= r.size() || !word(r[j])) continue;
        std::size_t from = i, to = j;
        while (from > 0 && word(r[from - 1]))
            --from;
        while (to < r.size() && word(r[to]))
            ++to;
        std::string joined = r.substr(from, i - from) + r.substr(j, to - j);
        w.push_back({"inner-blank", format("blanks are dropped: '%s' is read as '%s'",
                                           r.substr(from, to - from).c_str(), joined.c_str())});
        i = j;
    }
}

// 12: literals of another class than the command's parameter, and missing parameters.
void command_parameters(const VOK_DICT *d, const ScannedLine &s, const Translated &t,
                        std::vector<Warning> &w) {
    if (d == nullptr || t.record == nullptr) return;
    const wire::BasicRecordView<const uint8_t> r{t.record};
    const uint32_t kind = r.kind();
    if (kind < wire::REC_BANG_COMMAND || kind >= wire::REC_ELEMENTS) return;
    const uint32_t page = kind >= wire::REC_COMMAND ? kind - wire::REC_COMMAND
                                                    : kind - wire::REC_BANG_COMMAND;
    if (page > 5) return;
    const auto cmd = static_cast<int32_t>(page * 256 + r.command_byte());
    if (wire::is_assignment(cmd) || wire::is_compound(cmd) || cmd == wire::CMD_CONVERT ||
        cmd == wire::CMD_STEP || cmd == wire::CMD_STEP_ADD || cmd == wire::CMD_STEP_SUBTRACT)
        return;
    const auto command = static_cast<uint32_t>(cmd);
    if (!vok_command_exists(d, command) || vok_command_has_vector_params(d, command)) return;
    const int declared = vok_get_param_count(d, command);
    const std::string name = command_name(d, command);
    for (int p = 0; p < t.slots && p < declared; ++p) {
        const uint32_t tag = wire::load_u32(t.record + wire::RECORD_HEADER_SIZE +
                                            wire::RECORD_SLOT_SIZE * p);
        if ((tag & wire::TYPE_CODE_MASK) != 0) continue; // a register as the value
        const uint32_t given = wire::value_class(tag);
        const uint32_t wanted = wire::value_class(vok_get_param_kind(d, command, p));
        if (given == wanted) continue;
        const std::string item = p < static_cast<int>(s.values.size()) ? s.values[p] : "";
        Literal l;
        std::string hint;
        if (read_literal(item, l) && !l.real && l.suffix == 0)
            hint = format("; write %s%s", item.c_str(), suffix_of_class(wanted));
        w.push_back({"param-type",
                     format("parameter %d of %s (%s) is declared %s, but %s is sent as %s%s",
                            p + 1, name.c_str(), or_dash(vok_get_param_name(d, command, p)),
                            class_name(wanted), item.empty() ? "the value" : item.c_str(),
                            literal_class_name(given), hint.c_str())});
    }
    if (t.slots < declared) {
        std::string names;
        for (int p = t.slots; p < declared; ++p)
            names += (names.empty() ? "" : ", ") + std::string(or_dash(vok_get_param_name(d, command, p)));
        w.push_back({"missing-params", format("%s declares %d parameter%s but is given %d: %s %s "
                                              "not sent",
                                              name.c_str(), declared, declared == 1 ? "" : "s",
                                              t.slots, names.c_str(),
                                              declared - t.slots == 1 ? "is" : "are")});
    }
}

// A spelled-out record keeps only the low three bits of its gate.
void raw_gate(const ScannedLine &s, std::vector<Warning> &w) {
    const std::size_t at = s.clean.find("GATE:");
    if (at == std::string::npos) return;
    const char *from = s.clean.c_str() + at + 5;
    char *end = nullptr;
    const unsigned long long gate = std::strtoull(from, &end, 0);
    if (end == from || gate <= 7) return;
    w.push_back({"gate-bits", format("a gate keeps its low three bits: GATE:%llu is sent as %llu",
                                     gate, gate & 7)});
}

} // namespace

std::vector<Warning> lint_line(const VOK_DICT *dict, const std::string &line,
                               const Translated &translated) {
    std::vector<Warning> w;
    const ScannedLine s = scan_line(line);
    if (s.clean.empty()) return w;
    if (s.raw_record) {
        if (translated.record != nullptr) raw_gate(s, w);
        return w;
    }
    inner_blanks(s, w);
    empty_axis(s, w);
    quoted_case(s, w);
    ip_groups(dict, s, w);
    literal_widths(s.values, w);
    command_parameters(dict, s, translated, w);
    return w;
}

const std::vector<Trap> &lint_traps() {
    static const std::vector<Trap> traps = {
        {"empty-axis", "an empty item in an axis list reads as axis 0"},
        {"ip-group", "an address group above 255 keeps its low 8 bits"},
        {"int-width", "an integer beyond its width wraps"},
        {"upper-case", "text inside quotes is upper-cased"},
        {"float-overflow", "a float beyond its range becomes infinite"},
        {"inner-blank", "blanks inside numbers, names and axes are dropped"},
        {"param-type", "a literal of another type than the command parameter declares"},
        {"missing-params", "a command given fewer parameters than it declares"},
        {"gate-bits", "a spelled-out record's gate keeps its low three bits"},
    };
    return traps;
}

} // namespace ryn::cli
