// The blendshape handle.
#include <climits>
#include <cstdint>
#include <memory>
#include <string>

#include "blendshape/blendshape_engine.h"
#include "blendshape/parallel_tasks.h"
#include "capi/handle_support.h"

using namespace kestrel::meridian;
using namespace kestrel::meridian::capi;

struct meridian_blendshapes {
    std::unique_ptr<CBlendshapeEngine> engine;
    LastError lastError;
};

extern "C" MERIDIAN_MODERN_API meridian_blendshapes* meridian_blendshapes_open(
    const char* model_dir) {
    return openHandle<meridian_blendshapes>([&](meridian_blendshapes& shapes, Error& error) {
        error = checkModelDirectory(model_dir, {ModelTask::blendshapes});
        if (error) return false;
        shapes.engine = CBlendshapeEngine::load(model_dir, error);
        return shapes.engine != nullptr;
    });
}

extern "C" MERIDIAN_MODERN_API void meridian_blendshapes_close(meridian_blendshapes* shapes) {
    delete shapes;
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_blendshapes_set_thread_count(meridian_blendshapes* shapes, unsigned threads) {
    return runCall(shapes, [&]() -> Error {
        const int regions = blendshape::kRegionCount;
        shapes->engine->setThreadCount(threads == 0 ? blendshape::defaultThreadCount(regions)
                                                    : static_cast<int>(threads));
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API size_t meridian_blendshapes_shape_count(void) {
    return CBlendshapeEngine::kShapeCount;
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_blendshapes_run(meridian_blendshapes* shapes, const float* head, size_t head_count,
                         float* out, size_t out_count) {
    return runCall(shapes, [&]() -> Error {
        if (Error error = checkHead(head, head_count)) return error;
        if (Error error =
                checkOutput(out, out_count, CBlendshapeEngine::kShapeFloats, "the output"))
            return error;
        shapes->engine->generate(head, out);
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_blendshapes_run_batch(meridian_blendshapes* shapes, const float* heads, size_t heads_count,
                               size_t batch_size, float* out, size_t out_count) {
    return runCall(shapes, [&]() -> Error {
        constexpr size_t shapeFloats = CBlendshapeEngine::kShapeFloats;
        if (Error error = checkHeadBatch(heads, heads_count, batch_size, shapeFloats)) return error;
        if (Error error = checkOutput(out, out_count, batch_size * shapeFloats, "the output"))
            return error;
        shapes->engine->generateBatch(heads, static_cast<int>(batch_size), out);
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API const char* meridian_blendshapes_last_error(
    const meridian_blendshapes* shapes) {
    return lastErrorOf(shapes);
}
