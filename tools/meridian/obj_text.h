// OBJ outputs of the tool, built in memory so that they are written
// atomically in one go.
#pragma once

#include <string>

#include <Eigen/Core>

namespace meridian::cli {

/// "v x y z" lines ("%.9g") of the columns of `vertices` (3 x N).
std::string vertexObjText(const Eigen::Matrix3Xd& vertices);

/// The text of the OBJ `templatePath` with its k-th "v " line replaced by
/// "v x y z" ("%f") of column k of `vertices` (3 x N); vertex lines beyond N
/// and every other line are kept. Throws CommandError when the template
/// cannot be read.
std::string objWithVertexLines(const std::string& templatePath, const Eigen::Matrix3Xd& vertices);

}  // namespace meridian::cli
