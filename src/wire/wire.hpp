// The command record as it travels on the drives' bus, shared by the translator, the bus library
// and the simulated drive: header and slots, little-endian access, register and element reference
// encodings, record kinds, the named command numbers and the value classes of type tags.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace ryn::wire {

inline constexpr int RECORD_HEADER_SIZE = 8;
inline constexpr int RECORD_SLOT_SIZE = 16;
inline constexpr int RECORD_MAX_SLOTS = 65;
inline constexpr int RECORD_MAX_SIZE = RECORD_HEADER_SIZE + RECORD_SLOT_SIZE * RECORD_MAX_SLOTS;

// Byte size of a record with room for `slots` slots; 0 for a count outside 0..65.
constexpr int record_size(int slots) {
    return slots < 0 || slots > RECORD_MAX_SLOTS ? 0
                                                 : RECORD_HEADER_SIZE + RECORD_SLOT_SIZE * slots;
}
static_assert(RECORD_MAX_SIZE == 1048);

// Header of a record. Read as one little-endian 32-bit word: the slot count in the low byte, the
// gate in bits 8..10, the status bit 0x4000, the drives' acknowledge 0x8000, the command number's
// low byte in byte 2 and the record kind in the high byte.
struct RecordHeader {
    uint8_t count;   // parameter slots in use
    uint8_t gate;    // bits 0..2 the gate; bit 6 status (0x4000 of the word), bit 7 acknowledge
    uint8_t command; // command number, low 8 bits
    uint8_t kind;    // record kind; for commands 32 + (command >> 8), 24 + ... with "!"
    uint8_t zero[4];
};
static_assert(sizeof(RecordHeader) == RECORD_HEADER_SIZE &&
              std::is_standard_layout_v<RecordHeader>);
static_assert(offsetof(RecordHeader, count) == 0 && offsetof(RecordHeader, gate) == 1 &&
              offsetof(RecordHeader, command) == 2 && offsetof(RecordHeader, kind) == 3);

// Bits of the header word.
inline constexpr uint32_t HEADER_ACK = 0x8000;    // the drives acknowledged the record
inline constexpr uint32_t HEADER_STATUS = 0x4000; // some drive reported an error
inline constexpr uint32_t HEADER_GATE_MASK = 0x0700;

// One parameter slot: a 32-bit type tag, 4 zero bytes, an 8-byte value.
struct RecordSlot {
    uint8_t tag[4];
    uint8_t zero[4];
    uint8_t value[8];
};
static_assert(sizeof(RecordSlot) == RECORD_SLOT_SIZE && std::is_standard_layout_v<RecordSlot>);
static_assert(offsetof(RecordSlot, tag) == 0 && offsetof(RecordSlot, value) == 8);

// Record kinds.
inline constexpr uint8_t REC_DOLLAR = 4;         // written back with the "$" prefix
inline constexpr uint8_t REC_READ = 18;          // register read list ("multiple record")
inline constexpr uint8_t REC_VECTOR_READ = 19;   // read of a vector register
inline constexpr uint8_t REC_BANG_COMMAND = 24;  // command with the "!" prefix (+ page)
inline constexpr uint8_t REC_BANG_ELEMENTS = 30; // element assignment with "!"
inline constexpr uint8_t REC_COMMAND = 32;       // command (+ page)
inline constexpr uint8_t REC_ELEMENTS = 38;      // element assignment
inline constexpr uint8_t REC_BANG_FAR = 80;      // "!" command of page 56
inline constexpr uint8_t REC_FAR = 88;           // command of page 56

// The kind of a command record: its page added to the plain or the "!" base kind.
constexpr uint8_t command_kind(int32_t command, bool bang) {
    return static_cast<uint8_t>((bang ? REC_BANG_COMMAND : REC_COMMAND) + (command >> 8));
}

// What a record kind says about the command a record carries.
struct KindCommand {
    bool carries; // the kind is one of the command kinds
    bool bang;    // sent with the "!" prefix
    int32_t code; // page * 256 + the header's command byte
};
constexpr KindCommand command_of(uint32_t kind, uint32_t command_byte) {
    if ((kind >= REC_BANG_COMMAND && kind <= REC_BANG_COMMAND + 3) || kind == REC_BANG_ELEMENTS ||
        kind == REC_BANG_ELEMENTS + 1 || kind == REC_BANG_FAR)
        return {true, true, static_cast<int32_t>((kind - REC_BANG_COMMAND) * 256 + command_byte)};
    if ((kind >= REC_COMMAND && kind <= REC_COMMAND + 7) || kind == REC_FAR)
        return {true, false, static_cast<int32_t>((kind - REC_COMMAND) * 256 + command_byte)};
    return {false, false, 0};
}

// Registers one read record (kind 18) carries on the bus: a longer read list goes out in chunks.
inline constexpr int READ_CHUNK_SLOTS = 4;

// The command number under which the sender of a command looks a drive's answer up in the
// dictionaries, to decide whether the answer or the command sent is written back: the header's
// command byte with a page taken from the kind. Kinds 24..31 and 80 count pages from 24, 32..35
// and 88 from 32, and 36..39 from 36; other kinds have no page.
constexpr int32_t answer_command(uint32_t kind, uint32_t command_byte) {
    uint32_t page = 0;
    if ((kind >= REC_BANG_COMMAND && kind < REC_COMMAND) || kind == REC_BANG_FAR)
        page = kind - REC_BANG_COMMAND;
    else if ((kind >= REC_COMMAND && kind < REC_COMMAND + 4) || kind == REC_FAR)
        page = kind - REC_COMMAND;
    else if (kind >= REC_COMMAND + 4 && kind < REC_COMMAND + 8)
        page = kind - (REC_COMMAND + 4);
    return static_cast<int32_t>(page * 256 + command_byte);
}
static_assert(answer_command(REC_FAR, 4) == 14340 && answer_command(REC_ELEMENTS, 1) == 513 &&
              answer_command(REC_READ, 7) == 7);

// A request from the drives' side of the exchange: register reads of either kind.
constexpr bool is_request_kind(uint32_t kind) {
    return kind == REC_READ || kind == REC_VECTOR_READ;
}

// Named command numbers (page * 256 + number).
inline constexpr int32_t CMD_ADD = 91;              // "+="
inline constexpr int32_t CMD_SUBTRACT = 92;         // "-="
inline constexpr int32_t CMD_MULTIPLY = 93;         // "*="
inline constexpr int32_t CMD_DIVIDE = 94;           // "/="
inline constexpr int32_t CMD_AND = 95;              // "&="
inline constexpr int32_t CMD_OR = 96;               // "|="
inline constexpr int32_t CMD_AND_NOT = 97;          // "&~="
inline constexpr int32_t CMD_OR_NOT = 98;           // "|~="
inline constexpr int32_t CMD_XOR = 99;              // "^="
inline constexpr int32_t CMD_XOR_NOT = 100;         // "^~="
inline constexpr int32_t CMD_MODULO = 101;          // "%="
inline constexpr int32_t CMD_COMPOUND_LAST = 101;   // 91..101: compound operators
inline constexpr int32_t CMD_STEP_ADD = 114;        // "STE+="
inline constexpr int32_t CMD_STEP_SUBTRACT = 115;   // "STE-="
inline constexpr int32_t CMD_CONVERT = 122;         // assignment with conversion
inline constexpr int32_t CMD_SET = 123;             // register assignment
inline constexpr int32_t CMD_SET_LIST = 125;        // assignment of several elements
inline constexpr int32_t CMD_STEP = 129;            // "STE="
inline constexpr int32_t CMD_SHIFT_RIGHT = 172;     // ">>="
inline constexpr int32_t CMD_SHIFT_LEFT = 173;      // "<<="
inline constexpr int32_t CMD_INVERT = 174;          // "~="
inline constexpr int32_t CMD_COMPOUND2_FIRST = 172; // 172..174: more compound operators
inline constexpr int32_t CMD_COMPOUND2_LAST = 174;
inline constexpr int32_t CMD_ELEMENT_ASSIGN = 1537; // page 6, number 1: kinds 38 and 30
inline constexpr int32_t CMD_SET_VERSION = 20;      // writes a register version slot
inline constexpr int32_t CMD_SAVE = 48;             // SAV
inline constexpr int32_t CMD_RESET = 79;            // RST
inline constexpr int32_t CMD_POWER = 124;           // PWR
inline constexpr int32_t CMD_MOVE = 160;            // MVE

static_assert(command_kind(CMD_ELEMENT_ASSIGN, false) == REC_ELEMENTS &&
              command_kind(CMD_ELEMENT_ASSIGN, true) == REC_BANG_ELEMENTS);

// What counts as an assignment, settled here for every reader of records:
// A plain register assignment ("=", 123 and 125), the only command a parameter download sends:
// its first slot is the destination, string and address registers are expanded and checked.
constexpr bool is_assignment(int32_t cmd) {
    return cmd == CMD_SET || cmd == CMD_SET_LIST;
}
// A compound assignment operator ("+=", "&=", ...).
constexpr bool is_compound(int32_t cmd) {
    return (cmd >= CMD_ADD && cmd <= CMD_COMPOUND_LAST) ||
           (cmd >= CMD_COMPOUND2_FIRST && cmd <= CMD_COMPOUND2_LAST);
}
// The arithmetic operators "+=", "-=", "*=", "/=": same value class on both sides, no vectors.
constexpr bool is_arithmetic(int32_t cmd) {
    return cmd >= CMD_ADD && cmd <= CMD_DIVIDE;
}
// An assignment whose values are in the destination register's own units: "=" and the additive
// "+=", "-=". Their values are converted from ISO units as the register's, and a download's type
// filter judges them by the register's type.
constexpr bool is_unit_assignment(int32_t cmd) {
    return is_assignment(cmd) || cmd == CMD_ADD || cmd == CMD_SUBTRACT;
}
// Any command that changes a register: the plain and the compound assignments. The element
// assignment (1537) is not one of them.
constexpr bool is_register_write(int32_t cmd) {
    return is_assignment(cmd) || is_compound(cmd);
}

// The symbol of a compound operator as the text writes it before its "=", or null.
struct CompoundOperator {
    int32_t command;
    const char *symbol;
};
inline constexpr CompoundOperator COMPOUND_OPERATORS[] = {
    {CMD_ADD, "+"},         {CMD_SUBTRACT, "-"}, {CMD_MULTIPLY, "*"}, {CMD_DIVIDE, "/"},
    {CMD_AND, "&"},         {CMD_OR, "|"},       {CMD_AND_NOT, "&~"}, {CMD_OR_NOT, "|~"},
    {CMD_XOR, "^"},         {CMD_XOR_NOT, "^~"}, {CMD_MODULO, "%"},   {CMD_SHIFT_RIGHT, ">>"},
    {CMD_SHIFT_LEFT, "<<"}, {CMD_INVERT, "~"},
};
constexpr const char *compound_symbol(int32_t cmd) {
    for (const CompoundOperator &op : COMPOUND_OPERATORS)
        if (op.command == cmd) return op.symbol;
    return nullptr;
}

// Value classes: bits 5 and 6 of a type tag or kind word.
inline constexpr uint32_t VALUE_CLASS_MASK = 0x60;
inline constexpr uint32_t CLASS_INT32 = 0x00;
inline constexpr uint32_t CLASS_FLOAT = 0x20;
inline constexpr uint32_t CLASS_INT64 = 0x40;
inline constexpr uint32_t CLASS_DOUBLE = 0x60;
inline constexpr uint32_t TYPE_CODE_MASK = 0x1F;
inline constexpr uint32_t KIND_WORD_MASK = 0x7F; // type code and value class
// Type code of the "A" registers: their slot keeps the whole address word.
inline constexpr uint32_t TYPE_ADDRESS = 7;

constexpr uint32_t value_class(uint32_t tag) {
    return tag & VALUE_CLASS_MASK;
}
// A value of this class takes all 8 bytes of the slot value.
constexpr bool is_wide_class(uint32_t value_class) {
    return (value_class & CLASS_INT64) != 0;
}
// A value of this class is a floating-point number (float or double).
constexpr bool is_float_class(uint32_t value_class) {
    return (value_class & CLASS_FLOAT) != 0;
}
// Byte count of a value of this class in the slot: 8 or 4.
constexpr int value_size(uint32_t value_class) {
    return is_wide_class(value_class) ? 8 : 4;
}
// A tag that names a register (non-zero type code), not a plain value.
constexpr bool is_register_tag(uint32_t tag) {
    return (tag & TYPE_CODE_MASK) != 0;
}

// Little-endian loads and stores, whatever the host.
inline uint32_t load_u32(const uint8_t *p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline uint64_t load_u64(const uint8_t *p) {
    return load_u32(p) | uint64_t(load_u32(p + 4)) << 32;
}
inline void store_u32(uint8_t *p, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline void store_u64(uint8_t *p, uint64_t v) {
    store_u32(p, static_cast<uint32_t>(v));
    store_u32(p + 4, static_cast<uint32_t>(v >> 32));
}

// A view of a record in a caller's buffer; Byte is uint8_t for a writable record and
// const uint8_t for one that is only read.
template <typename Byte>
struct BasicRecordView {
    Byte *bytes;

    uint32_t word() const { return load_u32(bytes); }
    int count() const { return bytes[0]; }
    uint32_t kind() const { return bytes[3]; }
    uint32_t command_byte() const { return bytes[2]; }
    const Byte *slot_bytes(int i) const {
        return bytes + RECORD_HEADER_SIZE + RECORD_SLOT_SIZE * i;
    }
    uint32_t tag(int i) const { return load_u32(slot_bytes(i)); }
    uint32_t value32(int i) const { return load_u32(slot_bytes(i) + 8); }
    uint64_t value64(int i) const { return load_u64(slot_bytes(i) + 8); }
    int size() const { return record_size(count()); }

    using Header = std::conditional_t<std::is_const_v<Byte>, const RecordHeader, RecordHeader>;
    using Slot = std::conditional_t<std::is_const_v<Byte>, const RecordSlot, RecordSlot>;
    Header &header() const { return *reinterpret_cast<Header *>(bytes); }
    Slot &slot(int i) const {
        return *reinterpret_cast<Slot *>(bytes + RECORD_HEADER_SIZE + RECORD_SLOT_SIZE * i);
    }

    // Writers, for writable records only.
    void set_word(uint32_t w) const requires(!std::is_const_v<Byte>) { store_u32(bytes, w); }
    void set_tag(int i, uint32_t tag) const requires(!std::is_const_v<Byte>) {
        store_u32(bytes + RECORD_HEADER_SIZE + RECORD_SLOT_SIZE * i, tag);
    }
    void set_value32(int i, uint32_t v) const requires(!std::is_const_v<Byte>) {
        store_u32(bytes + RECORD_HEADER_SIZE + RECORD_SLOT_SIZE * i + 8, v);
    }
    void set_value64(int i, uint64_t v) const requires(!std::is_const_v<Byte>) {
        store_u64(bytes + RECORD_HEADER_SIZE + RECORD_SLOT_SIZE * i + 8, v);
    }
    void clear(int capacity) const requires(!std::is_const_v<Byte>) {
        std::memset(bytes, 0,
                    static_cast<std::size_t>(RECORD_HEADER_SIZE + RECORD_SLOT_SIZE * capacity));
    }
};
using RecordView = BasicRecordView<uint8_t>;
using ConstRecordView = BasicRecordView<const uint8_t>;

// A register reference in a slot's first 32-bit word: 16-bit index, 8-bit first subscript,
// 7-bit axis field, bit 31 zero.
struct RegisterRef {
    uint32_t index;
    uint32_t subscript;
    uint32_t axis;
};
constexpr uint32_t encode_register(uint32_t index, uint32_t subscript, uint32_t axis) {
    return (index & 0xFFFF) | (subscript & 0xFF) << 16 | (axis & 0x7F) << 24;
}
constexpr RegisterRef decode_register(uint32_t word) {
    return {word & 0xFFFF, word >> 16 & 0xFF, word >> 24 & 0x7F};
}
// Destination of an assignment (123, 125): the 7-bit axis field holds 64 whatever the token held.
constexpr uint32_t encode_destination(uint32_t index, uint32_t subscript) {
    return encode_register(index, subscript, 64);
}

// An element reference (kinds 30 and 38): 24-bit index, 24-bit element, bit 62 set.
constexpr uint64_t encode_element(uint32_t index, uint32_t element) {
    return uint64_t(index & 0xFFFFFF) | uint64_t(element & 0xFFFFFF) << 24 | uint64_t(1) << 62;
}
inline constexpr uint32_t ELEMENT_REF_TAG_BIT = 0x00010000; // third byte of the tag: 1
// The index and element of an element reference; of a register given as a value of an element
// assignment, its index and row (the same bit places).
struct ElementRef {
    uint32_t index;
    uint32_t element;
};
constexpr ElementRef decode_element(uint64_t value) {
    return {static_cast<uint32_t>(value & 0xFFFFFF), static_cast<uint32_t>(value >> 24 & 0xFFFFFF)};
}

// A register given as a value of an element assignment: 24-bit index, 24-bit row, 7-bit axis.
constexpr uint64_t encode_element_value_register(uint32_t index, uint32_t row, uint32_t axis) {
    return uint64_t(index & 0xFFFFFF) | uint64_t(row & 0xFFFFFF) << 24 |
           uint64_t(axis & 0x7F) << 56;
}
// A register value of an element assignment read back: index, row, axis field.
constexpr RegisterRef decode_element_value_register(uint64_t value) {
    return {static_cast<uint32_t>(value & 0xFFFFFF), static_cast<uint32_t>(value >> 24 & 0xFFFFFF),
            static_cast<uint32_t>(value >> 56 & 0x7F)};
}

// The tag of a value in a list or element record: the value's own tag in byte 0, its position in
// its group in byte 1, the group's size (for a destination: the matrix form) in byte 2.
constexpr uint32_t encode_list_tag(uint32_t tag, int position, int count) {
    return (tag & 0xFF) | uint32_t(position & 0xFF) << 8 | uint32_t(count & 0xFF) << 16;
}
constexpr uint32_t list_tag_own(uint32_t tag) {
    return tag & 0xFF;
}
constexpr int list_tag_position(uint32_t tag) {
    return static_cast<int>(tag >> 8 & 0xFF);
}
constexpr int list_tag_count(uint32_t tag) {
    return static_cast<int>(tag >> 16 & 0xFF);
}

// Register version slots: type 3, index 282, subindex = slot (3..10).
inline constexpr uint32_t VERSION_TYPE = 3;
inline constexpr uint32_t VERSION_INDEX = 282;

// Drive, extension card and bus information records handed out by the bus library.
struct DriveInfo {
    uint32_t size; // 76
    uint32_t product;
    uint32_t boot_revision;
    uint32_t serial;
    uint32_t version;
    uint32_t reserved[14];
};
static_assert(sizeof(DriveInfo) == 76 && offsetof(DriveInfo, version) == 16);
struct ExtInfo {
    uint32_t size; // 20
    uint32_t product;
    uint32_t boot_revision;
    uint32_t serial;
    uint32_t version;
};
static_assert(sizeof(ExtInfo) == 20 && offsetof(ExtInfo, version) == 16);
struct BusInfo {
    uint32_t size;  // 12
    uint32_t flags; // BUS_NO_PRESENCE_FILTER
    uint32_t reserved;
};
static_assert(sizeof(BusInfo) == 12 && offsetof(BusInfo, flags) == 4);
inline constexpr uint32_t BUS_NO_PRESENCE_FILTER = 0x40;

// ---- The served bus protocol (tcp://, docs/bus.md) ----
// A byte stream of frames: an 8-byte header (body size, frame type, two zero bytes), then the
// body. Every number is little-endian. The layouts below are the bodies' fixed parts; a record,
// a token, a text or a list of type bytes follows some of them.

inline constexpr uint32_t NET_MAGIC = 0x4258524F; // "ORXB" read as a little-endian word
inline constexpr uint32_t NET_VERSION = 1;
inline constexpr uint32_t NET_MAX_BODY = 2048; // larger bodies close the connection
inline constexpr uint32_t NET_MAX_TOKEN = 256;
inline constexpr uint32_t NET_MAX_TEXT = 512;

struct FrameHeader {
    uint32_t size; // bytes of body after the header, 0 .. NET_MAX_BODY
    uint16_t type; // FrameType
    uint16_t zero;
};
static_assert(sizeof(FrameHeader) == 8 && offsetof(FrameHeader, type) == 4 &&
              offsetof(FrameHeader, zero) == 6);
inline constexpr uint32_t FRAME_HEADER_SIZE = sizeof(FrameHeader);

// Frame types. A request that expects a reply is answered by a frame of its type | NET_REPLY.
enum FrameType : uint16_t {
    FRAME_HELLO = 1,        // client: HelloBody + token
    FRAME_WELCOME = 2,      // server: WelcomeBody
    FRAME_REFUSED = 3,      // server: RefusedBody + text; the server then closes
    FRAME_SEND = 16,        // client: SendBody + record
    FRAME_ANSWER = 17,      // server: AnswerBody + record
    FRAME_EVENT = 18,       // server: EventBody
    FRAME_LOCK = 32,        // client: CallBody (arg: timeout_ms); reply without payload
    FRAME_UNLOCK = 33,      // client: CallBody; no reply
    FRAME_PRESENT = 34,     // client: CallBody; reply: u64 mask
    FRAME_DRIVE_INFO = 35,  // client: CallBody (arg: axis); reply: DriveInfo
    FRAME_EXT_INFO = 36,    // client: CallBody (arg: axis); reply: ExtInfo
    FRAME_BUS_INFO = 37,    // client: CallBody; reply: BusInfo
    FRAME_CHECK_TYPES = 38, // client: CallBody (arg: count) + count type bytes; reply: u32 allowed
};
inline constexpr uint16_t NET_REPLY = 0x80;

struct HelloBody {
    uint32_t magic;      // NET_MAGIC
    uint32_t version;    // NET_VERSION
    uint32_t token_size; // bytes of token after the body, 0 .. NET_MAX_TOKEN
    uint32_t zero;
};
static_assert(sizeof(HelloBody) == 16 && offsetof(HelloBody, token_size) == 8);

struct WelcomeBody {
    uint32_t version;   // NET_VERSION
    uint32_t answer_ms; // the served bus's answer time
    uint32_t max_body;  // NET_MAX_BODY
    uint32_t zero;
};
static_assert(sizeof(WelcomeBody) == 16 && offsetof(WelcomeBody, max_body) == 8);

struct RefusedBody {
    int32_t code;       // a bus library code: why
    uint32_t text_size; // bytes of text after the body, 0 .. NET_MAX_TEXT
};
static_assert(sizeof(RefusedBody) == 8 && offsetof(RefusedBody, text_size) == 4);

struct SendBody {
    uint64_t ticket; // opaque to the server, handed back in the answer
    uint64_t axes;
    int32_t timeout_ms; // how long the record may wait for a lock held by another client
    uint32_t zero;
};
static_assert(sizeof(SendBody) == 24 && offsetof(SendBody, axes) == 8 &&
              offsetof(SendBody, timeout_ms) == 16);

struct AnswerBody {
    uint64_t ticket;
};
static_assert(sizeof(AnswerBody) == 8);

struct EventBody {
    int32_t axis;
    int32_t event; // OXB_EVENT_DRIVE_PRESENT or OXB_EVENT_DRIVE_GONE
};
static_assert(sizeof(EventBody) == 8 && offsetof(EventBody, event) == 4);

struct CallBody {
    uint64_t call; // chosen by the client, handed back in the reply
    int32_t arg;
    uint32_t zero;
};
static_assert(sizeof(CallBody) == 16 && offsetof(CallBody, arg) == 8);

struct ReplyBody {
    uint64_t call;
    int32_t code; // 0 or a bus library code; a payload follows only with 0
    uint32_t zero;
};
static_assert(sizeof(ReplyBody) == 16 && offsetof(ReplyBody, code) == 8);

inline void store_frame_header(uint8_t *p, uint32_t body_size, uint16_t type) {
    store_u32(p + offsetof(FrameHeader, size), body_size);
    p[offsetof(FrameHeader, type)] = static_cast<uint8_t>(type);
    p[offsetof(FrameHeader, type) + 1] = static_cast<uint8_t>(type >> 8);
    p[offsetof(FrameHeader, zero)] = 0;
    p[offsetof(FrameHeader, zero) + 1] = 0;
}
inline FrameHeader load_frame_header(const uint8_t *p) {
    FrameHeader h{};
    h.size = load_u32(p + offsetof(FrameHeader, size));
    h.type = static_cast<uint16_t>(p[4] | p[5] << 8);
    h.zero = static_cast<uint16_t>(p[6] | p[7] << 8);
    return h;
}
// The byte size of a frame's fixed body part, 0 for a type the protocol does not know.
constexpr uint32_t frame_fixed_size(uint16_t type) {
    switch (type) {
    case FRAME_HELLO:
        return sizeof(HelloBody);
    case FRAME_WELCOME:
        return sizeof(WelcomeBody);
    case FRAME_REFUSED:
        return sizeof(RefusedBody);
    case FRAME_SEND:
        return sizeof(SendBody);
    case FRAME_ANSWER:
        return sizeof(AnswerBody);
    case FRAME_EVENT:
        return sizeof(EventBody);
    case FRAME_LOCK:
    case FRAME_UNLOCK:
    case FRAME_PRESENT:
    case FRAME_DRIVE_INFO:
    case FRAME_EXT_INFO:
    case FRAME_BUS_INFO:
    case FRAME_CHECK_TYPES:
        return sizeof(CallBody);
    default:
        return (type & NET_REPLY) != 0 && type >= (FRAME_LOCK | NET_REPLY) &&
                       type <= (FRAME_CHECK_TYPES | NET_REPLY)
                   ? sizeof(ReplyBody)
                   : 0;
    }
}
// Whether `size` bytes hold exactly one whole record (its size from its slot count, at most 65).
inline bool holds_one_record(const uint8_t *p, uint32_t size) {
    return size >= RECORD_HEADER_SIZE && p[0] <= RECORD_MAX_SLOTS &&
           static_cast<uint32_t>(record_size(p[0])) == size;
}
static_assert(sizeof(SendBody) + RECORD_MAX_SIZE <= NET_MAX_BODY);

// The answer a bus gives itself for a record that no drive answered: the request's header
// without acknowledge, with the status bit and without slots.
inline void write_bus_answer(ConstRecordView request, RecordView answer) {
    answer.clear(0);
    answer.set_word((request.word() & ~HEADER_ACK & ~uint32_t{0xFF}) | HEADER_STATUS);
}

} // namespace ryn::wire
