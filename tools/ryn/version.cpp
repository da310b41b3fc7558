// The version subcommand: the translator library's version and build time, and the family's
// products.
#include <CLI/CLI.hpp>
#include <ctime>

#include "common.hpp"
#include "ryn/tra.h"
#include "ryn/vok.h"
#include "output.hpp"

namespace ryn::cli {

namespace {

int version() {
    const uint32_t v = tra_get_version();
    const std::time_t built = static_cast<std::time_t>(tra_get_build_time());
    std::tm utc{};
    char when[32] = "unknown";
    if (gmtime_r(&built, &utc) != nullptr)
        std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S UTC", &utc);
    out() << "ryn " << version_text(v) << format(" (translator library 0x%08X)\n", v)
              << "built " << when << '\n'
              << "family " << (vok_get_family_name()[0] ? vok_get_family_name() : "-") << " ("
              << vok_get_family_source() << "):\n";
    for (int i = 0; i < vok_get_product_count(); ++i) {
        const uint32_t p = vok_get_product_code(i);
        if (vok_is_reserved_product(p)) continue;
        out() << format("  %-9s %s\n", product_name(p).c_str(), product_versions(p).c_str());
    }
    return exit_ok;
}

} // namespace

void add_version(CLI::App &app, int &exit_code) {
    app.add_subcommand("version",
                       "Show the library's version, build time and the family's products")
        ->callback([&exit_code] { exit_code = version(); });
}

} // namespace ryn::cli
