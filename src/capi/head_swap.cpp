// The head swap handle.
#include "capi/handle_support.h"
#include "common/template_head.h"
#include "headswap/head_converter.h"

using namespace kestrel::meridian;
using namespace kestrel::meridian::capi;

struct meridian_head_swap {
    CHeadConverter converter;
    LastError lastError;
};

extern "C" MERIDIAN_MODERN_API meridian_head_swap* meridian_head_swap_open(const char* model_dir) {
    return openHandle<meridian_head_swap>([&](meridian_head_swap& swap, Error& error) {
        error = checkModelDirectory(model_dir, {ModelTask::headSwap});
        return !error && swap.converter.initialise(model_dir, error);
    });
}

extern "C" MERIDIAN_MODERN_API void meridian_head_swap_close(meridian_head_swap* swap) {
    delete swap;
}

extern "C" MERIDIAN_MODERN_API size_t
meridian_head_swap_output_vertex_count(const meridian_head_swap* swap) {
    return swap == nullptr ? 0 : static_cast<size_t>(swap->converter.engineVertexCount());
}

extern "C" MERIDIAN_MODERN_API meridian_status meridian_head_swap_run(meridian_head_swap* swap,
                                                                      const float* face,
                                                                      size_t face_count,
                                                                      float* head,
                                                                      size_t head_count) {
    return runCall(swap, [&]() -> Error {
        const Eigen::Index n = swap->converter.engineVertexCount();
        if (Error error = checkHead(face, face_count)) return error;
        if (Error error = checkOutput(head, head_count, 3 * static_cast<size_t>(n), "the output"))
            return error;
        using Planar = CHeadConverter::PlanarVertices;
        swap->converter.swap(Eigen::Map<const Planar>(face, 3, kTemplateHeadVertexCount),
                             Eigen::Map<Planar>(head, 3, n));
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API const char* meridian_head_swap_last_error(
    const meridian_head_swap* swap) {
    return lastErrorOf(swap);
}
