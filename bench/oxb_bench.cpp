// Bus library speed on sim: buses: request-and-reply exchanges on one thread and records with 8
// in flight, each beside the same record executed on a simulated drive directly; an exchange with
// latency_us=100 beside a bare timed wait of 100 µs.
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <thread>

#include "ryn/oxb.h"
#include "sim/drive.hpp"
#include "wire/wire.hpp"

namespace {

namespace wire = ryn::wire;

struct Record {
    alignas(8) uint8_t bytes[wire::RECORD_MAX_SIZE] = {};
};

// Argument 0: a read of K1 (kind 18); 1: the assignment X1=5 (command 123).
Record request(int64_t which) {
    Record r;
    if (which == 0)
        oxb_build_record(r.bytes, 1, wire::REC_READ, 0, "i", 2u, 1u);
    else
        oxb_build_record(r.bytes, 2, wire::REC_COMMAND, wire::CMD_SET, "ii", 1u,
                         wire::encode_destination(1, 0), 0u, 5u);
    return r;
}

const char *label(int64_t which) {
    return which == 0 ? "read K1" : "assign X1";
}

// Baseline: the record executed on an ORX-D32 3.12B directly, with no bus.
void BM_DirectExecute(benchmark::State &state) {
    std::unique_ptr<ryn::sim::Drive> drive;
    if (ryn::sim::Drive::create(ryn::sim::Identity{}, 0, &drive) != 0) {
        state.SkipWithError("no drive");
        return;
    }
    const Record q = request(state.range(0));
    Record a;
    uint64_t now = 0;
    for (auto _ : state) {
        drive->execute(wire::ConstRecordView{q.bytes}, wire::RecordView{a.bytes}, ++now);
        benchmark::DoNotOptimize(a.bytes[0]);
    }
    state.SetItemsProcessed(state.iterations());
    state.SetLabel(label(state.range(0)));
}
BENCHMARK(BM_DirectExecute)->Arg(0)->Arg(1);

struct Port {
    explicit Port(const char *address) { ok = oxb_open(address, &port) == 0; }
    ~Port() { oxb_close(&port); }
    OXB_PORT *port = nullptr;
    bool ok = false;
};

// One send and the receive of its answer, on one thread.
void BM_Exchange(benchmark::State &state) {
    Port p("sim:axes=0");
    const Record q = request(state.range(0));
    Record a;
    int ticket = 0;
    for (auto _ : state) {
        if (oxb_send(p.port, &ticket, 1, q.bytes, 2000) != 0 ||
            oxb_receive(p.port, nullptr, 0, a.bytes, 65, 0, 5000) != 0) {
            state.SkipWithError("exchange failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
    state.SetLabel(label(state.range(0)));
}
BENCHMARK(BM_Exchange)->Arg(0)->Arg(1);

// Eight records sent, then their eight answers received: items are records.
void BM_InFlight8(benchmark::State &state) {
    Port p("sim:axes=0");
    const Record q = request(state.range(0));
    Record a;
    int tickets[8];
    for (auto _ : state) {
        for (int &t : tickets)
            if (oxb_send(p.port, &t, 1, q.bytes, 2000) != 0) state.SkipWithError("send failed");
        for (int i = 0; i < 8; ++i)
            if (oxb_receive(p.port, nullptr, 0, a.bytes, 65, 0, 5000) != 0)
                state.SkipWithError("receive failed");
    }
    state.SetItemsProcessed(state.iterations() * 8);
    state.SetLabel(label(state.range(0)));
}
BENCHMARK(BM_InFlight8)->Arg(0)->Arg(1);

// Baseline of the latency run: a bare timed wait of 100 µs on this machine.
void BM_SleepUntil100us(benchmark::State &state) {
    for (auto _ : state)
        std::this_thread::sleep_until(std::chrono::steady_clock::now() +
                                      std::chrono::microseconds(100));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SleepUntil100us)->Unit(benchmark::kMicrosecond)->UseRealTime();

// An exchange whose answer is due 100 µs after the send; the receiver waits for it.
void BM_ExchangeLatency100us(benchmark::State &state) {
    Port p("sim:axes=0;latency_us=100");
    const Record q = request(0);
    Record a;
    for (auto _ : state) {
        if (oxb_send(p.port, nullptr, 1, q.bytes, 2000) != 0 ||
            oxb_receive(p.port, nullptr, 0, a.bytes, 65, 0, 5000) != 0) {
            state.SkipWithError("exchange failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ExchangeLatency100us)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace
BENCHMARK_MAIN();
