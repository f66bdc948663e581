// The whole head export of the demo sample head through the C interface, as
// `meridian export` runs it: with the blendshape data already loaded (the
// engines built once, outside the timed loop; on every core, and on one
// thread as a batch worker runs it), without the blendshapes, and
// from a cold start (model check and every engine loaded per iteration).
// Counters give each stage's share of the time in percent and in ms.
#include <benchmark/benchmark.h>

#include <map>
#include <string>

#include "asset/head_export.h"
#include "bench_data.h"

namespace {

namespace ex = meridian::exporter;
using meridian::bench::QuietStdout;

ex::ExportSettings settings(bool blendshapes) {
    ex::ExportSettings s;
    s.modelDir =
        blendshapes ? meridian::bench::blendshapeModelDir() : meridian::bench::demoModelDir();
    s.blendshapes = blendshapes;
    return s;
}

/// The asset of the sample head as .glb bytes in memory; the time of each
/// stage is added to `seconds`.
size_t exportOnce(const ex::HeadExporter& exporter, std::map<std::string, double>& seconds) {
    ex::StageLog log;
    const ex::HeadAsset asset = exporter.run(meridian::bench::sampleHeadPlanar(), log);
    std::string glb;
    log.run("glTF", [&] { glb = ex::glbBytes(ex::buildGltfModel(asset)); });
    for (const ex::StageTime& t : log.times()) seconds[t.name] += t.seconds;
    return glb.size();
}

/// Each stage's share in percent, and its own time per export in ms (wall
/// time: on a loaded machine compare it with the same run's other figures).
void reportShares(benchmark::State& state, const std::map<std::string, double>& seconds) {
    double total = 0;
    for (const auto& [name, s] : seconds) total += s;
    const double exports = static_cast<double>(state.iterations());
    for (const auto& [name, s] : seconds) {
        state.counters[name + " %"] = 100.0 * s / total;
        if (exports > 0) state.counters[name + " ms"] = 1000.0 * s / exports;
    }
}

/// `threads` 0 keeps the blendshape engine's default (every core).
void exportLoaded(benchmark::State& state, bool blendshapes, int threads = 0) {
    ex::StageLog loading;
    QuietStdout quiet;
    const ex::HeadExporter exporter(settings(blendshapes), loading);
    if (threads > 0 && exporter.blendshapeEngine() != nullptr)
        exporter.blendshapeEngine()->setThreadCount(threads);
    std::map<std::string, double> seconds;
    size_t bytes = 0;
    for (auto _ : state) bytes = exportOnce(exporter, seconds);
    reportShares(state, seconds);
    state.counters["MB"] = bytes / 1e6;
}

void BM_ExportBlendshapesLoaded(benchmark::State& state) {
    exportLoaded(state, true);
}

// On one thread, as a batch worker runs it: every stage in turn.
void BM_ExportBlendshapesLoadedOneThread(benchmark::State& state) {
    exportLoaded(state, true, 1);
}

void BM_ExportWithoutBlendshapes(benchmark::State& state) {
    exportLoaded(state, false);
}

void BM_ExportCold(benchmark::State& state) {
    meridian::bench::blendshapeModelDir();  // written before the clock starts
    std::map<std::string, double> seconds;
    for (auto _ : state) {
        QuietStdout quiet;
        ex::StageLog loading;
        const ex::HeadExporter exporter(settings(true), loading);
        for (const ex::StageTime& t : loading.times()) seconds[t.name] += t.seconds;
        exportOnce(exporter, seconds);
    }
    reportShares(state, seconds);
}

}  // namespace

BENCHMARK(BM_ExportBlendshapesLoaded)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ExportBlendshapesLoadedOneThread)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ExportWithoutBlendshapes)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ExportCold)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
