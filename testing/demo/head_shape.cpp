#include "demo/head_shape.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <Eigen/Cholesky>

#include "demo/float_round.h"
#include "demo/grid_mesh.h"

namespace meridian::demo::detail {

namespace {

using Eigen::Vector3d;

constexpr double kPi = 3.14159265358979323846;

// Skull: a superellipsoid around a centre behind the eyes.
constexpr double kCentreY = 17.0, kCentreZ = -8.0;  // on the symmetry plane x = 0
constexpr double kHalfWidth = 26.0;
constexpr double kFrontDepth = 33.5;
constexpr double kBackDepth = 35.0;
constexpr double kCrownHeight = 42.0;
constexpr double kChinDrop = 36.0;
constexpr double kSkullExponent = 2.5;

// Neck: a vertical cylinder under the centre, merged with a smooth maximum.
constexpr double kNeckRadius = 12.0;
constexpr double kNeckBlend = 6.0;
constexpr double kNeckBottomZ = -78.0;

// Eye sockets: centred among the landmarks around each eye, with the front of
// the sphere level with the lid landmarks (y about -13.9).
constexpr double kSocketCentres[2][3] = {{-11.7, -9.1, -7.6}, {12.5, -9.3, -7.6}};
constexpr double kSocketRadius = 5.0;
constexpr double kSocketBlendEnd = 3.4;

// Landmark correction: Gaussian kernel over directions, with a ridge so that
// landmarks that nearly share a direction do not make it oscillate.
constexpr double kKernelWidth = 0.1;
constexpr double kRidge = 0.05;

// Column density is highest at the face; rows are densest at eye height.
constexpr double kColumnCrowding = 0.65;
constexpr double kRowCrowding = 2.5;
constexpr double kRowCrowdingWidth = 7.0;
constexpr double kEyeHeight = -7.6;

/// A feature: the surface is pushed out along the ray by
/// amplitude * exp(-sum(((q - centre) / scale)^2)), q the skull point.
struct Bump {
    Vector3d centre;
    Vector3d scale;
    double amplitude;
};

const std::vector<Bump>& features() {
    static const std::vector<Bump> bumps = [] {
        std::vector<Bump> list = {
            {{0, -17, -21}, {3.0, 10, 8}, 5.5},   // nose ridge
            {{0, -20, -25}, {3.0, 6, 3.0}, 2.5},  // nose tip
            {{0, -16, -32}, {6.0, 8, 2.2}, 1.5},  // lips
            {{0, -12, -42}, {6.0, 8, 4.5}, 4.0},  // chin
            {{0, -8, -36}, {14.0, 10, 9}, 3.0},   // lower face
        };
        for (double side : {-1.0, 1.0}) {
            list.push_back({{side * 3.8, -16, -26}, {2.2, 6, 2.2}, 1.8});   // nostril wing
            list.push_back({{side * 12, -15, -7.6}, {5.0, 6, 4.0}, -3.0});  // eye hollow
            list.push_back({{side * 15, -11, -17}, {5.0, 8, 6}, 2.0});      // cheekbone
            list.push_back({{side * 26, 16, -12}, {2.5, 5, 8}, 5.0});       // ear
            list.push_back({{side * 24, 0, -30}, {5.0, 10, 10}, -3.0});     // jaw side
        }
        return list;
    }();
    return bumps;
}

double skullRadius(const Vector3d& d) {
    const double depth = d.y() < 0 ? kFrontDepth : kBackDepth;
    const double height = d.z() > 0 ? kCrownHeight : kChinDrop;
    const double sum = std::pow(std::abs(d.x()) / kHalfWidth, kSkullExponent) +
                       std::pow(std::abs(d.y()) / depth, kSkullExponent) +
                       std::pow(std::abs(d.z()) / height, kSkullExponent);
    return std::pow(sum, -1.0 / kSkullExponent);
}

double featureRadius(const Vector3d& d) {
    const double skull = skullRadius(d);
    const Vector3d q = headCentre() + skull * d;
    double radius = skull;
    for (const Bump& bump : features()) {
        const double e = ((q - bump.centre).array() / bump.scale.array()).square().sum();
        radius += bump.amplitude * std::exp(-e);
    }
    return radius;
}

double neckRadius(const Vector3d& d) {
    if (d.z() >= 0) return 0.0;
    return kNeckRadius / std::max(std::hypot(d.x(), d.y()), 1e-12);
}

// Polynomial smooth maximum: exact outside a band of width k.
double smoothMax(double a, double b, double k) {
    const double h = std::max(k - std::abs(a - b), 0.0) / k;
    return std::max(a, b) + h * h * k * 0.25;
}

double baseRadius(const Vector3d& d) {
    return smoothMax(featureRadius(d), neckRadius(d), kNeckBlend);
}

Vector3d basePoint(const Vector3d& d) {
    return headCentre() + baseRadius(d) * d;
}

Vector3d direction(double polar, double azimuth) {
    return {std::sin(polar) * std::cos(azimuth), std::sin(polar) * std::sin(azimuth),
            std::cos(polar)};
}

/// Where the ray from the centre leaves the socket sphere (its front side)
/// and how much that sphere owns the surface there (1 on the cap, 0 outside).
struct SocketHit {
    double radius = 0.0;
    double weight = 0.0;
};

SocketHit socketHit(const SocketSphere& socket, const Vector3d& d) {
    const Vector3d offset = headCentre() - socket.centre;
    const double b = d.dot(offset);
    const double disc = b * b - (offset.squaredNorm() - socket.radius * socket.radius);
    if (disc <= 0) return {};
    SocketHit hit;
    hit.radius = -b + std::sqrt(disc);
    if (hit.radius <= 0) return {};  // the sphere lies behind the centre
    const double axis = socketAxisDistance(socket, headCentre() + hit.radius * d);
    if (axis <= kSocketCapRadius) {
        hit.weight = 1.0;
    } else if (axis < kSocketBlendEnd) {
        const double t = (kSocketBlendEnd - axis) / (kSocketBlendEnd - kSocketCapRadius);
        hit.weight = t * t * (3.0 - 2.0 * t);
    }
    return hit;
}

std::array<SocketSphere, 2> makeSockets() {
    std::array<SocketSphere, 2> sockets;
    for (int eye = 0; eye < 2; ++eye) {
        sockets[eye].centre =
            Vector3d(kSocketCentres[eye][0], kSocketCentres[eye][1], kSocketCentres[eye][2]);
        sockets[eye].radius = kSocketRadius;
    }
    return sockets;
}

/// Column azimuths: the seam at the back (+y), increasing counter-clockwise
/// seen from above, crowded toward the face.
std::vector<double> columnAzimuths() {
    std::vector<double> azimuths(kGridCols);
    for (int col = 0; col < kGridCols; ++col) {
        const double s = static_cast<double>(col) / kGridCols;
        const double f = s + kColumnCrowding / (2.0 * kPi) * std::sin(2.0 * kPi * s);
        azimuths[col] = 0.5 * kPi + 2.0 * kPi * f;
    }
    return azimuths;
}

/// Ring polar angles: equal steps of weighted arc length along the front and
/// side meridians, weighted up around eye height.
std::vector<double> rowPolarAngles() {
    const double bottom = kPi - std::atan2(kNeckRadius, kCentreZ - kNeckBottomZ);
    constexpr int kSamples = 8192;
    std::vector<double> cumulative(kSamples + 1, 0.0);
    Vector3d prevFront = basePoint(Vector3d::UnitZ());
    Vector3d prevSide = prevFront;
    for (int k = 1; k <= kSamples; ++k) {
        const double polar = bottom * k / kSamples;
        const Vector3d front = basePoint(direction(polar, 1.5 * kPi));
        const Vector3d side = basePoint(direction(polar, 0.0));
        const double length = 0.5 * ((front - prevFront).norm() + (side - prevSide).norm());
        const double crowd =
            1.0 +
            kRowCrowding * std::exp(-std::pow((front.z() - kEyeHeight) / kRowCrowdingWidth, 2));
        cumulative[k] = cumulative[k - 1] + length * crowd;
        prevFront = front;
        prevSide = side;
    }
    std::vector<double> polars(kGridRows);
    int k = 0;
    for (int row = 0; row < kGridRows; ++row) {
        const double target = cumulative[kSamples] * (row + 1) / kGridRows;
        while (k < kSamples && cumulative[k + 1] < target) ++k;
        const double span = cumulative[k + 1] - cumulative[k];
        const double t = span > 0 ? (target - cumulative[k]) / span : 0.0;
        polars[row] = bottom * (k + std::min(t, 1.0)) / kSamples;
    }
    polars.back() = bottom;
    return polars;
}

/// Smooth radial offset over directions that takes the surface through the
/// landmarks (those not covered by a socket cap).
class LandmarkCorrection {
  public:
    explicit LandmarkCorrection(const std::array<SocketSphere, 2>& sockets) {
        std::vector<double> targets;
        for (int k = 0; k < kLandmarkCount; ++k) {
            const Vector3d p(kLandmarkPositions[k][0], kLandmarkPositions[k][1],
                             kLandmarkPositions[k][2]);
            const Vector3d d = (p - headCentre()).normalized();
            const double wanted = (p - headCentre()).norm();
            double weight = 0.0, sphere = 0.0;
            for (const SocketSphere& socket : sockets) {
                const SocketHit hit = socketHit(socket, d);
                if (hit.weight > weight) weight = hit.weight, sphere = hit.radius;
            }
            if (weight >= 0.5) continue;  // the cap decides there; the snap does the rest
            directions_.push_back(d);
            targets.push_back((wanted - weight * sphere) / (1.0 - weight) - baseRadius(d));
        }
        const int n = static_cast<int>(directions_.size());
        Eigen::MatrixXd gram(n, n);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) gram(i, j) = kernel(directions_[i], directions_[j]);
        gram.diagonal().array() += kRidge;
        weights_ = gram.ldlt().solve(Eigen::Map<const Eigen::VectorXd>(targets.data(), n));
    }

    double operator()(const Vector3d& d) const {
        double offset = 0.0;
        for (size_t k = 0; k < directions_.size(); ++k)
            offset += weights_[static_cast<Eigen::Index>(k)] * kernel(d, directions_[k]);
        return offset;
    }

  private:
    static double kernel(const Vector3d& a, const Vector3d& b) {
        return std::exp(-(1.0 - a.dot(b)) / (kKernelWidth * kKernelWidth));
    }
    std::vector<Vector3d> directions_;
    Eigen::VectorXd weights_;
};

}  // namespace

Eigen::Vector3d headCentre() {
    return {0.0, kCentreY, kCentreZ};
}

HeadShape buildHeadShape() {
    HeadShape shape;
    shape.sockets = makeSockets();
    const LandmarkCorrection correction(shape.sockets);
    auto surfacePoint = [&](const Vector3d& d) {
        double radius = baseRadius(d) + correction(d);
        for (const SocketSphere& socket : shape.sockets) {
            const SocketHit hit = socketHit(socket, d);
            radius = (1.0 - hit.weight) * radius + hit.weight * hit.radius;
        }
        return roundToFloat(Vector3d(headCentre() + radius * d));
    };

    shape.points.resize(3, kGridVertexCount);
    shape.points.col(0) = surfacePoint(Vector3d::UnitZ());
    const std::vector<double> azimuths = columnAzimuths();
    const std::vector<double> polars = rowPolarAngles();
    for (int row = 0; row < kGridRows; ++row)
        for (int col = 0; col < kGridCols; ++col)
            shape.points.col(gridVertex(row, col)) =
                surfacePoint(direction(polars[row], azimuths[col]));
    return shape;
}

}  // namespace meridian::demo::detail
