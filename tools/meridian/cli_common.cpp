#include "cli_common.h"

#include <cctype>
#include <filesystem>
#include <fstream>

#include "io/mesh_readers.h"
#include "io/planar.h"

namespace meridian::cli {

namespace fs = std::filesystem;
using kestrel::meridian::countPlyHeaderLines;
using kestrel::meridian::readObj;
using kestrel::meridian::readPly;

namespace {

bool hasExtension(const std::string& path, const char* extension) {
    std::string ext = fs::path(path).extension().string();
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext == extension;
}

}  // namespace

std::vector<float> readHeadPlanar(const std::string& path) {
    if (!fs::is_regular_file(path)) throw CommandError("no such mesh file: " + path);
    Eigen::MatrixXd vertices;
    if (hasExtension(path, ".ply")) {
        const int headerLines = countPlyHeaderLines(path);
        if (headerLines == 0) throw CommandError("not a PLY file (no end_header): " + path);
        vertices = readPly(path, headerLines).vertices;
    } else if (hasExtension(path, ".obj")) {
        vertices = readObj(path).vertices;
    } else {
        throw CommandError("unknown mesh format (expected .obj or .ply): " + path);
    }
    if (vertices.rows() != 3 || vertices.cols() != kHeadVertexCount)
        throw CommandError(path + " has " + std::to_string(vertices.cols()) +
                           " vertices; a head in the template topology has " +
                           std::to_string(kHeadVertexCount));
    std::vector<float> planar(3 * kHeadVertexCount);
    kestrel::meridian::matrixToPlanar(vertices, planar.data());
    return planar;
}

void requireModelDirectory(const std::string& dir) {
    if (!fs::is_directory(dir)) throw CommandError("model directory not found: " + dir);
}

void requireWritable(const std::string& path) {
    std::ofstream out(path, std::ios::binary | std::ios::app);
    if (!out) throw CommandError("cannot write " + path);
}

}  // namespace meridian::cli
