#include "eyes/aligner_data.h"

#include <fstream>
#include <sstream>

#include "io/mesh_readers.h"

namespace kestrel::meridian {

namespace {

bool outside(const std::string& path, size_t entry, int64_t index, int64_t count, Error& error) {
    error = {ErrorCode::indexOutOfRange, path,
             path + ": entry " + std::to_string(entry) + " names vertex " + std::to_string(index) +
                 ", outside 0.." + std::to_string(count - 1)};
    return false;
}

}  // namespace

bool loadAlignerMesh(const std::string& path, AlignerMesh& mesh, Error& error) {
    if (!std::ifstream(path)) {
        error = {ErrorCode::cannotOpenMesh, path, "cannot open " + path};
        return false;
    }
    const ObjMeshData obj = readObj(path);
    const Eigen::Index vertexCount = obj.vertices.rows() == 3 ? obj.vertices.cols() : 0;
    const Eigen::Index faceCount = obj.faces.rows() == 3 ? obj.faces.cols() : 0;
    for (Eigen::Index f = 0; f < faceCount; ++f)
        for (int c = 0; c < 3; ++c) {
            const double corner = obj.faces(c, f);
            if (corner >= 1 && corner <= static_cast<double>(vertexCount)) continue;
            std::ostringstream text;
            text << path << ": face " << f << " names vertex " << corner << ", outside 1.."
                 << vertexCount;
            error = {ErrorCode::indexOutOfRange, path, text.str()};
            return false;
        }
    mesh.vertices.resize(3, vertexCount);
    if (vertexCount > 0) mesh.vertices = obj.vertices;
    mesh.triangles.resize(3, faceCount);
    if (faceCount > 0) mesh.triangles = (obj.faces.array() - 1.0).cast<int>().matrix();
    return true;
}

bool checkSources(const Correspondence& record, int64_t sourceCount, const std::string& path,
                  Error& error) {
    BadSourceIndex bad{};
    if (!firstSourceOutOfRange(record, sourceCount, bad)) return true;
    return outside(path, bad.entry, bad.index, sourceCount, error);
}

bool checkTargets(const Correspondence& record, int64_t targetCount, const std::string& path,
                  Error& error) {
    return checkIndexList(record.targets, targetCount, path, error);
}

bool checkIndexList(const std::vector<int32_t>& list, int64_t count, const std::string& path,
                    Error& error) {
    for (size_t k = 0; k < list.size(); ++k)
        if (list[k] < 0 || list[k] >= count) return outside(path, k, list[k], count, error);
    return true;
}

bool checkVertexWeights(const Correspondence& record, const std::string& weightPath,
                        const std::string& path, Error& error) {
    if (record.vertexWeights.empty() || record.vertexWeights.size() == record.size()) return true;
    error = {ErrorCode::badContent, weightPath,
             weightPath + ": " + std::to_string(record.vertexWeights.size()) + " weights, but " +
                 path + " has " + std::to_string(record.size()) + " entries"};
    return false;
}

}  // namespace kestrel::meridian
