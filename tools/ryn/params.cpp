// Parameter files and live uploads as data: reading, upload, restore, check and diff on top of the
// register translator.
#include "params.hpp"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstring>
#include <istream>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>
#include <tuple>

#include "common.hpp"
#include "ryn/record.h"
#include "ryn/vok.h"
#include "wire/wire.hpp"

namespace ryn::cli::params {

namespace {

constexpr const char *UPLOAD_HEADER = "# ORAX Parameters Upload";
constexpr const char *READ_ONLY_PREFIX = "# read-only: ";
constexpr std::size_t TEXT_CUT = 200;

struct Record {
    alignas(8) unsigned char bytes[TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)];
    TRA_RECORD *get() { return reinterpret_cast<TRA_RECORD *>(bytes); }
    const TRA_RECORD *get() const { return reinterpret_cast<const TRA_RECORD *>(bytes); }
};

struct TraDeleter {
    void operator()(TRA *t) const { tra_destroy(&t); }
};
using TraPtr = std::unique_ptr<TRA, TraDeleter>;

double since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string trim(const std::string &text) {
    const auto b = text.find_first_not_of(" \t");
    if (b == std::string::npos) return "";
    return text.substr(b, text.find_last_not_of(" \t") - b + 1);
}

bool is_comment_or_blank(const std::string &line) {
    const std::string t = trim(line);
    return t.empty() || t[0] == '#' || t[0] == ';' || t.rfind("//", 0) == 0;
}

LineProblem problem(const std::string &file, int line, int code, const std::string &message,
                    const std::string &text) {
    return {file, line, code, message, text.size() > TEXT_CUT ? text.substr(0, TEXT_CUT) : text};
}

// Every line of a stream, without line ends and a leading byte-order mark. False on a read error.
bool read_lines(std::istream &in, std::vector<std::string> *lines) {
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (lines->empty() && line.rfind("\xEF\xBB\xBF", 0) == 0) line.erase(0, 3);
        lines->push_back(std::move(line));
    }
    return !in.bad();
}

// Whether the lines form a parameter file: the upload header, or a first command line that is a
// register assignment (contains "=") without NUL bytes.
bool looks_like_parameter_file(const std::vector<std::string> &lines) {
    for (const std::string &line : lines) {
        if (line.find('\0') != std::string::npos) return false;
        if (line == UPLOAD_HEADER) return true;
        if (is_comment_or_blank(line)) continue;
        return line.find('=') != std::string::npos;
    }
    return false;
}

// Reads the axis blocks of a file: "# Axis N:" / "# Axis *:" and its "#  - key=value" lines.
class HeaderReader {
  public:
    explicit HeaderReader(std::map<int, AxisHeader> *axes) : axes_(axes) {}

    // Takes one line; true when it belonged to the header of an axis block.
    bool take(const std::string &line, int number) {
        if (line.rfind("# Axis ", 0) == 0 && line.size() > 8 && line.back() == ':') {
            const std::string what = line.substr(7, line.size() - 8);
            int axis = -1;
            if (what == "*")
                axis = 63;
            else if (!what.empty() && what.size() <= 2 &&
                     std::all_of(what.begin(), what.end(), ::isdigit))
                axis = std::stoi(what);
            if (axis < 0 || axis > 63) return false;
            current_ = axis;
            AxisHeader &h = (*axes_)[axis];
            h.axis = axis;
            h.line = number;
            return true;
        }
        if (current_ < 0 || line.rfind("#  - ", 0) != 0) return false;
        const std::string item = line.substr(5);
        const auto eq = item.find('=');
        if (eq == std::string::npos) return false;
        const std::string key = item.substr(0, eq), value = item.substr(eq + 1);
        AxisHeader &h = (*axes_)[current_];
        if (key == "dev.product")
            h.product = value;
        else if (key == "dev.product.category")
            h.category = value;
        else if (key == "dev.soft.version")
            h.version = value;
        else if (key == "ext.product.category")
            h.ext = value;
        else if (key == "ext.soft.version")
            h.ext_version = value;
        else
            return false;
        return true;
    }
    int current() const { return current_; }

  private:
    std::map<int, AxisHeader> *axes_;
    int current_ = -1;
};

// Offline register translators for the configurations a file names: with the dictionary checks
// off for reading a file, on for checking one.
class OfflineTranslators {
  public:
    explicit OfflineTranslators(const ReadOptions &fallback,
                                uint32_t flags = TRA_FNO_CHECK | TRA_FACCEPT_UNKNOWN_VERSION)
        : fallback_(fallback), flags_(flags) {
        if (fallback_.product == 0) {
            find_product("ORX-D32", fallback_.product, ignored_);
            fallback_.version = 0;
        }
        if (fallback_.version == 0) fallback_.version = vok_get_default_version(fallback_.product);
    }

    // The translator for an axis block's header (null header: the fallback); null when none
    // can be created. A header whose configuration the family does not have gets the fallback,
    // and *why says so when asked.
    TRA *for_header(const AxisHeader *h, std::string *why = nullptr) {
        Configuration c;
        c.product = fallback_.product;
        c.version = fallback_.version;
        c.ext = fallback_.ext;
        c.ext_version = fallback_.ext_version;
        if (h != nullptr && !h->product.empty()) {
            ConfigOptions o;
            o.product = h->product;
            o.version = h->version;
            o.ext = h->ext.empty() ? "none" : h->ext;
            o.ext_version = h->ext_version;
            Configuration named;
            std::string error;
            if (resolve_config(o, named, error, true))
                c = named;
            else if (why != nullptr)
                *why = error;
        }
        const auto key = std::make_tuple(c.product, c.version, c.ext, c.ext_version);
        auto it = cache_.find(key);
        if (it != cache_.end()) return it->second.get();
        TRA *t = nullptr;
        if (tra_create_register_traductor_o(&t, c.product, c.version, c.ext, c.ext_version,
                                            flags_) != 0)
            tra_create_register_traductor_o(&t, c.product, c.version, 0, 0, flags_);
        cache_[key].reset(t);
        return t;
    }

  private:
    ReadOptions fallback_;
    const uint32_t flags_;
    std::string ignored_;
    std::map<std::tuple<uint32_t, uint32_t, uint32_t, uint32_t>, TraPtr> cache_;
};

// A translated assignment line: its record and axes.
struct Assignment {
    Record record;
    uint64_t axes = 0;
    uint32_t kind = 0;     // kind word of the register
    uint32_t index = 0;    // register index
    uint32_t first = 0;    // first element
    uint32_t elements = 0; // number of elements assigned
};

// Translates one line as a register assignment; 0 or the translator's code (TRA_ENOTALLOWED for
// a line that translates to something else). *nothing is set for a line with nothing to send.
int translate_assignment(TRA *tra, const std::string &line, Assignment *a, bool *nothing) {
    uint32_t count = 0;
    *nothing = false;
    const int rc = tra_oxcom_translate_cmd_from_ascii_ex(tra, a->record.get(), TRA_RECORD_MAX_SLOTS,
                                                         &count, &a->axes, line.c_str());
    if (rc != 0) return rc;
    if (count == 0xFFFFFFFFu) {
        *nothing = true;
        return 0;
    }
    const int32_t command = tra_record_command(a->record.bytes);
    if ((command != wire::CMD_SET && command != wire::CMD_SET_LIST) || count < 2)
        return TRA_ENOTALLOWED;
    const uint32_t tag = tra_record_slot_tag(a->record.bytes, 0);
    const wire::RegisterRef ref =
        wire::decode_register(static_cast<uint32_t>(tra_record_slot_raw(a->record.bytes, 0)));
    a->kind = tag & wire::KIND_WORD_MASK;
    a->index = ref.index;
    a->first = ref.subscript;
    a->elements = count - 1;
    return 0;
}

// The text the translator writes for element `i` of an assignment on one axis, split at "=".
bool element_text(TRA *tra, const Assignment &a, uint32_t i, int axis, std::string *name,
                  std::string *value) {
    Record r;
    wire::RecordView v{r.bytes};
    v.clear(2);
    const wire::ConstRecordView src{a.record.bytes};
    v.set_word((src.word() & ~0xFFu) | 2u);
    v.set_tag(0, src.tag(0));
    v.set_value64(0, wire::encode_destination(a.index, a.first + i));
    v.set_tag(1, src.tag(static_cast<int>(i) + 1));
    v.set_value64(1, src.value64(static_cast<int>(i) + 1));
    char text[512];
    if (tra_oxcom_translate_cmd_to_ascii_ex(tra, r.get(), uint64_t(1) << axis, text, sizeof text) !=
        0)
        return false;
    const char *eq = std::strchr(text, '=');
    if (eq == nullptr) return false;
    name->assign(text, static_cast<std::size_t>(eq - text));
    value->assign(eq + 1);
    return true;
}

// The value bits that count for a kind: the low 4 bytes of a 32-bit class.
uint64_t significant(uint32_t kind, uint64_t raw) {
    return wire::is_wide_class(wire::value_class(kind)) ? raw : raw & 0xFFFFFFFFu;
}

std::string product_text(uint32_t product) {
    const char *name = vok_get_product_name(product);
    return name != nullptr ? name : format("0x%X", product);
}

std::string ext_text(uint32_t ext) {
    if (ext == 0) return "none";
    const char *name = vok_get_ext_product_name(ext);
    return name != nullptr ? name : format("0x%X", ext);
}

} // namespace

// ---- Bus ----

Bus::~Bus() {
    tra_destroy(&checking_);
    tra_destroy(&reading_);
    oxb_close(&port_);
}

int Bus::open(const std::string &address, std::string *message) {
    address_ = address;
    int rc = oxb_open(address.c_str(), &port_);
    if (rc != 0) {
        // The bus library's message may begin with the address itself; it is said once.
        std::string why = oxb_translate_error(rc);
        for (const std::string &prefix : {"'" + address + "': ", address + ": "})
            if (why.rfind(prefix, 0) == 0) why.erase(0, prefix.size());
        *message = "cannot open bus '" + address + "': " + why;
        port_ = nullptr;
        return rc;
    }
    rc = oxb_get_port_bus(port_, &bus_);
    if (rc == 0) rc = tra_create_register_traductor_e(&checking_, port_, 0);
    if (rc == 0) rc = tra_create_register_traductor_e(&reading_, port_, TRA_FNO_CHECK);
    if (rc != 0) {
        *message = "cannot use bus '" + address + "': " + tra_translate_error(rc);
        tra_destroy(&checking_);
        tra_destroy(&reading_);
        oxb_close(&port_);
    }
    return rc;
}

uint64_t Bus::present() const {
    uint64_t mask = 0;
    if (bus_ == nullptr || oxb_get_present_axes(bus_, &mask) != 0) return 0;
    return mask;
}

std::vector<DriveIdentity> Bus::drives() const {
    std::vector<DriveIdentity> list;
    const uint64_t mask = present();
    for (int axis = 0; axis < 64; ++axis) {
        if ((mask >> axis & 1) == 0) continue;
        wire::DriveInfo info{};
        info.size = sizeof info;
        wire::ExtInfo ext{};
        ext.size = sizeof ext;
        if (oxb_get_drive_info(bus_, axis, &info) != 0) continue;
        if (oxb_get_ext_info(bus_, axis, &ext) != 0) ext = wire::ExtInfo{};
        list.push_back({axis, info.product, info.version, ext.product, ext.version, info.serial,
                        info.boot_revision, ext.serial, ext.boot_revision});
    }
    return list;
}

// ---- Types and axes ----

const std::vector<uint8_t> &user_types() {
    static const std::vector<uint8_t> types = {1,  2,  8,  9,  12, 13, 33, 34, 40,  41,  44,  45,
                                               65, 66, 72, 73, 76, 77, 97, 98, 104, 105, 108, 109};
    return types;
}

bool parse_types(const std::string &list, std::vector<uint8_t> *types, std::string *message) {
    VOK_DICT *d = nullptr;
    uint32_t product = 0;
    std::string ignored;
    find_product("ORX-M51", product, ignored); // a dictionary that names the W registers too
    vok_open(&d, product, vok_get_default_version(product), 0, 0);
    std::map<std::string, uint32_t> names;
    std::string known;
    for (uint32_t k = 0; k < 128; ++k) {
        const char *name = d != nullptr ? vok_get_type_name(d, 1, k) : nullptr;
        if (name == nullptr || *name == '\0') continue;
        names[upper(name)] = k;
        known += (known.empty() ? "" : ", ") + std::string(name);
    }
    vok_close(&d);
    types->clear();
    std::stringstream in(list);
    std::string item;
    while (std::getline(in, item, ',')) {
        item = upper(trim(item));
        const auto it = names.find(item);
        if (it == names.end()) {
            *message = "unknown register type '" + item + "' (the types: " + known + ")";
            return false;
        }
        const uint32_t kind = it->second;
        const bool family = wire::value_class(kind) == wire::CLASS_INT32;
        for (uint32_t c :
             {wire::CLASS_INT32, wire::CLASS_FLOAT, wire::CLASS_INT64, wire::CLASS_DOUBLE}) {
            const uint32_t k = family ? (kind | c) : kind;
            if (std::find(types->begin(), types->end(), k) == types->end())
                types->push_back(static_cast<uint8_t>(k));
            if (!family) break;
        }
    }
    if (types->empty()) {
        *message = "an empty type list";
        return false;
    }
    return true;
}

bool parse_axes(const std::string &list, uint64_t *mask, std::string *message) {
    *mask = 0;
    if (upper(trim(list)) == "ALL") {
        *mask = ~uint64_t(0);
        return true;
    }
    std::stringstream in(list);
    std::string item;
    while (std::getline(in, item, ',')) {
        item = trim(item);
        if (item == "*") {
            *mask |= uint64_t(1) << 63;
            continue;
        }
        const auto dash = item.find('-');
        uint64_t from = 0, to = 0;
        const bool ok = dash == std::string::npos ? parse_number(item, from) && (to = from, true)
                                                  : parse_number(item.substr(0, dash), from) &&
                                                        parse_number(item.substr(dash + 1), to);
        if (!ok || from > to || to > 63) {
            *message = "'" + item + "' is not an axis (0 to 63, a range such as 0-3, or *)";
            return false;
        }
        for (uint64_t a = from; a <= to; ++a)
            *mask |= uint64_t(1) << a;
    }
    if (*mask == 0) {
        *message = "an empty axis list";
        return false;
    }
    return true;
}

// ---- Reading ----

int read_set(std::istream &in, const ReadOptions &options, const Bus *bus, ParamSet *set) {
    std::vector<std::string> lines;
    if (!read_lines(in, &lines)) return TRA_EGETREC;
    if (!looks_like_parameter_file(lines)) return TRA_ESTREAMFORMAT;
    OfflineTranslators offline(options);
    HeaderReader header(&set->axes);
    Assignment a;
    for (std::size_t n = 0; n < lines.size(); ++n) {
        const std::string &line = lines[n];
        const int number = static_cast<int>(n) + 1;
        ++set->lines;
        if (line == UPLOAD_HEADER) set->has_header = true;
        if (header.take(line, number)) continue;
        const bool read_only = line.rfind(READ_ONLY_PREFIX, 0) == 0;
        if (!read_only && is_comment_or_blank(line)) continue;
        const std::string text = read_only ? line.substr(std::strlen(READ_ONLY_PREFIX)) : line;
        TRA *tra = bus != nullptr ? bus->reading() : nullptr;
        if (tra == nullptr) {
            const auto it = set->axes.find(header.current());
            tra = offline.for_header(it != set->axes.end() ? &it->second : nullptr);
        }
        if (tra == nullptr) return TRA_ESYSTEM;
        bool nothing = false;
        const int rc = translate_assignment(tra, text, &a, &nothing);
        if (rc != 0) {
            set->problems.push_back(
                problem(set->source, number, rc, tra_translate_error(rc), line));
            continue;
        }
        if (nothing) continue;
        ++set->value_lines;
        for (int axis = 0; axis < 64; ++axis) {
            if ((a.axes >> axis & 1) == 0) continue;
            for (uint32_t i = 0; i < a.elements; ++i) {
                Element e;
                e.raw = tra_record_slot_raw(a.record.bytes, i + 1);
                e.line = number;
                e.read_only = read_only;
                if (!element_text(tra, a, i, axis, &e.name, &e.value)) {
                    e.name = format("%u.%u:%u.%d", a.kind, a.index, a.first + i, axis);
                    e.value = format("0x%llX", static_cast<unsigned long long>(e.raw));
                }
                set->elements[Key{axis, a.kind, a.index, a.first + i}] = std::move(e);
            }
        }
    }
    return 0;
}

// ---- Upload ----

int upload(const Bus &bus, const UploadOptions &options,
           const std::function<bool(const std::string &line)> &write, UploadSummary *summary) {
    const auto start = std::chrono::steady_clock::now();
    *summary = UploadSummary{};
    const uint64_t axes = options.axes & bus.present();
    if (axes == 0) {
        summary->message = "no drive on the axes asked for";
        return TRA_ENODRIVE;
    }
    const std::vector<uint8_t> &types = options.types.empty() ? user_types() : options.types;
    TRA *raw_uploader = nullptr;
    int rc = tra_create_register_traductor_e(&raw_uploader, bus.port(), options.flags);
    TraPtr uploader(raw_uploader);
    if (rc != 0) {
        summary->message = std::string("cannot start the upload: ") + tra_translate_error(rc);
        return rc;
    }

    struct State {
        const Bus &bus;
        const UploadOptions &options;
        const std::function<bool(const std::string &)> &write;
        UploadSummary *summary;
        std::set<std::tuple<int, uint32_t, uint32_t>> registers;
        Assignment a;
        bool write_failed = false;
        double last_progress = -1;
    } state{bus, options, write, summary, {}, {}, false, -1};

    const TRA_WRITE_LINE callback = [](TRA *tra, const char *text, void *user, int32_t) -> int {
        State &s = *static_cast<State *>(user);
        std::string line = text;
        const auto emit_line = [&s](const std::string &l) {
            if (!s.write(l)) {
                s.write_failed = true;
                return false;
            }
            ++s.summary->lines;
            return true;
        };
        if (s.options.date && line.rfind("# Date: ", 0) == 0) {
            std::tm tm{};
            const std::time_t t = *s.options.date;
            gmtime_r(&t, &tm);
            char when[64];
            std::strftime(when, sizeof when, "%a %b %e %H:%M:%S %Y", &tm);
            line = std::string("# Date: ") + when;
        }
        if (!line.empty() && line[0] != '#') {
            bool nothing = false;
            int rc = translate_assignment(s.bus.checking(), line, &s.a, &nothing);
            bool read_only = false;
            if (rc == TRA_EREADONLY) {
                read_only = true;
                rc = translate_assignment(s.bus.reading(), line, &s.a, &nothing);
            }
            if (rc == 0 && !nothing) {
                const int count = std::popcount(s.a.axes);
                s.summary->elements += s.a.elements * static_cast<uint32_t>(count);
                if (read_only) s.summary->read_only += s.a.elements * static_cast<uint32_t>(count);
                for (int axis = 0; axis < 64; ++axis)
                    if ((s.a.axes >> axis & 1) != 0) s.registers.emplace(axis, s.a.kind, s.a.index);
            }
            if (read_only && s.options.read_only_comments) {
                // The description keeps its column when blanks before it can make room.
                const std::size_t semicolon = line.find(" ;");
                if (semicolon != std::string::npos) {
                    std::size_t blanks = 0;
                    while (blanks < semicolon && line[semicolon - blanks] == ' ')
                        ++blanks;
                    const std::size_t drop = std::min(blanks - 1, std::strlen(READ_ONLY_PREFIX));
                    line.erase(semicolon + 1 - drop, drop);
                }
                line = READ_ONLY_PREFIX + line;
            }
        }
        if (!emit_line(line)) return 1;
        if (line.rfind("# Axis ", 0) == 0 && line.back() == ':') {
            const std::string what = line.substr(7, line.size() - 8);
            const int axis = what == "*" ? 63 : std::atoi(what.c_str());
            for (const DriveIdentity &d : s.bus.drives())
                if (d.axis == axis && !emit_line("#  - dev.product=" + product_text(d.product)))
                    return 1;
        }
        if (s.options.progress) {
            double p = 0;
            if (tra_get_progress(tra, &p) == 0 && p >= s.last_progress + 0.01) {
                s.last_progress = p;
                s.options.progress(p);
            }
        }
        return 0;
    };
    rc =
        tra_oxcom_upload_register_stream_e(uploader.get(), axes, static_cast<int32_t>(types.size()),
                                           types.data(), 0, -1, -1, callback, &state);
    summary->axes = std::popcount(axes);
    summary->registers = static_cast<uint32_t>(state.registers.size());
    summary->seconds = since(start);
    if (state.write_failed) {
        summary->message = "the output could not be written";
        return TRA_EWRITE;
    }
    if (rc != 0) {
        summary->message = std::string("the upload failed: ") + tra_translate_error(rc);
        return rc;
    }
    if (options.progress) options.progress(1.0);
    return 0;
}

int upload(const Bus &bus, const UploadOptions &options, std::ostream &out,
           UploadSummary *summary) {
    return upload(
        bus, options,
        [&out](const std::string &line) {
            out << line << '\n';
            return static_cast<bool>(out);
        },
        summary);
}

int upload_set(const Bus &bus, const UploadOptions &options, ParamSet *set, std::string *message) {
    std::stringstream text;
    UploadSummary summary;
    int rc = upload(bus, options, text, &summary);
    if (rc != 0) {
        *message = summary.message;
        return rc;
    }
    set->source = "bus:" + bus.address();
    rc = read_set(text, ReadOptions{}, &bus, set);
    if (rc != 0) *message = std::string("cannot read the upload: ") + tra_translate_error(rc);
    return rc;
}

// ---- Restore ----

namespace {

// The differences between a file's axis blocks and the drives present on the restored axes.
std::vector<Mismatch> mismatches(const std::map<int, AxisHeader> &axes, const Bus &bus,
                                 uint64_t mask) {
    std::vector<Mismatch> list;
    const std::vector<DriveIdentity> drives = bus.drives();
    for (const auto &[axis, h] : axes) {
        if ((mask >> axis & 1) == 0) continue;
        const auto d =
            std::find_if(drives.begin(), drives.end(),
                         [axis = axis](const DriveIdentity &x) { return x.axis == axis; });
        if (d == drives.end()) {
            list.push_back(
                {axis, "drive", h.product.empty() ? h.category : h.product, "none", false});
            continue;
        }
        const std::string product = product_text(d->product);
        if (!h.product.empty() && !same_name(h.product, product))
            list.push_back({axis, "product", h.product, product, true});
        const std::string version = version_text(d->version);
        if (!h.version.empty() && h.version != version)
            list.push_back({axis, "version", h.version, version, false});
        const std::string ext = ext_text(d->ext);
        const std::string file_ext = h.ext.empty() ? "none" : h.ext;
        if (!same_name(file_ext, ext))
            list.push_back({axis, "card", file_ext, ext, false});
        else if (d->ext != 0 && !h.ext_version.empty() &&
                 h.ext_version != version_text(d->ext_version))
            list.push_back(
                {axis, "card version", h.ext_version, version_text(d->ext_version), false});
    }
    return list;
}

bool listed(const std::vector<uint8_t> &types, uint32_t kind) {
    return std::find(types.begin(), types.end(), kind) != types.end();
}

int dry_run(const Bus &bus, const std::vector<std::string> &lines, const std::string &file,
            const RestoreOptions &options, const std::vector<uint8_t> &types,
            RestoreReport *report) {
    const uint64_t present = bus.present();
    Assignment a;
    int first = 0;
    for (std::size_t n = 0; n < lines.size(); ++n) {
        const std::string &line = lines[n];
        const int number = static_cast<int>(n) + 1;
        ++report->lines;
        if (line.rfind(READ_ONLY_PREFIX, 0) == 0) {
            ++report->skipped;
            continue;
        }
        if (is_comment_or_blank(line)) continue;
        bool nothing = false;
        int rc = translate_assignment(bus.checking(), line, &a, &nothing);
        if (rc == 0 && nothing) continue;
        if (rc == 0 && (!listed(types, a.kind) || (a.axes & options.axes) == 0)) {
            ++report->skipped;
            continue;
        }
        if (rc == 0 && (a.axes & options.axes & ~present) != 0) rc = TRA_ENODRIVE;
        if (rc != 0) {
            report->problems.push_back(problem(file, number, rc, tra_translate_error(rc), line));
            if (first == 0) first = rc;
            continue;
        }
        ++report->applied;
        if (options.progress && n % 256 == 0)
            options.progress(static_cast<double>(n) / static_cast<double>(lines.size()));
    }
    if (options.progress) options.progress(1.0);
    return first;
}

} // namespace

int restore(const Bus &bus, std::istream &in, const std::string &file,
            const RestoreOptions &options, RestoreReport *report) {
    const auto start = std::chrono::steady_clock::now();
    *report = RestoreReport{};
    std::vector<std::string> lines;
    if (!read_lines(in, &lines)) {
        report->problems.push_back(problem(file, 0, TRA_EGETREC, "the file could not be read", ""));
        return TRA_EGETREC;
    }
    if (!looks_like_parameter_file(lines)) {
        report->problems.push_back(problem(file, 0, TRA_ESTREAMFORMAT, "not a parameter file", ""));
        return TRA_ESTREAMFORMAT;
    }
    std::map<int, AxisHeader> axes;
    HeaderReader header(&axes);
    for (std::size_t n = 0; n < lines.size(); ++n)
        header.take(lines[n], static_cast<int>(n) + 1);
    report->mismatches = mismatches(axes, bus, options.axes);
    const std::vector<uint8_t> &types = options.types.empty() ? user_types() : options.types;
    if (options.dry_run) {
        const int rc = dry_run(bus, lines, file, options, types, report);
        report->seconds = since(start);
        return rc;
    }
    if (!options.force && std::any_of(report->mismatches.begin(), report->mismatches.end(),
                                      [](const Mismatch &m) { return m.refuses; })) {
        report->stopped = true;
        report->seconds = since(start);
        return TRA_EBADDRVPROD;
    }

    struct Feed {
        const std::vector<std::string> &lines;
        const RestoreOptions &options;
        std::size_t next = 0;
        uint32_t read_only = 0;
    } feed{lines, options, 0, 0};
    const TRA_READ_LINE read_line = [](TRA *, char *buffer, int32_t size, void *user) -> int {
        Feed &f = *static_cast<Feed *>(user);
        if (f.next >= f.lines.size()) return -1;
        const std::string &line = f.lines[f.next++];
        if (line.rfind(READ_ONLY_PREFIX, 0) == 0) ++f.read_only;
        if (line.size() >= static_cast<std::size_t>(size)) return TRA_EBUFSIZE;
        std::memcpy(buffer, line.c_str(), line.size() + 1);
        if (f.options.progress && f.next % 256 == 0)
            f.options.progress(static_cast<double>(f.next) / static_cast<double>(f.lines.size()));
        return 0;
    };
    const int rc = tra_oxcom_download_register_stream_e(
        bus.checking(), options.axes & bus.present(), static_cast<int32_t>(types.size()),
        types.data(), read_line, &feed);
    TRA_STREAM_REPORT r{};
    r.size = sizeof r;
    tra_get_stream_report(bus.checking(), &r);
    report->lines = r.lines;
    report->applied = r.acknowledged;
    report->skipped = r.skipped + feed.read_only;
    report->refused = r.refused;
    report->first_refused_line = r.first_refused_line;
    report->first_refused_text = r.first_refused_text;
    report->seconds = since(start);
    if (rc != 0) {
        const std::size_t at = feed.next;
        report->problems.push_back(problem(file, static_cast<int>(at), rc, tra_translate_error(rc),
                                           at >= 1 && at <= lines.size() ? lines[at - 1] : ""));
        return rc;
    }
    if (options.progress) options.progress(1.0);
    return r.refused != 0 ? TRA_EDRIVEERROR : 0;
}

// ---- Check ----

namespace {

// Checks every line with the translator that pick() gives for the axis block it stands in (null
// before the first block); a block whose translator is null is not checked.
int check_lines(const std::function<TRA *(const AxisHeader *, std::string *)> &pick,
                std::istream &in, const std::string &file, std::vector<LineProblem> *problems,
                uint32_t *lines_read) {
    std::vector<std::string> lines;
    if (!read_lines(in, &lines)) return TRA_EGETREC;
    *lines_read = static_cast<uint32_t>(lines.size());
    if (!looks_like_parameter_file(lines)) return TRA_ESTREAMFORMAT;
    std::map<int, AxisHeader> headers;
    HeaderReader reader(&headers);
    std::string why;
    TRA *tra = pick(nullptr, &why);
    bool header_open = false; // a block's header is being read: its translator comes after it
    Assignment a;
    int bad = 0;
    for (std::size_t n = 0; n < lines.size(); ++n) {
        const std::string &line = lines[n];
        const int number = static_cast<int>(n) + 1;
        if (reader.take(line, number)) {
            header_open = true;
            continue;
        }
        if (header_open) {
            header_open = false;
            const AxisHeader &h = headers[reader.current()];
            why.clear();
            tra = pick(&h, &why);
            if (!why.empty()) {
                // Its lines would be checked for another drive: the block is left out instead.
                // The reason without the list of what the family has.
                ++bad;
                problems->push_back(
                    problem(file, h.line, TRA_EBADDRVPROD,
                            why.substr(0, why.find("; ")) + ": the block's lines are not checked",
                            lines[static_cast<std::size_t>(h.line - 1)]));
                tra = nullptr;
            }
        }
        if (tra == nullptr || is_comment_or_blank(line)) continue;
        bool nothing = false;
        int rc = line.find('\0') != std::string::npos
                     ? TRA_ESYNTAX
                     : translate_assignment(tra, line, &a, &nothing);
        if (rc == 0) continue;
        ++bad;
        problems->push_back(problem(file, number, rc, tra_translate_error(rc), line));
    }
    return bad;
}

} // namespace

int check(TRA *tra, std::istream &in, const std::string &file, std::vector<LineProblem> *problems,
          uint32_t *lines_read) {
    return check_lines([tra](const AxisHeader *, std::string *) { return tra; }, in, file, problems,
                       lines_read);
}

int check_by_blocks(const ReadOptions &fallback, std::istream &in, const std::string &file,
                    std::vector<LineProblem> *problems, uint32_t *lines_read) {
    OfflineTranslators offline(fallback, TRA_FACCEPT_UNKNOWN_VERSION);
    return check_lines(
        [&offline](const AxisHeader *h, std::string *why) { return offline.for_header(h, why); },
        in, file, problems, lines_read);
}

// ---- Diff ----

std::vector<Difference> diff(const ParamSet &a, const ParamSet &b) {
    std::vector<Difference> out;
    auto i = a.elements.begin(), j = b.elements.begin();
    while (i != a.elements.end() || j != b.elements.end()) {
        if (j == b.elements.end() || (i != a.elements.end() && i->first < j->first)) {
            out.push_back({i->first, i->second.name, i->second.value, std::nullopt});
            ++i;
        } else if (i == a.elements.end() || j->first < i->first) {
            out.push_back({j->first, j->second.name, std::nullopt, j->second.value});
            ++j;
        } else {
            if (significant(i->first.kind, i->second.raw) !=
                significant(j->first.kind, j->second.raw))
                out.push_back({i->first, i->second.name, i->second.value, j->second.value});
            ++i;
            ++j;
        }
    }
    return out;
}

} // namespace ryn::cli::params
