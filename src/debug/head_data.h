// Debug entry points that read a head mesh file into a caller's planar
// float array, the layout the run calls take.
#pragma once

#include <string>

#include <Eigen/Core>

namespace kestrel::meridian {

/// Reads an ASCII PLY with exactly 7 header lines and writes its vertices
/// planar to `out` (3 * #V floats: all x, all y, all z). A file that cannot
/// be opened prints the path followed by " 路径不存在" (GBK) and gives 0,
/// otherwise 1.
int readHeadPly(const std::string& path, float* out);

/// Reads an OBJ and passes its vertex table to copyHeadVertices.
int readHeadObj(const std::string& path, float* out);

/// Writes an R by C vertex table with R = 3 (3 by #V) or R = 20481 (one row
/// per vertex) to `out`, element (r, c) at r * C + c, and gives 1. Any other
/// row count prints `path` followed by " 不正确" (GBK), writes nothing and
/// gives 0.
int copyHeadVertices(const Eigen::MatrixXd& vertices, const std::string& path, float* out);

}  // namespace kestrel::meridian
