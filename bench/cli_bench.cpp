// The ryn tool end to end: `ryn backup` of every user register of the default sim: bus into a
// file, and `ryn restore` of that file, each a whole process (start, bus, upload or download,
// file, exit). Beside them, measured in the same run: the start of a process that does nothing
// with a bus (`ryn version`), and the bare upload and download of the same registers through the
// C API in this process, without a process, a file or the read-only comments of the tool.
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_session.hpp"

#include "ryn/oxb.h"
#include "ryn/tra.h"

extern char **environ;

namespace {

// The user register families in every value class: X, K, L, E, W, C (what ryn backup takes).
const uint8_t USER_TYPES[] = {1,  2,  8,  9,  12, 13, 33, 34, 40,  41,  44,  45,
                              65, 66, 72, 73, 76, 77, 97, 98, 104, 105, 108, 109};
constexpr int TYPE_COUNT = sizeof USER_TYPES;

std::string backup_file() {
    return std::string(std::getenv("TMPDIR") != nullptr ? std::getenv("TMPDIR") : "/tmp") +
           "/ryn_cli_bench_" + std::to_string(getpid()) + ".par";
}

// Runs the tool with its output to /dev/null; false when it does not exit with 0.
bool run_tool(std::vector<std::string> args) {
    args.insert(args.begin(), RYN_TOOL);
    std::vector<char *> argv;
    for (std::string &a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int rc = posix_spawn(&pid, RYN_TOOL, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    return rc == 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

void BM_ProcessStart(benchmark::State &state) {
    for (auto _ : state)
        if (!run_tool({"version"})) state.SkipWithError("ryn version failed");
}
BENCHMARK(BM_ProcessStart)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ToolBackup(benchmark::State &state) {
    const std::string file = backup_file();
    for (auto _ : state)
        if (!run_tool({"backup", "-o", file})) state.SkipWithError("ryn backup failed");
    std::remove(file.c_str());
}
BENCHMARK(BM_ToolBackup)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ToolRestore(benchmark::State &state) {
    const std::string file = backup_file();
    if (!run_tool({"backup", "-o", file})) state.SkipWithError("ryn backup failed");
    for (auto _ : state)
        if (!run_tool({"restore", file})) state.SkipWithError("ryn restore failed");
    std::remove(file.c_str());
}
BENCHMARK(BM_ToolRestore)->Unit(benchmark::kMillisecond)->UseRealTime();

// The bare C API: the same upload into memory, and the download of its writable lines.
struct Session : RegisterSession {
    int upload(std::vector<std::string> *lines) {
        lines->clear();
        return tra_oxcom_upload_register_stream_e(
            tra, ~uint64_t(0), TYPE_COUNT, USER_TYPES, 0, -1, -1,
            [](TRA *, const char *line, void *user, int32_t) {
                static_cast<std::vector<std::string> *>(user)->emplace_back(line);
                return 0;
            },
            lines);
    }
};

void BM_ApiUpload(benchmark::State &state) {
    Session s;
    std::vector<std::string> lines;
    for (auto _ : state)
        if (!s.ok || s.upload(&lines) != 0) state.SkipWithError("upload failed");
    state.counters["lines"] = static_cast<double>(lines.size());
}
BENCHMARK(BM_ApiUpload)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ApiDownload(benchmark::State &state) {
    Session s;
    std::vector<std::string> lines, writable;
    if (!s.ok || s.upload(&lines) != 0) state.SkipWithError("upload failed");
    // The read-only lines left out, as a restore of the tool's backup sends them.
    RegisterSession check;
    for (const std::string &l : lines) {
        alignas(8) unsigned char record[TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)];
        uint32_t count = 0;
        if (tra_oxcom_translate_cmd_from_ascii_ex(check.tra, reinterpret_cast<TRA_RECORD *>(record),
                                                  TRA_RECORD_MAX_SLOTS, &count, nullptr,
                                                  l.c_str()) != TRA_EREADONLY)
            writable.push_back(l);
    }
    for (auto _ : state) {
        MemoryLines source{writable};
        if (tra_oxcom_download_register_stream_e(s.tra, ~uint64_t(0), TYPE_COUNT, USER_TYPES,
                                                 MemoryLines::read, &source) != 0)
            state.SkipWithError("download failed");
    }
    state.counters["lines"] = static_cast<double>(writable.size());
}
BENCHMARK(BM_ApiDownload)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
