#include "debug/head_data.h"

#include <fstream>

#include "common/template_head.h"
#include "io/mesh_readers.h"
#include "io/planar.h"

namespace kestrel::meridian {

namespace {

constexpr int kHeadPlyHeaderLines = 7;

}  // namespace

bool readHeadPly(const std::string& path, float* out, Error& error) {
    if (!std::ifstream(path)) {
        error = {ErrorCode::cannotOpenMesh, path, "cannot open " + path};
        return false;
    }
    matrixToPlanar(readPly(path, kHeadPlyHeaderLines).vertices, out);
    return true;
}

bool readHeadObj(const std::string& path, float* out, Error& error) {
    return copyHeadVertices(readObj(path).vertices, path, out, error);
}

bool copyHeadVertices(const Eigen::MatrixXd& vertices, const std::string& path, float* out,
                      Error& error) {
    if (vertices.rows() != 3 && vertices.rows() != kTemplateHeadVertexCount) {
        error = {ErrorCode::badContent, path,
                 path + ": " + std::to_string(vertices.rows()) + " rows; a head has 3 or 20481"};
        return false;
    }
    matrixToPlanar(vertices, out);
    return true;
}

}  // namespace kestrel::meridian
