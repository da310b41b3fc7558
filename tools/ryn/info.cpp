// The info subcommand: the drives present on a bus, one line each.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "common.hpp"
#include "online.hpp"
#include "output.hpp"
#include "ryn/vok.h"

namespace ryn::cli {

namespace {

struct InfoOptions {
    std::string bus = "sim:";
    bool json = false;
};

std::string name_or_number(const char *name, uint32_t code) {
    return name != nullptr ? std::string(name) : format("0x%X", code);
}

char revision_letter(uint32_t revision) {
    return static_cast<char>('A' + revision % 26);
}

int info(const InfoOptions &o) {
    params::Bus bus;
    if (int rc = open_bus("info", o.bus, bus); rc >= 0) return rc;
    const std::vector<params::DriveIdentity> drives = bus.drives();
    if (o.json) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const params::DriveIdentity &d : drives) {
            nlohmann::ordered_json card = nullptr;
            if (d.ext != 0)
                card = {{"product", name_or_number(vok_get_ext_product_name(d.ext), d.ext)},
                        {"version", version_text(d.ext_version)},
                        {"serial", d.ext_serial},
                        {"boot_revision", std::string(1, revision_letter(d.ext_boot_revision))}};
            list.push_back({{"axis", d.axis},
                            {"product", name_or_number(vok_get_product_name(d.product), d.product)},
                            {"version", version_text(d.version)},
                            {"card", card},
                            {"serial", d.serial},
                            {"boot_revision", std::string(1, revision_letter(d.boot_revision))}});
        }
        write_json({{"bus", o.bus}, {"drives", list}});
        return exit_ok;
    }
    out() << format("%-5s %-9s %-8s %-16s %-8s %s\n", "AXIS", "PRODUCT", "VERSION", "CARD",
                    "SERIAL", "BOOT");
    for (const params::DriveIdentity &d : drives) {
        const std::string card = d.ext == 0
                                     ? "-"
                                     : name_or_number(vok_get_ext_product_name(d.ext), d.ext) +
                                           " " + version_text(d.ext_version);
        out() << format("%-5s %-9s %-8s %-16s %-8u %c\n", std::to_string(d.axis).c_str(),
                        name_or_number(vok_get_product_name(d.product), d.product).c_str(),
                        version_text(d.version).c_str(), card.c_str(), d.serial,
                        revision_letter(d.boot_revision));
    }
    if (drives.empty()) err() << "ryn info: no drive on bus '" << o.bus << "'\n";
    return drives.empty() ? exit_line_failed : exit_ok;
}

} // namespace

void add_info(CLI::App &app, int &exit_code) {
    auto o = std::make_shared<InfoOptions>();
    CLI::App *sub = app.add_subcommand("info", "List the drives present on a bus");
    add_bus_option(*sub, o->bus);
    sub->add_flag("--json", o->json, "Write the list as JSON");
    sub->footer("Examples:\n  ryn info\n  ryn info --bus 'sim:axes=0-1' --json\n"
                "  ryn info --bus tcp://127.0.0.1:7500");
    sub->callback([&exit_code, o] { exit_code = info(*o); });
}

} // namespace ryn::cli
