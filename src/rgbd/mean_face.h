// The 3-D mean face that head angles are fitted to.
#pragma once

#include <array>

namespace kestrel::meridian {

/// 306 values: x of the 102 kept landmarks, then their y, then their z
/// (x to the face's image right, y up, z toward the viewer).
const std::array<double, 306>& meanFaceConstants();

}  // namespace kestrel::meridian
