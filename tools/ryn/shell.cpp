// The shell subcommand: an interactive session on a bus. Lines are edited with libedit (history
// kept in the user's data directory, tab completion of command and register names and aliases of
// the drives present); each line is sent at once and its answer printed when it arrives, above
// the line being typed. Dot-commands: .help, .info, .axes MASK, .quit.
#include <CLI/CLI.hpp>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <poll.h>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <climits>
#include <cwchar>
#include <histedit.h>

#include "common.hpp"
#include "dictionary.hpp"
#include "online.hpp"
#include "output.hpp"
#include "ryn/vok.h"

namespace ryn::cli {

namespace {

struct ShellOptions {
    std::string bus = "sim:";
    unsigned timeout = 2000;
};

constexpr const char *PROMPT = "ryn> ";
constexpr const char *HELP =
    "Type a command line (K1.0=1234, K1.0, PWR.0=1); its answer is printed when it arrives.\n"
    "Tab completes command and register names and aliases. Dot-commands:\n"
    "  .help        this text\n"
    "  .info        the drives present\n"
    "  .axes MASK   the axes of the \".X\" form (0,1 or 0x3); without MASK: show them\n"
    "  .quit        end the session (also Ctrl-D)\n";

// The history file: $XDG_DATA_HOME/ryn/history, else ~/.local/share/ryn/history; empty when
// neither is known.
std::string history_path() {
    std::filesystem::path dir;
    if (const char *xdg = std::getenv("XDG_DATA_HOME"); xdg != nullptr && *xdg == '/')
        dir = xdg;
    else if (const char *home = std::getenv("HOME"); home != nullptr && *home != '\0')
        dir = std::filesystem::path(home) / ".local" / "share";
    else
        return "";
    std::error_code ec;
    std::filesystem::create_directories(dir / "ryn", ec);
    return (dir / "ryn" / "history").string();
}

// Command and register names and aliases of the dictionaries of the drives present.
std::vector<std::string> completion_words(const params::Bus &bus) {
    std::set<std::string> words = {".help", ".info", ".axes", ".quit"};
    std::set<std::tuple<uint32_t, uint32_t, uint32_t, uint32_t>> seen;
    for (const params::DriveIdentity &drive : bus.drives()) {
        if (!seen.emplace(drive.product, drive.version, drive.ext, drive.ext_version).second)
            continue;
        Dict dict;
        if (vok_open(&dict.d, drive.product, drive.version, drive.ext, drive.ext_version) != 0)
            continue;
        for (uint32_t kind = 0; kind < 128; ++kind) {
            if (vok_get_type_name(dict.d, 1, kind) == nullptr ||
                vok_type_exists(dict.d, kind) == 0 || vok_type_is_hidden(dict.d, kind) != 0)
                continue;
            const int count = vok_get_register_count(dict.d, kind);
            for (int i = 0; i < count && i < 4096; ++i) {
                if (vok_index_exists(dict.d, kind, static_cast<uint32_t>(i)) == 0) continue;
                words.insert(register_name(dict.d, kind, static_cast<uint32_t>(i)));
                const char *alias =
                    vok_get_register_name(dict.d, 1, kind, static_cast<uint32_t>(i), 0);
                if (alias != nullptr && *alias != '\0') words.insert(alias);
            }
        }
        for (uint32_t c = 0; c < 14592; ++c) {
            if (vok_command_exists(dict.d, c) == 0) continue;
            const char *name = vok_get_command_name(dict.d, 1, c);
            if (name != nullptr && *name != '\0') words.insert(name);
        }
    }
    return {words.begin(), words.end()};
}

// The session: the translator, the answers waiting to be printed, the line editor's state.
class Shell {
  public:
    Shell(const ShellOptions &o, params::Bus &bus, TRA *tra) : o_(o), bus_(bus), tra_(tra) {}

    int run();

  private:
    void receive_loop();
    void take_line(const std::string &line);
    void dot_command(const std::string &line);
    void print_above(const std::string &text);
    void drain_answers();
    void await(uint64_t user);

    static unsigned char complete(EditLine *el, int key);
    static int read_char(EditLine *el, wchar_t *c);
    static const char *prompt(EditLine *);

    const ShellOptions &o_;
    params::Bus &bus_;
    TRA *tra_;
    std::string history_;
    bool interactive_ = false;
    bool done_ = false;
    int wake_[2] = {-1, -1};
    std::atomic<bool> stop_{false};
    std::mutex lock_;
    std::deque<std::string> answers_;
    std::map<uint64_t, std::string> pending_; // user value -> line
    uint64_t next_user_ = 1;
    std::vector<std::string> words_;
    EditLine *el_ = nullptr;
    History *history_list_ = nullptr;
    bool input_ended_ = false;
    bool reading_ = false; // inside the editor's read of a character: a line is being edited
};

void Shell::receive_loop() {
    while (!stop_) {
        char text[4096] = "";
        uint8_t ack = 0, status = 0, request = 0;
        uint64_t user = 0;
        const int rc = tra_receive_direct_cmd_e_ex(tra_, text, sizeof text, &ack, &status, &request,
                                                   &user, 100);
        if (rc == TRA_ENOCOMMAND) continue;
        std::string shown;
        {
            std::lock_guard guard(lock_);
            const auto it = pending_.find(user);
            const std::string line = it != pending_.end() ? it->second : std::string("?");
            if (it != pending_.end()) pending_.erase(it);
            shown = rc != 0 ? line + ": error " + std::to_string(rc) + " " + tra_translate_error(rc)
                            : answer_line(line, text, ack != 0, status != 0, request != 0);
            answers_.push_back(shown);
        }
        const char byte = 1;
        if (::write(wake_[1], &byte, 1) < 0) { /* the main loop polls again anyway */
        }
    }
}

// Prints a text above the line being edited, then redraws the prompt and the line.
void Shell::print_above(const std::string &text) {
    if (!interactive_) {
        out() << text << '\n';
        out().flush();
        return;
    }
    out() << "\r\033[K" << text << '\n';
    out().flush();
    if (reading_) el_set(el_, EL_REFRESH); // the prompt and the line being edited, drawn again
}

void Shell::drain_answers() {
    char buffer[64];
    while (::read(wake_[0], buffer, sizeof buffer) > 0) {
    }
    std::deque<std::string> ready;
    {
        std::lock_guard guard(lock_);
        ready.swap(answers_);
    }
    for (const std::string &a : ready)
        print_above(a);
}

void Shell::dot_command(const std::string &line) {
    std::string word = line, rest;
    if (const auto blank = line.find(' '); blank != std::string::npos) {
        word = line.substr(0, blank);
        rest = line.substr(line.find_first_not_of(' ', blank) == std::string::npos
                               ? line.size()
                               : line.find_first_not_of(' ', blank));
    }
    if (word == ".quit" || word == ".exit") {
        done_ = true;
    } else if (word == ".help") {
        print_above(std::string(HELP, std::strlen(HELP) - 1));
    } else if (word == ".info") {
        for (const params::DriveIdentity &d : bus_.drives()) {
            const char *name = vok_get_product_name(d.product);
            const char *card = d.ext != 0 ? vok_get_ext_product_name(d.ext) : nullptr;
            print_above(
                format("axis %-2d %-9s %s%s%s serial %u", d.axis, name ? name : "?",
                       version_text(d.version).c_str(), card ? " with " : "",
                       card ? (std::string(card) + " " + version_text(d.ext_version)).c_str() : "",
                       d.serial));
        }
    } else if (word == ".axes") {
        uint64_t mask = 0;
        std::string why;
        if (!rest.empty()) {
            if (!(rest.rfind("0x", 0) == 0 && parse_number(rest, mask)) &&
                !params::parse_axes(rest, &mask, &why)) {
                print_above(".axes: " + why);
                return;
            }
            tra_oxcom_set_preference_axis_mask(tra_, mask);
        }
        print_above(
            format(".axes: 0x%llX (the axes of the \".X\" form)",
                   static_cast<unsigned long long>(tra_oxcom_get_preference_axis_mask(tra_))));
    } else {
        print_above("unknown dot-command '" + word + "' (.help lists them)");
    }
}

void Shell::take_line(const std::string &line) {
    const auto first = line.find_first_not_of(" \t");
    if (first == std::string::npos) return;
    const bool quit = line.compare(first, 5, ".quit") == 0 || line.compare(first, 5, ".exit") == 0;
    if (interactive_ && !quit) {
        HistEvent event;
        history(history_list_, &event, H_ENTER, line.c_str());
        if (!history_.empty()) history(history_list_, &event, H_SAVE, history_.c_str());
    }
    if (line[first] == '.') {
        dot_command(line.substr(first));
        return;
    }
    uint64_t user = 0;
    {
        std::lock_guard guard(lock_);
        user = next_user_++;
        pending_[user] = line;
    }
    uint8_t sent = 0;
    const int rc = tra_send_direct_cmd_e(tra_, line.c_str(), user, &sent);
    if (rc != 0 || sent == 0) {
        {
            std::lock_guard guard(lock_);
            pending_.erase(user);
        }
        if (rc != 0)
            print_above(line + ": error " + std::to_string(rc) + " " + tra_translate_error(rc));
        return;
    }
    if (!interactive_) await(user);
}

// Without a terminal the lines are answered in turn: waits for this line's answer (or the
// timeout) before the next line is read.
void Shell::await(uint64_t user) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(o_.timeout);
    for (;;) {
        drain_answers();
        {
            std::lock_guard guard(lock_);
            if (pending_.count(user) == 0 && answers_.empty()) return;
        }
        if (std::chrono::steady_clock::now() > until) {
            print_above(format("no answer within %u ms", o_.timeout));
            return;
        }
        pollfd fd{wake_[0], POLLIN, 0};
        ::poll(&fd, 1, 50);
    }
}

const char *Shell::prompt(EditLine *) {
    return PROMPT;
}

// Reads the next character of the line being edited; answers that arrive meanwhile are printed
// above the line, which is then drawn again.
int Shell::read_char(EditLine *el, wchar_t *c) {
    Shell *self = nullptr;
    el_get(el, EL_CLIENTDATA, &self);
    std::mbstate_t state{};
    for (;;) {
        pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {self->wake_[0], POLLIN, 0}};
        if (::poll(fds, 2, 200) < 0 && errno != EINTR) return -1;
        if ((fds[1].revents & POLLIN) != 0) {
            self->reading_ = true;
            self->drain_answers();
            self->reading_ = false;
        }
        if ((fds[0].revents & (POLLIN | POLLHUP)) == 0) continue;
        char byte = 0;
        const ssize_t n = ::read(STDIN_FILENO, &byte, 1);
        if (n == 0) {
            self->input_ended_ = true;
            return 0;
        }
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        const std::size_t r = std::mbrtowc(c, &byte, 1, &state);
        if (r == static_cast<std::size_t>(-2)) continue; // more bytes of the character follow
        if (r == static_cast<std::size_t>(-1)) *c = static_cast<unsigned char>(byte);
        return 1;
    }
}

// Tab: completes the word before the cursor with a command or register name or alias; several
// candidates: their common beginning, and the list of them.
unsigned char Shell::complete(EditLine *el, int) {
    Shell *self = nullptr;
    el_get(el, EL_CLIENTDATA, &self);
    const LineInfo *info = el_line(el);
    const char *start = info->cursor;
    while (start > info->buffer && std::strchr(" \t.=,;()*!", start[-1]) == nullptr)
        --start;
    const std::string prefix = upper(std::string(start, info->cursor));
    std::vector<std::string> matches;
    for (const std::string &w : self->words_)
        if (upper(w).rfind(prefix, 0) == 0) matches.push_back(w);
    if (matches.empty()) return CC_ERROR;
    std::string common = matches.front();
    for (const std::string &m : matches) {
        std::size_t n = 0;
        while (n < common.size() && n < m.size() &&
               std::toupper(static_cast<unsigned char>(common[n])) ==
                   std::toupper(static_cast<unsigned char>(m[n])))
            ++n;
        common.resize(n);
    }
    if (common.size() > prefix.size()) {
        el_deletestr(el, static_cast<int>(prefix.size()));
        el_insertstr(el, common.c_str());
        return CC_REFRESH;
    }
    if (matches.size() == 1) return CC_REFRESH;
    std::string list;
    for (std::size_t i = 0; i < matches.size() && i < 60; ++i)
        list += (i == 0 ? "" : "  ") + matches[i];
    if (matches.size() > 60) list += format("  ... (%zu in all)", matches.size());
    out() << '\n' << list << '\n';
    out().flush();
    return CC_REDISPLAY;
}

int Shell::run() {
    if (::pipe(wake_) != 0) {
        err() << "ryn shell: " << std::strerror(errno) << '\n';
        return exit_failure;
    }
    for (int fd : wake_)
        ::fcntl(fd, F_SETFL, O_NONBLOCK);
    interactive_ = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
    words_ = completion_words(bus_);
    std::thread receiver([this] { receive_loop(); });
    if (interactive_) {
        history_ = history_path();
        HistEvent event;
        history_list_ = history_init();
        history(history_list_, &event, H_SETSIZE, 1000);
        history(history_list_, &event, H_SETUNIQUE, 1);
        if (!history_.empty()) history(history_list_, &event, H_LOAD, history_.c_str());
        el_ = el_init("ryn", stdin, stdout, stderr);
        el_set(el_, EL_CLIENTDATA, this);
        el_set(el_, EL_EDITOR, "emacs");
        el_set(el_, EL_SIGNAL, 1); // the terminal is put back before a signal ends the shell
        el_set(el_, EL_PROMPT, prompt);
        el_set(el_, EL_HIST, history, history_list_);
        el_set(el_, EL_GETCFN, read_char);
        // The wide forms keep the static names as they are (the narrow ones copy them and never
        // free the copies).
        el_wset(el_, EL_ADDFN, L"ryn-complete", L"Complete a name", complete);
        el_wset(el_, EL_BIND, L"^I", L"ryn-complete", nullptr);
        el_source(el_, nullptr);
        out() << "ryn shell on " << o_.bus << ": .help for help, .quit or Ctrl-D to end\n";
        out().flush();
        while (!done_) {
            int count = 0;
            const char *line = el_gets(el_, &count);
            if (line == nullptr || count <= 0) {
                input_ended_ = true; // Ctrl-D, or the end of the input
                break;
            }
            std::string text(line, static_cast<std::size_t>(count));
            while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
                text.pop_back();
            take_line(text);
        }
    } else {
        std::string pending_input;
        while (!done_) {
            pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {wake_[0], POLLIN, 0}};
            if (::poll(fds, 2, 200) < 0 && errno != EINTR) break;
            if ((fds[1].revents & POLLIN) != 0) drain_answers();
            if ((fds[0].revents & (POLLIN | POLLHUP)) == 0) continue;
            char buffer[4096];
            const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
            if (n <= 0) break;
            pending_input.append(buffer, static_cast<std::size_t>(n));
            for (auto eol = pending_input.find('\n'); eol != std::string::npos && !done_;
                 eol = pending_input.find('\n')) {
                take_line(pending_input.substr(0, eol));
                pending_input.erase(0, eol + 1);
            }
        }
    }
    // Answers still on their way get their time before the session ends.
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(o_.timeout);
    for (;;) {
        {
            std::lock_guard guard(lock_);
            if (pending_.empty() && answers_.empty()) break;
        }
        if (std::chrono::steady_clock::now() > until) break;
        pollfd fd{wake_[0], POLLIN, 0};
        ::poll(&fd, 1, 50);
        drain_answers();
    }
    stop_ = true;
    receiver.join();
    drain_answers();
    if (interactive_) {
        el_end(el_);
        el_ = nullptr;
        history_end(history_list_);
        history_list_ = nullptr;
        if (input_ended_) out() << '\n';
    }
    ::close(wake_[0]);
    ::close(wake_[1]);
    return exit_ok;
}

int shell(const ShellOptions &o) {
    params::Bus bus;
    if (int rc = open_bus("shell", o.bus, bus); rc >= 0) return rc;
    Translator direct;
    if (!start_direct("shell", bus, &direct)) return exit_failure;
    Shell session(o, bus, direct.tra);
    return session.run();
}

} // namespace

void add_shell(CLI::App &app, int &exit_code) {
    auto o = std::make_shared<ShellOptions>();
    CLI::App *sub = app.add_subcommand("shell", "An interactive session with the drives of a bus");
    add_bus_option(*sub, o->bus);
    sub->add_option("--timeout", o->timeout,
                    "Milliseconds to wait at the end for answers still on their way")
        ->capture_default_str();
    sub->footer("History is kept in $XDG_DATA_HOME/ryn/history (~/.local/share/ryn/history).\n"
                "Without a terminal, lines are read from standard input and answered in turn.\n"
                "Examples:\n  ryn shell\n  ryn shell --bus tcp://127.0.0.1:7500\n"
                "  printf 'K1.0=5\\nK1.0\\n' | ryn shell");
    sub->callback([&exit_code, o] { exit_code = shell(*o); });
}

} // namespace ryn::cli
