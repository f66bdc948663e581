#include "capi/handle_support.h"

#include <climits>
#include <cmath>
#include <cstdint>

#include "common/template_head.h"
#include "meridian/version.h"

namespace kestrel::meridian::capi {

Error errorOf(const InputError& refused) {
    const std::string& path = refused.path();
    auto endsWith = [&](const char* suffix) {
        const std::string tail(suffix);
        return path.size() >= tail.size() &&
               path.compare(path.size() - tail.size(), tail.size(), tail) == 0;
    };
    ErrorCode code = ErrorCode::badContent;
    switch (refused.fault()) {
        case InputFault::missingFile:
        case InputFault::unreadable:
            code = endsWith(".corresp")                   ? ErrorCode::cannotOpenCorrespondence
                   : endsWith(".txt")                     ? ErrorCode::cannotOpenIndexList
                   : endsWith(".obj") || endsWith(".ply") ? ErrorCode::cannotOpenMesh
                                                          : ErrorCode::cannotOpen;
            break;
        case InputFault::truncated:
            code = ErrorCode::tooShort;
            break;
        case InputFault::indexOutOfRange:
            code = ErrorCode::indexOutOfRange;
            break;
        case InputFault::writeFailed:
        case InputFault::notRegularTarget:
            code = ErrorCode::writeFailed;
            break;
        default:
            code = ErrorCode::badContent;
            break;
    }
    return {code, path, refused.what()};
}

Error checkModelDirectory(const char* modelDir, std::initializer_list<ModelTask> tasks) {
    if (Error error = checkPath(modelDir, "the model directory")) return error;
    checkModel(modelDir, tasks);  // throws InputError, turned into the error by guarded()
    return {};
}

Error checkHeadBatch(const float* heads, size_t count, size_t batchSize,
                     size_t outputFloatsPerHead) {
    constexpr size_t headFloats = kTemplateHeadFloats;
    if (batchSize == 0) return {ErrorCode::invalidArgument, "", "the batch has no heads"};
    if (batchSize > static_cast<size_t>(INT_MAX) || batchSize > SIZE_MAX / outputFloatsPerHead)
        return {ErrorCode::invalidArgument, "",
                "a batch of " + std::to_string(batchSize) + " heads is too large"};
    if (heads == nullptr) return {ErrorCode::invalidArgument, "", "the heads are NULL"};
    if (count != batchSize * headFloats)
        return {ErrorCode::invalidArgument, "",
                "the heads have " + std::to_string(count) + " floats; " +
                    std::to_string(batchSize) + " template heads have " +
                    std::to_string(batchSize * headFloats) + " (3 x 20481 each)"};
    for (size_t k = 0; k < batchSize; ++k)
        if (Error error = checkHead(heads + k * headFloats, headFloats)) {
            error.message = "head " + std::to_string(k) + ": " + error.message;
            return error;
        }
    return {};
}

Error& openError() {
    thread_local Error error;
    return error;
}

Error checkPath(const char* path, const char* what) {
    if (path == nullptr) return {ErrorCode::invalidArgument, "", std::string(what) + " is NULL"};
    return {};
}

Error checkHead(const float* head, size_t count) {
    constexpr size_t expected = kTemplateHeadFloats;
    if (head == nullptr) return {ErrorCode::invalidArgument, "", "the head is NULL"};
    if (count != expected)
        return {ErrorCode::invalidArgument, "",
                "the head has " + std::to_string(count) + " floats; a template head has " +
                    std::to_string(expected) + " (3 x 20481)"};
    for (size_t i = 0; i < count; ++i)
        if (!std::isfinite(head[i]))
            return {ErrorCode::invalidArgument, "",
                    "the head's coordinate " + std::to_string(i / kTemplateHeadVertexCount) +
                        " of vertex " + std::to_string(i % kTemplateHeadVertexCount) +
                        " is not finite"};
    return {};
}

Error checkOutput(const void* out, size_t count, size_t expected, const char* what) {
    if (out == nullptr) return {ErrorCode::invalidArgument, "", std::string(what) + " is NULL"};
    if (count != expected)
        return {ErrorCode::invalidArgument, "",
                std::string(what) + " has room for " + std::to_string(count) +
                    " floats; the call writes " + std::to_string(expected)};
    return {};
}

}  // namespace kestrel::meridian::capi

using namespace kestrel::meridian;

extern "C" MERIDIAN_MODERN_API const char* meridian_version(void) {
    return MERIDIAN_VERSION_STRING;
}

extern "C" MERIDIAN_MODERN_API size_t meridian_template_vertex_count(void) {
    return kTemplateHeadVertexCount;
}

extern "C" MERIDIAN_MODERN_API meridian_status meridian_open_status(void) {
    return capi::statusOf(capi::openError());
}

extern "C" MERIDIAN_MODERN_API const char* meridian_open_error(void) {
    return capi::openError().message.c_str();
}
