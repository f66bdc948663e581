// Tangent-frame exports: the fixed engine (a singleton) and the general
// engines (registered, addressed by handle).
#include <memory>
#include <string>
#include <vector>

#include "api/engines.h"
#include "api/legacy_messages.h"
#include "meridian/meridian.h"
#include "tbn/tbn_engine_general.h"
#include "tbn/tbn_engine_std.h"

using kestrel::meridian::Error;
using kestrel::meridian::ErrorCode;
using kestrel::meridian::TBNEngineStd;
using namespace kestrel::meridian::api;

namespace {

/// The general engine's load failures, each in its own words.
void printGeneralEngineError(const Error& error, unsigned n_head2tavi) {
    const std::string failed = "Failed to init TBN calculation";
    switch (error.code) {
        case ErrorCode::badContent:
            printLine(failed + " for invalid headobj: " + error.path);
            return;
        case ErrorCode::tooLarge:
            printLine(failed + " for invalid idx_head2tavi count " + std::to_string(n_head2tavi));
            return;
        case ErrorCode::invalidArgument:
            printLine(failed + " for invalid idx_tavi2head!");
            return;
        default:
            printLine(failed + ": " + error.message);
    }
}

bool readIndexFile(const char* path, std::vector<int>& indices) {
    Error error;
    if (kestrel::meridian::readTangentFrameIndexFile(path, indices, error)) return true;
    printLine("Invalid index file: " + error.path);
    return false;
}

Handle registerGeneralEngine(const char* headobj_path, const int* idx_tavi2head,
                             unsigned n_tavi2head, const int* idx_head2tavi, unsigned n_head2tavi) {
    return guarded<Handle>(0, [&] {
        return tangentFrameEngines().registerAndInit([&](TBNEngineGeneral& engine) {
            Error error;
            if (engine.initialise(std::string(headobj_path), idx_tavi2head, n_tavi2head,
                                  idx_head2tavi, n_head2tavi, error))
                return true;
            printGeneralEngineError(error, n_head2tavi);
            return false;
        });
    });
}

}  // namespace

extern "C" MERIDIAN_API int32_t AI_system_init_TBN(const char* model_dir) {
    if (model_dir == nullptr) return -1;
    return guarded<int32_t>(-1, [&] {
        TBNEngineStd& engine = fixedTangentFrameEngine().replace(std::make_unique<TBNEngineStd>());
        Error error;
        if (engine.initialise(std::string(model_dir), error)) return 1;
        if (error.code == ErrorCode::badContent)
            printLine(error.path + "not exist! initialize TBN failed!");
        else
            printLine(error.message + "; initialize TBN failed!");
        return -1;
    });
}

extern "C" MERIDIAN_API meridian_handle AI_system_init_TBN_g(const char* headobj_path,
                                                             const int* idx_tavi2head,
                                                             unsigned n_tavi2head,
                                                             const int* idx_head2tavi,
                                                             unsigned n_head2tavi) {
    if (headobj_path == nullptr || idx_tavi2head == nullptr || idx_head2tavi == nullptr) return 0;
    return registerGeneralEngine(headobj_path, idx_tavi2head, n_tavi2head, idx_head2tavi,
                                 n_head2tavi);
}

extern "C" MERIDIAN_API meridian_handle AI_system_init_TBN_g2(const char* headobj_path,
                                                              const char* tavi2head_file,
                                                              const char* head2tavi_file) {
    if (headobj_path == nullptr || tavi2head_file == nullptr || head2tavi_file == nullptr) return 0;
    return guarded<Handle>(0, [&]() -> Handle {
        std::vector<int> taviToHead;
        std::vector<int> headToTavi;
        if (!readIndexFile(tavi2head_file, taviToHead)) return 0;
        if (!readIndexFile(head2tavi_file, headToTavi)) return 0;
        // An empty list may have no storage at all; it is still a list.
        return registerGeneralEngine(headobj_path, taviToHead.data(),
                                     static_cast<unsigned>(taviToHead.size()), headToTavi.data(),
                                     static_cast<unsigned>(headToTavi.size()));
    });
}

extern "C" MERIDIAN_API int32_t AI_get_TBN(const float* head_vertices, float* tbn_out) {
    if (head_vertices == nullptr || tbn_out == nullptr) return -1;
    return guarded<int32_t>(-1, [&] {
        const TBNEngineStd* engine = fixedTangentFrameEngine().get();
        if (engine == nullptr) return -1;
        engine->computeFrames(head_vertices, tbn_out);
        return 1;
    });
}

extern "C" MERIDIAN_API int32_t AI_get_TBN_g(meridian_handle handle, const float* head_vertices,
                                             float* tbn_out) {
    if (head_vertices == nullptr || tbn_out == nullptr) return 0;
    return guarded<int32_t>(0, [&] {
        if (const auto engine = tangentFrameEngines().find(handle))
            engine->computeFrames(head_vertices, tbn_out);
        return 0;
    });
}
