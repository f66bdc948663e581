#include "debug/pose_debug.h"

#include <iostream>

#include "eyes/eye_geometry.h"
#include "io/mesh_readers.h"

namespace kestrel::meridian {

namespace {

constexpr double kPi314 = 3.14;

}  // namespace

Eigen::Matrix3d reportedAnglesRotation(const double anglesDegrees[3]) {
    const double first = anglesDegrees[0] * kPi314 / 180.0;
    const double second = -anglesDegrees[1] * kPi314 / 180.0;
    const double third = anglesDegrees[2] * kPi314 / 180.0;
    return rotationZYX(first, second, third);
}

void writePosedEyeMesh(const std::string& modelDir, const double anglesDegrees[3],
                       const double translation[3], double scale, const std::string& outPath) {
    const Eigen::Matrix3d rotation = reportedAnglesRotation(anglesDegrees);
    const Eigen::Vector3d offset(translation[0], translation[1], translation[2]);
    const std::string templatePath = modelDir + kTemplateEyeMeshFile;
    Eigen::Matrix3Xd vertices = readObjVertexLines(templatePath);
    for (Eigen::Index v = 0; v < vertices.cols(); ++v)
        vertices.col(v) = scale * (rotation * vertices.col(v)) + offset;
    rewriteObjVertexLines(templatePath, outPath, vertices);

    std::cout << " --------------   " << outPath << ": -------------- " << std::endl;
    std::cout << rotation << std::endl;
    std::cout << " tt: " << offset.transpose() << std::endl;
    std::cout << " scale: " << scale << std::endl;
}

}  // namespace kestrel::meridian
