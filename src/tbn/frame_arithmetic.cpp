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

// Sets topology.halves from its corners.
void splitIntoHalves(FrameTopology& topology) {
    const auto vertexCount = static_cast<int32_t>(topology.vertexCount);
    const int32_t middle = vertexCount / 2;
    topology.halves[0] = {0, middle, 0, 0};
    topology.halves[1] = {middle, vertexCount, 0, 0};
    bool seen[2] = {false, false};
    for (size_t f = 0; f < topology.faceCount(); ++f)
        for (int k = 0; k < 3; ++k) {
            const int half = topology.corners[3 * f + k] >= middle ? 1 : 0;
            FrameHalf& part = topology.halves[half];
            if (!seen[half]) part.firstFace = f;
            seen[half] = true;
            part.endFace = f + 1;
        }
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
    accumulateNormalSumsOf(topology, topology.whole(), positions, normalSums, level);
}

void accumulateNormalSumsOf(const FrameTopology& topology, const FrameHalf& part,
                            const double* positions, double* normalSums, simd::Level level) {
    const size_t first = part.firstFace;
    const size_t faceCount = part.endFace - first;
    const kernels::FaceTables faces{topology.corners.data() + 3 * first,
                                    topology.du1.data() + first,
                                    topology.dv1.data() + first,
                                    topology.du2.data() + first,
                                    topology.dv2.data() + first,
                                    topology.r.data() + first,
                                    faceCount,
                                    part.firstVertex,
                                    part.endVertex};
    // Every face adds its normal to its corners as it is computed, face after
    // face: each sum sees its faces in face order, from +0.
    std::fill(normalSums + 4 * part.firstVertex, normalSums + 4 * part.endVertex, 0.0);
    const WidePasses* wide = widePasses(level);
    for (size_t f = wide ? wide->addFaceNormals(faces, positions, normalSums) : 0; f < faceCount;
         ++f)
        kernels::addFaceNormal(faces, f, positions, normalSums);
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
