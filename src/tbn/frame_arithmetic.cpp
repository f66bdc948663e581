#include "tbn/frame_arithmetic.h"

#include <vector>

#include "tbn/frame_kernels.h"

namespace kestrel::meridian {

namespace {

// Index as written minus 1, truncated toward zero, when that lands inside
// 0..count-1. The test is done on the double so that NaN and huge values
// never reach the integer conversion.
bool toIndex(double written, Eigen::Index count, int32_t& index) {
    const double shifted = written - 1.0;
    if (!(shifted > -1.0 && shifted < static_cast<double>(count))) return false;
    index = static_cast<int32_t>(shifted);
    return true;
}

}  // namespace

simd::Level frameKernelLevel() {
    const simd::Level widest = simd::widestLevel();
    return widest == simd::Level::avx512 ? simd::Level::avx2 : widest;
}

std::optional<BadFaceCorner> buildFrameTopology(const Eigen::MatrixXd& faces,
                                                const Eigen::MatrixXd& uvFaces,
                                                const Eigen::MatrixXd& uv, Eigen::Index vertexCount,
                                                DeterminantGuard guard, FrameTopology& topology) {
    topology = FrameTopology{};
    const Eigen::Index faceCount = faces.rows() == 3 ? faces.cols() : 0;
    const Eigen::Index uvCount = uv.rows() == 2 ? uv.cols() : 0;
    const auto count = static_cast<size_t>(faceCount);
    FrameTopology built;
    built.vertexCount = vertexCount;
    built.corners.resize(3 * count);
    for (std::vector<double>* list : {&built.du1, &built.dv1, &built.du2, &built.dv2, &built.r})
        list->resize(count);
    for (size_t f = 0; f < count; ++f) {
        const auto column = static_cast<Eigen::Index>(f);
        if (column >= uvFaces.cols() || uvFaces.rows() != 3)
            return BadFaceCorner{column, 0, true, true, 0.0, uvCount};
        int32_t t[3];
        for (int k = 0; k < 3; ++k) {
            if (!toIndex(faces(k, column), vertexCount, built.corners[3 * f + k]))
                return BadFaceCorner{column, k, false, false, faces(k, column), vertexCount};
            if (!toIndex(uvFaces(k, column), uvCount, t[k]))
                return BadFaceCorner{column, k, true, false, uvFaces(k, column), uvCount};
        }
        // Differences from the second corner, as the edges in the per-call pass.
        const double du1 = uv(0, t[1]) - uv(0, t[0]), dv1 = uv(1, t[1]) - uv(1, t[0]);
        const double du2 = uv(0, t[1]) - uv(0, t[2]), dv2 = uv(1, t[1]) - uv(1, t[2]);
        double det = du1 * dv2 - du2 * dv1;
        if (guard == DeterminantGuard::epsilon) det += kFrameEpsilon;
        built.du1[f] = du1;
        built.dv1[f] = dv1;
        built.du2[f] = du2;
        built.dv2[f] = dv2;
        built.r[f] = static_cast<float>(1.0 / det);
    }
    // Vertex -> faces, filled in face order so each list comes out sorted.
    built.firstIncidence.assign(static_cast<size_t>(vertexCount) + 1, 0);
    for (int32_t corner : built.corners) ++built.firstIncidence[static_cast<size_t>(corner) + 1];
    for (size_t v = 0; v < static_cast<size_t>(vertexCount); ++v)
        built.firstIncidence[v + 1] += built.firstIncidence[v];
    built.incidentFaces.resize(built.corners.size());
    std::vector<int32_t> next(built.firstIncidence.begin(), built.firstIncidence.end() - 1);
    for (size_t i = 0; i < built.corners.size(); ++i)
        built.incidentFaces[static_cast<size_t>(next[static_cast<size_t>(built.corners[i])]++)] =
            static_cast<int32_t>(i / 3);
    topology = std::move(built);
    return std::nullopt;
}

void accumulateNormalSums(const FrameTopology& topology, const double* positions,
                          double* normalSums, simd::Level level) {
    const Eigen::Index n = topology.vertexCount;
    const kernels::PlanarPositions p{positions, positions + n, positions + 2 * n};
    const size_t faceCount = topology.faceCount();
    const kernels::FaceTables faces{topology.corners.data(),
                                    topology.du1.data(),
                                    topology.dv1.data(),
                                    topology.du2.data(),
                                    topology.dv2.data(),
                                    topology.r.data(),
                                    faceCount};
    // Kept by the thread between calls: frames are asked for frame after
    // frame, and a fresh megabyte each time costs its page faults.
    thread_local std::vector<double> buffer;
    if (buffer.size() < 3 * faceCount) buffer.resize(3 * faceCount);
    const kernels::PlanarNormals normals{buffer.data(), buffer.data() + faceCount,
                                         buffer.data() + 2 * faceCount};
    size_t f = 0;
    switch (level) {
#if MERIDIAN_SIMD_X86
        case simd::Level::sse2:
            f = kernels::faceNormalsSse2(faces, p, normals);
            break;
        case simd::Level::avx:
            f = kernels::faceNormalsAvx(faces, p, normals);
            break;
        case simd::Level::avx2:
            f = kernels::faceNormalsAvx2(faces, p, normals);
            break;
        case simd::Level::avx512:
            f = kernels::faceNormalsAvx512(faces, p, normals);
            break;
#endif
        default:
            break;
    }
    for (; f < faceCount; ++f) kernels::faceNormal(faces, f, p, normals);

    // Each vertex gathers its faces in face order: the same additions, in the
    // same order, as adding every face to its corners one face after another.
    const int32_t* incident = topology.incidentFaces.data();
    for (Eigen::Index v = 0; v < n; ++v) {
        double x = 0.0, y = 0.0, z = 0.0;
        const int32_t end = topology.firstIncidence[static_cast<size_t>(v) + 1];
        for (int32_t i = topology.firstIncidence[static_cast<size_t>(v)]; i < end; ++i) {
            const int32_t face = incident[i];
            x += normals.x[face];
            y += normals.y[face];
            z += normals.z[face];
        }
        normalSums[3 * v] = x;
        normalSums[3 * v + 1] = y;
        normalSums[3 * v + 2] = z;
    }
}

void writeVertexFrames(const double* normalSums, const int32_t* pick, Eigen::Index count,
                       float* out, simd::Level level) {
    kernels::FrameOutput frames{normalSums, pick, count, {}};
    for (int k = 0; k < kFrameComponents; ++k) frames.rows[k] = out + k * count;
    ptrdiff_t j = 0;
    switch (level) {
#if MERIDIAN_SIMD_X86
        case simd::Level::sse2:
            j = kernels::vertexFramesSse2(frames);
            break;
        case simd::Level::avx:
            j = kernels::vertexFramesAvx(frames);
            break;
        case simd::Level::avx2:
            j = kernels::vertexFramesAvx2(frames);
            break;
        case simd::Level::avx512:
            j = kernels::vertexFramesAvx512(frames);
            break;
#endif
        default:
            break;
    }
    for (; j < count; ++j) kernels::vertexFrame(frames, j);
}

}  // namespace kestrel::meridian
