// The ORAX family is clean: every alias and command name means one thing wherever it is defined,
// so that lookup tables built from it print no alias diagnostic.
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "ryn/vok.h"

namespace {

struct Config {
    uint32_t product, version, ext, ext_version;
};

// Every configuration the family knows: each product version alone, drive-only and with each
// version of each card that fits it.
std::vector<Config> every_configuration() {
    std::vector<Config> out;
    for (int i = 0; i < vok_get_product_count(); ++i) {
        const uint32_t p = vok_get_product_code(i);
        for (int k = 0; k < vok_get_product_version_count(p); ++k) {
            const uint32_t v = vok_get_product_version(p, k);
            out.push_back({p, v, 0, 0});
            out.push_back({p, v, VOK_DRIVE_ONLY, 0});
            for (int c = 0; c < vok_get_ext_product_count(); ++c) {
                const uint32_t card = vok_get_ext_product_code(c);
                if (!vok_ext_fits_product(card, p)) continue;
                for (int cv = 0; cv < vok_get_ext_product_version_count(card); ++cv)
                    out.push_back({p, v, card, vok_get_ext_product_version(card, cv)});
            }
        }
    }
    return out;
}

TEST(OraxClean, AliasesAndCommandNamesMeanOneThing) {
    ASSERT_EQ(vok_load_default_family(), 0);
    const auto configs = every_configuration();
    ASSERT_GE(configs.size(), 40u);
    std::map<std::string, std::pair<uint32_t, uint32_t>> aliases;
    std::map<std::string, uint32_t> commands;
    std::map<std::string, std::string> first_seen;
    for (const Config &c : configs) {
        VOK_DICT *d = nullptr;
        ASSERT_EQ(vok_open(&d, c.product, c.version, c.ext, c.ext_version), 0);
        const std::string where = std::string(vok_get_product_name(c.product)) + " " +
                                  std::to_string(c.version) + " card " + std::to_string(c.ext);
        for (uint32_t t = 0; t < VOK_TYPE_COUNT; ++t) {
            if (vok_type_is_hidden(d, t)) continue;
            for (int i = vok_get_register_count(d, t) - 1; i >= 0; --i) {
                const char *n = vok_get_register_name(d, 1, t, uint32_t(i), 0);
                if (n == nullptr || n[0] == 0) continue;
                auto [it, fresh] = aliases.emplace(n, std::make_pair(t, uint32_t(i)));
                if (fresh) first_seen[n] = where;
                EXPECT_EQ(it->second, std::make_pair(t, uint32_t(i)))
                    << "alias " << n << " in " << where << ", first in " << first_seen[n];
            }
        }
        for (uint32_t k = 0; k < VOK_COMMAND_COUNT; ++k) {
            const char *n = vok_get_command_name(d, 1, k);
            if (n == nullptr || n[0] == 0) continue;
            auto [it, fresh] = commands.emplace(n, k);
            EXPECT_EQ(it->second, k) << "command " << n << " in " << where;
            // No command name is also a register alias.
            EXPECT_EQ(aliases.count(n), 0u) << n;
        }
        vok_close(&d);
    }
    for (const auto &[name, reg] : aliases)
        EXPECT_EQ(commands.count(name), 0u) << name;
    EXPECT_GE(aliases.size(), 150u);
    EXPECT_GE(commands.size(), 100u);
}

TEST(OraxClean, HiddenTypesHaveNoAliases) {
    VOK_DICT *d = nullptr;
    ASSERT_EQ(vok_open(&d, 32, 0x03128100, 0, 0), 0);
    for (uint32_t t = 0; t < VOK_TYPE_COUNT; ++t) {
        if (!vok_type_is_hidden(d, t)) continue;
        for (int i = 0; i < vok_get_register_count(d, t); ++i) {
            const char *n = vok_get_register_name(d, 1, t, uint32_t(i), 0);
            EXPECT_TRUE(n == nullptr || n[0] == 0) << t << "/" << i;
        }
    }
    vok_close(&d);
}

TEST(OraxClean, BulkOfTheCurrentDrive) {
    VOK_DICT *d = nullptr;
    ASSERT_EQ(vok_open(&d, 32, 0x03128100, 0, 0), 0);
    int k = 0, described = 0, classed = 0, empty_class = 0, commands = 0;
    for (int i = 0; i < vok_get_register_count(d, 2); ++i) {
        if (!vok_index_exists(d, 2, uint32_t(i))) continue;
        ++k;
        const char *desc = vok_get_register_name(d, 2, 2, uint32_t(i), 0);
        described += desc && desc[0];
        const char *cls = vok_get_register_class(d, 2, 2, uint32_t(i));
        classed += cls && cls[0];
        empty_class += cls && !cls[0];
    }
    for (uint32_t c = 0; c < VOK_COMMAND_COUNT; ++c)
        commands += vok_command_exists(d, c);
    EXPECT_GE(k, 200);
    EXPECT_EQ(described, k);
    EXPECT_GE(classed, k - 5);
    EXPECT_GE(empty_class, 1);
    EXPECT_GE(commands, 100);
    EXPECT_LE(commands, 200);
    vok_close(&d);
}

} // namespace
