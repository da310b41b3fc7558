// Translation speed on a mixed corpus of ORAX command lines: text to record, record to text, and
// beside them a bare scan of the same lines (each number read with the standard conversions), so
// that the translator's cost shows as a ratio; also table building and family loading.
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "ryn/tra.h"
#include "ryn/vok.h"
#include "vokmodel.hpp"

namespace {

using Clock = std::chrono::steady_clock;

// The corpus: every line of bench/data/corpus.txt that is not a comment.
const std::vector<std::string> &corpus() {
    static const std::vector<std::string> lines = [] {
        std::vector<std::string> out;
        std::ifstream in(RYN_BENCH_DATA "/corpus.txt");
        std::string line;
        while (std::getline(in, line))
            if (!line.empty() && line[0] != '#') out.push_back(line);
        return out;
    }();
    return lines;
}

struct Record {
    alignas(8) unsigned char bytes[TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)];
    uint64_t mask;
};

// An offline direct translator for the default ORX-D32; its tables are built by the first
// translation, outside the timed loops.
TRA *translator() {
    TRA *tra = nullptr;
    if (tra_create_direct_traductor_o(&tra, 32, vok_get_default_version(32), 0, 0, 0) != 0)
        return nullptr;
    Record r{};
    uint32_t count = 0;
    tra_oxcom_translate_cmd_from_ascii_ex(tra, reinterpret_cast<TRA_RECORD *>(r.bytes),
                                          TRA_RECORD_MAX_SLOTS, &count, &r.mask, "K1.0=1");
    return tra;
}

// What any reader of these lines must do at least: walk each line and read every number in it
// with strtoll / strtod. The sum keeps the work from being optimised away.
double bare_scan(const std::vector<std::string> &lines) {
    double sum = 0;
    for (const std::string &line : lines) {
        const char *p = line.c_str();
        while (*p != '\0') {
            const bool digit = *p >= '0' && *p <= '9';
            const bool minus = *p == '-' && p[1] >= '0' && p[1] <= '9';
            if (!digit && !minus) {
                ++p;
                continue;
            }
            char *end_int = nullptr;
            char *end_float = nullptr;
            const long long i = std::strtoll(p, &end_int, 0);
            const double d = std::strtod(p, &end_float);
            if (end_float > end_int) {
                sum += d;
                p = end_float;
            } else {
                sum += static_cast<double>(i);
                p = end_int;
            }
        }
    }
    return sum;
}

// Nanoseconds of one bare scan of one line, measured over at least 50 ms in this run.
double bare_scan_ns_per_line() {
    static const double ns = [] {
        const auto &lines = corpus();
        int64_t passes = 0;
        const auto start = Clock::now();
        Clock::duration spent{};
        do {
            benchmark::DoNotOptimize(bare_scan(lines));
            ++passes;
            spent = Clock::now() - start;
        } while (spent < std::chrono::milliseconds(50));
        return double(std::chrono::duration_cast<std::chrono::nanoseconds>(spent).count()) /
               double(passes * int64_t(lines.size()));
    }();
    return ns;
}

// Reports lines per second and the ratio of the time per line to the bare scan's.
void report(benchmark::State &state, Clock::duration spent, int64_t lines) {
    state.SetItemsProcessed(lines);
    const double ns =
        double(std::chrono::duration_cast<std::chrono::nanoseconds>(spent).count()) / double(lines);
    state.counters["ns_per_line"] = ns;
    state.counters["bare_scan_ns"] = bare_scan_ns_per_line();
    state.counters["x_bare_scan"] = ns / bare_scan_ns_per_line();
}

void BM_BareScan(benchmark::State &state) {
    const auto &lines = corpus();
    for (auto _ : state)
        benchmark::DoNotOptimize(bare_scan(lines));
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(lines.size()));
}
BENCHMARK(BM_BareScan);

void BM_TextToRecord(benchmark::State &state) {
    const auto &lines = corpus();
    TRA *tra = translator();
    if (tra == nullptr || lines.empty()) {
        state.SkipWithError("no translator or no corpus");
        return;
    }
    bare_scan_ns_per_line();
    Record r{};
    uint32_t count = 0;
    int64_t failed = 0;
    const auto start = Clock::now();
    for (auto _ : state)
        for (const std::string &line : lines) {
            int rc = tra_oxcom_translate_cmd_from_ascii_ex(
                tra, reinterpret_cast<TRA_RECORD *>(r.bytes), TRA_RECORD_MAX_SLOTS, &count, &r.mask,
                line.c_str());
            failed += rc != 0;
            benchmark::DoNotOptimize(r.bytes);
        }
    report(state, Clock::now() - start, int64_t(state.iterations()) * int64_t(lines.size()));
    if (failed != 0) state.SkipWithError("a corpus line failed to translate");
    tra_destroy(&tra);
}
BENCHMARK(BM_TextToRecord);

void BM_RecordToText(benchmark::State &state) {
    const auto &lines = corpus();
    TRA *tra = translator();
    if (tra == nullptr || lines.empty()) {
        state.SkipWithError("no translator or no corpus");
        return;
    }
    std::vector<Record> records(lines.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        uint32_t count = 0;
        if (tra_oxcom_translate_cmd_from_ascii_ex(
                tra, reinterpret_cast<TRA_RECORD *>(records[i].bytes), TRA_RECORD_MAX_SLOTS, &count,
                &records[i].mask, lines[i].c_str()) != 0) {
            state.SkipWithError("a corpus line failed to translate");
            tra_destroy(&tra);
            return;
        }
    }
    bare_scan_ns_per_line();
    char text[1024];
    int64_t failed = 0;
    const auto start = Clock::now();
    for (auto _ : state)
        for (const Record &r : records) {
            failed += tra_oxcom_translate_cmd_to_ascii_ex(
                          tra, reinterpret_cast<const TRA_RECORD *>(r.bytes), r.mask, text,
                          sizeof text) != 0;
            benchmark::DoNotOptimize(text);
        }
    report(state, Clock::now() - start, int64_t(state.iterations()) * int64_t(records.size()));
    if (failed != 0) state.SkipWithError("a record failed to translate back");
    tra_destroy(&tra);
}
BENCHMARK(BM_RecordToText);

// Rebuilding the lookup tables of a translator (setting its flags marks them stale), with the one
// translation that triggers the rebuild.
void BM_TableBuilding(benchmark::State &state) {
    TRA *tra = translator();
    if (tra == nullptr) {
        state.SkipWithError("no translator");
        return;
    }
    Record r{};
    uint32_t count = 0;
    for (auto _ : state) {
        tra_set_flags(tra, 0);
        tra_oxcom_translate_cmd_from_ascii_ex(tra, reinterpret_cast<TRA_RECORD *>(r.bytes),
                                              TRA_RECORD_MAX_SLOTS, &count, &r.mask, "K1.0=1");
        benchmark::DoNotOptimize(r.bytes);
    }
    tra_destroy(&tra);
}
BENCHMARK(BM_TableBuilding)->Unit(benchmark::kMillisecond);

// Loading the ORAX family description from its JSON text, as an application that loads a family
// file does, then creating a translator on it (first opening of its dictionaries).
void BM_FamilyLoading(benchmark::State &state) {
    const std::string text = ryn::vok::embedded_family_text();
    for (auto _ : state) {
        if (vok_load_family_text(text.c_str()) != 0) {
            state.SkipWithError(vok_get_family_error());
            break;
        }
        TRA *tra = nullptr;
        if (tra_create_direct_traductor_o(&tra, 32, vok_get_default_version(32), 0, 0, 0) != 0) {
            state.SkipWithError("no translator");
            break;
        }
        tra_destroy(&tra);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
    vok_load_default_family();
}
BENCHMARK(BM_FamilyLoading)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
