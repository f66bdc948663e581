#include "debug/head_data.h"

#include <fstream>
#include <iostream>

#include "io/gbk_texts.h"
#include "io/mesh_readers.h"
#include "io/planar.h"

namespace kestrel::meridian {

namespace {

constexpr int kHeadPlyHeaderLines = 7;
constexpr Eigen::Index kHeadVertexCount = 20481;

}  // namespace

int readHeadPly(const std::string& path, float* out) {
    if (!std::ifstream(path)) {
        std::cout << path << kGbkPathMissing << std::endl;
        return 0;
    }
    matrixToPlanar(readPly(path, kHeadPlyHeaderLines).vertices, out);
    return 1;
}

int readHeadObj(const std::string& path, float* out) {
    return copyHeadVertices(readObj(path).vertices, path, out);
}

int copyHeadVertices(const Eigen::MatrixXd& vertices, const std::string& path, float* out) {
    if (vertices.rows() != 3 && vertices.rows() != kHeadVertexCount) {
        std::cout << path << kGbkIncorrect << std::endl;
        return 0;
    }
    matrixToPlanar(vertices, out);
    return 1;
}

}  // namespace kestrel::meridian
