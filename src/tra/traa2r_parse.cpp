// The command text parser: line cleaning, cutting a line into tokens, and classifying them.
#include <cstring>

#include "traa2r_tokens.hpp"

namespace ryn::tra {

namespace {

constexpr std::size_t WORD_LIMIT = 1024;

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

char upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Separators that introduce the value of an assignment or operator assignment.
constexpr uint32_t ASSIGNMENTS[] = {
    sep("="),  sep("+="), sep("-="),  sep("*="),  sep("/="),  sep("%="),  sep("&="),  sep("|="),
    sep("^="), sep("~="), sep("&~="), sep("|~="), sep("^~="), sep(">>="), sep("<<="),
};
// Operators without "=": they may only stand in front of the second token.
constexpr uint32_t OPERATORS[] = {
    sep("+"), sep("-"),  sep("*"),  sep("/"),  sep("%"),  sep("&"),  sep("|"),
    sep("^"), sep("<<"), sep(">>"), sep("&~"), sep("^~"), sep("|~"),
};
// Separators between the values of "[...]" lists.
constexpr uint32_t LIST_SEPARATORS[] = {
    sep(",["), sep(",[["), sep("],"), sep("]],"), sep("],["), sep("],[["), sep("]],["),
};

template <std::size_t N>
bool one_of(uint32_t code, const uint32_t (&set)[N]) {
    for (uint32_t c : set)
        if (c == code) return true;
    return false;
}

// The brackets of "[...]" lists open at the current place: a "[[" opens the whole list and its
// first row, a single "[" opens a row (inside the list, or on its own).
enum class Bracket : uint8_t { list, row };

// The state of the parser over one line.
struct Parser {
    static constexpr Tracer t{"traa2r", "_tra_parse_asc_cmd"};

    TRA *tra;
    ParseContext *ctx;
    char *text;
    std::size_t pos = 0;
    bool axis_named = false; // an axis form applied to the first token

    Bracket open[2]{};
    int depth = 0;
    int rows_in_list = 0;  // rows opened so far in the open list
    int values_in_row = 0; // values so far in the open row

    Token &current() { return ctx->tokens[ctx->count - 1]; }

    // A new token with its separator; S2 "-" makes it negative, "*" gives it the broadcast axis.
    int add_token(uint32_t separator, uint32_t s2, const char *word, int line) {
        if (ctx->count >= MAX_TOKENS) return t.fail(line, TRA_ECMDSYNTAX, word);
        bool negative = s2 == sep("-");
        std::size_t len = std::strlen(word);
        if (len + (negative ? 1 : 0) > TOKEN_TEXT - 1) return t.fail(line, TRA_ECMDSYNTAX, word);
        Token &tok = ctx->tokens[ctx->count];
        std::memset(&tok, 0, sizeof tok);
        tok.list_row = -1;
        tok.list_column = -1;
        tok.separator = separator;
        tok.type = TAG_NAME;
        tok.negative = negative ? 1 : 0;
        if (negative) tok.text[0] = '-';
        std::memcpy(tok.text + tok.negative, word, len + 1);
        if (s2 == sep("*")) tok.axis = AXIS_BROADCAST;
        ++ctx->count;
        return 0;
    }

    // S2 in front of a value: nothing, "-" or "*"; "-." asks for a leading zero.
    int check_value_s2(uint32_t s2, const char *word) {
        if (s2 == 0 || s2 == sep("-") || s2 == sep("*")) return 0;
        return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
    }

    // Applies the brackets of a list separator: closings mark the token before, openings the
    // token that follows (the one about to be added). Returns the opening marks.
    int brackets(uint32_t code, uint8_t *opens_row, uint8_t *opens_list, const char *word) {
        *opens_row = 0;
        *opens_list = 0;
        for (int i = 0; i < 4; ++i) {
            char c = static_cast<char>(code >> (8 * i));
            if (c == ']') {
                if (depth == 0 || ctx->count == 0) return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
                Bracket b = open[--depth];
                if (b == Bracket::row)
                    current().closes_row = 1;
                else
                    current().closes_list = 1;
            } else if (c == '[') {
                bool pair = i < 3 && static_cast<char>(code >> (8 * (i + 1))) == '[';
                if (pair) {
                    if (depth != 0) return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
                    open[depth++] = Bracket::list;
                    rows_in_list = 0;
                    *opens_list = 1;
                    ++i;
                } else if (depth == 1 && open[0] == Bracket::list) {
                    ++rows_in_list;
                } else if (depth != 0) {
                    return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
                }
                if (depth == 0 || open[depth - 1] == Bracket::list) {
                    open[depth++] = Bracket::row;
                    values_in_row = 0;
                    *opens_row = 1;
                }
            }
        }
        return 0;
    }

    // Where a new value sits in the open brackets.
    void place(Token &tok, uint8_t opens_row, uint8_t opens_list) {
        tok.opens_row = opens_row;
        tok.opens_list = opens_list;
        if (depth > 0 && open[depth - 1] == Bracket::row) {
            tok.list_column = static_cast<int16_t>(values_in_row++);
            if (depth == 2) tok.list_row = static_cast<int16_t>(rows_in_list);
        }
    }

    // A value token after an assignment, a list separator or ",".
    int value(uint32_t s, uint32_t s2, const char *word) {
        if (int rc = check_value_s2(s2, word)) return rc;
        uint8_t opens_row = 0;
        uint8_t opens_list = 0;
        if (int rc = brackets(s, &opens_row, &opens_list, word)) return rc;
        if (int rc = add_token(s, s2, word, __LINE__)) return rc;
        place(current(), opens_row, opens_list);
        return 0;
    }

    int axis_form(char *word) {
        Token &tok = current();
        bool first = ctx->count == 1;
        if (first) axis_named = true;
        if (word[0] == '!') {
            tok.axis = AXIS_ALL;
            if (first) ctx->axis_mask |= 0x7FFFFFFFFFFFFFFFull;
        } else if (word[0] == '(') {
            if (!first) return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
            uint64_t mask = 0;
            if (int rc = _parse_mask_enum(word, &mask)) return t.pass(__LINE__, rc);
            ctx->axis_mask |= mask;
        } else if (word[0] == 'X') {
            uint64_t preferred = tra != nullptr ? tra->preference_axis_mask.load() : 0;
            if (preferred == 0) return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
            int lowest = 0;
            while (lowest < AXES && (preferred >> lowest & 1) == 0)
                ++lowest;
            tok.axis = static_cast<uint8_t>(lowest < AXES ? lowest : 0);
            if (first) ctx->axis_mask |= preferred;
        } else {
            int32_t axis = 0;
            if (int rc = _str2long(word, 1024, &axis)) return t.pass(__LINE__, rc);
            if (static_cast<uint32_t>(axis) > 62) return t.fail(__LINE__, TRA_ERANGE, word);
            tok.axis = static_cast<uint8_t>(axis);
            if (first) ctx->axis_mask |= uint64_t(1) << axis;
        }
        return 0;
    }

    int row_subscript(char *word) {
        Token &tok = current();
        if (tok.row_given) return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
        int32_t row = 0;
        if (int rc = _str2long(word, ' ', &row)) return t.pass(__LINE__, rc);
        if (static_cast<uint32_t>(row) > 0xFFFFFF) return t.fail(__LINE__, TRA_ERANGE, word);
        tok.row = static_cast<uint32_t>(row);
        tok.row_given = 1;
        return 0;
    }

    // "[" after the first token: its subscript, read as a name so that "3,4]" stays whole.
    int subscript(uint32_t s2) {
        char name[WORD_LIMIT];
        pos += _tra_read_name(text + pos, name, sizeof name);
        if (s2 != 0 || ctx->count != 1 || current().row_given || current().column_given)
            return t.fail(__LINE__, TRA_ECMDSYNTAX, name);
        Token &tok = current();
        if (int rc = _parse_vector_subscript(name, &tok.row, &tok.row_given, &tok.column,
                                             &tok.column_given))
            return t.pass(__LINE__, rc);
        return 0;
    }

    // The first token: plain, after ":" (":*" the broadcast) or after "*" (broadcast too).
    int first(uint32_t s, uint32_t s2, const char *word) {
        bool broadcast;
        if (s == 0)
            broadcast = false;
        else if (s == sep(":") && (s2 == 0 || s2 == sep("*")))
            broadcast = s2 != 0;
        else if (s == sep("*") && s2 == 0)
            broadcast = true;
        else
            return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
        if (int rc = add_token(0, 0, word, __LINE__)) return rc;
        if (broadcast) {
            current().axis = AXIS_BROADCAST;
            ctx->axis_mask |= uint64_t(1) << 63;
            axis_named = true;
        }
        return 0;
    }

    // Separators after the last word: only the closing of an open list.
    int end(uint32_t s, uint32_t s2) {
        if (s == 0 && s2 == 0) return 0;
        const char *rest = text + pos;
        // A lone "]" closes a row outside a matrix; a matrix's last row closes with "]]".
        const bool lone_row = depth == 1 && open[0] == Bracket::row;
        if (s2 != 0 || (s != sep("]") && s != sep("]]")) || (s == sep("]") && !lone_row))
            return t.fail(__LINE__, TRA_ECMDSYNTAX, rest[0] != 0 ? rest : text);
        uint8_t opens_row = 0;
        uint8_t opens_list = 0;
        if (int rc = brackets(s, &opens_row, &opens_list, text)) return rc;
        return 0;
    }

    int step(uint32_t s, uint32_t s2, char *word) {
        if (ctx->count == 0) return first(s, s2, word);
        if (s == 0) return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
        if (s == sep(".")) {
            if (s2 != 0) return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
            return axis_form(word);
        }
        if (s == sep(".%")) {
            if (s2 != 0 || ctx->count != 1) return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
            int64_t mask = 0;
            if (int rc = _str2int64(word, &mask)) return t.pass(__LINE__, rc);
            ctx->axis_mask |= static_cast<uint64_t>(mask);
            axis_named = true;
            return 0;
        }
        if (s == sep(":")) {
            if (s2 != 0) return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
            return row_subscript(word);
        }
        if (s == sep(",") || one_of(s, LIST_SEPARATORS)) return value(s, s2, word);
        if (one_of(s, ASSIGNMENTS) || s == sep("=[") || s == sep("=[[")) {
            if (ctx->count != 1) return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
            if (s == sep("=[")) ctx->list_rows = 1;
            if (s == sep("=[[")) ctx->list_rows = ctx->list_matrix = 1;
            return value(s, s2, word);
        }
        if (one_of(s, OPERATORS)) {
            if (ctx->count != 1) return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
            return value(s, s2, word);
        }
        return t.fail(__LINE__, TRA_ECMDSYNTAX, word);
    }

    int run() {
        if (text[0] == '!') {
            ctx->bang = 1;
            pos = 1;
        }
        char word[WORD_LIMIT];
        for (;;) {
            uint32_t s = _tra_read_separator(text, &pos);
            uint32_t s2 = _tra_read_separator(text, &pos);
            if (s2 == sep("-.")) return t.fail(__LINE__, TRA_ECMDSYNTAX, text + pos);
            if (s == sep("[")) {
                if (int rc = subscript(s2)) return rc;
                continue;
            }
            // A subscript after ":" is a whole number, so that in "K5:2.0" the ".0" names the axis.
            const bool subscript_follows = s == sep(":") && ctx->count > 0;
            std::size_t n = _tra_read_word(text + pos, word, sizeof word, !subscript_follows);
            if (n == 0) {
                if (text[pos] != 0) return t.fail(__LINE__, TRA_ECMDSYNTAX, text + pos);
                if (ctx->count == 0) return t.fail(__LINE__, TRA_ECMDSYNTAX, text);
                return end(s, s2);
            }
            pos += n;
            if (int rc = step(s, s2, word)) return rc;
        }
    }
};

// Type number of a register type name (exact comparison), -1 when no type has that name.
int find_type(const TRA *tra, const char *name, std::size_t len) {
    if (tra == nullptr || len == 0 || len >= TYPE_NAME_SIZE) return -1;
    for (int type = 0; type < 128; ++type) {
        const char *candidate = tra->type_names[type];
        if (std::strncmp(candidate, name, len) == 0 && candidate[len] == 0 &&
            std::strcmp(candidate, "??") != 0)
            return type;
    }
    return -1;
}

// Packs up to four characters into a 32-bit value, first character in the lowest byte.
uint32_t pack(const char *chars, std::size_t n) {
    uint32_t v = 0;
    for (std::size_t i = 0; i < n && i < 4; ++i)
        v |= uint32_t(static_cast<unsigned char>(chars[i])) << (8 * i);
    return v;
}

// "a.b.c.d" made of digits and exactly three points.
bool is_address(const char *s, std::size_t n) {
    int points = 0;
    for (std::size_t i = 0; i < n; ++i) {
        if (s[i] == '.')
            ++points;
        else if (!is_digit(s[i]))
            return false;
    }
    return points == 3;
}

uint32_t address_value(const char *s, std::size_t n) {
    uint32_t value = 0;
    uint32_t group = 0;
    for (std::size_t i = 0; i <= n; ++i) {
        if (i == n || s[i] == '.') {
            value = value << 8 | (group & 0xFF);
            group = 0;
        } else {
            group = (group * 10 + static_cast<uint32_t>(s[i] - '0')) & 0xFF;
        }
    }
    return value;
}

struct Classifier {
    static constexpr Tracer t{"traa2r", "_tra_parse_std_tokens"};

    TRA *tra;
    ParseContext *ctx;

    int string(int i, int *parts_out) {
        Token &tok = ctx->tokens[i];
        std::size_t len = std::strlen(tok.text);
        if (len < 2 || tok.text[len - 1] != '"') return t.fail(__LINE__, TRA_ECMDSYNTAX, tok.text);
        const char *body = tok.text + 1;
        std::size_t n = len - 2;
        tok.type = TAG_INT32;
        if (is_address(body, n)) {
            tok.set(address_value(body, n));
            return 0;
        }
        if (n <= 4) {
            tok.set(pack(body, n));
            return 0;
        }
        int parts = static_cast<int>((n + 3) / 4);
        if (i != ctx->count - 1 || ctx->count - 1 + parts > MAX_TOKENS)
            return t.fail(__LINE__, TRA_ETOOMANYPARAMS, tok.text);
        for (int k = 1; k < parts; ++k) {
            Token &part = ctx->tokens[i + k];
            part = tok;
            part.separator = sep(",");
            part.opens_row = part.opens_list = part.closes_row = part.closes_list = 0;
            std::size_t from = static_cast<std::size_t>(k) * 4;
            std::size_t size = n - from < 4 ? n - from : 4;
            part.text[0] = '"';
            std::memcpy(part.text + 1, body + from, size);
            part.text[size + 1] = '"';
            part.text[size + 2] = 0;
            part.set(pack(body + from, size));
        }
        // The list marks of the string belong to its last part.
        Token &last = ctx->tokens[i + parts - 1];
        last.closes_row = tok.closes_row;
        last.closes_list = tok.closes_list;
        if (parts > 1) tok.closes_row = tok.closes_list = 0;
        tok.set(pack(body, 4));
        ctx->count += parts - 1;
        *parts_out = parts;
        return 0;
    }

    int name(Token &tok) {
        std::size_t len = std::strlen(tok.text);
        tok.type = TAG_NAME;
        tok.index = 0;
        // "KY", "KFY": a register type as a whole.
        if ((len == 2 || len == 3) && tok.text[len - 1] == 'Y') {
            int type = find_type(tra, tok.text, len - 1);
            if (type < 0) return t.fail(__LINE__, TRA_ECMDSYNTAX, tok.text);
            tok.type = type;
            tok.index = VOK_WHOLE_TYPE;
            return 0;
        }
        // "A" and an address.
        if (tok.text[0] == 'A' && is_digit(tok.text[1])) {
            int32_t index = 0;
            if (int rc = _str2long(tok.text + 1, 63, &index)) return t.pass(__LINE__, rc);
            tok.type = 7;
            tok.index = static_cast<uint32_t>(index);
            tok.text[1] = 0;
            return 0;
        }
        std::size_t prefix = len;
        while (prefix > 0 && is_digit(tok.text[prefix - 1]))
            --prefix;
        if (prefix == len || prefix == 0) {
            tok.whole = 1;
            return 0;
        }
        int32_t index = 0;
        if (int rc = _str2long(tok.text + prefix, ' ', &index)) return t.pass(__LINE__, rc);
        if (prefix == 2 && tok.text[0] == 'S' && tok.text[1] == 'D') {
            // The two set-point monitors are M60 and M61.
            int type = find_type(tra, "M", 1);
            if ((index != 1 && index != 2) || type < 0)
                return t.fail(__LINE__, TRA_ECMDSYNTAX, tok.text);
            tok.type = type;
            tok.index = static_cast<uint32_t>(index + 59);
            std::strcpy(tok.text, "M");
            return 0;
        }
        if (prefix == 1 && tok.text[0] == '@') {
            tok.index = static_cast<uint32_t>(index);
            tok.text[1] = 0;
            return 0;
        }
        int type = prefix <= 2 ? find_type(tra, tok.text, prefix) : -1;
        if (type < 0) {
            tok.whole = 1;
            return 0;
        }
        tok.type = type;
        tok.index = static_cast<uint32_t>(index);
        tok.text[prefix] = 0;
        return 0;
    }

    int run() {
        for (int i = 0; i < ctx->count; ++i) {
            Token &tok = ctx->tokens[i];
            if (std::strcmp(tok.text, "XAC") == 0) {
                tok.type = 1;
                tok.index = 65535;
                continue;
            }
            if (tok.text[0] == '"') {
                int parts = 1;
                if (int rc = string(i, &parts)) return rc;
                i += parts - 1; // the parts of a long string are already classified
                continue;
            }
            if (std::strcmp(tok.text, "STE") != 0) {
                Number num = _tra_read_number(tok.text);
                if (num.tag != TAG_NAME && tok.text[num.length] == 0) {
                    tok.type = num.tag;
                    std::memcpy(tok.value, num.value, sizeof tok.value);
                    continue;
                }
            }
            if (int rc = name(tok)) return rc;
        }
        return 0;
    }
};

} // namespace

int _tra_clean_line(const char *text, char *out, std::size_t out_size) {
    static constexpr Tracer t{"traa2r", "_tra_clean_line"};
    if (text == nullptr || out == nullptr) return t.fail(__LINE__, TRA_EBADPARAM);
    if (out_size == 0) return t.fail(__LINE__, TRA_EBUFSIZE);
    std::size_t n = 0;
    bool quoted = false;
    for (const char *p = text; *p != 0; ++p) {
        if (*p == ';' || *p == '#' || (p[0] == '/' && p[1] == '/')) break;
        if (*p == '"') quoted = !quoted;
        if (!quoted && is_blank(*p)) continue;
        if (n + 1 >= out_size) return t.fail(__LINE__, TRA_EBUFSIZE);
        out[n++] = upper(*p);
    }
    out[n] = 0;
    if (out[0] == '*' && out[1] == ':') {
        out[0] = ':';
        out[1] = '*';
    }
    return static_cast<int>(n);
}

int _tra_parse_asc_cmd(TRA *tra, ParseContext *ctx, char *text) {
    static constexpr Tracer t{"traa2r", "_tra_parse_asc_cmd"};
    if (ctx == nullptr || text == nullptr) return t.fail(__LINE__, TRA_EINTERNAL);
    ctx->bang = 0;
    ctx->list_rows = 0;
    ctx->list_matrix = 0;
    ctx->flags = 0;
    ctx->axis_mask = 0;
    ctx->count = 0;
    Parser parser{tra, ctx, text};
    int rc = parser.run();
    if (rc != 0) return rc;
    if (!parser.axis_named) ctx->flags |= CTX_NO_AXIS;
    return 0;
}

int _tra_parse_std_tokens(TRA *tra, ParseContext *ctx) {
    static constexpr Tracer t{"traa2r", "_tra_parse_std_tokens"};
    if (ctx == nullptr || ctx->count < 0 || ctx->count > MAX_TOKENS)
        return t.fail(__LINE__, TRA_EINTERNAL);
    return Classifier{tra, ctx}.run();
}

} // namespace ryn::tra
