// The eyeball fit and eye aligner handles.
#include <algorithm>
#include <memory>

#include "capi/handle_support.h"
#include "common/template_head.h"
#include "eyes/eye_tables.h"
#include "eyes/eyeball_aligner.h"
#include "eyes/eyeball_fit_state.h"
#include "eyes/eyelash_aligner.h"
#include "io/planar.h"

using namespace kestrel::meridian;
using namespace kestrel::meridian::capi;

struct meridian_eyeball_fit {
    EyeballFitState state;
    LastError lastError;
};

struct meridian_eye_aligner {
    std::unique_ptr<CKOVAEyeballAligner> aligner;  ///< an eyeball or an eyelash aligner
    LastError lastError;
};

namespace {

template <typename Aligner>
meridian_eye_aligner* openAligner(const char* modelDir) {
    return openHandle<meridian_eye_aligner>([&](meridian_eye_aligner& handle, Error& error) {
        error = checkPath(modelDir, "the model directory");
        if (error) return false;
        handle.aligner = std::make_unique<Aligner>();
        return handle.aligner->init(modelDir, error);
    });
}

}  // namespace

extern "C" MERIDIAN_MODERN_API meridian_eyeball_fit* meridian_eyeball_fit_open(
    const char* model_dir) {
    return openHandle<meridian_eyeball_fit>([&](meridian_eyeball_fit& fit, Error& error) {
        error = checkPath(model_dir, "the model directory");
        return !error && fit.state.load(model_dir, error);
    });
}

extern "C" MERIDIAN_MODERN_API void meridian_eyeball_fit_close(meridian_eyeball_fit* fit) {
    delete fit;
}

extern "C" MERIDIAN_MODERN_API size_t meridian_eyeball_fit_template_count(void) {
    return eyes::kTemplateCount;
}

extern "C" MERIDIAN_MODERN_API meridian_status meridian_eyeball_fit_run(meridian_eyeball_fit* fit,
                                                                        const float* head,
                                                                        size_t head_count,
                                                                        unsigned template_index,
                                                                        meridian_eye_poses* poses) {
    return runCall(fit, [&]() -> Error {
        if (Error error = checkHead(head, head_count)) return error;
        if (poses == nullptr) return {ErrorCode::invalidArgument, "", "the poses are NULL"};
        if (template_index >= static_cast<unsigned>(eyes::kTemplateCount))
            return {ErrorCode::invalidArgument, "",
                    "template " + std::to_string(template_index) + " does not exist (0..2)"};
        fit->state.fit(planarToVertices(head, kTemplateHeadVertexCount), template_index);
        const EyeballReport report = fit->state.report();
        std::copy_n(report.eye0Angles, 3, poses->angles_deg[0]);
        std::copy_n(report.eye1Angles, 3, poses->angles_deg[1]);
        std::copy_n(report.eye0Position, 3, poses->positions[0]);
        std::copy_n(report.eye1Position, 3, poses->positions[1]);
        poses->scale = report.scale;
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API const char* meridian_eyeball_fit_last_error(
    const meridian_eyeball_fit* fit) {
    return lastErrorOf(fit);
}

extern "C" MERIDIAN_MODERN_API meridian_eye_aligner* meridian_eye_aligner_open_eyeball(
    const char* model_dir) {
    return openAligner<CKOVAEyeballAligner>(model_dir);
}

extern "C" MERIDIAN_MODERN_API meridian_eye_aligner* meridian_eye_aligner_open_eyelash(
    const char* model_dir) {
    return openAligner<CKOVAEyelashAligner>(model_dir);
}

extern "C" MERIDIAN_MODERN_API void meridian_eye_aligner_close(meridian_eye_aligner* aligner) {
    delete aligner;
}

extern "C" MERIDIAN_MODERN_API size_t
meridian_eye_aligner_output_vertex_count(const meridian_eye_aligner* aligner) {
    return aligner == nullptr ? 0 : static_cast<size_t>(aligner->aligner->exportVertexCount());
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_eye_aligner_run(meridian_eye_aligner* aligner, const float* head, size_t head_count,
                         float* out, size_t out_count) {
    return runCall(aligner, [&]() -> Error {
        const auto count = static_cast<size_t>(aligner->aligner->exportVertexCount());
        if (Error error = checkHead(head, head_count)) return error;
        if (Error error = checkOutput(out, out_count, 3 * count, "the output")) return error;
        Eigen::Matrix3Xd result;
        // A mesh without vertices leaves `result` empty and writes nothing.
        aligner->aligner->apply(planarToVertices(head, kTemplateHeadVertexCount), result);
        if (static_cast<size_t>(result.cols()) == count) matrixToPlanar(result, out);
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API const char* meridian_eye_aligner_last_error(
    const meridian_eye_aligner* aligner) {
    return lastErrorOf(aligner);
}
