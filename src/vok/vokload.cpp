// The family loader: reads a JSON family description into a Family, refusing any fault whole.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <set>
#include <unordered_map>

#include <nlohmann/json.hpp>

#include "ryn/sup.h"
#include "ryn/vok.h"
#include "vokmodel.hpp"

namespace ryn::vok {

using json = nlohmann::json;

Value Value::of_double(double v) {
    Value out;
    out.d = v;
    if (std::isfinite(v) && v >= -9.2e18 && v <= 9.2e18)
        out.i = static_cast<int64_t>(v);
    else
        out.i = v < 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    return out;
}

const char *Family::intern(const std::string &text) {
    return texts.insert(text).first->c_str();
}

const ProductVersion *Product::find(uint32_t version) const {
    auto it = std::lower_bound(versions.begin(), versions.end(), version,
                               [](const ProductVersion &v, uint32_t x) { return v.version < x; });
    return it != versions.end() && it->version == version ? &*it : nullptr;
}

const CardVersion *Card::find(uint32_t version) const {
    auto it = std::lower_bound(versions.begin(), versions.end(), version,
                               [](const CardVersion &v, uint32_t x) { return v.version < x; });
    return it != versions.end() && it->version == version ? &*it : nullptr;
}

namespace {

// A refused description: where (a path into the document) and what is wrong.
struct Fault {
    std::string place;
    std::string what;
};

[[noreturn]] void fail(const std::string &place, const std::string &what) {
    throw Fault{place, what};
}

std::string at(const std::string &place, const std::string &key) {
    return place.empty() ? key : place + "." + key;
}
std::string at(const std::string &place, size_t i) {
    return place + "[" + std::to_string(i) + "]";
}

const char *kClassNames[4] = {"int32", "float", "int64", "double"};

class Loader {
  public:
    explicit Loader(Family &family) : f_(family) {}

    void load(const json &doc) {
        if (!doc.is_object()) fail("(top)", "the description must be a JSON object");
        check_keys(doc, "",
                   {"family", "description", "types", "enums", "register_sets", "command_sets",
                    "products", "cards"});
        f_.name = text_of(doc, "family", "");
        f_.description = text_of(doc, "description", "");
        if (doc.contains("types")) load_types(array_of(doc, "types", ""), "types");
        if (doc.contains("enums")) load_enums(array_of(doc, "enums", ""), "enums");
        if (doc.contains("register_sets")) {
            const json &sets = object_of(doc, "register_sets", "");
            for (auto it = sets.begin(); it != sets.end(); ++it)
                load_register_set(it.key(), it.value(), at("register_sets", it.key()));
        }
        if (doc.contains("command_sets")) {
            const json &sets = object_of(doc, "command_sets", "");
            for (auto it = sets.begin(); it != sets.end(); ++it)
                load_command_set(it.key(), it.value(), at("command_sets", it.key()));
        }
        if (doc.contains("products")) load_products(array_of(doc, "products", ""), "products");
        if (doc.contains("cards")) load_cards(array_of(doc, "cards", ""), "cards");
        resolve_enum_users();
    }

  private:
    Family &f_;
    // A bound on the size of a family, so that a short description cannot ask for gigabytes.
    static constexpr size_t kMaxElements = 4u << 20;
    static constexpr size_t kMaxLayerEntries = 16u << 20;
    static constexpr int kMaxBaseDepth = 256;
    size_t element_total_ = 0;
    size_t layer_total_ = 0;

    // Versions copy their bases; the copies are bounded as the elements are.
    void count_layer(const Layer &layer, const std::string &place) {
        layer_total_ += layer.registers.size() + layer.commands.size();
        if (layer_total_ > kMaxLayerEntries)
            fail(place, "the versions of the family hold more than " +
                            std::to_string(kMaxLayerEntries) + " registers and commands");
    }
    std::map<std::string, uint32_t> type_by_name_; // name -> kind word
    std::map<std::string, int32_t> enum_by_name_;
    // Register source objects, so that a later version can change some fields of a register.
    std::unordered_map<const Register *, const json *> reg_source_;
    std::deque<json> merged_; // sources of changed registers
    std::map<std::string, std::vector<const Register *>> reg_sets_;
    std::map<std::string, std::vector<const Command *>> cmd_sets_;
    // Products: raw version descriptions and the resolution state of each version.
    struct PendingVersion {
        const json *desc;
        std::string place;
        int state = 0; // 0 not resolved, 1 resolving, 2 done
        Layer layer;
    };
    std::map<uint32_t, std::map<uint32_t, PendingVersion>> pending_;
    std::map<std::string, uint32_t> product_by_name_;
    // Entry limits named by enumerations, resolved once every register and command is known.
    struct EnumUser {
        int32_t enumeration;
        size_t entry;
        std::string text;
        std::string place;
        bool is_param;
    };
    std::vector<EnumUser> enum_users_;

    // ---- JSON helpers ----

    static void check_keys(const json &obj, const std::string &place,
                           std::initializer_list<const char *> allowed) {
        for (auto it = obj.begin(); it != obj.end(); ++it) {
            bool ok = false;
            for (const char *a : allowed)
                ok = ok || it.key() == a;
            if (!ok) fail(at(place, it.key()), "unknown key \"" + it.key() + "\"");
        }
    }
    static const json &array_of(const json &obj, const char *key, const std::string &place) {
        const json &v = obj.at(key);
        if (!v.is_array()) fail(at(place, key), "must be an array");
        return v;
    }
    static const json &object_of(const json &obj, const char *key, const std::string &place) {
        const json &v = obj.at(key);
        if (!v.is_object()) fail(at(place, key), "must be an object");
        return v;
    }
    static std::string text_of(const json &obj, const char *key, const std::string &place,
                               bool required = false) {
        if (!obj.contains(key)) {
            if (required) fail(place, std::string("missing \"") + key + "\"");
            return {};
        }
        const json &v = obj.at(key);
        if (!v.is_string()) fail(at(place, key), "must be a text");
        return v.get<std::string>();
    }
    static bool flag_of(const json &obj, const char *key, const std::string &place) {
        if (!obj.contains(key)) return false;
        const json &v = obj.at(key);
        if (!v.is_boolean()) fail(at(place, key), "must be true or false");
        return v.get<bool>();
    }
    static int64_t int_of(const json &v, const std::string &place, int64_t lo, int64_t hi) {
        int64_t out = 0;
        if (v.is_number_integer()) {
            if (v.is_number_unsigned() && v.get<uint64_t>() > uint64_t(INT64_MAX))
                fail(place, "number out of range");
            out = v.get<int64_t>();
        } else if (v.is_string()) {
            const std::string s = v.get<std::string>();
            char *end = nullptr;
            errno = 0;
            if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
                if (s.size() > 18 ||
                    s.find_first_not_of("0123456789abcdefABCDEF", 2) != std::string::npos)
                    fail(place, "bad number \"" + s + "\"");
                unsigned long long u = std::strtoull(s.c_str() + 2, &end, 16);
                if (errno != 0 || *end != 0) fail(place, "bad number \"" + s + "\"");
                out = static_cast<int64_t>(u);
            } else {
                fail(place, "bad number \"" + s + "\"");
            }
        } else if (v.is_number_float()) {
            double d = v.get<double>();
            if (!(d >= -9.2e18 && d <= 9.2e18) || std::floor(d) != d)
                fail(place, "must be a whole number");
            out = static_cast<int64_t>(d);
        } else {
            fail(place, "must be a number");
        }
        if (out < lo || out > hi)
            fail(place, "number " + std::to_string(out) + " out of range " + std::to_string(lo) +
                            ".." + std::to_string(hi));
        return out;
    }
    static uint32_t u32_of(const json &obj, const char *key, const std::string &place,
                           uint32_t lo = 0, uint32_t hi = 0xFFFFFFFFu) {
        if (!obj.contains(key)) fail(place, std::string("missing \"") + key + "\"");
        return static_cast<uint32_t>(int_of(obj.at(key), at(place, key), lo, hi));
    }
    // A number of a value class: int32/int64 keep integers, float/double take any number.
    static Value value_of(const json &v, uint32_t cls, const std::string &place) {
        switch (cls) {
        case kInt32:
            return Value::of_int(int_of(v, place, INT32_MIN, int64_t(UINT32_MAX)));
        case kInt64:
            return Value::of_int(int_of(v, place, INT64_MIN, INT64_MAX));
        default:
            if (v.is_number()) {
                double d = v.get<double>();
                if (cls == kFloat && std::fabs(d) > 3.4028234663852886e38)
                    fail(place, "number out of the float range");
                return Value::of_double(d);
            }
            if (v.is_string())
                return Value::of_double(
                    static_cast<double>(int_of(v, place, INT64_MIN, INT64_MAX)));
            fail(place, "must be a number");
        }
    }
    static uint32_t version_of(const json &v, const std::string &place) {
        if (!v.is_string()) fail(place, "a version must be a text such as \"3.12B\"");
        uint32_t out = 0;
        if (sup_string_to_version(v.get<std::string>().c_str(), &out) != 0)
            fail(place, "bad version \"" + v.get<std::string>() + "\"");
        return out;
    }
    static std::string version_text(uint32_t v) {
        char buf[32];
        sup_version_to_string(buf, sizeof buf, v);
        return buf;
    }
    // "3..10" or a number: an inclusive range.
    static std::pair<int64_t, int64_t> range_of(const json &v, const std::string &place, int64_t lo,
                                                int64_t hi) {
        if (v.is_string()) {
            const std::string s = v.get<std::string>();
            auto dots = s.find("..");
            if (dots != std::string::npos) {
                auto a = int_of(parse_int_text(s.substr(0, dots), place), place, lo, hi);
                auto b = int_of(parse_int_text(s.substr(dots + 2), place), place, lo, hi);
                if (b < a) fail(place, "empty range \"" + s + "\"");
                return {a, b};
            }
            auto a = int_of(parse_int_text(s, place), place, lo, hi);
            return {a, a};
        }
        auto a = int_of(v, place, lo, hi);
        return {a, a};
    }
    static json parse_int_text(const std::string &s, const std::string &place) {
        if (s.empty() || s.size() > 18) fail(place, "bad number \"" + s + "\"");
        if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) return json(s);
        int64_t v = 0;
        size_t i = s[0] == '-' ? 1 : 0;
        if (i == s.size()) fail(place, "bad number \"" + s + "\"");
        for (; i < s.size(); ++i) {
            if (s[i] < '0' || s[i] > '9') fail(place, "bad number \"" + s + "\"");
            v = v * 10 + (s[i] - '0');
        }
        return json(s[0] == '-' ? -v : v);
    }

    // ---- Types ----

    static bool valid_type_name(const std::string &n) {
        if (n.empty() || n.size() > 8) return false;
        for (char c : n)
            if (c < 'A' || c > 'Z') return false;
        if (n.back() == 'Y') return false;
        if (n.rfind("SD", 0) == 0) return false;
        return true;
    }

    void load_types(const json &arr, const std::string &place) {
        std::set<uint32_t> seen;
        for (size_t i = 0; i < arr.size(); ++i) {
            const json &t = arr[i];
            const std::string p = at(place, i);
            if (!t.is_object()) fail(p, "must be an object");
            check_keys(t, p,
                       {"code", "names", "description", "descriptions", "hidden", "whole_writable",
                        "always", "readonly", "addresses"});
            uint32_t code = u32_of(t, "code", p, 0, 31);
            if (!seen.insert(code).second)
                fail(at(p, "code"), "type code " + std::to_string(code) + " declared twice");
            std::string desc = text_of(t, "description", p);
            for (uint32_t c = 0; c < 4; ++c) {
                TypeInfo &info = f_.types[code | (c << 5)];
                info.hidden = flag_of(t, "hidden", p);
                info.whole_writable = flag_of(t, "whole_writable", p);
                info.always = flag_of(t, "always", p);
                info.readonly = flag_of(t, "readonly", p);
                if (flag_of(t, "addresses", p)) {
                    Register r;
                    r.kind = code | (c << 5);
                    r.format = is_float_class(r.kind) ? VOK_FORMAT_FLOAT : VOK_FORMAT_DECIMAL;
                    r.elements.resize(1);
                    f_.registers.push_back(std::move(r));
                    info.address_register = &f_.registers.back();
                }
                if (!desc.empty()) info.description = f_.intern(desc);
            }
            if (t.contains("descriptions")) {
                const json &d = t.at("descriptions");
                if (!d.is_array() || d.size() != 4)
                    fail(at(p, "descriptions"), "must be an array of four texts or nulls");
                for (uint32_t c = 0; c < 4; ++c) {
                    if (d[c].is_null()) continue;
                    if (!d[c].is_string()) fail(at(at(p, "descriptions"), c), "must be a text");
                    f_.types[code | (c << 5)].description = f_.intern(d[c].get<std::string>());
                }
            }
            if (t.contains("names")) {
                const json &n = t.at("names");
                const std::string pn = at(p, "names");
                if (!n.is_array() || n.empty() || n.size() > 4)
                    fail(pn, "must be an array of one to four names (int32, float, int64, double)");
                for (uint32_t c = 0; c < n.size(); ++c) {
                    if (n[c].is_null()) continue;
                    if (!n[c].is_string()) fail(at(pn, c), "must be a text or null");
                    std::string name = n[c].get<std::string>();
                    if (!valid_type_name(name))
                        fail(at(pn, c), "bad type name \"" + name +
                                            "\" (capital letters only, not ending in Y, not "
                                            "starting with SD)");
                    if (!type_by_name_.emplace(name, code | (c << 5)).second)
                        fail(at(pn, c), "type name \"" + name + "\" used twice");
                    f_.types[code | (c << 5)].name = f_.intern(name);
                }
            }
        }
    }

    // Whether a name would be read as a register of the family: a type name alone, followed by
    // "Y" (the whole type) or by digits (an index).
    bool looks_like_register(const std::string &name) const {
        std::string upper = name;
        for (char &c : upper)
            if (c >= 'a' && c <= 'z') c = char(c - 'a' + 'A');
        for (size_t n = 1; n <= upper.size(); ++n) {
            if (!type_by_name_.count(upper.substr(0, n))) continue;
            const std::string rest = upper.substr(n);
            if (rest.empty() || rest == "Y") return true;
            if (rest.find_first_not_of("0123456789") == std::string::npos) return true;
        }
        return false;
    }

    // An alias is a word (a letter or "_" first, then letters, digits and "_") that cannot be read
    // as a register.
    void check_alias(const std::string &alias, const std::string &place) const {
        bool ok = !alias.empty() && !(alias[0] >= '0' && alias[0] <= '9') && alias.size() <= 63;
        for (char c : alias)
            ok = ok && ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                        (c >= '0' && c <= '9') || c == '_');
        if (!ok) fail(place, "bad alias \"" + alias + "\"");
        if (looks_like_register(alias)) fail(place, "alias \"" + alias + "\" reads as a register");
    }

    // "K12", "KF1", "X0..1023", "X0..X1023": kind word and index range.
    struct RegRef {
        uint32_t kind;
        uint32_t first, last;
    };
    RegRef reg_ref(const json &v, const std::string &place) const {
        if (!v.is_string()) fail(place, "a register must be named as a text such as \"K12\"");
        const std::string s = v.get<std::string>();
        size_t n = 0;
        uint32_t kind = 0;
        std::string tname;
        if (!s.empty() && s[0] == '#') {
            // "#5:0..3": registers of a kind word given by number (for types without a name).
            auto colon = s.find(':');
            if (colon == std::string::npos) fail(place, "bad register \"" + s + "\"");
            kind = static_cast<uint32_t>(
                int_of(parse_int_text(s.substr(1, colon - 1), place), place, 0, kTypeCount - 1));
            n = colon + 1;
        } else {
            while (n < s.size() && s[n] >= 'A' && s[n] <= 'Z')
                ++n;
            tname = s.substr(0, n);
            auto t = type_by_name_.find(tname);
            if (tname.empty() || t == type_by_name_.end())
                fail(place, "unknown type name \"" + tname + "\" in register \"" + s + "\"");
            kind = t->second;
        }
        std::string rest = s.substr(n);
        std::string hi;
        auto dots = rest.find("..");
        if (dots != std::string::npos) {
            hi = rest.substr(dots + 2);
            rest = rest.substr(0, dots);
            if (!tname.empty() && hi.rfind(tname, 0) == 0) hi = hi.substr(tname.size());
        }
        auto number = [&](const std::string &d) -> uint32_t {
            if (d.empty() || d.size() > 5) fail(place, "bad register \"" + s + "\"");
            uint32_t x = 0;
            for (char c : d) {
                if (c < '0' || c > '9') fail(place, "bad register \"" + s + "\"");
                x = x * 10 + uint32_t(c - '0');
            }
            if (x > 65533) fail(place, "register index of \"" + s + "\" above 65533");
            return x;
        };
        RegRef r{kind, number(rest), 0};
        r.last = dots == std::string::npos ? r.first : number(hi);
        if (r.last < r.first) fail(place, "empty register range \"" + s + "\"");
        return r;
    }
    std::string reg_text(uint32_t kind, uint32_t index) const {
        const char *n = f_.types[kind].name;
        if (n == nullptr) return "#" + std::to_string(kind) + ":" + std::to_string(index);
        return n + std::to_string(index);
    }

    // ---- Enumerations ----

    void load_enums(const json &arr, const std::string &place) {
        for (size_t i = 0; i < arr.size(); ++i) {
            const json &e = arr[i];
            const std::string p = at(place, i);
            if (!e.is_object()) fail(p, "must be an object");
            check_keys(e, p, {"id", "name", "entries"});
            Enumeration en;
            en.id = static_cast<int32_t>(
                int_of(e.contains("id") ? e.at("id") : json(), at(p, "id"), 1, INT32_MAX));
            std::string name = text_of(e, "name", p, true);
            if (name.empty()) fail(at(p, "name"), "empty enumeration name");
            en.name = f_.intern(name);
            if (f_.enums.count(en.id))
                fail(at(p, "id"), "enumeration id " + std::to_string(en.id) + " used twice");
            if (!enum_by_name_.emplace(name, en.id).second)
                fail(at(p, "name"), "enumeration \"" + name + "\" declared twice");
            const json &entries = array_of(e, "entries", p);
            std::map<std::string, size_t> by_name;
            std::vector<std::string> parents;
            for (size_t k = 0; k < entries.size(); ++k) {
                const json &x = entries[k];
                const std::string px = at(at(p, "entries"), k);
                if (!x.is_object()) fail(px, "must be an object");
                check_keys(
                    x, px,
                    {"name", "value", "mask", "parent", "description", "registers", "params"});
                EnumEntry entry;
                std::string en_name = text_of(x, "name", px, true);
                if (en_name.empty()) fail(at(px, "name"), "empty entry name");
                if (!by_name.emplace(en_name, k).second)
                    fail(at(px, "name"), "entry \"" + en_name + "\" declared twice");
                entry.name = f_.intern(en_name);
                std::string d = text_of(x, "description", px);
                if (!d.empty()) entry.description = f_.intern(d);
                entry.mask = flag_of(x, "mask", px);
                if (!x.contains("value")) fail(px, "missing \"value\"");
                const json &v = x.at("value");
                if (v.is_number_float())
                    entry.value = Value::of_double(v.get<double>());
                else
                    entry.value = Value::of_int(int_of(v, at(px, "value"), INT64_MIN, INT64_MAX));
                parents.push_back(text_of(x, "parent", px));
                for (const char *key : {"registers", "params"}) {
                    if (!x.contains(key)) continue;
                    const json &list = x.at(key);
                    if (!list.is_array()) fail(at(px, key), "must be an array");
                    for (size_t u = 0; u < list.size(); ++u) {
                        if (!list[u].is_string()) fail(at(at(px, key), u), "must be a text");
                        enum_users_.push_back({en.id, k, list[u].get<std::string>(),
                                               at(at(px, key), u),
                                               std::strcmp(key, "params") == 0});
                    }
                }
                en.entries.push_back(std::move(entry));
            }
            for (size_t k = 0; k < entries.size(); ++k) {
                if (parents[k].empty()) continue;
                auto it = by_name.find(parents[k]);
                const std::string px = at(at(at(p, "entries"), k), "parent");
                if (it == by_name.end()) fail(px, "unknown parent entry \"" + parents[k] + "\"");
                en.entries[k].parent = static_cast<int32_t>(it->second);
            }
            // A parent chain must end at the top: walk each chain once, marking what is settled.
            std::vector<uint8_t> state(en.entries.size(), 0); // 0 new, 1 on the path, 2 settled
            for (size_t k = 0; k < en.entries.size(); ++k) {
                std::vector<size_t> path;
                int32_t cur = static_cast<int32_t>(k);
                while (cur >= 0 && state[size_t(cur)] == 0) {
                    state[size_t(cur)] = 1;
                    path.push_back(size_t(cur));
                    cur = en.entries[size_t(cur)].parent;
                }
                if (cur >= 0 && state[size_t(cur)] == 1)
                    fail(at(at(p, "entries"), k), "enumeration cycle through entry \"" +
                                                      std::string(en.entries[size_t(cur)].name) +
                                                      "\"");
                for (size_t x : path)
                    state[x] = 2;
            }
            f_.enums.emplace(en.id, std::move(en));
        }
    }

    int32_t enum_ref(const json &v, const std::string &place) const {
        if (v.is_string()) {
            auto it = enum_by_name_.find(v.get<std::string>());
            if (it == enum_by_name_.end())
                fail(place, "unknown enumeration \"" + v.get<std::string>() + "\"");
            return it->second;
        }
        int64_t id = int_of(v, place, 0, INT32_MAX);
        if (id != 0 && !f_.enums.count(static_cast<int32_t>(id)))
            fail(place, "unknown enumeration " + std::to_string(id));
        return static_cast<int32_t>(id);
    }

    void resolve_enum_users() {
        for (const EnumUser &u : enum_users_) {
            EnumEntry &entry = f_.enums.at(u.enumeration).entries[u.entry];
            if (u.is_param) {
                auto colon = u.text.find(':');
                if (colon == std::string::npos)
                    fail(u.place,
                         "a parameter is named \"command:position\", not \"" + u.text + "\"");
                uint32_t cmd =
                    static_cast<uint32_t>(int_of(parse_int_text(u.text.substr(0, colon), u.place),
                                                 u.place, 0, kCommandCount - 1));
                uint32_t pos = static_cast<uint32_t>(
                    int_of(parse_int_text(u.text.substr(colon + 1), u.place), u.place, 0, 255));
                entry.params.push_back(cmd << 8 | pos);
            } else {
                RegRef r = reg_ref(json(u.text), u.place);
                for (uint32_t i = r.first; i <= r.last; ++i)
                    entry.registers.push_back(reg_key(r.kind, i));
            }
        }
        for (auto &[id, en] : f_.enums)
            for (auto &e : en.entries) {
                std::sort(e.registers.begin(), e.registers.end());
                std::sort(e.params.begin(), e.params.end());
            }
    }

    // ---- Registers ----

    static int format_of(const json &v, const std::string &place) {
        if (v.is_string()) {
            const std::string s = v.get<std::string>();
            if (s == "hex") return VOK_FORMAT_HEX;
            if (s == "decimal") return VOK_FORMAT_DECIMAL;
            if (s == "string") return VOK_FORMAT_STRING;
            if (s == "float") return VOK_FORMAT_FLOAT;
            if (s == "ip") return VOK_FORMAT_IP;
            fail(place, "unknown format \"" + s + "\" (hex, decimal, string, float, ip)");
        }
        return static_cast<int>(int_of(v, place, 0, 255));
    }

    static std::string substitute(std::string text, uint32_t index, uint32_t first) {
        // {i}: the index; {n}: the place in the range from 1; {k}: the place from 0.
        for (auto [key, value] : {std::pair<const char *, uint32_t>{"{i}", index},
                                  std::pair<const char *, uint32_t>{"{n}", index - first + 1},
                                  std::pair<const char *, uint32_t>{"{k}", index - first}}) {
            size_t pos;
            while ((pos = text.find(key)) != std::string::npos)
                text.replace(pos, 3, std::to_string(value));
        }
        return text;
    }

    // Fills element values (min, max, default) from one object; defaults may be per element.
    void element_values(const json &src, const std::string &place, const Register &r,
                        std::vector<Element> &els, size_t from, size_t to) {
        const uint32_t cls = value_class(r.kind);
        for (const char *key : {"min", "max"}) {
            if (!src.contains(key)) continue;
            Value v = value_of(src.at(key), cls, at(place, key));
            for (size_t e = from; e < to; ++e)
                (key[1] == 'i' ? els[e].min : els[e].max) = v;
        }
        if (src.contains("default")) {
            const json &d = src.at("default");
            const std::string pd = at(place, "default");
            if (d.is_array()) {
                if (d.size() != to - from)
                    fail(pd, "gives " + std::to_string(d.size()) + " values for " +
                                 std::to_string(to - from) + " elements");
                for (size_t e = from; e < to; ++e)
                    els[e].def = value_of(d[e - from], cls, at(pd, e - from));
            } else if (d.is_string() && r.format == VOK_FORMAT_STRING) {
                const std::string s = d.get<std::string>();
                if (s.size() > 4 * (to - from))
                    fail(pd, "text of " + std::to_string(s.size()) + " characters does not fit " +
                                 std::to_string(to - from) + " elements");
                for (size_t e = from; e < to; ++e) {
                    uint32_t w = 0;
                    for (size_t c = 0; c < 4; ++c) {
                        size_t at_c = (e - from) * 4 + c;
                        if (at_c < s.size()) w |= uint32_t(uint8_t(s[at_c])) << (8 * c);
                    }
                    els[e].def = Value::of_int(static_cast<int32_t>(w));
                }
            } else if (d.is_string() && r.format == VOK_FORMAT_IP) {
                const std::string s = d.get<std::string>();
                unsigned a, b, c, x;
                char tail;
                if (std::sscanf(s.c_str(), "%u.%u.%u.%u%c", &a, &b, &c, &x, &tail) != 4 ||
                    a > 255 || b > 255 || c > 255 || x > 255)
                    fail(pd, "bad IP address \"" + s + "\"");
                uint32_t w = a << 24 | b << 16 | c << 8 | x;
                for (size_t e = from; e < to; ++e)
                    els[e].def = Value::of_int(static_cast<int32_t>(w));
            } else {
                Value v = value_of(d, cls, pd);
                for (size_t e = from; e < to; ++e)
                    els[e].def = v;
            }
        }
        if (src.contains("enum")) {
            int32_t id = enum_ref(src.at("enum"), at(place, "enum"));
            for (size_t e = from; e < to; ++e)
                els[e].enumeration = id;
        }
        for (auto [key, bit] : {std::pair<const char *, uint8_t>{"readonly", kReadOnly},
                                {"reserved", kReserved},
                                {"factory", kFactory}}) {
            if (!src.contains(key)) continue;
            bool on = flag_of(src, key, place);
            for (size_t e = from; e < to; ++e)
                els[e].flags = on ? uint8_t(els[e].flags | bit) : uint8_t(els[e].flags & ~bit);
        }
    }

    static bool ranged(const Element &e, uint32_t cls) {
        return is_float_class(cls) ? (e.min.d != 0.0 || e.max.d != 0.0)
                                   : (e.min.i != 0 || e.max.i != 0);
    }

    void check_element(const Register &r, const Element &e, size_t k, const std::string &place) {
        const uint32_t cls = value_class(r.kind);
        if (!ranged(e, cls)) return;
        bool inverted = is_float_class(cls) ? e.min.d > e.max.d : e.min.i > e.max.i;
        const std::string name = reg_text(r.kind, r.index) + " element " + std::to_string(k);
        if (inverted) fail(place, "minimum above maximum in " + name);
        bool outside = is_float_class(cls) ? (e.def.d < e.min.d || e.def.d > e.max.d)
                                           : (e.def.i < e.min.i || e.def.i > e.max.i);
        if (outside && r.format != VOK_FORMAT_STRING && r.format != VOK_FORMAT_IP)
            fail(place, "default outside the range in " + name);
    }

    const Register *make_register(const json &src, const std::string &place, uint32_t kind,
                                  uint32_t index, uint32_t first) {
        Register r;
        r.kind = kind;
        r.index = index;
        std::string alias = text_of(src, "alias", place);
        if (!alias.empty()) {
            alias = substitute(alias, index, first);
            if (f_.types[kind].hidden)
                fail(at(place, "alias"), "a register of a hidden type has no alias");
            check_alias(alias, at(place, "alias"));
            r.alias = f_.intern(alias);
        }
        if (src.contains("description"))
            r.description = f_.intern(substitute(text_of(src, "description", place), index, first));
        if (src.contains("class")) r.cls = f_.intern(text_of(src, "class", place));
        r.format = is_float_class(kind) ? VOK_FORMAT_FLOAT : VOK_FORMAT_DECIMAL;
        if (src.contains("format")) r.format = format_of(src.at("format"), at(place, "format"));
        if (src.contains("iso")) {
            r.iso_unit = static_cast<int>(int_of(src.at("iso"), at(place, "iso"), 0, 255));
            r.iso = r.iso_unit != 0;
        }
        const bool vector = type_code(kind) == kVectorType || type_code(kind) == kMatrixType;
        uint32_t count = 1;
        if (src.contains("elements"))
            count = static_cast<uint32_t>(
                int_of(src.at("elements"), at(place, "elements"), 1, vector ? 65536 : 256));
        if (src.contains("rows") || src.contains("columns")) {
            if (type_code(kind) != kMatrixType)
                fail(place, "only matrix registers have rows and columns");
            r.rows = u32_of(src, "rows", place, 1, 4096);
            r.columns = u32_of(src, "columns", place, 1, 4096);
            if (src.contains("elements") && count != r.rows * r.columns)
                fail(at(place, "elements"), "does not match rows x columns");
            count = r.rows * r.columns;
            if (count > 65536) fail(place, "matrix larger than 65536 elements");
        } else {
            r.rows = 1;
            r.columns = count;
            if (type_code(kind) == kMatrixType)
                fail(place, "a matrix register needs rows and columns");
        }
        if (r.format == VOK_FORMAT_STRING && is_float_class(kind))
            fail(at(place, "format"), "a string register holds integers");
        element_total_ += count;
        if (element_total_ > kMaxElements)
            fail(place, "the family holds more than " + std::to_string(kMaxElements) +
                            " register elements");
        r.elements.resize(count);
        element_values(src, place, r, r.elements, 0, count);
        if (src.contains("element")) {
            const json &ov = src.at("element");
            if (!ov.is_array()) fail(at(place, "element"), "must be an array");
            for (size_t k = 0; k < ov.size(); ++k) {
                const std::string po = at(at(place, "element"), k);
                if (!ov[k].is_object()) fail(po, "must be an object");
                check_keys(
                    ov[k], po,
                    {"at", "min", "max", "default", "enum", "readonly", "reserved", "factory"});
                if (!ov[k].contains("at")) fail(po, "missing \"at\"");
                auto [a, b] = range_of(ov[k].at("at"), at(po, "at"), 0, int64_t(count) - 1);
                element_values(ov[k], po, r, r.elements, size_t(a), size_t(b) + 1);
            }
        }
        for (size_t k = 0; k < count; ++k)
            check_element(r, r.elements[k], k, place);
        f_.registers.push_back(std::move(r));
        return &f_.registers.back();
    }

    static constexpr std::initializer_list<const char *> kRegKeys = {
        "reg",      "alias",    "description", "class",   "format", "iso",
        "elements", "rows",     "columns",     "min",     "max",    "default",
        "enum",     "readonly", "reserved",    "factory", "element"};

    // Registers of a list; into `layer` (changes allowed when `base` has the register).
    void load_registers(const json &arr, const std::string &place,
                        std::map<RegisterKey, const Register *> &out,
                        const std::map<RegisterKey, const Register *> *base) {
        if (!arr.is_array()) fail(place, "must be an array");
        std::set<RegisterKey> here;
        for (size_t i = 0; i < arr.size(); ++i) {
            const json &src = arr[i];
            const std::string p = at(place, i);
            if (!src.is_object()) fail(p, "must be an object");
            check_keys(src, p, kRegKeys);
            if (!src.contains("reg")) fail(p, "missing \"reg\"");
            RegRef ref = reg_ref(src.at("reg"), at(p, "reg"));
            if (ref.last != ref.first && src.contains("alias") &&
                text_of(src, "alias", p).find("{i}") == std::string::npos &&
                text_of(src, "alias", p).find("{n}") == std::string::npos &&
                text_of(src, "alias", p).find("{k}") == std::string::npos)
                fail(at(p, "alias"), "one alias for a range of registers");
            const Register *first = nullptr;
            for (uint32_t idx = ref.first; idx <= ref.last; ++idx) {
                RegisterKey key = reg_key(ref.kind, idx);
                if (!here.insert(key).second)
                    fail(p, "duplicate register " + reg_text(ref.kind, idx));
                const Register *earlier = nullptr;
                if (base) {
                    auto b = base->find(key);
                    if (b != base->end()) earlier = b->second;
                }
                if (earlier) {
                    json &merged = merged_.emplace_back(*reg_source_.at(earlier));
                    for (auto it = src.begin(); it != src.end(); ++it)
                        merged[it.key()] = it.value();
                    const Register *r = make_register(merged, p, ref.kind, idx, ref.first);
                    reg_source_[r] = &merged;
                    out[key] = r;
                } else if (first != nullptr) {
                    // Further registers of a range: the first one's definition, renumbered.
                    out[key] = renumber(*first, src, p, idx, ref.first);
                    reg_source_[out[key]] = &src;
                } else {
                    const Register *r = make_register(src, p, ref.kind, idx, ref.first);
                    reg_source_[r] = &src;
                    out[key] = r;
                    first = r;
                }
            }
        }
    }

    const Register *renumber(const Register &model, const json &src, const std::string &place,
                             uint32_t index, uint32_t first) {
        element_total_ += model.elements.size();
        if (element_total_ > kMaxElements)
            fail(place, "the family holds more than " + std::to_string(kMaxElements) +
                            " register elements");
        Register r = model;
        r.index = index;
        if (r.alias) {
            const std::string alias = substitute(text_of(src, "alias", place), index, first);
            check_alias(alias, at(place, "alias"));
            r.alias = f_.intern(alias);
        }
        if (r.description)
            r.description = f_.intern(substitute(text_of(src, "description", place), index, first));
        f_.registers.push_back(std::move(r));
        return &f_.registers.back();
    }

    void load_register_set(const std::string &name, const json &arr, const std::string &place) {
        std::map<RegisterKey, const Register *> regs;
        load_registers(arr, place, regs, nullptr);
        auto &list = reg_sets_[name];
        for (auto &[k, r] : regs)
            list.push_back(r);
    }

    // ---- Commands ----

    static uint32_t kind_class_of(const json &v, const std::string &place) {
        if (!v.is_string()) fail(place, "a parameter kind is int32, int64, float or double");
        const std::string s = v.get<std::string>();
        for (uint32_t c = 0; c < 4; ++c)
            if (s == kClassNames[c]) return c << 5;
        fail(place, "unknown parameter kind \"" + s + "\" (int32, int64, float, double)");
    }

    const Command *make_command(const json &src, const std::string &place) {
        check_keys(src, place, {"number", "name", "description", "params", "list_values"});
        Command c;
        c.number = u32_of(src, "number", place, 0, kCommandCount - 1);
        std::string name = text_of(src, "name", place);
        if (!name.empty()) {
            for (char ch : name)
                if (!((ch >= 'A' && ch <= 'Z') || (ch >= '0' && ch <= '9') || ch == '_'))
                    fail(at(place, "name"), "bad command name \"" + name + "\"");
            if (name.back() >= '0' && name.back() <= '9')
                fail(at(place, "name"), "a command name does not end in a digit: \"" + name + "\"");
            if (name.size() == 3 && name.back() == 'Y')
                fail(at(place, "name"),
                     "a three-letter command name does not end in Y: \"" + name + "\"");
            if (looks_like_register(name))
                fail(at(place, "name"), "command name \"" + name + "\" reads as a register");
            c.name = f_.intern(name);
        }
        std::string d = text_of(src, "description", place);
        if (!d.empty()) c.description = f_.intern(d);
        if (src.contains("params")) {
            const json &ps = array_of(src, "params", place);
            for (size_t i = 0; i < ps.size(); ++i) {
                const std::string pp = at(at(place, "params"), i);
                const json &p = ps[i];
                if (!p.is_object()) fail(pp, "must be an object");
                check_keys(
                    p, pp,
                    {"name", "kind", "min", "max", "format", "iso", "enum", "vector", "repeat"});
                Param param;
                std::string pn = text_of(p, "name", pp);
                if (!pn.empty()) param.name = f_.intern(pn);
                param.kind = p.contains("kind") ? kind_class_of(p.at("kind"), at(pp, "kind")) : 0;
                if (p.contains("min")) param.min = value_of(p.at("min"), param.kind, at(pp, "min"));
                if (p.contains("max")) param.max = value_of(p.at("max"), param.kind, at(pp, "max"));
                bool inverted = is_float_class(param.kind) ? param.min.d > param.max.d
                                                           : param.min.i > param.max.i;
                if (inverted) fail(pp, "minimum above maximum");
                param.format = is_float_class(param.kind) ? VOK_FORMAT_FLOAT : VOK_FORMAT_DECIMAL;
                if (p.contains("format"))
                    param.format = format_of(p.at("format"), at(pp, "format"));
                if (p.contains("iso")) {
                    param.iso_unit = static_cast<int>(int_of(p.at("iso"), at(pp, "iso"), 0, 255));
                    param.iso = param.iso_unit != 0;
                }
                if (p.contains("enum")) param.enumeration = enum_ref(p.at("enum"), at(pp, "enum"));
                param.vector = flag_of(p, "vector", pp);
                c.vector_params = c.vector_params || param.vector;
                size_t repeat = p.contains("repeat")
                                    ? size_t(int_of(p.at("repeat"), at(pp, "repeat"), 1, 65))
                                    : 1;
                for (size_t r = 0; r < repeat; ++r)
                    c.params.push_back(param);
            }
            if (c.params.size() > 65) fail(at(place, "params"), "more than 65 parameters");
        }
        if (src.contains("list_values")) {
            // A command that takes a list accepts this many values in all: the positions after
            // the declared groups answer as plain elements of the last list group.
            const std::string pl = at(place, "list_values");
            size_t n = size_t(int_of(src.at("list_values"), pl, 1, 64));
            const Param *group = nullptr;
            for (const Param &p : c.params)
                if (p.vector) group = &p;
            if (group == nullptr) fail(pl, "only a command with a vector parameter takes a list");
            if (n < c.params.size()) fail(pl, "fewer list values than declared parameters");
            Param element = *group;
            element.name = nullptr;
            element.vector = false;
            c.params.resize(n, element);
        }
        f_.commands.push_back(std::move(c));
        return &f_.commands.back();
    }

    void load_commands(const json &arr, const std::string &place,
                       std::map<uint32_t, const Command *> &out) {
        if (!arr.is_array()) fail(place, "must be an array");
        std::set<uint32_t> here;
        for (size_t i = 0; i < arr.size(); ++i) {
            const std::string p = at(place, i);
            if (!arr[i].is_object()) fail(p, "must be an object");
            const Command *c = make_command(arr[i], p);
            if (!here.insert(c->number).second)
                fail(at(p, "number"), "duplicate command " + std::to_string(c->number));
            out[c->number] = c;
        }
    }

    void load_command_set(const std::string &name, const json &arr, const std::string &place) {
        std::map<uint32_t, const Command *> cmds;
        load_commands(arr, place, cmds);
        auto &list = cmd_sets_[name];
        for (auto &[k, c] : cmds)
            list.push_back(c);
    }

    // ---- Layers: sets, own registers and commands, removals ----

    void fill_layer(const json &v, const std::string &p, Layer &layer, bool has_base) {
        if (v.contains("register_sets")) {
            const json &sets = array_of(v, "register_sets", p);
            for (size_t k = 0; k < sets.size(); ++k) {
                const std::string ps = at(at(p, "register_sets"), k);
                if (!sets[k].is_string()) fail(ps, "must be a text");
                auto it = reg_sets_.find(sets[k].get<std::string>());
                if (it == reg_sets_.end())
                    fail(ps, "unknown register set \"" + sets[k].get<std::string>() + "\"");
                for (const Register *r : it->second) {
                    RegisterKey key = reg_key(r->kind, r->index);
                    auto [pos, fresh] = layer.registers.emplace(key, r);
                    if (!fresh) {
                        if (!has_base)
                            fail(ps, "duplicate register " + reg_text(r->kind, r->index) +
                                         " from set \"" + it->first + "\"");
                        pos->second = r;
                    }
                }
            }
        }
        if (v.contains("command_sets")) {
            const json &sets = array_of(v, "command_sets", p);
            for (size_t k = 0; k < sets.size(); ++k) {
                const std::string ps = at(at(p, "command_sets"), k);
                if (!sets[k].is_string()) fail(ps, "must be a text");
                auto it = cmd_sets_.find(sets[k].get<std::string>());
                if (it == cmd_sets_.end())
                    fail(ps, "unknown command set \"" + sets[k].get<std::string>() + "\"");
                for (const Command *c : it->second) {
                    auto [pos, fresh] = layer.commands.emplace(c->number, c);
                    if (!fresh) {
                        if (!has_base)
                            fail(ps, "duplicate command " + std::to_string(c->number) +
                                         " from set \"" + it->first + "\"");
                        pos->second = c;
                    }
                }
            }
        }
        if (v.contains("remove_registers")) {
            const json &rm = array_of(v, "remove_registers", p);
            for (size_t k = 0; k < rm.size(); ++k) {
                const std::string pr = at(at(p, "remove_registers"), k);
                RegRef ref = reg_ref(rm[k], pr);
                for (uint32_t i = ref.first; i <= ref.last; ++i)
                    if (layer.registers.erase(reg_key(ref.kind, i)) == 0)
                        fail(pr, "removes " + reg_text(ref.kind, i) + ", which does not exist");
            }
        }
        if (v.contains("remove_commands")) {
            const json &rm = array_of(v, "remove_commands", p);
            for (size_t k = 0; k < rm.size(); ++k) {
                const std::string pr = at(at(p, "remove_commands"), k);
                uint32_t c = static_cast<uint32_t>(int_of(rm[k], pr, 0, kCommandCount - 1));
                if (layer.commands.erase(c) == 0)
                    fail(pr, "removes command " + std::to_string(c) + ", which does not exist");
            }
        }
        if (v.contains("registers")) {
            std::map<RegisterKey, const Register *> own;
            const auto base = layer.registers;
            load_registers(v.at("registers"), at(p, "registers"), own, &base);
            for (auto &[k, r] : own)
                layer.registers[k] = r;
        }
        if (v.contains("commands")) {
            std::map<uint32_t, const Command *> own;
            load_commands(v.at("commands"), at(p, "commands"), own);
            for (auto &[k, c] : own)
                layer.commands[k] = c;
        }
    }

    // ---- Products ----

    void load_products(const json &arr, const std::string &place) {
        for (size_t i = 0; i < arr.size(); ++i) {
            const json &pj = arr[i];
            const std::string p = at(place, i);
            if (!pj.is_object()) fail(p, "must be an object");
            check_keys(pj, p,
                       {"code", "name", "description", "reserved", "axis63", "dictionary_class",
                        "default", "versions"});
            Product prod;
            prod.code = u32_of(pj, "code", p, 0, 0xFFFFFFFDu);
            if (f_.products.count(prod.code))
                fail(at(p, "code"), "product " + std::to_string(prod.code) + " declared twice");
            std::string name = text_of(pj, "name", p);
            if (!name.empty()) {
                if (!product_by_name_.emplace(name, prod.code).second)
                    fail(at(p, "name"), "product name \"" + name + "\" used twice");
                prod.name = f_.intern(name);
            }
            std::string d = text_of(pj, "description", p);
            if (!d.empty()) prod.description = f_.intern(d);
            prod.reserved = flag_of(pj, "reserved", p);
            prod.axis63 = flag_of(pj, "axis63", p);
            if (pj.contains("dictionary_class"))
                prod.dictionary_class = static_cast<int>(
                    int_of(pj.at("dictionary_class"), at(p, "dictionary_class"), 0, 255));
            auto &pending = pending_[prod.code];
            if (pj.contains("versions")) {
                if (prod.reserved) fail(at(p, "versions"), "a reserved product has no versions");
                const json &vs = array_of(pj, "versions", p);
                for (size_t k = 0; k < vs.size(); ++k) {
                    const std::string pv = at(at(p, "versions"), k);
                    if (!vs[k].is_object()) fail(pv, "must be an object");
                    check_keys(vs[k], pv,
                               {"version", "base", "register_sets", "command_sets", "registers",
                                "commands", "remove_registers", "remove_commands"});
                    if (!vs[k].contains("version")) fail(pv, "missing \"version\"");
                    uint32_t ver = version_of(vs[k].at("version"), at(pv, "version"));
                    if (pending.count(ver))
                        fail(at(pv, "version"), "version " + version_text(ver) + " declared twice");
                    pending.emplace(ver, PendingVersion{&vs[k], pv, 0, {}});
                }
            }
            if (pj.contains("default")) {
                const std::string pd = at(p, "default");
                if (pj.at("default").is_number() && int_of(pj.at("default"), pd, 0, 0) == 0) {
                    prod.default_version = 0;
                } else {
                    prod.default_version = version_of(pj.at("default"), pd);
                    if (!pending.count(prod.default_version))
                        fail(pd, "default version " + version_text(prod.default_version) +
                                     " is not a version of the product");
                }
            } else if (!pending.empty()) {
                fail(p, "missing \"default\"");
            }
            f_.products.emplace(prod.code, std::move(prod));
        }
        for (auto &[code, versions] : pending_)
            for (auto &[ver, pv] : versions)
                resolve(code, ver, pv.place);
        for (auto &[code, prod] : f_.products)
            for (auto &[ver, pv] : pending_[code])
                prod.versions.push_back(ProductVersion{ver, std::move(pv.layer)});
    }

    // Resolves a product version: its base first, then its own sets, removals and changes.
    const Layer &resolve(uint32_t code, uint32_t ver, const std::string &from, int depth = 0) {
        PendingVersion &pv = pending_.at(code).at(ver);
        if (pv.state == 2) return pv.layer;
        if (pv.state == 1) fail(from, "versions based on each other in a circle");
        if (depth > kMaxBaseDepth)
            fail(from, "versions based on each other more than " + std::to_string(kMaxBaseDepth) +
                           " deep");
        pv.state = 1;
        const json &v = *pv.desc;
        bool has_base = false;
        if (v.contains("base")) {
            const std::string pb = at(pv.place, "base");
            if (!v.at("base").is_string())
                fail(pb, "must be a text such as \"3.10A\" or \"ORX-D32 3.12B\"");
            std::string b = v.at("base").get<std::string>();
            uint32_t bcode = code;
            auto space = b.rfind(' ');
            if (space != std::string::npos) {
                auto it = product_by_name_.find(b.substr(0, space));
                if (it == product_by_name_.end())
                    fail(pb, "unknown product \"" + b.substr(0, space) + "\"");
                bcode = it->second;
                b = b.substr(space + 1);
            }
            uint32_t bver = version_of(json(b), pb);
            auto pit = pending_.find(bcode);
            if (pit == pending_.end() || !pit->second.count(bver))
                fail(pb, "based on version " + version_text(bver) +
                             ", which the product does not have");
            pv.layer = resolve(bcode, bver, pb, depth + 1);
            has_base = true;
        }
        fill_layer(v, pv.place, pv.layer, has_base);
        count_layer(pv.layer, pv.place);
        pv.state = 2;
        return pv.layer;
    }

    // ---- Cards ----

    void load_cards(const json &arr, const std::string &place) {
        for (size_t i = 0; i < arr.size(); ++i) {
            const json &cj = arr[i];
            const std::string p = at(place, i);
            if (!cj.is_object()) fail(p, "must be an object");
            check_keys(cj, p, {"code", "name", "description", "fits", "default", "versions"});
            Card card;
            card.code = u32_of(cj, "code", p, 1, 0xFFFFFFFDu);
            if (f_.cards.count(card.code))
                fail(at(p, "code"), "card " + std::to_string(card.code) + " declared twice");
            std::string name = text_of(cj, "name", p, true);
            card.name = f_.intern(name);
            std::string d = text_of(cj, "description", p);
            if (!d.empty()) card.description = f_.intern(d);
            const json &fits = array_of(cj, "fits", p);
            for (size_t k = 0; k < fits.size(); ++k) {
                const std::string pf = at(at(p, "fits"), k);
                auto [a, b] = range_of(fits[k], pf, 0, 0xFFFFFFFDll);
                for (int64_t x = a; x <= b; ++x) {
                    auto pr = f_.products.find(static_cast<uint32_t>(x));
                    if (pr == f_.products.end() || pr->second.reserved)
                        fail(pf, "fits product " + std::to_string(x) + ", which is not declared");
                    card.fits.push_back(static_cast<uint32_t>(x));
                }
            }
            std::sort(card.fits.begin(), card.fits.end());
            const json &vs = array_of(cj, "versions", p);
            std::set<uint32_t> seen;
            for (size_t k = 0; k < vs.size(); ++k) {
                const std::string pv = at(at(p, "versions"), k);
                if (!vs[k].is_object()) fail(pv, "must be an object");
                check_keys(vs[k], pv,
                           {"version", "register_sets", "command_sets", "registers", "commands"});
                if (!vs[k].contains("version")) fail(pv, "missing \"version\"");
                CardVersion cv;
                cv.version = version_of(vs[k].at("version"), at(pv, "version"));
                if (!seen.insert(cv.version).second)
                    fail(at(pv, "version"),
                         "version " + version_text(cv.version) + " declared twice");
                fill_layer(vs[k], pv, cv.layer, false);
                count_layer(cv.layer, pv);
                card.versions.push_back(std::move(cv));
            }
            std::sort(
                card.versions.begin(), card.versions.end(),
                [](const CardVersion &a, const CardVersion &b) { return a.version < b.version; });
            if (cj.contains("default")) {
                card.default_version = version_of(cj.at("default"), at(p, "default"));
                if (!card.find(card.default_version))
                    fail(at(p, "default"), "default version " + version_text(card.default_version) +
                                               " is not a version of the card");
            }
            f_.cards.emplace(card.code, std::move(card));
        }
    }
};

// Line and column of a byte offset, for messages about bad JSON.
std::string line_column(const std::string &text, size_t offset) {
    size_t line = 1, column = 1;
    for (size_t i = 0; i < offset && i < text.size(); ++i) {
        if (text[i] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

} // namespace

int load_family(const std::string &text, const std::string &source, std::unique_ptr<Family> &out,
                std::string &message) {
    try {
        json doc;
        try {
            doc = json::parse(text);
        } catch (const json::parse_error &e) {
            std::string what = e.what();
            auto colon = what.find(": ");
            if (colon != std::string::npos) what = what.substr(colon + 2);
            message = source + ": " + line_column(text, e.byte == 0 ? 0 : e.byte - 1) + ": " + what;
            return VOK_EFORMAT;
        } catch (const json::exception &e) {
            // A number beyond the range of a double, for instance.
            std::string what = e.what();
            auto bracket = what.find("] ");
            if (bracket != std::string::npos) what = what.substr(bracket + 2);
            message = source + ": " + what;
            return VOK_EFORMAT;
        }
        auto family = std::make_unique<Family>();
        family->source = source;
        try {
            Loader(*family).load(doc);
        } catch (const Fault &f) {
            message = source + ": " + f.place + ": " + f.what;
            return VOK_EFAMILY;
        } catch (const json::exception &e) {
            message = source + ": " + e.what();
            return VOK_EFAMILY;
        } catch (const std::length_error &e) {
            message = source + ": " + e.what();
            return VOK_EFAMILY;
        }
        for (const auto &[code, p] : family->products)
            family->product_codes.push_back(code);
        for (const auto &[code, c] : family->cards)
            family->card_codes.push_back(code);
        out = std::move(family);
        return 0;
    } catch (const std::bad_alloc &) {
        message = source + ": out of memory";
        return VOK_ESYSTEM;
    }
}

} // namespace ryn::vok
