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

namespace {

/// Normalises `count` vectors in place (x y z of vector i at 3 * i), a
/// vector without length becoming (0, 1, 0). Each block is turned into one
/// array per coordinate so that square roots and divisions run packed; a
/// vector's norm sums its squares first to last, as below, and packed square
/// roots and divisions round as single ones do, so the bits stay.
void normalise(double* vectors, int count) {
    constexpr int kBlock = 64;
    using Block = Eigen::Array<double, kBlock, 1>;
    Block x, y, z;
    for (int start = 0; start < count; start += kBlock) {
        const int size = std::min(kBlock, count - start);
        double* block = vectors + 3 * static_cast<size_t>(start);
        for (int i = 0; i < size; ++i) {
            x[i] = block[3 * i];
            y[i] = block[3 * i + 1];
            z[i] = block[3 * i + 2];
        }
        // The tail of the last block is zero: its quotients are not kept.
        for (int i = size; i < kBlock; ++i) x[i] = y[i] = z[i] = 0.0;
        const Block length = (x.square() + y.square() + z.square()).sqrt();
        x /= length;
        y /= length;
        z /= length;
        for (int i = 0; i < size; ++i) {
            const bool unit = length[i] > 0.0;  // false for NaN too
            block[3 * i] = unit ? x[i] : 0.0;
            block[3 * i + 1] = unit ? y[i] : 1.0;
            block[3 * i + 2] = unit ? z[i] : 0.0;
        }
    }
}

}  // namespace

void seamlessNormalsPerId(const double* positions, const Eigen::Matrix3Xi& faces,
                          const Eigen::Matrix3Xi& cornerIds, int idCount,
                          std::vector<double>& normals) {
    normals.assign(3 * static_cast<size_t>(idCount), 0.0);
    double* const sums = normals.data();
    const int* corner = faces.data();
    const int* id = cornerIds.data();
    for (Eigen::Index f = 0; f < faces.cols(); ++f, corner += 3, id += 3) {
        const double* a = positions + 3 * static_cast<size_t>(corner[0]);
        const double* b = positions + 3 * static_cast<size_t>(corner[1]);
        const double* c = positions + 3 * static_cast<size_t>(corner[2]);
        const Eigen::Vector3d ab(b[0] - a[0], b[1] - a[1], b[2] - a[2]);
        const Eigen::Vector3d ac(c[0] - a[0], c[1] - a[1], c[2] - a[2]);
        // Twice the face's area along its normal: larger faces weigh more.
        const Eigen::Vector3d weighted = ab.cross(ac);
        // One component at a time: a packed add here would reload what the
        // previous face just stored through a wider load (a stalled store
        // forward on every corner).
        for (int k = 0; k < 3; ++k) {
            double* sum = sums + 3 * static_cast<size_t>(id[k]);
            sum[0] += weighted.x();
            sum[1] += weighted.y();
            sum[2] += weighted.z();
        }
    }
    normalise(sums, idCount);
}

Eigen::Matrix3Xi cornerIds(const Eigen::Matrix3Xi& faces, const std::vector<int>& copyOf) {
    Eigen::Matrix3Xi ids(3, faces.cols());
    for (Eigen::Index i = 0; i < faces.size(); ++i)
        ids.data()[i] = copyOf[static_cast<size_t>(faces.data()[i])];
    return ids;
}

Eigen::Matrix3Xd seamlessNormals(const Eigen::Matrix3Xd& positions, const Eigen::Matrix3Xi& faces,
                                 const std::vector<int>& copyOf) {
    const int idCount = copyOf.empty() ? 0 : *std::max_element(copyOf.begin(), copyOf.end()) + 1;
    std::vector<double> perId;
    seamlessNormalsPerId(positions.data(), faces, cornerIds(faces, copyOf), idCount, perId);
    Eigen::Matrix3Xd normals(3, positions.cols());
    for (Eigen::Index v = 0; v < positions.cols(); ++v) {
        const double* unit = perId.data() + 3 * static_cast<size_t>(copyOf[static_cast<size_t>(v)]);
        for (int r = 0; r < 3; ++r) normals(r, v) = unit[r];
    }
    return normals;
}

}  // namespace meridian::exporter
