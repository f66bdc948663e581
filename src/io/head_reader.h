// The strict head reader of the tool and the modern interfaces: a head in
// the template topology, from OBJ or PLY, as a planar float array.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::meridian {

/// Vertices of every head the tasks take.
inline constexpr int64_t kStrictHeadVertexCount = 20481;

/// Reads a head mesh (OBJ or PLY, see readStrictMesh) of exactly 20481
/// vertices. Returns 3 x 20481 planar floats: coordinate r of vertex j at
/// r * 20481 + j. Throws InputError naming the file and the place: a vertex
/// count other than 20481 (both counts said), a non-finite coordinate (the
/// first such vertex), a short body, a malformed record, an index out of
/// range.
std::vector<float> readHeadPlanar(const std::string& path);

/// The same over bytes already in memory; `path` names them in messages and
/// its extension (".obj") selects OBJ when the bytes are not a PLY.
std::vector<float> parseHeadPlanar(std::string_view bytes, const std::string& path);

}  // namespace kestrel::meridian
