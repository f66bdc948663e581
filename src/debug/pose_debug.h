// Debug entry point that places the template eye mesh with one pose and
// writes it as an OBJ.
#pragma once

#include <string>

#include <Eigen/Core>

namespace kestrel::meridian {

/// Relative to the model directory (plain concatenation).
inline constexpr const char* kTemplateEyeMeshFile = "/eyeball/color_eye/EyeNew.obj";

/// The rotation of reported eye angles (degrees, converted with 3.14 for
/// pi): about z by the first, about y by the negated second, about x by the
/// third, composed in that order as unit quaternions.
Eigen::Matrix3d reportedAnglesRotation(const double anglesDegrees[3]);

/// Reads modelDir + kTemplateEyeMeshFile, moves every vertex v to
/// scale * R * v + translation (R from reportedAnglesRotation) and writes
/// the file to `outPath` with its "v " lines replaced ("%f" each) and every
/// other line kept. A file that cannot be opened is reported as "can't open
/// <path>". Then prints the output path, R, the translation and the scale.
void writePosedEyeMesh(const std::string& modelDir, const double anglesDegrees[3],
                       const double translation[3], double scale, const std::string& outPath);

}  // namespace kestrel::meridian
