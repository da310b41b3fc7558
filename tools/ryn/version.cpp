// The version subcommand: the translator library's version and build time, and the family's
// products.
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <ctime>
#include <string>

#include "common.hpp"
#include "ryn/tra.h"
#include "ryn/vok.h"
#include "output.hpp"

namespace ryn::cli {

namespace {

// When this file was compiled, as "YYYY-MM-DD HH:MM:SS" (the compiler's local time).
std::string tool_build_date() {
    static const char *const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::string date = __DATE__; // "Nov 23 2025"
    int month = 0;
    for (int m = 0; m < 12; ++m)
        if (date.compare(0, 3, months[m]) == 0) month = m + 1;
    const int day = std::atoi(date.c_str() + 4);
    return format("%s-%02d-%02d %s", date.substr(7).c_str(), month, day, __TIME__);
}

int version() {
    const uint32_t v = tra_get_version();
    const std::time_t built = static_cast<std::time_t>(tra_get_build_time());
    std::tm utc{};
    char when[32] = "unknown";
    if (gmtime_r(&built, &utc) != nullptr)
        std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S UTC", &utc);
    out() << "ryn " << version_text(v) << format(" (translator library 0x%08X)\n", v)
          << "library build stamp " << when
          << " (a fixed value the library reports, not the date it was built)\n"
          << "tool built " << tool_build_date() << '\n'
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
    CLI::App *sub = app.add_subcommand(
        "version", "Show the library's version, the tool's build date and the family's products");
    sub->footer("Examples:\n  ryn version\n  ryn --version");
    sub->callback([&exit_code] { exit_code = version(); });
}

} // namespace ryn::cli
