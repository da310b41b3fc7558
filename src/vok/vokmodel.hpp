// The dictionary model: a loaded family of drive descriptions and the per-configuration views of
// it.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

#include "wire/wire.hpp"

namespace ryn::vok {

constexpr uint32_t kTypeCount = 128;
constexpr uint32_t kCommandCount = 14592;
constexpr uint32_t kDriveOnly = 0xFFFFFFFEu;

// Value classes of a kind word (bits 5 and 6), as the wire module defines them.
enum ValueClass : uint32_t {
    kInt32 = wire::CLASS_INT32,
    kFloat = wire::CLASS_FLOAT,
    kInt64 = wire::CLASS_INT64,
    kDouble = wire::CLASS_DOUBLE
};

inline uint32_t value_class(uint32_t kind) {
    return wire::value_class(kind);
}
inline bool is_float_class(uint32_t kind) {
    return wire::is_float_class(wire::value_class(kind));
}
// Type codes of the vector and the matrix registers.
constexpr uint32_t kVectorType = 15;
constexpr uint32_t kMatrixType = 16;
inline uint32_t type_code(uint32_t kind) {
    return kind & wire::TYPE_CODE_MASK;
}

// A number as the descriptor gave it: integers keep all 64 bits, floating values their double.
struct Value {
    int64_t i = 0;
    double d = 0.0;
    static Value of_int(int64_t v) { return Value{v, static_cast<double>(v)}; }
    static Value of_double(double v);
};

enum ElementFlags : uint8_t { kReadOnly = 1, kReserved = 2, kFactory = 4 };

struct Element {
    Value min, max, def;
    int32_t enumeration = 0;
    uint8_t flags = 0;
};

struct Register {
    uint32_t kind = 0;
    uint32_t index = 0;
    const char *alias = nullptr;
    const char *description = nullptr;
    const char *cls = nullptr;
    int format = 3;
    bool iso = false;
    int iso_unit = 0;
    uint32_t rows = 1;
    uint32_t columns = 1;
    std::vector<Element> elements;
};

struct Param {
    const char *name = nullptr;
    uint32_t kind = 0;
    Value min, max;
    int format = 0;
    bool iso = false;
    int iso_unit = 0;
    int32_t enumeration = 0;
    bool vector = false;
};

struct Command {
    uint32_t number = 0;
    const char *name = nullptr;
    const char *description = nullptr;
    std::vector<Param> params;
    bool vector_params = false;
};

struct EnumEntry {
    const char *name = nullptr;
    const char *description = nullptr;
    int32_t parent = -1;
    bool mask = false;
    Value value;
    // Registers (kind << 16 | index) and parameters (command << 8 | position) the entry is limited
    // to; both empty: every user of the enumeration.
    std::vector<uint32_t> registers;
    std::vector<uint32_t> params;
};

struct Enumeration {
    int32_t id = 0;
    const char *name = nullptr;
    std::vector<EnumEntry> entries;
};

struct TypeInfo {
    const char *name = nullptr;
    const char *description = nullptr;
    bool hidden = false;
    bool whole_writable = false;
    bool always = false;   // present in every dictionary, even without registers
    bool readonly = false; // no register of the type may be assigned
    // Absolute addresses: every index names a one-element register that is not listed.
    const Register *address_register = nullptr;
};

using RegisterKey = uint32_t; // kind << 16 | index
inline RegisterKey reg_key(uint32_t kind, uint32_t index) {
    return (kind << 16) | index;
}

// What one product version or card version holds once its base and its changes are applied.
struct Layer {
    std::map<RegisterKey, const Register *> registers;
    std::map<uint32_t, const Command *> commands;
};

struct ProductVersion {
    uint32_t version = 0;
    Layer layer;
};

struct Product {
    uint32_t code = 0;
    const char *name = nullptr;
    const char *description = nullptr;
    bool reserved = false;
    bool axis63 = false;
    int dictionary_class = 1;
    uint32_t default_version = 0;
    std::vector<ProductVersion> versions; // ascending
    const ProductVersion *find(uint32_t version) const;
};

struct CardVersion {
    uint32_t version = 0;
    Layer layer;
};

struct Card {
    uint32_t code = 0;
    const char *name = nullptr;
    const char *description = nullptr;
    uint32_t default_version = 0;
    std::vector<uint32_t> fits; // drive products it fits, ascending
    std::vector<CardVersion> versions;
    const CardVersion *find(uint32_t version) const;
};

struct Family;

// The immutable view of one configuration: registers by type and index, commands by number.
struct Model {
    const Family *family = nullptr;
    const Product *product = nullptr;
    int dictionary_class = 1;
    struct Type {
        std::vector<const Register *> regs; // by index, null in gaps
        std::vector<uint32_t> indexes;      // the indexes that exist, ascending
        uint32_t subindex_count = 0;
        bool present = false;
    };
    std::array<Type, kTypeCount> types;
    std::vector<const Command *> commands; // kCommandCount entries
    std::vector<uint32_t> command_numbers; // the numbers that exist, ascending
    // Register aliases and command names, sorted case-insensitively, for lookups by name.
    std::vector<std::pair<const char *, RegisterKey>> aliases;
    std::vector<std::pair<const char *, uint32_t>> command_names;
};

// One loaded family. Everything in it lives until the process ends.
struct Family {
    std::string source; // file name, or "<text>" / "<embedded>"
    std::string name;   // the family's own name ("ORAX")
    std::string description;
    std::array<TypeInfo, kTypeCount> types;
    std::map<int32_t, Enumeration> enums;
    std::map<uint32_t, Product> products;
    std::map<uint32_t, Card> cards;
    std::vector<uint32_t> product_codes, card_codes; // ascending, for browsing by position
    std::deque<Register> registers;
    std::deque<Command> commands;
    std::unordered_set<std::string> texts;

    const char *intern(const std::string &text);

    // Models built on demand, one per configuration, kept for the family's life.
    mutable std::mutex models_lock;
    mutable std::map<std::array<uint32_t, 4>, std::unique_ptr<Model>> models;
};

// An open dictionary: the model and the four numbers it was opened with.
struct Dict {
    const Model *model;
    uint32_t product, version, ext_product, ext_version;
};

// ASCII case-insensitive ordering of names.
bool name_less(const char *a, const char *b);

// Loads a family description; on failure returns the code and fills message.
int load_family(const std::string &json, const std::string &source, std::unique_ptr<Family> &out,
                std::string &message);

// The family's model of a configuration (built on first use); null with a code on failure.
const Model *model_of(const Family &family, uint32_t product, uint32_t version,
                      uint32_t ext_product, uint32_t ext_version, int &code, std::string &detail);

// The family in force (the embedded one unless another was loaded).
const Family &active_family();

// Text of the embedded ORAX family.
const char *embedded_family_text();
extern const char *const embedded_family_name;

} // namespace ryn::vok

// The opaque handle type of the public header.
struct VOK_DICT {
    ryn::vok::Dict dict;
};
