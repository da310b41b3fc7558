// A light reading of command lines, for warnings and explanations only: the translator remains
// the one that decides what a line means.
#include "line_scan.hpp"

#include <cctype>

namespace ryn::cli {

std::size_t comment_start(const std::string &line) {
    for (std::size_t i = 0; i < line.size(); ++i)
        if (line[i] == ';' || line[i] == '#' || line.compare(i, 2, "//") == 0) return i;
    return line.size();
}

namespace {

// Splits at commas outside quotes, brackets and parentheses.
std::vector<std::string> split_items(const std::string &text) {
    std::vector<std::string> items;
    std::string item;
    int depth = 0;
    bool quoted = false;
    for (char c : text) {
        if (c == '"') quoted = !quoted;
        if (!quoted && (c == '[' || c == '(')) ++depth;
        if (!quoted && (c == ']' || c == ')')) --depth;
        if (!quoted && depth <= 0 && c == ',') {
            items.push_back(item);
            item.clear();
            continue;
        }
        item += c;
    }
    items.push_back(item);
    return items;
}

bool is_op_char(char c) {
    return c == '=' || c == '+' || c == '-' || c == '*' || c == '/' || c == '&' || c == '|' ||
           c == '^' || c == '~' || c == '%' || c == '<' || c == '>';
}

} // namespace

ScannedLine scan_line(const std::string &line) {
    ScannedLine s;
    s.raw = line.substr(0, comment_start(line));
    bool quoted = false;
    for (char c : s.raw) {
        if (c == '"') quoted = !quoted;
        if (!quoted && std::isspace(static_cast<unsigned char>(c))) continue;
        s.clean += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    const std::string &t = s.clean;
    if (t.size() >= 2 && t.front() == '[' && t.find("MASK:") != std::string::npos) {
        s.raw_record = true;
        return s;
    }
    std::size_t i = 0;
    if (t.compare(0, 1, "[") == 0) ++i;
    while (i < t.size() && (t[i] == '!' || t[i] == '*' || t[i] == ':'))
        ++i;
    const std::size_t name_start = i;
    while (i < t.size() && (std::isalnum(static_cast<unsigned char>(t[i])) || t[i] == '@' ||
                            t[i] == '_'))
        ++i;
    s.name = t.substr(name_start, i - name_start);
    if (i < t.size() && t[i] == ':') {
        const std::size_t from = ++i;
        while (i < t.size() && std::isdigit(static_cast<unsigned char>(t[i])))
            ++i;
        s.element = t.substr(from, i - from);
    }
    if (i < t.size() && t[i] == '[') { // subscripts
        while (i < t.size() && t[i] != ']')
            ++i;
        if (i < t.size()) ++i;
    }
    if (i < t.size() && t[i] == '.') {
        s.has_axes = true;
        const std::size_t from = ++i;
        if (i < t.size() && t[i] == '(') {
            while (i < t.size() && t[i] != ')')
                ++i;
            if (i < t.size()) ++i;
        } else {
            while (i < t.size() && t[i] != ',' && !is_op_char(t[i]))
                ++i;
        }
        s.axes = t.substr(from, i - from);
    }
    std::size_t op_end = i;
    while (op_end < t.size() && is_op_char(t[op_end]) && (op_end == i || t[op_end - 1] != '='))
        ++op_end;
    if (op_end > i && t[op_end - 1] == '=') {
        s.op = t.substr(i, op_end - i);
        std::string rest = t.substr(op_end);
        if (!rest.empty() && rest.back() == ']' && t.front() == '[') rest.pop_back();
        s.values = split_items(rest);
    } else {
        std::string all = t;
        if (!all.empty() && all.front() == '[') all.erase(0, 1);
        if (!all.empty() && all.back() == ']' && t.front() == '[') all.pop_back();
        s.items = split_items(all);
    }
    return s;
}

bool read_literal(const std::string &item, Literal &l) {
    l = Literal{};
    std::size_t i = 0;
    if (i < item.size() && (item[i] == '-' || item[i] == '+')) l.negative = item[i++] == '-';
    std::string body = item.substr(i);
    if (body.empty()) return false;
    if (body.size() > 2 && body[0] == '0' && (body[1] == 'X' || body[1] == 'x')) {
        l.hex = true;
        body.erase(0, 2);
    }
    const char last = static_cast<char>(std::toupper(static_cast<unsigned char>(body.back())));
    if (last == 'L' || (!l.hex && (last == 'F' || last == 'D'))) {
        l.suffix = last;
        body.pop_back();
    }
    if (body.empty()) return false;
    for (std::size_t k = 0; k < body.size(); ++k) {
        const char c = static_cast<char>(std::toupper(static_cast<unsigned char>(body[k])));
        if (std::isdigit(static_cast<unsigned char>(c))) continue;
        if (l.hex && c >= 'A' && c <= 'F') continue;
        if (!l.hex && (c == '.' || c == 'E' ||
                       ((c == '-' || c == '+') && k > 0 && (body[k - 1] == 'E' || body[k - 1] == 'e')))) {
            l.real = true;
            continue;
        }
        return false;
    }
    l.digits = body;
    return true;
}

} // namespace ryn::cli
