// Feeds arbitrary text to the family loader; a family that loads is opened and walked.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "ryn/vok.h"
#include "vokmodel.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace ryn::vok;
    const std::string text(reinterpret_cast<const char *>(data), size);
    std::unique_ptr<Family> family;
    std::string message;
    if (load_family(text, "fuzz", family, message) != 0) {
        if (message.empty()) __builtin_trap(); // a refusal always says why
        return 0;
    }
    // Open a few configurations and read everything they hold through the model.
    int opened = 0;
    for (const auto &[code, product] : family->products) {
        for (const ProductVersion &pv : product.versions) {
            if (++opened > 8) return 0;
            const uint32_t cards[] = {0, kDriveOnly,
                                      family->cards.empty() ? 0 : family->cards.begin()->first};
            for (uint32_t card : cards) {
                uint32_t card_version = 0;
                if (card != 0 && card != kDriveOnly)
                    card_version = family->cards.begin()->second.default_version;
                int rc = 0;
                std::string detail;
                const Model *m =
                    model_of(*family, code, pv.version, card, card_version, rc, detail);
                if (m == nullptr) {
                    if (rc == 0) __builtin_trap();
                    continue;
                }
                size_t sum = 0;
                for (const auto &t : m->types)
                    for (const Register *r : t.regs)
                        if (r != nullptr) sum += r->elements.size() + (r->alias ? 1 : 0);
                for (const Command *c : m->commands)
                    if (c != nullptr) sum += c->params.size();
                if (sum == size_t(-1)) __builtin_trap();
            }
        }
    }
    return 0;
}
