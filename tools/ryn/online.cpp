// Pieces the online subcommands share.
#include "online.hpp"

#include <CLI/CLI.hpp>
#include <bit>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>

#include "common.hpp"
#include "output.hpp"

namespace ryn::cli {

void add_bus_option(CLI::App &app, std::string &address) {
    app.add_option("--bus", address,
                   "Bus address: sim:[OPTIONS] (simulated drives) or tcp://HOST:PORT")
        ->capture_default_str();
}

int open_bus(const char *command, const std::string &address, params::Bus &bus) {
    std::string why;
    const int rc = bus.open(address, &why);
    if (rc == 0) return -1;
    err() << "ryn " << command << ": " << why << '\n';
    return rc == OXB_ELOST ? exit_failure : exit_usage;
}

int open_bus_for(const char *command, const std::string &address, bool axes_given, uint64_t mask,
                 params::Bus &bus) {
    if (int rc = open_bus(command, address, bus); rc >= 0) return rc;
    const uint64_t absent = mask & ~bus.present();
    if (!axes_given || absent == 0) return -1;
    err() << "ryn " << command << ": --axes: no drive at axis " << std::countr_zero(absent)
          << " of bus '" << address << "'\n";
    return exit_usage;
}

bool read_selection(const char *command, const std::string &axes, const std::string &types,
                    uint64_t *mask, std::vector<uint8_t> *type_list) {
    std::string why;
    if (mask != nullptr && !axes.empty() && !params::parse_axes(axes, mask, &why)) {
        err() << "ryn " << command << ": --axes: " << why << '\n';
        return false;
    }
    if (type_list != nullptr && !types.empty() && !params::parse_types(types, type_list, &why)) {
        err() << "ryn " << command << ": --types: " << why << '\n';
        return false;
    }
    return true;
}

bool start_direct(const char *command, const params::Bus &bus, Translator *translator) {
    const int rc = tra_create_direct_traductor_e(&translator->tra, bus.port(), 0);
    if (rc == 0) return true;
    err() << "ryn " << command << ": cannot start the translator: " << tra_translate_error(rc)
          << '\n';
    return false;
}

std::optional<std::time_t> fixed_date() {
    const char *text = std::getenv("SOURCE_DATE_EPOCH");
    uint64_t seconds = 0;
    if (text == nullptr || !parse_number(text, seconds)) return std::nullopt;
    return static_cast<std::time_t>(seconds);
}

ProgressBar::ProgressBar(const char *label, bool force)
    : label_(label), enabled_(force || isatty(STDERR_FILENO) != 0) {}

ProgressBar::~ProgressBar() {
    clear();
}

void ProgressBar::show(double done) {
    if (!enabled_) return;
    const int percent = static_cast<int>(done * 100 + 0.5);
    if (percent == last_) return;
    last_ = percent;
    constexpr int width = 30;
    const int filled = percent * width / 100;
    err() << '\r' << label_ << " [" << std::string(static_cast<std::size_t>(filled), '#')
          << std::string(static_cast<std::size_t>(width - filled), ' ') << "] " << percent << '%';
    err().flush();
    drawn_ = true;
}

void ProgressBar::clear() {
    if (!drawn_) return;
    err() << "\r\033[K";
    err().flush();
    drawn_ = false;
}

bool Input::open(const std::string &path, std::string *error) {
    if (path == "-") {
        stream_ = &std::cin;
        return true;
    }
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        *error = "cannot read '" + path + "': " + std::strerror(errno);
        return false;
    }
    if (S_ISDIR(st.st_mode)) {
        *error = "cannot read '" + path + "': it is a directory";
        return false;
    }
    file_.open(path, std::ios::binary);
    if (!file_) {
        *error = "cannot read '" + path + "': " + std::strerror(errno);
        return false;
    }
    stream_ = &file_;
    return true;
}

std::string answer_line(const std::string &line, const std::string &answer, bool acknowledged,
                        bool status, bool request) {
    if (request && acknowledged) return answer;
    return line + ": " + (acknowledged ? "acknowledged" : "refused") +
           (status ? " (error status)" : "");
}

void write_json(const nlohmann::ordered_json &j) {
    out() << j.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

std::string problem_text(const params::LineProblem &p) {
    std::string where = p.file;
    if (p.line > 0) where += ":" + std::to_string(p.line);
    std::string text = where + ": " + std::to_string(p.code) + " " + p.message;
    if (!p.text.empty()) text += ": " + p.text;
    return text;
}

nlohmann::ordered_json problem_json(const params::LineProblem &p) {
    return {{"file", p.file},
            {"line", p.line},
            {"code", p.code},
            {"message", p.message},
            {"text", p.text}};
}

std::vector<LineAnswer> exchange_lines(TRA *tra, const std::vector<std::string> &lines,
                                       uint32_t timeout_ms, uint64_t *sequence) {
    constexpr size_t BATCH = 64;
    using Clock = std::chrono::steady_clock;
    std::vector<LineAnswer> answers(lines.size());
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    for (size_t from = 0; from < lines.size(); from += BATCH) {
        const size_t to = std::min(lines.size(), from + BATCH);
        const uint64_t base = *sequence;
        *sequence += to - from;
        std::vector<bool> waiting(to - from, false);
        size_t open = 0;
        for (size_t i = from; i < to; ++i) {
            uint8_t sent = 0;
            answers[i].code =
                tra_send_direct_cmd_e(tra, lines[i].c_str(), base + (i - from) + 1, &sent);
            answers[i].sent = sent != 0;
            if (answers[i].sent) {
                waiting[i - from] = true;
                ++open;
            }
        }
        char text[4096];
        while (open > 0) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) break;
            uint8_t ack = 0, flag = 0, request = 0;
            uint64_t user = 0;
            const int rc = tra_receive_direct_cmd_e_ex(tra, text, sizeof text, &ack, &flag,
                                                       &request, &user, uint32_t(left.count()));
            if (rc == TRA_ENOCOMMAND) break;
            if (rc != 0) {
                for (size_t i = from; i < to; ++i)
                    if (waiting[i - from]) answers[i].code = rc;
                open = 0;
                break;
            }
            if (user <= base || user > base + (to - from)) continue; // a late earlier answer
            const size_t i = from + size_t(user - base - 1);
            if (!waiting[i - from]) continue;
            waiting[i - from] = false;
            --open;
            answers[i].acknowledged = ack != 0;
            answers[i].text = text;
        }
        for (size_t i = from; i < to; ++i)
            if (waiting[i - from] && answers[i].code == 0) answers[i].code = TRA_ENOCOMMAND;
    }
    return answers;
}

} // namespace ryn::cli
