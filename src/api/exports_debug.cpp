// Debug exports: head meshes read into caller arrays, and the template eye
// mesh written with one pose.
#include <string>

#include "api/engines.h"
#include "debug/head_data.h"
#include "debug/pose_debug.h"
#include "eyes/eyeball_fit_state.h"
#include "meridian/meridian.h"

using kestrel::meridian::EyeballFitState;
using namespace kestrel::meridian::api;

extern "C" MERIDIAN_API int debug_get_head_data_from_ply(const char* ply_path, float* out) {
    if (ply_path == nullptr || out == nullptr) return 0;
    return guarded<int>(0, [&] { return kestrel::meridian::readHeadPly(ply_path, out); });
}

extern "C" MERIDIAN_API int debug_get_head_data_from_obj(const char* obj_path, float* out) {
    if (obj_path == nullptr || out == nullptr) return 0;
    return guarded<int>(0, [&] { return kestrel::meridian::readHeadObj(obj_path, out); });
}

extern "C" MERIDIAN_API void debug_apply_one_pose_save_obj(const double* angles_deg,
                                                           const double* translation, double scale,
                                                           const char* out_obj_path) {
    if (angles_deg == nullptr || translation == nullptr || out_obj_path == nullptr) return;
    guarded<int>(0, [&] {
        // The template eye mesh lives in the eyeball task's model directory.
        const EyeballFitState* state = eyeballFitState().get();
        if (state == nullptr) return 0;
        kestrel::meridian::writePosedEyeMesh(state->modelDir(), angles_deg, translation, scale,
                                             out_obj_path);
        return 1;
    });
}
