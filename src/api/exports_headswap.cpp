// Head swap exports.
#include <string>

#include "api/engines.h"
#include "headswap/head_converter.h"
#include "io/planar.h"
#include "meridian/meridian.h"

using kestrel::meridian::CHeadConverter;
using namespace kestrel::meridian::api;

extern "C" MERIDIAN_API meridian_handle AI_system_init_swaphead(const char* model_dir) {
    if (model_dir == nullptr) return 0;
    return guarded<Handle>(0, [&] {
        return headConverters().registerAndInit(
            [&](CHeadConverter& converter) { return converter.initialise(std::string(model_dir)); });
    });
}

extern "C" MERIDIAN_API int32_t AI_swap_head(meridian_handle handle, const float* face_in,
                                             float* head_out, int64_t /*count*/) {
    if (face_in == nullptr || head_out == nullptr) return 0;
    return guarded<int32_t>(0, [&]() -> int32_t {
        const auto converter = headConverters().find(handle);
        if (!converter) return 0;
        const Eigen::Matrix3Xd face =
            kestrel::meridian::planarToVertices(face_in, CHeadConverter::kTemplateVertexCount);
        const Eigen::Matrix3Xd head = converter->swap(face);
        kestrel::meridian::matrixToPlanar(head, head_out);
        return static_cast<int32_t>(head.cols());
    });
}
