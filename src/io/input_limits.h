// What a data file may make the library allocate. The readers size their
// tables from counts written in the files; a file whose counts cannot be
// honest is refused before anything is allocated, with an InputRefused
// naming the file. The export layer prints the message and fails the init.
#pragma once

#include <cstdint>
#include <istream>
#include <stdexcept>
#include <string>

namespace kestrel::meridian {

/// A data file refused for claiming more than it can hold; what() names the
/// file and the claim.
struct InputRefused : std::length_error {
    using std::length_error::length_error;
};

/// Most entries a correspondence file, and most vertices or faces a PLY, may
/// declare. Every table read from such a file also declares no more elements
/// than the file has bytes: a body line takes at least its line end.
constexpr int64_t kMaxDeclaredElements = int64_t{1} << 24;

/// Most numbers an OBJ may hold in its four tables together (128 MiB as
/// doubles; the 20481-vertex template holds about 350 thousand).
constexpr int64_t kMaxObjNumbers = int64_t{1} << 24;

/// Largest OBJ file read; the reader holds the whole text while it parses.
constexpr int64_t kMaxObjFileBytes = int64_t{1} << 28;

/// Size of a seekable stream in bytes (the read position is kept), or -1.
inline int64_t streamBytes(std::istream& in) {
    const std::istream::pos_type here = in.tellg();
    if (here == std::istream::pos_type(-1) || !in.seekg(0, std::ios::end)) {
        in.clear();
        return -1;
    }
    const std::istream::pos_type end = in.tellg();
    in.seekg(here);
    return end == std::istream::pos_type(-1) ? -1 : static_cast<int64_t>(end);
}

/// Throws InputRefused unless `declared` elements fit the limits for a file
/// of `fileBytes` bytes (-1: size unknown, only the absolute limit applies).
inline void checkDeclaredCount(const std::string& path, const char* what, int64_t declared,
                               int64_t fileBytes) {
    if (declared > kMaxDeclaredElements)
        throw InputRefused(path + ": " + what + " " + std::to_string(declared) +
                           " is above the limit of " + std::to_string(kMaxDeclaredElements));
    if (fileBytes >= 0 && declared > fileBytes)
        throw InputRefused(path + ": " + what + " " + std::to_string(declared) +
                           " cannot be honest in a file of " + std::to_string(fileBytes) +
                           " bytes");
}

}  // namespace kestrel::meridian
