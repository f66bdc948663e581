// Strict mesh reading: an OBJ or PLY file is either read whole and well
// formed, or refused with an InputError that names the file and the place.
// Nothing is printed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::meridian {

/// A triangle mesh as the strict readers return it. Every coordinate is
/// finite and every index names an existing element.
struct StrictMesh {
    /// #V by 3, interleaved: coordinate r of vertex j at 3 * j + r.
    std::vector<float> vertices;
    /// #T by 2, interleaved: u and v of texture coordinate k at 2 * k, 2 * k + 1.
    std::vector<float> texcoords;
    /// #F by 3: corner c of triangle f at 3 * f + c, 0-based vertex indices.
    std::vector<int32_t> faces;
    /// #F by 3 like faces, 0-based texture coordinate indices; empty when
    /// the faces carry none.
    std::vector<int32_t> textureFaces;

    int64_t vertexCount() const { return static_cast<int64_t>(vertices.size() / 3); }
    int64_t texcoordCount() const { return static_cast<int64_t>(texcoords.size() / 2); }
    int64_t faceCount() const { return static_cast<int64_t>(faces.size() / 3); }
};

/// Parses Wavefront OBJ text. Read: "v x y z" with an optional w or colour
/// (3, 4, 6 or 7 numbers), "vt u v [w]", triangles "f" whose corners are
/// written v, v/t, v//n or v/t/n (negative indices count back from the
/// latest element). Ignored: "vn", "o", "g", "s", "usemtl", "mtllib" and
/// comments. Refused: any other record, a face of more or fewer than three
/// corners (with its line number), a non-finite or unparsable coordinate
/// (naming the vertex), an index out of range. `path` names the text in
/// messages.
StrictMesh parseStrictObj(std::string_view text, const std::string& path);

/// Parses a PLY file's bytes: the header is parsed (ascii, or binary of
/// either byte order; comments and obj_info lines; any elements and
/// properties). The "vertex" element gives x, y, z (any numeric type; other
/// properties are skipped); a "face" element's "vertex_indices" (or
/// "vertex_index") lists must be triangles in range. Refused: a body shorter
/// than the header says, bytes or text after its last element, a malformed
/// line, a non-finite coordinate (naming the vertex).
StrictMesh parseStrictPly(std::string_view bytes, const std::string& path);

/// Parses a mesh file's bytes: PLY when they start with the line "ply",
/// otherwise OBJ when `path` ends in ".obj" (any case); anything else is
/// refused as unknownFormat.
StrictMesh parseStrictMesh(std::string_view bytes, const std::string& path);

/// Reads a mesh file: PLY when it starts with the line "ply", otherwise OBJ
/// when its name ends in ".obj" (any case); anything else is refused.
StrictMesh readStrictMesh(const std::string& path);

}  // namespace kestrel::meridian
