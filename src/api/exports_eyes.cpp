// Eye exports: the plain eyeball task (a singleton) and the eyeball and
// eyelash aligners (registered, addressed by handle). One run function
// serves both aligner kinds under two export names.
#include <algorithm>
#include <memory>
#include <string>

#include "api/engines.h"
#include "api/legacy_messages.h"
#include "eyes/eye_tables.h"
#include "eyes/eyeball_aligner.h"
#include "eyes/eyeball_fit_state.h"
#include "eyes/eyelash_aligner.h"
#include "io/planar.h"
#include "meridian/meridian.h"

using kestrel::meridian::CKOVAEyeballAligner;
using kestrel::meridian::CKOVAEyelashAligner;
using kestrel::meridian::Error;
using kestrel::meridian::ErrorCode;
using kestrel::meridian::EyeballFitState;
using kestrel::meridian::EyeballReport;
using namespace kestrel::meridian::api;

namespace {

constexpr Eigen::Index kHeadVertexCount = kestrel::meridian::eyes::kHeadVertexCount;

// An aligner of either kind; a handle of any other registry finds nothing.
std::shared_ptr<const CKOVAEyeballAligner> findAligner(Handle handle) {
    if (auto eyeball = eyeballAligners().find(handle)) return eyeball;
    return eyelashAligners().find(handle);
}

template <typename Aligner>
Handle registerAligner(Registry<Aligner>& registry, const char* model_dir) {
    if (model_dir == nullptr) return 0;
    return guarded<Handle>(0, [&] {
        return registry.registerAndInit([&](Aligner& aligner) {
            Error error;
            if (aligner.init(std::string(model_dir), error)) return true;
            printModelFileError(error);
            return false;
        });
    });
}

}  // namespace

extern "C" MERIDIAN_API int AI_system_init_eyeball(const char* model_dir) {
    if (model_dir == nullptr) return 0;
    return guarded<int>(0, [&] {
        EyeballFitState& state = eyeballFitState().replace(std::make_unique<EyeballFitState>());
        Error error;
        if (state.load(std::string(model_dir), error)) return 1;
        if (error.code == ErrorCode::cannotOpenMesh)
            printPathMissing(error.path);
        else
            printLine(error.message);
        return 0;
    });
}

extern "C" MERIDIAN_API int AI_add_eyeball(const float* head_vertices, unsigned template_index,
                                           double* eye0_angles, double* eye1_angles,
                                           double* eye0_position, double* eye1_position,
                                           double* eye_scale) {
    if (head_vertices == nullptr || eye0_angles == nullptr || eye1_angles == nullptr ||
        eye0_position == nullptr || eye1_position == nullptr || eye_scale == nullptr)
        return 0;
    return guarded<int>(0, [&] {
        EyeballFitState* state = eyeballFitState().get();
        if (state == nullptr || !state->isLoaded() ||
            template_index >= static_cast<unsigned>(kestrel::meridian::eyes::kTemplateCount))
            return 0;
        state->fit(kestrel::meridian::planarToVertices(head_vertices, kHeadVertexCount),
                   template_index);
        const EyeballReport report = state->report();
        std::copy_n(report.eye0Angles, 3, eye0_angles);
        std::copy_n(report.eye1Angles, 3, eye1_angles);
        std::copy_n(report.eye0Position, 3, eye0_position);
        std::copy_n(report.eye1Position, 3, eye1_position);
        *eye_scale = report.scale;
        return 1;
    });
}

extern "C" MERIDIAN_API meridian_handle AI_system_init_eyeball_kova(const char* model_dir) {
    return registerAligner(eyeballAligners(), model_dir);
}

extern "C" MERIDIAN_API meridian_handle AI_system_init_eyelash_kova(const char* model_dir) {
    return registerAligner(eyelashAligners(), model_dir);
}

extern "C" MERIDIAN_API int32_t AI_add_eyeball_kova(meridian_handle handle,
                                                    const float* head_vertices, float* out_vertices,
                                                    int64_t /*count*/) {
    if (head_vertices == nullptr || out_vertices == nullptr) return 0;
    return guarded<int32_t>(0, [&]() -> int32_t {
        const auto aligner = findAligner(handle);
        if (!aligner) return 0;
        Eigen::Matrix3Xd result;
        const int status = aligner->apply(
            kestrel::meridian::planarToVertices(head_vertices, kHeadVertexCount), result);
        kestrel::meridian::matrixToPlanar(result, out_vertices);
        return status;
    });
}

// The eyelash name is the same entry point (one address); on Windows the
// module definition file adds the second name.
#if !defined(_WIN32)
extern "C" MERIDIAN_API int32_t AI_add_eyelash_kova(meridian_handle handle,
                                                    const float* head_vertices, float* out_vertices,
                                                    int64_t count)
    __attribute__((alias("AI_add_eyeball_kova")));
#endif
