// Tangent frames of the demo head: the two run calls through the C
// interface, the engines behind them at a forced thread count, and the
// literal per-face computation they must match, on the same input. The calls
// run on two threads: they report real time, and their process-CPU variants
// show what both threads spend together.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench_data.h"
#include "demo/demo_model.h"
#include "io/mesh_readers.h"
#include "meridian/meridian.h"
#include "tbn/frame_arithmetic.h"
#include "tbn/record_buffer.h"
#include "tbn/tbn_engine_general.h"
#include "tbn/tbn_engine_std.h"
#include "tbn/tbn_literal_reference.h"

namespace {

using meridian::bench::demoModelDir;
using meridian::bench::sampleHeadPlanar;
constexpr Eigen::Index kHead = 20481;

std::string tbnFile(const char* name) {
    return demoModelDir() + "/TBN/" + name;
}

Eigen::MatrixXd oneBased(const Eigen::Matrix3Xi& indices) {
    return (indices.array() + 1).cast<double>().matrix();
}

void BM_AI_get_TBN(benchmark::State& state) {
    if (AI_system_init_TBN(demoModelDir().c_str()) != 1) {
        state.SkipWithError("AI_system_init_TBN failed");
        return;
    }
    std::vector<float> out(9 * kHead);
    for (auto _ : state) {
        benchmark::DoNotOptimize(AI_get_TBN(sampleHeadPlanar().data(), out.data()));
        benchmark::ClobberMemory();
    }
    AI_system_over();
}

void BM_AI_get_TBN_g(benchmark::State& state) {
    const meridian_handle handle = AI_system_init_TBN_g2(tbnFile("head_split_uv.obj").c_str(),
                                                         tbnFile("idx_tavi2head.txt").c_str(),
                                                         tbnFile("idx_head2tavi.txt").c_str());
    if (handle == 0) {
        state.SkipWithError("AI_system_init_TBN_g2 failed");
        return;
    }
    std::vector<float> out(9 * kHead);
    for (auto _ : state) {
        benchmark::DoNotOptimize(AI_get_TBN_g(handle, sampleHeadPlanar().data(), out.data()));
        benchmark::ClobberMemory();
    }
    AI_system_over();
}

void BM_LiteralFixed(benchmark::State& state) {
    const meridian::demo::DemoHead& demo = meridian::demo::demoHead();
    const Eigen::MatrixXd uv = demo.uvs;
    const Eigen::MatrixXd faces = oneBased(demo.faces);
    const Eigen::MatrixXd uvFaces = oneBased(demo.uvFaces);
    for (auto _ : state) {
        std::vector<float> out = kestrel::meridian::literal::fixedEngineFrames(
            sampleHeadPlanar().data(), uv, faces, uvFaces);
        benchmark::DoNotOptimize(out.data());
    }
}

void BM_LiteralGeneral(benchmark::State& state) {
    const kestrel::meridian::ObjMeshData split =
        kestrel::meridian::readObj(tbnFile("head_split_uv.obj"));
    std::vector<int> toHead, toTavi;
    kestrel::meridian::Error error;
    kestrel::meridian::readTangentFrameIndexFile(tbnFile("idx_tavi2head.txt"), toHead, error);
    kestrel::meridian::readTangentFrameIndexFile(tbnFile("idx_head2tavi.txt"), toTavi, error);
    for (auto _ : state) {
        std::vector<float> out = kestrel::meridian::literal::generalEngineFrames(
            sampleHeadPlanar().data(), split.texcoords, split.faces, split.textureFaces, toHead,
            toTavi);
        benchmark::DoNotOptimize(out.data());
    }
}

// The engines behind the two calls at a forced thread count (arguments:
// 0 fixed, 1 general; 1 or 2 threads), to show what the second thread buys.
void BM_AI_get_TBN_engine(benchmark::State& state) {
    using namespace kestrel::meridian;
    const bool general = state.range(0) == 1;
    const int threads = static_cast<int>(state.range(1));
    state.SetLabel(std::string(general ? "general" : "fixed") + ", " + std::to_string(threads) +
                   (threads == 1 ? " thread" : " threads"));
    Error error;
    TBNEngineStd fixedEngine;
    TBNEngineGeneral generalEngine;
    bool loaded = false;
    if (general) {
        std::vector<int> toHead, toTavi;
        loaded = readTangentFrameIndexFile(tbnFile("idx_tavi2head.txt"), toHead, error) &&
                 readTangentFrameIndexFile(tbnFile("idx_head2tavi.txt"), toTavi, error) &&
                 generalEngine.initialise(tbnFile("head_split_uv.obj"), toHead.data(),
                                          static_cast<unsigned>(toHead.size()), toTavi.data(),
                                          static_cast<unsigned>(toTavi.size()), error);
    } else {
        const meridian::demo::DemoHead& demo = meridian::demo::demoHead();
        loaded =
            fixedEngine.load(demo.uvs, oneBased(demo.faces), oneBased(demo.uvFaces), "demo", error);
    }
    if (!loaded) {
        state.SkipWithError("engine failed to load");
        return;
    }
    std::vector<float> out(9 * kHead);
    for (auto _ : state) {
        if (general)
            generalEngine.computeFrames(sampleHeadPlanar().data(), out.data(), threads);
        else
            fixedEngine.computeFrames(sampleHeadPlanar().data(), out.data(), threads);
        benchmark::ClobberMemory();
    }
}

// The fixed engine's two passes with each instruction set (argument: 0
// scalar, 1 SSE2, 2 AVX, 3 AVX2, 4 AVX-512), to show what the run-time choice
// buys.
void BM_FramePassesByKernel(benchmark::State& state) {
    using namespace kestrel::meridian;
    const auto kernel = static_cast<simd::Level>(state.range(0));
    state.SetLabel(simd::levelName(kernel));
    if (!simd::levelAvailable(kernel)) {
        state.SkipWithError("kernel not available on this processor");
        return;
    }
    const meridian::demo::DemoHead& demo = meridian::demo::demoHead();
    FrameTopology topology;
    buildFrameTopology(oneBased(demo.faces), oneBased(demo.uvFaces), demo.uvs, kHead,
                       DeterminantGuard::none, topology);
    RecordBuffer positionBuffer, sumBuffer;
    double* positions = positionBuffer.reserve(4 * kHead);
    for (Eigen::Index i = 0; i < kHead; ++i) {
        for (Eigen::Index c = 0; c < 3; ++c)
            positions[4 * i + c] = sampleHeadPlanar()[static_cast<size_t>(c * kHead + i)];
        positions[4 * i + 3] = 0.0;
    }
    double* sums = sumBuffer.reserve(4 * kHead);
    std::vector<float> out(9 * kHead);
    for (auto _ : state) {
        accumulateNormalSums(topology, positions, sums, kernel);
        writeVertexFrames(sums, nullptr, kHead, out.data(), kernel);
        benchmark::ClobberMemory();
    }
}

BENCHMARK(BM_AI_get_TBN)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_AI_get_TBN)->Unit(benchmark::kMicrosecond)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(BM_FramePassesByKernel)->DenseRange(0, 4)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LiteralFixed)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_AI_get_TBN_g)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_AI_get_TBN_g)->Unit(benchmark::kMicrosecond)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(BM_LiteralGeneral)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_AI_get_TBN_engine)
    ->ArgsProduct({{0, 1}, {1, 2}})
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

}  // namespace
