// Batched blendshapes on one thread: K heads per call (each basis row read
// once for all of them) at K = 1, 4, 16 and 32, as time per head, beside
// the single-head call on one thread (BM_BlendshapesOneThread).
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <stdexcept>
#include <vector>

#include "bench_data.h"
#include "blendshape/blendshape_engine.h"

namespace {

using kestrel::meridian::CBlendshapeEngine;

void BM_BlendshapesBatchOneThread(benchmark::State& state) {
    kestrel::meridian::Error error;
    const auto engine = CBlendshapeEngine::load(meridian::bench::blendshapeModelDir(), error);
    if (!engine) {
        state.SkipWithError(error.message.c_str());
        return;
    }
    engine->setThreadCount(1);
    const auto count = static_cast<int>(state.range(0));
    const std::vector<float>& sample = meridian::bench::sampleHeadPlanar();
    const size_t headFloats = sample.size();
    // Distinct heads, so no head's work is a cache hit for the next.
    std::vector<float> heads(static_cast<size_t>(count) * headFloats);
    for (int k = 0; k < count; ++k)
        for (size_t i = 0; i < headFloats; ++i)
            heads[k * headFloats + i] = sample[i] * (1.0f + 0.002f * static_cast<float>(k));
    std::vector<float> out(static_cast<size_t>(count) * CBlendshapeEngine::kShapeFloats);
    for (auto _ : state) {
        engine->generateBatch(heads.data(), count, out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.counters["ms_per_head"] =
        benchmark::Counter(static_cast<double>(state.iterations() * count) / 1000.0,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

BENCHMARK(BM_BlendshapesBatchOneThread)
    ->Arg(1)
    ->Arg(4)
    ->Arg(16)
    ->Arg(32)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0)
    ->UseRealTime();

}  // namespace
