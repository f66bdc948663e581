// AI_swap_head on the demo model set: the call as a host makes it.
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

}  // namespace
