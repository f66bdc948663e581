// Reading and rewriting the "v " lines of an OBJ while leaving every other
// line as it is: how a transformed mesh keeps its template's faces, UVs and
// materials.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "io/mesh_readers.h"

namespace kestrel::meridian {

namespace {

bool isVertexLine(const std::string& line) {
    return line.size() >= 2 && line[0] == 'v' && line[1] == ' ';
}

}  // namespace

Eigen::Matrix3Xd readObjVertexLines(const std::string& path) {
    std::ifstream in(path);
    std::vector<double> values;
    std::string line;
    while (std::getline(in, line)) {
        if (!isVertexLine(line)) continue;
        const char* p = line.c_str() + 2;
        for (int r = 0; r < 3; ++r) {
            char* next = nullptr;
            values.push_back(std::strtod(p, &next));
            p = next;
        }
    }
    return Eigen::Map<const Eigen::Matrix3Xd>(values.data(), 3,
                                              static_cast<Eigen::Index>(values.size() / 3));
}

bool rewriteObjVertexLines(const std::string& templatePath, const std::string& outPath,
                           const Eigen::Ref<const Eigen::Matrix3Xd>& vertices, Error& error) {
    std::ifstream in(templatePath);
    if (!in) {
        error = {ErrorCode::cannotOpenMesh, templatePath, "cannot open " + templatePath};
        return false;
    }
    std::ofstream out(outPath);
    if (!out) {
        error = {ErrorCode::cannotOpen, outPath, "cannot open " + outPath + " for writing"};
        return false;
    }
    std::string line;
    Eigen::Index next = 0;
    char buffer[1100];  // three "%f" of any double
    while (std::getline(in, line)) {
        if (isVertexLine(line) && next < vertices.cols()) {
            const auto v = vertices.col(next++);
            std::snprintf(buffer, sizeof buffer, "v %f %f %f", v.x(), v.y(), v.z());
            out << buffer;
        } else {
            out << line;
        }
        // Keep a last line without a line end as it was.
        if (!in.eof()) out << '\n';
    }
    if (out.flush()) return true;
    error = {ErrorCode::writeFailed, outPath, "cannot write " + outPath};
    return false;
}

}  // namespace kestrel::meridian
