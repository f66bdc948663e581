// The per-face and per-vertex steps of frame_arithmetic.h, one face or
// vertex at a time (scalar) and a vector of them at a time (one entry point
// per instruction set, each built in its own file for that set only).
// Internal to src/tbn. Only plain structs here: the wide files include this
// header and must not instantiate library code shared with other widths.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrel::meridian::kernels {

/// What the face pass reads of a FrameTopology, #F faces.
struct FaceTables {
    const int32_t* corners;  ///< 3 * #F: vertices of face f at 3f .. 3f + 2
    const double* du1;       ///< #F values each, as in FrameTopology
    const double* dv1;
    const double* du2;
    const double* dv2;
    const double* r;
    size_t count;  ///< #F
};

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

/// The vertex pass: frames of `count` vertices, from their normal sums.
struct FrameOutput {
    const double* sums;   ///< x y z of vertex v at 3v .. 3v + 2
    const int32_t* pick;  ///< `count` vertices to emit, or null for 0 .. count - 1
    ptrdiff_t count;
    float* rows[9];  ///< rows of the planar 9 by count output
};

/// Unit normal T x B of face f, to element f of `normals`.
void faceNormal(const FaceTables& faces, size_t f, const PlanarPositions& p,
                const PlanarNormals& normals);

/// Frame of output vertex j.
void vertexFrame(const FrameOutput& out, ptrdiff_t j);

// The wide passes: as many whole vectors of faces (vertices) as there are,
// from the first; they return how many they did, the rest is left to the
// scalar steps. Each exists in builds for x86-64 only, and runs only where
// simd::levelAvailable says so.
size_t faceNormalsSse2(const FaceTables& faces, const PlanarPositions& p,
                       const PlanarNormals& normals);
size_t faceNormalsAvx(const FaceTables& faces, const PlanarPositions& p,
                      const PlanarNormals& normals);
size_t faceNormalsAvx2(const FaceTables& faces, const PlanarPositions& p,
                       const PlanarNormals& normals);
size_t faceNormalsAvx512(const FaceTables& faces, const PlanarPositions& p,
                         const PlanarNormals& normals);
ptrdiff_t vertexFramesSse2(const FrameOutput& out);
ptrdiff_t vertexFramesAvx(const FrameOutput& out);
ptrdiff_t vertexFramesAvx2(const FrameOutput& out);
ptrdiff_t vertexFramesAvx512(const FrameOutput& out);

}  // namespace kestrel::meridian::kernels
