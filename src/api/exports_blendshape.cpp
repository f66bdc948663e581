// Blendshape exports: one process-wide engine (no handle).
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include "api/engines.h"
#include "api/legacy_messages.h"
#include "blendshape/blendshape_engine.h"
#include "meridian/meridian.h"

using kestrel::meridian::CBlendshapeEngine;
using kestrel::meridian::Error;
using kestrel::meridian::ErrorCode;
using namespace kestrel::meridian::api;

namespace {

/// Loads the engine between its two progress lines ("init backend datas"
/// and the model directory, then the load time). A missing file prints its
/// message and ends the whole process with -1, as hosts of this interface
/// expect; a short one does the same (a partly read model must never
/// produce shapes). Anything else that is wrong leaves no engine. By the
/// time it exits, everything the load allocated has been freed.
std::unique_ptr<CBlendshapeEngine> loadOrExit(const std::string& modelDir) {
    printLine("init backend datas" + modelDir);
    const auto start = std::chrono::steady_clock::now();
    Error error;
    std::unique_ptr<CBlendshapeEngine> engine = CBlendshapeEngine::load(modelDir, error);
    if (engine) {
        const std::chrono::duration<double, std::milli> took =
            std::chrono::steady_clock::now() - start;
        std::cout << "----load next info"
                  << " use time " << took.count() << " ms" << std::endl;
        return engine;
    }
    printLine(error.message);
    if (error.code != ErrorCode::badContent) std::exit(-1);
    return nullptr;
}

}  // namespace

extern "C" MERIDIAN_API int64_t AI_system_initDynamic_BS(const char* model_dir) {
    if (model_dir == nullptr) return 0;
    return guarded<int64_t>(0, [&]() -> int64_t {
        // A fresh state first: an init that fails in any way leaves one
        // without an engine.
        BlendshapeState& state = blendshapeState().replace(std::make_unique<BlendshapeState>());
        state.engine = loadOrExit(std::string(model_dir));
        // 1 whatever the loader met, as hosts expect; without an engine
        // AI_get_BS refuses to run.
        return 1;
    });
}

extern "C" MERIDIAN_API int64_t AI_get_BS(const float* head_vertices, float* bs_out) {
    if (head_vertices == nullptr || bs_out == nullptr) return 0;
    return guarded<int64_t>(0, [&]() -> int64_t {
        const BlendshapeState* state = blendshapeState().get();
        if (state == nullptr || state->engine == nullptr) return 0;
        state->engine->generate(head_vertices, bs_out);
        return 1;
    });
}
