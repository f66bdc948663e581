// Tangent frames of the demo head: the two run calls through the C
// interface, and the literal per-face computation they must match, on the
// same input.
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

BENCHMARK(BM_AI_get_TBN)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FramePassesByKernel)->DenseRange(0, 4)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LiteralFixed)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_AI_get_TBN_g)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LiteralGeneral)->Unit(benchmark::kMicrosecond);

}  // namespace
