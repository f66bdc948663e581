// ASCII PLY reader. The header grammar is not parsed: the caller says how
// many header lines there are, and only the element counts are taken from
// them.
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "io/input_limits.h"
#include "io/mesh_readers.h"
#include "io/text_lines.h"

namespace kestrel::meridian {

namespace {

// Splits at every single blank: two blanks in a row give an empty token.
void splitAtBlanks(const std::string& line, std::vector<std::string>& tokens) {
    tokens.clear();
    size_t start = 0;
    while (true) {
        const size_t blank = line.find(' ', start);
        tokens.emplace_back(line, start,
                            blank == std::string::npos ? std::string::npos : blank - start);
        if (blank == std::string::npos) return;
        start = blank + 1;
    }
}

double toDouble(const std::string& token) {
    return std::strtod(token.c_str(), nullptr);
}

// A count line's number; anything above the limit (however large) is
// refused here, before it is converted to an integer.
Eigen::Index elementCount(const std::string& token, const std::string& path) {
    const double count = toDouble(token);
    if (!(count >= 0.0)) return 0;
    if (count > static_cast<double>(kMaxDeclaredElements))
        throw InputRefused(path + ": element count " + token + " is above the limit of " +
                           std::to_string(kMaxDeclaredElements));
    return static_cast<Eigen::Index>(count);
}

}  // namespace

PlyMeshData readPly(const std::string& path, int headerLines) {
    PlyMeshData mesh;
    mesh.vertices.setZero(3, 0);
    mesh.faces.setZero(3, 0);
    mesh.extra.setZero(3, 0);
    std::ifstream in(path);
    if (!in) return mesh;

    // Measured before reading: a stream that has met its end cannot tell.
    const int64_t bytes = streamBytes(in);
    std::string line;
    std::vector<std::string> tokens;
    Eigen::Index vertexCount = 0;
    Eigen::Index faceCount = 0;
    for (int i = 0; i < headerLines && getTextLine(in, line); ++i) {
        splitAtBlanks(line, tokens);
        if (tokens.size() != 3) continue;
        if (tokens[1] == "vertex") vertexCount = elementCount(tokens[2], path);
        if (tokens[1] == "face") faceCount = elementCount(tokens[2], path);
    }

    // Lines the body lacks read as zeros, but a file cannot declare more
    // elements than it has bytes.
    checkDeclaredCount(path, "vertex count", vertexCount, bytes);
    checkDeclaredCount(path, "face count", faceCount, bytes);
    mesh.vertices.setZero(3, vertexCount);
    mesh.extra.setZero(3, vertexCount);
    mesh.faces.setZero(3, faceCount);
    for (Eigen::Index k = 0; k < vertexCount; ++k) {
        if (!getTextLine(in, line)) line.clear();
        splitAtBlanks(line, tokens);
        for (size_t t = 0; t < tokens.size() && t < 6; ++t) {
            if (t < 3)
                mesh.vertices(t, k) = toDouble(tokens[t]);
            else
                mesh.extra(t - 3, k) = toDouble(tokens[t]);
        }
    }
    for (Eigen::Index k = 0; k < faceCount; ++k) {
        if (!getTextLine(in, line)) line.clear();
        splitAtBlanks(line, tokens);
        // Token 0 is the corner count; corners past the third are dropped.
        for (size_t t = 1; t < tokens.size() && t < 4; ++t)
            mesh.faces(t - 1, k) = toDouble(tokens[t]);
    }
    return mesh;
}

int countPlyHeaderLines(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    // A real header is a few lines; do not scan a large non-PLY file.
    for (int count = 1; count <= 256 && getTextLine(in, line); ++count)
        if (line == "end_header") return count;
    return 0;
}

}  // namespace kestrel::meridian
