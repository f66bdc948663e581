// Strict PLY reading: a parsed header, then an ascii or binary body that
// must hold exactly what the header declares.
#include <cmath>
#include <cstring>
#include <string>

#include "io/input_error.h"
#include "io/ply_header.h"
#include "io/strict_mesh.h"
#include "io/text_scan.h"

namespace kestrel::meridian {

namespace {

using scan::NumberStatus;

bool hostIsLittleEndian() {
    const uint16_t one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

template <typename T>
double decode(const char* at, bool swap) {
    unsigned char raw[sizeof(T)];
    std::memcpy(raw, at, sizeof(T));
    if (swap)
        for (size_t k = 0; k < sizeof(T) / 2; ++k) std::swap(raw[k], raw[sizeof(T) - 1 - k]);
    T value;
    std::memcpy(&value, raw, sizeof(T));
    return static_cast<double>(value);
}

double decodeValue(PlyType type, const char* at, bool swap) {
    switch (type) {
        case PlyType::int8:
            return decode<int8_t>(at, swap);
        case PlyType::uint8:
            return decode<uint8_t>(at, swap);
        case PlyType::int16:
            return decode<int16_t>(at, swap);
        case PlyType::uint16:
            return decode<uint16_t>(at, swap);
        case PlyType::int32:
            return decode<int32_t>(at, swap);
        case PlyType::uint32:
            return decode<uint32_t>(at, swap);
        case PlyType::float32:
            return decode<float>(at, swap);
        case PlyType::float64:
            return decode<double>(at, swap);
    }
    return 0;
}

bool isInteger(PlyType type) {
    return type != PlyType::float32 && type != PlyType::float64;
}

/// What the reader keeps of one element's properties.
struct ElementRoles {
    int coordinate[3] = {-1, -1, -1};  ///< x, y, z of a vertex element
    int corners = -1;                  ///< the index list of a face element
};

class PlyBodyParser {
  public:
    PlyBodyParser(std::string_view bytes, const std::string& path)
        : bytes_(bytes), path_(path), header_(parsePlyHeader(bytes, path)) {
        swap_ = header_.format == PlyFormat::binaryBigEndian ? hostIsLittleEndian()
                                                             : !hostIsLittleEndian();
    }

    StrictMesh parse() {
        size_t offset = header_.bodyOffset;
        scan::LineReader lines(bytes_.substr(offset));
        bool haveVertices = false;
        for (const PlyElement& element : header_.elements) {
            const ElementRoles roles = rolesOf(element);
            if (element.name == "vertex") {
                haveVertices = true;
                mesh_.vertices.reserve(3 * static_cast<size_t>(element.count));
            }
            if (header_.format == PlyFormat::ascii)
                readAscii(element, roles, lines);
            else
                offset = readBinary(element, roles, offset);
        }
        if (!haveVertices) throw InputError(InputFault::malformed, path_, "no vertex element");
        if (header_.format == PlyFormat::ascii) {
            std::string_view line;
            while (lines.next(line))
                if (!scan::TokenReader(line).atEnd())
                    throw InputError(InputFault::malformed, path_,
                                     "line " +
                                         std::to_string(header_.lineCount + lines.lineNumber()) +
                                         ": text after the last element the header declares");
        } else if (offset != bytes_.size()) {
            throw InputError(InputFault::malformed, path_,
                             std::to_string(bytes_.size() - offset) +
                                 " bytes after the last element the header declares");
        }
        const int64_t vertexCount = mesh_.vertexCount();
        for (size_t k = 0; k < mesh_.faces.size(); ++k)
            if (mesh_.faces[k] < 0 || mesh_.faces[k] >= vertexCount)
                throw InputError(InputFault::indexOutOfRange, path_,
                                 "face " + std::to_string(k / 3) + " names vertex " +
                                     std::to_string(mesh_.faces[k]) + ", outside 0.." +
                                     std::to_string(vertexCount - 1));
        return std::move(mesh_);
    }

  private:
    ElementRoles rolesOf(const PlyElement& element) const {
        ElementRoles roles;
        if (element.name == "vertex") {
            const char* names[3] = {"x", "y", "z"};
            for (int r = 0; r < 3; ++r) {
                roles.coordinate[r] = element.find(names[r]);
                if (roles.coordinate[r] < 0 || element.properties[roles.coordinate[r]].isList)
                    throw InputError(InputFault::malformed, path_,
                                     std::string("the vertex element has no property ") + names[r]);
            }
        } else if (element.name == "face") {
            roles.corners = element.find("vertex_indices");
            if (roles.corners < 0) roles.corners = element.find("vertex_index");
            if (roles.corners < 0 || !element.properties[roles.corners].isList ||
                !isInteger(element.properties[roles.corners].type))
                throw InputError(InputFault::malformed, path_,
                                 "the face element has no integer list vertex_indices");
        }
        // Every element takes at least one byte (binary) or one line end
        // (ascii), so a count above the body's size is refused before any
        // table is sized from it.
        if (!element.properties.empty() &&
            element.count > static_cast<int64_t>(bytes_.size() - header_.bodyOffset))
            throw InputError(InputFault::truncated, path_,
                             "the header declares " + std::to_string(element.count) + " " +
                                 element.name + " elements, the body has only " +
                                 std::to_string(bytes_.size() - header_.bodyOffset) + " bytes");
        return roles;
    }

    [[noreturn]] void shortBody(const PlyElement& element, int64_t read) const {
        throw InputError(InputFault::truncated, path_,
                         "the header declares " + std::to_string(element.count) + " " +
                             element.name + " elements, the body ends after " +
                             std::to_string(read));
    }

    [[noreturn]] void badCoordinate(int64_t vertex, const std::string& shown,
                                    const std::string& where) const {
        throw InputError(
            InputFault::nonFinite, path_,
            where + "vertex " + std::to_string(vertex) + " has a non-finite coordinate " + shown);
    }

    void addCorner(const PlyElement& element, int64_t item, int64_t listLength, double value,
                   const std::string& where) {
        if (listLength != 3)
            throw InputError(InputFault::malformed, path_,
                             where + element.name + " " + std::to_string(item) + " has " +
                                 std::to_string(listLength) + " corners; only triangles are read");
        if (value < 0 || value > 2147483647.0)
            throw InputError(InputFault::indexOutOfRange, path_,
                             where + element.name + " " + std::to_string(item) + " names vertex " +
                                 std::to_string(value));
        mesh_.faces.push_back(static_cast<int32_t>(value));
    }

    void readAscii(const PlyElement& element, const ElementRoles& roles, scan::LineReader& lines) {
        // Items without properties are blank lines, which the reader skips
        // anyway; as in binary, they take nothing.
        if (element.properties.empty()) return;
        for (int64_t item = 0; item < element.count; ++item) {
            std::string_view line;
            do {
                if (!lines.next(line)) shortBody(element, item);
            } while (scan::TokenReader(line).atEnd());
            const std::string where =
                "line " + std::to_string(header_.lineCount + lines.lineNumber()) + ": ";
            scan::TokenReader tokens(line);
            float xyz[3] = {0, 0, 0};
            for (size_t p = 0; p < element.properties.size(); ++p) {
                const PlyProperty& property = element.properties[p];
                std::string_view token;
                const auto next = [&]() {
                    if (!tokens.next(token))
                        throw InputError(InputFault::malformed, path_,
                                         where + element.name + " " + std::to_string(item) +
                                             " lacks property " + property.name);
                };
                next();
                const int role = roleOf(roles, static_cast<int>(p));
                if (role >= 0) {
                    if (scan::parseFloat(token, xyz[role]) != NumberStatus::ok)
                        badCoordinate(item, scan::quoted(token), where);
                    continue;
                }
                int64_t length = 1;
                if (property.isList) {
                    if (scan::parseInt64(token, length) != NumberStatus::ok || length < 0)
                        throw InputError(InputFault::malformed, path_,
                                         where + "list length " + scan::quoted(token));
                    for (int64_t k = 0; k < length; ++k) {
                        next();
                        const double value = numberToken(property.type, token, where);
                        if (static_cast<int>(p) == roles.corners)
                            addCorner(element, item, length, value, where);
                    }
                    if (static_cast<int>(p) == roles.corners && length != 3)
                        addCorner(element, item, length, 0, where);
                } else {
                    numberToken(property.type, token, where);
                }
            }
            if (!tokens.atEnd())
                throw InputError(InputFault::malformed, path_,
                                 where + element.name + " " + std::to_string(item) +
                                     " has more values than its " +
                                     std::to_string(element.properties.size()) + " properties");
            if (roles.coordinate[0] >= 0) mesh_.vertices.insert(mesh_.vertices.end(), xyz, xyz + 3);
        }
    }

    double numberToken(PlyType type, std::string_view token, const std::string& where) const {
        if (isInteger(type)) {
            int64_t value;
            if (scan::parseInt64(token, value) == NumberStatus::ok)
                return static_cast<double>(value);
        } else {
            double value;
            if (scan::parseDouble(token, value) == NumberStatus::ok) return value;
        }
        throw InputError(InputFault::malformed, path_,
                         where + scan::quoted(token) + " is not a number of its property's type");
    }

    static int roleOf(const ElementRoles& roles, int property) {
        for (int r = 0; r < 3; ++r)
            if (roles.coordinate[r] == property) return r;
        return -1;
    }

    size_t readBinary(const PlyElement& element, const ElementRoles& roles, size_t offset) {
        // An element without properties takes no bytes, whatever its count;
        // walking its items would only spin.
        if (element.properties.empty()) return offset;
        const char* data = bytes_.data();
        const size_t size = bytes_.size();
        for (int64_t item = 0; item < element.count; ++item) {
            float xyz[3] = {0, 0, 0};
            for (size_t p = 0; p < element.properties.size(); ++p) {
                const PlyProperty& property = element.properties[p];
                if (property.isList) {
                    const size_t countSize = static_cast<size_t>(plyTypeSize(property.countType));
                    if (size - offset < countSize) shortBody(element, item);
                    const double length = decodeValue(property.countType, data + offset, swap_);
                    offset += countSize;
                    if (length < 0)
                        throw InputError(
                            InputFault::malformed, path_,
                            element.name + " " + std::to_string(item) + ": negative list length");
                    const size_t itemSize = static_cast<size_t>(plyTypeSize(property.type));
                    const size_t count = static_cast<size_t>(length);
                    if ((size - offset) / itemSize < count) shortBody(element, item);
                    if (static_cast<int>(p) == roles.corners) {
                        if (count != 3)
                            addCorner(element, item, static_cast<int64_t>(count), 0, "");
                        for (size_t k = 0; k < 3; ++k)
                            addCorner(
                                element, item, 3,
                                decodeValue(property.type, data + offset + k * itemSize, swap_),
                                "");
                    }
                    offset += count * itemSize;
                    continue;
                }
                const size_t valueSize = static_cast<size_t>(plyTypeSize(property.type));
                if (size - offset < valueSize) shortBody(element, item);
                const int role = roleOf(roles, static_cast<int>(p));
                if (role >= 0) {
                    const double value = decodeValue(property.type, data + offset, swap_);
                    xyz[role] = static_cast<float>(value);
                    if (!std::isfinite(value) || !std::isfinite(xyz[role]))
                        badCoordinate(item, std::to_string(value), "");
                }
                offset += valueSize;
            }
            if (roles.coordinate[0] >= 0) mesh_.vertices.insert(mesh_.vertices.end(), xyz, xyz + 3);
        }
        return offset;
    }

    std::string_view bytes_;
    const std::string& path_;
    PlyHeader header_;
    bool swap_ = false;
    StrictMesh mesh_;
};

}  // namespace

StrictMesh parseStrictPly(std::string_view bytes, const std::string& path) {
    return PlyBodyParser(bytes, path).parse();
}

}  // namespace kestrel::meridian
