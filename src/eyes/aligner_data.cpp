#include "eyes/aligner_data.h"

#include <filesystem>
#include <fstream>
#include <iostream>

#include "io/mesh_readers.h"

namespace kestrel::meridian {

namespace {

void reportOutside(const std::string& path, const char* what, size_t entry, int64_t index,
                   int64_t first, int64_t count) {
    std::cout << path << ": " << what << ' ' << entry << " names vertex " << index << ", outside "
              << first << ".." << first + count - 1 << std::endl;
}

}  // namespace

std::string joinModelPath(const std::string& dir, const char* name) {
    return (std::filesystem::path(dir) / name).string();
}

bool loadAlignerMesh(const std::string& path, AlignerMesh& mesh) {
    if (!std::ifstream(path)) return false;
    const ObjMeshData obj = readObj(path);
    const Eigen::Index vertexCount = obj.vertices.rows() == 3 ? obj.vertices.cols() : 0;
    const Eigen::Index faceCount = obj.faces.rows() == 3 ? obj.faces.cols() : 0;
    for (Eigen::Index f = 0; f < faceCount; ++f)
        for (int c = 0; c < 3; ++c) {
            const double corner = obj.faces(c, f);
            if (corner >= 1 && corner <= static_cast<double>(vertexCount)) continue;
            std::cout << path << ": face " << f << " names vertex " << corner << ", outside 1.."
                      << vertexCount << std::endl;
            return false;
        }
    mesh.vertices.resize(3, vertexCount);
    if (vertexCount > 0) mesh.vertices = obj.vertices;
    mesh.triangles.resize(3, faceCount);
    if (faceCount > 0) mesh.triangles = (obj.faces.array() - 1.0).cast<int>().matrix();
    return true;
}

bool checkSources(const Correspondence& record, int64_t sourceCount, const std::string& path) {
    BadSourceIndex bad{};
    if (!firstSourceOutOfRange(record, sourceCount, bad)) return true;
    reportOutside(path, "entry", bad.entry, bad.index, 0, sourceCount);
    return false;
}

bool checkTargets(const Correspondence& record, int64_t targetCount, const std::string& path) {
    return checkIndexList(record.targets, targetCount, path);
}

bool checkIndexList(const std::vector<int32_t>& list, int64_t count, const std::string& path) {
    for (size_t k = 0; k < list.size(); ++k) {
        if (list[k] >= 0 && list[k] < count) continue;
        reportOutside(path, "entry", k, list[k], 0, count);
        return false;
    }
    return true;
}

bool checkVertexWeights(const Correspondence& record, const std::string& weightPath,
                        const std::string& path) {
    if (record.vertexWeights.empty() || record.vertexWeights.size() == record.size()) return true;
    std::cout << weightPath << ": " << record.vertexWeights.size() << " weights, but " << path
              << " has " << record.size() << " entries" << std::endl;
    return false;
}

}  // namespace kestrel::meridian
