// Speed of the direct translator on a sim: bus: one command sent and its answer read back as text,
// beside its parts measured in the same run (text to record, a bare sim: exchange of the record,
// record to text), all in the thread's CPU time; and a command stream of 10,000 lines.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_session.hpp"

#include "ryn/oxb.h"
#include "ryn/tra.h"

namespace {

// Lines of a commissioning session, each for one drive: assignments, reads, commands.
const char *const LINES[] = {
    "K12.0=1", "X5.1=300",  "K1.2",         "KF1.0=12.5F", "PWR.1=1", "K1.0,K2.0,K12.0",
    "X7.3*=2", "KL1.1=77L", "DBG.2=1,0x10", "K20.3",       "CLX.0",   "V1.1",
};
constexpr int LINE_COUNT = sizeof LINES / sizeof LINES[0];

struct Record {
    alignas(8) unsigned char bytes[TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)];
    TRA_RECORD *get() { return reinterpret_cast<TRA_RECORD *>(bytes); }
};

// A port on the default sim: bus and a direct translator whose tables are built.
struct Session {
    OXB_PORT *port = nullptr;
    TRA *tra = nullptr;
    std::vector<Record> records, answers;
    std::vector<uint64_t> masks;
    bool ok = true;

    Session() {
        ok = oxb_open("sim:", &port) == 0 && tra_create_direct_traductor_e(&tra, port, 0) == 0;
        records.resize(LINE_COUNT);
        answers.resize(LINE_COUNT);
        masks.resize(LINE_COUNT);
        for (int i = 0; ok && i < LINE_COUNT; ++i) {
            uint32_t count = 0;
            ok = tra_oxcom_translate_cmd_from_ascii_ex(tra, records[i].get(), TRA_RECORD_MAX_SLOTS,
                                                       &count, &masks[i], LINES[i]) == 0 &&
                 count != 0xFFFFFFFFu && exchange(i, answers[i]) == 0 &&
                 (answers[i].bytes[1] & 0x80) != 0;
            if (!ok) std::fprintf(stderr, "line '%s' does not go through\n", LINES[i]);
        }
    }
    ~Session() {
        tra_destroy(&tra);
        oxb_close(&port);
    }

    // A bare exchange of a translated record on the port.
    int exchange(int i, Record &answer) {
        void *ticket = nullptr;
        int rc = oxb_send(port, this, masks[i], records[i].bytes, 2000);
        if (rc == 0) rc = oxb_receive(port, &ticket, 0, answer.bytes, TRA_RECORD_MAX_SLOTS, 0, -1);
        return rc;
    }

    // Record to text as the receiver writes an answer: reads as request and answer.
    int to_text(int i, char *text, int size) {
        const unsigned kind = records[i].bytes[3];
        if (kind == 18 || kind == 19)
            return tra_oxcom_translate_rqs_to_ascii_ex(tra, records[i].get(), answers[i].get(),
                                                       masks[i], text, size);
        return tra_oxcom_translate_cmd_to_ascii_ex(tra, answers[i].get(), masks[i], text, size);
    }

    int roundtrip(int i, char *text, int size) {
        uint8_t sent = 0;
        int rc = tra_send_direct_cmd_e(tra, LINES[i], static_cast<uint64_t>(i), &sent);
        if (rc != 0 || sent == 0) return rc != 0 ? rc : -1;
        uint8_t ack = 0;
        rc = tra_receive_direct_cmd_e_ex(tra, text, static_cast<uint32_t>(size), &ack, nullptr,
                                         nullptr, nullptr, 0xFFFFFFFFu);
        return rc == 0 && ack == 0 ? -2 : rc;
    }
};

// CPU time of the calling thread in nanoseconds: the machine is shared, so the parts and the
// round trip are compared in the time this thread ran, not in wall time.
double thread_cpu_ns() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) * 1e9 + static_cast<double>(ts.tv_nsec);
}

// CPU nanoseconds per line of work(i), over n lines.
template <class Work>
double ns_per_line(int n, Work &&work) {
    const double start = thread_cpu_ns();
    for (int k = 0; k < n; ++k)
        benchmark::DoNotOptimize(work(k % LINE_COUNT));
    return (thread_cpu_ns() - start) / n;
}

void BM_DirectRoundTrip(benchmark::State &state) {
    Session s;
    if (!s.ok) {
        state.SkipWithError("session");
        return;
    }
    char text[1024];
    // The parts of a round trip, measured beside it in this run.
    constexpr int PARTS = 30000;
    Record scratch;
    const double text_to_record = ns_per_line(PARTS, [&](int i) {
        uint32_t count = 0;
        uint64_t mask = 0;
        return tra_oxcom_translate_cmd_from_ascii_ex(s.tra, scratch.get(), TRA_RECORD_MAX_SLOTS,
                                                     &count, &mask, LINES[i]);
    });
    const double bare_exchange = ns_per_line(PARTS, [&](int i) { return s.exchange(i, scratch); });
    const double record_to_text =
        ns_per_line(PARTS, [&](int i) { return s.to_text(i, text, sizeof text); });

    int i = 0;
    const double start = thread_cpu_ns();
    for (auto _ : state) {
        if (s.roundtrip(i, text, sizeof text) != 0) {
            state.SkipWithError(LINES[i]);
            break;
        }
        benchmark::DoNotOptimize(text);
        i = i + 1 == LINE_COUNT ? 0 : i + 1;
    }
    const double roundtrip = (thread_cpu_ns() - start) / static_cast<double>(state.iterations());
    state.SetItemsProcessed(state.iterations());
    const double parts = text_to_record + bare_exchange + record_to_text;
    state.counters["text_to_record_ns"] = text_to_record;
    state.counters["bare_exchange_ns"] = bare_exchange;
    state.counters["record_to_text_ns"] = record_to_text;
    state.counters["parts_ns"] = parts;
    state.counters["roundtrip_ns"] = roundtrip;
    state.counters["x_parts"] = roundtrip / parts;
}
BENCHMARK(BM_DirectRoundTrip);

// A stream of 10,000 command lines: assignments over four drives, a comment now and then.
// The 10,000 lines of the benchmark's stream: a version line, X assignments, a comment now and
// then.
MemoryLines stream_lines() {
    MemoryLines source;
    source.lines.push_back("# User X,XL,XF,XD register version: 1.00A");
    char line[64];
    for (int n = 1; source.lines.size() < 10000; ++n) {
        if (n % 100 == 0)
            std::snprintf(line, sizeof line, "# block %d", n / 100);
        else
            std::snprintf(line, sizeof line, "X%d.%d=%d", n % 1000, n % 4, n);
        source.lines.emplace_back(line);
    }
    return source;
}

void BM_DirectStream(benchmark::State &state) {
    Session s;
    if (!s.ok) {
        state.SkipWithError("session");
        return;
    }
    MemoryLines stream = stream_lines();
    for (auto _ : state) {
        stream.next = 0;
        if (tra_oxcom_send_direct_stream_e(s.tra, 0xF, MemoryLines::read, &stream) != 0) {
            state.SkipWithError("stream");
            break;
        }
    }
    TRA_STREAM_REPORT r{};
    r.size = sizeof r;
    tra_get_stream_report(s.tra, &r);
    if (r.acknowledged + 100 < 10000) state.SkipWithError("refused lines");
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(stream.lines.size()));
}
BENCHMARK(BM_DirectStream)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
