#include "tbn/frame_arithmetic.h"

#include <algorithm>
#include <vector>

#if MERIDIAN_SIMD_X86
#include <emmintrin.h>
#endif

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

// The wide passes of one instruction set.
struct WidePasses {
    size_t (*addFaceNormals)(const kernels::FaceTables&, const double*, double*);
    ptrdiff_t (*vertexFrames)(const kernels::FrameOutput&);
};

// The passes of `level`, or null where there are none (scalar steps only).
const WidePasses* widePasses(simd::Level level) {
#if MERIDIAN_SIMD_X86
    static constexpr WidePasses sse2{kernels::addFaceNormalsSse2, kernels::vertexFramesSse2};
    static constexpr WidePasses avx{kernels::addFaceNormalsAvx, kernels::vertexFramesAvx};
    static constexpr WidePasses avx2{kernels::addFaceNormalsAvx2, kernels::vertexFramesAvx2};
    static constexpr WidePasses avx512{kernels::addFaceNormalsAvx512, kernels::vertexFramesAvx512};
    switch (level) {
        case simd::Level::sse2:
            return &sse2;
        case simd::Level::avx:
            return &avx;
        case simd::Level::avx2:
            return &avx2;
        case simd::Level::avx512:
            return &avx512;
        default:
            break;
    }
#else
    (void)level;
#endif
    return nullptr;
}

// Which sides of a split at vertex `middle` the face with these three
// corners has a corner on: side 0 below `middle`, side 1 from it.
struct SidesTouched {
    bool side[2] = {false, false};
    SidesTouched(const int32_t* corner, int32_t middle) {
        for (int k = 0; k < 3; ++k) side[corner[k] >= middle ? 1 : 0] = true;
    }
};

// How many faces the busier of the two threads would run with a split at
// vertex `middle`.
size_t busierSide(const std::vector<int32_t>& corners, int32_t middle) {
    size_t count[2] = {0, 0};
    for (size_t f = 0; f + 3 <= corners.size(); f += 3) {
        const SidesTouched touches(corners.data() + f, middle);
        count[0] += touches.side[0];
        count[1] += touches.side[1];
    }
    return std::max(count[0], count[1]);
}

// Sets topology.halves: the split vertex that evens out the faces of the
// two sides best among a few candidates around the middle, and each side's
// faces copied out in face order.
void splitIntoHalves(FrameTopology& topology) {
    const auto vertexCount = static_cast<int32_t>(topology.vertexCount);
    int32_t middle = vertexCount / 2;
    size_t best = busierSide(topology.corners, middle);
    for (int k = 8; k <= 24; ++k) {
        const auto candidate = static_cast<int32_t>(int64_t{vertexCount} * k / 32);
        const size_t busier = busierSide(topology.corners, candidate);
        if (busier < best) {
            best = busier;
            middle = candidate;
        }
    }
    topology.halves[0] = FrameHalf{};
    topology.halves[1] = FrameHalf{};
    topology.halves[0].endVertex = middle;
    topology.halves[1].firstVertex = middle;
    topology.halves[1].endVertex = vertexCount;
    for (size_t f = 0; f < topology.faceCount(); ++f) {
        const SidesTouched touches(topology.corners.data() + 3 * f, middle);
        for (int side = 0; side < 2; ++side) {
            if (!touches.side[side]) continue;
            FrameHalf& half = topology.halves[side];
            for (int k = 0; k < 3; ++k) {
                const int32_t vertex = topology.corners[3 * f + k];
                const bool first = half.corners.empty() && k == 0;
                half.firstCorner = first ? vertex : std::min(half.firstCorner, vertex);
                half.endCorner = first ? vertex + 1 : std::max(half.endCorner, vertex + 1);
            }
            half.corners.insert(half.corners.end(), topology.corners.begin() + 3 * f,
                                topology.corners.begin() + 3 * f + 3);
            half.du1.push_back(topology.du1[f]);
            half.dv1.push_back(topology.dv1[f]);
            half.du2.push_back(topology.du2[f]);
            half.dv2.push_back(topology.dv2[f]);
            half.r.push_back(topology.r[f]);
        }
    }
}

// Zeroes the sums of vertices [first, end), then adds the normals of
// `faces` to those of their corners in the range, face after face: each
// sum sees its faces in face order, from +0.
void accumulate(const kernels::FaceTables& faces, const double* positions, double* normalSums,
                simd::Level level) {
    std::fill(normalSums + 4 * static_cast<size_t>(faces.firstVertex),
              normalSums + 4 * static_cast<size_t>(faces.endVertex), 0.0);
    const WidePasses* wide = widePasses(level);
    for (size_t f = wide ? wide->addFaceNormals(faces, positions, normalSums) : 0; f < faces.count;
         ++f)
        kernels::addFaceNormal(faces, f, positions, normalSums);
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
    splitIntoHalves(built);
    topology = std::move(built);
    return std::nullopt;
}

void widenToRecords(const float* planar, Eigen::Index stride, const int32_t* pick,
                    Eigen::Index count, double* records) {
    const float *x = planar, *y = planar + stride, *z = planar + 2 * stride;
    Eigen::Index i = 0;
#if MERIDIAN_SIMD_X86
    // Two vertices at a time when they are consecutive (the fixed engine).
    if (!pick) {
        const auto widenPair = [](const float* p) {
            return _mm_cvtps_pd(
                _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
        };
        for (; i + 2 <= count; i += 2) {
            const __m128d xs = widenPair(x + i), ys = widenPair(y + i), zs = widenPair(z + i);
            double* out = records + 4 * i;
            _mm_storeu_pd(out, _mm_unpacklo_pd(xs, ys));
            _mm_storeu_pd(out + 2, _mm_unpacklo_pd(zs, _mm_setzero_pd()));
            _mm_storeu_pd(out + 4, _mm_unpackhi_pd(xs, ys));
            _mm_storeu_pd(out + 6, _mm_unpackhi_pd(zs, _mm_setzero_pd()));
        }
    }
#endif
    for (; i < count; ++i) {
        const Eigen::Index v = pick ? pick[i] : i;
        records[4 * i] = x[v];
        records[4 * i + 1] = y[v];
        records[4 * i + 2] = z[v];
        records[4 * i + 3] = 0.0;
    }
}

void accumulateNormalSums(const FrameTopology& topology, const double* positions,
                          double* normalSums, simd::Level level) {
    accumulate({topology.corners.data(), topology.du1.data(), topology.dv1.data(),
                topology.du2.data(), topology.dv2.data(), topology.r.data(), topology.faceCount(),
                0, static_cast<int32_t>(topology.vertexCount)},
               positions, normalSums, level);
}

void accumulateNormalSumsOf(const FrameTopology& topology, int half, const double* positions,
                            double* normalSums, simd::Level level) {
    const FrameHalf& part = topology.halves[half];
    accumulate({part.corners.data(), part.du1.data(), part.dv1.data(), part.du2.data(),
                part.dv2.data(), part.r.data(), part.faceCount(), part.firstVertex, part.endVertex},
               positions, normalSums, level);
}

void writeVertexFrames(const double* normalSums, const int32_t* pick, Eigen::Index count,
                       float* out, simd::Level level) {
    writeVertexFrameRange(normalSums, pick, count, 0, count, out, level);
}

void writeVertexFrameRange(const double* normalSums, const int32_t* pick, Eigen::Index count,
                           Eigen::Index first, Eigen::Index end, float* out, simd::Level level) {
    // The outputs [first, end) as an output of their own: its vertex j is
    // output first + j, whose sum is at first + j when nothing is picked.
    kernels::FrameOutput frames{
        pick ? normalSums : normalSums + 4 * first, pick ? pick + first : nullptr, end - first, {}};
    for (int k = 0; k < kFrameComponents; ++k) frames.rows[k] = out + k * count + first;
    const WidePasses* wide = widePasses(level);
    for (ptrdiff_t j = wide ? wide->vertexFrames(frames) : 0; j < frames.count; ++j)
        kernels::vertexFrame(frames, j);
}

}  // namespace kestrel::meridian
