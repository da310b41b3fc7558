// Explanations of refused lines, built on the dictionary library.
#include "explain.hpp"

#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdlib>

#include "common.hpp"
#include "dictionary.hpp"
#include "line_scan.hpp"
#include "ryn/sup.h"
#include "ryn/tra.h"
#include "wire/wire.hpp"

namespace ryn::cli {

namespace {

// The most items a line holds (the name and its values), and the most registers one read names.
constexpr int max_items = 64;
constexpr int max_reads = 4;

bool quoted(const std::string &v) {
    return v.size() >= 2 && v.front() == '"' && v.back() == '"';
}

std::string with_alias(const VOK_DICT *d, uint32_t kind, uint32_t index) {
    std::string name = register_name(d, kind, index);
    const char *alias = vok_get_register_name(d, 1, kind, index, 0);
    if (alias != nullptr && alias[0] != '\0') name += format(" (%s)", alias);
    return name;
}

std::string enum_entries(const VOK_DICT *d, uint32_t kind, int display, int id,
                         uint32_t index, uint32_t element) {
    std::string list;
    for (int e = 0; e < vok_get_enum_count(d, id); ++e) {
        if (vok_enum_entry_is_mask(d, id, e) || !vok_enum_entry_for_reg(d, e, kind, index, element))
            continue;
        list += (list.empty() ? "" : ", ") +
                value_text(kind, display, enum_value(d, kind, id, e)) + " " +
                or_dash(vok_get_enum_entry_name(d, id, e));
    }
    return list;
}

// How a value of this line would read as a value of the register's class ("2.0F" as an int32).
std::string class_hint(const std::string &item, uint32_t kind) {
    Literal l;
    if (!read_literal(item, l)) return "";
    const uint32_t want = wire::value_class(kind);
    const bool integer_register = want == wire::CLASS_INT32 || want == wire::CLASS_INT64;
    if (integer_register && (l.suffix == 'F' || l.suffix == 'D'))
        return format("%s is a %s, but the register holds %s integers: the value's bits are "
                      "compared, not its value; write an integer (%lld)",
                      item.c_str(), l.suffix == 'F' ? "32-bit float" : "64-bit double",
                      want == wire::CLASS_INT64 ? "64-bit" : "32-bit",
                      static_cast<long long>(std::strtod(item.c_str(), nullptr)));
    return "";
}

void explain_register(const VOK_DICT *d, const ScannedLine &s, int code,
                      std::vector<std::string> &out) {
    uint32_t kind = 0, index = 0;
    if (!find_register(d, s.name, kind, index)) return;
    const std::string name = with_alias(d, kind, index);
    const int length = vok_get_register_length(d, kind, index);
    const uint32_t first = s.element.empty() ? 0 : uint32_t(std::strtoul(s.element.c_str(), nullptr, 10));
    const int display = vok_get_register_format(d, kind, index, first);
    // A text fills four characters to an element.
    int given = static_cast<int>(s.values.size());
    const bool text = s.values.size() == 1 && quoted(s.values[0]);
    if (text && display == VOK_FORMAT_STRING)
        given = (static_cast<int>(s.values[0].size()) - 2 + 3) / 4;
    if (code == TRA_EREADONLY) {
        if (!vok_register_writable(d, kind, index, first)) {
            out.push_back(format("%s is read-only", name.c_str()));
            return;
        }
        if (static_cast<int>(first) + given > length) {
            if (text && display == VOK_FORMAT_STRING)
                out.push_back(format("%s holds %d characters (%d element%s of 4); the text has %d",
                                     name.c_str(), 4 * (length - int(first)), length - int(first),
                                     length - int(first) == 1 ? "" : "s",
                                     int(s.values[0].size()) - 2));
            else
                out.push_back(format("%s has %d element%s%s; %d value%s given", name.c_str(),
                                     length, length == 1 ? "" : "s",
                                     first > 0 ? format(" (from element %u: %d)", first,
                                                        length - int(first))
                                                     .c_str()
                                               : "",
                                     given, given == 1 ? "" : "s"));
            return;
        }
        for (int k = 0; k < given; ++k)
            if (!vok_register_writable(d, kind, index, first + uint32_t(k))) {
                out.push_back(format("element %u of %s is read-only", first + uint32_t(k),
                                     name.c_str()));
                return;
            }
        return;
    }
    if (code == TRA_ERANGE || code == TRA_EBADENUM) {
        if (text && display != VOK_FORMAT_STRING && display != VOK_FORMAT_IP) {
            out.push_back(format("%s holds numbers, not text: %s is sent as its characters' "
                                 "codes",
                                 name.c_str(), s.values[0].c_str()));
            return;
        }
        for (std::size_t k = 0; k < s.values.size(); ++k) {
            const uint32_t element = first + uint32_t(k);
            if (static_cast<int>(element) >= length) break;
            const int f = vok_get_register_format(d, kind, index, element);
            const std::string hint = class_hint(s.values[k], kind);
            if (!hint.empty()) out.push_back(hint);
            if (code == TRA_ERANGE) {
                const std::string range = range_text(kind, f, reg_limit(d, kind, index, element, false),
                                                     reg_limit(d, kind, index, element, true));
                if (range != "none")
                    out.push_back(format("%s%s takes %s", name.c_str(),
                                         length > 1 ? format(" element %u", element).c_str() : "",
                                         range.c_str()));
            } else if (int id = vok_get_reg_enum(d, kind, index, element); id != 0) {
                out.push_back(format("%s%s takes %s", name.c_str(),
                                     length > 1 ? format(" element %u", element).c_str() : "",
                                     enum_entries(d, kind, f, id, index, element).c_str()));
            }
            if (!out.empty()) return;
        }
    }
}

void explain_command(const VOK_DICT *d, const ScannedLine &s, int code,
                     std::vector<std::string> &out) {
    uint32_t command = 0;
    if (!find_command(d, s.name, command)) return;
    const std::string name = command_name(d, command);
    const int count = vok_get_param_count(d, command);
    if (code == TRA_ETOOMANYPARAMS) {
        out.push_back(format("%s takes %d parameter%s; %zu given", name.c_str(), count,
                             count == 1 ? "" : "s", s.values.size()));
        return;
    }
    if (code != TRA_ERANGE && code != TRA_EBADENUM) return;
    for (int p = 0; p < count && p < static_cast<int>(s.values.size()); ++p) {
        const uint32_t kind = vok_get_param_kind(d, command, p);
        const int f = vok_get_param_format(d, command, p);
        const std::string range = range_text(kind, f, param_limit(d, command, p, kind, false),
                                             param_limit(d, command, p, kind, true));
        std::string entries;
        if (int id = vok_get_param_enum(d, command, p); id != 0)
            for (int e = 0; e < vok_get_enum_count(d, id); ++e)
                if (!vok_enum_entry_is_mask(d, id, e) && vok_enum_entry_for_param(d, e, command, p))
                    entries += (entries.empty() ? "" : ", ") +
                               value_text(kind, f, enum_value(d, kind, id, e)) + " " +
                               or_dash(vok_get_enum_entry_name(d, id, e));
        if (code == TRA_ERANGE && range != "none")
            out.push_back(format("parameter %d of %s (%s) takes %s", p + 1, name.c_str(),
                                 or_dash(vok_get_param_name(d, command, p)), range.c_str()));
        if (code == TRA_EBADENUM && !entries.empty())
            out.push_back(format("parameter %d of %s (%s) takes %s", p + 1, name.c_str(),
                                 or_dash(vok_get_param_name(d, command, p)), entries.c_str()));
    }
}

// Syntax errors with a cause the line shows: too many items, too many reads, numbers beyond
// their type.
void explain_syntax(const ScannedLine &s, std::vector<std::string> &out) {
    const int items = 1 + static_cast<int>(s.values.size());
    if (!s.op.empty() && items > max_items) {
        out.push_back(format("a line holds at most %d items (the name and %d values); this one "
                             "has %d",
                             max_items, max_items - 1, items));
        return;
    }
    if (s.op.empty() && static_cast<int>(s.items.size()) > max_reads) {
        out.push_back(format("a read names one to %d registers; this line names %zu", max_reads,
                             s.items.size()));
        return;
    }
    for (const std::string &v : s.values) {
        Literal l;
        if (!read_literal(v, l)) continue;
        if (l.real || l.suffix == 'D' || l.suffix == 'F') {
            if (l.suffix == 'D' && !std::isfinite(std::strtod(l.digits.c_str(), nullptr)))
                out.push_back(format("%s is beyond the 64-bit doubles (about 1.8E308)",
                                     v.c_str()));
            continue;
        }
        const bool wide = l.suffix == 'L';
        errno = 0;
        const unsigned long long magnitude = std::strtoull(l.digits.c_str(), nullptr, l.hex ? 16 : 10);
        const bool beyond64 = errno == ERANGE;
        if (wide && beyond64)
            out.push_back(format("%s is beyond the 64-bit integers", v.c_str()));
        else if (!wide && (beyond64 || magnitude > 0xFFFFFFFFull))
            out.push_back(format("%s is beyond the 32-bit integers (-2147483648 .. 4294967295)%s",
                                 v.c_str(), beyond64 ? "" : format("; write %sL for a 64-bit value", v.c_str()).c_str()));
    }
}

} // namespace

std::vector<std::string> explain_failure(const VOK_DICT *d, const std::string &line, int code) {
    std::vector<std::string> out;
    const ScannedLine s = scan_line(line);
    if (s.raw_record) {
        // The record reader names the field it refused in the first frame of the trace.
        SUP_FRAME f{};
        if ((code == TRA_ERANGE || code == TRA_ECMDSYNTAX) && sup_trace_count() > 0 &&
            sup_trace_get(0, &f) == 0 && std::string(f.function) == "_tra_parse_raw_record" &&
            f.details[0][0] != '\0')
            out.push_back(code == TRA_ERANGE
                              ? format("the record's %s field has no room for %s (MASK 64 bits, "
                                       "GATE a 32-bit number of which 3 bits are kept, CMD and "
                                       "REC 0..255, TYP 32 bits, PAR 32 bits or 64 with 'L')",
                                       f.details[0], f.details[1])
                              : format("the record's %s field holds %s, which is no number",
                                       f.details[0], f.details[1]));
        return out;
    }
    if (code == TRA_ECMDSYNTAX) explain_syntax(s, out);
    if (d == nullptr || s.name.empty()) return out;
    uint32_t kind = 0, index = 0, command = 0;
    const bool is_register = find_register(d, s.name, kind, index);
    const bool is_command = !is_register && find_command(d, s.name, command);
    if (code == TRA_EUNKNOWN || (code == TRA_ECMDSYNTAX && !is_register && !is_command && out.empty())) {
        if (is_register || is_command) return out;
        const std::vector<std::string> near = closest_names(d, s.name);
        std::string list;
        for (const std::string &n : near)
            list += (list.empty() ? "" : ", ") + n;
        out.push_back(near.empty() ? format("%s is no register, alias or command of this drive",
                                            s.name.c_str())
                                   : format("%s is no register, alias or command of this drive; "
                                            "the closest: %s",
                                            s.name.c_str(), list.c_str()));
        return out;
    }
    if (is_register && !s.op.empty())
        explain_register(d, s, code, out);
    else if (is_command)
        explain_command(d, s, code, out);
    return out;
}

} // namespace ryn::cli
