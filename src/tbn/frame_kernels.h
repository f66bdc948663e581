// The per-face and per-vertex steps of frame_arithmetic.h, one face or
// vertex at a time (scalar) and a vector of them at a time (one entry point
// per instruction set, each built in its own file for that set only).
// Internal to src/tbn. Only plain structs here: the wide files include this
// header and must not instantiate library code shared with other widths.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrel::meridian::kernels {

/// What the face pass reads of a FrameTopology, #F faces, and which sums it
/// may write: a face adds its normal only to the corners whose vertex lies in
/// [firstVertex, endVertex), so that two threads can each own half of the
/// sums and still run the faces they share.
struct FaceTables {
    const int32_t* corners;  ///< 3 * #F: vertices of face f at 3f .. 3f + 2
    const double* du1;       ///< #F values each, as in FrameTopology
    const double* dv1;
    const double* du2;
    const double* dv2;
    const double* r;
    size_t count;         ///< #F
    int32_t firstVertex;  ///< first vertex whose sum this pass writes
    int32_t endVertex;    ///< one past the last
};

// Positions and normal sums are records of four doubles:
// x y z of item i at 4i .. 4i + 2, and 4i + 3 zero, so that one item is one
// aligned 32-byte load.

/// The vertex pass: frames of `count` vertices, from their normal sums.
struct FrameOutput {
    const double* sums;   ///< records of the vertices' normal sums
    const int32_t* pick;  ///< `count` vertices to emit, or null for 0 .. count - 1
    ptrdiff_t count;
    float* rows[9];  ///< rows of the planar 9 by count output
};

/// Adds the unit normal T x B of face f to the records of those of its three
/// corners that the pass owns (x y z; the fourth value gets +0).
/// positions: records of #V vertices; sums: records of #V vertices.
void addFaceNormal(const FaceTables& faces, size_t f, const double* positions, double* sums);

/// Frame of output vertex j.
void vertexFrame(const FrameOutput& out, ptrdiff_t j);

// The wide passes: as many whole vectors of faces (vertices) as there are,
// from the first, in order; they return how many they did, the rest is left
// to the scalar steps. Each exists in builds for x86-64 only, and runs only
// where simd::levelAvailable says so.
size_t addFaceNormalsSse2(const FaceTables& faces, const double* positions, double* sums);
size_t addFaceNormalsAvx(const FaceTables& faces, const double* positions, double* sums);
size_t addFaceNormalsAvx2(const FaceTables& faces, const double* positions, double* sums);
size_t addFaceNormalsAvx512(const FaceTables& faces, const double* positions, double* sums);
ptrdiff_t vertexFramesSse2(const FrameOutput& out);
ptrdiff_t vertexFramesAvx(const FrameOutput& out);
ptrdiff_t vertexFramesAvx2(const FrameOutput& out);
ptrdiff_t vertexFramesAvx512(const FrameOutput& out);

}  // namespace kestrel::meridian::kernels
