// Debug exports: head meshes read into caller arrays, and the template eye
// mesh written with one pose.
#include <iostream>
#include <string>

#include "api/engines.h"
#include "api/legacy_messages.h"
#include "debug/head_data.h"
#include "debug/pose_debug.h"
#include "eyes/eyeball_fit_state.h"
#include "meridian/meridian.h"

using kestrel::meridian::Error;
using kestrel::meridian::ErrorCode;
using kestrel::meridian::EyeballFitState;
using namespace kestrel::meridian::api;

namespace {

/// 1 when read; else the path and why (missing or incorrect), and 0.
int reportHeadRead(bool read, const Error& error) {
    if (read) return 1;
    if (error.code == ErrorCode::cannotOpenMesh)
        printPathMissing(error.path);
    else
        printIncorrect(error.path);
    return 0;
}

}  // namespace

extern "C" MERIDIAN_API int debug_get_head_data_from_ply(const char* ply_path, float* out) {
    if (ply_path == nullptr || out == nullptr) return 0;
    return guarded<int>(0, [&] {
        Error error;
        return reportHeadRead(kestrel::meridian::readHeadPly(ply_path, out, error), error);
    });
}

extern "C" MERIDIAN_API int debug_get_head_data_from_obj(const char* obj_path, float* out) {
    if (obj_path == nullptr || out == nullptr) return 0;
    return guarded<int>(0, [&] {
        Error error;
        return reportHeadRead(kestrel::meridian::readHeadObj(obj_path, out, error), error);
    });
}

extern "C" MERIDIAN_API void debug_apply_one_pose_save_obj(const double* angles_deg,
                                                           const double* translation, double scale,
                                                           const char* out_obj_path) {
    if (angles_deg == nullptr || translation == nullptr || out_obj_path == nullptr) return;
    guarded<int>(0, [&] {
        // The template eye mesh lives in the eyeball task's model directory.
        const EyeballFitState* state = eyeballFitState().get();
        if (state == nullptr) return 0;
        Error error;
        if (!kestrel::meridian::writePosedEyeMesh(state->modelDir(), angles_deg, translation, scale,
                                                  out_obj_path, error) &&
            error.code != ErrorCode::writeFailed)
            printLine("can't open " + error.path);
        // The pose is printed whether or not the file was written.
        const Eigen::Matrix3d rotation = kestrel::meridian::reportedAnglesRotation(angles_deg);
        const Eigen::Vector3d offset(translation[0], translation[1], translation[2]);
        std::cout << " --------------   " << out_obj_path << ": -------------- " << std::endl;
        std::cout << rotation << std::endl;
        std::cout << " tt: " << offset.transpose() << std::endl;
        std::cout << " scale: " << scale << std::endl;
        return 1;
    });
}
