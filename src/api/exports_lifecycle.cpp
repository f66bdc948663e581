// Ownership of every engine and AI_system_over.
#include "api/engines.h"
#include "blendshape/blendshape_engine.h"
#include "headswap/head_converter.h"
#include "meridian/meridian.h"
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

Singleton<BlendshapeState>& blendshapeState() {
    static Singleton<BlendshapeState> state;
    return state;
}

Singleton<uint16_t>& blendshapeFlagWord() {
    static Singleton<uint16_t> word;
    return word;
}

}  // namespace kestrel::meridian::api

using namespace kestrel::meridian::api;

extern "C" MERIDIAN_API int AI_system_over(void) {
    // Singletons first, then the registries, in this order.
    fixedTangentFrameEngine().reset();
    blendshapeState().reset();
    blendshapeFlagWord().reset();
    tangentFrameEngines().clear();
    headConverters().clear();
    return 1;
}
