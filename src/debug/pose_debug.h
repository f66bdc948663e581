// Debug entry point that places the template eye mesh with one pose and
// writes it as an OBJ.
#pragma once

#include <string>

#include <Eigen/Core>

#include "common/error.h"

namespace kestrel::meridian {

/// The rotation of reported eye angles (degrees, converted with 3.14 for
/// pi): about z by the first, about y by the negated second, about x by the
/// third, composed in that order as unit quaternions.
Eigen::Matrix3d reportedAnglesRotation(const double anglesDegrees[3]);

/// Reads model_files::templateEyeMeshPath(modelDir), moves every vertex v to
/// scale * R * v + translation (R from reportedAnglesRotation) and writes
/// the file to `outPath` with its "v " lines replaced ("%f" each) and every
/// other line kept. False with `error` set (see rewriteObjVertexLines) when
/// a file cannot be opened.
bool writePosedEyeMesh(const std::string& modelDir, const double anglesDegrees[3],
                       const double translation[3], double scale, const std::string& outPath,
                       Error& error);

}  // namespace kestrel::meridian
