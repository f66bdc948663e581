// Wording of template faces that cannot be used.
#pragma once

#include <sstream>
#include <string>

#include "tbn/frame_arithmetic.h"

namespace kestrel::meridian {

/// "<source>: face 12 names vertex 20490; valid vertices are 1..20481" and
/// the like, with the face counted from 1 and the index as written.
inline std::string describeBadFace(const std::string& source, const BadFaceCorner& bad) {
    const char* what = bad.texture ? "texture coordinates" : "vertices";
    std::ostringstream text;
    text << source << ": face " << bad.face + 1;
    if (bad.missing)
        text << " has no texture indices";
    else
        text << " names " << (bad.texture ? "texture coordinate " : "vertex ") << bad.value;
    if (bad.limit == 0)
        text << "; there are no " << what;
    else if (!bad.missing)
        text << "; valid " << what << " are 1.." << bad.limit;
    return text.str();
}

}  // namespace kestrel::meridian
