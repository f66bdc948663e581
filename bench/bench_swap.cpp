// AI_swap_head on the demo model set: the call as a host makes it.
#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "demo/demo_model.h"
#include "meridian/meridian.h"

namespace {

// The demo model directory, generated once per benchmark run.
const std::string& demoModelDir() {
    static const std::string dir = [] {
        const auto path = std::filesystem::temp_directory_path() / "meridian-bench-demo";
        std::string error;
        if (!meridian::demo::writeDemoModel(path.string(), error)) throw std::runtime_error(error);
        return path.string();
    }();
    return dir;
}

std::vector<float> planar(const Eigen::Matrix3Xd& vertices) {
    const Eigen::Index n = vertices.cols();
    std::vector<float> out(3 * n);
    for (Eigen::Index r = 0; r < 3; ++r)
        for (Eigen::Index k = 0; k < n; ++k) out[r * n + k] = static_cast<float>(vertices(r, k));
    return out;
}

void BM_SwapHead(benchmark::State& state) {
    const meridian_handle handle = AI_system_init_swaphead(demoModelDir().c_str());
    if (handle == 0) {
        state.SkipWithError("demo model did not load");
        return;
    }
    const std::vector<float> face = planar(meridian::demo::sampleHead());
    std::vector<float> out(3 * meridian::demo::kEngineVertexCount);
    for (auto _ : state) {
        benchmark::DoNotOptimize(AI_swap_head(handle, face.data(), out.data(), 0));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * meridian::demo::kEngineVertexCount);
    AI_system_over();
}
BENCHMARK(BM_SwapHead)->Unit(benchmark::kMicrosecond);

}  // namespace
