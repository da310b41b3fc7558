// Escaping of echoed input for terminals and JSON.
#include "text_safety.hpp"

#include "common.hpp"

namespace ryn::cli {

std::size_t utf8_sequence(const std::string &text, std::size_t i) {
    const auto b = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char c = b(i);
    if (c < 0x80) return 1;
    std::size_t n;
    unsigned min;
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
        min = 0x80;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        min = 0x800;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        min = 0x10000;
    } else {
        return 0;
    }
    if (i + n > text.size()) return 0;
    unsigned code = c & (0xFF >> (n + 1));
    for (std::size_t k = 1; k < n; ++k) {
        if ((b(i + k) & 0xC0) != 0x80) return 0;
        code = code << 6 | (b(i + k) & 0x3F);
    }
    if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
    return n;
}

std::string shown(const std::string &text, std::size_t most) {
    std::string out;
    std::size_t i = 0, chars = 0;
    while (i < text.size() && chars < most) {
        const auto c = static_cast<unsigned char>(text[i]);
        const std::size_t n = utf8_sequence(text, i);
        if (n == 0 || (c < 0x20 && c != '\t') || c == 0x7F) {
            out += format("\\x%02X", c);
            ++i;
        } else {
            out.append(text, i, n);
            i += n;
        }
        ++chars;
    }
    if (i < text.size()) out += format("... (%zu bytes in all)", text.size());
    return out;
}

std::string utf8_or_escaped(const std::string &text, bool &escaped) {
    escaped = false;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t n = utf8_sequence(text, i);
        if (n == 0) {
            escaped = true;
            break;
        }
        i += n;
    }
    if (!escaped) return text;
    std::string out;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t n = utf8_sequence(text, i);
        if (n == 0) {
            out += format("\\x%02X", static_cast<unsigned char>(text[i]));
            ++i;
        } else if (text[i] == '\\') {
            out += "\\\\";
            ++i;
        } else {
            out.append(text, i, n);
            i += n;
        }
    }
    return out;
}

std::string json_safe(const std::string &text) {
    bool escaped = false;
    return utf8_or_escaped(text, escaped);
}

} // namespace ryn::cli
