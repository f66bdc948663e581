// The process-wide registries and singletons of the C interface. Only the
// export functions in this folder touch them.
#pragma once

#include "api/registry.h"

class TBNEngineGeneral;

namespace kestrel::meridian {
class CBlendshapeEngine;
class CHeadConverter;
class TBNEngineStd;
class EyeballFitState;
class CKOVAEyeballAligner;
class CKOVAEyelashAligner;
class LandmarkModel;
}  // namespace kestrel::meridian

namespace kestrel::meridian::api {

Registry<CHeadConverter>& headConverters();
Registry<TBNEngineGeneral>& tangentFrameEngines();
Singleton<TBNEngineStd>& fixedTangentFrameEngine();
#if defined(MERIDIAN_WITH_RGBD)
Singleton<LandmarkModel>& landmarkModel();  // defined with the frame-selection exports
#endif

// Eyes: the plain eyeball task and the two aligner kinds.
Singleton<EyeballFitState>& eyeballFitState();
Registry<CKOVAEyeballAligner>& eyeballAligners();
Registry<CKOVAEyelashAligner>& eyelashAligners();
/// The blendshape state: made by every init, holding the engine when it
/// loaded.
struct BlendshapeState {
    std::unique_ptr<CBlendshapeEngine> engine;
};
Singleton<BlendshapeState>& blendshapeState();

}  // namespace kestrel::meridian::api
