// Tangent-frame exports: the fixed engine (a singleton) and the general
// engines (registered, addressed by handle).
#include <memory>
#include <string>
#include <vector>

#include "api/engines.h"
#include "meridian/meridian.h"
#include "tbn/tbn_engine_general.h"
#include "tbn/tbn_engine_std.h"

using kestrel::meridian::TBNEngineStd;
using namespace kestrel::meridian::api;

namespace {

Handle registerGeneralEngine(const char* headobj_path, const int* idx_tavi2head,
                             unsigned n_tavi2head, const int* idx_head2tavi, unsigned n_head2tavi) {
    return guarded<Handle>(0, [&] {
        return tangentFrameEngines().registerAndInit([&](TBNEngineGeneral& engine) {
            return engine.initialise(std::string(headobj_path), idx_tavi2head, n_tavi2head,
                                     idx_head2tavi, n_head2tavi) == TBNEngineGeneral::kOk;
        });
    });
}

}  // namespace

extern "C" MERIDIAN_API int32_t AI_system_init_TBN(const char* model_dir) {
    if (model_dir == nullptr) return -1;
    return guarded<int32_t>(-1, [&] {
        TBNEngineStd& engine = fixedTangentFrameEngine().replace(std::make_unique<TBNEngineStd>());
        return engine.initialise(std::string(model_dir));
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
        if (!kestrel::meridian::readTangentFrameIndexFile(tavi2head_file, taviToHead)) return 0;
        if (!kestrel::meridian::readTangentFrameIndexFile(head2tavi_file, headToTavi)) return 0;
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
        return engine->computeFrames(head_vertices, tbn_out);
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
