// OBJ reading throughput: our reader beside tinyobjloader on the same
// template-sized head (the demo head: 20481 vertices, v / vt / f a/b).
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
