#include "tbn/tbn_engine_std.h"

#include <iostream>
#include <vector>

#include "io/mesh_readers.h"
#include "tbn/face_messages.h"

namespace kestrel::meridian {

int32_t TBNEngineStd::initialise(const std::string& modelDir) {
    const std::string path = modelDir + kTemplateFile;
    const ObjMeshData mesh = readObj(path);
    return load(mesh.texcoords, mesh.faces, mesh.textureFaces, path);
}

int32_t TBNEngineStd::load(const Eigen::MatrixXd& uv, const Eigen::MatrixXd& faces,
                           const Eigen::MatrixXd& uvFaces, const std::string& source) {
    clear();
    // Either test alone is enough to pass: a texture table of any width is
    // accepted, which the face check below makes safe. An empty table counts
    // as having no rows, whatever shape the reader gave it.
    const Eigen::Index uvRows = uv.size() == 0 ? 0 : uv.rows();
    if (uv.cols() != kHeadVertexCount && uvRows != 2) {
        std::cout << source << "not exist! initialize TBN failed!" << std::endl;
        return -1;
    }
    FrameTopology topology;
    const auto bad =
        buildFrameTopology(faces, uvFaces, uv, kHeadVertexCount, DeterminantGuard::none, topology);
    if (bad) {
        std::cout << describeBadFace(source, *bad) << "; initialize TBN failed!" << std::endl;
        return -1;
    }
    uv_ = uv;
    faces_ = faces;
    uvFaces_ = uvFaces;
    topology_ = std::move(topology);
    return 1;
}

void TBNEngineStd::clear() {
    uv_.resize(0, 0);
    faces_.resize(0, 0);
    uvFaces_.resize(0, 0);
    // No faces: every vertex is unused.
    buildFrameTopology(Eigen::MatrixXd(), Eigen::MatrixXd(), Eigen::MatrixXd(), kHeadVertexCount,
                       DeterminantGuard::none, topology_);
}

int32_t TBNEngineStd::computeFrames(const float* headPlanar, float* framesPlanar) const {
    constexpr Eigen::Index n = kHeadVertexCount;
    const std::vector<double> positions(headPlanar, headPlanar + 3 * n);
    std::vector<double> normalSums(3 * n, 0.0);
    accumulateNormalSums(topology_, positions.data(), normalSums.data());
    writeVertexFrames(normalSums.data(), nullptr, n, framesPlanar);
    return 1;
}

}  // namespace kestrel::meridian
