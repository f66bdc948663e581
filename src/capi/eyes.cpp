// The eyeball fit and eye aligner handles.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <string>

#include "capi/handle_support.h"
#include "common/template_head.h"
#include "debug/pose_debug.h"
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
meridian_eye_aligner* openAligner(const char* modelDir, ModelTask task) {
    return openHandle<meridian_eye_aligner>([&](meridian_eye_aligner& handle, Error& error) {
        error = checkModelDirectory(modelDir, {task});
        if (error) return false;
        handle.aligner = std::make_unique<Aligner>();
        return handle.aligner->init(modelDir, error);
    });
}

}  // namespace

extern "C" MERIDIAN_MODERN_API meridian_eyeball_fit* meridian_eyeball_fit_open(
    const char* model_dir) {
    return openHandle<meridian_eyeball_fit>([&](meridian_eyeball_fit& fit, Error& error) {
        error = checkModelDirectory(model_dir, {ModelTask::eyeballFit});
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

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_eyeball_fit_write_posed_eye(meridian_eyeball_fit* fit, const double* angles_deg,
                                     const double* position, double scale, const char* path) {
    return runCall(fit, [&]() -> Error {
        if (angles_deg == nullptr || position == nullptr)
            return {ErrorCode::invalidArgument, "", "the angles or the position are NULL"};
        if (Error error = checkPath(path, "the path")) return error;
        if (!std::isfinite(scale) || !std::isfinite(angles_deg[0]) ||
            !std::isfinite(angles_deg[1]) || !std::isfinite(angles_deg[2]) ||
            !std::isfinite(position[0]) || !std::isfinite(position[1]) ||
            !std::isfinite(position[2]))
            return {ErrorCode::invalidArgument, "", "the pose is not finite"};
        // Written beside the target, then renamed over it.
        const std::filesystem::path target(path);
        const std::filesystem::path partial =
            target.parent_path() / ("." + target.filename().string() + ".partial");
        Error error;
        if (!writePosedEyeMesh(fit->state.modelDir(), angles_deg, position, scale, partial.string(),
                               error)) {
            std::error_code ignored;
            std::filesystem::remove(partial, ignored);
            if (error.path == partial.string())
                error = {error.code, path, "cannot write " + std::string(path)};
            return error;
        }
        std::error_code renamed;
        std::filesystem::rename(partial, target, renamed);
        if (renamed) {
            std::error_code ignored;
            std::filesystem::remove(partial, ignored);
            return {ErrorCode::writeFailed, path,
                    "cannot write " + std::string(path) + ": " + renamed.message()};
        }
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API const char* meridian_eyeball_fit_last_error(
    const meridian_eyeball_fit* fit) {
    return lastErrorOf(fit);
}

extern "C" MERIDIAN_MODERN_API meridian_eye_aligner* meridian_eye_aligner_open_eyeball(
    const char* model_dir) {
    return openAligner<CKOVAEyeballAligner>(model_dir, ModelTask::eyeballAligner);
}

extern "C" MERIDIAN_MODERN_API meridian_eye_aligner* meridian_eye_aligner_open_eyelash(
    const char* model_dir) {
    return openAligner<CKOVAEyelashAligner>(model_dir, ModelTask::eyelashAligner);
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
