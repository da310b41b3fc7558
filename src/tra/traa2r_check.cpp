// Validation of a parsed command line against the dictionaries of the axes it addresses.
#include <algorithm>
#include <bit>
#include <cstring>

#include "traa2r.hpp"

namespace ryn::tra {

namespace {

constexpr char MODULE[] = "traa2r";
constexpr uint32_t SEPARATOR_COMMA = ',';

// The dictionaries a check consults, in the order it consults them: axis 0 to 63 of the mask,
// without null handles, and without a handle equal to the one consulted just before it, so that
// neighbouring axes sharing a dictionary are asked once.
struct AddressedDicts {
    const VOK_DICT *dicts[AXES];
    int count = 0;

    AddressedDicts(const TRA &tra, uint64_t mask) {
        for_each_axis_dictionary(tra, mask, [this](const VOK_DICT *d) {
            dicts[count++] = d;
            return false;
        });
    }
    const VOK_DICT *const *begin() const { return dicts; }
    const VOK_DICT *const *end() const { return dicts + count; }
};

uint32_t kind_of(const Token &token) {
    return static_cast<uint32_t>(token.type);
}

// Common argument test of the checks: a context whose operand table is consistent and a first
// operand position inside it (p may equal the count: a command without arguments). Each refusal
// has a line of its own, so that the trace tells them apart.
int check_arguments(const Tracer &t, const TRA *tra, const ParseContext *ctx, int p) {
    if (tra == nullptr) return t.fail(__LINE__, TRA_EBADPARAM, "translator is NULL");
    if (ctx == nullptr) return t.fail(__LINE__, TRA_EBADPARAM, "parse context is NULL");
    if (ctx->count < 0 || ctx->count > MAX_OPERANDS)
        return t.fail(__LINE__, TRA_EBADPARAM, "operand count out of range");
    if (p < 0 || p > ctx->count)
        return t.fail(__LINE__, TRA_EBADPARAM, "first operand out of range");
    return 0;
}

// ---- Enumerations ----

// The kind tests and the entry filter of one enumeration use: a register element or a command
// parameter.
struct RegisterUse {
    uint32_t kind, index, subindex;
    bool is_int32(const VOK_DICT *d) const { return vok_reg_is_int32(d, kind) != 0; }
    bool is_int64(const VOK_DICT *d) const { return vok_reg_is_int64(d, kind) != 0; }
    bool is_float(const VOK_DICT *d) const { return vok_reg_is_float(d, kind) != 0; }
    bool is_double(const VOK_DICT *d) const { return vok_reg_is_double(d, kind) != 0; }
    bool applies(const VOK_DICT *d, int entry) const {
        return vok_enum_entry_for_reg(d, entry, kind, index, subindex) != 0;
    }
};

struct ParamUse {
    uint32_t command;
    int param;
    bool is_int32(const VOK_DICT *d) const { return vok_param_is_int32(d, command, param) != 0; }
    bool is_int64(const VOK_DICT *d) const { return vok_param_is_int64(d, command, param) != 0; }
    bool is_float(const VOK_DICT *d) const { return vok_param_is_float(d, command, param) != 0; }
    bool is_double(const VOK_DICT *d) const { return vok_param_is_double(d, command, param) != 0; }
    bool applies(const VOK_DICT *d, int entry) const {
        return vok_enum_entry_for_param(d, entry, command, param) != 0;
    }
};

struct Value8 {
    unsigned char bytes[8];

    int64_t i64() const { return load<int64_t>(); }
    int32_t i32() const { return load<int32_t>(); }
    float f32() const { return load<float>(); }
    double f64() const { return load<double>(); }
    uint64_t bits64() const { return load<uint64_t>(); }
    uint32_t bits32() const { return load<uint32_t>(); }
    void store64(uint64_t v) { std::memcpy(bytes, &v, 8); }
    void store32(uint32_t v) { std::memcpy(bytes, &v, 4); }

  private:
    template <class T>
    T load() const {
        T v;
        std::memcpy(&v, bytes, sizeof v);
        return v;
    }
};

// One level of the enumeration tree: the bit groups under `parent` take their bits out of the
// value and check them below; what remains must equal one of the value entries under `parent`,
// or, at the top, be zero. A parent chain longer than the entry count can only be a cycle in the
// dictionary data and is refused rather than followed.
template <class Use>
int check_enum(const Tracer &t, const VOK_DICT *dict, Value8 v, int enumeration, int count,
               int parent, const Use &use, int depth) {
    if (depth > count) return t.fail(__LINE__, TRA_EBADENUM, "enumeration entries form a cycle");
    const bool wide = use.is_int64(dict);

    for (int e = 0; e < count; ++e) {
        if (!use.applies(dict, e) || vok_get_enum_entry_parent(dict, enumeration, e) != parent ||
            vok_enum_entry_is_mask(dict, enumeration, e) == 0)
            continue;
        Value8 group{};
        if (wide) {
            const auto m = static_cast<uint64_t>(vok_get_enum_value_int64(dict, enumeration, e));
            group.store64(v.bits64() & m);
            int rc = check_enum(t, dict, group, enumeration, count, e, use, depth + 1);
            if (rc != 0) return t.pass(__LINE__, rc);
            v.store64(v.bits64() & ~m);
        } else {
            const auto m = static_cast<uint32_t>(vok_get_enum_value_int32(dict, enumeration, e));
            group.store32(v.bits32() & m);
            int rc = check_enum(t, dict, group, enumeration, count, e, use, depth + 1);
            if (rc != 0) return t.pass(__LINE__, rc);
            v.store32(v.bits32() & ~m);
        }
    }

    const bool is_double = !wide && use.is_double(dict);
    const bool is_float = !wide && !is_double && use.is_float(dict);
    bool seen = false;
    for (int e = 0; e < count; ++e) {
        if (!use.applies(dict, e) || vok_get_enum_entry_parent(dict, enumeration, e) != parent ||
            vok_enum_entry_is_mask(dict, enumeration, e) != 0)
            continue;
        bool equal;
        if (wide)
            equal = v.i64() == vok_get_enum_value_int64(dict, enumeration, e);
        else if (is_double)
            equal = v.f64() == vok_get_enum_value_double(dict, enumeration, e);
        else if (is_float)
            equal = v.f32() == vok_get_enum_value_float(dict, enumeration, e);
        else
            equal = v.i32() == vok_get_enum_value_int32(dict, enumeration, e);
        if (equal) return 0;
        seen = true;
    }
    if (seen) return t.fail(__LINE__, TRA_EBADENUM, "value is none of the enumeration's entries");
    if (parent != -1) return 0;

    bool rest;
    if (wide)
        rest = v.i64() != 0;
    else if (is_double)
        rest = v.f64() != 0.0;
    else if (is_float)
        rest = v.f32() != 0.0f;
    else if (use.is_int32(dict))
        rest = v.i32() != 0;
    else
        rest = false;
    if (rest) return t.fail(__LINE__, TRA_EBADENUM, "bits outside the enumeration's groups");
    return 0;
}

// ---- Ranges ----

// Whether a value lies within the bounds of a register element or a command parameter, read in
// the view of its kind. Bounds of 0 and 0 mean the element has no range; a NaN passes.
template <class T>
bool within(T value, T min, T max) {
    if (min == T{} && max == T{}) return true;
    return !(min > value) && !(value > max);
}

bool register_value_in_range(const VOK_DICT *d, uint32_t kind, uint32_t index, uint32_t element,
                             const Token &value) {
    if (vok_reg_is_int64(d, kind))
        return within(value.i64(), vok_get_reg_min_int64(d, kind, index, element),
                      vok_get_reg_max_int64(d, kind, index, element));
    if (vok_reg_is_float(d, kind))
        return within(value.f32(), vok_get_reg_min_float(d, kind, index, element),
                      vok_get_reg_max_float(d, kind, index, element));
    if (vok_reg_is_double(d, kind))
        return within(value.f64(), vok_get_reg_min_double(d, kind, index, element),
                      vok_get_reg_max_double(d, kind, index, element));
    return within(value.i32(), vok_get_reg_min_int32(d, kind, index, element),
                  vok_get_reg_max_int32(d, kind, index, element));
}

bool param_value_in_range(const VOK_DICT *d, uint32_t cmd, int param, const Token &value) {
    if (vok_param_is_int64(d, cmd, param))
        return within(value.i64(), vok_get_param_min_int64(d, cmd, param),
                      vok_get_param_max_int64(d, cmd, param));
    if (vok_param_is_float(d, cmd, param))
        return within(value.f32(), vok_get_param_min_float(d, cmd, param),
                      vok_get_param_max_float(d, cmd, param));
    if (vok_param_is_double(d, cmd, param))
        return within(value.f64(), vok_get_param_min_double(d, cmd, param),
                      vok_get_param_max_double(d, cmd, param));
    return within(value.i32(), vok_get_param_min_int32(d, cmd, param),
                  vok_get_param_max_int32(d, cmd, param));
}

// One dictionary's answer on a plain value before its enumeration is consulted: a failure code
// (range, parameter count), or the enumeration that decides (0: none, the value is accepted).
struct Verdict {
    int code;
    int enumeration;
};

Verdict register_verdict(const VOK_DICT *d, const Token &reg, uint32_t element,
                         const Token &value) {
    const uint32_t kind = kind_of(reg);
    if (!register_value_in_range(d, kind, reg.index, element, value)) return {TRA_ERANGE, 0};
    return {0, vok_get_reg_enum(d, kind, reg.index, element)};
}

Verdict param_verdict(const VOK_DICT *d, uint32_t cmd, int param, const Token &value) {
    if (vok_get_param_count(d, cmd) <= param) return {TRA_ETOOMANYPARAMS, 0};
    if (!param_value_in_range(d, cmd, param, value)) return {TRA_ERANGE, 0};
    return {0, vok_get_param_enum(d, cmd, param)};
}

} // namespace

int _tra_check_reg_enum(const VOK_DICT *dict, const unsigned char value[8], int enumeration,
                        int count, int parent, uint32_t kind, uint32_t index, uint32_t subindex) {
    static constexpr Tracer t{MODULE, "_tra_check_reg_enum"};
    if (value == nullptr) return t.fail(__LINE__, TRA_EBADPARAM, "value is NULL");
    Value8 v{};
    std::memcpy(v.bytes, value, 8);
    return check_enum(t, dict, v, enumeration, std::max(count, 0), parent,
                      RegisterUse{kind, index, subindex}, 0);
}

int _tra_check_cmd_enum(const VOK_DICT *dict, const unsigned char value[8], int enumeration,
                        int count, int parent, uint32_t command, int param) {
    static constexpr Tracer t{MODULE, "_tra_check_cmd_enum"};
    if (value == nullptr) return t.fail(__LINE__, TRA_EBADPARAM, "value is NULL");
    Value8 v{};
    std::memcpy(v.bytes, value, 8);
    return check_enum(t, dict, v, enumeration, std::max(count, 0), parent, ParamUse{command, param},
                      0);
}

int _tra_expand_string_register(TRA *tra, ParseContext *ctx, int p, int32_t cmd) {
    static constexpr Tracer t{MODULE, "_tra_expand_string_register"};
    if (int rc = check_arguments(t, tra, ctx, p); rc != 0) return rc;
    const bool assignment = is_assignment(cmd);
    if (!assignment && cmd != CMD_READ_LIST) return 0;
    if (p >= ctx->count) return 0;
    const Token &reg = ctx->tokens[p];
    if (reg.row_given != 0 || !reg.is_register()) return 0;
    if (assignment && (p + 1 >= ctx->count || ctx->tokens[p + 1].text[0] != '"')) return 0;

    int length = 0;
    for (const VOK_DICT *d : AddressedDicts(*tra, ctx->axis_mask)) {
        if (vok_get_register_format(d, kind_of(reg), reg.index, 0) != VOK_FORMAT_STRING) continue;
        length = std::max(length, vok_get_register_length(d, kind_of(reg), reg.index));
    }
    const int n = ctx->count - p;

    if (assignment) {
        if (length <= n - 1) return 0;
        // The string was shorter than the register: the remaining elements are written as zero
        // so that no old characters are left behind.
        const int target = std::min(p + 1 + length, MAX_OPERANDS);
        for (int i = ctx->count; i < target; ++i) {
            Token &pad = ctx->tokens[i];
            pad = Token{};
            pad.separator = SEPARATOR_COMMA;
            pad.type = TAG_INT32;
            pad.axis = reg.axis;
            pad.list_row = -1;
            pad.list_column = -1;
        }
        ctx->count = std::max(ctx->count, target);
        return 0;
    }

    if (length <= n) return 0;
    // A read of the string register's first element reads all of its elements.
    const int target = std::min(length + p, MAX_OPERANDS);
    for (int i = ctx->count; i < target; ++i) {
        Token &next = ctx->tokens[i];
        next = ctx->tokens[i - 1];
        next.separator = SEPARATOR_COMMA;
        next.row = ctx->tokens[i - 1].row + 1;
        next.row_given = 1;
    }
    ctx->count = std::max(ctx->count, target);
    return 0;
}

int _tra_check_ip(TRA *tra, ParseContext *ctx, int p, int32_t cmd) {
    static constexpr Tracer t{MODULE, "_tra_check_ip"};
    if (int rc = check_arguments(t, tra, ctx, p); rc != 0) return rc;
    if (ctx->bracketed != 0) return 0;
    if (!is_assignment(cmd)) return 0;
    if (p + 1 >= ctx->count) return 0;
    const Token &reg = ctx->tokens[p];
    const Token &value = ctx->tokens[p + 1];
    if (reg.row_given != 0 || value.text[0] != '"') return 0;

    bool address = false;
    for (const VOK_DICT *d : AddressedDicts(*tra, ctx->axis_mask)) {
        if (vok_get_register_format(d, kind_of(reg), reg.index, 0) == VOK_FORMAT_IP) {
            address = true;
            break;
        }
    }
    if (!address) return 0;

    // Between the quotes: digits and exactly three full stops. The groups are not range-checked
    // and may be empty: the value keeps each group's low 8 bits.
    const std::size_t n = strnlen(value.text, sizeof value.text);
    if (n < 3) return t.fail(__LINE__, TRA_ECMDSYNTAX, value.text);
    int stops = 0;
    std::size_t i = 1;
    for (; i + 1 < n; ++i) {
        const char c = value.text[i];
        if (c == '.')
            ++stops;
        else if (c < '0' || c > '9')
            break;
    }
    if (i + 1 == n && stops == 3) return 0;
    return t.fail(__LINE__, TRA_ECMDSYNTAX, value.text);
}

int _tra_check_types(TRA *tra, ParseContext *ctx, int p, int32_t cmd) {
    static constexpr Tracer t{MODULE, "_tra_check_types"};
    if (int rc = check_arguments(t, tra, ctx, p); rc != 0) return rc;
    if (ctx->bracketed != 0) return 0;
    const Token *tokens = ctx->tokens;

    if (is_arithmetic(cmd)) {
        // Arithmetic on whole vectors is not supported, nor between different value classes.
        for (int q = p; q < ctx->count; ++q)
            if (vok_is_vector_kind(kind_of(tokens[q])))
                return t.fail(__LINE__, TRA_ENOVECTOR, tokens[q].text);
        if (p + 1 >= ctx->count) return t.fail(__LINE__, TRA_ECMDSYNTAX, "operator without value");
        if (tokens[p].value_class() == tokens[p + 1].value_class()) return 0;
        return t.fail(__LINE__, TRA_ETYPECONV, tokens[p + 1].text);
    }
    if (cmd == CMD_SET_LIST) {
        for (int q = p + 1; q < ctx->count; ++q) {
            if (tokens[q].value_class() != tokens[p].value_class())
                return t.fail(__LINE__, TRA_ETYPECONV, tokens[q].text);
            if (vok_is_vector_kind(kind_of(tokens[q])))
                return t.fail(__LINE__, TRA_ENOVECTOR, tokens[q].text);
        }
        return 0;
    }
    if (cmd == CMD_ELEMENT_ASSIGN) {
        for (int q = p + 1; q < ctx->count; ++q)
            if (is_register_tag(kind_of(tokens[q])))
                return t.fail(__LINE__, TRA_EREGADDR, tokens[q].text);
    } else if (cmd != CMD_READ_LIST && cmd != CMD_VECTOR_READ) {
        return 0;
    }
    if (p < ctx->count && tokens[p].type == -2)
        return t.fail(__LINE__, TRA_EBADTYPE, tokens[p].text);
    return 0;
}

int _tra_check_everything(TRA *tra, ParseContext *ctx, int p, int32_t cmd) {
    static constexpr Tracer t{MODULE, "_tra_check_everything"};
    if (int rc = check_arguments(t, tra, ctx, p); rc != 0) return rc;
    if (ctx->bracketed != 0) return 0;
    const Token *tokens = ctx->tokens;
    const AddressedDicts dicts(*tra, ctx->axis_mask);
    const bool checking = (tra->call.flags & TRA_FNO_CHECK) == 0;
    const auto command = static_cast<uint32_t>(cmd);

    // The command is known. A register read is answered by one drive only.
    if (cmd == CMD_READ_LIST || cmd == CMD_VECTOR_READ) {
        if (std::popcount(ctx->axis_mask) > 1)
            return t.fail(__LINE__, TRA_ECMDSYNTAX, "a register read addresses one axis");
    } else if (cmd >= 0 && checking) {
        bool known = false;
        for (const VOK_DICT *d : dicts) {
            if ((cmd == CMD_SET_LIST && vok_get_dictionary_class(d) == 3) ||
                vok_command_exists(d, command) != 0) {
                known = true;
                break;
            }
        }
        if (!known) return t.fail(__LINE__, TRA_EUNKNOWN, p > 0 ? tokens[p - 1].text : nullptr);
    }

    // A register translator only assigns plain values to registers (and reads them back).
    const uint32_t kind = tra->kind.load();
    if ((kind == KIND_REGISTER_OFFLINE || kind == KIND_REGISTER_BUS) && cmd != CMD_READ_LIST) {
        if (!is_assignment(cmd))
            return t.fail(__LINE__, TRA_ENOTALLOWED, "only register assignments");
        for (int q = p + 1; q < ctx->count; ++q)
            if (!tokens[q].is_value()) return t.fail(__LINE__, TRA_ENOTALLOWED, tokens[q].text);
    }

    if (!checking) return 0;
    const bool assignment = is_assignment(cmd);

    // Every register named exists on some addressed axis, within the command's parameters.
    for (int i = p; i < ctx->count; ++i) {
        const Token &reg = tokens[i];
        if (!reg.is_register() || reg.index == VOK_WHOLE_TYPE) continue;
        int e = 0;
        bool accepted = false;
        for (const VOK_DICT *d : dicts) {
            if (cmd < 0 || assignment || reg.param(i - p) < vok_get_param_count(d, command)) {
                if (vok_register_exists(d, kind_of(reg), reg.index, reg.row) != 0) {
                    accepted = true;
                    break;
                }
                e = TRA_EUNKNOWN;
            } else {
                e = TRA_ETOOMANYPARAMS;
            }
        }
        if (!accepted) return t.fail(__LINE__, e != 0 ? e : TRA_EUNKNOWN, reg.text);
    }

    // Every plain value lies within its range and its enumeration on some addressed axis. The
    // values of an assignment fill consecutive elements of the register; other values are the
    // command's parameters in order.
    const Token &dest = tokens[p < ctx->count ? p : 0];
    for (int k = 0; p + k < ctx->count; ++k) {
        const Token &value = tokens[p + k];
        if (!value.is_value()) continue;
        const auto element = static_cast<uint32_t>(static_cast<int64_t>(dest.row) + k - 1);
        int e = 0;
        bool accepted = false;
        bool from_enum = false;
        for (int a = 0; a < dicts.count && !accepted; ++a) {
            const VOK_DICT *d = dicts.dicts[a];
            Verdict v = assignment ? register_verdict(d, dest, element, value)
                                   : param_verdict(d, command, value.param(k), value);
            if (v.code == 0 && v.enumeration == 0) {
                accepted = true;
                break;
            }
            if (v.code != 0) {
                e = v.code;
                from_enum = false;
                continue;
            }
            // Only the last dictionary's enumeration failure can become the check's failure:
            // the ones before it stay out of the trace.
            int rc = 0;
            auto check = [&] {
                const int count = vok_get_enum_count(d, v.enumeration);
                rc = assignment ? _tra_check_reg_enum(d, value.value, v.enumeration, count, -1,
                                                      kind_of(dest), dest.index, element)
                                : _tra_check_cmd_enum(d, value.value, v.enumeration, count, -1,
                                                      command, value.param(k));
            };
            if (a == dicts.count - 1)
                check();
            else
                suspended(check);
            accepted = rc == 0;
            e = rc;
            from_enum = true;
        }
        if (accepted) continue;
        if (from_enum) return t.pass(__LINE__, e);
        return t.fail(__LINE__, e != 0 ? e : TRA_EUNKNOWN, value.text);
    }

    // Writing commands need writable elements on some addressed axis.
    if (!is_register_write(cmd) || p >= ctx->count || !dest.is_register()) return 0;
    if (dest.index == VOK_WHOLE_TYPE) {
        for (const VOK_DICT *d : dicts)
            if (vok_register_type_writable(d, kind_of(dest)) != 0) return 0;
        return t.fail(__LINE__, TRA_EREADONLY, dest.text);
    }
    for (int j = p + 1; j < ctx->count; ++j) {
        const auto element = static_cast<uint32_t>(static_cast<int64_t>(dest.row) + (j - p - 1));
        bool writable = false;
        for (const VOK_DICT *d : dicts) {
            if (vok_register_writable(d, kind_of(dest), dest.index, element) != 0) {
                writable = true;
                break;
            }
        }
        if (!writable) return t.fail(__LINE__, TRA_EREADONLY, dest.text);
    }
    return 0;
}

} // namespace ryn::tra
