// Fuzz target: arbitrary bytes as one command line through cleaning, the raw record reader, the
// parser, the token classifier and the ISO conversion, with buffers of exactly the sizes the record
// builder uses.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "record.hpp"
#include "ryn/vok.h"
#include "traa2r.hpp"
#include "tralkt.hpp"

namespace {

using namespace ryn::tra;

int convert(OXB_BUS *, void *drive, double *iso, uint32_t value_class, int32_t, int32_t axis,
            int32_t, void *) {
    if (axis == 3 && *iso > 1e6) return 1;
    double v = *iso * 1000;
    if (value_class == 0x60) std::memcpy(drive, &v, 8);
    if (value_class == 0x20) {
        float f = static_cast<float>(v > 1e30 || v < -1e30 ? 0 : v);
        std::memcpy(drive, &f, 4);
    }
    return 0;
}

// An offline ORX-D32 3.12B translator with a controller on axis 63, its tables built.
TRA *translator() {
    TRA *tra = nullptr;
    if (tra_create_direct_traductor_o2(&tra, 32, 0x03128100, 0, 0, 51, 0x02018000, 0, 0, 0) != 0)
        std::abort();
    if (_tra_create_lkt(tra) != 0) std::abort();
    tra->preference_axis_mask = 0x6;
    tra_oxcom_set_iso_converter(tra, &convert, nullptr);
    return tra;
}

void check(bool ok) {
    if (!ok) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static TRA *tra = translator();
    std::string line(reinterpret_cast<const char *>(data), size);
    std::size_t length = std::strlen(line.c_str());

    std::vector<char> clean(length + 1);
    int kept = _tra_clean_line(line.c_str(), clean.data(), clean.size());
    check(kept >= 0 && static_cast<std::size_t>(kept) == std::strlen(clean.data()));

    constexpr int32_t capacity = 3;
    std::vector<uint8_t> record(TRA_RECORD_SIZE(capacity));
    int32_t count = -1;
    uint64_t mask = 0;
    int rc = _tra_parse_raw_record(clean.data(), reinterpret_cast<TRA_RECORD *>(record.data()),
                                   capacity, &count, &mask);
    check(rc != 0 || (count >= 0 && count <= capacity && mask != 0));

    auto ctx = std::make_unique<ParseContext>();
    char *text = clean.data();
    if (text[0] == '[') {
        ctx->bracketed = 1;
        std::size_t n = std::strlen(text);
        if (n > 1 && text[n - 1] == ']') text[n - 1] = 0;
        ++text;
    }
    if (_tra_parse_asc_cmd(tra, ctx.get(), text) == 0) {
        check(ctx->count >= 1 && ctx->count <= MAX_TOKENS);
        if (_tra_parse_std_tokens(tra, ctx.get()) == 0) {
            check(ctx->count <= MAX_TOKENS);
            if (ctx->axis_mask == 0) ctx->axis_mask = 0xF;
            bool assignment = ctx->tokens[0].is_register();
            _tra_parse_floating_numbers(tra, ctx.get(), assignment ? 0 : 1, assignment ? 123 : 160);
        }
        for (int i = 0; i < ctx->count; ++i)
            check(std::memchr(ctx->tokens[i].text, 0, TOKEN_TEXT) != nullptr);
    }
    sup_trace_clear();
    return 0;
}
