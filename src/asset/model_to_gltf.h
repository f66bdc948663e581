// The one transform from a model's frame into glTF's. Model heads have x
// across the face (+x is the subject's left), z up, and look toward -y; glTF
// wants metres, +Y up and the asset's front toward +Z (so +X is its left).
#pragma once

#include <Eigen/Core>

namespace meridian::exporter {

/// Metres per model unit unless the caller says otherwise: the demo head's
/// eye centres, 24.2 units apart, come out 63 mm apart (an adult's mean).
inline constexpr double kDefaultMetresPerUnit = 0.0026;

/// p -> metresPerUnit * A * p with A the axis change X = x, Y = z, Z = -y
/// (a proper rotation: determinant +1, so faces keep their winding).
struct ModelToGltf {
    double metresPerUnit = kDefaultMetresPerUnit;

    /// The linear map, 3 by 3.
    Eigen::Matrix3d matrix() const {
        Eigen::Matrix3d axes;
        axes << 1, 0, 0,  //
            0, 0, 1,      //
            0, -1, 0;
        return metresPerUnit * axes;
    }

    /// Points (3 by #V) into glTF; offsets map the same way (no translation).
    Eigen::Matrix3Xd operator()(const Eigen::Matrix3Xd& points) const { return matrix() * points; }
};

}  // namespace meridian::exporter
