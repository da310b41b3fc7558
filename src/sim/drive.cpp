// The simulated drive: executes command records on its register memory as an ORAX drive would.
#include "sim/drive.hpp"

#include <cmath>
#include <cstring>
#include <new>

#include "ryn/vok.h"
#include "sim/memory.hpp"
#include "sim/motion.hpp"
#include "sim/values.hpp"

namespace ryn::sim {

namespace {

using namespace wire;

// Registers the drive itself keeps up to date (monitoring type 3 and its value classes).
constexpr uint32_t MONITOR = 3;
constexpr uint32_t STATUS_INDEX = 0;   // M0, the drive status word
constexpr uint32_t VELOCITY_INDEX = 1; // MF1, actual velocity
constexpr uint32_t POSITION_INDEX = 7; // M7 (ML7 64 bits, MD7 in user units), actual position
constexpr uint32_t ERROR_INDEX = 11;   // M11, error code of the last error
constexpr uint32_t STATUS1_INDEX = 60; // M60, the status word as SD1 reads it
constexpr uint32_t EXT_ERROR_INDEX = 63;
constexpr uint32_t SERIAL_INDEX = 80;
constexpr uint32_t BOOT_INDEX = 81;
constexpr uint32_t FIRMWARE_INDEX = 82;
constexpr uint32_t CARD_INDEX = 84;

// Bits of the status words M0 and M60.
constexpr uint32_t STATUS_POWER = 1;    // power stage on
constexpr uint32_t STATUS_MOVING = 2;   // a move is running
constexpr uint32_t STATUS_IN_PLACE = 4; // the last move reached its target
constexpr uint32_t STATUS_ERROR = 8;    // an error is pending (M11 not 0)

// Commands with an effect of their own beyond the acknowledge.
constexpr int32_t CMD_HALT = 2;
constexpr int32_t CMD_QUICK_STOP = 3;
constexpr int32_t CMD_CLEAR_ERROR = 17;
constexpr int32_t CMD_ABORT = 85;
constexpr uint32_t ABSOLUTE_ADDRESS_TYPE = 7;

// A tag's kind word: type code and value class.
constexpr uint32_t KIND_MASK = TYPE_CODE_MASK | VALUE_CLASS_MASK;

// The page of a command record's kind: 32 + page, or 24 + page with "!". Pages run to 56, so
// the two ranges overlap; the pages used with "!" are the low ones (24..31) and the last (80).
constexpr int command_page(uint32_t kind) {
    constexpr uint32_t LAST_PAGE = 56;
    if (kind >= REC_BANG_COMMAND && kind < REC_COMMAND) return int(kind - REC_BANG_COMMAND);
    if (kind == REC_BANG_COMMAND + LAST_PAGE) return int(LAST_PAGE);
    if (kind >= REC_COMMAND && kind <= REC_COMMAND + LAST_PAGE) return int(kind - REC_COMMAND);
    return -1;
}
constexpr bool is_register_tag(uint32_t tag) {
    return (tag & TYPE_CODE_MASK) != 0;
}

class DriveImpl final : public Drive {
  public:
    DriveImpl(const Identity &identity, VOK_DICT *dict) : identity_(identity), dict_(dict) {}
    ~DriveImpl() override { vok_close(&dict_); }

    void build() {
        memory_.build(dict_);
        settle_identity();
    }

    void execute(ConstRecordView q, RecordView a, uint64_t now_us) override;
    int read(uint32_t kind, uint32_t index, uint32_t subindex, uint64_t *raw) const override {
        if (raw == nullptr || !memory_.read(kind, index, subindex, raw)) return -1;
        return 0;
    }
    int write(uint32_t kind, uint32_t index, uint32_t subindex, uint64_t raw) override;
    void reset_memory() override {
        memory_.reset();
        power_ = false;
        motion_.stop();
        in_place_ = false;
        settle_identity();
    }
    const Identity &identity() const override { return identity_; }

  private:
    bool execute_read(ConstRecordView q, RecordView a, int n);
    bool execute_vector_read(ConstRecordView q, RecordView a, int n);
    bool execute_assignment(ConstRecordView q, int n);
    bool execute_operator(int32_t command, ConstRecordView q, int n);
    bool execute_elements(ConstRecordView q, int n);
    bool execute_command(int32_t command, ConstRecordView q, int n);

    // A value slot in the class `to`: a literal of the slot's own class, or the value of one of
    // this drive's registers. False when the register does not exist.
    bool operand(uint32_t tag, uint64_t value, bool element_layout, uint32_t to, uint64_t *out);
    // Whether an own element accepts a value: writable, in range and in its enumeration.
    bool accepts(uint32_t kind, uint32_t index, uint32_t subindex, const Element &e,
                 uint64_t raw) const;
    // Writes `count` values (in the register's class) to consecutive elements from `first`, all
    // or none.
    bool assign(uint32_t kind, uint32_t index, uint32_t first, const uint64_t *values, int count);
    bool assign_whole_type(uint32_t kind, uint64_t value);

    bool known_command(int32_t command) const;
    // The parameters of a plain command: no more than it has, each in its range and enumeration.
    bool check_params(int32_t command, ConstRecordView q, int n);
    // Parameter `i` of a command in the parameter's own class.
    bool param(int32_t command, ConstRecordView q, int i, uint64_t *out);

    // Motion and status.
    void follow_motion(uint64_t now_us);
    void set_position(int64_t position, double velocity);
    void halt();
    void update_status();
    void settle_identity();
    int64_t position() const;

    Identity identity_;
    VOK_DICT *dict_;
    Memory memory_;
    Profile motion_;
    bool power_ = false;
    bool in_place_ = false;
    int64_t position_ = 0;
    uint64_t now_us_ = 0;
};

// ---- Enumerations ----

// Whether a value belongs to an enumeration of the dictionary. At each level the bit groups (mask
// entries) under `parent` check their own bits one level down and take them out of the value;
// what remains must be one of the plain entries under `parent`, or, where there are none, zero at
// the top level. `applies` filters the entries limited to some registers or parameters.
template <typename Applies>
bool enumeration_holds(const VOK_DICT *d, int id, int count, uint32_t cls, uint64_t raw, int parent,
                       const Applies &applies, int depth) {
    if (depth > count) return false; // only a cycle in the data goes this deep
    const bool wide = cls == CLASS_INT64;
    const bool integer = (cls & CLASS_FLOAT) == 0;
    for (int e = 0; integer && e < count; ++e) {
        if (!applies(e) || vok_get_enum_entry_parent(d, id, e) != parent ||
            vok_enum_entry_is_mask(d, id, e) == 0)
            continue;
        const uint64_t mask = wide ? static_cast<uint64_t>(vok_get_enum_value_int64(d, id, e))
                                   : static_cast<uint32_t>(vok_get_enum_value_int32(d, id, e));
        if (!enumeration_holds(d, id, count, cls, raw & mask, e, applies, depth + 1)) return false;
        raw &= ~mask;
    }
    bool any = false;
    for (int e = 0; e < count; ++e) {
        if (!applies(e) || vok_get_enum_entry_parent(d, id, e) != parent ||
            vok_enum_entry_is_mask(d, id, e) != 0)
            continue;
        any = true;
        bool equal;
        switch (cls) {
        case CLASS_INT32:
            equal = static_cast<uint32_t>(raw) ==
                    static_cast<uint32_t>(vok_get_enum_value_int32(d, id, e));
            break;
        case CLASS_INT64:
            equal = raw == static_cast<uint64_t>(vok_get_enum_value_int64(d, id, e));
            break;
        case CLASS_FLOAT:
            equal = float_of_raw(raw) == vok_get_enum_value_float(d, id, e);
            break;
        default:
            equal = double_of_raw(raw) == vok_get_enum_value_double(d, id, e);
            break;
        }
        if (equal) return true;
    }
    if (any) return false;
    if (parent != -1) return true;
    switch (cls) {
    case CLASS_FLOAT:
        return float_of_raw(raw) == 0.0f;
    case CLASS_DOUBLE:
        return double_of_raw(raw) == 0.0;
    default:
        return raw == 0;
    }
}

// ---- Execution ----

void DriveImpl::execute(ConstRecordView q, RecordView a, uint64_t now_us) {
    now_us_ = now_us;
    if (motion_.active()) follow_motion(now_us);
    const int n = q.count();
    if (n > RECORD_MAX_SLOTS) {
        // Not a record a drive can take: the header alone comes back, refused.
        a.clear(0);
        a.set_word((q.word() & ~(HEADER_ACK | 0xFFu)) | HEADER_STATUS);
        return;
    }
    std::memcpy(a.bytes, q.bytes, static_cast<std::size_t>(record_size(n)));

    const uint32_t kind = q.kind();
    bool ok;
    if (kind == REC_READ) {
        ok = execute_read(q, a, n);
    } else if (kind == REC_VECTOR_READ) {
        ok = execute_vector_read(q, a, n);
    } else if (const int page = command_page(kind); page >= 0) {
        const auto command = static_cast<int32_t>(uint32_t(page) << 8 | q.command_byte());
        if (command == CMD_ELEMENT_ASSIGN)
            ok = execute_elements(q, n);
        else if (!known_command(command))
            ok = false;
        else if (command == CMD_SET || command == CMD_SET_LIST || command == CMD_CONVERT)
            ok = execute_assignment(q, n);
        else if (is_compound(command))
            ok = execute_operator(command, q, n);
        else
            ok = execute_command(command, q, n);
    } else {
        ok = false;
    }
    if (!ok && is_request_kind(kind)) // a refused read answers the request as it came
        std::memcpy(a.bytes, q.bytes, static_cast<std::size_t>(record_size(n)));
    a.set_word((a.word() & ~(HEADER_ACK | HEADER_STATUS)) | (ok ? HEADER_ACK : HEADER_STATUS));
}

// Kind 18: each slot names a register element; the answer holds its value in the slot, the tag
// (the register's kind word, so its value class) unchanged.
bool DriveImpl::execute_read(ConstRecordView q, RecordView a, int n) {
    if (n == 0) return false; // a read names at least one register
    for (int i = 0; i < n; ++i) {
        const uint32_t tag = q.tag(i);
        if (!is_register_tag(tag)) return false;
        const uint32_t kind = tag & KIND_MASK;
        uint64_t value = 0;
        if ((kind & TYPE_CODE_MASK) == ABSOLUTE_ADDRESS_TYPE) {
            // Absolute addresses reach the processor's memory, which is not simulated: they read 0.
        } else {
            const RegisterRef r = decode_register(q.value32(i));
            if (!memory_.read(kind, r.index, r.subscript, &value)) return false;
        }
        a.set_value64(i, value);
    }
    return true;
}

// Kind 19: slot 0 is the marker, every further slot an element reference (the tag's low byte the
// register's kind word); each becomes the element's value.
bool DriveImpl::execute_vector_read(ConstRecordView q, RecordView a, int n) {
    if (n < 2) return false;
    for (int i = 1; i < n; ++i) {
        const uint32_t kind = q.tag(i) & KIND_MASK;
        if (!is_register_tag(kind)) return false;
        const ElementRef ref = decode_element(q.value64(i));
        uint64_t value;
        if (!memory_.read(kind, ref.index, ref.element, &value)) return false;
        a.set_value64(i, value);
    }
    return true;
}

bool DriveImpl::operand(uint32_t tag, uint64_t value, bool element_layout, uint32_t to,
                        uint64_t *out) {
    if (!is_register_tag(tag)) {
        *out = convert_class(narrow_to_class(value, tag), tag, to);
        return true;
    }
    const uint32_t kind = tag & KIND_MASK;
    uint32_t index, subindex;
    if (element_layout) {
        const ElementRef e = decode_element(value);
        index = e.index;
        subindex = e.element;
    } else {
        const RegisterRef r = decode_register(static_cast<uint32_t>(value));
        index = r.index;
        subindex = r.subscript;
    }
    uint64_t raw;
    if (!memory_.read(kind, index, subindex, &raw)) return false;
    *out = convert_class(raw, kind, to);
    return true;
}

bool DriveImpl::accepts(uint32_t kind, uint32_t index, uint32_t subindex, const Element &e,
                        uint64_t raw) const {
    const ElementLimits &l = *e.limits;
    if ((l.flags & ELEMENT_WRITABLE) == 0) return false;
    const uint32_t cls = value_class(kind);
    if ((l.flags & ELEMENT_BOUNDED) != 0 && !within_bounds(raw, l.min, l.max, cls)) return false;
    if (l.enumeration == 0) return true;
    const int id = l.enumeration;
    return enumeration_holds(
        dict_, id, vok_get_enum_count(dict_, id), cls, raw, -1,
        [&](int entry) { return vok_enum_entry_for_reg(dict_, entry, kind, index, subindex) != 0; },
        0);
}

bool DriveImpl::assign(uint32_t kind, uint32_t index, uint32_t first, const uint64_t *values,
                       int count) {
    // Every element is checked before the first is written.
    for (int k = 0; k < count; ++k) {
        const uint32_t sub = first + static_cast<uint32_t>(k);
        const Element e = memory_.find(kind, index, sub);
        // Elements past a register's own count are held for reads only.
        if (e.place != Place::own || !accepts(kind, index, sub, e, values[k])) return false;
    }
    for (int k = 0; k < count; ++k)
        *memory_.find(kind, index, first + static_cast<uint32_t>(k)).value = values[k];
    return true;
}

// "KY=0": every writable element of the type that takes the value gets it.
bool DriveImpl::assign_whole_type(uint32_t kind, uint64_t value) {
    TypeMemory *t = memory_.type(kind);
    if (t == nullptr || !t->whole_writable) return false;
    for (uint32_t index = 0; index < t->count; ++index)
        for (uint32_t sub = 0; sub < t->length[index]; ++sub) {
            const Element e = memory_.find(kind, index, sub);
            if (accepts(kind, index, sub, e, value)) *e.value = value;
        }
    return true;
}

// 123, 125 and 122: slot 0 the destination register, the others its values from the destination's
// element on. Values of another class (122, or a register given as a value) are converted.
bool DriveImpl::execute_assignment(ConstRecordView q, int n) {
    if (n < 1 || !is_register_tag(q.tag(0))) return false;
    const uint32_t kind = q.tag(0) & KIND_MASK;
    const RegisterRef dest = decode_register(q.value32(0));
    uint64_t values[RECORD_MAX_SLOTS];
    const int count = n - 1;
    for (int k = 0; k < count; ++k)
        if (!operand(q.tag(k + 1), q.value64(k + 1), false, value_class(kind), &values[k]))
            return false;
    if (dest.index == VOK_WHOLE_TYPE) return count == 1 && assign_whole_type(kind, values[0]);
    return assign(kind, dest.index, dest.subscript, values, count);
}

// 91..101 and 172..174: slot 0 the register element, slot 1 the operand.
bool DriveImpl::execute_operator(int32_t command, ConstRecordView q, int n) {
    if (n != 2 || !is_register_tag(q.tag(0))) return false;
    const uint32_t kind = q.tag(0) & KIND_MASK;
    const RegisterRef dest = decode_register(q.value32(0));
    const Element e = memory_.find(kind, dest.index, dest.subscript);
    uint64_t operand_value, result;
    if (e.place != Place::own ||
        !operand(q.tag(1), q.value64(1), false, value_class(kind), &operand_value) ||
        !apply_operator(command, value_class(kind), *e.value, operand_value, &result))
        return false;
    return assign(kind, dest.index, dest.subscript, &result, 1);
}

// Kinds 38 and 30 (command 1537): slot 0 the marker, slot 1 the element reference of the first
// element written, slots 2.. the values.
bool DriveImpl::execute_elements(ConstRecordView q, int n) {
    if (n < 2) return false;
    const uint32_t kind = q.tag(1) & KIND_MASK;
    if (!is_register_tag(kind)) return false;
    const uint64_t ref = q.value64(1);
    uint64_t values[RECORD_MAX_SLOTS];
    const int count = n - 2;
    for (int k = 0; k < count; ++k)
        if (!operand(q.tag(k + 2) & 0xFF, q.value64(k + 2), true, value_class(kind), &values[k]))
            return false;
    const ElementRef dest = decode_element(ref);
    return assign(kind, dest.index, dest.element, values, count);
}

bool DriveImpl::known_command(int32_t command) const {
    const auto c = static_cast<uint32_t>(command);
    // A class 3 dictionary takes the list assignment without listing it.
    return vok_command_exists(dict_, c) != 0 ||
           (command == CMD_SET_LIST && vok_get_dictionary_class(dict_) == 3);
}

bool DriveImpl::param(int32_t command, ConstRecordView q, int i, uint64_t *out) {
    const uint32_t cls = value_class(vok_get_param_kind(dict_, static_cast<uint32_t>(command), i));
    return operand(q.tag(i), q.value64(i), false, cls, out);
}

bool DriveImpl::check_params(int32_t command, ConstRecordView q, int n) {
    const auto c = static_cast<uint32_t>(command);
    // The values of a list command are counted by the list, not by the parameters.
    if (vok_command_has_vector_params(dict_, c) != 0) return true;
    if (n > vok_get_param_count(dict_, c)) return false;
    for (int i = 0; i < n; ++i) {
        uint64_t v;
        if (!param(command, q, i, &v)) return false;
        const uint32_t cls = value_class(vok_get_param_kind(dict_, c, i));
        uint64_t min, max;
        switch (cls) {
        case CLASS_INT32:
            min = static_cast<uint32_t>(vok_get_param_min_int32(dict_, c, i));
            max = static_cast<uint32_t>(vok_get_param_max_int32(dict_, c, i));
            break;
        case CLASS_INT64:
            min = static_cast<uint64_t>(vok_get_param_min_int64(dict_, c, i));
            max = static_cast<uint64_t>(vok_get_param_max_int64(dict_, c, i));
            break;
        case CLASS_FLOAT:
            min = raw_of_float(vok_get_param_min_float(dict_, c, i));
            max = raw_of_float(vok_get_param_max_float(dict_, c, i));
            break;
        default:
            min = raw_of_double(vok_get_param_min_double(dict_, c, i));
            max = raw_of_double(vok_get_param_max_double(dict_, c, i));
            break;
        }
        if (!within_bounds(v, min, max, cls)) return false;
        const int id = vok_get_param_enum(dict_, c, i);
        if (id != 0 &&
            !enumeration_holds(
                dict_, id, vok_get_enum_count(dict_, id), cls, v, -1,
                [&](int entry) { return vok_enum_entry_for_param(dict_, entry, c, i) != 0; }, 0))
            return false;
    }
    return true;
}

// Commands of the dictionary: checked against their parameters, then acknowledged with the effect
// that the drive's firmware would have.
bool DriveImpl::execute_command(int32_t command, ConstRecordView q, int n) {
    if (!check_params(command, q, n)) return false;
    uint64_t p0 = 0, p1 = 0, p2 = 0;
    switch (command) {
    case CMD_SET_VERSION: {
        if (n < 2 || !param(command, q, 0, &p0) || !param(command, q, 1, &p1)) return false;
        const auto slot = static_cast<uint32_t>(p0);
        return memory_.set(VERSION_TYPE, VERSION_INDEX, slot, p1);
    }
    case CMD_SAVE: {
        // What: 0 everything, 1 the parameters K, 2 the common registers C, 3 the user variables X.
        static constexpr int codes[] = {-1, 2, 13, 1};
        if (n >= 1 && !param(command, q, 0, &p0)) return false;
        if (p0 > 3) return false;
        memory_.save(codes[p0]);
        return true;
    }
    case CMD_RESET:
        memory_.restore();
        power_ = false;
        motion_.stop();
        in_place_ = false;
        position_ = position();
        settle_identity();
        return true;
    case CMD_POWER:
        if (n < 1 || !param(command, q, 0, &p0)) return false;
        if (p0 == 0) halt();
        power_ = p0 != 0;
        update_status();
        return true;
    case CMD_CLEAR_ERROR:
        memory_.set(MONITOR, ERROR_INDEX, 0, 0);
        memory_.set(MONITOR, EXT_ERROR_INDEX, 0, 0);
        update_status();
        return true;
    case CMD_MOVE: {
        if (!power_ || n < 3 || !param(command, q, 0, &p0) || !param(command, q, 1, &p1) ||
            !param(command, q, 2, &p2))
            return false;
        const double speed = float_of_raw(p1), acceleration = double_of_raw(p2);
        if (!(speed > 0) || !(acceleration > 0) || !std::isfinite(speed) ||
            !std::isfinite(acceleration))
            return false;
        motion_.start(position_, static_cast<int64_t>(p0), speed, acceleration, now_us_);
        in_place_ = false;
        follow_motion(now_us_);
        return true;
    }
    case CMD_HALT:
    case CMD_QUICK_STOP:
    case CMD_ABORT:
        halt();
        update_status();
        return true;
    case CMD_STEP:
    case CMD_STEP_ADD:
    case CMD_STEP_SUBTRACT: {
        // A step moves the position at once, and only with the power stage on.
        if (!power_ || n < 1 || !param(command, q, 0, &p0)) return false;
        const auto step = static_cast<int64_t>(static_cast<int32_t>(p0));
        halt();
        const auto moved = static_cast<uint64_t>(position_) +
                           static_cast<uint64_t>(command == CMD_STEP_SUBTRACT ? -step : step);
        set_position(static_cast<int64_t>(moved), 0);
        update_status();
        return true;
    }
    default:
        return true; // known, and without a simulated effect
    }
}

// ---- Motion and status ----

int64_t DriveImpl::position() const {
    uint64_t raw;
    if (memory_.read(MONITOR | CLASS_INT64, POSITION_INDEX, 0, &raw))
        return static_cast<int64_t>(raw);
    if (memory_.read(MONITOR, POSITION_INDEX, 0, &raw))
        return static_cast<int32_t>(static_cast<uint32_t>(raw));
    return position_;
}

void DriveImpl::set_position(int64_t position, double velocity) {
    position_ = position;
    memory_.set(MONITOR, POSITION_INDEX, 0, static_cast<uint32_t>(static_cast<uint64_t>(position)));
    memory_.set(MONITOR | CLASS_INT64, POSITION_INDEX, 0, static_cast<uint64_t>(position));
    memory_.set(MONITOR | CLASS_DOUBLE, POSITION_INDEX, 0,
                raw_of_double(static_cast<double>(position)));
    memory_.set(MONITOR | CLASS_FLOAT, VELOCITY_INDEX, 0,
                raw_of_float(static_cast<float>(velocity)));
}

void DriveImpl::follow_motion(uint64_t now_us) {
    const Profile::State s = motion_.at(now_us);
    set_position(s.position, s.velocity);
    if (s.done) {
        motion_.stop();
        in_place_ = true;
    }
    update_status();
}

void DriveImpl::halt() {
    if (!motion_.active()) return;
    const Profile::State s = motion_.at(now_us_);
    motion_.stop();
    set_position(s.position, 0);
}

void DriveImpl::update_status() {
    uint64_t error = 0;
    memory_.read(MONITOR, ERROR_INDEX, 0, &error);
    const uint32_t status = (power_ ? STATUS_POWER : 0) | (motion_.active() ? STATUS_MOVING : 0) |
                            (in_place_ ? STATUS_IN_PLACE : 0) | (error != 0 ? STATUS_ERROR : 0);
    memory_.set(MONITOR, STATUS_INDEX, 0, status);
    memory_.set(MONITOR, STATUS1_INDEX, 0, status);
}

// The identity registers after a start or a reset.
void DriveImpl::settle_identity() {
    memory_.set(MONITOR, SERIAL_INDEX, 0, identity_.serial);
    memory_.set(MONITOR, BOOT_INDEX, 0, identity_.boot_revision);
    memory_.set(MONITOR, FIRMWARE_INDEX, 0, identity_.version);
    memory_.set(MONITOR, CARD_INDEX, 0, identity_.ext_product);
    position_ = position();
    update_status();
}

int DriveImpl::write(uint32_t kind, uint32_t index, uint32_t subindex, uint64_t raw) {
    raw = narrow_to_class(raw, kind);
    if (!memory_.set(kind, index, subindex, raw)) return -1;
    if ((kind & TYPE_CODE_MASK) == MONITOR && index == POSITION_INDEX) {
        // The position set from outside, in any of its classes: a running move ends there.
        motion_.stop();
        set_position(static_cast<int64_t>(convert_class(raw, kind, CLASS_INT64)), 0);
        update_status();
    }
    return 0;
}

} // namespace

int Drive::create(const Identity &wanted, int /*axis*/, std::unique_ptr<Drive> *out) {
    if (out == nullptr) return VOK_EBADPARAM;
    out->reset();
    // Versions 0 stand for the product's and the card's default versions.
    Identity identity = wanted;
    if (identity.version == 0) identity.version = vok_get_default_version(identity.product);
    if (identity.ext_product == 0)
        identity.ext_version = 0;
    else if (identity.ext_version == 0)
        identity.ext_version = vok_get_ext_product_default_version(identity.ext_product);
    VOK_DICT *dict = nullptr;
    const int rc = vok_open(&dict, identity.product, identity.version, identity.ext_product,
                            identity.ext_version);
    if (rc != 0) return rc;
    try {
        auto drive = std::make_unique<DriveImpl>(identity, dict);
        dict = nullptr; // the drive closes it
        drive->build();
        *out = std::move(drive);
    } catch (const std::bad_alloc &) {
        vok_close(&dict);
        return VOK_ESYSTEM;
    }
    return 0;
}

} // namespace ryn::sim
