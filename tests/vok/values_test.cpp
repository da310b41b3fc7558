// The value-class helper and the generic default getter agree with the typed getters.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>

#include "ryn/vok.h"

namespace {

TEST(Values, RawDefaultsAgreeWithTheTypedGetters) {
    VOK_DICT *d = nullptr;
    ASSERT_EQ(vok_open(&d, 32, 0x03128100, 0, 0), 0);
    int checked[4] = {};
    for (uint32_t kind = 0; kind < VOK_TYPE_COUNT; ++kind) {
        for (int index = 0; index < vok_get_register_count(d, kind); ++index) {
            const auto i = static_cast<uint32_t>(index);
            if (!vok_register_exists(d, kind, i, 0)) continue;
            uint64_t raw = ~uint64_t(0);
            ASSERT_EQ(vok_get_reg_default_raw(d, kind, i, 0, &raw), 0);
            uint64_t typed = 0;
            switch (vok_value_class(kind)) {
            case VOK_CLASS_FLOAT:
                typed = std::bit_cast<uint32_t>(vok_get_reg_default_float(d, kind, i, 0));
                break;
            case VOK_CLASS_INT64:
            case VOK_CLASS_DOUBLE: // the typed getter gives a double's bits
                typed = static_cast<uint64_t>(vok_get_reg_default_int64(d, kind, i, 0));
                break;
            default:
                typed = static_cast<uint32_t>(vok_get_reg_default_int32(d, kind, i, 0));
                break;
            }
            EXPECT_EQ(raw, typed) << "kind " << kind << " index " << index;
            ++checked[vok_value_class(kind) >> 5];
        }
    }
    for (int n : checked)
        EXPECT_GT(n, 0) << "every value class met";
    uint64_t raw = 7;
    EXPECT_EQ(vok_get_reg_default_raw(d, 2, 60000, 0, &raw), -1);
    EXPECT_EQ(vok_get_reg_default_raw(d, 2, 1, 0, nullptr), -1);
    EXPECT_EQ(vok_value_class(0x7F), VOK_CLASS_DOUBLE);
    vok_close(&d);
}

} // namespace
