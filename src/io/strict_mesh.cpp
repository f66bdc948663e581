#include "io/strict_mesh.h"

#include <cctype>

#include "io/input_error.h"
#include "io/ply_header.h"
#include "io/whole_file.h"

namespace kestrel::meridian {

namespace {

bool endsWithObj(const std::string& path) {
    if (path.size() < 4) return false;
    std::string ext = path.substr(path.size() - 4);
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext == ".obj";
}

}  // namespace

StrictMesh parseStrictMesh(std::string_view bytes, const std::string& path) {
    if (looksLikePly(bytes)) return parseStrictPly(bytes, path);
    if (endsWithObj(path)) return parseStrictObj(bytes, path);
    throw InputError(InputFault::unknownFormat, path,
                     "neither a PLY (first line \"ply\") nor a file named .obj");
}

StrictMesh readStrictMesh(const std::string& path) {
    return parseStrictMesh(readFileBytes(path).view(), path);
}

}  // namespace kestrel::meridian
