// Text to record: the parse context shared by the tokenizer, the parser, validation and the
// builder.
#pragma once

#include <cstdint>
#include <cstring>

#include "record.hpp"
#include "traopn.hpp"

namespace ryn::tra {

inline constexpr int MAX_TOKENS = 64;   // tokens a line may have
inline constexpr int MAX_OPERANDS = 65; // room for string expansion of a 64-token line
inline constexpr int TOKEN_TEXT = 65;   // 64 characters and the terminator

// Type tags of a token beside the register kind words (1..127 with a non-zero type code).
inline constexpr int32_t TAG_NAME = -1; // a command name or other word, not (yet) resolved
inline constexpr int32_t TAG_ISO = -2;  // a number meant in ISO units, converted before writing
inline constexpr int32_t TAG_INT32 = CLASS_INT32;
inline constexpr int32_t TAG_FLOAT = CLASS_FLOAT;
inline constexpr int32_t TAG_INT64 = CLASS_INT64;
inline constexpr int32_t TAG_DOUBLE = CLASS_DOUBLE;

// Axis field values of a token beside 0..62.
inline constexpr uint8_t AXIS_BROADCAST = 63; // ":*", "*"
inline constexpr uint8_t AXIS_ALL = 64;       // ".!"

// Context flag: the line names no axis at all (no ".", ".%", "*", ":*").
inline constexpr uint32_t CTX_NO_AXIS = 64;

// One token of a command line: a name, a register, a literal or a list value (an operand).
struct Token {
    char text[TOKEN_TEXT];  // as written (upper case); a string keeps its double quotes
    uint32_t separator;     // separator code in front of it, 0 for the first token
    int32_t type;           // register kind word, a TAG_..., or -2 for an unknown register type
    uint32_t index;         // register index (VOK_WHOLE_TYPE: the whole type) or command number
    uint8_t axis;           // 7-bit axis field: 0..62, AXIS_BROADCAST, AXIS_ALL
    uint8_t row_given;      // a row (first) subscript was written
    uint8_t column_given;   // a column subscript was written
    uint8_t negative;       // the value was written with a leading "-" after its separator
    uint32_t row;           // first subscript: element of a vector, row of a matrix
    uint32_t column;        // second subscript: column of a matrix
    int16_t list_row;       // position of the row in a "=[[" list, -1 outside a list
    int16_t list_column;    // position of the value in its row, -1 outside a list
    uint8_t opens_row;      // "[" of a row stands in front of this value
    uint8_t closes_row;     // "]" of a row follows this value
    uint8_t opens_list;     // "[[" of the whole list stands in front of this value
    uint8_t closes_list;    // "]]" of the whole list follows this value
    uint8_t whole;          // a name left whole: resolved later as a register alias or command
    uint8_t listed;         // a value of a command that takes a list: group below applies
    uint8_t group;          // parameter group of a list value (a bracketed row or a lone value)
    unsigned char value[8]; // literal value, little-endian; 32-bit tags use the first 4 bytes

    int32_t i32() const {
        int32_t v;
        std::memcpy(&v, value, 4);
        return v;
    }
    int64_t i64() const {
        int64_t v;
        std::memcpy(&v, value, 8);
        return v;
    }
    float f32() const {
        float v;
        std::memcpy(&v, value, 4);
        return v;
    }
    double f64() const {
        double v;
        std::memcpy(&v, value, 8);
        return v;
    }
    template <class T>
    void set(T v) {
        static_assert(sizeof(T) == 4 || sizeof(T) == 8);
        std::memset(value, 0, sizeof value);
        std::memcpy(value, &v, sizeof v);
    }
    // A register reference: a kind word above 0 with a non-zero type code.
    bool is_register() const { return type > 0 && is_register_tag(static_cast<uint32_t>(type)); }
    // Parameter position of the operand k places after the first argument: its group in a list.
    int param(int k) const { return listed ? group : k; }
    // A plain value: a literal whose type code is 0.
    bool is_value() const { return type >= 0 && !is_register_tag(static_cast<uint32_t>(type)); }
    // Value class of the token's tag (for TAG_ISO that of a double).
    uint32_t value_class() const { return wire::value_class(static_cast<uint32_t>(type)); }
};

// A parsed command line.
struct ParseContext {
    uint8_t bracketed;   // "[...]" form: validation skips the dictionary checks
    uint8_t bang;        // the line began with "!"
    uint8_t list_rows;   // "=[" opened a one-level list
    uint8_t list_matrix; // "=[[" opened a two-level list
    uint32_t flags;      // CTX_...
    uint64_t axis_mask;  // axes the line names, 0 when it names none
    int32_t count;       // tokens (operands) in use
    Token tokens[MAX_OPERANDS];
};

// ---- Tokenizer and parser ----

// Cleans a command line into out: a comment (";", "#", "//", even inside quotes) ends it, blanks
// outside quotes are dropped, letters become upper case, a leading "*:" becomes ":*". Returns the
// length kept, or TRA_EBUFSIZE when out (out_size bytes) cannot hold it.
int _tra_clean_line(const char *text, char *out, std::size_t out_size);
// Reads a cleaned line of the form "[MASK:m,GATE:g,CMD:c,REC:r,TYP:t,PAR:p,...]" into a record of
// `capacity` slots; TRA_ECMDSYNTAX (untraced, nothing written) when the line is no such record.
// A line with every key whose value is no number or does not fit its field is refused with a
// trace (TRA_ERANGE, or TRA_ECMDSYNTAX with *refused_out set) and nothing written.
int _tra_parse_raw_record(const char *line, TRA_RECORD *record, int32_t capacity,
                          int32_t *count_out, uint64_t *mask_out, bool *refused_out = nullptr);

// Cuts a cleaned line (after "[" for the bracketed form) into the context's tokens; every field
// but the bracketed flag is set anew, and flag CTX_NO_AXIS marks a line that names no axis.
int _tra_parse_asc_cmd(TRA *tra, ParseContext *ctx, char *text);
// Classifies every token: numbers, strings, addresses, special words, register names.
int _tra_parse_std_tokens(TRA *tra, ParseContext *ctx);
// Converts the ISO values among the operands from p on into drive units through the translator's
// ISO converter, on every addressed axis (cmd: the command number the builder chose).
int _tra_parse_floating_numbers(TRA *tra, ParseContext *ctx, int p, int32_t cmd);

// ---- Validation (p: first operand of the command's arguments; cmd: command number or marker) ----

// Command number markers passed to validation only.
inline constexpr int32_t CMD_READ_LIST = -1;   // a register read list
inline constexpr int32_t CMD_VECTOR_READ = -2; // a vector register read

// Stretches a string register's operands to its length (assignment or read).
int _tra_expand_string_register(TRA *tra, ParseContext *ctx, int p, int32_t cmd);
// Checks the text of an address value for a register that holds an IP address.
int _tra_check_ip(TRA *tra, ParseContext *ctx, int p, int32_t cmd);
// Checks the operands' value classes against each other.
int _tra_check_types(TRA *tra, ParseContext *ctx, int p, int32_t cmd);
// Checks the command against the addressed axes' dictionaries.
int _tra_check_everything(TRA *tra, ParseContext *ctx, int p, int32_t cmd);
// Checks a value against a register element's enumeration (parent -1 at the top).
int _tra_check_reg_enum(const VOK_DICT *dict, const unsigned char value[8], int enumeration,
                        int count, int parent, uint32_t kind, uint32_t index, uint32_t subindex);
// Checks a value against a command parameter's enumeration (parent -1 at the top).
int _tra_check_cmd_enum(const VOK_DICT *dict, const unsigned char value[8], int enumeration,
                        int count, int parent, uint32_t command, int param);

// ---- Record builder ----

// Translates one line under the lookup lock (rebuilding stale tables first).
int _tra_asc2rec_ex(TRA *tra, const char *text, TRA_RECORD *record, int32_t capacity,
                    int32_t filter_count, const uint8_t *filter_types, int32_t *count_out,
                    uint64_t *mask_out);
// Translates one line; the caller holds the lookup lock.
int _tra_asc2rec_exec(TRA *tra, const char *text, TRA_RECORD *record, int32_t capacity,
                      int32_t filter_count, const uint8_t *filter_types, int32_t *count_out,
                      uint64_t *mask_out);

} // namespace ryn::tra
