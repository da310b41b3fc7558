// Hand-filled name tables of a translator for the record-to-text tests.
#pragma once

#include <cstring>
#include <utility>

#include "traopn.hpp"

namespace ryn::test {

// Type names as the ORAX family has them ("??" elsewhere), the aliases POS_KP (K1 on every axis)
// and CTRL_K7 (K7 on axis 63 only), and the commands PWR (124) and STE (129).
inline void fill_test_tables(TRA *tra) {
    using namespace ryn::tra;
    for (auto &name : tra->type_names)
        std::strcpy(name, "??");
    const std::pair<int, const char *> types[] = {
        {1, "X"},   {33, "XF"}, {65, "XL"}, {97, "XD"}, {2, "K"},   {34, "KF"}, {66, "KL"},
        {98, "KD"}, {3, "M"},   {7, "A"},   {15, "V"},  {47, "VF"}, {16, "T"},  {48, "TF"}};
    for (auto [code, name] : types)
        std::strcpy(tra->type_names[code], name);
    tra->registers = {
        {"POS_KP", 1, 2, ~0ull, 0, 0},
        {"OTHER_K1", 1, 2, 0x2, 0, 0}, // later entry, never chosen while POS_KP matches
        {"CTRL_K7", 7, 2, 1ull << 63, 0, 0},
    };
    tra->commands = {{"PWR", 124, COMMAND_TYPE, ~0ull, 0, 0},
                     {"STE", 129, COMMAND_TYPE, ~0ull, 0, 0}};
    tra->register_aliases.build(tra->registers);
    tra->command_aliases.build(tra->commands);
    tra->built_generation = tra->generation.load(); // fresh: no session rebuilds them
    ryn::tra::_tra_take_settings(tra);
}

// Sets the flags and takes them (with the ISO converter) as a call's settings, for tests that
// call the writers without a lookup session.
inline void use_flags(TRA *tra, uint32_t flags) {
    tra->flags = flags;
    ryn::tra::_tra_take_settings(tra);
}

} // namespace ryn::test
