// Rounding to single precision. Every coordinate the demo model stores is a
// float value, so files written with float precision read back exactly and
// small differences in double arithmetic rarely change a written byte.
#pragma once

#include <Eigen/Core>

namespace meridian::demo::detail {

/// `value` rounded to the nearest float. The volatile store keeps the
/// rounding: GCC 12's SLP vectorizer drops a paired double -> float ->
/// double conversion of neighbouring values (seen at -O2 and -O3).
inline double roundToFloat(double value) {
    volatile float rounded = static_cast<float>(value);
    return rounded;
}

inline Eigen::Vector3d roundToFloat(const Eigen::Vector3d& p) {
    return {roundToFloat(p.x()), roundToFloat(p.y()), roundToFloat(p.z())};
}

inline Eigen::Vector2d roundToFloat(const Eigen::Vector2d& p) {
    return {roundToFloat(p.x()), roundToFloat(p.y())};
}

}  // namespace meridian::demo::detail
