// The family registry: the active family, loading others, and opening and closing dictionaries.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <sstream>

#include "ryn/sup.h"
#include "ryn/vok.h"
#include "sup/ascii.hpp"
#include "sup/error_table.hpp"
#include "vokmodel.hpp"

namespace ryn::vok {

namespace {

// Every family that was ever active stays here, so that texts handed out stay valid.
struct Registry {
    std::mutex lock;
    std::vector<std::unique_ptr<Family>> families;
    const Family *embedded = nullptr;
    const Family *active = nullptr;
    int open = 0;
};

// Never destroyed: texts of every family stay valid until the process has ended, whatever order
// other libraries' static objects are destroyed in.
Registry &registry() {
    static Registry *r = new Registry;
    return *r;
}

// The library's codes and their messages.
constexpr auto errors = error_table({
    {VOK_EFAMILY, "VOK_EFAMILY", "the family description is inconsistent"},
    {VOK_EFORMAT, "VOK_EFORMAT", "the family description is not valid JSON"},
    {VOK_EFILE, "VOK_EFILE", "the family file cannot be read"},
    {VOK_EBUSY, "VOK_EBUSY", "a family cannot be replaced while dictionaries are open"},
    {VOK_EBADEXTVER, "VOK_EBADEXTVER", "incompatible extension card version"},
    {VOK_EBADDRVVER, "VOK_EBADDRVVER", "incompatible drive version"},
    {VOK_EBADEXTPROD, "VOK_EBADEXTPROD", "unknown extension card product"},
    {VOK_EBADDRVPROD, "VOK_EBADDRVPROD", "unknown drive product"},
    {VOK_EBADPARAM, "VOK_EBADPARAM", "bad parameter"},
    {VOK_ESYSTEM, "VOK_ESYSTEM", "system error"},
    {0, "VOK_OK", "no error"},
});

thread_local std::string t_family_error;

// The active family for readers that do not take the lock; written under the lock.
std::atomic<const Family *> g_active{nullptr};

void set_active(Registry &r, const Family *f) {
    r.active = f;
    g_active.store(f, std::memory_order_release);
}

// Loads the embedded family on first use; the registry lock is held.
const Family *embedded_locked(Registry &r) {
    if (r.embedded != nullptr) return r.embedded;
    std::unique_ptr<Family> f;
    std::string message;
    if (load_family(embedded_family_text(), embedded_family_name, f, message) != 0) {
        // The embedded family is checked by the tests; this only guards a broken build.
        std::fprintf(stderr, "vok: the embedded family is refused: %s\n", message.c_str());
        f = std::make_unique<Family>();
        f->source = embedded_family_name;
    }
    r.families.push_back(std::move(f));
    r.embedded = r.families.back().get();
    return r.embedded;
}

const Family &active_locked(Registry &r) {
    if (r.active == nullptr) set_active(r, embedded_locked(r));
    return *r.active;
}

int refuse_load(int code, const std::string &message) {
    t_family_error = message;
    sup_trace_error("vok", __LINE__, "vok_load_family", code, vok_translate_error(code),
                    message.c_str(), nullptr, nullptr, nullptr, nullptr);
    return code;
}

int install(const std::string &text, const std::string &source) {
    try {
        Registry &r = registry();
        {
            std::lock_guard<std::mutex> g(r.lock);
            if (r.open > 0)
                return refuse_load(VOK_EBUSY, source + ": " + std::to_string(r.open) +
                                                  " dictionaries are open");
        }
        std::unique_ptr<Family> f;
        std::string message;
        int rc = load_family(text, source, f, message);
        if (rc != 0) return refuse_load(rc, message);
        std::lock_guard<std::mutex> g(r.lock);
        if (r.open > 0)
            return refuse_load(VOK_EBUSY,
                               source + ": " + std::to_string(r.open) + " dictionaries are open");
        r.families.push_back(std::move(f));
        set_active(r, r.families.back().get());
        t_family_error.clear();
        return 0;
    } catch (const std::bad_alloc &) {
        return refuse_load(VOK_ESYSTEM, source + ": out of memory");
    }
}

bool fits(const Card &card, uint32_t product) {
    return std::binary_search(card.fits.begin(), card.fits.end(), product);
}

std::unique_ptr<Model> build_model(const Family &family, const Product &product,
                                   const ProductVersion &pv, const CardVersion *card) {
    auto m = std::make_unique<Model>();
    m->family = &family;
    m->product = &product;
    m->dictionary_class = product.dictionary_class;
    auto place = [&](const Layer &layer) {
        for (const auto &[key, reg] : layer.registers) {
            auto &t = m->types[reg->kind];
            if (t.regs.size() <= reg->index) t.regs.resize(reg->index + 1, nullptr);
            t.regs[reg->index] = reg;
        }
        for (const auto &[number, cmd] : layer.commands)
            m->commands[number] = cmd;
    };
    m->commands.assign(kCommandCount, nullptr);
    place(pv.layer);
    if (card) place(card->layer);
    for (uint32_t k = 0; k < kTypeCount; ++k) {
        auto &t = m->types[k];
        for (const Register *reg : t.regs) {
            if (reg == nullptr) continue;
            t.indexes.push_back(reg->index);
            if (reg->elements.size() > t.subindex_count)
                t.subindex_count = static_cast<uint32_t>(reg->elements.size());
            if (reg->alias && reg->alias[0])
                m->aliases.emplace_back(reg->alias, reg_key(k, reg->index));
        }
        t.present = !t.regs.empty() || (family.types[k].always && family.types[k].name);
    }
    for (uint32_t c = 0; c < kCommandCount; ++c) {
        const Command *cmd = m->commands[c];
        if (cmd == nullptr) continue;
        m->command_numbers.push_back(c);
        if (cmd->name && cmd->name[0]) m->command_names.emplace_back(cmd->name, c);
    }
    auto by_name = [](const auto &a, const auto &b) { return name_less(a.first, b.first); };
    std::stable_sort(m->aliases.begin(), m->aliases.end(), by_name);
    std::stable_sort(m->command_names.begin(), m->command_names.end(), by_name);
    return m;
}

} // namespace

bool name_less(const char *a, const char *b) {
    return ascii_compare_nocase(a, b) < 0;
}

const Family &active_family() {
    if (const Family *f = g_active.load(std::memory_order_acquire)) return *f;
    Registry &r = registry();
    std::lock_guard<std::mutex> g(r.lock);
    return active_locked(r);
}

const Model *model_of(const Family &family, uint32_t product, uint32_t version,
                      uint32_t ext_product, uint32_t ext_version, int &code, std::string &detail) {
    auto p = family.products.find(product);
    if (p == family.products.end() || p->second.reserved) {
        code = VOK_EBADDRVPROD;
        detail = "product " + std::to_string(product);
        return nullptr;
    }
    const ProductVersion *pv = p->second.find(version);
    if (pv == nullptr) {
        code = VOK_EBADDRVVER;
        char text[32];
        sup_version_to_string(text, sizeof text, version);
        detail =
            std::string(p->second.name ? p->second.name : "product") + " has no version " + text;
        return nullptr;
    }
    const CardVersion *cv = nullptr;
    uint32_t key_ext = 0, key_ext_version = 0;
    if (ext_product == kDriveOnly) {
        if (ext_version != 0) {
            code = VOK_EBADEXTVER;
            detail = "the drive-only dictionary is opened with card version 0";
            return nullptr;
        }
    } else if (ext_product != 0) {
        auto c = family.cards.find(ext_product);
        if (c == family.cards.end()) {
            code = VOK_EBADEXTPROD;
            detail = "card " + std::to_string(ext_product);
            return nullptr;
        }
        if (!fits(c->second, product)) {
            code = VOK_EBADEXTVER;
            detail = std::string(c->second.name) + " does not fit " +
                     (p->second.name ? p->second.name : "the product");
            return nullptr;
        }
        cv = c->second.find(ext_version);
        if (cv == nullptr) {
            code = VOK_EBADEXTVER;
            char text[32];
            sup_version_to_string(text, sizeof text, ext_version);
            detail = std::string(c->second.name) + " has no version " + text;
            return nullptr;
        }
        key_ext = ext_product;
        key_ext_version = ext_version;
    }
    std::lock_guard<std::mutex> g(family.models_lock);
    auto &slot = family.models[{product, version, key_ext, key_ext_version}];
    if (!slot) slot = build_model(family, p->second, *pv, cv);
    code = 0;
    return slot.get();
}

} // namespace ryn::vok

using namespace ryn::vok;

namespace {

int open_dict(VOK_DICT **out, uint32_t product, uint32_t version, uint32_t ext_product,
              uint32_t ext_version, bool offline) {
    if (out == nullptr) {
        sup_trace_error("vok", __LINE__, "vok_open", VOK_EBADPARAM,
                        vok_translate_error(VOK_EBADPARAM), "null handle address", nullptr, nullptr,
                        nullptr, nullptr);
        return VOK_EBADPARAM;
    }
    *out = nullptr;
    int code = 0;
    std::string detail;
    try {
        Registry &r = registry();
        std::lock_guard<std::mutex> g(r.lock);
        const Family &family = active_locked(r);
        const Model *m = model_of(family, product, version, ext_product, ext_version, code, detail);
        if (m != nullptr) {
            *out = new VOK_DICT{Dict{m, product, version, ext_product, ext_version}};
            ++r.open;
            return 0;
        }
        if (offline && code == VOK_EBADDRVVER) return 0;
    } catch (const std::bad_alloc &) {
        code = VOK_ESYSTEM;
        detail = "out of memory";
    }
    char numbers[96];
    sup_snprintf(numbers, sizeof numbers, "product %u version 0x%08X card %u version 0x%08X",
                 product, version, ext_product, ext_version);
    sup_trace_error("vok", __LINE__, "vok_open", code, vok_translate_error(code), detail.c_str(),
                    numbers, nullptr, nullptr, nullptr);
    return code;
}

} // namespace

extern "C" {

int vok_load_family_text(const char *text) {
    if (text == nullptr) return refuse_load(VOK_EBADPARAM, "<text>: no text given");
    return install(text, "<text>");
}

int vok_load_family_file(const char *path) {
    if (path == nullptr) return refuse_load(VOK_EBADPARAM, "no file name given");
    std::string text;
    try {
        std::error_code ec;
        if (std::filesystem::is_directory(path, ec))
            return refuse_load(VOK_EFILE, std::string(path) + ": is a directory");
        std::ifstream in(path, std::ios::binary);
        if (!in) return refuse_load(VOK_EFILE, std::string(path) + ": cannot be opened");
        std::ostringstream s;
        s << in.rdbuf();
        if (in.bad()) return refuse_load(VOK_EFILE, std::string(path) + ": cannot be read");
        text = s.str();
    } catch (const std::bad_alloc &) {
        return refuse_load(VOK_ESYSTEM, std::string(path) + ": out of memory");
    }
    return install(text, path);
}

int vok_load_default_family(void) {
    Registry &r = registry();
    std::lock_guard<std::mutex> g(r.lock);
    if (r.open > 0)
        return refuse_load(VOK_EBUSY, std::string(embedded_family_name) + ": " +
                                          std::to_string(r.open) + " dictionaries are open");
    set_active(r, embedded_locked(r));
    t_family_error.clear();
    return 0;
}

const char *vok_get_family_error(void) {
    return t_family_error.c_str();
}

const char *vok_get_family_source(void) {
    return active_family().source.c_str();
}

int vok_open(VOK_DICT **out, uint32_t product, uint32_t version, uint32_t ext_product,
             uint32_t ext_version) {
    return open_dict(out, product, version, ext_product, ext_version, false);
}

int vok_open_offline(VOK_DICT **out, int, uint32_t product, uint32_t version, uint32_t ext_product,
                     uint32_t ext_version) {
    return open_dict(out, product, version, ext_product, ext_version, true);
}

void vok_close(VOK_DICT **dict) {
    if (dict == nullptr || *dict == nullptr) return;
    delete *dict;
    *dict = nullptr;
    Registry &r = registry();
    std::lock_guard<std::mutex> g(r.lock);
    --r.open;
}

const char *vok_translate_error(int code) {
    return errors.message(code);
}

} // extern "C"
