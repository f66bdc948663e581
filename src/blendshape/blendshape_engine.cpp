#include "blendshape/blendshape_engine.h"

#include <algorithm>
#include <stdexcept>

#include "common/model_paths.h"

#include "blendshape/parallel_tasks.h"
#include "io/planar.h"

namespace kestrel::meridian {

using namespace blendshape;
using Eigen::Index;

struct CBlendshapeEngine::Work {
    Eigen::Matrix3Xd face;        ///< 3 by 18518: the face in the model's frame (F')
    Eigen::Matrix3Xd faceInHead;  ///< 3 by 18518: F' mapped back to the head frame
    /// Per region, 3 by #outputVertices of its fit: new positions, head frame.
    std::array<Eigen::Matrix3Xd, kRegionCount> regions;
};

std::unique_ptr<CBlendshapeEngine> CBlendshapeEngine::load(const std::string& modelDir,
                                                           Error& error) {
    std::unique_ptr<CBlendshapeEngine> engine(new CBlendshapeEngine());
    engine->data_ = std::make_unique<BackendData>();
    const BackendData& data = *engine->data_;
    if (!loadBackendData(modelDir, *engine->data_, error)) return nullptr;
    engine->threads_ = defaultThreadCount(kRegionCount);

    // Each region's system is formed and factorised once, here.
    std::array<std::string, kRegionCount> problems;
    runTasks(kRegionCount, engine->threads_, [&](int r) {
        try {
            engine->fits_[r] = std::make_unique<RegionFit>(data.definitions[r], data.basis.block(r),
                                                           data.basis.cols(), data.mean().col(0),
                                                           data.sigma().col(0));
        } catch (const std::invalid_argument& e) {
            problems[r] = e.what();
        }
    });
    for (int r = 0; r < kRegionCount; ++r)
        if (!problems[r].empty()) {
            const std::string path =
                model_files::blendshapeFolder(modelDir) + kRegions[r].directory;
            error = {ErrorCode::badContent, path, path + ": " + problems[r]};
            return nullptr;
        }

    const std::vector<int>& faceList = data.faceList;
    std::vector<int> lastEntry(kHeadVertexCount, -1);
    for (size_t i = 0; i < faceList.size(); ++i) lastEntry[faceList[i]] = static_cast<int>(i);
    engine->lastOfHeadVertex_.resize(faceList.size());
    for (size_t i = 0; i < faceList.size(); ++i)
        engine->lastOfHeadVertex_[i] = lastEntry[faceList[i]] == static_cast<int>(i);

    // The matrices were needed to check the set and build the fits; the fits
    // copy what they need of the mean and sigma.
    blendshape::BackendData& kept = *engine->data_;
    for (Eigen::MatrixXd& matrix : kept.files) matrix.resize(0, 0);
    kept.regions = {};
    return engine;
}

void CBlendshapeEngine::computeRegions(const Eigen::Matrix3Xd& head, Work& work) const {
    const std::vector<int>& faceList = data_->faceList;
    const Index faceCount = static_cast<Index>(faceList.size());
    work.face.resize(3, faceCount);
    work.faceInHead.resize(3, faceCount);
    for (Index i = 0; i < faceCount; ++i) {
        work.face.col(i) = frame_.toFace(head.col(faceList[i]));
        work.faceInHead.col(i) = frame_.toHead(work.face.col(i));
    }
    runTasks(kRegionCount, threads_, [&](int r) {
        Eigen::Matrix3Xd deformed;
        fits_[r]->deform(work.face, deformed);
        Eigen::Matrix3Xd& out = work.regions[r];
        out.resize(3, deformed.cols());
        for (Index i = 0; i < deformed.cols(); ++i) out.col(i) = frame_.toHead(deformed.col(i));
    });
}

void CBlendshapeEngine::computeRegionsBatch(const std::vector<Eigen::Matrix3Xd>& heads,
                                            std::vector<Work>& works) const {
    const std::vector<int>& faceList = data_->faceList;
    const Index faceCount = static_cast<Index>(faceList.size());
    works.resize(heads.size());
    std::vector<const Eigen::Matrix3Xd*> faces(heads.size());
    for (size_t k = 0; k < heads.size(); ++k) {
        Work& work = works[k];
        work.face.resize(3, faceCount);
        work.faceInHead.resize(3, faceCount);
        for (Index i = 0; i < faceCount; ++i) {
            work.face.col(i) = frame_.toFace(heads[k].col(faceList[i]));
            work.faceInHead.col(i) = frame_.toHead(work.face.col(i));
        }
        faces[k] = &work.face;
    }
    runTasks(kRegionCount, threads_, [&](int r) {
        std::vector<Eigen::Matrix3Xd> deformed;
        fits_[r]->deformBatch(faces, deformed);
        for (size_t k = 0; k < heads.size(); ++k) {
            Eigen::Matrix3Xd& out = works[k].regions[r];
            out.resize(3, deformed[k].cols());
            for (Index i = 0; i < deformed[k].cols(); ++i)
                out.col(i) = frame_.toHead(deformed[k].col(i));
        }
    });
}

void CBlendshapeEngine::generate(const float* headPlanar, float* shapesPlanar) const {
    const Eigen::Matrix3Xd head = planarToVertices(headPlanar, kHeadVertexCount);
    Work work;
    computeRegions(head, work);
    writeShapes(head, work, shapesPlanar);
}

void CBlendshapeEngine::generateBatch(const float* headsPlanar, int headCount,
                                      float* shapesPlanar) const {
    if (headCount <= 0) return;
    std::vector<Eigen::Matrix3Xd> heads(static_cast<size_t>(headCount));
    for (int k = 0; k < headCount; ++k)
        heads[k] = planarToVertices(headsPlanar + k * kHeadFloats, kHeadVertexCount);
    std::vector<Work> works;
    computeRegionsBatch(heads, works);
    for (int k = 0; k < headCount; ++k)
        writeShapes(heads[k], works[k], shapesPlanar + k * kShapeFloats);
}

void CBlendshapeEngine::writeShapes(const Eigen::Matrix3Xd& head, const Work& work,
                                    float* shapesPlanar) const {
    // Nothing below allocates or throws.
    constexpr Index n = kHeadVertexCount;
    matrixToPlanar(head, shapesPlanar);
    // Every deformed shape starts as the head with its face mapped to the
    // model's frame and back; later face-list entries of a vertex win.
    float* base = shapesPlanar + kHeadFloats;
    matrixToPlanar(head, base);
    const std::vector<int>& faceList = data_->faceList;
    for (size_t i = 0; i < faceList.size(); ++i)
        for (int a = 0; a < 3; ++a)
            base[a * n + faceList[i]] =
                static_cast<float>(work.faceInHead(a, static_cast<Index>(i)));
    for (int s = 2; s < kShapeCount; ++s)
        std::copy(base, base + kHeadFloats, shapesPlanar + s * kHeadFloats);
    for (int r = 0; r < kRegionCount; ++r) {
        float* shape = shapesPlanar + (r + 1) * kHeadFloats;
        const std::vector<int>& vertices = fits_[r]->outputVertices();
        for (size_t i = 0; i < vertices.size(); ++i) {
            if (!lastOfHeadVertex_[vertices[i]]) continue;
            for (int a = 0; a < 3; ++a)
                shape[a * n + faceList[vertices[i]]] =
                    static_cast<float>(work.regions[r](a, static_cast<Index>(i)));
        }
    }
}

CBlendshapeEngine::Shapes CBlendshapeEngine::generate(const Eigen::Matrix3Xd& head) const {
    if (head.cols() != kHeadVertexCount)
        throw std::invalid_argument("blendshapes: a head has 20481 vertices");
    Work work;
    computeRegions(head, work);
    Shapes shapes;
    shapes[0] = head;
    const std::vector<int>& faceList = data_->faceList;
    Eigen::Matrix3Xd base = head;
    for (size_t i = 0; i < faceList.size(); ++i)
        base.col(faceList[i]) = work.faceInHead.col(static_cast<Index>(i));
    for (int r = 0; r < kRegionCount; ++r) {
        Eigen::Matrix3Xd& shape = shapes[r + 1];
        shape = base;
        const std::vector<int>& vertices = fits_[r]->outputVertices();
        for (size_t i = 0; i < vertices.size(); ++i)
            if (lastOfHeadVertex_[vertices[i]])
                shape.col(faceList[vertices[i]]) = work.regions[r].col(static_cast<Index>(i));
    }
    return shapes;
}

}  // namespace kestrel::meridian
