// Reading of sim: addresses: the options after the colon, the default bus, the drives that axes=,
// product=, version= and ext= describe, and the JSON bus description of config=FILE.
#include "address.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string_view>

#include "ryn/oxb.h"
#include "ryn/sup.h"
#include "ryn/vok.h"
#include "sim_transport.hpp"

namespace ryn::oxb {

namespace {

constexpr uint32_t AXIS63_PRODUCT = 51; // ORX-M51, the controller of the default bus
constexpr uint32_t DRIVE_PRODUCT = 32;  // ORX-D32
constexpr uint64_t DEFAULT_AXES = 0x800000000000000Full; // 0..3 and 63
constexpr uint32_t DEFAULT_BOOT_REVISION = 1;

sim::Identity default_identity(int axis) {
    sim::Identity id;
    id.product = axis == 63 ? AXIS63_PRODUCT : DRIVE_PRODUCT;
    id.version = 0; // the product's default version
    id.ext_product = 0;
    id.ext_version = 0;
    id.serial = axis == 63 ? 50001 : 10001 + static_cast<uint32_t>(axis);
    id.boot_revision = DEFAULT_BOOT_REVISION;
    return id;
}

bool equal_nocase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::toupper(static_cast<unsigned char>(x)) ==
                      std::toupper(static_cast<unsigned char>(y));
           });
}

// A whole unsigned number, decimal or 0x hexadecimal, not above max.
bool parse_number(std::string_view s, uint64_t max, uint64_t *out) {
    int base = 10;
    if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
        base = 16;
        s.remove_prefix(2);
    }
    if (s.empty() || s.size() > 20) return false;
    uint64_t v = 0;
    for (char c : s) {
        int d;
        if (c >= '0' && c <= '9')
            d = c - '0';
        else if (base == 16 && c >= 'a' && c <= 'f')
            d = c - 'a' + 10;
        else if (base == 16 && c >= 'A' && c <= 'F')
            d = c - 'A' + 10;
        else
            return false;
        if (v > (max - static_cast<uint64_t>(d)) / static_cast<uint64_t>(base)) return false;
        v = v * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
    }
    *out = v;
    return true;
}

bool parse_probability(std::string_view s, double *out) {
    const std::string text(s);
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return false;
    char *end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size() || !(v >= 0.0 && v <= 1.0)) return false;
    *out = v;
    return true;
}

// "0-3,63": single axes and ranges, 0..63.
bool parse_axes(std::string_view s, uint64_t *mask) {
    uint64_t m = 0;
    while (!s.empty()) {
        const std::size_t comma = s.find(',');
        std::string_view item = s.substr(0, comma);
        s = comma == std::string_view::npos ? std::string_view() : s.substr(comma + 1);
        if (comma != std::string_view::npos && s.empty()) return false; // trailing ','
        const std::size_t dash = item.find('-');
        uint64_t first = 0;
        uint64_t last = 0;
        if (!parse_number(item.substr(0, dash), 63, &first)) return false;
        last = first;
        if (dash != std::string_view::npos &&
            (!parse_number(item.substr(dash + 1), 63, &last) || last < first))
            return false;
        for (uint64_t a = first; a <= last; ++a)
            m |= uint64_t{1} << a;
    }
    if (m == 0) return false;
    *mask = m;
    return true;
}

// A product or card by number or by name (any case), from the family's list of them.
bool find_code(std::string_view s, int (*count)(), uint32_t (*code_at)(int),
               const char *(*name_of)(uint32_t), uint32_t *out) {
    uint64_t n = 0;
    if (parse_number(s, UINT32_MAX, &n)) {
        *out = static_cast<uint32_t>(n);
        return name_of(*out) != nullptr;
    }
    const int total = count();
    for (int i = 0; i < total; ++i) {
        const uint32_t code = code_at(i);
        const char *name = name_of(code);
        if (name != nullptr && equal_nocase(name, s)) {
            *out = code;
            return true;
        }
    }
    return false;
}

bool parse_product(std::string_view s, uint32_t *out) {
    return find_code(s, vok_get_product_count, vok_get_product_code, vok_get_product_name, out);
}

// A card by name or number; 0 (or "none") for no card.
bool parse_card(std::string_view s, uint32_t *out) {
    uint64_t n = 1;
    if (equal_nocase(s, "none") || (parse_number(s, UINT32_MAX, &n) && n == 0)) {
        *out = 0;
        return true;
    }
    return find_code(s, vok_get_ext_product_count, vok_get_ext_product_code,
                     vok_get_ext_product_name, out);
}

bool parse_version(std::string_view s, uint32_t *out) {
    const std::string text(s);
    return !text.empty() && sup_string_to_version(text.c_str(), out) == 0 && *out != 0;
}

// ---- config=FILE ----

using nlohmann::json;

struct ConfigError {
    std::string text;
};

[[noreturn]] void config_fail(const std::string &where, const std::string &what) {
    throw ConfigError{where + ": " + what};
}

uint32_t config_u32(const json &v, const std::string &where, uint64_t max) {
    if (!v.is_number_integer() || v.get<int64_t>() < 0 ||
        static_cast<uint64_t>(v.get<int64_t>()) > max)
        config_fail(where, "must be a whole number from 0 to " + std::to_string(max));
    return static_cast<uint32_t>(v.get<int64_t>());
}

std::vector<DriveSpec> read_config(const std::string &path, const std::string &option) {
    std::ifstream file(path, std::ios::binary);
    if (!file) config_fail(option, "cannot read the file");
    std::stringstream text;
    text << file.rdbuf();
    json doc;
    try {
        doc = json::parse(text.str());
    } catch (const json::exception &e) {
        config_fail(option, std::string("not valid JSON: ") + e.what());
    }
    if (!doc.is_object()) config_fail(option, "the bus description must be a JSON object");
    for (const auto &[key, value] : doc.items())
        if (key != "drives") config_fail(option, "unknown key \"" + key + "\"");
    if (!doc.contains("drives") || !doc["drives"].is_array())
        config_fail(option, "\"drives\" must be a list of drives");

    std::vector<DriveSpec> drives;
    uint64_t seen = 0;
    const json &list = doc["drives"];
    for (std::size_t i = 0; i < list.size(); ++i) {
        const json &d = list[i];
        const std::string where = option + ": drives[" + std::to_string(i) + "]";
        if (!d.is_object()) config_fail(where, "must be an object");
        static const char *const keys[] = {"axis",         "product", "version",      "card",
                                           "card_version", "serial",  "boot_revision"};
        for (const auto &item : d.items()) {
            const std::string &key = item.key();
            if (std::find_if(std::begin(keys), std::end(keys),
                             [&](const char *k) { return key == k; }) == std::end(keys))
                config_fail(where, "unknown key \"" + key + "\"");
        }
        if (!d.contains("axis")) config_fail(where, "needs an \"axis\"");
        const int axis = static_cast<int>(config_u32(d["axis"], where + ".axis", 63));
        if ((seen >> axis & 1) != 0) config_fail(where, "axis " + std::to_string(axis) + " twice");
        seen |= uint64_t{1} << axis;

        DriveSpec entry{axis, default_identity(axis), where, OXB_ECONFIG};
        if (!d.contains("product")) config_fail(where, "needs a \"product\"");
        const json &p = d["product"];
        if (p.is_string() ? !parse_product(p.get<std::string>(), &entry.identity.product)
                          : (entry.identity.product = config_u32(p, where + ".product", UINT32_MAX),
                             vok_get_product_name(entry.identity.product) == nullptr))
            config_fail(where + ".product", "unknown drive product " + p.dump());
        if (d.contains("version") &&
            (!d["version"].is_string() ||
             !parse_version(d["version"].get<std::string>(), &entry.identity.version)))
            config_fail(where + ".version", "must be a version text such as \"3.12B\"");
        if (d.contains("card")) {
            const json &c = d["card"];
            if (c.is_string()
                    ? !parse_card(c.get<std::string>(), &entry.identity.ext_product)
                    : (entry.identity.ext_product = config_u32(c, where + ".card", UINT32_MAX),
                       entry.identity.ext_product != 0 &&
                           vok_get_ext_product_name(entry.identity.ext_product) == nullptr))
                config_fail(where + ".card", "unknown extension card " + c.dump());
        }
        if (d.contains("card_version") &&
            (!d["card_version"].is_string() ||
             !parse_version(d["card_version"].get<std::string>(), &entry.identity.ext_version)))
            config_fail(where + ".card_version", "must be a version text such as \"1.02A\"");
        if (d.contains("serial"))
            entry.identity.serial = config_u32(d["serial"], where + ".serial", UINT32_MAX);
        if (d.contains("boot_revision"))
            entry.identity.boot_revision =
                config_u32(d["boot_revision"], where + ".boot_revision", UINT32_MAX);
        drives.push_back(entry);
    }
    return drives;
}

const char *const OPTION_NAMES[] = {"axes",   "product", "version",      "ext",
                                    "config", "name",    "answer_ms",    "latency_us",
                                    "drop",   "nack",    "detach_after", "seed"};

} // namespace

std::vector<DriveSpec> default_bus() {
    auto drive = [](int axis, uint32_t product, uint32_t version, uint32_t card,
                    uint32_t card_version) {
        DriveSpec s{axis, default_identity(axis), "sim: default bus, axis " + std::to_string(axis),
                    OXB_EDRIVE};
        s.identity.product = product;
        s.identity.version = version;
        s.identity.ext_product = card;
        s.identity.ext_version = card_version;
        return s;
    };
    return {drive(0, 32, 0x03128100, 0, 0), drive(1, 32, 0x03128100, 0x21, 0x01028000),
            drive(2, 34, 0x03128100, 0, 0), drive(3, 32, 0x03208000, 0x22, 0x02008000),
            drive(63, 51, 0x02018000, 0, 0)};
}

bool is_tcp_address(const char *address) {
    return std::string_view(address).starts_with("tcp://");
}

namespace {

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Undoes %XX escapes; false on a broken one.
bool percent_decode(std::string_view s, std::string *out) {
    out->clear();
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '%') {
            out->push_back(s[i]);
            continue;
        }
        const int hi = i + 1 < s.size() ? hex_digit(s[i + 1]) : -1;
        const int lo = i + 2 < s.size() ? hex_digit(s[i + 2]) : -1;
        if (hi < 0 || lo < 0) return false;
        out->push_back(static_cast<char>(hi << 4 | lo));
        i += 2;
    }
    return true;
}

} // namespace

int parse_tcp_address(const char *address, TcpAddress *out, std::string *message) {
    const std::string text(address);
    std::string_view rest = std::string_view(text).substr(6); // after tcp://
    const std::size_t query = rest.find('?');
    std::string_view authority = rest.substr(0, query);
    const std::string_view options =
        query == std::string_view::npos ? std::string_view() : rest.substr(query + 1);
    auto bad_address = [&](const std::string &why) {
        *message = "'" + text + "': " + why;
        return OXB_EADDRESS;
    };
    TcpAddress a;
    std::string_view port_text;
    if (authority.starts_with("[")) {
        const std::size_t close = authority.find(']');
        if (close == std::string_view::npos || authority.substr(close + 1).substr(0, 1) != ":")
            return bad_address("an IPv6 host is written [ADDRESS]:PORT");
        a.host = std::string(authority.substr(1, close - 1));
        port_text = authority.substr(close + 2);
    } else {
        const std::size_t colon = authority.rfind(':');
        if (colon == std::string_view::npos)
            return bad_address("a tcp:// address is tcp://HOST:PORT");
        a.host = std::string(authority.substr(0, colon));
        port_text = authority.substr(colon + 1);
    }
    uint64_t port = 0;
    if (a.host.empty()) return bad_address("the host is missing (tcp://HOST:PORT)");
    if (!parse_number(port_text, 65535, &port) || port == 0)
        return bad_address("the port must be a number from 1 to 65535");
    a.port = static_cast<uint16_t>(port);

    bool has_token = false;
    bool has_timeout = false;
    std::string_view list = options;
    while (!list.empty()) {
        const std::size_t amp = list.find('&');
        const std::string_view item = list.substr(0, amp);
        list = amp == std::string_view::npos ? std::string_view() : list.substr(amp + 1);
        if (item.empty()) continue;
        const std::size_t eq = item.find('=');
        const std::string key(item.substr(0, eq));
        const std::string_view value =
            eq == std::string_view::npos ? std::string_view() : item.substr(eq + 1);
        auto bad = [&](const std::string &why) {
            *message = "tcp: option '" + std::string(item) + "': " + why;
            return OXB_EOPTION;
        };
        if (key == "token") {
            if (has_token) return bad("given twice");
            has_token = true;
            if (!percent_decode(value, &a.token)) return bad("a broken %XX escape");
            if (a.token.size() > wire::NET_MAX_TOKEN)
                return bad("a token has at most " + std::to_string(wire::NET_MAX_TOKEN) + " bytes");
        } else if (key == "timeout_ms") {
            uint64_t n = 0;
            if (has_timeout) return bad("given twice");
            has_timeout = true;
            if (!parse_number(value, 3600000, &n) || n == 0)
                return bad("must be a whole number of milliseconds, 1 to 3600000");
            a.timeout_ms = static_cast<int>(n);
        } else {
            *message = "tcp: unknown option '" + std::string(item) + "' (token=, timeout_ms=)";
            return OXB_EOPTION;
        }
    }
    if (!has_token) {
        const char *env = std::getenv("RYN_TOKEN");
        if (env != nullptr) a.token = env;
        if (a.token.size() > wire::NET_MAX_TOKEN) {
            *message =
                "tcp: RYN_TOKEN has more than " + std::to_string(wire::NET_MAX_TOKEN) + " bytes";
            return OXB_EOPTION;
        }
    }
    *out = std::move(a);
    return 0;
}

int parse_address(const char *address, SimAddress *out, std::string *message) {
    const std::string_view text(address);
    if (!text.starts_with("sim:")) {
        *message = "'" + std::string(text) + "': a bus address begins with sim: or tcp://";
        return OXB_EADDRESS;
    }

    std::map<std::string, std::string> options; // by name, each once
    std::vector<std::string> key_parts;
    std::string_view rest = text.substr(4);
    while (!rest.empty()) {
        const std::size_t semi = rest.find(';');
        const std::string_view item = rest.substr(0, semi);
        rest = semi == std::string_view::npos ? std::string_view() : rest.substr(semi + 1);
        if (item.empty()) continue;
        const std::size_t eq = item.find('=');
        const std::string key(item.substr(0, eq));
        if (std::find(std::begin(OPTION_NAMES), std::end(OPTION_NAMES), key) ==
            std::end(OPTION_NAMES)) {
            *message = "sim: unknown option '" + std::string(item) + "'";
            return OXB_EOPTION;
        }
        if (eq == std::string_view::npos) {
            *message = "sim: option '" + key + "' needs a value (" + key + "=...)";
            return OXB_EOPTION;
        }
        if (options.count(key) != 0) {
            *message = "sim: option '" + key + "' given twice";
            return OXB_EOPTION;
        }
        options[key] = std::string(item.substr(eq + 1));
        if (key != "name") key_parts.emplace_back(item);
    }

    auto bad = [&](const std::string &key, const std::string &why) {
        *message = "sim: option '" + key + "=" + options[key] + "': " + why;
        return OXB_EOPTION;
    };
    auto has = [&](const char *key) { return options.count(key) != 0; };

    SimAddress a;
    a.faults = default_faults();
    std::sort(key_parts.begin(), key_parts.end());
    for (const std::string &p : key_parts)
        a.options += (a.options.empty() ? "" : ";") + p;

    if (has("name")) {
        a.name = options["name"];
        if (a.name.empty()) return bad("name", "a bus name cannot be empty");
    }
    uint64_t n = 0;
    if (has("answer_ms")) {
        if (!parse_number(options["answer_ms"], 3600000, &n))
            return bad("answer_ms", "must be a whole number of milliseconds, 0 to 3600000");
        a.faults.answer_ms = static_cast<uint32_t>(n);
    }
    if (has("latency_us")) {
        if (!parse_number(options["latency_us"], 10000000, &n))
            return bad("latency_us", "must be a whole number of microseconds, 0 to 10000000");
        a.faults.latency_us = static_cast<uint32_t>(n);
    }
    if (has("drop") && !parse_probability(options["drop"], &a.faults.drop))
        return bad("drop", "must be a probability from 0 to 1");
    if (has("nack") && !parse_probability(options["nack"], &a.faults.nack))
        return bad("nack", "must be a probability from 0 to 1");
    if (has("detach_after")) {
        if (!parse_number(options["detach_after"], UINT32_MAX, &n))
            return bad("detach_after", "must be a whole number of records (0: never)");
        a.faults.detach_after = static_cast<uint32_t>(n);
    }
    if (has("seed") && !parse_number(options["seed"], UINT64_MAX, &a.faults.seed))
        return bad("seed", "must be a whole number");

    const bool shaped = has("axes") || has("product") || has("version") || has("ext");
    if (has("config")) {
        for (const char *k : {"axes", "product", "version", "ext"})
            if (has(k)) return bad(k, "cannot be combined with config=");
        try {
            a.drives =
                read_config(options["config"], "sim: option 'config=" + options["config"] + "'");
        } catch (const ConfigError &e) {
            *message = e.text;
            return OXB_ECONFIG;
        }
    } else if (!shaped) {
        a.drives = default_bus();
    } else {
        uint64_t axes = DEFAULT_AXES;
        if (has("axes") && !parse_axes(options["axes"], &axes))
            return bad("axes", "must list axes 0 to 63, such as 0-3,63");
        uint32_t product = 0;
        if (has("product") && !parse_product(options["product"], &product))
            return bad("product", "unknown drive product");
        uint32_t version = 0;
        if (has("version") && !parse_version(options["version"], &version))
            return bad("version", "must be a version such as 3.12B");
        uint32_t card = 0;
        if (has("ext") && !parse_card(options["ext"], &card))
            return bad("ext", "unknown extension card");

        // product= (and with it version=) sets the axes of its class: a controller product
        // axis 63, a drive product the others; ext= sets the drives, axis 63 has no card.
        const uint64_t drive_axes = axes & ~(uint64_t{1} << 63);
        const uint64_t product_axes =
            has("product") ? (vok_is_axis63_product(product) ? axes & ~drive_axes : drive_axes)
                           : drive_axes;
        for (const char *k : {"product", "version"})
            if (has(k) && product_axes == 0) return bad(k, "the axes hold no drive of this kind");
        if (has("ext") && drive_axes == 0) return bad("ext", "the axes hold no drive for a card");

        for (int axis = 0; axis < 64; ++axis) {
            if ((axes >> axis & 1) == 0) continue;
            DriveSpec entry{axis, default_identity(axis), "", OXB_EOPTION};
            auto mark = [&](const char *k) {
                if (!entry.origin.empty()) entry.origin += ';';
                entry.origin.append(k).append("=").append(options[k]);
            };
            if ((product_axes >> axis & 1) != 0) {
                if (has("product")) entry.identity.product = product, mark("product");
                if (has("version")) entry.identity.version = version, mark("version");
            }
            if (has("ext") && (drive_axes >> axis & 1) != 0)
                entry.identity.ext_product = card, mark("ext");
            if (entry.origin.empty())
                entry.origin = has("axes") ? "axes=" + options["axes"] : std::string("sim:");
            entry.origin = "sim: option '" + entry.origin + "'";
            a.drives.push_back(entry);
        }
    }
    *out = std::move(a);
    return 0;
}

} // namespace ryn::oxb
