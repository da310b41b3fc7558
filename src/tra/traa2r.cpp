// The record builder: one line of command text to one command record, its axis mask and count.
#include "traa2r.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "record.hpp"
#include "traa2r_tokens.hpp"
#include "tralkt.hpp"

namespace ryn::tra {

namespace {

constexpr uint64_t ALL_AXES = ~uint64_t(0);
constexpr uint32_t XAC_INDEX = 65535;

// The separator code of each compound operator's text (its symbol and "="), in the order of the
// wire module's operator table.
constexpr auto OPERATOR_SEPARATORS = [] {
    std::array<uint32_t, std::size(COMPOUND_OPERATORS)> codes{};
    for (std::size_t i = 0; i < codes.size(); ++i) {
        char text[4] = {};
        std::size_t n = 0;
        for (const char *c = COMPOUND_OPERATORS[i].symbol; *c != 0 && n < 2; ++c)
            text[n++] = *c;
        text[n] = '=';
        codes[i] = sep(text);
    }
    return codes;
}();
static_assert(OPERATOR_SEPARATORS[0] == sep("+=") && OPERATOR_SEPARATORS[6] == sep("&~="));

bool is_list_open(uint32_t s) {
    return s == sep("=") || s == sep("=[") || s == sep("=[[");
}

bool is_list_separator(uint32_t s) {
    constexpr uint32_t allowed[] = {sep(","),   sep(",["),  sep(",[["),  sep("],"),
                                    sep("]],"), sep("],["), sep("],[["), sep("]],[")};
    return std::find(std::begin(allowed), std::end(allowed), s) != std::end(allowed);
}

// What the builder learned about the line's shape.
struct Form {
    int32_t command = 0; // command number, or a marker for validation (-1, -2, 1537)
    int first = 0;       // index of the first token that becomes a slot
    enum Kind {
        command_or_assignment,
        element_assignment,
        list_command,
        read_list,
        vector_read
    } kind = command_or_assignment;
};

// The line in the builder's own buffer: on the stack for ordinary lines, on the heap for long ones.
class LineCopy {
  public:
    char *get(std::size_t size) {
        if (size <= stack_.size()) return stack_.data();
        heap_.reset(new (std::nothrow) char[size]);
        return heap_.get();
    }

  private:
    std::array<char, 1024> stack_;
    std::unique_ptr<char[]> heap_;
};

struct Builder {
    TRA &tra;
    ParseContext &ctx;
    const Tracer &t;
    std::array<uint8_t, MAX_OPERANDS> command_name{}; // token resolved as a command name

    Token &token(int i) { return ctx.tokens[i]; }

    bool is_command(int i) { return command_name[static_cast<std::size_t>(i)] != 0; }

    // The axes a line that names none is sent to: the stream's axes while a stream runs, else all,
    // narrowed to the present axes.
    uint64_t default_axes() const {
        uint64_t mask = ALL_AXES;
        uint64_t download = tra.download_axis_mask;
        if ((tra.call.flags & TRA_FDOWNLOAD_AXES) != 0 && download != 0) mask = download;
        uint64_t present = tra.present_axes;
        return present != 0 ? mask & present : mask;
    }

    // Register aliases, then command names, for every token whose name was left whole.
    void resolve_names() {
        for (int pass = 0; pass < 2; ++pass) {
            const std::vector<LookupEntry> &table = pass == 0 ? tra.registers : tra.commands;
            for (int i = 0; i < ctx.count; ++i) {
                Token &tok = token(i);
                if (tok.whole == 0) continue;
                const LookupEntry *e = _tra_find_name(table, tok.text);
                if (e == nullptr) continue;
                if (i == 0) {
                    // While a stream gives the default axes, the alias must hold on all of them.
                    uint64_t tested =
                        (tra.call.flags & TRA_FDOWNLOAD_AXES) != 0 ? default_axes() : ctx.axis_mask;
                    if (tested != 0 && (tested & ~e->axes) != 0) continue;
                }
                tok.whole = 0;
                tok.type = static_cast<int32_t>(e->type);
                tok.index = e->index;
                command_name[static_cast<std::size_t>(i)] = pass == 1;
                ctx.axis_mask &= e->axes;
            }
        }
    }

    // Whether any addressed axis's dictionary marks a command as taking a list.
    bool takes_list(int32_t command) {
        bool list = false;
        for_each_axis_dictionary(tra, ctx.axis_mask, [&](const VOK_DICT *d) {
            list = vok_command_has_vector_params(d, static_cast<uint32_t>(command)) != 0;
            return list;
        });
        return list;
    }

    int syntax(int line, int i) { return t.fail(line, TRA_ECMDSYNTAX, token(i).text); }

    // Chooses the record form from the shape of the tokens.
    int select(Form &f) {
        const int n = ctx.count;
        Token &t0 = token(0);
        if (t0.separator != 0) return syntax(__LINE__, 0);
        const uint32_t s1 = n > 1 ? token(1).separator : 0;
        const bool reg0 = t0.is_register();
        // A command by name, or by number as "@N".
        const bool command =
            is_command(0) || (t0.type == TAG_NAME && std::strcmp(t0.text, "@") == 0);

        if (reg0 && vok_is_vector_kind(static_cast<uint32_t>(t0.type)) && n >= 2) {
            if (!is_list_open(s1)) return syntax(__LINE__, 1);
            f = {CMD_ELEMENT_ASSIGN, 0, Form::element_assignment};
            return 0;
        }
        if (t0.type == 1 && t0.index == XAC_INDEX && s1 == sep("=") && n == 3)
            return syntax(__LINE__, 0);
        if (n == 2 && command && t0.index == CMD_STEP) {
            if (s1 == sep("="))
                f = {CMD_STEP, 1, Form::command_or_assignment};
            else if (s1 == sep("+="))
                f = {CMD_STEP_ADD, 1, Form::command_or_assignment};
            else if (s1 == sep("-="))
                f = {CMD_STEP_SUBTRACT, 1, Form::command_or_assignment};
            else
                return syntax(__LINE__, 1);
            return 0;
        }
        if (reg0 && n >= 2 && token(1).type != TAG_NAME && s1 == sep("=")) {
            f = {n < 3 ? CMD_SET : CMD_SET_LIST, 0, Form::command_or_assignment};
            return 0;
        }
        // Two registers joined by "," are a read list, not an operator assignment.
        if (reg0 && n == 2 && token(1).type != TAG_NAME && s1 != sep(",")) {
            for (std::size_t k = 0; k < OPERATOR_SEPARATORS.size(); ++k)
                if (OPERATOR_SEPARATORS[k] == s1) {
                    f = {COMPOUND_OPERATORS[k].command, 0, Form::command_or_assignment};
                    return 0;
                }
            return syntax(__LINE__, 1);
        }
        if (reg0 && vok_is_vector_kind(static_cast<uint32_t>(t0.type))) {
            f = {CMD_VECTOR_READ, 0, Form::vector_read};
            return 0;
        }
        if (reg0) {
            if (n > 4) return syntax(__LINE__, 4);
            for (int i = 1; i < n; ++i)
                if (token(i).separator != sep(",") || token(i).type < 1) return syntax(__LINE__, i);
            f = {CMD_READ_LIST, 0, Form::read_list};
            return 0;
        }
        if (!command) return syntax(__LINE__, 0);
        const auto number = static_cast<int32_t>(t0.index);
        if (!takes_list(number)) {
            if (n >= 2 && s1 != sep("=")) return syntax(__LINE__, 1);
            for (int i = 2; i < n; ++i)
                if (token(i).separator != sep(",")) return syntax(__LINE__, i);
            f = {number, 1, Form::command_or_assignment};
            return 0;
        }
        if (n >= 2 && !is_list_open(s1)) return syntax(__LINE__, 1);
        for (int i = 2; i < n; ++i)
            if (!is_list_separator(token(i).separator)) return syntax(__LINE__, i);
        f = {number, 1, Form::list_command};
        return 0;
    }
    // Slot value of a token: a register reference or the literal's 4 or 8 bytes.
    void put_operand(const RecordView &r, int slot, const Token &tok, uint32_t tag) {
        if (tok.is_register()) {
            r.set_value32(slot, tok.type == TYPE_ADDRESS
                                    ? tok.index
                                    : encode_register(tok.index, tok.row, tok.axis));
        } else {
            std::memcpy(r.slot(slot).value, tok.value,
                        static_cast<std::size_t>(value_size(value_class(tag))));
        }
    }

    // Slot value of a list or element-assignment value: a literal or a 64-bit register word.
    void put_list_value(const RecordView &r, int slot, const Token &tok) {
        if (tok.is_register())
            r.set_value64(slot, encode_element_value_register(tok.index, tok.row, tok.axis));
        else
            std::memcpy(r.slot(slot).value, tok.value,
                        static_cast<std::size_t>(value_size(tok.value_class())));
    }

    static uint32_t list_tag(const Token &tok, int position, int count) {
        return encode_list_tag(static_cast<uint32_t>(tok.type), position, count);
    }

    void write_header(const RecordView &r, int count, int32_t command, uint8_t kind) {
        r.header().count = static_cast<uint8_t>(count);
        r.header().command = static_cast<uint8_t>(command & 0xFF);
        r.header().kind = kind;
    }

    uint8_t kind_of(int32_t command) const { return command_kind(command, ctx.bang != 0); }

    // Commands, assignments and operator assignments: one slot per token from f.first on.
    int write_command(const RecordView &r, const Form &f, bool checked) {
        int32_t command = f.command;
        const bool assignment = is_assignment(command);
        const int count = ctx.count - f.first;
        for (int i = 0; i < count; ++i) {
            const Token &tok = token(f.first + i);
            const auto tag = static_cast<uint32_t>(tok.type);
            r.set_tag(i, tag);
            if (i == 0 && assignment && tok.is_register() && tok.type != TYPE_ADDRESS)
                r.set_value32(i, encode_destination(tok.index, tok.row));
            else
                put_operand(r, i, tok, tag);
            if (checked && assignment && i > 0 && tok.value_class() != token(0).value_class()) {
                if (command != CMD_SET) return t.fail(__LINE__, TRA_ETYPECONV, tok.text);
                command = CMD_CONVERT;
            }
        }
        write_header(r, count, command, kind_of(command));
        return 0;
    }

    // Parameter groups of a command that takes a list: a bracketed row (or a whole "[[...]]"
    // matrix) is one group, a value outside brackets a group of its own. Each value learns its
    // group, its position in it, and the group's size.
    void group_list(const Form &f) {
        int group = -1;
        int depth = 0;
        for (int i = f.first; i < ctx.count; ++i) {
            Token &tok = token(i);
            if (depth == 0) ++group;
            if (tok.opens_list)
                depth += 2;
            else if (tok.opens_row && depth < 2)
                depth = std::max(depth, 1);
            tok.listed = 1;
            tok.group = static_cast<uint8_t>(group);
            if (tok.closes_list)
                depth = 0;
            else if (tok.closes_row && depth == 1)
                depth = 0;
        }
    }

    // Position of a list value in its group and the group's size, as the value's tag carries them.
    std::pair<int, int> place_in_group(int i, const Form &f) {
        int start = i, end = i;
        while (start > f.first && token(start - 1).group == token(i).group)
            --start;
        while (end + 1 < ctx.count && token(end + 1).group == token(i).group)
            ++end;
        return {i - start, end - start + 1};
    }

    // A command that takes a list: the marker slot, then every value with its place in the list.
    int write_list_command(const RecordView &r, const Form &f) {
        const int values = ctx.count - f.first;
        // A "[[" anywhere in the list must be closed by "]]" before the line ends.
        bool matrix_open = false;
        for (int i = f.first; i < ctx.count; ++i) {
            if (token(i).opens_list) matrix_open = true;
            if (token(i).closes_list) matrix_open = false;
        }
        if (matrix_open)
            return t.fail_with(__LINE__, TRA_ECMDSYNTAX, tra_translate_error(TRA_EBADINDEX),
                               "End matrix element not detected");
        r.set_tag(0, ELEMENT_REF_TAG_BIT);
        for (int k = 0; k < values; ++k) {
            const Token &tok = token(f.first + k);
            auto [position, size] = place_in_group(f.first + k, f);
            r.set_tag(k + 1, list_tag(tok, position, size));
            put_list_value(r, k + 1, tok);
        }
        write_header(r, values + 1, f.command, kind_of(f.command));
        return 0;
    }

    // Rows and columns of a vector or matrix register over the addressed axes (the last wins).
    void dimensions(const Token &reg, int &rows, int &columns) {
        rows = 1;
        columns = 1;
        for_each_axis_dictionary(tra, ctx.axis_mask, [&](const VOK_DICT *d) {
            auto kind = static_cast<uint32_t>(reg.type);
            int length = vok_get_register_length(d, kind, reg.index);
            columns = vok_get_register_columns(d, kind, reg.index);
            rows = vok_get_register_rows(d, kind, reg.index);
            if (columns <= 0) columns = length > 0 ? length : 1;
            if (rows <= 0) rows = 1;
            return false;
        });
    }

    // Elements of a vector or matrix register: marker, element reference, then the values.
    int write_elements(const RecordView &r) {
        const Token &dest = token(0);
        const int values = ctx.count - 1;
        int rows, columns;
        dimensions(dest, rows, columns);
        uint32_t element;
        if (rows < 2) {
            if (dest.column_given)
                return t.fail(__LINE__, TRA_EBADINDEX,
                              "Row & column specified on vector parameter");
            if (dest.row >= static_cast<uint32_t>(columns))
                return t.fail(__LINE__, TRA_EBADINDEX, "The specified index is out of range");
            if (dest.row_given && values > 1)
                return t.fail(__LINE__, TRA_ETOOMANYVALUES, "A single value should be specified");
            element = dest.row;
        } else {
            if (dest.row >= static_cast<uint32_t>(rows) ||
                dest.column >= static_cast<uint32_t>(columns))
                return t.fail(__LINE__, TRA_EBADINDEX, "The specified index is out of range");
            if (dest.row_given && dest.column_given && values > 1)
                return t.fail(__LINE__, TRA_ETOOMANYVALUES, "A single value should be specified");
            element = dest.row * static_cast<uint32_t>(columns) + dest.column;
        }
        for (int k = 0; k < values; ++k) {
            const Token &v = token(1 + k);
            if (v.value_class() != dest.value_class())
                return t.fail(__LINE__, TRA_ETYPECONV, v.text);
            if (v.list_row >= rows)
                return t.fail(__LINE__, TRA_ETOOMANYVALUES, "Too much rows specified");
            if (v.list_column >= columns)
                return t.fail(__LINE__, TRA_ETOOMANYVALUES, "Too much columns specified");
            if (rows < 2) {
                if (v.list_row >= 0)
                    return t.fail(__LINE__, TRA_EBADSUBSCRIPT,
                                  "Bad subscipt specified. use [n, m, ...]");
                if (v.list_column < 0 && !dest.row_given)
                    return t.fail(__LINE__, TRA_EBADSUBSCRIPT,
                                  "Vector parameter element must be specified");
            } else {
                if (v.list_column < 0 && !(dest.row_given && dest.column_given))
                    return t.fail(__LINE__, TRA_EBADSUBSCRIPT,
                                  "Matrix parameter element must be specified");
                if (v.list_row < 0 && !dest.row_given)
                    return t.fail(__LINE__, TRA_EBADSUBSCRIPT,
                                  "Matrix parameter row must be specified");
                if (v.list_column >= 0) {
                    uint32_t row = v.list_row >= 0 ? static_cast<uint32_t>(v.list_row) : dest.row;
                    uint32_t own =
                        row * static_cast<uint32_t>(columns) + static_cast<uint32_t>(v.list_column);
                    if (element + static_cast<uint32_t>(k) != own)
                        return t.fail(__LINE__, TRA_EINCOMPLETEVECTOR,
                                      "Incomplete Vector specified");
                }
            }
        }
        r.set_tag(0, ELEMENT_REF_TAG_BIT);
        r.set_value32(0, 2);
        r.set_tag(1, list_tag_own(static_cast<uint32_t>(dest.type)) | ELEMENT_REF_TAG_BIT);
        r.set_value64(1, encode_element(dest.index, element));
        for (int k = 0; k < values; ++k) {
            const Token &v = token(1 + k);
            r.set_tag(k + 2, list_tag(v, k, values));
            put_list_value(r, k + 2, v);
        }
        write_header(r, values + 2, CMD_ELEMENT_ASSIGN, kind_of(CMD_ELEMENT_ASSIGN));
        return 0;
    }

    // Read of a vector register: the marker slot, then the element asked for or every element.
    int write_vector_read(const RecordView &r, int capacity, int32_t *count_out) {
        const Token &reg = token(0);
        int rows, columns;
        dimensions(reg, rows, columns);
        if (reg.column_given && !reg.row_given) return t.fail(__LINE__, TRA_EBADPARAM, reg.text);
        if (rows > 1 && reg.row_given && reg.row >= static_cast<uint32_t>(rows))
            return t.fail(__LINE__, TRA_EBADINDEX, "The vector/matrix index is out of range");
        const int elements = reg.row_given ? 1 : rows * columns;
        if (count_out != nullptr) *count_out = elements + 1;
        // The count byte and the bus carry at most TRA_RECORD_MAX_SLOTS slots, whatever the room.
        if (capacity < elements + 1 || elements + 1 > TRA_RECORD_MAX_SLOTS)
            return t.fail(__LINE__, TRA_EBUFSIZE, reg.text);
        const uint32_t first =
            reg.row_given
                ? (rows > 1 ? reg.row * static_cast<uint32_t>(columns) + reg.column : reg.row)
                : 0;
        r.clear(capacity);
        r.set_tag(0, ELEMENT_REF_TAG_BIT);
        r.set_value32(0, 1);
        for (int k = 0; k < elements; ++k) {
            r.set_tag(k + 1, list_tag(reg, k, elements));
            r.set_value64(k + 1, encode_element(reg.index, first + static_cast<uint32_t>(k)));
        }
        write_header(r, elements + 1, 0, REC_VECTOR_READ);
        return elements + 1;
    }

    // A read of one to four registers (more after a string register's expansion).
    void write_read_list(const RecordView &r) {
        for (int i = 0; i < ctx.count; ++i) {
            const Token &tok = token(i);
            r.set_tag(i, static_cast<uint32_t>(tok.type));
            put_operand(r, i, tok, static_cast<uint32_t>(tok.type));
        }
        write_header(r, ctx.count, 0, REC_READ);
    }
};

} // namespace

int _tra_asc2rec_exec(TRA *tra, const char *text, TRA_RECORD *record, int32_t capacity,
                      int32_t filter_count, const uint8_t *filter_types, int32_t *count_out,
                      uint64_t *mask_out) {
    static constexpr Tracer t{"traa2r", "_tra_asc2rec_exec"};
    if (text == nullptr) return TRA_EBADPARAM;
    if (record == nullptr || capacity < 0 || capacity > 65535)
        return t.fail(__LINE__, TRA_EBADPARAM);
    const RecordView r = view(record);
    r.clear(capacity);

    // The parser resets the context's fields and every token it adds; only the bracketed flag is
    // the builder's.
    ParseContext ctx;
    ctx.bracketed = 0;

    LineCopy copy;
    const std::size_t length = std::strlen(text);
    char *line = copy.get(length + 1);
    if (line == nullptr) return t.fail(__LINE__, TRA_ESYSTEM);
    const int kept = _tra_clean_line(text, line, length + 1);
    if (kept < 0) return t.fail(__LINE__, TRA_ESYSTEM);
    if (kept == 0) {
        if ((tra->call.flags & TRA_FEMPTY_IS_ERROR) != 0) return t.fail(__LINE__, TRA_EEMPTYCMD);
        if (count_out != nullptr) *count_out = -1;
        return 0;
    }

    bool refused = false;
    int rc = _tra_parse_raw_record(line, record, capacity, count_out, mask_out, &refused);
    if (rc != TRA_ECMDSYNTAX || refused) return rc == 0 ? 0 : t.pass(__LINE__, rc);

    char *body = line;
    if (line[0] == '[') {
        ctx.bracketed = 1;
        if (line[kept - 1] != ']') return t.fail(__LINE__, TRA_ECMDSYNTAX, line);
        line[kept - 1] = '\0';
        body = line + 1;
    }
    if ((rc = _tra_parse_asc_cmd(tra, &ctx, body)) != 0) return t.pass(__LINE__, rc);
    if ((rc = _tra_parse_std_tokens(tra, &ctx)) != 0) return t.pass(__LINE__, rc);
    if (ctx.count == 0) return t.fail(__LINE__, TRA_ECMDSYNTAX);

    Builder b{*tra, ctx, t};
    b.resolve_names();
    if ((ctx.flags & CTX_NO_AXIS) != 0 && ctx.axis_mask == 0) ctx.axis_mask = b.default_axes();

    Form f;
    if ((rc = b.select(f)) != 0) return rc;
    if (f.kind == Form::list_command) b.group_list(f);
    for (int i = f.first; i < ctx.count; ++i)
        if (ctx.tokens[i].type == TAG_NAME)
            return t.fail(__LINE__, TRA_EUNKNOWN, ctx.tokens[i].text);

    if (is_assignment(f.command) || f.kind == Form::read_list) {
        if ((rc = _tra_expand_string_register(tra, &ctx, f.first, f.command)) != 0)
            return t.pass(__LINE__, rc);
        if (f.command == CMD_SET && ctx.count - f.first > 2) f.command = CMD_SET_LIST;
    }

    bool checked = true;
    if (filter_count > 0 && is_unit_assignment(f.command)) {
        const auto tag = static_cast<uint8_t>(ctx.tokens[f.first].type & 0xFF);
        checked = filter_types != nullptr && std::find(filter_types, filter_types + filter_count,
                                                       tag) != filter_types + filter_count;
    }
    if (checked) {
        if ((rc = _tra_parse_floating_numbers(tra, &ctx, f.first, f.command)) != 0)
            return t.pass(__LINE__, rc);
        if ((rc = _tra_check_ip(tra, &ctx, f.first, f.command)) != 0) return t.pass(__LINE__, rc);
    }

    // A line addressed only to absent axes, or outside a running stream's axes, is dropped; a line
    // of a type outside the filter skips this test with the other checks.
    // Unsigned: the device at axis 63 is the top bit, and a signed mask would be negative.
    const uint64_t present = tra->present_axes.load();
    const uint64_t download = tra->download_axis_mask;
    bool absent = present != 0 && (ctx.axis_mask & present) == 0;
    if (checked && absent && (present & 1) != 0 && tra->bus != nullptr) {
        // A bus that does not filter by presence is given the line all the same. A bus that
        // cannot tell leaves the test as it is.
        uint8_t info[sizeof(BusInfo)] = {};
        store_u32(info, sizeof(BusInfo));
        if (oxb_get_bus_info(tra->bus, 0, info) == 0 &&
            (load_u32(info + offsetof(BusInfo, flags)) & BUS_NO_PRESENCE_FILTER) != 0)
            absent = false;
    }
    if (checked && (absent || (download != 0 && (ctx.axis_mask & download) == 0))) {
        if (count_out != nullptr) *count_out = -1;
        return 0;
    }

    if (checked) {
        if ((rc = _tra_check_types(tra, &ctx, f.first, f.command)) != 0)
            return t.pass(__LINE__, rc);
        if ((rc = _tra_check_everything(tra, &ctx, f.first, f.command)) != 0)
            return t.pass(__LINE__, rc);
    }

    int count = ctx.count - f.first;
    if (f.kind == Form::list_command) count += 1;
    if (f.kind == Form::element_assignment) count += 1;
    if (f.kind == Form::vector_read) count = 0;
    // The slots needed are told even when they do not fit, so that a caller can make room.
    if (count_out != nullptr && f.kind != Form::vector_read) *count_out = count;
    if (capacity < count) return t.fail(__LINE__, TRA_EBUFSIZE);
    r.clear(capacity);

    switch (f.kind) {
    case Form::command_or_assignment:
        rc = b.write_command(r, f, checked);
        break;
    case Form::list_command:
        rc = b.write_list_command(r, f);
        break;
    case Form::element_assignment:
        rc = b.write_elements(r);
        break;
    case Form::read_list:
        b.write_read_list(r);
        break;
    case Form::vector_read:
        rc = b.write_vector_read(r, capacity, count_out);
        if (rc > 0) count = rc, rc = 0;
        break;
    }
    if (rc != 0) return rc;
    if (count_out != nullptr) *count_out = count;
    if (mask_out != nullptr) *mask_out = ctx.axis_mask;
    return 0;
}

int _tra_asc2rec_ex(TRA *tra, const char *text, TRA_RECORD *record, int32_t capacity,
                    int32_t filter_count, const uint8_t *filter_types, int32_t *count_out,
                    uint64_t *mask_out) {
    static constexpr Tracer t{"traa2r", "_tra_asc2rec_ex"};
    return in_session(*tra, t, __LINE__, [&] {
        return _tra_asc2rec_exec(tra, text, record, capacity, filter_count, filter_types, count_out,
                                 mask_out);
    });
}

} // namespace ryn::tra
