// Debug entry points that read a head mesh file into a caller's planar
// float array, the layout the run calls take.
#pragma once

#include <string>

#include <Eigen/Core>

#include "common/error.h"

namespace kestrel::meridian {

/// Reads an ASCII PLY with exactly 7 header lines and writes its vertices
/// planar to `out` (3 * #V floats: coordinate r of vertex j at r * #V + j).
/// False with a cannotOpenMesh error when the file cannot be opened.
bool readHeadPly(const std::string& path, float* out, Error& error);

/// Reads an OBJ and passes its vertex table to copyHeadVertices.
bool readHeadObj(const std::string& path, float* out, Error& error);

/// Writes an R by C vertex table with R = 3 (3 by #V) or R = 20481 (one row
/// per vertex) to `out`, element (r, c) at r * C + c. Any other row count
/// writes nothing and gives false with a badContent error naming `path`.
bool copyHeadVertices(const Eigen::MatrixXd& vertices, const std::string& path, float* out,
                      Error& error);

}  // namespace kestrel::meridian
