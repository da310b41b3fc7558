/* Translation entry points the tool calls, declared weak until the translator library exports
 * them: a library without them still links, and the tool says that it cannot translate. */
#pragma once

#include "ryn/tra.h"

extern "C" {
int tra_oxcom_translate_cmd_from_ascii_ex(TRA *tra, TRA_RECORD *record, uint32_t capacity,
                                          uint32_t *count, uint64_t *axis_mask, const char *text)
    __attribute__((weak));
int tra_oxcom_translate_cmd_to_ascii_ex(TRA *tra, const TRA_RECORD *record, uint64_t axis_mask,
                                        char *text, int size) __attribute__((weak));
}
