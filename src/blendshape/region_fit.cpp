#include "blendshape/region_fit.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <unordered_map>

#include "blendshape/row_kernels.h"

namespace kestrel::meridian::blendshape {

namespace {

using Eigen::Index;

void require(bool condition, const std::string& message) {
    if (!condition) throw std::invalid_argument("region fit: " + message);
}

}  // namespace

std::vector<int> RegionFit::rowVertices(const RegionDefinition& region) {
    std::vector<int> vertices;
    std::unordered_map<int, int> seen;
    auto add = [&](int vertex) {
        if (seen.emplace(vertex, static_cast<int>(vertices.size())).second)
            vertices.push_back(vertex);
    };
    for (int q : region.fixed) add(q);
    add(region.anchor);
    for (int k : region.all) add(k);
    return vertices;
}

RegionFit::RegionFit(RegionDefinition region, const double* basisRows, Index components,
                     const Eigen::Ref<const Eigen::VectorXd>& mean,
                     const Eigen::Ref<const Eigen::VectorXd>& sigma)
    : region_(std::move(region)), basisRows_(basisRows), components_(components) {
    const RegionDefinition& r = region_;
    const Index faceVertices = mean.size() / 3;
    require(sigma.size() == components, "sigma has " + std::to_string(sigma.size()) +
                                            " entries for " + std::to_string(components) +
                                            " components");
    require(r.fixedWeights.size() == r.fixed.size(), "one blend weight per border vertex needed");
    require(std::isfinite(r.w0) && r.w0 >= 0 && std::isfinite(r.w1) && r.w1 >= 0,
            "constraint weights must be finite and not negative");
    require(std::isfinite(r.w2) && r.w2 > 0, "the prior weight must be positive");
    require((sigma.array() > 0).all() && sigma.allFinite(),
            "every standard deviation must be positive and finite");

    rowVertices_ = rowVertices(r);
    for (int vertex : rowVertices_) {
        require(vertex >= 0 && vertex < faceVertices, "face vertex " + std::to_string(vertex) +
                                                          " outside 0.." +
                                                          std::to_string(faceVertices - 1));
        faceVerticesNeeded_ = std::max<Index>(faceVerticesNeeded_, vertex + 1);
    }
    std::unordered_map<int, int> rowOf;
    for (size_t i = 0; i < rowVertices_.size(); ++i)
        rowOf.emplace(rowVertices_[i], static_cast<int>(i));
    for (int q : r.fixed) fixedRow_.push_back(rowOf.at(q));
    anchorRow_ = rowOf.at(r.anchor);
    for (int k : r.all) allRow_.push_back(rowOf.at(k));
    // The constraint vertices lead the row order, the anchor last among them
    // unless it is also a border vertex.
    constraintVertices_ = anchorRow_ + 1;
    for (int row : fixedRow_) constraintVertices_ = std::max<Index>(constraintVertices_, row + 1);

    meanRows_.resize(3 * static_cast<Index>(rowVertices_.size()));
    for (size_t i = 0; i < rowVertices_.size(); ++i)
        meanRows_.segment<3>(3 * static_cast<Index>(i)) = mean.segment<3>(3 * rowVertices_[i]);

    outputOfRow_.assign(rowVertices_.size(), -1);
    auto output = [&](int row) {
        if (outputOfRow_[row] >= 0) return;
        outputOfRow_[row] = static_cast<int>(outputVertices_.size());
        outputVertices_.push_back(rowVertices_[row]);
    };
    for (int row : allRow_) output(row);
    for (int row : fixedRow_) output(row);

    // Each constraint row enters the system with the sum of its weights (a
    // vertex listed twice counts twice).
    const Index constraintRows = 3 * constraintVertices_;
    Eigen::VectorXd rowWeight = Eigen::VectorXd::Zero(constraintRows);
    for (int row : fixedRow_) rowWeight.segment<3>(3 * row).array() += r.w1;
    rowWeight.segment<3>(3 * anchorRow_).array() += r.w0;
    const RowMajorMatrixXd scaled = rowWeight.cwiseSqrt().asDiagonal() * rows(0, constraintRows);
    Eigen::MatrixXd system = Eigen::MatrixXd::Zero(components, components);
    system.diagonal() = r.w2 * sigma.array().square().inverse();
    system.selfadjointView<Eigen::Lower>().rankUpdate(scaled.transpose());
    system_.compute(system);
    require(system_.info() == Eigen::Success, "the fit's system is not positive definite");
}

Eigen::VectorXd RegionFit::constraintResidual(
    const Eigen::Ref<const Eigen::Matrix3Xd>& face) const {
    const RegionDefinition& r = region_;
    if (face.cols() < faceVerticesNeeded_)
        throw std::invalid_argument("region fit: face has too few vertices");
    Eigen::Vector3d centroid = Eigen::Vector3d::Zero();
    for (int q : r.fixed) centroid += face.col(q);
    // Without a border the anchor stays where it is.
    centroid = r.fixed.empty() ? Eigen::Vector3d(face.col(r.anchor))
                               : Eigen::Vector3d(centroid / static_cast<double>(r.fixed.size()));
    const Eigen::Vector3d anchorTarget = centroid + r.w3 * (face.col(r.anchor) - centroid);

    Eigen::VectorXd residual = Eigen::VectorXd::Zero(3 * constraintVertices_);
    for (size_t j = 0; j < r.fixed.size(); ++j) {
        const Index row = 3 * fixedRow_[j];
        residual.segment<3>(row) += r.w1 * (face.col(r.fixed[j]) - meanRows_.segment<3>(row));
    }
    const Index row = 3 * anchorRow_;
    residual.segment<3>(row) += r.w0 * (anchorTarget - meanRows_.segment<3>(row));
    return residual;
}

Eigen::VectorXd RegionFit::coefficients(const Eigen::Ref<const Eigen::Matrix3Xd>& face) const {
    const Eigen::VectorXd residual = constraintResidual(face);
    Eigen::VectorXd rhs(components_);
    weightedRowSum(basisRows_, residual.size(), components_, residual.data(), rhs.data());
    return system_.solve(rhs);
}

void RegionFit::assemble(const Eigen::VectorXd& surface,
                         const Eigen::Ref<const Eigen::Matrix3Xd>& face,
                         Eigen::Matrix3Xd& out) const {
    out.resize(3, static_cast<Index>(outputVertices_.size()));
    for (int row : allRow_) out.col(outputOfRow_[row]) = surface.segment<3>(3 * row);
    for (size_t j = 0; j < region_.fixed.size(); ++j) {
        const double w = region_.fixedWeights[j];
        const int row = fixedRow_[j];
        out.col(outputOfRow_[row]) =
            w * surface.segment<3>(3 * row) + (1.0 - w) * face.col(region_.fixed[j]);
    }
}

void RegionFit::deform(const Eigen::Ref<const Eigen::Matrix3Xd>& face,
                       Eigen::Matrix3Xd& out) const {
    const Eigen::VectorXd c = coefficients(face);
    // The constraint rows were just read for the right-hand side and are
    // likely still cached, so they are reconstructed first.
    Eigen::VectorXd surface(meanRows_.size());
    multiplyRows(basisRows_, surface.size(), components_, c.data(), surface.data());
    surface += meanRows_;
    assemble(surface, face, out);
}

void RegionFit::deformBatch(const std::vector<const Eigen::Matrix3Xd*>& faces,
                            std::vector<Eigen::Matrix3Xd>& outs) const {
    const auto count = static_cast<Index>(faces.size());
    const Index constraintRows = 3 * constraintVertices_;
    // Column k of each matrix belongs to face k (column-major: k * rows + i).
    Eigen::MatrixXd residuals(constraintRows, count);
    for (Index k = 0; k < count; ++k) residuals.col(k) = constraintResidual(*faces[k]);
    Eigen::MatrixXd rhs(components_, count);
    weightedRowSumBatch(basisRows_, constraintRows, components_, residuals.data(), count,
                        rhs.data());
    // One vector solve per face: a solve with several right-hand sides may
    // block its sums differently.
    Eigen::MatrixXd c(components_, count);
    for (Index k = 0; k < count; ++k) {
        const Eigen::VectorXd column = rhs.col(k);
        const Eigen::VectorXd solved = system_.solve(column);
        c.col(k) = solved;
    }
    Eigen::MatrixXd surfaces(meanRows_.size(), count);
    multiplyRowsBatch(basisRows_, meanRows_.size(), components_, c.data(), count, surfaces.data());
    outs.resize(faces.size());
    for (Index k = 0; k < count; ++k) {
        Eigen::VectorXd surface = surfaces.col(k);
        surface += meanRows_;
        assemble(surface, *faces[k], outs[static_cast<size_t>(k)]);
    }
}

}  // namespace kestrel::meridian::blendshape
