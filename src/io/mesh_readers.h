// Text mesh readers (OBJ, ASCII PLY) and the OBJ vertex-line rewriter.
#pragma once

#include <string>
#include <string_view>

#include <Eigen/Core>

#include "common/error.h"

namespace kestrel::meridian {

/// Everything the OBJ reader keeps of a file. Every number is parsed as a
/// single-precision float and widened, so coordinates carry float precision.
/// Face indices are kept exactly as written (1-based for a standard OBJ).
struct ObjMeshData {
    Eigen::MatrixXd vertices;      ///< 3 by #V, one column per "v" record
    Eigen::MatrixXd texcoords;     ///< 2 by #T, one column per "vt" record
    Eigen::MatrixXd faces;         ///< 3 by #F vertex indices, one column per "f" record
    Eigen::MatrixXd textureFaces;  ///< 3 by #FT texture indices of "f" corners written a/b
};

/// Reads an OBJ as a stream of whitespace-separated tokens. "v", "vt" and
/// "f" switch the mode; every other token is data of the current mode (so
/// "vn" data lands in the preceding mode, and faces must be triangles). A
/// face token a/b/c contributes a to the faces and b to the texture faces.
/// A missing file gives four empty matrices; a kind of record the file does
/// not have gives an empty (0 by 0) matrix. A file above 256 MiB throws
/// InputRefused (io/input_limits.h) before it is read; one holding more than
/// 2^24 numbers throws it after the one pass over its text, which stores no
/// number past the bound.
ObjMeshData readObj(const std::string& path);

/// Same as readObj, over text already in memory; `source` names it in the
/// message of an InputRefused.
ObjMeshData parseObj(std::string_view text, const std::string& source);
ObjMeshData parseObj(std::string_view text);

/// What the PLY reader returns.
struct PlyMeshData {
    Eigen::MatrixXd vertices;  ///< 3 by #V: tokens 0..2 of each vertex line, full double precision
    Eigen::MatrixXd faces;     ///< 3 by #F: tokens 1..3 of each face line (0-based as written)
    Eigen::MatrixXd extra;  ///< 3 by #V: tokens 3..5 of each vertex line (normals, if any), else 0
};

/// Reads an ASCII PLY whose header has exactly `headerLines` lines (the
/// header grammar is not parsed: only "element vertex N" and "element face F"
/// lines among them are read). Lines are split at every single blank; lines
/// the body lacks read as zeros. A missing file gives empty matrices. A count
/// above 2^24, or above the file's size in bytes, throws InputRefused.
PlyMeshData readPly(const std::string& path, int headerLines);

/// Counts the header lines of a PLY file up to and including "end_header";
/// returns 0 when the file cannot be read or has no such line.
int countPlyHeaderLines(const std::string& path);

/// Vertex positions of the "v " lines of an OBJ, in file order, 3 by #V,
/// read with full double precision. A missing file gives 3 by 0.
Eigen::Matrix3Xd readObjVertexLines(const std::string& path);

/// Copies `templatePath` to `outPath` line by line, replacing the k-th line
/// that starts with "v " by "v x y z" of column k of `vertices` ("%f" each).
/// Vertex lines beyond vertices.cols() are copied unchanged. False with
/// `error` set when the template cannot be opened (cannotOpenMesh), the
/// output cannot be opened (cannotOpen) or not be written to the end
/// (writeFailed); error.path names the file.
bool rewriteObjVertexLines(const std::string& templatePath, const std::string& outPath,
                           const Eigen::Ref<const Eigen::Matrix3Xd>& vertices, Error& error);

}  // namespace kestrel::meridian
