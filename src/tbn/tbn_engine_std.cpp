#include "tbn/tbn_engine_std.h"

#include "common/model_paths.h"

#include "io/mesh_readers.h"
#include "tbn/face_messages.h"
#include "tbn/frame_threads.h"
#include "tbn/record_buffer.h"

namespace kestrel::meridian {

bool TBNEngineStd::initialise(const std::string& modelDir, Error& error) {
    const std::string path = model_files::tangentFrameTemplatePath(modelDir);
    const ObjMeshData mesh = readObj(path);
    return load(mesh.texcoords, mesh.faces, mesh.textureFaces, path, error);
}

bool TBNEngineStd::load(const Eigen::MatrixXd& uv, const Eigen::MatrixXd& faces,
                        const Eigen::MatrixXd& uvFaces, const std::string& source, Error& error) {
    clear();
    // Either test alone is enough to pass: a texture table of any width is
    // accepted, which the face check below makes safe. An empty table counts
    // as having no rows, whatever shape the reader gave it.
    const Eigen::Index uvRows = uv.size() == 0 ? 0 : uv.rows();
    if (uv.cols() != kHeadVertexCount && uvRows != 2) {
        error = {ErrorCode::badContent, source,
                 source + ": no texture coordinates (missing or unreadable template)"};
        return false;
    }
    FrameTopology topology;
    const auto bad =
        buildFrameTopology(faces, uvFaces, uv, kHeadVertexCount, DeterminantGuard::none, topology);
    if (bad) {
        error = {ErrorCode::indexOutOfRange, source, describeBadFace(source, *bad)};
        return false;
    }
    uv_ = uv;
    faces_ = faces;
    uvFaces_ = uvFaces;
    topology_ = std::move(topology);
    return true;
}

void TBNEngineStd::clear() {
    uv_.resize(0, 0);
    faces_.resize(0, 0);
    uvFaces_.resize(0, 0);
    // No faces: every vertex is unused.
    buildFrameTopology(Eigen::MatrixXd(), Eigen::MatrixXd(), Eigen::MatrixXd(), kHeadVertexCount,
                       DeterminantGuard::none, topology_);
}

void TBNEngineStd::computeFrames(const float* headPlanar, float* framesPlanar, int threads) const {
    constexpr Eigen::Index n = kHeadVertexCount;
    // Kept by the thread between calls, like the face normals; each thread
    // widens the positions itself.
    thread_local RecordBuffer normalSums;
    double* sums = normalSums.reserve(4 * n);
    if (threads <= 0) threads = frameThreadCount(topology_.faceCount());
    computeFramesOnThreads(topology_, FramePositions{nullptr, headPlanar, n, nullptr}, sums,
                           nullptr, n, framesPlanar, threads);
}

}  // namespace kestrel::meridian
