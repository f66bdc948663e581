#include "tbn/tbn_engine_general.h"

#include <fstream>
#include <iostream>
#include <limits>

#include "io/mesh_readers.h"
#include "tbn/face_messages.h"

using namespace kestrel::meridian;

namespace {

// Position of the first entry outside 0..count-1, or -1.
ptrdiff_t firstOutside(const std::vector<int32_t>& list, Eigen::Index count) {
    for (size_t i = 0; i < list.size(); ++i)
        if (list[i] < 0 || list[i] >= count) return static_cast<ptrdiff_t>(i);
    return -1;
}

void reportOutside(const char* name, const std::vector<int32_t>& list, ptrdiff_t at,
                   Eigen::Index count) {
    std::cout << "Failed to init TBN calculation: " << name << " entry " << at << " is "
              << list[static_cast<size_t>(at)] << ", outside 0.." << count - 1 << std::endl;
}

}  // namespace

int TBNEngineGeneral::initialise(const std::string& templatePath, const int* taviToHead,
                                 unsigned countTaviToHead, const int* headToTavi,
                                 unsigned countHeadToTavi) {
    const ObjMeshData mesh = readObj(templatePath);
    return load(mesh.vertices, mesh.texcoords, mesh.faces, mesh.textureFaces, templatePath,
                taviToHead, countTaviToHead, headToTavi, countHeadToTavi);
}

int TBNEngineGeneral::load(const Eigen::MatrixXd& vertices, const Eigen::MatrixXd& uv,
                           const Eigen::MatrixXd& faces, const Eigen::MatrixXd& uvFaces,
                           const std::string& source, const int* taviToHead,
                           unsigned countTaviToHead, const int* headToTavi,
                           unsigned countHeadToTavi) {
    *this = TBNEngineGeneral{};
    if (uv.size() == 0 || uv.rows() != 2) {
        std::cout << "Failed to init TBN calculation for invalid headobj: " << source << std::endl;
        return kInvalidTemplate;
    }
    // The counts are signed 32-bit values: a larger one cannot be a length.
    const auto taviCount = static_cast<int32_t>(countTaviToHead);
    const auto headCount = static_cast<int32_t>(countHeadToTavi);
    if (headCount < 0) {
        std::cout << "Failed to init TBN calculation for invalid idx_head2tavi count "
                  << countHeadToTavi << std::endl;
        return kInvalidCount;
    }
    const Eigen::Index templateCount = vertices.cols();
    if (taviCount < 0 || templateCount != taviCount) {
        std::cout << "Failed to init TBN calculation for invalid idx_tavi2head!" << std::endl;
        return kInvalidTaviToHead;
    }
    std::vector<int32_t> toHead(taviToHead, taviToHead + taviCount);
    std::vector<int32_t> toTavi(headToTavi, headToTavi + headCount);
    if (const ptrdiff_t at = firstOutside(toHead, kHeadVertexCount); at >= 0) {
        reportOutside("idx_tavi2head", toHead, at, kHeadVertexCount);
        return kIndexOutOfRange;
    }
    if (const ptrdiff_t at = firstOutside(toTavi, templateCount); at >= 0) {
        reportOutside("idx_head2tavi", toTavi, at, templateCount);
        return kIndexOutOfRange;
    }
    FrameTopology topology;
    if (const auto bad = buildFrameTopology(faces, uvFaces, uv, templateCount,
                                            DeterminantGuard::epsilon, topology)) {
        std::cout << "Failed to init TBN calculation: " << describeBadFace(source, *bad)
                  << std::endl;
        return kFaceOutOfRange;
    }
    uv_ = uv;
    faces_ = faces;
    uvFaces_ = uvFaces;
    taviToHead_ = std::move(toHead);
    headToTavi_ = std::move(toTavi);
    topology_ = std::move(topology);
    return kOk;
}

void TBNEngineGeneral::computeFrames(const float* headPlanar, float* framesPlanar) const {
    constexpr Eigen::Index n = kHeadVertexCount;
    const Eigen::Index m = static_cast<Eigen::Index>(taviToHead_.size());
    std::vector<double> positions(3 * m);
    for (Eigen::Index i = 0; i < m; ++i) {
        const Eigen::Index head = taviToHead_[static_cast<size_t>(i)];
        for (Eigen::Index c = 0; c < 3; ++c) positions[c * m + i] = headPlanar[c * n + head];
    }
    std::vector<double> normalSums(3 * m, 0.0);
    accumulateNormalSums(topology_, positions.data(), normalSums.data());
    writeVertexFrames(normalSums.data(), headToTavi_.data(), outputVertexCount(), framesPlanar);
}

namespace kestrel::meridian {

bool readTangentFrameIndexFile(const std::string& path, std::vector<int>& indices) {
    std::ifstream in(path);
    if (!in) {
        std::cout << "Invalid index file: " << path << std::endl;
        return false;
    }
    indices.clear();
    int value = 0;
    while (in >> value) indices.push_back(value);
    return true;
}

}  // namespace kestrel::meridian
