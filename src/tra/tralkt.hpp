// Dictionary sets of a translator and its lookup tables of register aliases and command names.
#pragma once

#include "traopn.hpp"

namespace ryn::tra {

// The drive products whose names every translator's tables hold, in ascending order.
inline constexpr uint32_t GENERIC_PRODUCTS[] = {1,  25, 32, 33, 34, 35, 36, 37, 38,
                                                39, 40, 41, 42, 43, 48, 49, 50, 51};

// Finds or opens the dictionary set of a drive configuration; strict refuses an unknown version.
int _tra_get_td(TRA *tra, TRA_TD **out, uint32_t product, uint32_t version, uint32_t ext_product,
                uint32_t ext_version, uint8_t strict);

// The entry of a name in a table sorted by _tra_name_compare (the first of equal names), or null.
const LookupEntry *_tra_find_name(const std::vector<LookupEntry> &table, const char *name);

} // namespace ryn::tra
