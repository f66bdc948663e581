// OBJ reading throughput: our reader beside tinyobjloader on the same
// template-sized head (the demo head: 20481 vertices, v / vt / f a/b), and on
// a real head scan when one is beside the checkout.
#include <cstdint>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>
#include <tiny_obj_loader.h>

#include "bench_data.h"
#include "demo/demo_model.h"
#include "io/mesh_readers.h"

namespace {

struct BenchObj {
    std::string path;
    int64_t bytes = 0;
};

// The demo head's tangent-frame template, written once per run.
const BenchObj& benchObj() {
    static const BenchObj obj = [] {
        const auto path = std::filesystem::path(meridian::bench::demoModelDir()) / "TBN" /
                          "std_20481_with_UV_F_TF.obj";
        return BenchObj{path.string(), static_cast<int64_t>(std::filesystem::file_size(path))};
    }();
    return obj;
}

// The real head scan beside the checkout (../shared/realdata/meshes), when
// there is one: it is read in place, never copied.
const BenchObj* realScan() {
    static const BenchObj obj = [] {
        const auto path = std::filesystem::path(MERIDIAN_SHARED_DIR) / "realdata" / "meshes" /
                          "lee-perry-smith-head.obj";
        std::error_code error;
        const auto bytes = std::filesystem::file_size(path, error);
        return error ? BenchObj{} : BenchObj{path.string(), static_cast<int64_t>(bytes)};
    }();
    return obj.path.empty() ? nullptr : &obj;
}

void readWithOurs(benchmark::State& state, const BenchObj& obj, Eigen::Index vertexCount) {
    for (auto _ : state) {
        const auto mesh = kestrel::meridian::readObj(obj.path);
        benchmark::DoNotOptimize(mesh.vertices.data());
        if (mesh.vertices.cols() != vertexCount) state.SkipWithError("wrong vertex count");
    }
    state.SetBytesProcessed(state.iterations() * obj.bytes);
}

void readWithTinyObjLoader(benchmark::State& state, const BenchObj& obj, size_t vertexCount) {
    tinyobj::ObjReaderConfig config;
    config.triangulate = false;
    for (auto _ : state) {
        tinyobj::ObjReader reader;
        reader.ParseFromFile(obj.path, config);
        benchmark::DoNotOptimize(reader.GetAttrib().vertices.data());
        if (reader.GetAttrib().vertices.size() != 3 * vertexCount)
            state.SkipWithError("wrong vertex count");
    }
    state.SetBytesProcessed(state.iterations() * obj.bytes);
}

// 8844 vertices, 9223 texture coordinates, 17684 triangles written a/b.
constexpr int kRealScanVertices = 8844;

void BM_ReadObjRealScan(benchmark::State& state) {
    if (const BenchObj* obj = realScan())
        readWithOurs(state, *obj, kRealScanVertices);
    else
        state.SkipWithError("no real scan beside the checkout");
}
BENCHMARK(BM_ReadObjRealScan)->Unit(benchmark::kMillisecond);

void BM_TinyObjLoaderRealScan(benchmark::State& state) {
    if (const BenchObj* obj = realScan())
        readWithTinyObjLoader(state, *obj, kRealScanVertices);
    else
        state.SkipWithError("no real scan beside the checkout");
}
BENCHMARK(BM_TinyObjLoaderRealScan)->Unit(benchmark::kMillisecond);

void BM_ReadObj(benchmark::State& state) {
    const BenchObj& obj = benchObj();
    for (auto _ : state) {
        const auto mesh = kestrel::meridian::readObj(obj.path);
        benchmark::DoNotOptimize(mesh.vertices.data());
        if (mesh.vertices.cols() != meridian::demo::kTemplateVertexCount)
            state.SkipWithError("wrong vertex count");
    }
    state.SetBytesProcessed(state.iterations() * obj.bytes);
}
BENCHMARK(BM_ReadObj)->Unit(benchmark::kMillisecond);

void BM_TinyObjLoader(benchmark::State& state) {
    const BenchObj& obj = benchObj();
    tinyobj::ObjReaderConfig config;
    config.triangulate = false;
    for (auto _ : state) {
        tinyobj::ObjReader reader;
        reader.ParseFromFile(obj.path, config);
        benchmark::DoNotOptimize(reader.GetAttrib().vertices.data());
        if (reader.GetAttrib().vertices.size() != 3 * meridian::demo::kTemplateVertexCount)
            state.SkipWithError("wrong vertex count");
    }
    state.SetBytesProcessed(state.iterations() * obj.bytes);
}
BENCHMARK(BM_TinyObjLoader)->Unit(benchmark::kMillisecond);

}  // namespace
