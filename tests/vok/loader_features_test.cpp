// What a family description can say, read back through the queries: element overrides, changes and
// removals in later versions, card commands, enumeration entries limited to some users, value
// views, registers of a type without a name.
#include <string>

#include <gtest/gtest.h>

#include "ryn/vok.h"

namespace {

constexpr uint32_t k100A = 0x01008000, k110A = 0x01108000;

const char *kFamily = R"({
  "family": "FEATURES",
  "types": [{"code": 2, "names": ["K", "KF", "KL", "KD"], "whole_writable": true},
            {"code": 4, "description": "Scratch"},
            {"code": 15, "names": ["V", "VF"]}, {"code": 16, "names": ["T", "TF"]}],
  "enums": [
    {"id": 7, "name": "Mode", "entries": [
      {"name": "OFF", "value": 0},
      {"name": "SLOW", "value": 1, "registers": ["K1"]},
      {"name": "FAST", "value": 2, "registers": ["K2..3"], "params": ["40:0"]},
      {"name": "HALF", "value": 2.5}]},
    {"id": 9, "name": "Big", "entries": [{"name": "TOP", "value": "0x7FFFFFFFFFFFFFFF"}]}
  ],
  "register_sets": {
    "base": [
      {"reg": "K1..3", "alias": "MODE{n}", "enum": "Mode", "description": "Mode of stage {n}"},
      {"reg": "K10", "elements": 4, "min": -5, "max": 5, "default": [1, 2, 3, 4],
       "element": [{"at": 0, "reserved": true}, {"at": "1..2", "readonly": true, "min": 0, "max": 9},
                   {"at": 3, "factory": true}]},
      {"reg": "K11", "format": "string", "elements": 2, "default": "ABCDE"},
      {"reg": "K12", "format": "hex", "min": "0x0", "max": "0xFFFFFFFF", "default": "0xDEADBEEF"},
      {"reg": "KF1", "min": -1.5, "max": 2.25, "default": 0.5},
      {"reg": "KL1", "min": "0x0", "max": "0x7FFFFFFFFFFFFFFF", "default": 5000000000},
      {"reg": "#4:0..2", "description": "Scratch {i}"},
      {"reg": "VF1", "elements": 3, "default": [0.5, 1.5, 2.5]},
      {"reg": "T1", "rows": 3, "columns": 2}
    ]
  },
  "command_sets": {
    "c": [
      {"number": 40, "name": "GO", "params": [{"name": "mode", "enum": "Mode"}, {"kind": "double", "min": -0.5, "max": 0.75}]},
      {"number": 41, "name": "LST", "params": [{"vector": true}, {"kind": "float"}, {"vector": true, "kind": "int64"}]},
      {"number": 42, "name": "MANY", "params": [{"repeat": 5, "kind": "int64"}]},
      {"number": 43, "name": "GONE"}
    ]
  },
  "products": [
    {"code": 5, "name": "F5", "default": "1.10A", "versions": [
      {"version": "1.00A", "register_sets": ["base"], "command_sets": ["c"]},
      {"version": "1.10A", "base": "1.00A", "remove_registers": ["K3", "#4:2"], "remove_commands": [43],
       "registers": [{"reg": "K10", "max": 7}, {"reg": "K20"}],
       "commands": [{"number": 40, "name": "GO", "description": "Go again"}]}
    ]}
  ],
  "cards": [
    {"code": 9, "name": "F-CARD", "fits": [5], "default": "1.00A",
     "versions": [{"version": "1.00A", "registers": [{"reg": "K300"}], "commands": [{"number": 600, "name": "CARDGO"}]}]}
  ]
})";

class Features : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(vok_load_family_text(kFamily), 0) << vok_get_family_error();
        ASSERT_EQ(vok_open(&v100, 5, k100A, 0, 0), 0);
        ASSERT_EQ(vok_open(&v110, 5, k110A, 9, k100A), 0);
    }
    void TearDown() override {
        vok_close(&v100);
        vok_close(&v110);
        EXPECT_EQ(vok_load_default_family(), 0);
    }
    VOK_DICT *v100 = nullptr, *v110 = nullptr;
};

TEST_F(Features, ElementOverrides) {
    struct Row {
        uint32_t sub;
        int32_t min, max, def;
        int writable, reserved, user;
    };
    const Row rows[] = {{0, -5, 5, 1, 1, 1, 0},
                        {1, 0, 9, 2, 0, 0, 0},
                        {2, 0, 9, 3, 0, 0, 0},
                        {3, -5, 5, 4, 1, 0, 0}};
    for (const Row &r : rows) {
        SCOPED_TRACE("element " + std::to_string(r.sub));
        EXPECT_EQ(vok_get_reg_min_int32(v100, 2, 10, r.sub), r.min);
        EXPECT_EQ(vok_get_reg_max_int32(v100, 2, 10, r.sub), r.max);
        EXPECT_EQ(vok_get_reg_default_int32(v100, 2, 10, r.sub), r.def);
        EXPECT_EQ(vok_register_writable(v100, 2, 10, r.sub), r.writable);
        EXPECT_EQ(vok_element_is_reserved(v100, 2, 10, r.sub), r.reserved);
        EXPECT_EQ(vok_test_register(v100, 2, 10, r.sub), r.user);
    }
    EXPECT_TRUE(vok_test_register(v100, 2, 1, 0));
    EXPECT_FALSE(vok_test_register(v100, 2, 10, 4));
}

TEST_F(Features, LaterVersionsChangeAndRemove) {
    // 1.10A changes K10's maximum on every element that did not override it.
    EXPECT_EQ(vok_get_reg_max_int32(v110, 2, 10, 0), 7);
    EXPECT_EQ(vok_get_reg_max_int32(v110, 2, 10, 1), 9);
    EXPECT_EQ(vok_get_reg_default_int32(v110, 2, 10, 3), 4);
    EXPECT_TRUE(vok_index_exists(v100, 2, 3));
    EXPECT_FALSE(vok_index_exists(v110, 2, 3));
    EXPECT_TRUE(vok_index_exists(v110, 2, 20));
    EXPECT_EQ(vok_get_register_count(v110, 4), 2);
    EXPECT_TRUE(vok_command_exists(v100, 43));
    EXPECT_FALSE(vok_command_exists(v110, 43));
    EXPECT_STREQ(vok_get_command_name(v110, 2, 40), "Go again");
    EXPECT_EQ(vok_get_command_name(v100, 2, 40), nullptr);
    // The card adds its register and command.
    EXPECT_TRUE(vok_index_exists(v110, 2, 300));
    EXPECT_STREQ(vok_get_command_name(v110, 1, 600), "CARDGO");
    EXPECT_FALSE(vok_command_exists(v100, 600));
}

TEST_F(Features, EnumerationEntriesForSomeUsers) {
    struct Row {
        uint32_t index;
        bool off, slow, fast, half;
    };
    const Row rows[] = {
        {1, true, true, false, true}, {2, true, false, true, true}, {3, true, false, true, true}};
    for (const Row &r : rows) {
        SCOPED_TRACE(testing::Message() << "K" << r.index);
        EXPECT_EQ(vok_get_reg_enum(v100, 2, r.index, 0), 7);
        EXPECT_EQ(vok_enum_entry_for_reg(v100, 0, 2, r.index, 0), r.off);
        EXPECT_EQ(vok_enum_entry_for_reg(v100, 1, 2, r.index, 0), r.slow);
        EXPECT_EQ(vok_enum_entry_for_reg(v100, 2, 2, r.index, 0), r.fast);
        EXPECT_EQ(vok_enum_entry_for_reg(v100, 3, 2, r.index, 0), r.half);
    }
    EXPECT_STREQ(vok_get_register_name(v100, 1, 2, 2, 0), "MODE2");
    EXPECT_STREQ(vok_get_register_name(v100, 2, 2, 3, 0), "Mode of stage 3");
    EXPECT_TRUE(vok_enum_entry_for_param(v100, 2, 40, 0));
    EXPECT_FALSE(vok_enum_entry_for_param(v100, 1, 40, 0));
    EXPECT_TRUE(vok_enum_entry_for_param(v100, 0, 40, 0));
    EXPECT_FALSE(vok_enum_entry_for_param(v100, 0, 40, 1));
    EXPECT_FALSE(vok_enum_entry_for_reg(v100, 0, 2, 10, 0));
    // A fractional value: exact in the floating views, truncated in the integer ones.
    EXPECT_DOUBLE_EQ(vok_get_enum_value_double(v100, 7, 3), 2.5);
    EXPECT_FLOAT_EQ(vok_get_enum_value_float(v100, 7, 3), 2.5f);
    EXPECT_EQ(vok_get_enum_value_int32(v100, 7, 3), 2);
    EXPECT_EQ(vok_get_enum_value_int64(v100, 9, 0), INT64_MAX);
}

TEST_F(Features, ValueViews) {
    EXPECT_EQ(vok_get_reg_default_int32(v100, 2, 11, 0),
              int32_t('A' | 'B' << 8 | 'C' << 16 | 'D' << 24));
    EXPECT_EQ(vok_get_reg_default_int32(v100, 2, 11, 1), 'E');
    EXPECT_EQ(vok_get_register_format(v100, 2, 11, 0), VOK_FORMAT_STRING);
    EXPECT_EQ(vok_get_reg_default_int32(v100, 2, 12, 0), int32_t(0xDEADBEEFu));
    EXPECT_EQ(vok_get_reg_max_int32(v100, 2, 12, 0), -1);
    EXPECT_EQ(vok_get_reg_max_int64(v100, 2, 12, 0), 0xFFFFFFFFll);
    EXPECT_FLOAT_EQ(vok_get_reg_min_float(v100, 34, 1, 0), -1.5f);
    EXPECT_DOUBLE_EQ(vok_get_reg_max_double(v100, 34, 1, 0), 2.25);
    EXPECT_FLOAT_EQ(vok_get_reg_default_float(v100, 34, 1, 0), 0.5f);
    EXPECT_EQ(vok_get_reg_default_int64(v100, 66, 1, 0), 5000000000ll);
    EXPECT_EQ(vok_get_reg_max_int64(v100, 66, 1, 0), INT64_MAX);
    EXPECT_FLOAT_EQ(vok_get_reg_default_float(v100, 47, 1, 2), 2.5f);
    EXPECT_EQ(vok_get_register_rows(v100, 16, 1), 3);
    EXPECT_EQ(vok_get_register_columns(v100, 16, 1), 2);
    EXPECT_EQ(vok_get_register_length(v100, 16, 1), 6);
    EXPECT_EQ(vok_get_register_rows(v100, 47, 1), 1);
    EXPECT_EQ(vok_get_register_columns(v100, 47, 1), 3);
    EXPECT_EQ(vok_get_type_name(v100, 1, 4), nullptr);
    EXPECT_STREQ(vok_get_type_name(v100, 2, 4), "Scratch");
    EXPECT_STREQ(vok_get_register_name(v100, 2, 4, 2, 0), "Scratch 2");
    EXPECT_TRUE(vok_register_type_writable(v100, 2));
    EXPECT_FALSE(vok_register_type_writable(v100, 4));
}

TEST_F(Features, CommandParameters) {
    EXPECT_TRUE(vok_command_has_vector_params(v100, 41));
    EXPECT_FALSE(vok_command_has_vector_params(v100, 40));
    EXPECT_TRUE(vok_param_is_vector(v100, 41, 0));
    EXPECT_FALSE(vok_param_is_vector(v100, 41, 1));
    EXPECT_TRUE(vok_param_is_vector(v100, 41, 2));
    EXPECT_TRUE(vok_param_is_int64(v100, 41, 2));
    EXPECT_EQ(vok_get_param_count(v100, 42), 5);
    for (int p = 0; p < 5; ++p)
        EXPECT_EQ(vok_get_param_kind(v100, 42, p), 0x40u);
    EXPECT_DOUBLE_EQ(vok_get_param_min_double(v100, 40, 1), -0.5);
    EXPECT_FLOAT_EQ(vok_get_param_max_float(v100, 40, 1), 0.75f);
    EXPECT_EQ(vok_get_param_format(v100, 40, 1), VOK_FORMAT_FLOAT);
    EXPECT_EQ(vok_get_param_format(v100, 40, 0), VOK_FORMAT_DECIMAL);
    EXPECT_EQ(vok_get_param_enum(v100, 40, 0), 7);
}

} // namespace
