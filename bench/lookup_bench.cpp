// Cost of building the lookup tables of an offline translator (64 axes, ORX-D32 3.12B).
#include <benchmark/benchmark.h>

#include "tralkt.hpp"

namespace {

void BM_BuildTablesOfflineD32(benchmark::State &state) {
    TRA *tra = nullptr;
    if (tra_create_direct_traductor_o(&tra, 32, 0x03128100, 0, 0, 0) != 0) {
        state.SkipWithError("cannot create the translator");
        return;
    }
    for (auto _ : state) {
        int rc = ryn::tra::_tra_create_lkt(tra);
        benchmark::DoNotOptimize(rc);
    }
    state.counters["registers"] = static_cast<double>(tra->registers.size());
    state.counters["commands"] = static_cast<double>(tra->commands.size());
    tra_destroy(&tra);
}
BENCHMARK(BM_BuildTablesOfflineD32)->Unit(benchmark::kMillisecond);

void BM_BuildTablesOfflineD32WithController(benchmark::State &state) {
    TRA *tra = nullptr;
    if (tra_create_direct_traductor_o2(&tra, 32, 0x03128100, 0, 0, 51, 0x02018000, 0, 0, 0) != 0) {
        state.SkipWithError("cannot create the translator");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(ryn::tra::_tra_create_lkt(tra));
    tra_destroy(&tra);
}
BENCHMARK(BM_BuildTablesOfflineD32WithController)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
