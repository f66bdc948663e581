// The region fit of a face model: the objective's closed-form answer on a
// model whose components each move one coordinate, agreement with the
// normal equations solved per call, a real statistical face model, and the
// basis layout and task spreading the engine builds on.
#include <gtest/gtest.h>

#include <Eigen/QR>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "blendshape/basis_store.h"
#include "blendshape/blendshape_literal_reference.h"
#include "blendshape/parallel_tasks.h"
#include "blendshape/region_fit.h"
#include "fixtures.h"
#include "io/matrix_file.h"

namespace {

namespace bs = kestrel::meridian::blendshape;
using bs::RegionDefinition;
using bs::RegionFit;
using bs::RowMajorMatrixXd;
using Eigen::Index;
using Eigen::Matrix3Xd;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

/// The rows of `basis` (3N by K) a fit of `region` keeps, in its order.
RowMajorMatrixXd gatherRows(const MatrixXd& basis, const RegionDefinition& region) {
    const std::vector<int> vertices = RegionFit::rowVertices(region);
    RowMajorMatrixXd rows(3 * vertices.size(), basis.cols());
    for (size_t i = 0; i < vertices.size(); ++i)
        rows.middleRows<3>(3 * i) = basis.middleRows<3>(3 * vertices[i]);
    return rows;
}

/// The record the loader builds from a region's lists.
bs::RegionRecord toRecord(const RegionDefinition& region) {
    auto row = [](const std::vector<int>& ids) {
        return Eigen::Map<const Eigen::RowVectorXi>(ids.data(), Index(ids.size())).cast<double>();
    };
    std::vector<int> fixedWithAnchor = region.fixed;
    fixedWithAnchor.push_back(region.anchor);
    bs::RegionRecord record;
    record.anchor = region.anchor;
    record.all = row(region.all);
    record.fixed = row(region.fixed);
    record.fixedWithAnchor = row(fixedWithAnchor);
    record.weights = MatrixXd::Zero(3, Index(region.fixed.size()));
    for (size_t j = 0; j < region.fixed.size(); ++j)
        record.weights(0, Index(j)) = region.fixedWeights[j];
    record.w0 = float(region.w0), record.w1 = float(region.w1);
    record.w2 = float(region.w2), record.w3 = float(region.w3);
    return record;
}

/// The deformed face: `face` with the fit's output columns written in.
Matrix3Xd deformedFace(const RegionFit& fit, const Matrix3Xd& face) {
    Matrix3Xd region;
    fit.deform(face, region);
    Matrix3Xd result = face;
    for (size_t i = 0; i < fit.outputVertices().size(); ++i)
        result.col(fit.outputVertices()[i]) = region.col(static_cast<Index>(i));
    return result;
}

TEST(BlendshapeRegionFit, MatchesTheClosedFormOnACoordinateBasis) {
    // With B = I and equal sigmas s the objective splits by coordinate: a
    // constrained coordinate with total weight W and target y gets
    // c = W (y - mu) / (W + w2 / s^2); any other c is 0.
    const int n = 7;
    const double s = 2.0;
    MatrixXd basis = MatrixXd::Identity(3 * n, 3 * n);
    const VectorXd sigma = VectorXd::Constant(3 * n, s);
    VectorXd mean(3 * n);
    for (int i = 0; i < 3 * n; ++i) mean(i) = std::sin(1.3 * i) * 4.0;
    Matrix3Xd face = Eigen::Map<const Matrix3Xd>(mean.data(), 3, n);
    for (int v = 0; v < n; ++v) face.col(v) += Vector3d(0.5 * v, -0.25, 0.1 * v * v);

    RegionDefinition region;
    region.all = {1, 2, 3, 4};
    region.fixed = {0, 1, 5, 1};  // vertex 1 twice: counted twice, its last weight blends
    region.fixedWeights = {0.0, 0.5, 1.0, 0.25};
    region.anchor = 3;
    region.w0 = 2.0, region.w1 = 3.0, region.w2 = 0.5, region.w3 = 1.5;
    const RowMajorMatrixXd rows = gatherRows(basis, region);
    const RegionFit fit(region, rows.data(), basis.cols(), mean, sigma);

    auto mu = [&](int v) { return Vector3d(mean.segment<3>(3 * v)); };
    auto fitted = [&](int v, double weight, const Vector3d& target) {
        return Vector3d(mu(v) + weight * (target - mu(v)) / (weight + region.w2 / (s * s)));
    };
    const Vector3d centroid = (face.col(0) + 2 * face.col(1) + face.col(5)) / 4.0;
    const Vector3d pushed = centroid + region.w3 * (face.col(3) - centroid);
    const Vector3d fitted0 = fitted(0, region.w1, face.col(0));
    const Vector3d fitted1 = fitted(1, 2 * region.w1, face.col(1));
    const Vector3d fitted5 = fitted(5, region.w1, face.col(5));

    Matrix3Xd expected = face;                              // vertex 0, border weight 0: the input
    expected.col(1) = 0.25 * fitted1 + 0.75 * face.col(1);  // the later weight
    expected.col(2) = mu(2);                                // unconstrained: the mean
    expected.col(3) = fitted(3, region.w0, pushed);         // the anchor
    expected.col(4) = mu(4);
    expected.col(5) = fitted5;  // weight 1: the fit
    EXPECT_LT((deformedFace(fit, face) - expected).cwiseAbs().maxCoeff(), 1e-12);
    EXPECT_EQ(fit.outputVertices(), (std::vector<int>{1, 2, 3, 4, 0, 5}));
    EXPECT_NEAR(fit.coefficients(face)(0), (fitted0 - mu(0))(0), 1e-12);
}

TEST(BlendshapeRegionFit, AgreesWithTheNormalEquationsSolvedPerCall) {
    // A random smooth model over a sphere of vertices: smooth fields made
    // orthonormal, as a PCA basis is.
    const int n = 400, k = 60;
    std::mt19937 rng(7);
    std::normal_distribution<double> normal;
    Matrix3Xd points(3, n);
    for (int v = 0; v < n; ++v) {
        const double z = -1.0 + 2.0 * (v + 0.5) / n, phi = 2.399963 * v;
        points.col(v) = 30.0 * Vector3d(std::sqrt(1 - z * z) * std::cos(phi),
                                        std::sqrt(1 - z * z) * std::sin(phi), z);
    }
    MatrixXd basis(3 * n, k);
    for (int j = 0; j < k; ++j) {
        const Vector3d centre = points.col((j * 37) % n);
        const Vector3d direction(normal(rng), normal(rng), normal(rng));
        for (int v = 0; v < n; ++v)
            basis.middleRows<3>(3 * v).col(j) =
                std::exp(-(points.col(v) - centre).squaredNorm() / 300.0) * direction;
    }
    basis = basis.householderQr().householderQ() * MatrixXd::Identity(3 * n, k);
    VectorXd sigma(k), mean = Eigen::Map<const VectorXd>(points.data(), 3 * n);
    for (int j = 0; j < k; ++j) sigma(j) = 50.0 / (1.0 + j);
    Matrix3Xd face = points;
    for (int v = 0; v < n; ++v)
        face.col(v) += 0.3 * Vector3d(normal(rng), normal(rng), normal(rng));

    std::vector<int> nearest(n);
    std::iota(nearest.begin(), nearest.end(), 0);
    std::stable_sort(nearest.begin(), nearest.end(), [&](int a, int b) {
        return (points.col(a) - points.col(0)).norm() < (points.col(b) - points.col(0)).norm();
    });
    RegionDefinition base;
    base.all.assign(nearest.begin(), nearest.begin() + 120);
    base.fixed.assign(nearest.begin() + 90, nearest.begin() + 120);
    for (size_t j = 0; j < base.fixed.size(); ++j) base.fixedWeights.push_back(j / 29.0);
    base.anchor = 0;
    // The loader's weights; push factors that are exact floats, as loaded.
    base.w0 = 1e6, base.w1 = 1e6, base.w2 = 1.0, base.w3 = 1.125;
    RegionDefinition anchorAlsoFixed = base, repeatedBorder = base, strongPrior = base;
    anchorAlsoFixed.anchor = base.fixed[3];
    repeatedBorder.fixed.push_back(base.fixed[0]);
    repeatedBorder.fixedWeights.push_back(0.75);
    strongPrior.w2 = 1e4, strongPrior.w3 = 1.0625;

    for (const RegionDefinition& region : {base, anchorAlsoFixed, repeatedBorder, strongPrior}) {
        const RowMajorMatrixXd rows = gatherRows(basis, region);
        const RegionFit fit(region, rows.data(), k, mean, sigma);
        const auto literal = bs::literal::deformRegion(basis, mean, sigma, face, toRecord(region));
        const double scale = literal.deformed.cwiseAbs().maxCoeff();
        EXPECT_LT((deformedFace(fit, face) - literal.deformed).cwiseAbs().maxCoeff(),
                  1e-10 * scale);
        EXPECT_LT((fit.coefficients(face) - literal.coefficients).norm(),
                  1e-9 * literal.coefficients.norm());
    }
}

TEST(BlendshapeRegionFit, RejectsWhatCannotBeFactorised) {
    const MatrixXd basis = MatrixXd::Identity(6, 6);
    const VectorXd mean = VectorXd::Zero(6);
    RegionDefinition region;
    region.all = {0, 1};
    region.fixed = {1};
    region.fixedWeights = {1.0};
    const RowMajorMatrixXd rows = gatherRows(basis, region);
    auto build = [&](const RegionDefinition& r, const VectorXd& sigma) {
        return RegionFit(r, rows.data(), 6, mean, sigma);
    };
    const VectorXd ones = VectorXd::Ones(6);
    RegionDefinition noPrior = region, outside = region, unweighted = region;
    noPrior.w2 = 0.0;
    outside.all = {0, 2};
    unweighted.fixedWeights.clear();
    VectorXd zeroSigma = ones;
    zeroSigma(4) = 0.0;
    EXPECT_NO_THROW(build(region, ones));
    EXPECT_THROW(build(noPrior, ones), std::invalid_argument);
    EXPECT_THROW(build(outside, ones), std::invalid_argument);
    EXPECT_THROW(build(unweighted, ones), std::invalid_argument);
    EXPECT_THROW(build(region, zeroSigma), std::invalid_argument);
}

// --- A real face model ------------------------------------------------------

/// The `all` nearest vertices of the anchor, the outermost `fixed` of them
/// the border, weights falling smoothly from 1 (inner edge) to 0 (outer).
RegionDefinition ballRegion(const Matrix3Xd& points, int anchor, int all, int fixed) {
    std::vector<int> order(static_cast<size_t>(points.cols()));
    std::iota(order.begin(), order.end(), 0);
    auto distance = [&](int v) { return (points.col(v) - points.col(anchor)).norm(); };
    std::stable_sort(order.begin(), order.end(),
                     [&](int a, int b) { return distance(a) < distance(b); });
    RegionDefinition region;
    region.anchor = anchor;
    region.all.assign(order.begin(), order.begin() + all);
    region.fixed.assign(order.begin() + all - fixed, order.begin() + all);
    const double inner = distance(region.fixed.front()), outer = distance(region.fixed.back());
    for (int q : region.fixed) {
        const double t = (outer - distance(q)) / (outer - inner);
        region.fixedWeights.push_back(t * t * (3 - 2 * t));
    }
    return region;
}

TEST(BlendshapeRegionFit, PuffsTheNoseAndACheekOfARealFaceModel) {
    const std::string dir = std::string(MERIDIAN_SHARED_DIR) + "/realdata/facemodel/";
    MatrixXd basis, mean, sigma, triangles;
    const struct {
        const char* name;
        int rows, cols;
        MatrixXd* into;
    } files[] = {{"sfm_pcev_r_10344_c_63.bin", 10344, 63, &basis},
                 {"sfm_mu_r_10344_c_1.bin", 10344, 1, &mean},
                 {"sfm_sigma_r_63_c_1.bin", 63, 1, &sigma},
                 {"sfm_tri_r_3_c_6736.bin", 3, 6736, &triangles}};
    for (const auto& f : files)
        if (kestrel::meridian::readMatrixFile(dir + f.name, f.rows, f.cols, *f.into) !=
            kestrel::meridian::MatrixFileStatus::ok)
            GTEST_SKIP() << "real face model not found under " << dir;
    // A face of the model (mean plus a fixed mix of components): its border
    // can be followed exactly, so what moves is the puff alone.
    VectorXd alpha = VectorXd::Zero(sigma.size());
    for (int j = 0; j < 8; ++j) alpha(j) = (j % 2 ? -0.8 : 0.6) / (1.0 + 0.3 * j);
    const VectorXd faceVector = mean + basis * sigma.cwiseProduct(alpha);
    const Matrix3Xd face = Eigen::Map<const Matrix3Xd>(faceVector.data(), 3, faceVector.size() / 3);

    // The nose tip is vertex 114; the cheek anchor is the most frontal
    // vertex near (35, -25) mm (the model looks along +z).
    int cheek = -1;
    for (int v = 0; v < face.cols(); ++v)
        if (std::abs(face(0, v) - 35) < 5 && std::abs(face(1, v) + 25) < 5 &&
            (cheek < 0 || face(2, v) > face(2, cheek)))
            cheek = v;
    ASSERT_GE(cheek, 0);

    struct Case {
        const char* name;
        int anchor;
        double w2, w3;
    };
    for (const Case& c :
         {Case{"nose", 114, 1.0, 1.1}, Case{"nose, ear weights", 114, 1e4, 1.05},
          Case{"cheek", cheek, 1.0, 1.1}, Case{"cheek, ear weights", cheek, 1e4, 1.05}}) {
        SCOPED_TRACE(c.name);
        RegionDefinition region = ballRegion(face, c.anchor, 600, 60);
        region.w0 = region.w1 = 1e6;
        region.w2 = c.w2, region.w3 = c.w3;
        const RowMajorMatrixXd rows = gatherRows(basis, region);
        const RegionFit fit(region, rows.data(), basis.cols(), mean, sigma);
        const Matrix3Xd moved = deformedFace(fit, face) - face;

        // The anchor moves away from the border's centroid by the factor
        // asked. 63 global components reach 86 to 99 % of the push while
        // keeping the border; the demo model's 500 reach it all.
        Vector3d centroid = Vector3d::Zero();
        for (int q : region.fixed) centroid += face.col(q);
        centroid /= static_cast<double>(region.fixed.size());
        const Vector3d push = (c.w3 - 1.0) * (face.col(c.anchor) - centroid);
        const double along = moved.col(c.anchor).dot(push) / push.squaredNorm();
        EXPECT_GT(along, 0.8);
        EXPECT_LT(along, 1.05);
        EXPECT_LT((moved.col(c.anchor) - along * push).norm(), 0.1 * push.norm());

        // The fitted surface follows the border; its outer edge stays put.
        const VectorXd c0 = fit.coefficients(face);
        for (size_t j = 0; j < region.fixed.size(); ++j) {
            const int q = region.fixed[j];
            const Vector3d surface =
                mean.col(0).segment<3>(3 * q) + basis.middleRows<3>(3 * q) * c0;
            EXPECT_LT((surface - face.col(q)).norm(), 0.1 * push.norm()) << "border vertex " << q;
            if (region.fixedWeights[j] == 0.0) {
                EXPECT_EQ(moved.col(q).norm(), 0.0);
            }
        }
        // Local: only the region moves. Smooth: along every mesh edge the
        // displacement changes by less than a third of the edge's length.
        std::vector<bool> inRegion(static_cast<size_t>(face.cols()), false);
        for (int v : fit.outputVertices()) inRegion[static_cast<size_t>(v)] = true;
        double steepest = 0.0;
        for (Index t = 0; t < triangles.cols(); ++t)
            for (int e = 0; e < 3; ++e) {
                const auto u = static_cast<Index>(triangles(e, t));
                const auto v = static_cast<Index>(triangles((e + 1) % 3, t));
                steepest = std::max(steepest, (moved.col(u) - moved.col(v)).norm() /
                                                  (face.col(u) - face.col(v)).norm());
            }
        EXPECT_LT(steepest, 0.33);
        for (Index v = 0; v < face.cols(); ++v)
            if (!inRegion[static_cast<size_t>(v)]) {
                ASSERT_EQ(moved.col(v).norm(), 0.0);
            }
    }
}

// --- What the engine builds on -----------------------------------------------

TEST(BlendshapeBasisStore, KeepsEveryRowOnceAndEachRegionContiguous) {
    const int vertices = 6, cols = 5;
    RowMajorMatrixXd file(3 * vertices, cols);
    for (Index r = 0; r < file.rows(); ++r)
        for (Index c = 0; c < cols; ++c) file(r, c) = 100.0 * r + c;
    meridian::testing::TempDir dir;
    const std::string path = dir.file("basis.bin");
    ASSERT_TRUE(kestrel::meridian::writeMatrixFile(path, 3 * vertices, cols, file.data()));

    const std::vector<std::vector<int>> regions = {{4, 1}, {1, 2}};  // vertex 1 in both
    bs::RegionBasisStore store(3 * vertices, cols, regions);
    ASSERT_EQ(store.read(path), kestrel::meridian::MatrixFileStatus::ok);
    EXPECT_EQ(store.storedRows(), 3 * vertices + 3);
    for (Index r = 0; r < file.rows(); ++r)
        EXPECT_EQ(Eigen::Map<const Eigen::RowVectorXd>(store.row(r), cols), file.row(r));
    for (size_t b = 0; b < regions.size(); ++b)
        for (size_t i = 0; i < regions[b].size(); ++i)
            EXPECT_EQ(Eigen::Map<const RowMajorMatrixXd>(
                          store.block(static_cast<int>(b)) + 3 * i * cols, 3, cols),
                      file.middleRows<3>(3 * regions[b][i]));

    bs::RegionBasisStore tooLong(3 * vertices + 3, cols, regions);
    EXPECT_EQ(tooLong.read(path), kestrel::meridian::MatrixFileStatus::tooShort);
    EXPECT_FALSE(tooLong.loaded());
    EXPECT_THROW(bs::RegionBasisStore(3 * vertices, cols, {{6}}), std::invalid_argument);
}

TEST(BlendshapeTasks, RunEachTaskOnceOnAnyNumberOfThreadsAndPassOnAFailure) {
    for (int threads : {1, 2, 3, 8}) {
        std::vector<std::atomic<int>> runs(37);
        bs::runTasks(37, threads, [&](int i) { ++runs[i]; });
        for (const auto& r : runs) EXPECT_EQ(r, 1) << threads << " threads";
        EXPECT_THROW(bs::runTasks(37, threads,
                                  [](int i) {
                                      if (i == 5) throw std::runtime_error("task 5");
                                  }),
                     std::runtime_error);
    }
}

}  // namespace
