#include "engine_mesh.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <tuple>

#include <Eigen/Geometry>

#include "export_error.h"
#include "io/mesh_readers.h"

namespace meridian::exporter {

namespace km = kestrel::meridian;

EngineMeshLayout readEngineMeshLayout(const std::string& path, Eigen::Index vertexCount) {
    if (!std::filesystem::is_regular_file(path)) throw ExportError("missing " + path);
    const km::ObjMeshData obj = km::readObj(path);
    const Eigen::Index count = obj.vertices.rows() == 3 ? obj.vertices.cols() : 0;
    if (count != vertexCount)
        throw ExportError(path + " has " + std::to_string(count) + " vertices, the engine order " +
                          std::to_string(vertexCount));
    if (obj.faces.rows() != 3 || obj.faces.cols() == 0)
        throw ExportError(path + " has no triangles");

    EngineMeshLayout layout;
    layout.faces = (obj.faces.array() - 1.0).cast<int>().matrix();
    if (layout.faces.minCoeff() < 0 || layout.faces.maxCoeff() >= vertexCount)
        throw ExportError(path + ": a face names a vertex outside 1.." + std::to_string(count));

    const bool hasUvs = obj.texcoords.rows() == 2 && obj.textureFaces.rows() == 3 &&
                        obj.textureFaces.cols() == obj.faces.cols();
    if (!hasUvs) {
        layout.uvs.resize(2, 0);
        return layout;
    }
    const Eigen::Matrix3Xi uvFaces = (obj.textureFaces.array() - 1.0).cast<int>().matrix();
    if (uvFaces.minCoeff() < 0 || uvFaces.maxCoeff() >= obj.texcoords.cols())
        throw ExportError(path + ": a face names a texture coordinate that does not exist");
    std::vector<int> uvOf(static_cast<size_t>(vertexCount), -1);
    layout.uvs.setZero(2, vertexCount);
    for (Eigen::Index f = 0; f < layout.faces.cols(); ++f)
        for (int k = 0; k < 3; ++k) {
            const int v = layout.faces(k, f), t = uvFaces(k, f);
            int& seen = uvOf[static_cast<size_t>(v)];
            if (seen >= 0 && obj.texcoords.col(seen) != obj.texcoords.col(t))
                throw ExportError(path + ": vertex " + std::to_string(v + 1) +
                                  " has two texture coordinates; in engine order every vertex "
                                  "has one");
            seen = t;
            layout.uvs(0, v) = static_cast<float>(obj.texcoords(0, t));
            layout.uvs(1, v) = static_cast<float>(1.0 - obj.texcoords(1, t));
        }
    return layout;
}

std::vector<int> copyIds(const km::Correspondence& record) {
    using Source = std::tuple<std::array<int32_t, 3>, std::array<double, 3>>;
    std::map<Source, int> ids;
    std::vector<int> result(record.size());
    for (size_t k = 0; k < record.size(); ++k) {
        Source source;
        if (record.isPairForm()) {
            source = {{record.pairSources[k], -1, -1}, {1.0, 0.0, 0.0}};
        } else {
            const size_t at = 3 * k;
            source = {{record.triangles[at], record.triangles[at + 1], record.triangles[at + 2]},
                      {record.weights[at], record.weights[at + 1], record.weights[at + 2]}};
        }
        result[k] = ids.emplace(source, static_cast<int>(ids.size())).first->second;
    }
    return result;
}

Eigen::Matrix3Xd seamlessNormals(const Eigen::Matrix3Xd& positions, const Eigen::Matrix3Xi& faces,
                                 const std::vector<int>& copyOf) {
    const int idCount = copyOf.empty() ? 0 : *std::max_element(copyOf.begin(), copyOf.end()) + 1;
    Eigen::Matrix3Xd sums = Eigen::Matrix3Xd::Zero(3, idCount);
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        const Eigen::Vector3d a = positions.col(faces(0, f)), b = positions.col(faces(1, f)),
                              c = positions.col(faces(2, f));
        // Twice the face's area along its normal: larger faces weigh more.
        const Eigen::Vector3d weighted = (b - a).cross(c - a);
        // One component at a time: a packed add here would reload what the
        // previous face just stored through a wider load (a stalled store
        // forward on every corner).
        for (int k = 0; k < 3; ++k) {
            double* sum = sums.data() + 3 * copyOf[static_cast<size_t>(faces(k, f))];
            sum[0] += weighted.x();
            sum[1] += weighted.y();
            sum[2] += weighted.z();
        }
    }
    Eigen::Matrix3Xd normals(3, positions.cols());
    for (Eigen::Index v = 0; v < positions.cols(); ++v) {
        const Eigen::Vector3d sum = sums.col(copyOf[static_cast<size_t>(v)]);
        const double length = sum.norm();
        double* normal = normals.data() + 3 * v;
        if (length > 0.0) {
            normal[0] = sum.x() / length;
            normal[1] = sum.y() / length;
            normal[2] = sum.z() / length;
        } else {
            normal[0] = 0.0;
            normal[1] = 1.0;
            normal[2] = 0.0;
        }
    }
    return normals;
}

}  // namespace meridian::exporter
