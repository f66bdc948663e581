// The process-wide registries and singletons of the C interface. Only the
// export functions in this folder touch them.
#pragma once

#include "api/registry.h"

class TBNEngineGeneral;

namespace kestrel::meridian {
class CBlendshapeEngine;
class CHeadConverter;
class TBNEngineStd;
}  // namespace kestrel::meridian

namespace kestrel::meridian::api {

Registry<CHeadConverter>& headConverters();
Registry<TBNEngineGeneral>& tangentFrameEngines();
Singleton<TBNEngineStd>& fixedTangentFrameEngine();
Singleton<CBlendshapeEngine>& blendshapeEngine();
/// The 16-bit word kept beside the blendshape engine (0 after init).
Singleton<uint16_t>& blendshapeFlagWord();

}  // namespace kestrel::meridian::api
