#include "debug/pose_debug.h"

#include "common/model_paths.h"
#include "common/template_head.h"
#include "eyes/eye_geometry.h"
#include "io/mesh_readers.h"

namespace kestrel::meridian {

Eigen::Matrix3d reportedAnglesRotation(const double anglesDegrees[3]) {
    const double first = anglesDegrees[0] * kPi314 / 180.0;
    const double second = -anglesDegrees[1] * kPi314 / 180.0;
    const double third = anglesDegrees[2] * kPi314 / 180.0;
    return rotationZYX(first, second, third);
}

bool writePosedEyeMesh(const std::string& modelDir, const double anglesDegrees[3],
                       const double translation[3], double scale, const std::string& outPath,
                       Error& error) {
    const Eigen::Matrix3d rotation = reportedAnglesRotation(anglesDegrees);
    const Eigen::Vector3d offset(translation[0], translation[1], translation[2]);
    const std::string templatePath = model_files::templateEyeMeshPath(modelDir);
    Eigen::Matrix3Xd vertices = readObjVertexLines(templatePath);
    for (Eigen::Index v = 0; v < vertices.cols(); ++v)
        vertices.col(v) = scale * (rotation * vertices.col(v)) + offset;
    return rewriteObjVertexLines(templatePath, outPath, vertices, error);
}

}  // namespace kestrel::meridian
