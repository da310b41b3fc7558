// The upload stream writer: header, register versions, axis blocks, type headers, grouping by
// class and the value lines of each register, per element or as one vector line.
#include "traupl.hpp"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "record.hpp"
#include "trar2a.hpp"

namespace ryn::tra {

namespace {

constexpr uint32_t VERSION_TYPE = 3;
constexpr uint32_t VERSION_INDEX = 282;
constexpr uint32_t CATEGORY_INDEX = 85;
constexpr int SECTION_SIZE = 80;

// The register version families an upload writes, in order: type code, slot, where.
struct VersionFamily {
    uint8_t type;
    int slot;
    bool on_axis63;
    bool only_axis63; // and only when the device there is the controller with W registers
};
constexpr VersionFamily VERSION_FAMILIES[] = {
    {2, 3, true, false}, {13, 4, false, false}, {1, 5, true, false},
    {8, 6, true, false}, {9, 8, false, false},  {12, 10, true, true},
};
constexpr uint32_t W_CONTROLLER_PRODUCT = 51;

const char *version_title(int slot) {
    for (const VersionTitle &v : VERSION_TITLES)
        if (v.slot == slot) return v.title;
    return "";
}

// The fixed date of the test seam, guarded: uploads of other threads read it.
std::mutex date_lock;
bool date_fixed = false;
std::tm fixed_date{};

std::tm upload_date() {
    {
        std::lock_guard lock(date_lock);
        if (date_fixed) return fixed_date;
    }
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local;
}

bool usable(const char *text) {
    return text != nullptr && text[0] != '\0';
}

// One element of the register being written.
struct Item {
    uint8_t value[8]; // as read from the drive
    uint8_t deflt[8]; // the dictionary's default; a 32-bit or float default fills the first 4
    uint32_t kind;    // display format; 3 when the dictionary gives none
    uint8_t format;   // the element's code for the value formatter (ISO conversion)
    uint8_t present;  // filled for this register
    uint8_t spare[2]; //
};
static_assert(sizeof(Item) == 24);

// The value lines of one type of one axis.
class TypeWriter {
  public:
    TypeWriter(Upload &u, int axis, uint32_t type, const VOK_DICT *d)
        : u_(u), tra_(*u.tra), axis_(axis), type_(type), d_(d) {}

    int run();

  private:
    int pass(const char *cls, bool unclassified);
    int register_line(std::size_t at);
    int read_values(std::size_t at, int n);
    int write_elements(uint32_t index, int n, const char *name, const char *comment);
    int write_vector(uint32_t index, int n, const char *name, const char *comment);
    void begin_line(Text &out, const char *name, int subindex, bool subscript);
    void append_value(Text &out, const Item &item) const;
    int finish_line(Text &out, const char *comment);
    bool shown(const Item &item) const;

    Upload &u_;
    TRA &tra_;
    int axis_;
    uint32_t type_;
    const VOK_DICT *d_;
    int subindexes_ = 0; // S
    bool plain_ = false;
    bool as_numbers_ = false; // strings and IP addresses written as plain numbers
    std::vector<Item> items_;
    std::vector<uint32_t> visit_; // the indexes of the present pass
    char section_[SECTION_SIZE] = "";
    bool section_held_ = false;
    bool wrote_value_ = false;
    // The look-ahead: element 0 of visit_[ahead_at], read with the last element before it.
    bool ahead_valid_ = false;
    std::size_t ahead_at_ = 0;
    uint8_t ahead_value_[8] = {};
};

int TypeWriter::run() {
    const uint32_t flags = u_.flags;
    const int count = vok_get_register_count(d_, type_);
    const int indexes = u_.max_index >= 0 ? std::min(count, u_.max_index) : count;
    subindexes_ = vok_get_subindex_count(d_, type_);
    plain_ = vok_type_is_hidden(d_, type_) != 0;
    as_numbers_ = (flags & TRA_FRAW_VALUES) != 0 || u_.max_subindex >= 0;
    items_.assign(static_cast<std::size_t>(std::max(subindexes_, 1)), Item{});

    if ((flags & TRA_FNO_COMMENTS) == 0) {
        Text out(tra_.line_buffer, LINE_BUFFER_SIZE);
        const char *name = vok_get_type_name(d_, 1, type_);
        out.appendf("# Type %s (#%u)", usable(name) ? name : tra_.type_names[type_], type_);
        const char *description = vok_get_type_name(d_, 2, type_);
        if ((flags & TRA_FDESCRIPTIONS) != 0 && !plain_ && usable(description))
            _tra_append_comment(&tra_, out, nullptr, description);
        int rc = u_.emit(out.c_str());
        if (rc == 0 && (flags & TRA_FVERBOSE) != 0) {
            char line[64];
            std::snprintf(line, sizeof line, "#  - max.index=%d", indexes);
            rc = u_.emit(line);
            std::snprintf(line, sizeof line, "#  - max.subindex=%d", subindexes_);
            if (rc == 0) rc = u_.emit(line);
        }
        if (rc == 0) rc = u_.emit("");
        if (rc != 0) return rc;
    }

    const auto first = static_cast<uint32_t>(u_.first_index);
    const auto end = static_cast<uint32_t>(std::max(indexes, 0));
    if ((flags & TRA_FGROUP_CLASSES) == 0 || plain_) {
        // One pass over every register of the type.
        visit_.clear();
        for (uint32_t index = first; index < end; ++index)
            if (vok_index_exists(d_, type_, index) != 0) visit_.push_back(index);
        return pass(nullptr, false);
    }
    // One pass per class name in byte order, then the registers without a class. A class that
    // is an empty text belongs to no pass.
    const char *previous = nullptr;
    for (;;) {
        const char *smallest = nullptr;
        for (uint32_t index = first; index < end; ++index) {
            if (vok_index_exists(d_, type_, index) == 0) continue;
            const char *c = vok_get_register_class(d_, 1, type_, index);
            if (!usable(c)) continue;
            if (previous != nullptr && std::strcmp(c, previous) <= 0) continue;
            if (smallest == nullptr || std::strcmp(c, smallest) < 0) smallest = c;
        }
        visit_.clear();
        for (uint32_t index = first; index < end; ++index) {
            if (vok_index_exists(d_, type_, index) == 0) continue;
            const char *c = vok_get_register_class(d_, 1, type_, index);
            if (smallest != nullptr ? c != nullptr && std::strcmp(c, smallest) == 0 : c == nullptr)
                visit_.push_back(index);
        }
        const int rc = pass(smallest, smallest == nullptr);
        if (rc != 0 || smallest == nullptr) return rc;
        previous = smallest;
    }
}

int TypeWriter::pass(const char *cls, bool unclassified) {
    section_held_ = cls != nullptr || unclassified;
    if (section_held_)
        std::snprintf(section_, sizeof section_, "# %s",
                      unclassified ? "unclassified parameters" : cls);
    wrote_value_ = false;
    ahead_valid_ = false;
    for (std::size_t at = 0; at < visit_.size(); ++at) {
        const int rc = register_line(at);
        if (rc != 0) return rc;
    }
    if (wrote_value_ && (u_.flags & TRA_FNO_COMMENTS) == 0) return u_.emit("");
    return 0;
}

int TypeWriter::register_line(std::size_t at) {
    const uint32_t index = visit_[at];
    const uint32_t flags = u_.flags;
    int n;
    if ((flags & TRA_FRAW_VALUES) != 0)
        n = subindexes_;
    else if (u_.max_subindex >= 0)
        n = std::min(u_.max_subindex, subindexes_);
    else
        n = vok_get_register_length(d_, type_, index);
    n = std::clamp(n, 1, static_cast<int>(items_.size()));

    ++u_.visited;
    if (u_.axes > 0) {
        const double within =
            u_.total > 0 ? static_cast<double>(u_.visited - 1) / static_cast<double>(u_.total) : 0;
        tra_.progress = (within + (u_.position - 1)) / u_.axes;
    }

    // A fixed element count reaches past the register's own elements: the drive answers 0 there.
    const bool fixed = (flags & TRA_FRAW_VALUES) != 0 || u_.max_subindex >= 0;
    for (int s = 0; s < n; ++s) {
        Item &item = items_[static_cast<std::size_t>(s)];
        item = Item{};
        const auto sub = static_cast<uint32_t>(s);
        const bool exists = vok_register_exists(d_, type_, index, sub) != 0;
        if (!exists && !fixed) continue;
        item.present = 1;
        item.format = static_cast<uint8_t>(vok_register_is_iso(d_, type_, index, sub) != 0);
        item.kind = exists ? static_cast<uint32_t>(vok_get_register_format(d_, type_, index, sub))
                           : VOK_FORMAT_DECIMAL;
        if ((type_ & CLASS_INT64) != 0) {
            store_u64(item.deflt,
                      static_cast<uint64_t>(vok_get_reg_default_int64(d_, type_, index, sub)));
        } else if ((type_ & CLASS_FLOAT) != 0) {
            const float f = vok_get_reg_default_float(d_, type_, index, sub);
            std::memcpy(item.deflt, &f, sizeof f);
        } else {
            store_u32(item.deflt,
                      static_cast<uint32_t>(vok_get_reg_default_int32(d_, type_, index, sub)));
        }
    }
    const int rc = read_values(at, n);
    if (rc != 0) return rc;

    char name[TYPE_NAME_SIZE + 16];
    const char *alias =
        (flags & TRA_FUSE_ALIASES) != 0 ? vok_get_register_name(d_, 1, type_, index, 0) : nullptr;
    if (usable(alias)) {
        std::snprintf(name, sizeof name, "%s", alias);
    } else {
        const char *type_name = vok_get_type_name(d_, 1, type_);
        std::snprintf(name, sizeof name, "%s%u", usable(type_name) ? type_name : "??", index);
    }
    const char *comment = nullptr;
    if ((flags & TRA_FDESCRIPTIONS) != 0 && !plain_) {
        if ((flags & TRA_FRESERVED_COMMENT) != 0 &&
            vok_element_is_reserved(d_, type_, index, 0) != 0)
            comment = "Reserved";
        else
            comment = vok_get_register_name(d_, 2, type_, index, 0);
    }
    return (flags & TRA_FVECTOR_FORM) != 0 ? write_vector(index, n, name, comment)
                                           : write_elements(index, n, name, comment);
}

// Reads the present elements two at a time. An element left alone at the end is read together
// with element 0 of the next register of the pass (or of this one when it is the last), and
// that value stands in for the next register's element 0.
int TypeWriter::read_values(std::size_t at, int n) {
    const uint32_t index = visit_[at];
    int pending[2];
    int waiting = 0;
    for (int s = 0; s < n; ++s) {
        Item &item = items_[static_cast<std::size_t>(s)];
        if (item.present == 0) continue;
        if (s == 0 && ahead_valid_ && ahead_at_ == at) {
            std::memcpy(item.value, ahead_value_, sizeof item.value);
            continue;
        }
        pending[waiting++] = s;
        if (waiting < 2) continue;
        Item &a = items_[static_cast<std::size_t>(pending[0])];
        const int rc = _tra_get_register_pair(&tra_, axis_, type_, index,
                                              static_cast<uint32_t>(pending[0]), a.value, type_,
                                              index, static_cast<uint32_t>(pending[1]), item.value);
        if (rc != 0) return rc;
        waiting = 0;
    }
    ahead_valid_ = false;
    if (waiting == 0) return 0;
    const bool last = at + 1 >= visit_.size();
    const uint32_t next = last ? index : visit_[at + 1];
    std::memset(ahead_value_, 0, sizeof ahead_value_);
    Item &a = items_[static_cast<std::size_t>(pending[0])];
    const int rc =
        _tra_get_register_pair(&tra_, axis_, type_, index, static_cast<uint32_t>(pending[0]),
                               a.value, type_, next, 0, ahead_value_);
    if (rc != 0) return rc;
    ahead_valid_ = !last;
    ahead_at_ = at + 1;
    return 0;
}

bool TypeWriter::shown(const Item &item) const {
    if (item.present == 0) return false;
    if ((u_.flags & TRA_FSKIP_DEFAULTS) == 0) return true;
    const auto size = static_cast<std::size_t>(value_size(value_class(type_)));
    return std::memcmp(item.value, item.deflt, size) != 0;
}

void TypeWriter::begin_line(Text &out, const char *name, int subindex, bool subscript) {
    const bool no_axis = (u_.flags & TRA_FNO_AXIS) != 0;
    if (!no_axis && axis_ == AXES - 1) out.append('*');
    out.append(name);
    if (subscript) out.appendf(":%d", subindex);
    if (!no_axis && axis_ != AXES - 1) out.appendf(".%d", axis_);
}

void TypeWriter::append_value(Text &out, const Item &item) const {
    uint32_t kind = item.kind;
    // Strings and IP addresses as plain numbers: signed decimal by the value class.
    if (as_numbers_ && (kind == VOK_FORMAT_STRING || kind == VOK_FORMAT_IP))
        kind = VOK_FORMAT_DECIMAL;
    _tra_format_value(&tra_, out, type_, item.value, item.format != 0, static_cast<int>(kind),
                      uint64_t(1) << axis_);
}

int TypeWriter::finish_line(Text &out, const char *comment) {
    if (section_held_) {
        // The section line of a pass goes out just before its first value line, so that an
        // empty pass leaves no trace.
        section_held_ = false;
        char section[SECTION_SIZE];
        std::memcpy(section, section_, sizeof section);
        int rc = u_.emit(section);
        if (rc == 0) rc = u_.emit("");
        if (rc != 0) return rc;
    }
    if (usable(comment)) _tra_append_comment(&tra_, out, nullptr, comment);
    wrote_value_ = true;
    return u_.emit(out.c_str());
}

int TypeWriter::write_elements(uint32_t, int n, const char *name, const char *comment) {
    for (int s = 0; s < n; ++s) {
        const Item &item = items_[static_cast<std::size_t>(s)];
        if (!shown(item)) continue;
        Text out(tra_.line_buffer, LINE_BUFFER_SIZE);
        begin_line(out, name, s, n > 1);
        out.append('=');
        append_value(out, item);
        const int rc = finish_line(out, comment);
        if (rc != 0) return rc;
    }
    return 0;
}

int TypeWriter::write_vector(uint32_t, int n, const char *name, const char *comment) {
    int first = -1, last = -1;
    for (int s = 0; s < n; ++s)
        if (shown(items_[static_cast<std::size_t>(s)])) {
            if (first < 0) first = s;
            last = s;
        }
    if (first < 0) return 0;
    Text out(tra_.line_buffer, LINE_BUFFER_SIZE);
    begin_line(out, name, first, first > 0);
    const uint32_t kind = items_[static_cast<std::size_t>(first)].kind;
    if (!as_numbers_ && kind == VOK_FORMAT_STRING) {
        out.append("=\"");
        for (int s = 0; s < n; ++s)
            if (!_tra_format_string_chunk(out, load_u32(items_[static_cast<std::size_t>(s)].value)))
                break;
        out.append('"');
    } else if (!as_numbers_ && kind == VOK_FORMAT_IP) {
        out.append("=\"");
        _tra_format_ip(out, load_u32(items_[static_cast<std::size_t>(first)].value));
        out.append('"');
    } else {
        for (int s = first; s <= last; ++s) {
            const Item &item = items_[static_cast<std::size_t>(s)];
            if (!shown(item)) {
                out.append(','); // an empty position keeps the places of the ones after it
                continue;
            }
            out.append(s == first ? '=' : ',');
            append_value(out, item);
        }
    }
    return finish_line(out, comment);
}

// The serial number and boot revision lines of a drive ("dev") or its card ("ext"); revision 0
// is A.
int identity_lines(const Upload &u, const char *what, uint32_t serial, uint32_t revision) {
    char line[96];
    std::snprintf(line, sizeof line, "#  - %s.serial.number=%d", what, static_cast<int>(serial));
    const int rc = u.emit(line);
    std::snprintf(line, sizeof line, "#  - %s.boot.revision=%c", what,
                  static_cast<char>('A' + revision % 26));
    return rc == 0 ? u.emit(line) : rc;
}

} // namespace

int Upload::emit(const char *line) const {
    static constexpr Tracer t{"traupl", "_tra_upload_write"};
    if (write_line(tra, line, user, 0) == 0) return 0;
    t.fail(__LINE__, TRA_EWRITE);
    return UPLOAD_STOPPED;
}

void _tra_set_upload_date(const std::tm *fixed) {
    std::lock_guard lock(date_lock);
    date_fixed = fixed != nullptr;
    if (fixed != nullptr) fixed_date = *fixed;
}

int _tra_upload_entete_comment(Upload &u) {
    static constexpr const char *DAYS[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char *MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char version[32];
    sup_version_to_string(version, sizeof version, tra_get_version());
    char line[128];
    int rc = u.emit("# ORAX Parameters Upload");
    std::snprintf(line, sizeof line, "# Written by \"ryn-tra\" v%s", version);
    if (rc == 0) rc = u.emit(line);
    const std::tm d = upload_date();
    std::snprintf(line, sizeof line, "# Date: %s %s %2d %02d:%02d:%02d %d",
                  DAYS[std::clamp(d.tm_wday, 0, 6)], MONTHS[std::clamp(d.tm_mon, 0, 11)], d.tm_mday,
                  d.tm_hour, d.tm_min, d.tm_sec, d.tm_year + 1900);
    if (rc == 0) rc = u.emit(line);
    if (rc == 0 && (u.flags & TRA_FVERBOSE) != 0) {
        rc = u.emit("# Traductor settings:");
        std::snprintf(line, sizeof line, "#  - use.aliases=%s",
                      (u.flags & TRA_FUSE_ALIASES) != 0 ? "true" : "false");
        if (rc == 0) rc = u.emit(line);
    }
    return rc;
}

int _tra_upload_register_version(Upload &u, uint64_t axis_mask) {
    if (!u.versions) return 0;
    TRA &tra = *u.tra;
    for (int axis = 0; axis < AXES; ++axis) {
        if ((axis_mask >> axis & 1) == 0) continue;
        const bool axis63 = axis == AXES - 1;
        for (const VersionFamily &f : VERSION_FAMILIES) {
            if (axis63 ? !f.on_axis63 : f.only_axis63) continue;
            if (std::none_of(u.types.begin(), u.types.end(),
                             [&](uint8_t x) { return (x & TYPE_CODE_MASK) == f.type; }))
                continue;
            if (f.only_axis63) {
                wire::DriveInfo info{};
                store_u32(reinterpret_cast<uint8_t *>(&info), sizeof info);
                if (oxb_get_drive_info(tra.bus, axis, &info) != 0 ||
                    load_u32(reinterpret_cast<const uint8_t *>(&info) +
                             offsetof(wire::DriveInfo, product)) != W_CONTROLLER_PRODUCT)
                    continue;
            }
            // A slot that cannot be read, or was never written (0 has no text), is left out.
            uint32_t value = 0;
            int rc = 0;
            suspended([&] {
                rc = _tra_get_register(&tra, axis, VERSION_TYPE, VERSION_INDEX,
                                       static_cast<uint32_t>(f.slot), &value);
            });
            if (rc != 0 || value == 0) continue;
            char text[64];
            vok_version_to_string(text, sizeof text, value, nullptr);
            char line[160];
            const char *title = version_title(f.slot);
            if ((u.flags & TRA_FNO_AXIS) != 0)
                std::snprintf(line, sizeof line, "# %s axis # : %s", title, text);
            else if (axis63)
                std::snprintf(line, sizeof line, "# %s axis * : %s", title, text);
            else
                std::snprintf(line, sizeof line, "# %s axis %d : %s", title, axis, text);
            rc = u.emit(line);
            if (rc != 0) return rc;
        }
    }
    return 0;
}

int _tra_upload_axis_comment(Upload &u, int axis) {
    static constexpr Tracer t{"traupl", "_tra_upload_axis_comment"};
    TRA &tra = *u.tra;
    const bool verbose = (u.flags & TRA_FVERBOSE) != 0;
    wire::DriveInfo info{};
    store_u32(reinterpret_cast<uint8_t *>(&info), sizeof info);
    wire::ExtInfo ext{};
    store_u32(reinterpret_cast<uint8_t *>(&ext), sizeof ext);
    if (oxb_get_drive_info(tra.bus, axis, &info) != 0 ||
        oxb_get_ext_info(tra.bus, axis, &ext) != 0) {
        t.convert(__LINE__, TRA_EGETINFO);
        return UPLOAD_STOPPED;
    }
    const auto field = [](const void *record, std::size_t offset) {
        return load_u32(static_cast<const uint8_t *>(record) + offset);
    };
    uint8_t category[4][8] = {};
    int rc = _tra_get_register_pair(&tra, axis, VERSION_TYPE, CATEGORY_INDEX, 0, category[0],
                                    VERSION_TYPE, CATEGORY_INDEX, 1, category[1]);
    if (rc == 0)
        rc = _tra_get_register_pair(&tra, axis, VERSION_TYPE, CATEGORY_INDEX, 2, category[2],
                                    VERSION_TYPE, CATEGORY_INDEX, 3, category[3]);
    if (rc != 0) return t.pass(__LINE__, rc);

    char line[160];
    rc = u.emit("");
    if (axis == AXES - 1)
        std::snprintf(line, sizeof line, "# Axis *:");
    else
        std::snprintf(line, sizeof line, "# Axis %d:", axis);
    if (rc == 0) rc = u.emit(line);
    char text[17] = {};
    {
        Text out(text, sizeof text);
        for (const auto &c : category)
            _tra_format_string_chunk(out, load_u32(c));
    }
    std::snprintf(line, sizeof line, "#  - dev.product.category=%s", text);
    if (rc == 0) rc = u.emit(line);
    char version[64];
    vok_version_to_string(version, sizeof version, field(&info, offsetof(wire::DriveInfo, version)),
                          nullptr);
    std::snprintf(line, sizeof line, "#  - dev.soft.version=%s", version);
    if (rc == 0) rc = u.emit(line);
    if (rc == 0 && verbose)
        rc = identity_lines(u, "dev", field(&info, offsetof(wire::DriveInfo, serial)),
                            field(&info, offsetof(wire::DriveInfo, boot_revision)));
    const uint32_t card = field(&ext, offsetof(wire::ExtInfo, product));
    if (rc == 0 && card != 0) {
        const char *name = vok_get_ext_product_name(card);
        if (usable(name))
            std::snprintf(line, sizeof line, "#  - ext.product.category=%s", name);
        else
            std::snprintf(line, sizeof line, "#  - ext.product.category=0x%X", card);
        rc = u.emit(line);
        vok_version_to_string(version, sizeof version,
                              field(&ext, offsetof(wire::ExtInfo, version)), nullptr);
        std::snprintf(line, sizeof line, "#  - ext.soft.version=%s", version);
        if (rc == 0) rc = u.emit(line);
        if (rc == 0 && verbose)
            rc = identity_lines(u, "ext", field(&ext, offsetof(wire::ExtInfo, serial)),
                                field(&ext, offsetof(wire::ExtInfo, boot_revision)));
    }
    if (rc == 0) rc = u.emit("");
    return rc;
}

int _tra_upload_axis_registers(Upload &u, int axis) {
    TRA &tra = *u.tra;
    const VOK_DICT *d = tra.axis_dicts[static_cast<std::size_t>(axis)];
    u.total = 0;
    u.visited = 0;
    for (uint8_t type : u.types) {
        if (vok_type_exists(d, type) == 0) continue;
        const int count = vok_get_register_count(d, type);
        u.total += u.max_index >= 0 ? std::min(count, u.max_index) : count;
    }
    for (uint8_t type : u.types) {
        if (vok_type_exists(d, type) == 0) continue;
        TypeWriter writer(u, axis, type, d);
        const int rc = writer.run();
        if (rc != 0) return rc;
    }
    return 0;
}

} // namespace ryn::tra
