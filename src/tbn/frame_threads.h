// The per-call passes of both tangent-frame engines, on one thread or two.
// Two threads split the vertices in half (FrameTopology::halves): each runs
// the faces of its half and adds their normals to its own sums only, so
// every sum gets the additions of one thread, in the same order, and the
// frames keep their bits whatever the thread count.
#pragma once

#include <cstddef>
#include <cstdint>

#include <Eigen/Core>

#include "tbn/frame_arithmetic.h"

namespace kestrel::meridian {

/// Fewest faces for which a second thread pays for handing it half of the
/// call; smaller meshes stay on the caller's thread.
constexpr size_t kTwoThreadFaceCount = 4096;

/// Threads worth using for a topology of `faceCount` faces: 2 when the
/// processor has at least two and there are kTwoThreadFaceCount faces or
/// more, else 1.
int frameThreadCount(size_t faceCount);

/// The positions a call reads: records given by the caller, or planar floats
/// that each thread widens into records of its own (widenToRecords), so that
/// no core reads records another core has just written.
struct FramePositions {
    const double* records = nullptr;  ///< 4 * #V doubles (accumulateNormalSums), or null
    const float* planar = nullptr;    ///< else: planar floats, x of vertex v at v
    Eigen::Index stride = 0;          ///< y at stride + v, z at 2 * stride + v
    const int32_t* pick = nullptr;    ///< record i is planar vertex pick[i], or i when null
};

/// Normal sums then frames: accumulateNormalSums and writeVertexFrames, on
/// `threads` threads (1 or 2; the caller's thread is one of them, the other
/// is PairedThread::shared()). When the second thread is in use by another
/// caller or cannot start, and always on Windows (where a library's kept
/// thread cannot be joined safely when the library is unloaded), the caller
/// does everything; the bits are the same in every case.
/// positions:  the records of topology.vertexCount vertices
/// normalSums: room for 4 * topology.vertexCount doubles, overwritten
/// pick:       `count` vertices of the topology, or null for 0 .. count - 1
///             (then count is topology.vertexCount)
/// out:        room for 9 * count floats, component k of output j at k * count + j
void computeFramesOnThreads(const FrameTopology& topology, const FramePositions& positions,
                            double* normalSums, const int32_t* pick, Eigen::Index count, float* out,
                            int threads, simd::Level level = frameKernelLevel());

}  // namespace kestrel::meridian
