#include "tbn/tbn_engine_general.h"

#include <fstream>
#include <limits>
#include <string>

#include "io/mesh_readers.h"
#include "tbn/face_messages.h"
#include "tbn/frame_threads.h"
#include "tbn/record_buffer.h"

using namespace kestrel::meridian;

namespace {

// Position of the first entry outside 0..count-1, or -1.
ptrdiff_t firstOutside(const std::vector<int32_t>& list, Eigen::Index count) {
    for (size_t i = 0; i < list.size(); ++i)
        if (list[i] < 0 || list[i] >= count) return static_cast<ptrdiff_t>(i);
    return -1;
}

Error outside(const char* name, const std::vector<int32_t>& list, ptrdiff_t at,
              Eigen::Index count) {
    return {ErrorCode::indexOutOfRange, "",
            std::string(name) + " entry " + std::to_string(at) + " is " +
                std::to_string(list[static_cast<size_t>(at)]) + ", outside 0.." +
                std::to_string(count - 1)};
}

}  // namespace

bool TBNEngineGeneral::initialise(const std::string& templatePath, const int* taviToHead,
                                  unsigned countTaviToHead, const int* headToTavi,
                                  unsigned countHeadToTavi, Error& error) {
    const ObjMeshData mesh = readObj(templatePath);
    return load(mesh.vertices, mesh.texcoords, mesh.faces, mesh.textureFaces, templatePath,
                taviToHead, countTaviToHead, headToTavi, countHeadToTavi, error);
}

bool TBNEngineGeneral::load(const Eigen::MatrixXd& vertices, const Eigen::MatrixXd& uv,
                            const Eigen::MatrixXd& faces, const Eigen::MatrixXd& uvFaces,
                            const std::string& source, const int* taviToHead,
                            unsigned countTaviToHead, const int* headToTavi,
                            unsigned countHeadToTavi, Error& error) {
    *this = TBNEngineGeneral{};
    if (uv.size() == 0 || uv.rows() != 2) {
        error = {ErrorCode::badContent, source,
                 source + ": no texture coordinates (missing or unreadable template)"};
        return false;
    }
    // The counts are signed 32-bit values: a larger one cannot be a length.
    const auto taviCount = static_cast<int32_t>(countTaviToHead);
    const auto headCount = static_cast<int32_t>(countHeadToTavi);
    if (headCount < 0) {
        error = {ErrorCode::tooLarge, "",
                 "idx_head2tavi count " + std::to_string(countHeadToTavi) + " is above 2147483647"};
        return false;
    }
    const Eigen::Index templateCount = vertices.cols();
    if (taviCount < 0 || templateCount != taviCount) {
        error = {ErrorCode::invalidArgument, "",
                 "idx_tavi2head has " + std::to_string(countTaviToHead) + " entries; " + source +
                     " has " + std::to_string(templateCount) + " vertices"};
        return false;
    }
    std::vector<int32_t> toHead(taviToHead, taviToHead + taviCount);
    std::vector<int32_t> toTavi(headToTavi, headToTavi + headCount);
    if (const ptrdiff_t at = firstOutside(toHead, kHeadVertexCount); at >= 0) {
        error = outside("idx_tavi2head", toHead, at, kHeadVertexCount);
        return false;
    }
    if (const ptrdiff_t at = firstOutside(toTavi, templateCount); at >= 0) {
        error = outside("idx_head2tavi", toTavi, at, templateCount);
        return false;
    }
    FrameTopology topology;
    if (const auto bad = buildFrameTopology(faces, uvFaces, uv, templateCount,
                                            DeterminantGuard::epsilon, topology)) {
        error = {ErrorCode::indexOutOfRange, source, describeBadFace(source, *bad)};
        return false;
    }
    uv_ = uv;
    faces_ = faces;
    uvFaces_ = uvFaces;
    taviToHead_ = std::move(toHead);
    headToTavi_ = std::move(toTavi);
    topology_ = std::move(topology);
    return true;
}

void TBNEngineGeneral::computeFrames(const float* headPlanar, float* framesPlanar,
                                     int threads) const {
    constexpr Eigen::Index n = kHeadVertexCount;
    const Eigen::Index m = static_cast<Eigen::Index>(taviToHead_.size());
    // Kept by the thread between calls, like the face normals; each thread
    // widens the positions itself.
    thread_local RecordBuffer normalSums;
    double* sums = normalSums.reserve(4 * static_cast<size_t>(m));
    if (threads <= 0) threads = frameThreadCount(topology_.faceCount());
    computeFramesOnThreads(topology_, FramePositions{nullptr, headPlanar, n, taviToHead_.data()},
                           sums, headToTavi_.data(), outputVertexCount(), framesPlanar, threads);
}

namespace kestrel::meridian {

bool readTangentFrameIndexFile(const std::string& path, std::vector<int>& indices, Error& error) {
    std::ifstream in(path);
    if (!in) {
        error = {ErrorCode::cannotOpenIndexList, path, "cannot open " + path};
        return false;
    }
    indices.clear();
    int value = 0;
    while (in >> value) indices.push_back(value);
    return true;
}

}  // namespace kestrel::meridian
