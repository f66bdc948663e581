// The tangent-frame handle: the fixed engine or a general one.
#include <memory>
#include <string>
#include <vector>

#include "capi/handle_support.h"
#include "tbn/tbn_engine_general.h"
#include "tbn/tbn_engine_std.h"

using namespace kestrel::meridian;
using namespace kestrel::meridian::capi;

struct meridian_tangent_frames {
    std::unique_ptr<TBNEngineStd> fixed;  ///< set for the fixed engine
    TBNEngineGeneral general;             ///< used when `fixed` is null
    LastError lastError;
    int threads = 0;  ///< 1 or 2, or 0 for frameThreadCount

    size_t outputVertexCount() const {
        return static_cast<size_t>(fixed ? TBNEngineStd::kHeadVertexCount
                                         : general.outputVertexCount());
    }
};

namespace {

/// The general engine's counts are 32-bit in the engine.
bool openGeneral(meridian_tangent_frames& frames, const char* templateObj,
                 const int32_t* taviToHead, size_t taviCount, const int32_t* headToTavi,
                 size_t outputCount, Error& error) {
    constexpr size_t kMaxCount = 0x7fffffff;
    if (taviCount > kMaxCount || outputCount > kMaxCount) {
        error = {ErrorCode::tooLarge, "", "an index list is longer than 2147483647 entries"};
        return false;
    }
    return frames.general.initialise(templateObj, taviToHead, static_cast<unsigned>(taviCount),
                                     headToTavi, static_cast<unsigned>(outputCount), error);
}

}  // namespace

extern "C" MERIDIAN_MODERN_API meridian_tangent_frames* meridian_tangent_frames_open(
    const char* model_dir) {
    return openHandle<meridian_tangent_frames>([&](meridian_tangent_frames& frames, Error& error) {
        error = checkModelDirectory(model_dir, {ModelTask::tangentFrames});
        if (error) return false;
        frames.fixed = std::make_unique<TBNEngineStd>();
        return frames.fixed->initialise(model_dir, error);
    });
}

extern "C" MERIDIAN_MODERN_API meridian_tangent_frames* meridian_tangent_frames_open_general(
    const char* template_obj, const int32_t* tavi_to_head, size_t tavi_count,
    const int32_t* head_to_tavi, size_t output_count) {
    return openHandle<meridian_tangent_frames>([&](meridian_tangent_frames& frames, Error& error) {
        error = checkPath(template_obj, "the template OBJ");
        if (!error && ((tavi_to_head == nullptr && tavi_count > 0) ||
                       (head_to_tavi == nullptr && output_count > 0)))
            error = {ErrorCode::invalidArgument, "", "an index list is NULL"};
        return !error && openGeneral(frames, template_obj, tavi_to_head, tavi_count, head_to_tavi,
                                     output_count, error);
    });
}

extern "C" MERIDIAN_MODERN_API meridian_tangent_frames* meridian_tangent_frames_open_general_files(
    const char* template_obj, const char* tavi_to_head_file, const char* head_to_tavi_file) {
    return openHandle<meridian_tangent_frames>([&](meridian_tangent_frames& frames, Error& error) {
        error = checkPath(template_obj, "the template OBJ");
        if (!error) error = checkPath(tavi_to_head_file, "the tavi-to-head file");
        if (!error) error = checkPath(head_to_tavi_file, "the head-to-tavi file");
        if (error) return false;
        std::vector<int> taviToHead, headToTavi;
        return readTangentFrameIndexFile(tavi_to_head_file, taviToHead, error) &&
               readTangentFrameIndexFile(head_to_tavi_file, headToTavi, error) &&
               openGeneral(frames, template_obj, taviToHead.data(), taviToHead.size(),
                           headToTavi.data(), headToTavi.size(), error);
    });
}

extern "C" MERIDIAN_MODERN_API void meridian_tangent_frames_close(meridian_tangent_frames* frames) {
    delete frames;
}

extern "C" MERIDIAN_MODERN_API size_t
meridian_tangent_frames_output_vertex_count(const meridian_tangent_frames* frames) {
    return frames == nullptr ? 0 : frames->outputVertexCount();
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_tangent_frames_set_thread_count(meridian_tangent_frames* frames, unsigned threads) {
    return runCall(frames, [&]() -> Error {
        if (threads > 2)
            return {ErrorCode::invalidArgument, "",
                    "threads: 0, 1 or 2, not " + std::to_string(threads)};
        frames->threads = static_cast<int>(threads);
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_tangent_frames_run(meridian_tangent_frames* frames, const float* head, size_t head_count,
                            float* out, size_t out_count) {
    return runCall(frames, [&]() -> Error {
        if (Error error = checkHead(head, head_count)) return error;
        if (Error error =
                checkOutput(out, out_count, 9 * frames->outputVertexCount(), "the output"))
            return error;
        if (frames->fixed)
            frames->fixed->computeFrames(head, out, frames->threads);
        else
            frames->general.computeFrames(head, out, frames->threads);
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API const char* meridian_tangent_frames_last_error(
    const meridian_tangent_frames* frames) {
    return lastErrorOf(frames);
}
