// Dynamic blendshapes: from one neutral head of the template topology, the
// neutral head and five local deformations (both cheeks, the nose, both
// ears), each a face model fitted to its region (region_fit.h) and blended
// into the head at the region's border.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "blendshape/backend_data.h"
#include "blendshape/region_fit.h"

namespace kestrel::meridian {

class CBlendshapeEngine {
  public:
    /// Shape 0 is the input; shape s + 1 comes from region s of
    /// blendshape::kRegions (gill_left, gill_right, nose, ear_left, ear_right).
    static constexpr int kShapeCount = 1 + blendshape::kRegionCount;
    static constexpr Eigen::Index kHeadVertexCount = blendshape::kHeadVertexCount;
    /// Floats of one head and of one set of shapes, planar.
    static constexpr Eigen::Index kHeadFloats = 3 * kHeadVertexCount;
    static constexpr Eigen::Index kShapeFloats = kShapeCount * kHeadFloats;

    using Shapes = std::array<Eigen::Matrix3Xd, kShapeCount>;

    /// Loads the back-end data (blendshape::loadBackendData) and factorises
    /// the region fits; then keeps only what generation reads (the basis rows
    /// the fits point into, the face list and the region definitions).
    /// Returns null with `error` set when a file is missing or short, or
    /// when an index names no vertex.
    static std::unique_ptr<CBlendshapeEngine> load(const std::string& modelDir, Error& error);

    /// The six shapes of a head, computed in double precision and narrowed.
    /// headPlanar:   3 * 20481 floats, planar (all x, then all y, then all z)
    /// shapesPlanar: room for 6 * 3 * 20481 floats: coordinate a of vertex v
    ///               of shape s at (3s + a) * 20481 + v. Written only once
    ///               everything is computed, so a failure (an exception)
    ///               leaves it untouched.
    void generate(const float* headPlanar, float* shapesPlanar) const;

    /// generate() for `headCount` heads at once: each basis row is streamed
    /// once per call for all of them (a matrix-matrix product instead of one
    /// matrix-vector product per head). Every head's shapes are the bits
    /// generate() gives for it alone.
    /// headsPlanar:  headCount x 3 x 20481 floats: coordinate a of vertex v
    ///               of head k at (3k + a) * 20481 + v
    /// shapesPlanar: room for headCount x 6 x 3 x 20481 floats: coordinate a
    ///               of vertex v of shape s of head k at
    ///               ((6k + s) * 3 + a) * 20481 + v. Written only once
    ///               everything is computed.
    void generateBatch(const float* headsPlanar, int headCount, float* shapesPlanar) const;

    /// The same in double precision, without narrowing.
    /// head: 3 by 20481
    Shapes generate(const Eigen::Matrix3Xd& head) const;

    /// Threads the five regions are spread over (the results are the same
    /// bits for any number). Default: the processor count, at most 5.
    void setThreadCount(int threads) { threads_ = threads < 1 ? 1 : threads; }
    int threadCount() const { return threads_; }

    /// What generation keeps of the back-end set: `basis`, `faceList` and
    /// `definitions` (the files' matrices and region records are released
    /// after load; blendshape::loadBackendData gives them whole).
    const blendshape::BackendData& data() const { return *data_; }
    const blendshape::RegionFit& regionFit(int region) const { return *fits_[region]; }
    const blendshape::FaceFrame& faceFrame() const { return frame_; }

  private:
    CBlendshapeEngine() = default;

    struct Work;
    /// F' (the face in the model's frame), its vertices mapped back to the
    /// head frame, and each region's new positions in the head frame.
    void computeRegions(const Eigen::Matrix3Xd& head, Work& work) const;
    /// computeRegions for several heads, each region's basis rows streamed
    /// once for all of them.
    void computeRegionsBatch(const std::vector<Eigen::Matrix3Xd>& heads,
                             std::vector<Work>& works) const;
    /// The narrowed shapes of a head from its computed regions.
    /// shapesPlanar: as for generate()
    void writeShapes(const Eigen::Matrix3Xd& head, const Work& work, float* shapesPlanar) const;

    std::unique_ptr<blendshape::BackendData> data_;
    std::array<std::unique_ptr<blendshape::RegionFit>, blendshape::kRegionCount> fits_;
    blendshape::FaceFrame frame_{blendshape::fixedTransforms()[blendshape::kFaceFrameTransform]};
    /// Per face vertex: whether it is the last entry of the face list that
    /// names its head vertex (the one whose value the head keeps).
    std::vector<bool> lastOfHeadVertex_;
    int threads_ = 1;
};

}  // namespace kestrel::meridian
