// Head swap exports.
#include <string>

#include "api/engines.h"
#include "api/legacy_messages.h"
#include "headswap/head_converter.h"
#include "meridian/meridian.h"

using kestrel::meridian::CHeadConverter;
using namespace kestrel::meridian::api;

extern "C" MERIDIAN_API meridian_handle AI_system_init_swaphead(const char* model_dir) {
    if (model_dir == nullptr) return 0;
    return guarded<Handle>(0, [&] {
        return headConverters().registerAndInit([&](CHeadConverter& converter) {
            kestrel::meridian::Error error;
            if (converter.initialise(std::string(model_dir), error)) return true;
            printModelFileError(error);
            return false;
        });
    });
}

extern "C" MERIDIAN_API int32_t AI_swap_head(meridian_handle handle, const float* face_in,
                                             float* head_out, int64_t /*count*/) {
    if (face_in == nullptr || head_out == nullptr) return 0;
    return guarded<int32_t>(0, [&]() -> int32_t {
        const auto converter = headConverters().find(handle);
        if (!converter) return 0;
        using Planar = CHeadConverter::PlanarVertices;
        const Eigen::Index n = converter->engineVertexCount();
        converter->swap(Eigen::Map<const Planar>(face_in, 3, CHeadConverter::kTemplateVertexCount),
                        Eigen::Map<Planar>(head_out, 3, n));
        return static_cast<int32_t>(n);
    });
}
