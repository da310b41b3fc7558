// Record to text: the bounded text writer, the value and register formatters and the writers of
// command records, requests and answers as command text.
#pragma once

#include <cstddef>
#include <cstdint>

#include "record.hpp"
#include "traopn.hpp"

namespace ryn::tra {

// Size of the text of one command line written from a record, terminator included.
inline constexpr int REC_TEXT_SIZE = 1024;

// A text written into a caller's fixed buffer. Every append is cut at the buffer's end, so nothing
// is ever written past it and the text stays terminated; cut() tells whether anything was lost.
class Text {
  public:
    // Starts an empty text in buffer (size characters, terminator included).
    Text(char *buffer, int size);
    // Continues the text already in buffer, after its terminator-bounded content.
    static Text at_end(char *buffer, int size);

    int length() const { return length_; }
    const char *c_str() const { return length_ == 0 && size_ <= 0 ? "" : buffer_; }
    bool cut() const { return cut_; }

    void append(const char *s);
    void append(const char *s, int n);
    void append(char c);
    void appendf(const char *format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;
    // Whether the text ends with s.
    bool ends_with(const char *s) const;
    // Shortens the text to n characters (no effect when it is not longer).
    void truncate(int n);

  private:
    char *buffer_;
    int size_;
    int length_ = 0;
    bool cut_ = false;
};

// ---- Register references ----

// A register as a record slot names it, decoded from one of the two layouts on the wire.
struct RegisterAddress {
    uint32_t kind;       // type code with value class, 0..127
    uint32_t word;       // the first 32-bit word of the slot value as it stands
    uint32_t index;      // register index
    uint32_t subindex;   // element (element layout) or first subscript (command layout)
    uint32_t axis;       // 7-bit axis field: 0..62, 63 broadcast, 64 the "!" form
    bool element_number; // subindex is row * columns + column (element references)
};

// A register reference of a command slot: 16-bit index, 8-bit first subscript, 7-bit axis field.
RegisterAddress command_register(uint32_t tag, uint32_t word);
// An element reference (kinds 19, 30, 38): 24-bit index, 24-bit element number, no axis.
RegisterAddress element_register(uint32_t tag, uint64_t value);
// A register given as a value of a list: 24-bit index, 24-bit row subscript, 7-bit axis field.
RegisterAddress element_value_register(uint32_t tag, uint64_t value);

// Options of _tra_format_register.
inline constexpr int REG_AXIS_FROM_MASK = 1;  // axis marker and suffix come from the given mask
inline constexpr int REG_NO_ZERO_ELEMENT = 2; // no ":0" / "[0]" for multi-element registers

// ---- Formatters (each appends to the text) ----

// A double in engineering notation with `digits` significant digits, or with 20 decimals under
// the full-precision flag.
void _tra_format_double(const TRA *tra, Text &out, double value, int digits);
// One value by its class (0x00, 0x20, 0x40, 0x60) and display format, through the ISO converter
// when convert is set and the translator asks for it.
void _tra_format_value(TRA *tra, Text &out, uint32_t value_class, const uint8_t value[8],
                       bool convert, int format, uint64_t axis_mask);
// An IP address, most significant byte first: "192.168.0.1".
void _tra_format_ip(Text &out, uint32_t value);
// Up to four characters of a string element, lowest byte first; false when a zero byte ended it.
bool _tra_format_string_chunk(Text &out, uint32_t value);
// A register name with its subscript and axis suffix; reports the register's rows and columns.
int _tra_format_register(TRA *tra, Text *out, int64_t axis_mask, const RegisterAddress &reg,
                         int matrix_form, int options, int *rows, int *columns);
// The axis suffix of a mask: ".3", ".(0,2)", ".!" or nothing; bit 63 is never written.
void _tra_format_axes(Text &out, uint64_t axis_mask);
// The axis of a mask with exactly one bit set, else -1.
int _tra_single_axis(uint64_t axis_mask);
// First entry of a table (in table order) with this type and index whose axes meet the mask, null
// when none; found through the table's index by type and index.
const LookupEntry *_tra_find_alias(const std::vector<LookupEntry> &table, const AliasIndex &index,
                                   uint32_t kind, uint32_t register_index, uint64_t axis_mask);
// Appends a dictionary comment: the comment column alignment, "; ", the word and the text.
void _tra_append_comment(const TRA *tra, Text &out, const char *word, const char *comment);

// ---- Record to text ----

// Writes a command record as command text (the caller holds the lookup lock).
int _tra_rec2asc_exec(TRA *tra, char *text, const TRA_RECORD *record, uint64_t axis_mask,
                      int size = REC_TEXT_SIZE);
// Writes a request record with its answer as "register=values" (the caller holds the lock).
int _tra_rec2asc2_exec(TRA *tra, char *text, const TRA_RECORD *request, const TRA_RECORD *answer,
                       uint64_t axis_mask, int size = REC_TEXT_SIZE);
// _tra_rec2asc_exec under the lookup lock, tables rebuilt first when stale.
int _tra_rec2asc_ex(TRA *tra, char *text, const TRA_RECORD *record, uint64_t axis_mask,
                    int size = REC_TEXT_SIZE);
// _tra_rec2asc2_exec under the lookup lock, tables rebuilt first when stale.
int _tra_rec2asc2_ex(TRA *tra, char *text, const TRA_RECORD *request, const TRA_RECORD *answer,
                     uint64_t axis_mask, int size = REC_TEXT_SIZE);

// Writers of the record forms; record is a view of a record with `count` readable slots.
int _tra_write_assignment(TRA *tra, Text &out, ConstRecordView record, int count,
                          uint64_t axis_mask, int32_t code, const char *symbol, const char *word,
                          bool string_form, bool ip_form);
int _tra_write_vector_assignment(TRA *tra, Text &out, ConstRecordView record, int count,
                                 uint64_t axis_mask, const char *symbol, const char *word);
int _tra_write_params(TRA *tra, Text &out, ConstRecordView record, int count, uint64_t axis_mask,
                      int32_t code, const char *name, const char *after_name,
                      const char *second_separator);

// Slots of a record that may be read: its count byte, never more than a record can hold.
inline int readable_slots(ConstRecordView record) {
    int n = record.header().count;
    return n > TRA_RECORD_MAX_SLOTS ? TRA_RECORD_MAX_SLOTS : n;
}

} // namespace ryn::tra
