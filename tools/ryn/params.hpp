// Parameter files and live uploads as data: the model and operations that `ryn backup`,
// `restore`, `check`, `diff` (and any other front end, such as a web page) share.
//
// Everything here works on plain inputs (an open Bus, std::istream/std::ostream or callbacks,
// option structs) and returns plain result structs; nothing is printed. Translation is the
// register translator's (ryn/tra.h): a line becomes register elements by translating it to a
// record, and values are written back as text by the translator, so number spelling, comments and
// order make no difference to a comparison.
//
// Conventions: functions return 0 or a negative library code (TRA_E..., OXB_E...) and fill a
// `message` for the user; progress callbacks receive 0.0 .. 1.0 and may be empty. Axis 63 is the
// motion controller (written "*" in files). Not thread safe per Bus: one operation at a time on
// one Bus; different Bus objects may be used from different threads.
#pragma once

#include <compare>
#include <cstdint>
#include <ctime>
#include <functional>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ryn/oxb.h"
#include "ryn/tra.h"

namespace ryn::cli::params {

// ---- Drives on a bus ----

// Identity of the drive at one axis, as the bus reports it (card 0: none).
struct DriveIdentity {
    int axis = 0;
    uint32_t product = 0;
    uint32_t version = 0;
    uint32_t ext = 0;
    uint32_t ext_version = 0;
    uint32_t serial = 0;
    uint32_t boot_revision = 0;
    uint32_t ext_serial = 0;
    uint32_t ext_boot_revision = 0;
};

// An open port on a bus with the register translators the operations use; neither copied nor
// moved.
class Bus {
  public:
    Bus() = default;
    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;
    ~Bus();

    // Opens `address` ("sim:", "tcp://host:port", see docs/bus.md). 0, or the bus library's code
    // (OXB_E...) or the translator's (TRA_E...) with `message` set ("cannot open bus 'x': ...").
    int open(const std::string &address, std::string *message);
    bool is_open() const { return port_ != nullptr; }
    const std::string &address() const { return address_; }

    OXB_PORT *port() const { return port_; }
    OXB_BUS *bus() const { return bus_; }
    // The register translator that checks every line against the drives' dictionaries.
    TRA *checking() const { return checking_; }
    // A register translator that reads read-only elements too (dictionary checks off): for
    // turning lines into elements only, never for sending.
    TRA *reading() const { return reading_; }

    // Mask of the axes with a drive (bit n: axis n), read afresh.
    uint64_t present() const;
    // The drives present, ascending axes.
    std::vector<DriveIdentity> drives() const;

  private:
    std::string address_;
    OXB_PORT *port_ = nullptr;
    OXB_BUS *bus_ = nullptr;
    TRA *checking_ = nullptr;
    TRA *reading_ = nullptr;
};

// ---- Register types by name ----

// The user register families streamed by default (X, K, L, E, W, C in every value class).
const std::vector<uint8_t> &user_types();

// Reads a type list "K,X,CF": a name of an int32 type (K) stands for its family in every value
// class, a name with a class (KF, KL, KD) for that type alone. False with `message` for an unknown
// name ("unknown register type 'Z' (the types: ...)") or an empty list.
bool parse_types(const std::string &list, std::vector<uint8_t> *types, std::string *message);

// Reads an axis list "0,2-3,63" or "*" (axis 63) or "all" into a mask. False with `message`.
bool parse_axes(const std::string &list, uint64_t *mask, std::string *message);

// ---- The model of a parameter file ----

// One register element of one axis. `kind` is the kind word (type code with value class).
struct Key {
    int axis = 0;
    uint32_t kind = 0;
    uint32_t index = 0;
    uint32_t element = 0;
    auto operator<=>(const Key &) const = default;
};

// The value of one element as a file or an upload gives it.
struct Element {
    uint64_t raw = 0;       // the value's 8 bytes (a 32-bit class in the low 4)
    std::string name;       // "K12.0", "K5:2.0", "*W10": as the translator writes the register
    std::string value;      // "2", "0x10", "\"AXIS\"", "1.5E3F": as the translator writes the value
    int line = 0;           // 1-based line of the file (0 for a value not read from a file)
    bool read_only = false; // written as a "# read-only: " comment line
};

// What the file says of one axis's drive in its axis block ("" when it does not say).
struct AxisHeader {
    int axis = 0;
    std::string product;  // "ORX-D32": the "dev.product" line the tool writes
    std::string category; // "SERVO DRIVE"
    std::string version;  // "3.12B"
    std::string ext;      // "IOX-8"
    std::string ext_version;
    int line = 0; // line of "# Axis N:"
};

// A line that could not be read or used, with the library's code and message.
struct LineProblem {
    std::string file;
    int line = 0;
    int code = 0;
    std::string message;
    std::string text; // the line, cut to 200 characters
};

// A parameter file (or a live upload) as per-axis register elements.
struct ParamSet {
    std::string source;                // file name, "-" or "bus:ADDRESS"
    bool has_header = false;           // starts with "# ORAX Parameters Upload"
    std::map<Key, Element> elements;   // every element assigned (the last assignment wins)
    std::map<int, AxisHeader> axes;    // axis blocks of the file
    std::vector<LineProblem> problems; // lines that are not assignments or do not translate
    uint32_t lines = 0;                // lines read
    uint32_t value_lines = 0;          // assignment lines (read-only comments included)
};

// The drive configuration used to read a file whose axis blocks do not name a product (or a
// product that the family does not know). Zero product: ORX-D32 at its default version.
struct ReadOptions {
    uint32_t product = 0;
    uint32_t version = 0;
    uint32_t ext = 0;
    uint32_t ext_version = 0;
};

// Reads a parameter stream into `set` (set->source names it in problems). Each axis block's
// lines are read with the dictionary of the product its header names, else with `options`; with
// a Bus, lines are read against the drives present. Never fails as a whole: unreadable lines
// become problems. Returns 0, or TRA_ESTREAMFORMAT when the input is not a parameter file (no
// upload header, and its first command line is not a register assignment or holds a NUL byte),
// or TRA_ESYSTEM; a read error of the stream is TRA_EGETREC.
int read_set(std::istream &in, const ReadOptions &options, const Bus *bus, ParamSet *set);

// ---- Upload (backup) ----

struct UploadOptions {
    uint64_t axes = ~uint64_t(0); // intersected with the axes present
    std::vector<uint8_t> types;   // empty: user_types()
    uint32_t flags = 0;           // layout flags of the translator (TRA_F...)
    // Read-only elements written as "# read-only: K50.0=3" comment lines, so that the file
    // restores anywhere.
    bool read_only_comments = true;
    // The header's date; empty: now. A fixed date makes the output reproducible.
    std::optional<std::time_t> date;
    std::function<void(double)> progress;
};

struct UploadSummary {
    int axes = 0;           // axes uploaded
    uint32_t registers = 0; // distinct registers of value lines
    uint32_t elements = 0;  // elements of value lines
    uint32_t lines = 0;     // lines written
    uint32_t read_only = 0; // elements written as read-only comments
    double seconds = 0;
    std::string message; // on failure: what failed
};

// Uploads the registers of the axes through `write` (one line, without its end; false stops the
// upload with TRA_EWRITE, so a backup that could not be written never looks complete). The file
// names each drive's product ("#  - dev.product=ORX-D32") in its axis block, for restore.
// Returns 0, TRA_ENODRIVE when no listed axis has a drive, TRA_EWRITE, or the upload's code.
int upload(const Bus &bus, const UploadOptions &options,
           const std::function<bool(const std::string &line)> &write, UploadSummary *summary);
// As above into a stream, each line ended by "\n"; a stream that fails is TRA_EWRITE.
int upload(const Bus &bus, const UploadOptions &options, std::ostream &out, UploadSummary *summary);
// A live upload as a set (source "bus:" + the bus address).
int upload_set(const Bus &bus, const UploadOptions &options, ParamSet *set, std::string *message);

// ---- Restore (download) ----

struct RestoreOptions {
    uint64_t axes = ~uint64_t(0);
    std::vector<uint8_t> types; // empty: user_types()
    bool dry_run = false;       // check every line against the drives present, send nothing
    bool force = false;         // restore even onto another product than the file names
    std::function<void(double)> progress;
};

// Where the file's axis block and the drive present differ.
struct Mismatch {
    int axis = 0;
    std::string what;     // "product", "version", "card", "card version", "drive"
    std::string file;     // as the file names it
    std::string drive;    // as the bus reports it ("none" when the axis has no drive)
    bool refuses = false; // stops the restore unless forced (another product)
};

struct RestoreReport {
    std::vector<Mismatch> mismatches; // found before sending
    bool stopped = false;             // nothing sent because of a refusing mismatch
    uint32_t lines = 0;               // lines read
    uint32_t applied = 0;             // lines the drives acknowledged
    uint32_t skipped = 0;             // lines not sent: types, axes, read-only comments
    uint32_t refused = 0;             // lines a drive answered without acknowledge
    int first_refused_line = 0;       // 1-based, 0 when none
    std::string first_refused_text;
    // The line that ended the restore (or, on a dry run, every bad line).
    std::vector<LineProblem> problems;
    double seconds = 0;
};

// Restores the parameter stream `in` (named `file` in the report) onto the bus. Reads it whole
// first: a file that is not a parameter file sends nothing (TRA_ESTREAMFORMAT). Mismatches of
// product, version and card between the file's axis blocks and the drives are listed before
// anything is sent; another product stops the restore (TRA_EBADDRVPROD) unless forced. A line
// that fails ends the download with its code (the lines before it stay applied); a refused line
// does not, but any refusal makes the result TRA_EDRIVEERROR. A dry run translates every line for
// the drives present and lists every bad line (result: the first one's code).
int restore(const Bus &bus, std::istream &in, const std::string &file,
            const RestoreOptions &options, RestoreReport *report);

// ---- Check (offline or against a bus) ----

// Translates every line of a parameter stream with `tra` (an offline or bus-bound register
// translator) and lists every line that is not a valid register assignment. Returns the number of
// bad lines, or TRA_ESTREAMFORMAT for a stream that is not a parameter file.
int check(TRA *tra, std::istream &in, const std::string &file, std::vector<LineProblem> *problems,
          uint32_t *lines);
// The same offline, each axis block checked for the drive its header names (the lines before the
// first block, and blocks that name none, for `fallback`); a block whose drive the family does not
// have is one bad line, at its header.
int check_by_blocks(const ReadOptions &fallback, std::istream &in, const std::string &file,
                    std::vector<LineProblem> *problems, uint32_t *lines);

// ---- Diff ----

struct Difference {
    Key key;
    std::string name;             // "K12.0"
    std::optional<std::string> a; // value on side A; empty: the element is on side B only
    std::optional<std::string> b;
};

// The elements whose values differ (compared as values of their class, not as text), and those on
// one side only, in axis, type, index, element order.
std::vector<Difference> diff(const ParamSet &a, const ParamSet &b);

} // namespace ryn::cli::params
