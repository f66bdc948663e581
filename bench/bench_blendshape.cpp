// Blendshapes on the demo model set: AI_get_BS, the engine on one thread
// and the literal per-call method (normal equations formed, solved and the
// whole model reconstructed per region and call) on the same head; the init
// (load and factorise) with its peak memory; and the 222 MB basis read into
// the regions' layout beside one plain read of the same file.
#include <benchmark/benchmark.h>

#if !defined(_WIN32)
#include <fcntl.h>
#include <unistd.h>
#endif

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_data.h"
#include "blendshape/blendshape_engine.h"
#include "blendshape/blendshape_literal_reference.h"
#include "demo/demo_model.h"
#include "io/matrix_file.h"
#include "io/planar.h"
#include "meridian/meridian.h"

namespace {

namespace bs = kestrel::meridian::blendshape;
namespace fs = std::filesystem;
using kestrel::meridian::CBlendshapeEngine;
using meridian::bench::QuietStdout;
using meridian::bench::sampleHeadPlanar;

const std::string& modelDir() {
    return meridian::bench::blendshapeModelDir();
}

std::string basisPath() {
    return modelDir() + "/BS/" + bs::kBackendFiles[bs::kBasisFile].name;
}

std::unique_ptr<CBlendshapeEngine> loadEngine() {
    kestrel::meridian::Error error;
    auto engine = CBlendshapeEngine::load(modelDir(), error);
    if (!engine) throw std::runtime_error(error.message);
    return engine;
}

/// Bytes of basis rows one call reads from memory: every region's rows once
/// (the constraint rows are read twice, the second time from cache).
int64_t rowBytesPerCall(const CBlendshapeEngine& engine) {
    int64_t rows = 0;
    for (int r = 0; r < bs::kRegionCount; ++r)
        rows += 3 * static_cast<int64_t>(
                        bs::RegionFit::rowVertices(engine.data().definitions[r]).size());
    return rows * bs::kComponentCount * static_cast<int64_t>(sizeof(double));
}

/// A field of /proc/self/status in MB ("VmRSS", "VmHWM"), 0 elsewhere.
double statusMegabytes(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field + ":", 0) == 0) return std::stod(line.substr(field.size() + 1)) / 1024;
    return 0.0;
}

/// Starts the peak (VmHWM) over from the current resident size.
void resetPeakMemory() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

void BM_AI_get_BS(benchmark::State& state) {
    {
        QuietStdout quiet;
        if (AI_system_initDynamic_BS(modelDir().c_str()) != 1) {
            state.SkipWithError("AI_system_initDynamic_BS failed");
            return;
        }
    }
    std::vector<float> out(CBlendshapeEngine::kShapeFloats);
    for (auto _ : state) {
        benchmark::DoNotOptimize(AI_get_BS(sampleHeadPlanar().data(), out.data()));
        benchmark::ClobberMemory();
    }
    AI_system_over();
    state.SetBytesProcessed(state.iterations() * rowBytesPerCall(*loadEngine()));
}

void BM_BlendshapesOneThread(benchmark::State& state) {
    const auto engine = loadEngine();
    engine->setThreadCount(1);
    std::vector<float> out(CBlendshapeEngine::kShapeFloats);
    for (auto _ : state) {
        engine->generate(sampleHeadPlanar().data(), out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * rowBytesPerCall(*engine));
}

void BM_BlendshapesLiteral(benchmark::State& state) {
    const auto engine = loadEngine();
    // The literal method reads the whole back-end set; the engine keeps only
    // what generation uses.
    bs::BackendData data;
    kestrel::meridian::Error error;
    if (!bs::loadBackendData(modelDir(), data, error)) {
        state.SkipWithError(error.message.c_str());
        return;
    }
    Eigen::MatrixXd basis;
    const bs::MatrixFileEntry& entry = bs::kBackendFiles[bs::kBasisFile];
    if (kestrel::meridian::readMatrixFile(basisPath(), entry.rows, entry.cols, basis) !=
        kestrel::meridian::MatrixFileStatus::ok) {
        state.SkipWithError("cannot read the basis");
        return;
    }
    const Eigen::Matrix3Xd head =
        kestrel::meridian::planarToVertices(sampleHeadPlanar().data(), 20481);
    Eigen::MatrixXd shapes;
    for (auto _ : state) {
        shapes = bs::literal::blendshapes(head, data, basis);
        benchmark::DoNotOptimize(shapes.data());
    }
    // How far the engine's result is from this one, relative to its size.
    const CBlendshapeEngine::Shapes fast = engine->generate(head);
    double difference = 0.0;
    for (int s = 0; s < CBlendshapeEngine::kShapeCount; ++s)
        difference =
            std::max(difference, (fast[s] - shapes.middleRows<3>(3 * s)).cwiseAbs().maxCoeff());
    state.counters["max_rel_diff"] = difference / shapes.cwiseAbs().maxCoeff();
}

void BM_BlendshapeInit(benchmark::State& state) {
    modelDir();
    double peak = 0.0, kept = 0.0;
    for (auto _ : state) {
        const double before = statusMegabytes("VmRSS");
        resetPeakMemory();
        {
            QuietStdout quiet;
            benchmark::DoNotOptimize(AI_system_initDynamic_BS(modelDir().c_str()));
        }
        peak = statusMegabytes("VmHWM") - before;
        kept = statusMegabytes("VmRSS") - before;
        state.PauseTiming();
        AI_system_over();
        state.ResumeTiming();
    }
    state.counters["peak_MB"] = peak;
    state.counters["kept_MB"] = kept;
}

void BM_ReadBasisIntoRegionLayout(benchmark::State& state) {
    const auto engine = loadEngine();
    std::vector<std::vector<int>> regions;
    for (int r = 0; r < bs::kRegionCount; ++r)
        regions.push_back(bs::RegionFit::rowVertices(engine->data().definitions[r]));
    const bs::MatrixFileEntry& entry = bs::kBackendFiles[bs::kBasisFile];
    for (auto _ : state) {
        bs::RegionBasisStore store(entry.rows, entry.cols, regions);
        if (store.read(basisPath()) != kestrel::meridian::MatrixFileStatus::ok)
            state.SkipWithError("cannot read the basis");
        benchmark::DoNotOptimize(store.row(0));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(fs::file_size(basisPath())));
}

#if !defined(_WIN32)
// One read() of the whole file; argument 1 reads into fresh memory each time
// (as a load must), 0 into a buffer whose pages are already mapped.
void BM_PlainRead(benchmark::State& state) {
    const auto size = static_cast<size_t>(fs::file_size(basisPath()));
    std::unique_ptr<char[]> reused(new char[size]);
    for (auto _ : state) {
        std::unique_ptr<char[]> fresh(state.range(0) ? new char[size] : nullptr);
        char* target = fresh ? fresh.get() : reused.get();
        const int file = open(basisPath().c_str(), O_RDONLY);
        size_t got = 0;
        while (got < size) {
            const ssize_t n = read(file, target + got, size - got);
            if (n <= 0) break;
            got += static_cast<size_t>(n);
        }
        close(file);
        if (got != size) state.SkipWithError("short read");
        benchmark::DoNotOptimize(target[size - 1]);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}
#endif

BENCHMARK(BM_AI_get_BS)->Unit(benchmark::kMillisecond)->Iterations(100)->UseRealTime();
BENCHMARK(BM_BlendshapesOneThread)->Unit(benchmark::kMillisecond)->Iterations(50)->UseRealTime();
BENCHMARK(BM_BlendshapesLiteral)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_BlendshapeInit)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_ReadBasisIntoRegionLayout)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->UseRealTime();
#if !defined(_WIN32)
BENCHMARK(BM_PlainRead)
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->UseRealTime();
#endif

}  // namespace
