// Drive configurations named on the command line, version texts, and small text helpers.
#include "common.hpp"

#include <CLI/CLI.hpp>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "ryn/sup.h"
#include "ryn/tra.h"
#include "ryn/vok.h"

namespace ryn::cli {

std::string format(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    va_list again;
    va_copy(again, args);
    int n = std::vsnprintf(nullptr, 0, fmt, args);
    va_end(args);
    std::string text(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0) std::vsnprintf(text.data(), text.size() + 1, fmt, again);
    va_end(again);
    return text;
}

std::string upper(std::string text) {
    for (char &c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

bool same_name(const std::string &a, const std::string &b) {
    return upper(a) == upper(b);
}

bool parse_number(const std::string &text, uint64_t &value) {
    if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0]))) return false;
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    errno = 0;
    char *end = nullptr;
    unsigned long long v = std::strtoull(text.c_str(), &end, hex ? 16 : 10);
    if (errno != 0 || end == nullptr || *end != '\0') return false;
    value = v;
    return true;
}

std::string version_text(uint32_t version) {
    char text[32];
    if (tra_version_to_string(text, sizeof text, version) != 0 || text[0] == '\0')
        return format("0x%08X", version);
    return text;
}

std::string product_name(uint32_t product) {
    const char *name = vok_get_product_name(product);
    return name ? name : format("product %u", product);
}

std::string product_versions(uint32_t product) {
    std::string list;
    const uint32_t standard = vok_get_default_version(product);
    for (int i = 0; i < vok_get_product_version_count(product); ++i) {
        const uint32_t v = vok_get_product_version(product, i);
        if (!list.empty()) list += ", ";
        list += version_text(v);
        if (v == standard) list += "*";
    }
    return list;
}

namespace {

// A version written as text ("3.12B") or as its packed number.
bool parse_version(const std::string &text, const char *example, uint32_t &version,
                   std::string &error) {
    uint64_t number = 0;
    uint32_t packed = 0;
    if (tra_string_to_version(upper(text).c_str(), &packed) == 0) {
        version = packed;
        return true;
    }
    if (parse_number(text, number) && number <= UINT32_MAX) {
        version = static_cast<uint32_t>(number);
        return true;
    }
    error = format("'%s' is not a version (write it like %s)", text.c_str(), example);
    return false;
}

std::string known_products() {
    std::string list;
    for (int i = 0; i < vok_get_product_count(); ++i) {
        const uint32_t code = vok_get_product_code(i);
        if (vok_is_reserved_product(code)) continue;
        if (!list.empty()) list += ", ";
        list += format("%s (%u)", product_name(code).c_str(), code);
    }
    return list;
}

std::string known_cards() {
    std::string list = "none (0)";
    for (int i = 0; i < vok_get_ext_product_count(); ++i) {
        const uint32_t code = vok_get_ext_product_code(i);
        const char *name = vok_get_ext_product_name(code);
        if (code == 0 || name == nullptr) continue;
        list += format(", %s (0x%X)", name, code);
    }
    return list;
}

std::string card_versions(uint32_t card) {
    std::string list;
    const uint32_t standard = vok_get_ext_product_default_version(card);
    for (int i = 0; i < vok_get_ext_product_version_count(card); ++i) {
        const uint32_t v = vok_get_ext_product_version(card, i);
        if (!list.empty()) list += ", ";
        list += version_text(v);
        if (v == standard) list += "*";
    }
    return list;
}

bool find_card(const std::string &text, uint32_t &card, std::string &error) {
    if (text.empty() || same_name(text, "none")) {
        card = 0;
        return true;
    }
    uint64_t number = 0;
    if (parse_number(text, number)) {
        if (number == 0 || (number <= UINT32_MAX && vok_get_ext_product_name(uint32_t(number)))) {
            card = static_cast<uint32_t>(number);
            return true;
        }
    } else {
        for (int i = 0; i < vok_get_ext_product_count(); ++i) {
            const uint32_t code = vok_get_ext_product_code(i);
            const char *name = vok_get_ext_product_name(code);
            if (name != nullptr && same_name(name, text)) {
                card = code;
                return true;
            }
        }
    }
    error = format("unknown extension card '%s'; the family has: %s", text.c_str(),
                   known_cards().c_str());
    return false;
}

bool find_card_version(uint32_t card, const std::string &text, uint32_t &version,
                       std::string &error) {
    if (card == 0) {
        version = 0;
        if (text.empty()) return true;
        error = "a card version needs a card (--ext)";
        return false;
    }
    const char *name = vok_get_ext_product_name(card);
    if (text.empty()) {
        version = vok_get_ext_product_default_version(card);
        return true;
    }
    if (!parse_version(text, "1.02A", version, error)) return false;
    for (int i = 0; i < vok_get_ext_product_version_count(card); ++i)
        if (vok_get_ext_product_version(card, i) == version) return true;
    error = format("%s has no version %s; its versions: %s", name ? name : "the card",
                   version_text(version).c_str(), card_versions(card).c_str());
    return false;
}

// One product, version, card and card version; `what` names the axes in messages.
bool resolve_one(const std::string &product_text, const std::string &version_text_in,
                 const std::string &ext_text, const std::string &ext_version_text,
                 uint32_t &product, uint32_t &version, uint32_t &ext, uint32_t &ext_version,
                 std::string &error) {
    if (!find_product(product_text, product, error)) return false;
    if (!find_version(product, version_text_in, version, error)) return false;
    if (!find_card(ext_text, ext, error)) return false;
    if (!find_card_version(ext, ext_version_text, ext_version, error)) return false;
    if (ext != 0 && !vok_ext_fits_product(ext, product)) {
        std::string fits;
        for (int i = 0; i < vok_get_product_count(); ++i) {
            const uint32_t code = vok_get_product_code(i);
            if (vok_is_reserved_product(code) || !vok_ext_fits_product(ext, code)) continue;
            if (!fits.empty()) fits += ", ";
            fits += product_name(code);
        }
        error = format("%s does not fit %s; it fits: %s", vok_get_ext_product_name(ext),
                       product_name(product).c_str(), fits.c_str());
        return false;
    }
    return true;
}

} // namespace

bool find_product(const std::string &text, uint32_t &product, std::string &error) {
    uint64_t number = 0;
    bool found = false;
    if (parse_number(text, number)) {
        found = number <= UINT32_MAX && vok_get_product_name(uint32_t(number)) != nullptr;
        product = static_cast<uint32_t>(number);
    } else {
        for (int i = 0; i < vok_get_product_count() && !found; ++i) {
            const uint32_t code = vok_get_product_code(i);
            const char *name = vok_get_product_name(code);
            if (name != nullptr && same_name(name, text)) {
                product = code;
                found = true;
            }
        }
    }
    if (found && vok_is_reserved_product(product)) {
        error = format("product %u is reserved and has no versions; the family has: %s", product,
                       known_products().c_str());
        return false;
    }
    if (!found)
        error = format("unknown product '%s'; the family has: %s", text.c_str(),
                       known_products().c_str());
    return found;
}

bool find_version(uint32_t product, const std::string &text, uint32_t &version,
                  std::string &error) {
    if (text.empty()) {
        version = vok_get_default_version(product);
        return true;
    }
    if (!parse_version(text, "3.12B", version, error)) return false;
    if (vok_is_known_version(product, version)) return true;
    error =
        format("%s has no version %s; its versions: %s (* default)", product_name(product).c_str(),
               version_text(version).c_str(), product_versions(product).c_str());
    return false;
}

void add_family_option(CLI::App &app, std::string &family) {
    app.add_option("--family", family,
                   "Load the drive family from this JSON description (default: the embedded "
                   "ORAX family)")
        ->group("Configuration");
}

void add_config_options(CLI::App &app, ConfigOptions &o, bool with_axis63) {
    add_family_option(app, o.family);
    app.add_option("-p,--product", o.product, "Drive product, by name or number")
        ->capture_default_str()
        ->group("Configuration");
    app.add_option("-V,--drive-version", o.version,
                   "Drive version such as 3.12B (default: the product's default)")
        ->group("Configuration");
    app.add_option("-e,--ext", o.ext, "Extension card, by name or number (default: none)")
        ->group("Configuration");
    app.add_option("--ext-version", o.ext_version,
                   "Extension card version (default: the card's default)")
        ->group("Configuration");
    if (!with_axis63) return;
    app.add_option("--axis63", o.product63, "Product of axis 63 (a motion controller)")
        ->group("Configuration");
    app.add_option("--axis63-version", o.version63, "Version of the axis-63 product")
        ->group("Configuration");
    app.add_option("--axis63-ext", o.ext63, "Extension card of the axis-63 product")
        ->group("Configuration");
    app.add_option("--axis63-ext-version", o.ext_version63, "Card version of the axis-63 product")
        ->group("Configuration");
}

bool load_family(const std::string &path, std::string &error) {
    if (vok_load_family_file(path.c_str()) == 0) return true;
    const char *why = vok_get_family_error();
    error = format("cannot load the family '%s': %s", path.c_str(),
                   why != nullptr && why[0] != '\0' ? why : "unreadable");
    return false;
}

bool resolve_config(const ConfigOptions &o, Configuration &c, std::string &error,
                    bool any_version) {
    if (!o.family.empty() && !load_family(o.family, error)) return false;
    if (any_version && find_product(o.product, c.product, error) && !o.version.empty()) {
        uint32_t version = 0;
        if (!parse_version(o.version, "3.12B", version, error)) return false;
        if (!vok_is_known_version(c.product, version)) {
            ConfigOptions known = o;
            known.version.clear();
            known.family.clear();
            if (!resolve_config(known, c, error)) return false;
            c.version = version;
            return true;
        }
    }
    if (!resolve_one(o.product, o.version, o.ext, o.ext_version, c.product, c.version, c.ext,
                     c.ext_version, error))
        return false;
    const bool any63 = !o.product63.empty() || !o.version63.empty() || !o.ext63.empty() ||
                       !o.ext_version63.empty();
    if (!any63) return true;
    if (o.product63.empty()) {
        error = "--axis63-version and --axis63-ext need --axis63";
        return false;
    }
    c.has63 = true;
    if (!resolve_one(o.product63, o.version63, o.ext63, o.ext_version63, c.product63, c.version63,
                     c.ext63, c.ext_version63, error)) {
        error = "axis 63: " + error;
        return false;
    }
    return true;
}

std::string trace_text() {
    std::vector<char> buffer(16384);
    sup_trace_format(buffer.data(), static_cast<int>(buffer.size()));
    std::string text;
    const char *p = buffer.data();
    while (*p != '\0') {
        const char *end = p;
        while (*end != '\0' && *end != '\n')
            ++end;
        text += "  ";
        text.append(p, end);
        text += '\n';
        p = *end == '\n' ? end + 1 : end;
    }
    return text;
}

bool read_token(const std::string &option, std::string *token, std::string *why) {
    if (option.empty() || option[0] != '@') {
        *token = option;
        return true;
    }
    std::ifstream file(option.substr(1), std::ios::binary);
    if (!file) {
        *why = "cannot read the token file '" + option.substr(1) + "'";
        return false;
    }
    std::getline(file, *token);
    if (!token->empty() && token->back() == '\r') token->pop_back();
    if (token->empty()) {
        *why = "the token file '" + option.substr(1) + "' holds no token on its first line";
        return false;
    }
    return true;
}

} // namespace ryn::cli
