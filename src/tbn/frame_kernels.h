// The per-face and per-vertex steps of frame_arithmetic.h for one, two
// (SSE2) and four (AVX) faces or vertices at a time. Internal to src/tbn.
#pragma once

#include <cstddef>
#include <cstdint>

#include <Eigen/Core>

#include "tbn/frame_arithmetic.h"

#if defined(__x86_64__) || defined(_M_X64) || defined(__SSE2__)
#define MERIDIAN_TBN_X86 1
#else
#define MERIDIAN_TBN_X86 0
#endif

namespace kestrel::meridian::kernels {

/// Vertex positions as three arrays of #V doubles.
struct PlanarPositions {
    const double* x;
    const double* y;
    const double* z;
};

/// Face normals as three arrays of #F doubles.
struct PlanarNormals {
    double* x;
    double* y;
    double* z;
};

/// Rows of a planar 9 by n float output.
using FrameRows = float* const[kFrameComponents];

/// Unit normal T x B of face f, to element f of `normals`.
void faceNormal(const FrameTopology& topology, size_t f, const PlanarPositions& p,
                const PlanarNormals& normals);

/// Frame of one vertex from its normal sum (3 doubles), to column j.
void vertexFrame(const double* sum, FrameRows rows, Eigen::Index j);

#if MERIDIAN_TBN_X86
/// Faces f and f + 1.
void faceNormalsSse2(const FrameTopology& topology, size_t f, const PlanarPositions& p,
                     const PlanarNormals& normals);
/// Vertices with sums[k], to columns j and j + 1.
void vertexFramesSse2(const double* const sums[2], FrameRows rows, Eigen::Index j);

/// Faces f .. f + 3.
void faceNormalsAvx(const FrameTopology& topology, size_t f, const PlanarPositions& p,
                    const PlanarNormals& normals);
/// Vertices with sums[k], to columns j .. j + 3.
void vertexFramesAvx(const double* const sums[4], FrameRows rows, Eigen::Index j);

/// Whether the processor and the operating system support AVX.
bool processorHasAvx();
#endif

}  // namespace kestrel::meridian::kernels
