// The bus side of `ryn web`: sessions, dictionary data, scope sampling and parameter jobs.
#include "web_hub.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <unistd.h>

#include "common.hpp"
#include "dictionary.hpp"
#include "explain.hpp"
#include "online.hpp"
#include "ryn/oxbsim.h"
#include "wire/wire.hpp"

namespace ryn::cli::web {

namespace {

using Clock = std::chrono::steady_clock;

// How long a request waits for a free session, and for the answers to its lines.
constexpr auto SESSION_WAIT = std::chrono::seconds(5);
constexpr uint32_t ANSWER_MS = 3000;
// Most lines sent before their answers are collected.
// Most scope streams at once, and most samples a stream keeps for a client that does not read.
constexpr int MAX_SCOPES = 4;
constexpr size_t MAX_KEPT = 20000;

// The address with a bus name, so that every port opened with it reaches the same simulated bus
// (an unnamed sim: address makes a bus of its own at each open).
std::string shared_address(const std::string &address) {
    if (address.rfind("sim:", 0) != 0) return address;
    std::stringstream options(address.substr(4));
    for (std::string item; std::getline(options, item, ';');)
        if (item.rfind("name=", 0) == 0) return address;
    static std::atomic<int> count{0};
    std::string named = address;
    if (named.size() > 4 && named.back() != ';') named += ';';
    return named + format("name=ryn-web-%d-%d", int(getpid()), count++);
}

bool contains(const char *text, const std::string &lower_query) {
    if (text == nullptr) return false;
    std::string t(text);
    for (char &c : t)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return t.find(lower_query) != std::string::npos;
}

Json text_or_null(const char *text) {
    return text == nullptr ? Json(nullptr) : Json(text);
}

// The value of an answer "K1.0=1234": the text after the first '='.
std::string answer_value(const std::string &answer) {
    const size_t eq = answer.find('=');
    return eq == std::string::npos ? std::string() : answer.substr(eq + 1);
}

// A number for the plot, or null for a value that is not one.
Json plot_value(const Answer &a) {
    if (a.code != 0 || !a.acknowledged) return nullptr;
    const std::string v = answer_value(a.text);
    char *end = nullptr;
    const double d = std::strtod(v.c_str(), &end);
    if (end == v.c_str() || !std::isfinite(d)) return nullptr;
    return d;
}

// A read of one element as the language writes it: "K1.0", "K5:2.1", "*W10" (the motion
// controller at axis 63); `element` -1 for a register of one element.
std::string element_line(const std::string &name, int element, int axis) {
    const std::string e = element < 0 ? std::string() : format(":%d", element);
    return axis == 63 ? "*" + name + e : name + e + format(".%d", axis);
}

// The axis a line names ("K1.0=5" -> 0, "PWR.3=1" -> 3, "*W10" -> 63), or -1.
int line_axis(const std::string &line) {
    if (!line.empty() && line[0] == '*') return 63;
    const size_t end = line.find('=');
    const size_t dot = line.rfind('.', end == std::string::npos ? line.size() : end);
    if (dot == std::string::npos) return -1;
    int axis = 0, digits = 0;
    for (size_t i = dot + 1; i < line.size() && std::isdigit(static_cast<unsigned char>(line[i]));
         ++i, ++digits)
        axis = axis * 10 + (line[i] - '0');
    return digits > 0 && digits <= 2 && axis < 64 ? axis : -1;
}

} // namespace

// ---- Sessions ----

Session::~Session() {
    tra_destroy(&tra_);
    oxb_close(&port_);
}

int Session::open(const std::string &address) {
    int rc = oxb_open(address.c_str(), &port_);
    if (rc == 0) rc = tra_create_direct_traductor_e(&tra_, port_, 0);
    return rc;
}

std::vector<Answer> Session::exchange(const std::vector<std::string> &lines, uint32_t timeout_ms) {
    return exchange_lines(tra_, lines, timeout_ms, &sequence_);
}

// ---- The hub ----

class Hub::Lease {
  public:
    explicit Lease(Hub &hub) : hub_(hub), session_(hub.take_session()) {}
    ~Lease() {
        if (session_) hub_.give_session(std::move(session_));
    }
    Session *operator->() { return session_.get(); }
    explicit operator bool() const { return session_ != nullptr; }

  private:
    Hub &hub_;
    std::unique_ptr<Session> session_;
};

int Hub::open(const std::string &address, int sessions, std::unique_ptr<Hub> *out,
              std::string *why) {
    std::unique_ptr<Hub> hub(new Hub);
    hub->address_ = shared_address(address);
    int rc = hub->bus_.open(hub->address_, why);
    if (rc != 0) return rc;
    for (int i = 0; i < sessions; ++i) {
        auto s = std::make_unique<Session>();
        if ((rc = s->open(hub->address_)) != 0) {
            *why = format("cannot open a port on bus '%s': %s", address.c_str(),
                          rc <= -500 ? tra_translate_error(rc) : oxb_translate_error(rc));
            return rc;
        }
        hub->idle_.push_back(std::move(s));
    }
    *out = std::move(hub);
    return 0;
}

Hub::~Hub() {
    stop();
    if (worker_.joinable()) worker_.join();
    for (auto &entry : dicts_)
        vok_close(&entry.second);
}

void Hub::stop() {
    stopping_ = true;
}

std::unique_ptr<Session> Hub::take_session() {
    std::unique_lock lock(pool_mutex_);
    if (!pool_ready_.wait_for(lock, SESSION_WAIT, [&] { return !idle_.empty(); })) return nullptr;
    auto s = std::move(idle_.back());
    idle_.pop_back();
    return s;
}

void Hub::give_session(std::unique_ptr<Session> s) {
    {
        std::lock_guard lock(pool_mutex_);
        idle_.push_back(std::move(s));
    }
    pool_ready_.notify_one();
}

const VOK_DICT *Hub::dictionary(int axis) {
    if (axis < 0 || axis > 63) return nullptr;
    wire::DriveInfo info{};
    info.size = sizeof info;
    wire::ExtInfo ext{};
    ext.size = sizeof ext;
    if (oxb_get_drive_info(bus_.bus(), axis, &info) != 0) return nullptr;
    if (oxb_get_ext_info(bus_.bus(), axis, &ext) != 0) ext = wire::ExtInfo{};
    const std::vector<uint32_t> key = {info.product, info.version, ext.product, ext.version};
    std::lock_guard lock(dict_mutex_);
    auto found = dicts_.find(key);
    if (found != dicts_.end()) return found->second;
    VOK_DICT *d = nullptr;
    if (vok_open(&d, key[0], key[1], key[2], key[3]) != 0) return nullptr;
    dicts_[key] = d;
    return d;
}

Json Hub::drives() {
    Json list = Json::array();
    for (const params::DriveIdentity &d : bus_.drives()) {
        const char *card = vok_get_ext_product_name(d.ext);
        list.push_back(
            {{"axis", d.axis},
             {"product", product_name(d.product)},
             {"firmware", version_text(d.version)},
             {"card", d.ext == 0 ? std::string("none")
                                 : std::string(card != nullptr ? card : format("0x%X", d.ext)) +
                                       " " + version_text(d.ext_version)},
             {"serial", d.serial},
             {"boot_revision", d.boot_revision}});
    }
    return {{"bus", bus_.address()}, {"drives", list}};
}

Json Hub::send(const std::string &line, int axis) {
    Json r = {{"line", line}};
    Lease session(*this);
    if (!session) {
        r["code"] = TRA_ENOCOMMAND;
        r["message"] = "the server is busy: no free port on the bus; try again";
        return r;
    }
    const Answer a = session->exchange({line}, ANSWER_MS)[0];
    r["code"] = a.code;
    r["sent"] = a.sent;
    r["acknowledged"] = a.acknowledged;
    r["answer"] = a.text;
    if (a.code != 0) {
        r["message"] = a.code == TRA_ENOCOMMAND ? std::string("no answer in time")
                                                : std::string(tra_translate_error(a.code));
        if (axis < 0) axis = line_axis(line);
        r["explanation"] = explain_failure(dictionary(axis < 0 ? 0 : axis), line, a.code);
    } else if (a.sent && !a.acknowledged) {
        r["message"] = "the drive refused the line";
    }
    return r;
}

Failure Hub::registers(int axis, const std::string &query, int offset, int limit, bool values,
                       Json *out) {
    const VOK_DICT *d = dictionary(axis);
    if (d == nullptr) return {404, format("no drive at axis %d", axis)};
    std::string q = query;
    for (char &c : q)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    std::vector<std::pair<uint32_t, uint32_t>> found;
    for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k) {
        if (vok_get_type_name(d, 1, k) == nullptr || !vok_type_exists(d, k)) continue;
        for (int32_t i = vok_get_next_index(d, k, 0); i >= 0;
             i = vok_get_next_index(d, k, uint32_t(i) + 1)) {
            const uint32_t index = uint32_t(i);
            if (q.empty() || contains(register_name(d, k, index).c_str(), q) ||
                contains(vok_get_register_name(d, 1, k, index, 0), q) ||
                contains(vok_get_register_name(d, 2, k, index, 0), q))
                found.emplace_back(k, index);
        }
    }
    Json rows = Json::array();
    std::vector<std::string> lines;
    const size_t first = std::min(found.size(), size_t(offset));
    const size_t last = std::min(found.size(), first + size_t(limit));
    for (size_t n = first; n < last; ++n) {
        const auto [k, i] = found[n];
        const std::string name = register_name(d, k, i);
        const int length = vok_get_register_length(d, k, i);
        const int display = vok_get_register_format(d, k, i, 0);
        Json writable = Json::array();
        for (int s = 0; s < length; ++s) {
            writable.push_back(vok_register_writable(d, k, i, uint32_t(s)) != 0);
            lines.push_back(element_line(name, length > 1 ? s : -1, axis));
        }
        Json entries = Json::array();
        const int id = vok_get_reg_enum(d, k, i, 0);
        for (int e = 0; id != 0 && e < vok_get_enum_count(d, id); ++e)
            if (vok_enum_entry_for_reg(d, e, k, i, 0))
                entries.push_back({{"name", text_or_null(vok_get_enum_entry_name(d, id, e))},
                                   {"value", value_text(k, display, enum_value(d, k, id, e))},
                                   {"mask", vok_enum_entry_is_mask(d, id, e) != 0}});
        const int unit = vok_get_register_iso_unit(d, k, i);
        rows.push_back({{"name", name},
                        {"alias", text_or_null(vok_get_register_name(d, 1, k, i, 0))},
                        {"description", text_or_null(vok_get_register_name(d, 2, k, i, 0))},
                        {"group", text_or_null(vok_get_register_class(d, 1, k, i))},
                        {"class", class_name(k)},
                        {"format", format_name(display)},
                        {"unit", unit != 0 ? format("ISO unit %d", unit) : "drive units"},
                        {"elements", length},
                        {"writable", writable},
                        {"range", range_text(k, display, reg_limit(d, k, i, 0, false),
                                             reg_limit(d, k, i, 0, true))},
                        {"entries", entries}});
    }
    if (values && !lines.empty()) {
        Lease session(*this);
        if (!session) return {503, "the server is busy: no free port on the bus; try again"};
        const std::vector<Answer> answers = session->exchange(lines, ANSWER_MS);
        size_t at = 0;
        for (Json &row : rows) {
            Json list = Json::array();
            for (int s = 0; s < row["elements"].get<int>(); ++s, ++at) {
                const Answer &a = answers[at];
                list.push_back(a.code == 0 && a.acknowledged ? Json(answer_value(a.text))
                                                             : Json(nullptr));
            }
            row["values"] = list;
        }
    }
    *out = {{"axis", axis}, {"total", found.size()}, {"offset", first}, {"registers", rows}};
    return {};
}

Failure Hub::names(int axis, Json *out) {
    const VOK_DICT *d = dictionary(axis);
    if (d == nullptr) return {404, format("no drive at axis %d", axis)};
    Json commands = Json::array(), types = Json::array(), aliases = Json::array();
    for (int32_t c = vok_get_next_command(d, 0); c >= 0;
         c = vok_get_next_command(d, uint32_t(c) + 1))
        if (const char *name = vok_get_command_name(d, 1, uint32_t(c))) commands.push_back(name);
    for (uint32_t k = 0; k < VOK_TYPE_COUNT; ++k) {
        const char *name = vok_get_type_name(d, 1, k);
        if (name == nullptr || !vok_type_exists(d, k)) continue;
        types.push_back(name);
        for (int32_t i = vok_get_next_index(d, k, 0); i >= 0;
             i = vok_get_next_index(d, k, uint32_t(i) + 1))
            if (const char *alias = vok_get_register_name(d, 1, k, uint32_t(i), 0))
                aliases.push_back(alias);
    }
    *out = {{"axis", axis}, {"commands", commands}, {"types", types}, {"aliases", aliases}};
    return {};
}

Failure Hub::simulate(int axis, bool attach) {
    if (axis < 0 || axis > 63) return {400, "an axis is 0 .. 63"};
    OXBSIM_DRIVE drive{};
    std::string why;
    find_product(axis == 63 ? "ORX-M51" : "ORX-D32", drive.product, why);
    drive.serial = uint32_t(axis == 63 ? 50001 : 10001 + axis);
    drive.boot_revision = 1;
    const int rc =
        attach ? oxbsim_attach(bus_.bus(), axis, &drive) : oxbsim_detach(bus_.bus(), axis);
    if (rc == OXB_ENOTSIM) return {409, "the bus is not a simulated bus"};
    if (rc != 0) return {409, format("axis %d: %s", axis, oxb_translate_error(rc))};
    return {};
}

// ---- Scope ----

Failure Hub::scope(const std::vector<std::string> &channels, int period_ms,
                   std::unique_ptr<Scope> *out) {
    if (channels.empty() || channels.size() > 8) return {400, "a scope has 1 .. 8 channels"};
    if (period_ms < 1 || period_ms > 10000) return {400, "the period is 1 .. 10000 ms"};
    for (const std::string &c : channels) {
        const bool plain = !c.empty() && c.size() < 40 && c.find_first_of("=;# \t") == c.npos;
        if (!plain) return {400, "channel '" + c + "': a channel is a register read as K1.0"};
    }
    if (++scopes_ > MAX_SCOPES) {
        --scopes_;
        return {503, format("at most %d scope streams at once", MAX_SCOPES)};
    }
    auto scope = std::make_unique<Scope>(*this, channels, period_ms);
    // The first reads tell whether each channel is a register that answers with a value.
    {
        Lease session(*this);
        if (!session) {
            scope_ended();
            return {503, "the server is busy: no free port on the bus; try again"};
        }
        const auto answers = session->exchange(channels, ANSWER_MS);
        for (size_t i = 0; i < channels.size(); ++i) {
            const Answer &a = answers[i];
            if (a.code == 0 && a.acknowledged && a.text.find('=') != std::string::npos) continue;
            scope_ended();
            return {400, "channel '" + channels[i] + "': " +
                             (a.code != 0 ? std::string(tra_translate_error(a.code))
                                          : std::string("not a register read"))};
        }
    }
    if (const int rc = scope->start(address_); rc != 0) {
        scope_ended();
        return {503, format("cannot open a port for the scope: error %d", rc)};
    }
    *out = std::move(scope);
    return {};
}

void Hub::scope_ended() {
    --scopes_;
}

Scope::Scope(Hub &hub, std::vector<std::string> channels, int period_ms)
    : hub_(hub), channels_(std::move(channels)), period_ms_(period_ms) {}

int Scope::start(const std::string &address) {
    const int rc = session_.open(address);
    if (rc == 0) thread_ = std::thread([this] { run(); });
    return rc;
}

Scope::~Scope() {
    {
        std::lock_guard lock(mutex_);
        stop_ = true;
    }
    ready_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
        hub_.scope_ended();
    }
}

void Scope::run() {
    session_.exchange(channels_, ANSWER_MS); // the first reads of a new port take longer
    const auto start = Clock::now();
    const auto period = std::chrono::milliseconds(period_ms_);
    uint64_t n = 0;
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            if (ready_.wait_until(lock, start + n * period, [&] { return stop_; })) return;
        }
        const auto answers = session_.exchange(channels_, ANSWER_MS);
        const double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        Json sample = Json::array({n, std::round(ms * 100) / 100});
        for (const Answer &a : answers)
            sample.push_back(plot_value(a));
        // Late by more than a period (the reads took that long): the periods in between have no
        // sample, and the stream says how many.
        const uint64_t due = uint64_t((Clock::now() - start) / period);
        const uint64_t next = std::max(n + 1, due);
        {
            std::lock_guard lock(mutex_);
            samples_.push_back(std::move(sample));
            if (samples_.size() > MAX_KEPT) {
                samples_.pop_front();
                ++missed_;
            }
            missed_ += next - (n + 1);
        }
        ready_.notify_all();
        n = next;
    }
}

Json Scope::take(int wait_ms) {
    std::unique_lock lock(mutex_);
    const auto ending = [&] { return stop_ || hub_.stopping(); };
    if (ready_.wait_for(lock, std::chrono::milliseconds(wait_ms),
                        [&] { return !samples_.empty() || ending(); }))
        ready_.wait_for(lock, std::chrono::milliseconds(50), ending); // gather a batch
    Json list = Json::array();
    for (Json &s : samples_)
        list.push_back(std::move(s));
    samples_.clear();
    return {{"samples", list}, {"missed", missed_}};
}

// ---- Parameter jobs ----

Failure Hub::start_job(const std::string &kind, std::function<void(Job &)> work,
                       std::shared_ptr<Job> *out) {
    std::lock_guard lock(jobs_mutex_);
    // Jobs run one at a time: the newest one, when it has not ended, is the one running.
    if (!jobs_.empty() && !jobs_.rbegin()->second->done)
        return {409, "a backup or restore is running; wait for it to end"};
    if (worker_.joinable()) worker_.join(); // the last job's thread, already at its end
    auto job = std::make_shared<Job>();
    job->id = next_job_++;
    job->kind = kind;
    jobs_[job->id] = job;
    while (jobs_.size() > 8)
        jobs_.erase(jobs_.begin());
    worker_ = std::thread([this, job, work = std::move(work)] {
        {
            std::lock_guard params(params_mutex_);
            work(*job);
        }
        job->progress = 1.0;
        job->done = true;
    });
    *out = job;
    return {};
}

std::shared_ptr<Job> Hub::job(int id) {
    std::lock_guard lock(jobs_mutex_);
    auto found = jobs_.find(id);
    return found == jobs_.end() ? nullptr : found->second;
}

Failure Hub::start_backup(const std::string &axes, std::shared_ptr<Job> *job) {
    params::UploadOptions options;
    std::string why;
    if (!axes.empty() && !params::parse_axes(axes, &options.axes, &why)) return {400, why};
    return start_job(
        "backup",
        [this, options](Job &job) mutable {
            options.progress = [&job](double p) { job.progress = p; };
            std::ostringstream text;
            params::UploadSummary s;
            job.code = params::upload(bus_, options, text, &s);
            job.file = text.str();
            job.result = {{"code", job.code},         {"message", s.message},   {"axes", s.axes},
                          {"registers", s.registers}, {"elements", s.elements}, {"lines", s.lines},
                          {"read_only", s.read_only}, {"seconds", s.seconds}};
        },
        job);
}

Failure Hub::start_restore(const std::string &text, bool dry_run, bool force,
                           std::shared_ptr<Job> *job) {
    return start_job(
        "restore",
        [this, text, dry_run, force](Job &job) {
            params::RestoreOptions options;
            options.dry_run = dry_run;
            options.force = force;
            options.progress = [&job](double p) { job.progress = p; };
            std::istringstream in(text);
            params::RestoreReport r;
            job.code = params::restore(bus_, in, "upload", options, &r);
            job.result = restore_report_json("upload", r, job.code, dry_run);
            job.result["message"] = job.code == 0 ? "" : tra_translate_error(job.code);
        },
        job);
}

Failure Hub::diff(const std::string &text, Json *out) {
    // Waits for a job or another diff to end, 10 s at most. Polled: ThreadSanitizer does not see
    // the timed lock of std::timed_mutex (pthread_mutex_clocklock) and would report its unlock.
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!params_mutex_.try_lock()) {
        if (std::chrono::steady_clock::now() > give_up)
            return {409, "a backup or restore is running; wait for it to end"};
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::lock_guard lock(params_mutex_, std::adopt_lock);
    std::istringstream in(text);
    params::ParamSet file;
    file.source = "upload";
    int rc = params::read_set(in, params::ReadOptions{}, &bus_, &file);
    if (rc == TRA_ESTREAMFORMAT) return {400, "the upload is not a parameter file"};
    if (rc != 0) return {500, format("cannot read the file: %s", tra_translate_error(rc))};
    params::UploadOptions options;
    options.axes = 0;
    std::vector<uint8_t> types;
    for (const auto &[key, element] : file.elements) {
        options.axes |= uint64_t(1) << key.axis;
        if (std::find(types.begin(), types.end(), uint8_t(key.kind)) == types.end())
            types.push_back(uint8_t(key.kind));
    }
    Json list = Json::array();
    if (options.axes != 0) {
        options.types = types;
        params::ParamSet live;
        std::string why;
        rc = params::upload_set(bus_, options, &live, &why);
        if (rc != 0) return {409, why};
        for (const params::Difference &d : params::diff(file, live))
            if (d.a)
                list.push_back({{"axis", d.key.axis},
                                {"name", d.name},
                                {"file", *d.a},
                                {"drive", d.b ? Json(*d.b) : Json(nullptr)}});
    }
    Json problems = Json::array();
    for (const params::LineProblem &p : file.problems)
        problems.push_back(problem_json(p));
    *out = {{"elements", file.elements.size()}, {"differences", list}, {"problems", problems}};
    return {};
}

} // namespace ryn::cli::web
