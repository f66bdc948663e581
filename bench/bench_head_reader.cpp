// The strict head and mesh reader beside tinyobjloader on the same files:
// the demo's sample head (20481 "v" lines), the tangent-frame template
// (v / vt / f a/b), the real head scan when ../shared has it, and the sample
// head as a binary PLY (no text to parse: the floor of the reading itself).
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include <benchmark/benchmark.h>
#include <tiny_obj_loader.h>

#include "bench_data.h"
#include "io/head_reader.h"
#include "io/strict_mesh.h"

namespace {

namespace fs = std::filesystem;
namespace km = kestrel::meridian;

std::string sampleHead() {
    return (fs::path(meridian::bench::demoModelDir()) / "sample_head.obj").string();
}

std::string tangentTemplate() {
    return (fs::path(meridian::bench::demoModelDir()) / "TBN" / "std_20481_with_UV_F_TF.obj")
        .string();
}

// The real scan is not in the repository; it is read where it lies.
std::string realScan() {
    return std::string(MERIDIAN_SHARED_DIR) + "/realdata/meshes/lee-perry-smith-head.obj";
}

// The sample head as a little-endian binary PLY of floats, written once.
const std::string& binaryPlyHead() {
    static const std::string path = [] {
        const km::StrictMesh head = km::readStrictMesh(sampleHead());
        const std::string target =
            (fs::path(meridian::bench::demoModelDir()) / "sample_head_binary.ply").string();
        std::ofstream out(target, std::ios::binary);
        out << "ply\nformat binary_little_endian 1.0\nelement vertex " << head.vertexCount()
            << "\nproperty float x\nproperty float y\nproperty float z\nend_header\n";
        out.write(reinterpret_cast<const char*>(head.vertices.data()),
                  static_cast<std::streamsize>(head.vertices.size() * sizeof(float)));
        return target;
    }();
    return path;
}

void strictMesh(benchmark::State& state, const std::string& path) {
    if (!fs::exists(path)) {
        state.SkipWithError(("absent: " + path).c_str());
        return;
    }
    for (auto _ : state) {
        const km::StrictMesh mesh = km::readStrictMesh(path);
        benchmark::DoNotOptimize(mesh.vertices.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(fs::file_size(path)));
}

void tinyObj(benchmark::State& state, const std::string& path) {
    if (!fs::exists(path)) {
        state.SkipWithError(("absent: " + path).c_str());
        return;
    }
    tinyobj::ObjReaderConfig config;
    config.triangulate = false;
    for (auto _ : state) {
        tinyobj::ObjReader reader;
        reader.ParseFromFile(path, config);
        benchmark::DoNotOptimize(reader.GetAttrib().vertices.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(fs::file_size(path)));
}

void BM_StrictHead_SampleObj(benchmark::State& state) {
    const std::string path = sampleHead();
    for (auto _ : state) {
        const std::vector<float> planar = km::readHeadPlanar(path);
        benchmark::DoNotOptimize(planar.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(fs::file_size(path)));
}
BENCHMARK(BM_StrictHead_SampleObj)->Unit(benchmark::kMillisecond);

void BM_TinyObj_SampleObj(benchmark::State& state) {
    tinyObj(state, sampleHead());
}
BENCHMARK(BM_TinyObj_SampleObj)->Unit(benchmark::kMillisecond);

void BM_StrictMesh_TemplateObj(benchmark::State& state) {
    strictMesh(state, tangentTemplate());
}
BENCHMARK(BM_StrictMesh_TemplateObj)->Unit(benchmark::kMillisecond);

void BM_TinyObj_TemplateObj(benchmark::State& state) {
    tinyObj(state, tangentTemplate());
}
BENCHMARK(BM_TinyObj_TemplateObj)->Unit(benchmark::kMillisecond);

void BM_StrictMesh_RealScanObj(benchmark::State& state) {
    strictMesh(state, realScan());
}
BENCHMARK(BM_StrictMesh_RealScanObj)->Unit(benchmark::kMillisecond);

void BM_TinyObj_RealScanObj(benchmark::State& state) {
    tinyObj(state, realScan());
}
BENCHMARK(BM_TinyObj_RealScanObj)->Unit(benchmark::kMillisecond);

void BM_StrictHead_BinaryPly(benchmark::State& state) {
    const std::string& path = binaryPlyHead();
    for (auto _ : state) {
        const std::vector<float> planar = km::readHeadPlanar(path);
        benchmark::DoNotOptimize(planar.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(fs::file_size(path)));
}
BENCHMARK(BM_StrictHead_BinaryPly)->Unit(benchmark::kMillisecond);

}  // namespace
