// AI_swap_head on the demo model set: the call as a host makes it.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_data.h"
#include "demo/demo_model.h"
#include "headswap/head_converter.h"
#include "io/planar.h"
#include "meridian/meridian.h"

namespace {

void BM_SwapHead(benchmark::State& state) {
    const meridian_handle handle = AI_system_init_swaphead(meridian::bench::demoModelDir().c_str());
    if (handle == 0) {
        state.SkipWithError("demo model did not load");
        return;
    }
    const std::vector<float>& face = meridian::bench::sampleHeadPlanar();
    std::vector<float> out(3 * meridian::demo::kEngineVertexCount);
    for (auto _ : state) {
        benchmark::DoNotOptimize(AI_swap_head(handle, face.data(), out.data(), 0));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * meridian::demo::kEngineVertexCount);
    AI_system_over();
}
BENCHMARK(BM_SwapHead)->Unit(benchmark::kMicrosecond);

// The swap as the data flow describes it: widen into a double matrix, apply
// one correspondence per stage into a fresh matrix, narrow the result.
void BM_SwapHeadLiteral(benchmark::State& state) {
    using namespace kestrel::meridian;
    CHeadConverter converter;
    Error error;
    if (!converter.initialise(meridian::bench::demoModelDir(), error)) {
        state.SkipWithError("demo model did not load");
        return;
    }
    const std::vector<float>& face = meridian::bench::sampleHeadPlanar();
    std::vector<float> out(3 * meridian::demo::kEngineVertexCount);
    for (auto _ : state) {
        const Eigen::Matrix3Xd input = planarToVertices(face.data(), 20481);
        const Eigen::Matrix3Xd head = applyCorrespondence(converter.templateToHead(), input);
        const Eigen::Matrix3Xd engine = applyCorrespondence(converter.headToEngine(), head);
        matrixToPlanar(engine, out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * meridian::demo::kEngineVertexCount);
}
BENCHMARK(BM_SwapHeadLiteral)->Unit(benchmark::kMicrosecond);

// The swap with each instruction set (argument: 0 scalar, 1 SSE2, 2 AVX,
// 3 AVX2, 4 AVX-512), to show what the run-time choice buys.
void BM_SwapHeadByKernel(benchmark::State& state) {
    using namespace kestrel::meridian;
    const auto level = static_cast<simd::Level>(state.range(0));
    state.SetLabel(simd::levelName(level));
    CHeadConverter converter;
    Error error;
    if (!simd::levelAvailable(level) ||
        !converter.initialise(meridian::bench::demoModelDir(), error)) {
        state.SkipWithError("kernel not available or demo model did not load");
        return;
    }
    const std::vector<float>& face = meridian::bench::sampleHeadPlanar();
    std::vector<float> out(3 * meridian::demo::kEngineVertexCount);
    using Planar = CHeadConverter::PlanarVertices;
    for (auto _ : state) {
        converter.swap(Eigen::Map<const Planar>(face.data(), 3, 20481),
                       Eigen::Map<Planar>(out.data(), 3, converter.engineVertexCount()), level);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * meridian::demo::kEngineVertexCount);
}
BENCHMARK(BM_SwapHeadByKernel)->DenseRange(0, 4)->Unit(benchmark::kMicrosecond);

// The swap when the engine order shuffles the head: no corner runs through
// consecutive face vertices, every one is gathered (the demo's engine order
// mostly keeps the head's, so its corners are read with plain loads).
void BM_SwapHeadShuffledEngineOrder(benchmark::State& state) {
    namespace fs = std::filesystem;
    using namespace kestrel::meridian;
    const fs::path dir = fs::path(meridian::bench::demoModelDir()) / "shuffled-swap";
    fs::create_directories(dir);
    fs::copy_file(fs::path(meridian::bench::demoModelDir()) / "idx_tavi2head.corresp",
                  dir / "idx_tavi2head.corresp", fs::copy_options::overwrite_existing);
    std::vector<int> order(20576);
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), std::mt19937(18));
    {
        std::ofstream engine(dir / "idx_head2ue4.corresp");
        engine << "# base 0\n# element count " << order.size() << "\n# a\n# b\n# end_header\n";
        for (size_t k = 0; k < order.size(); ++k) engine << k << ' ' << order[k] << '\n';
    }
    CHeadConverter converter;
    Error error;
    const bool loaded = converter.initialise(dir.string(), error);
    fs::remove_all(dir);
    if (!loaded) {
        state.SkipWithError("shuffled model did not load");
        return;
    }
    const std::vector<float>& face = meridian::bench::sampleHeadPlanar();
    std::vector<float> out(3 * static_cast<size_t>(converter.engineVertexCount()));
    using Planar = CHeadConverter::PlanarVertices;
    for (auto _ : state) {
        converter.swap(Eigen::Map<const Planar>(face.data(), 3, 20481),
                       Eigen::Map<Planar>(out.data(), 3, converter.engineVertexCount()));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * converter.engineVertexCount());
}
BENCHMARK(BM_SwapHeadShuffledEngineOrder)->Unit(benchmark::kMicrosecond);

}  // namespace
