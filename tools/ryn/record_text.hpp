// Writing a command record as raw record text ("[MASK:..,GATE:..,CMD:..,REC:..,TYP:..,PAR:..]")
// and as hexadecimal bytes, for the translate subcommand.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ryn::cli {

// Raw record text of a record of `count` slots (the record holds at least 8 + 16 * count bytes);
// reading the text back with the translator gives the same bytes.
std::string raw_record_text(const uint8_t *record, int count, uint64_t mask);

// The record's bytes in hexadecimal: the header, then one group of 16 per slot, each group a
// line; lines after the first start with `indent`.
std::string record_hex(const uint8_t *record, int count, const std::string &indent);

// The same bytes as one run of hexadecimal digits (for machine-readable output).
std::string record_hex_compact(const uint8_t *record, int count);

} // namespace ryn::cli
