// Command records, and requests with their answers, written back as command text.
#include <algorithm>
#include <cstring>

#include "trar2a.hpp"

namespace ryn::tra {

namespace {

constexpr uint32_t MARKER_TAG = ELEMENT_REF_TAG_BIT; // slot 0 of element and list records

// Display format of a plain value of a tag's class: float or decimal.
int plain_format(uint32_t tag) {
    return is_float_class(value_class(tag)) ? VOK_FORMAT_FLOAT : VOK_FORMAT_DECIMAL;
}

// The value bytes of a slot as the formatters take them.
const uint8_t *slot_value(ConstRecordView record, int i) {
    return record.slot(i).value;
}

// The description of a register in the first addressed dictionary that has one.
const char *register_comment(const TRA *tra, uint64_t axis_mask, const RegisterAddress &reg) {
    const char *found = nullptr;
    for_each_axis_dictionary(*tra, axis_mask, [&](const VOK_DICT *d) {
        const char *c = vok_get_register_name(d, 2, reg.kind, reg.index, reg.subindex);
        if (c != nullptr && c[0] != '\0') found = c;
        return found != nullptr;
    });
    return found;
}

bool comments_wanted(const TRA *tra) {
    return (tra->call.flags & TRA_FDESCRIPTIONS) != 0;
}

// One register assignment form: its command code and the word of its comment; the operator's
// symbol is the wire module's.
struct Operation {
    int32_t code;
    const char *word;
};
constexpr Operation operations[] = {
    {CMD_SET, "set "},
    {CMD_SET_LIST, "setd "},
    {CMD_CONVERT, "convert "},
    {CMD_ADD, "add to "},
    {CMD_SUBTRACT, "substract from "},
    {CMD_MULTIPLY, "multiply "},
    {CMD_DIVIDE, "divide "},
    {CMD_AND, "bit and "},
    {CMD_OR, "bit or "},
    {CMD_AND_NOT, "bit and not "},
    {CMD_OR_NOT, "bit or not "},
    {CMD_XOR, "bit xor "},
    {CMD_XOR_NOT, "bit xor not "},
    {CMD_MODULO, "modulo "},
    {CMD_SHIFT_RIGHT, "shift right "},
    {CMD_SHIFT_LEFT, "shift left "},
    {CMD_INVERT, "bit invert "},
};

const Operation *find_operation(int32_t code) {
    for (const Operation &op : operations)
        if (op.code == code) return &op;
    return nullptr;
}

// Registers and answers of kind 18 and 19 are written as their raw values.
void write_raw_dump(Text &out, ConstRecordView record, int count, int first) {
    out.appendf("[%02X]", record.header().kind);
    for (int i = first; i < count; ++i) {
        const char sep = i == first ? '=' : ',';
        if (is_wide_class(value_class(record.tag(i))))
            out.appendf("%c%llx", sep, static_cast<unsigned long long>(record.value64(i)));
        else
            out.appendf("%c%x", sep, record.value32(i));
    }
}

// Format and conversion of the k-th value assigned to a register.
void assigned_value_format(const TRA *tra, uint64_t axis_mask, const RegisterAddress &dest,
                           uint32_t value_tag, int k, int32_t code, int *format, bool *convert) {
    *format = VOK_FORMAT_DECIMAL;
    *convert = false;
    const int plain = plain_format(value_tag);
    if (dest.kind == 1 && dest.index == VOK_WHOLE_TYPE) return;
    // Only the values of "=" and the additive operators are in the register's own units.
    if (is_compound(code) && !is_unit_assignment(code)) {
        *format = plain;
        return;
    }
    const uint32_t subindex = dest.subindex + static_cast<uint32_t>(k);
    for_each_axis_dictionary(*tra, axis_mask, [&](const VOK_DICT *d) {
        if (!vok_register_exists(d, dest.kind, dest.index, subindex)) return false;
        *format = vok_get_register_format(d, dest.kind, dest.index, subindex);
        *convert = vok_register_is_iso(d, dest.kind, dest.index, subindex) != 0;
        return true;
    });
    // A converted assignment holds a value of another class than the register's own format.
    if (code == CMD_CONVERT && !*convert) *format = plain;
}

} // namespace

int _tra_write_assignment(TRA *tra, Text &out, ConstRecordView record, int count,
                          uint64_t axis_mask, int32_t code, const char *symbol, const char *word,
                          bool string_form, bool ip_form) {
    if (count < 1) return 0;
    const RegisterAddress dest = command_register(record.tag(0), record.value32(0));
    _tra_format_register(tra, &out, static_cast<int64_t>(axis_mask), dest, 1, 3, nullptr, nullptr);
    if (symbol != nullptr) out.append(symbol);
    out.append('=');
    if (count < 2) return 0;
    const bool quoted = string_form || ip_form;
    if (quoted) out.append('"');
    for (int i = 1; i < count; ++i) {
        const uint32_t tag = record.tag(i);
        if (string_form) {
            _tra_format_string_chunk(out, record.value32(i));
            continue;
        }
        if (ip_form) {
            _tra_format_ip(out, record.value32(i));
            continue;
        }
        if (i > 1) out.append(',');
        if (is_register_tag(tag)) {
            _tra_format_register(tra, &out, 0, command_register(tag, record.value32(i)), 1, 0,
                                 nullptr, nullptr);
            continue;
        }
        int format;
        bool convert;
        assigned_value_format(tra, axis_mask, dest, tag, i - 1, code, &format, &convert);
        _tra_format_value(tra, out, value_class(tag), slot_value(record, i), convert, format,
                          axis_mask);
    }
    if (quoted) out.append('"');
    if (comments_wanted(tra)) {
        if (const char *c = register_comment(tra, axis_mask, dest)) {
            _tra_append_comment(tra, out, word, c);
        }
    }
    return 0;
}

int _tra_write_vector_assignment(TRA *tra, Text &out, ConstRecordView record, int count,
                                 uint64_t axis_mask, const char *symbol, const char *word) {
    // Slot 0 is the marker, slot 1 the element reference of the destination, then the values.
    if (count < 2) return 0;
    const uint32_t dest_tag = record.tag(1);
    const RegisterAddress dest = element_register(dest_tag, record.value64(1));
    const int matrix_form = list_tag_count(dest_tag);
    int rows = 1, columns = 1;
    _tra_format_register(tra, &out, static_cast<int64_t>(axis_mask), dest, matrix_form, 3, &rows,
                         &columns);
    if (symbol != nullptr) out.append(symbol);
    out.append('=');

    const int n = count > 2 ? list_tag_count(record.tag(2)) : 0;
    const int cols = std::max(columns, 1);
    bool outer = false, row = false;
    for (int i = 2, k = 0; i < count; ++i, ++k) {
        if (k == 0 && rows >= 2 && columns >= 2 && n > cols) {
            out.append('[');
            outer = true;
        }
        if (k > 0) {
            if (k % cols == 0 && row) {
                out.append(']');
                row = false;
            }
            out.append(',');
        }
        if (k % cols == 0 && n >= 2) {
            out.append('[');
            row = true;
        }
        const uint32_t tag = list_tag_own(record.tag(i));
        if (is_register_tag(tag)) {
            _tra_format_register(tra, &out, 0, element_value_register(tag, record.value64(i)), 1, 0,
                                 nullptr, nullptr);
        } else {
            _tra_format_value(tra, out, value_class(tag), slot_value(record, i), false,
                              plain_format(tag), axis_mask);
        }
    }
    if (row) out.append(']');
    if (outer) out.append(']');
    if (comments_wanted(tra)) {
        if (const char *c = register_comment(tra, axis_mask, dest)) {
            _tra_append_comment(tra, out, word, c);
        }
    }
    return 0;
}

int _tra_write_params(TRA *tra, Text &out, ConstRecordView record, int count, uint64_t axis_mask,
                      int32_t code, const char *name, const char *after_name,
                      const char *second_separator) {
    if (static_cast<int64_t>(axis_mask) < 0) out.append('*');
    if (name != nullptr)
        out.append(name);
    else
        out.appendf("@%d", code);
    _tra_format_axes(out, axis_mask);
    if (after_name != nullptr) out.append(after_name);

    const uint32_t command = static_cast<uint32_t>(code);
    bool vector = false;
    if (code >= 0)
        for_each_axis_dictionary(*tra, axis_mask, [&](const VOK_DICT *d) {
            vector = vector || vok_command_has_vector_params(d, command) != 0;
            return false;
        });

    if (vector) {
        // A list command: slot 0 is its marker; each value's tag carries its own tag in byte 0
        // and its position in byte 1, so a group begins where the position starts again at 0.
        int first = count > 0 && record.tag(0) == MARKER_TAG ? 1 : 0;
        out.append('=');
        int group = -1;
        bool bracket = false;
        for (int i = first; i < count; ++i) {
            const uint32_t tag = record.tag(i);
            const int position = list_tag_position(tag);
            if (group < 0 || position == 0) {
                if (bracket) out.append(']');
                if (group >= 0) out.append(',');
                ++group;
                bracket = false;
                for_each_axis_dictionary(*tra, axis_mask, [&](const VOK_DICT *d) {
                    bracket = vok_param_is_vector(d, command, group) != 0;
                    return bracket;
                });
                if (bracket) out.append('[');
            } else {
                out.append(',');
            }
            const uint32_t own = list_tag_own(tag);
            if (is_register_tag(own)) {
                _tra_format_register(tra, &out, 0, element_value_register(own, record.value64(i)),
                                     1, 0, nullptr, nullptr);
            } else {
                _tra_format_value(tra, out, value_class(own), slot_value(record, i), false,
                                  plain_format(own), axis_mask);
            }
        }
        if (bracket) out.append(']');
    } else {
        for (int i = 0; i < count; ++i) {
            if (i == 0)
                out.append('=');
            else if (i == 1 && second_separator != nullptr)
                out.append(second_separator);
            else
                out.append(',');
            const uint32_t tag = record.tag(i);
            if (is_register_tag(tag)) {
                _tra_format_register(tra, &out, 0, command_register(tag, record.value32(i)), 1, 0,
                                     nullptr, nullptr);
                continue;
            }
            int format = VOK_FORMAT_DECIMAL;
            bool convert = false;
            if (name != nullptr && code >= 0)
                for_each_axis_dictionary(*tra, axis_mask, [&](const VOK_DICT *d) {
                    int f = vok_get_param_format(d, command, i);
                    if (f == 0) return false;
                    format = f;
                    convert = vok_get_param_is_iso(d, command, i) != 0;
                    return true;
                });
            _tra_format_value(tra, out, value_class(tag), slot_value(record, i), convert, format,
                              axis_mask);
        }
    }

    if (comments_wanted(tra) && code >= 0) {
        const char *found = nullptr;
        for_each_axis_dictionary(*tra, axis_mask, [&](const VOK_DICT *d) {
            const char *c = vok_get_command_name(d, 2, command);
            if (c != nullptr && c[0] != '\0') found = c;
            return found != nullptr;
        });
        if (found != nullptr) _tra_append_comment(tra, out, nullptr, found);
    }
    return 0;
}

int _tra_rec2asc_exec(TRA *tra, char *text, const TRA_RECORD *record, uint64_t axis_mask,
                      int size) {
    static constexpr Tracer t{"trar2a", "_tra_rec2asc_exec"};
    if (tra == nullptr || record == nullptr || text == nullptr || size < 1)
        return t.fail(__LINE__, TRA_EBADPARAM);
    Text out(text, size);
    const ConstRecordView rec = view(record);
    const int count = readable_slots(rec);
    const uint8_t kind = rec.header().kind;
    const int32_t command = rec.header().command;

    int32_t code;
    if (kind == REC_DOLLAR) {
        out.append('$');
        code = -1;
    } else if (kind == REC_READ || kind == REC_VECTOR_READ) {
        write_raw_dump(out, rec, count, kind == REC_VECTOR_READ ? 1 : 0);
        return 0;
    } else if (const KindCommand c = command_of(kind, command); c.carries) {
        if (c.bang) out.append('!');
        code = c.code;
    } else {
        out.appendf("[%02X]", kind);
        return 0;
    }

    int rc;
    if (const Operation *op = find_operation(code)) {
        bool string_form = false, ip_form = false;
        if (code == CMD_SET_LIST && count > 0) {
            // A string or address register assigned over several elements comes back whole,
            // unless another register stands among the values.
            const RegisterAddress dest = command_register(rec.tag(0), rec.value32(0));
            for_each_axis_dictionary(*tra, axis_mask, [&](const VOK_DICT *d) {
                int f = vok_get_register_format(d, dest.kind, dest.index, 0);
                string_form = string_form || f == VOK_FORMAT_STRING;
                ip_form = ip_form || f == VOK_FORMAT_IP;
                return false;
            });
            for (int i = 1; i < count; ++i)
                if (is_register_tag(rec.tag(i))) string_form = ip_form = false;
            if (string_form) ip_form = false;
        }
        rc = _tra_write_assignment(tra, out, rec, count, axis_mask, code, compound_symbol(code),
                                   op->word, string_form, ip_form);
    } else if (code == CMD_ELEMENT_ASSIGN) {
        rc = _tra_write_vector_assignment(tra, out, rec, count, axis_mask, nullptr, "set ");
    } else if (code == CMD_STEP) {
        rc = _tra_write_params(tra, out, rec, count, axis_mask, code, "STE", nullptr, nullptr);
    } else if (code == CMD_STEP_ADD || code == CMD_STEP_SUBTRACT) {
        rc = _tra_write_params(tra, out, rec, count, axis_mask, code, "STE",
                               compound_symbol(code == CMD_STEP_ADD ? CMD_ADD : CMD_SUBTRACT),
                               nullptr);
    } else {
        const LookupEntry *alias =
            _tra_find_alias(tra->commands, tra->command_aliases, COMMAND_TYPE,
                            static_cast<uint32_t>(code), axis_mask);
        rc = _tra_write_params(tra, out, rec, count, axis_mask, code,
                               alias != nullptr ? alias->name : nullptr, nullptr, nullptr);
    }
    return rc == 0 ? 0 : t.pass(__LINE__, rc);
}

int _tra_rec2asc2_exec(TRA *tra, char *text, const TRA_RECORD *request, const TRA_RECORD *answer,
                       uint64_t axis_mask, int size) {
    static constexpr Tracer t{"trar2a", "_tra_rec2asc2_exec"};
    if (tra == nullptr || request == nullptr || answer == nullptr || text == nullptr || size < 1)
        return t.fail(__LINE__, TRA_EBADPARAM);
    if (_tra_single_axis(axis_mask) < 0)
        return t.fail(__LINE__, TRA_EBADPARAM, "the axis mask must name exactly one axis");
    const ConstRecordView q = view(request);
    const ConstRecordView a = view(answer);
    const uint8_t kind = q.header().kind;
    if (a.header().kind != kind)
        return t.fail(__LINE__, TRA_EBADPARAM, "the answer is of another record kind");
    const int nq = readable_slots(q);
    const int na = readable_slots(a);
    const int64_t mask = static_cast<int64_t>(axis_mask);
    const VOK_DICT *dict = tra->axis_dicts[_tra_single_axis(axis_mask)];
    Text out(text, size);

    if (kind == REC_VECTOR_READ || kind == REC_ELEMENTS) {
        if (na != nq)
            return t.fail(__LINE__, TRA_EBADPARAM, "the answer holds another number of values");
        for (int i = 1; i < nq; ++i)
            if (is_register_tag(q.tag(i)) && value_class(a.tag(i)) != value_class(q.tag(i)))
                return t.fail(__LINE__, TRA_EBADPARAM, "an answer value is of another class");
        // Consecutive elements of one register are written as one list of its values.
        bool first_register = true;
        for (int i = 1; i < nq;) {
            if (!is_register_tag(q.tag(i))) {
                ++i;
                continue;
            }
            const RegisterAddress reg = element_register(q.tag(i), q.value64(i));
            if (!first_register) out.append(',');
            first_register = false;
            int rows = 1, columns = 1;
            _tra_format_register(tra, &out, mask, reg, 1, 3, &rows, &columns);
            const int cols = std::max(columns, 1);
            out.append('=');
            if (rows > 1) out.append('[');
            int k = 0;
            for (; i < nq && is_register_tag(q.tag(i)); ++i, ++k) {
                const RegisterAddress e = element_register(q.tag(i), q.value64(i));
                if (e.kind != reg.kind || e.index != reg.index) break;
                if (k > 0) {
                    if (k % cols == 0) out.append(']');
                    out.append(',');
                }
                if (k % cols == 0) out.append('[');
                const uint32_t cls = value_class(a.tag(i));
                _tra_format_value(tra, out, cls, slot_value(a, i), false,
                                  is_float_class(cls) ? VOK_FORMAT_FLOAT : VOK_FORMAT_HEX,
                                  axis_mask);
            }
            out.append(']');
            if (rows > 1) out.append(']');
        }
    } else {
        if (na < nq)
            return t.fail(__LINE__, TRA_EBADPARAM, "the answer holds fewer values than asked");
        if (nq == 0) return 0;
        const RegisterAddress first = command_register(q.tag(0), q.value32(0));
        bool same = true;
        for (int i = 1; i < nq && same; ++i) {
            const RegisterAddress r = command_register(q.tag(i), q.value32(i));
            same = r.kind == first.kind && r.index == first.index;
        }
        const int format = dict != nullptr && vok_register_exists(dict, first.kind, first.index, 0)
                               ? vok_get_register_format(dict, first.kind, first.index, 0)
                               : VOK_FORMAT_DECIMAL;
        if (same && (format == VOK_FORMAT_STRING || format == VOK_FORMAT_IP)) {
            _tra_format_register(tra, &out, mask, first, 1, 3, nullptr, nullptr);
            out.append("=\"");
            for (int i = 0; i < nq; ++i) {
                if (format == VOK_FORMAT_IP) {
                    _tra_format_ip(out, a.value32(i));
                } else if (!_tra_format_string_chunk(out, a.value32(i))) {
                    break; // a zero byte ends the string
                }
            }
            out.append('"');
        } else {
            bool written = false;
            for (int i = 0; i < nq; ++i) {
                if (!is_register_tag(q.tag(i))) continue;
                const RegisterAddress r = command_register(q.tag(i), q.value32(i));
                if (written) out.append(',');
                written = true;
                _tra_format_register(tra, &out, mask, r, 1, REG_AXIS_FROM_MASK, nullptr, nullptr);
                out.append('=');
                int f = VOK_FORMAT_DECIMAL;
                bool convert = false;
                if (dict != nullptr && vok_register_exists(dict, r.kind, r.index, r.subindex)) {
                    f = vok_get_register_format(dict, r.kind, r.index, r.subindex);
                    convert = vok_register_is_iso(dict, r.kind, r.index, r.subindex) != 0;
                }
                _tra_format_value(tra, out, value_class(a.tag(i)), slot_value(a, i), convert, f,
                                  axis_mask);
            }
        }
    }

    if (comments_wanted(tra) && nq > 0) {
        int i = kind == REC_VECTOR_READ || kind == REC_ELEMENTS ? 1 : 0;
        if (i < nq) {
            const RegisterAddress reg = i == 0 ? command_register(q.tag(0), q.value32(0))
                                               : element_register(q.tag(i), q.value64(i));
            if (const char *c = register_comment(tra, axis_mask, reg))
                _tra_append_comment(tra, out, nullptr, c);
        }
    }
    return 0;
}

int _tra_rec2asc_ex(TRA *tra, char *text, const TRA_RECORD *record, uint64_t axis_mask, int size) {
    static constexpr Tracer t{"trar2a", "_tra_rec2asc_ex"};
    if (tra == nullptr) return t.fail(__LINE__, TRA_EBADPARAM);
    return in_session(*tra, t, __LINE__,
                      [&] { return _tra_rec2asc_exec(tra, text, record, axis_mask, size); });
}

int _tra_rec2asc2_ex(TRA *tra, char *text, const TRA_RECORD *request, const TRA_RECORD *answer,
                     uint64_t axis_mask, int size) {
    static constexpr Tracer t{"trar2a", "_tra_rec2asc2_ex"};
    if (tra == nullptr) return t.fail(__LINE__, TRA_EBADPARAM);
    return in_session(*tra, t, __LINE__, [&] {
        return _tra_rec2asc2_exec(tra, text, request, answer, axis_mask, size);
    });
}

} // namespace ryn::tra
