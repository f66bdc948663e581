// The header of a PLY file: format, elements and their properties.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::meridian {

/// Scalar types a PLY property may have.
enum class PlyType { int8, uint8, int16, uint16, int32, uint32, float32, float64 };

/// Size in bytes of a value of `type` in a binary body.
int plyTypeSize(PlyType type);

struct PlyProperty {
    std::string name;
    PlyType type = PlyType::float32;  ///< the value's type; for a list, its items' type
    bool isList = false;
    PlyType countType = PlyType::uint8;  ///< for a list: the type of its length
};

struct PlyElement {
    std::string name;
    int64_t count = 0;
    std::vector<PlyProperty> properties;

    /// Position of the property called `name`, or -1.
    int find(std::string_view name) const;
};

enum class PlyFormat { ascii, binaryLittleEndian, binaryBigEndian };

struct PlyHeader {
    PlyFormat format = PlyFormat::ascii;
    std::vector<PlyElement> elements;
    size_t bodyOffset = 0;  ///< first byte after the "end_header" line
    int64_t lineCount = 0;  ///< header lines, "ply" to "end_header"
};

/// True when `bytes` starts with the line "ply".
bool looksLikePly(std::string_view bytes);

/// Parses the header at the start of `bytes`. Throws InputError naming
/// `path` and the header line: unknownFormat for a format or type this
/// reader does not take, malformed for any other broken line, truncated when
/// "end_header" is missing.
PlyHeader parsePlyHeader(std::string_view bytes, const std::string& path);

}  // namespace kestrel::meridian
