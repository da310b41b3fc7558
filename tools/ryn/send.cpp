// The send subcommand: command lines sent to the drives of a bus one at a time, each answer
// awaited and written as text (or as JSON).
#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "common.hpp"
#include "online.hpp"
#include "output.hpp"
#include "record_text.hpp"
#include "ryn/record.h"

namespace ryn::cli {

namespace {

struct SendOptions {
    std::vector<std::string> lines;
    std::string file;
    std::string bus = "sim:";
    unsigned timeout = 2000;
    bool json = false;
};

// Sends one line and awaits its answer; writes the result; true when the drives acknowledged
// (or the line holds nothing to send).
bool send_line(TRA *tra, const std::string &line, const SendOptions &o,
               nlohmann::ordered_json *json) {
    alignas(8) unsigned char record[TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)];
    uint32_t count = 0;
    uint64_t mask = 0;
    int rc =
        tra_oxcom_translate_cmd_from_ascii_ex(tra, reinterpret_cast<TRA_RECORD *>(record),
                                              TRA_RECORD_MAX_SLOTS, &count, &mask, line.c_str());
    uint8_t sent = 0;
    if (rc == 0 && count != 0xFFFFFFFFu) rc = tra_send_direct_cmd_e(tra, line.c_str(), 0, &sent);
    if (rc == 0 && sent == 0) return true; // a comment or a blank line
    char answer[4096] = "";
    uint8_t ack = 0, status = 0, request = 0;
    bool answered = false;
    if (rc == 0) {
        // The receive's flag output is the answer header's status bit (some drive met an error).
        rc = tra_receive_direct_cmd_e_ex(tra, answer, sizeof answer, &ack, &status, &request,
                                         nullptr, o.timeout);
        answered = rc == 0;
    }
    if (json != nullptr) {
        nlohmann::ordered_json j{{"line", line}};
        j["record"] = rc == 0 || answered
                          ? nlohmann::ordered_json(raw_record_text(
                                record, static_cast<int>(tra_record_count(record)), mask))
                          : nlohmann::ordered_json(nullptr);
        if (answered) {
            j["answer"] = answer;
            j["acknowledged"] = ack != 0;
            j["status"] = status != 0;
            j["request"] = request != 0;
        } else {
            j["error"] = {{"code", rc},
                          {"message", rc == TRA_ENOCOMMAND
                                          ? format("no answer within %u ms", o.timeout)
                                          : std::string(tra_translate_error(rc))}};
        }
        json->push_back(j);
        return answered && ack != 0;
    }
    if (!answered) {
        if (rc == TRA_ENOCOMMAND)
            out() << line << ": no answer within " << o.timeout << " ms\n";
        else
            out() << line << ": error " << rc << " " << tra_translate_error(rc) << '\n';
        return false;
    }
    out() << answer_line(line, answer, ack != 0, status != 0, request != 0) << '\n';
    return ack != 0;
}

int send(const SendOptions &o) {
    std::vector<std::string> lines = o.lines;
    const bool from_input = !o.file.empty() || (lines.size() == 1 && lines[0] == "-");
    if (!o.file.empty() && !o.lines.empty()) {
        err() << "ryn send: give lines or -f FILE, not both (see ryn send --help)\n";
        return exit_usage;
    }
    if (lines.empty() && o.file.empty()) {
        err() << "ryn send: no line to send (give LINE..., -f FILE or - for standard input)\n";
        return exit_usage;
    }
    if (from_input) {
        Input input;
        std::string why;
        if (!input.open(o.file.empty() ? "-" : o.file, &why)) {
            err() << "ryn send: " << why << '\n';
            return exit_usage;
        }
        lines.clear();
        std::string line;
        while (std::getline(*input.get(), line)) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            lines.push_back(line);
        }
    }
    params::Bus bus;
    if (int rc = open_bus("send", o.bus, bus); rc >= 0) return rc;
    Translator direct;
    if (!start_direct("send", bus, &direct)) return exit_failure;
    nlohmann::ordered_json json = nlohmann::ordered_json::array();
    bool all = true;
    for (const std::string &line : lines)
        all = send_line(direct.tra, line, o, o.json ? &json : nullptr) && all;
    if (o.json) write_json(json);
    return all ? exit_ok : exit_line_failed;
}

} // namespace

void add_send(CLI::App &app, int &exit_code) {
    auto o = std::make_shared<SendOptions>();
    CLI::App *sub =
        app.add_subcommand("send", "Send command lines to the drives and print the answers");
    sub->add_option("line", o->lines, "Command lines; - reads them from standard input");
    sub->add_option("-f,--file", o->file, "Read the command lines from a file");
    add_bus_option(*sub, o->bus);
    sub->add_option("--timeout", o->timeout, "Milliseconds to wait for each answer")
        ->capture_default_str();
    sub->add_flag("--json", o->json, "One JSON object per line: line, record, answer, acknowledge");
    sub->footer(
        "Exit status 1 when a drive refused a line, a line did not translate, or an answer\n"
        "did not come in time.\n"
        "Examples:\n  ryn send K1.0=1234 K1.0\n  ryn send -f commands.txt --bus "
        "tcp://127.0.0.1:7500\n  echo 'PWR.0=1' | ryn send -");
    sub->callback([&exit_code, o] { exit_code = send(*o); });
}

} // namespace ryn::cli
