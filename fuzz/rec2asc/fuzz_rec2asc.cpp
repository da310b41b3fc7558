// Writes arbitrary records (any kind, slot contents, count and axis mask) and requests with
// answers as text, through the entry points and into buffers of every size: each record lives in
// a heap block of exactly its slot count, the text in one of exactly the size given, so the
// sanitizers see any read or write past either.
//
// Input: mask (8 bytes), flags (4), destination size (2), mode (1), then the record's bytes; in
// request mode the answer's bytes follow the request's slots.
#include <cstdint>
#include <cstring>
#include <vector>

#include "trar2a.hpp"

namespace {

using namespace ryn::tra;

// An ISO converter that converts on even axes only, by a factor that depends on the axis, so
// that conversions agree on one axis and disagree on several.
int convert(OXB_BUS *, void *drive, double *iso, uint32_t, int32_t, int32_t axis, int32_t, void *) {
    if (axis % 2 != 0) return -1;
    int32_t raw;
    std::memcpy(&raw, drive, 4);
    *iso = raw * (1.0 + axis);
    return 0;
}

TRA *translator() {
    static TRA *tra = [] {
        TRA *t = nullptr;
        if (_tra_create_base(&t, 32, 0, 0, KIND_DIRECT_OFFLINE) != 0) return t;
        for (auto &name : t->type_names)
            std::strcpy(name, "??");
        std::strcpy(t->type_names[1], "X");
        std::strcpy(t->type_names[2], "K");
        std::strcpy(t->type_names[34], "KF");
        std::strcpy(t->type_names[66], "KL");
        std::strcpy(t->type_names[98], "KD");
        std::strcpy(t->type_names[15], "V");
        std::strcpy(t->type_names[16], "T");
        // A name of 32 characters fills its slot without a terminator.
        std::memset(t->type_names[31], 'Z', TYPE_NAME_SIZE);
        t->registers = {{"POS_KP", 1, 2, ~0ull, 0, 0}, {"CTRL_K7", 7, 2, 1ull << 63, 0, 0}};
        t->commands = {{"PWR", 124, COMMAND_TYPE, ~0ull, 0, 0},
                       {"TRJ", 310, COMMAND_TYPE, ~0ull, 0, 0}};
        t->iso_converter = &convert;
        t->register_aliases.build(t->registers);
        t->command_aliases.build(t->commands);
        // Drives of the ORAX family on axes 0..3 and a controller on axis 63; other axes have no
        // dictionary.
        VOK_DICT *drive = nullptr, *controller = nullptr;
        if (vok_open(&drive, 32, 0x03128100, 0, 0) == 0)
            for (int a = 0; a < 4; ++a)
                t->axis_dicts[a] = drive;
        if (vok_open(&controller, 51, 0x02018100, 0, 0) == 0) t->axis_dicts[63] = controller;
        t->built_generation = t->generation.load(); // hand-filled tables: fresh
        return t;
    }();
    return tra;
}

// Copies a record out of the input into a block of exactly its readable size.
std::vector<uint8_t> take_record(const uint8_t *&data, std::size_t &size) {
    int count = size > 0 ? data[0] : 0;
    if (count > TRA_RECORD_MAX_SLOTS) count = TRA_RECORD_MAX_SLOTS;
    std::vector<uint8_t> record(std::size_t(TRA_RECORD_SIZE(count)), 0);
    std::size_t n = std::min(size, record.size());
    if (n > 0) std::memcpy(record.data(), data, n);
    data += n;
    size -= n;
    return record;
}

uint64_t take(const uint8_t *&data, std::size_t &size, int bytes) {
    uint64_t v = 0;
    for (int i = 0; i < bytes && size > 0; ++i, ++data, --size)
        v |= uint64_t(*data) << (8 * i);
    return v;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    TRA *tra = translator();
    if (tra == nullptr) return 0;
    const uint64_t mask = take(data, size, 8);
    tra->flags = static_cast<uint32_t>(take(data, size, 4));
    _tra_take_settings(tra);
    const int text_size = 1 + static_cast<int>(take(data, size, 2) % REC_TEXT_SIZE);
    const int mode = static_cast<int>(take(data, size, 1) % 4);

    std::vector<uint8_t> record = take_record(data, size);
    const auto *rec = reinterpret_cast<const TRA_RECORD *>(record.data());
    std::vector<char> text(static_cast<std::size_t>(text_size));
    switch (mode) {
    case 0:
        (void)tra_oxcom_translate_cmd_to_ascii_ex(tra, rec, mask, text.data(), text_size);
        break;
    case 1:
        (void)_tra_rec2asc_exec(tra, text.data(), rec, mask, text_size);
        break;
    default: {
        std::vector<uint8_t> answer = take_record(data, size);
        const auto *ans = reinterpret_cast<const TRA_RECORD *>(answer.data());
        // Requests are answered by one axis: keep the lowest bit of the mask.
        const uint64_t axis = mask & (~mask + 1);
        if (mode == 2)
            (void)tra_oxcom_translate_rqs_to_ascii_ex(tra, rec, ans, axis, text.data(), text_size);
        else
            (void)_tra_rec2asc2_exec(tra, text.data(), rec, ans, axis, text_size);
        break;
    }
    }
    return 0;
}
