#include "eye_sides.h"

#include <algorithm>

#include "export_error.h"

namespace meridian::exporter {

std::array<MeshSide, 2> splitSides(const kestrel::meridian::Correspondence& meshToExport,
                                   const std::vector<int32_t>& leftVertices,
                                   const std::vector<int32_t>& rightVertices,
                                   const Eigen::Matrix3Xi& faces, const std::string& what) {
    constexpr int kNone = -1;
    int32_t meshCount = 0;
    for (const auto* list : {&leftVertices, &rightVertices})
        for (int32_t v : *list) meshCount = std::max(meshCount, v + 1);
    std::vector<int> sideOfMeshVertex(static_cast<size_t>(meshCount), kNone);
    for (int32_t v : leftVertices)
        if (v >= 0) sideOfMeshVertex[static_cast<size_t>(v)] = kLeft;
    for (int32_t v : rightVertices)
        if (v >= 0) sideOfMeshVertex[static_cast<size_t>(v)] = kRight;
    const auto sideOf = [&](int exportVertex) {
        const size_t k = static_cast<size_t>(exportVertex);
        const int32_t source =
            meshToExport.isPairForm() ? meshToExport.pairSources[k] : meshToExport.triangles[3 * k];
        return source >= 0 && source < meshCount ? sideOfMeshVertex[static_cast<size_t>(source)]
                                                 : kNone;
    };

    std::array<std::vector<int>, 2> sideFaces;
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        int side = kNone;
        for (int k = 0; k < 3; ++k) {
            const int s = sideOf(faces(k, f));
            if (s == kNone) continue;
            if (side != kNone && s != side)
                throw ExportError(
                    what + ": face " + std::to_string(f + 1) + " joins the left and the right side",
                    AssetPart::kEyes);
            side = s;
        }
        if (side == kNone)
            throw ExportError(what + ": face " + std::to_string(f + 1) +
                                  " has no vertex on either side's vertex list",
                              AssetPart::kEyes);
        sideFaces[static_cast<size_t>(side)].push_back(static_cast<int>(f));
    }

    std::array<MeshSide, 2> sides;
    const Eigen::Index exportCount = static_cast<Eigen::Index>(meshToExport.size());
    for (int s : {kLeft, kRight}) {
        MeshSide& side = sides[static_cast<size_t>(s)];
        const std::vector<int>& ids = sideFaces[static_cast<size_t>(s)];
        std::vector<int> localOf(static_cast<size_t>(exportCount), -1);
        for (int f : ids)
            for (int k = 0; k < 3; ++k) localOf[static_cast<size_t>(faces(k, f))] = 0;
        for (Eigen::Index v = 0; v < exportCount; ++v)
            if (localOf[static_cast<size_t>(v)] == 0) {
                localOf[static_cast<size_t>(v)] = static_cast<int>(side.vertices.size());
                side.vertices.push_back(static_cast<int>(v));
            }
        side.faces.resize(3, static_cast<Eigen::Index>(ids.size()));
        for (size_t i = 0; i < ids.size(); ++i)
            for (int k = 0; k < 3; ++k)
                side.faces(k, static_cast<Eigen::Index>(i)) =
                    localOf[static_cast<size_t>(faces(k, ids[i]))];
    }
    return sides;
}

}  // namespace meridian::exporter
