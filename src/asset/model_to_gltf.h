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
    Eigen::Matrix3Xd operator()(const Eigen::Matrix3Xd& points) const {
        Eigen::Matrix3Xd mapped(3, points.cols());
        map(points.cols(), mapped.data(), [&](Eigen::Index j, int r) { return points(r, j); });
        return mapped;
    }

    /// The same for `count` points given planar in float (x of point j at
    /// `planar[j]`, y at `planar[count + j]`, z at `planar[2 * count + j]`),
    /// widened on the fly rather than through a 3 by #V double copy.
    Eigen::Matrix3Xd fromPlanar(const float* planar, Eigen::Index count) const {
        Eigen::Matrix3Xd mapped;
        fromPlanar(planar, count, mapped);
        return mapped;
    }

    /// fromPlanar into `mapped` (resized to 3 by `count`; its storage is
    /// reused when the size stays).
    void fromPlanar(const float* planar, Eigen::Index count, Eigen::Matrix3Xd& mapped) const {
        mapped.resize(3, count);
        map(count, mapped.data(),
            [&](Eigen::Index j, int r) { return static_cast<double>(planar[r * count + j]); });
    }

  private:
    /// Each coordinate is the three products summed first to last, as the
    /// 3 by 3 matrix product sums them, so assets keep their bits (signed
    /// zeros included).
    /// `out`: 3 by `count`, coordinate r of point j at 3 * j + r.
    template <typename Coordinate>
    void map(Eigen::Index count, double* out, const Coordinate& coordinate) const {
        const Eigen::Matrix3d linear = matrix();
        for (Eigen::Index j = 0; j < count; ++j, out += 3) {
            const double x = coordinate(j, 0), y = coordinate(j, 1), z = coordinate(j, 2);
            for (int r = 0; r < 3; ++r)
                out[r] = (linear(r, 0) * x + linear(r, 1) * y) + linear(r, 2) * z;
        }
    }
};

}  // namespace meridian::exporter
