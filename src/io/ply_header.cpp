#include "io/ply_header.h"

#include "io/input_error.h"
#include "io/text_scan.h"

namespace kestrel::meridian {

namespace {

bool typeByName(std::string_view name, PlyType& type) {
    static const struct {
        const char* name;
        PlyType type;
    } kTypes[] = {
        {"char", PlyType::int8},      {"int8", PlyType::int8},       {"uchar", PlyType::uint8},
        {"uint8", PlyType::uint8},    {"short", PlyType::int16},     {"int16", PlyType::int16},
        {"ushort", PlyType::uint16},  {"uint16", PlyType::uint16},   {"int", PlyType::int32},
        {"int32", PlyType::int32},    {"uint", PlyType::uint32},     {"uint32", PlyType::uint32},
        {"float", PlyType::float32},  {"float32", PlyType::float32}, {"double", PlyType::float64},
        {"float64", PlyType::float64}};
    for (const auto& entry : kTypes)
        if (name == entry.name) {
            type = entry.type;
            return true;
        }
    return false;
}

bool isIntegerType(PlyType type) {
    return type != PlyType::float32 && type != PlyType::float64;
}

}  // namespace

int plyTypeSize(PlyType type) {
    switch (type) {
        case PlyType::int8:
        case PlyType::uint8:
            return 1;
        case PlyType::int16:
        case PlyType::uint16:
            return 2;
        case PlyType::int32:
        case PlyType::uint32:
        case PlyType::float32:
            return 4;
        case PlyType::float64:
            return 8;
    }
    return 0;
}

int PlyElement::find(std::string_view wanted) const {
    for (size_t k = 0; k < properties.size(); ++k)
        if (properties[k].name == wanted) return static_cast<int>(k);
    return -1;
}

bool looksLikePly(std::string_view bytes) {
    return bytes.substr(0, 4) == "ply\n" || bytes.substr(0, 5) == "ply\r\n";
}

PlyHeader parsePlyHeader(std::string_view bytes, const std::string& path) {
    if (!looksLikePly(bytes))
        throw InputError(InputFault::unknownFormat, path, "does not start with the line \"ply\"");
    PlyHeader header;
    scan::LineReader lines(bytes);
    std::string_view line;
    lines.next(line);
    bool haveFormat = false;
    const auto fail = [&](InputFault fault, const std::string& detail) {
        throw InputError(fault, path,
                         "header line " + std::to_string(lines.lineNumber()) + ": " + detail);
    };
    while (lines.next(line)) {
        scan::TokenReader tokens(line);
        std::string_view keyword;
        if (!tokens.next(keyword)) fail(InputFault::malformed, "empty line");
        if (keyword == "comment" || keyword == "obj_info") continue;
        if (keyword == "end_header") {
            if (!tokens.atEnd()) fail(InputFault::malformed, "text after end_header");
            if (!haveFormat) fail(InputFault::malformed, "no format line");
            header.bodyOffset = lines.consumed(bytes);
            header.lineCount = lines.lineNumber();
            return header;
        }
        std::string_view a, b, c, extra;
        if (keyword == "format") {
            if (!tokens.next(a) || !tokens.next(b) || tokens.next(extra))
                fail(InputFault::malformed, "expected \"format <type> 1.0\"");
            if (a == "ascii")
                header.format = PlyFormat::ascii;
            else if (a == "binary_little_endian")
                header.format = PlyFormat::binaryLittleEndian;
            else if (a == "binary_big_endian")
                header.format = PlyFormat::binaryBigEndian;
            else
                fail(InputFault::unknownFormat, "format " + scan::quoted(a));
            if (b != "1.0") fail(InputFault::unknownFormat, "version " + scan::quoted(b));
            haveFormat = true;
        } else if (keyword == "element") {
            int64_t count = 0;
            if (!tokens.next(a) || !tokens.next(b) || tokens.next(extra) ||
                scan::parseInt64(b, count) != scan::NumberStatus::ok || count < 0)
                fail(InputFault::malformed, "expected \"element <name> <count>\"");
            header.elements.push_back({std::string(a), count, {}});
        } else if (keyword == "property") {
            if (header.elements.empty()) fail(InputFault::malformed, "property before any element");
            PlyProperty property;
            if (!tokens.next(a)) fail(InputFault::malformed, "property without a type");
            if (a == "list") {
                property.isList = true;
                if (!tokens.next(a) || !tokens.next(b) || !tokens.next(c) || tokens.next(extra))
                    fail(InputFault::malformed,
                         "expected \"property list <count type> <item type> <name>\"");
                if (!typeByName(a, property.countType) || !isIntegerType(property.countType) ||
                    !typeByName(b, property.type))
                    fail(InputFault::unknownFormat,
                         "list types " + scan::quoted(a) + " " + scan::quoted(b));
                property.name = std::string(c);
            } else {
                if (!tokens.next(b) || tokens.next(extra))
                    fail(InputFault::malformed, "expected \"property <type> <name>\"");
                if (!typeByName(a, property.type))
                    fail(InputFault::unknownFormat, "type " + scan::quoted(a));
                property.name = std::string(b);
            }
            header.elements.back().properties.push_back(std::move(property));
        } else {
            fail(InputFault::malformed, "unknown header line " + scan::quoted(keyword));
        }
    }
    throw InputError(InputFault::truncated, path, "the header has no end_header line");
}

}  // namespace kestrel::meridian
