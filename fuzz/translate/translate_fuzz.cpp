// Translates arbitrary lines into records: the first byte chooses the translator and the record's
// capacity, the rest is the line. The record lives in a heap block of exactly its capacity, so
// the sanitizers catch any byte written past it; the count must never exceed the capacity.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ryn/sup.h"
#include "ryn/tra.h"

namespace {

int converter(OXB_BUS *, void *drive, double *iso, uint32_t value_class, int32_t, int32_t,
              int32_t direction, void *) {
    if (direction != 0) return 0;
    if (value_class == 0x40 || value_class == 0x60) {
        const double v = *iso * 1000.0;
        std::memcpy(drive, &v, sizeof v);
    } else {
        const float v = static_cast<float>(*iso);
        std::memcpy(drive, &v, sizeof v);
    }
    return 0;
}

// Translators made once: direct and register, one configuration or a controller on axis 63.
TRA *translator(unsigned which) {
    static TRA *translators[4] = {};
    static bool made = false;
    if (!made) {
        made = true;
        tra_create_direct_traductor_o2(&translators[0], 32, 0x03128100, 0x21, 0x01028000, 51,
                                       0x02018000, 0, 0, 0);
        tra_create_direct_traductor_o(&translators[1], 32, 0x03208000, 0x22, 0x02008000,
                                      TRA_FEMPTY_IS_ERROR);
        tra_create_register_traductor_o(&translators[2], 34, 0x03128100, 0, 0, 0);
        tra_create_direct_traductor_o(&translators[3], 25, 0x02408000, 0, 0, TRA_FNO_CHECK);
        for (TRA *t : translators) tra_oxcom_set_iso_converter(t, converter, nullptr);
    }
    return translators[which & 3];
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const unsigned choice = data[0];
    const uint32_t capacity = (choice >> 2) % 67; // 0..66 slots
    const std::string line(reinterpret_cast<const char *>(data + 1), size - 1);
    std::vector<uint8_t> record(static_cast<std::size_t>(TRA_RECORD_SIZE(capacity)));
    uint32_t count = 0;
    uint64_t mask = 0;
    int rc = tra_oxcom_translate_cmd_from_ascii_ex(translator(choice),
                                                   reinterpret_cast<TRA_RECORD *>(record.data()),
                                                   capacity, &count, &mask, line.c_str());
    if (rc == 0 && count != 0xFFFFFFFFu && (count > capacity || record[0] != (count & 0xFF)))
        std::abort();
    sup_trace_clear();
    return 0;
}
