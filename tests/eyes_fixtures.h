// Helpers of the eye and debug tests: the demo model set written once per
// process, and heads in the planar layout of the C interface.
#pragma once

#include <string>
#include <vector>

#include <Eigen/Core>

#include "demo/demo_model.h"
#include "fixtures.h"
#include "io/planar.h"

namespace meridian::testing {

/// The demo model directory, written on first use and removed at exit.
inline const TempDir& demoModel() {
    static const TempDir dir;
    static const bool written = [] {
        std::string error;
        return demo::writeDemoModel(dir.str(), error);
    }();
    EXPECT_TRUE(written);
    return dir;
}

/// 3 by N vertices as planar floats.
inline std::vector<float> planar(const Eigen::Matrix3Xd& vertices) {
    std::vector<float> values(3 * static_cast<size_t>(vertices.cols()));
    kestrel::meridian::matrixToPlanar(vertices, values.data());
    return values;
}

/// The demo head moved by p -> scale * p + offset.
inline Eigen::Matrix3Xd scaledDemoHead(double scale, const Eigen::Vector3d& offset) {
    return (scale * demo::demoHead().vertices).colwise() + offset;
}

}  // namespace meridian::testing
