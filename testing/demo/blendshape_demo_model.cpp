// The demo face model: the demo face as its mean, and smooth deformations
// of it as components.
#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "blendshape/backend_files.h"
#include "demo/blendshape_demo.h"
#include "demo/demo_model.h"
#include "demo/head_shape.h"

namespace meridian::demo {

namespace bs = kestrel::meridian::blendshape;
using Eigen::Index;
using Eigen::Vector3d;

namespace {

// Bump radii, coarse to fine. Each level places bumps at least 0.8 radii
// apart (farthest-point order, starting at the nose tip) until the
// components run out.
constexpr double kBumpRadii[] = {24.0, 16.0, 11.0, 8.0};
constexpr double kBumpSpacing = 0.8;
// Bumps sit on the front of the head and the ears (head y up to here).
constexpr double kFrontLimitY = 18.0;

/// Standard deviation of component j: a smoothly falling spectrum.
double sigmaOf(Index j) {
    return 400.0 * std::pow(static_cast<double>(j) + 1.0, -1.0);
}

/// A displacement field that is zero away from a few vertices.
using LocalField = std::vector<std::pair<int, Vector3d>>;

/// Bump centres among `candidates`, farthest point first.
std::vector<int> farthestPoints(const Eigen::Matrix3Xd& points, const std::vector<int>& candidates,
                                int start, double spacing, size_t limit) {
    std::vector<int> chosen;
    std::vector<double> nearest(candidates.size(), std::numeric_limits<double>::infinity());
    int next = start;
    while (chosen.size() < limit) {
        chosen.push_back(next);
        const Vector3d centre = points.col(next);
        double farthest = -1.0;
        for (size_t i = 0; i < candidates.size(); ++i) {
            nearest[i] = std::min(nearest[i], (points.col(candidates[i]) - centre).norm());
            if (nearest[i] > farthest) farthest = nearest[i], next = candidates[i];
        }
        if (farthest < spacing) break;
    }
    return chosen;
}

/// (1 - t)^3 with t = |p - centre|^2 / radius^2, 0 outside the radius.
double profile(const Vector3d& p, const Vector3d& centre, double radius) {
    const double t = (p - centre).squaredNorm() / (radius * radius);
    return t < 1.0 ? (1.0 - t) * (1.0 - t) * (1.0 - t) : 0.0;
}

}  // namespace

const Eigen::Matrix3Xd& demoModelFace() {
    static const Eigen::Matrix3Xd face = [] {
        const bs::FaceFrame frame = bs::faceFrame();
        const std::vector<int>& list = faceVertexList();
        const Eigen::Matrix3Xd& vertices = demoHead().vertices;
        Eigen::Matrix3Xd result(3, static_cast<Index>(list.size()));
        for (size_t i = 0; i < list.size(); ++i)
            result.col(static_cast<Index>(i)) = frame.toFace(vertices.col(list[i]));
        return result;
    }();
    return face;
}

namespace detail {

DemoFaceModel::DemoFaceModel() {
    const Eigen::Matrix3Xd& face = demoModelFace();
    const Index n = face.cols();
    const bs::FaceFrame frame = bs::faceFrame();

    // Polynomial fields e_i * m(q), m = 1, then (q - centre)_j / scale, then
    // (q - centre)_j (q - centre)_k / scale^2 for j <= k.
    const Vector3d centre = face.rowwise().mean();
    const double scale = std::sqrt((face.colwise() - centre).colwise().squaredNorm().mean());
    const Eigen::Matrix3Xd x = (face.colwise() - centre) / scale;
    std::vector<std::pair<int, int>> monomials = {{-1, -1}, {0, -1}, {1, -1}, {2, -1}};
    for (int j = 0; j < 3; ++j)
        for (int k = j; k < 3; ++k) monomials.emplace_back(j, k);
    const Index globalCount = 3 * static_cast<Index>(monomials.size());
    global_.setZero(3 * n, globalCount);
    Index column = 0;
    for (const auto& [j, k] : monomials)
        for (int i = 0; i < 3; ++i, ++column)
            for (Index v = 0; v < n; ++v)
                global_(3 * v + i, column) = (j < 0 ? 1.0 : x(j, v)) * (k < 0 ? 1.0 : x(k, v));
    global_.colwise().normalize();

    std::vector<LocalField> fields;
    // The sample's feature changes, along the ray from the head centre.
    const Vector3d headCentre = frame.toFace(detail::headCentre());
    for (const FeatureChange& change : sampleFeatureChanges()) {
        const Vector3d at =
            frame.toFace(Vector3d(change.centre[0], change.centre[1], change.centre[2]));
        LocalField field;
        for (Index v = 0; v < n; ++v)
            if (const double value = profile(face.col(v), at, change.reach); value > 0)
                field.emplace_back(static_cast<int>(v),
                                   value * (face.col(v) - headCentre).normalized());
        fields.push_back(std::move(field));
    }
    // Bumps in x, y and z over the front and the ears.
    std::vector<int> front;
    for (Index v = 0; v < n; ++v)
        if (frame.toHead(face.col(v)).y() <= kFrontLimitY) front.push_back(static_cast<int>(v));
    const auto budget = static_cast<size_t>(bs::kComponentCount - globalCount);
    for (double radius : kBumpRadii) {
        if (fields.size() + 3 > budget) break;
        const size_t room = (budget - fields.size()) / 3;
        for (int c : farthestPoints(face, front, kFaceAnchorNoseTip, kBumpSpacing * radius, room)) {
            LocalField bump;
            for (Index v = 0; v < n; ++v)
                if (const double value = profile(face.col(v), face.col(c), radius); value > 0)
                    bump.emplace_back(static_cast<int>(v), Vector3d(value, value, value));
            for (int d = 0; d < 3; ++d) {
                LocalField field = bump;
                for (auto& entry : field)
                    entry.second = entry.second.cwiseProduct(Vector3d::Unit(d));
                fields.push_back(std::move(field));
            }
        }
    }
    // A remainder too small for three directions gets the finest bump's
    // first directions.
    while (fields.size() < budget) fields.push_back(fields[fields.size() - 3]);
    if (fields.size() != budget) throw std::logic_error("demo face model: wrong component count");

    localAt_.assign(static_cast<size_t>(n), {});
    for (size_t f = 0; f < fields.size(); ++f) {
        double squaredNorm = 0.0;
        for (const auto& entry : fields[f]) squaredNorm += entry.second.squaredNorm();
        const double norm = std::sqrt(squaredNorm);
        for (const auto& [v, value] : fields[f])
            localAt_[static_cast<size_t>(v)].emplace_back(
                static_cast<int>(globalCount) + static_cast<int>(f), value / norm);
    }
    sigma_.resize(bs::kComponentCount);
    for (Index j = 0; j < sigma_.size(); ++j) sigma_(j) = sigmaOf(j);
}

void DemoFaceModel::basisRows(Index first, Index count, double* rows) const {
    const Index k = components();
    std::fill(rows, rows + count * k, 0.0);
    for (Index r = 0; r < count; ++r) {
        const Index v = (first + r) / 3;
        const int a = static_cast<int>((first + r) % 3);
        double* row = rows + r * k;
        for (Index m = 0; m < global_.cols(); ++m) row[m] = global_(first + r, m);
        for (const auto& [component, value] : localAt_[static_cast<size_t>(v)])
            row[component] = value(a);
    }
}

}  // namespace detail

}  // namespace meridian::demo
