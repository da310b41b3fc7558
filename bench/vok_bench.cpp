// Dictionary library speed: loading the embedded ORAX family, opening dictionaries, and one full
// lookup-table walk over the generic products.
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "ryn/vok.h"
#include "vokmodel.hpp"

namespace {

const uint32_t kGeneric[] = {1, 25, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 48, 49, 50, 51};

// Parsing the embedded description and building the family from it.
void BM_LoadEmbeddedFamily(benchmark::State &state) {
    const std::string text = ryn::vok::embedded_family_text();
    for (auto _ : state) {
        std::unique_ptr<ryn::vok::Family> family;
        std::string message;
        int rc = ryn::vok::load_family(text, "bench", family, message);
        if (rc != 0) state.SkipWithError(message.c_str());
        benchmark::DoNotOptimize(family.get());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
}
BENCHMARK(BM_LoadEmbeddedFamily)->Unit(benchmark::kMillisecond);

// Loading, then building the model of every generic product's default version (first opening).
void BM_LoadAndOpenGeneric(benchmark::State &state) {
    const std::string text = ryn::vok::embedded_family_text();
    for (auto _ : state) {
        std::unique_ptr<ryn::vok::Family> family;
        std::string message;
        ryn::vok::load_family(text, "bench", family, message);
        for (uint32_t p : kGeneric) {
            auto it = family->products.find(p);
            if (it == family->products.end() || it->second.default_version == 0) continue;
            int code = 0;
            std::string detail;
            benchmark::DoNotOptimize(ryn::vok::model_of(*family, p, it->second.default_version,
                                                        VOK_DRIVE_ONLY, 0, code, detail));
        }
    }
}
BENCHMARK(BM_LoadAndOpenGeneric)->Unit(benchmark::kMillisecond);

// What building the lookup tables asks of the library: for each generic product with a default
// version, open its drive-only dictionary, ask every type's name, hidden flag and count, every
// register's alias, and every command number's name.
void BM_TableBuildingWalk(benchmark::State &state) {
    vok_load_default_family();
    int64_t calls = 0;
    for (auto _ : state) {
        for (uint32_t p : kGeneric) {
            uint32_t v = vok_get_default_version(p);
            if (v == 0) continue;
            VOK_DICT *d = nullptr;
            if (vok_open(&d, p, v, VOK_DRIVE_ONLY, 0) != 0) state.SkipWithError("open failed");
            bool axis63 = vok_is_axis63_product(p);
            benchmark::DoNotOptimize(axis63);
            for (uint32_t t = 0; t < VOK_TYPE_COUNT; ++t) {
                benchmark::DoNotOptimize(vok_get_type_name(d, 1, t));
                if (vok_type_is_hidden(d, t)) continue;
                for (int i = vok_get_register_count(d, t) - 1; i >= 0; --i) {
                    benchmark::DoNotOptimize(vok_get_register_name(d, 1, t, uint32_t(i), 0));
                    ++calls;
                }
            }
            for (uint32_t c = 0; c < VOK_COMMAND_COUNT; ++c) {
                benchmark::DoNotOptimize(vok_get_command_name(d, 1, c));
                ++calls;
            }
            vok_close(&d);
        }
    }
    state.counters["calls"] = benchmark::Counter(double(calls) / double(state.iterations()));
}
BENCHMARK(BM_TableBuildingWalk)->Unit(benchmark::kMillisecond);

// One open and close of a configuration whose model is already built.
void BM_OpenClose(benchmark::State &state) {
    vok_load_default_family();
    for (auto _ : state) {
        VOK_DICT *d = nullptr;
        vok_open(&d, 32, 0x03128100, 0x21, 0x01028000);
        vok_close(&d);
    }
}
BENCHMARK(BM_OpenClose);

// A register query of the validation path: bounds of one element.
void BM_RegisterBounds(benchmark::State &state) {
    vok_load_default_family();
    VOK_DICT *d = nullptr;
    vok_open(&d, 32, 0x03128100, 0, 0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(vok_register_exists(d, 2, 70, 0));
        benchmark::DoNotOptimize(vok_get_reg_max_int32(d, 2, 70, 0));
        benchmark::DoNotOptimize(vok_get_reg_enum(d, 2, 12, 0));
    }
    vok_close(&d);
}
BENCHMARK(BM_RegisterBounds);

} // namespace

BENCHMARK_MAIN();
