// Speed of parameter upload and download on the default sim: bus: every user register of every
// drive uploaded (elements per second) and that file downloaded again (lines per second), each
// beside the bare sim: exchange rate of the records they are made of, measured in the same run.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_session.hpp"

#include "ryn/oxb.h"
#include "ryn/tra.h"

namespace {

// The user register families in every value class: X, K, L, E, W, C.
const uint8_t USER_TYPES[] = {1,  2,  8,  9,  12, 13, 33, 34, 40,  41,  44,  45,
                              65, 66, 72, 73, 76, 77, 97, 98, 104, 105, 108, 109};
constexpr int TYPE_COUNT = sizeof USER_TYPES;
constexpr uint64_t AXES = 0xFull | uint64_t(1) << 63;

struct Record {
    alignas(8) unsigned char bytes[TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)];
    TRA_RECORD *get() { return reinterpret_cast<TRA_RECORD *>(bytes); }
};

struct Session : RegisterSession {
    // Exchanges per second of one translated line, bare on the port, over `seconds`.
    double bare_rate(const char *line, double seconds) {
        Record r, answer;
        uint32_t count = 0;
        uint64_t mask = 0;
        if (tra_oxcom_translate_cmd_from_ascii_ex(tra, r.get(), TRA_RECORD_MAX_SLOTS, &count, &mask,
                                                  line) != 0)
            return 0;
        const auto start = std::chrono::steady_clock::now();
        long n = 0;
        double elapsed = 0;
        do {
            for (int k = 0; k < 256; ++k, ++n) {
                void *ticket = nullptr;
                if (oxb_send(port, this, mask, r.bytes, 2000) != 0 ||
                    oxb_receive(port, &ticket, 0, answer.bytes, TRA_RECORD_MAX_SLOTS, 0, -1) != 0)
                    return 0;
            }
            elapsed =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        } while (elapsed < seconds);
        return static_cast<double>(n) / elapsed;
    }
};

struct Sink {
    std::vector<std::string> lines;
    long elements = 0;
    static int write(TRA *, const char *line, void *user, int32_t) {
        auto &s = *static_cast<Sink *>(user);
        s.lines.emplace_back(line);
        if (line[0] != '#' && line[0] != '\0') ++s.elements;
        return 0;
    }
};

int upload_all(Session &s, Sink &sink) {
    return tra_oxcom_upload_register_stream_e(s.tra, AXES, TYPE_COUNT, USER_TYPES, 0, -1, -1,
                                              Sink::write, &sink);
}

void BM_UploadUserRegisters(benchmark::State &state) {
    Session s;
    if (!s.ok) {
        state.SkipWithError("session");
        return;
    }
    const double bare = s.bare_rate("K1.0,K2.0", 0.3); // a pair read, as the upload makes them
    long elements = 0;
    for (auto _ : state) {
        Sink sink;
        if (upload_all(s, sink) != 0) {
            state.SkipWithError("upload");
            break;
        }
        elements += sink.elements;
    }
    state.SetItemsProcessed(elements);
    state.counters["bare_pair_reads_per_s"] = bare;
    state.counters["bare_elements_per_s"] = 2 * bare;
    state.counters["elements_per_upload"] =
        static_cast<double>(elements) /
        static_cast<double>(std::max<int64_t>(state.iterations(), 1));
}
BENCHMARK(BM_UploadUserRegisters)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DownloadUserRegisters(benchmark::State &state) {
    Session s;
    Sink sink;
    if (!s.ok || upload_all(s, sink) != 0) {
        state.SkipWithError("session or upload");
        return;
    }
    // The backup as a restore reads it: read-only elements left out.
    MemoryLines file;
    for (const std::string &l : sink.lines) {
        Record r;
        uint32_t count = 0;
        uint64_t mask = 0;
        if (tra_oxcom_translate_cmd_from_ascii_ex(s.tra, r.get(), TRA_RECORD_MAX_SLOTS, &count,
                                                  &mask, l.c_str()) != TRA_EREADONLY)
            file.lines.push_back(l);
    }
    const double bare = s.bare_rate("K1.0=1000", 0.3); // one assignment, as the download sends
    for (auto _ : state) {
        file.next = 0;
        if (tra_oxcom_download_register_stream_e(s.tra, AXES, TYPE_COUNT, USER_TYPES,
                                                 MemoryLines::read, &file) != 0) {
            state.SkipWithError("download");
            break;
        }
    }
    TRA_STREAM_REPORT r{};
    r.size = sizeof r;
    tra_get_stream_report(s.tra, &r);
    if (r.refused != 0) state.SkipWithError("refused lines");
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(file.lines.size()));
    state.counters["bare_assignments_per_s"] = bare;
    state.counters["lines_per_file"] = static_cast<double>(file.lines.size());
    state.counters["commands_per_file"] = r.sent;
}
BENCHMARK(BM_DownloadUserRegisters)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
