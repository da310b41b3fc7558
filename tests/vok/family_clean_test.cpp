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
// card that fits it.
std::vector<Config> every_configuration() {
    std::vector<Config> out;
    const uint32_t cards[] = {0x21, 0x22};
    const uint32_t card_versions[] = {0x01028000, 0x02008000};
    for (uint32_t p = 0; p < 64; ++p) {
        if (vok_get_product_name(p) == nullptr) continue;
        for (uint32_t major = 0; major < 4; ++major)
            for (uint32_t minor = 0; minor < 0x50; ++minor)
                for (uint32_t letter = 0x80; letter < 0x83; ++letter) {
                    uint32_t v = major << 24 | minor << 16 | letter << 8;
                    if (!vok_is_known_version(p, v)) continue;
                    out.push_back({p, v, 0, 0});
                    out.push_back({p, v, VOK_DRIVE_ONLY, 0});
                    for (int c = 0; c < 2; ++c) {
                        VOK_DICT *d = nullptr;
                        if (vok_open(&d, p, v, cards[c], card_versions[c]) == 0)
                            out.push_back({p, v, cards[c], card_versions[c]});
                        vok_close(&d);
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
