// Ownership of every engine and AI_system_over.
#include "api/engines.h"
#include "blendshape/blendshape_engine.h"
#include "eyes/eyeball_aligner.h"
#include "eyes/eyeball_fit_state.h"
#include "eyes/eyelash_aligner.h"
#include "headswap/head_converter.h"
#include "meridian/meridian.h"
#if defined(MERIDIAN_WITH_RGBD)
#include "rgbd/landmark_model.h"
#endif
#include "tbn/tbn_engine_general.h"
#include "tbn/tbn_engine_std.h"

namespace kestrel::meridian::api {

Registry<CHeadConverter>& headConverters() {
    static Registry<CHeadConverter> registry;
    return registry;
}

Registry<TBNEngineGeneral>& tangentFrameEngines() {
    static Registry<TBNEngineGeneral> registry;
    return registry;
}

Singleton<TBNEngineStd>& fixedTangentFrameEngine() {
    static Singleton<TBNEngineStd> engine;
    return engine;
}

Singleton<EyeballFitState>& eyeballFitState() {
    static Singleton<EyeballFitState> state;
    return state;
}

Registry<CKOVAEyeballAligner>& eyeballAligners() {
    static Registry<CKOVAEyeballAligner> registry;
    return registry;
}

Registry<CKOVAEyelashAligner>& eyelashAligners() {
    static Registry<CKOVAEyelashAligner> registry;
    return registry;
}

Singleton<BlendshapeState>& blendshapeState() {
    static Singleton<BlendshapeState> state;
    return state;
}

}  // namespace kestrel::meridian::api

using namespace kestrel::meridian::api;

extern "C" MERIDIAN_API int AI_system_over(void) {
    // Singletons first, then the registries, in this order.
    eyeballFitState().reset();
    fixedTangentFrameEngine().reset();
    blendshapeState().reset();
#if defined(MERIDIAN_WITH_RGBD)
    landmarkModel().reset();  // the frame buckets stay until AI_Choose4RGBD_clear
#endif
    tangentFrameEngines().clear();
    eyeballAligners().clear();
    eyelashAligners().clear();
    headConverters().clear();
    return 1;
}
