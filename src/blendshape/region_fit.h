// Fitting a PCA face model to one region of a face, under border and anchor
// constraints. Works for any model size: N face vertices, K components.
//
// The fit. With B the model's basis (3N by K; rows 3k, 3k+1, 3k+2 belong to
// face vertex k), mu its mean, sigma its standard deviations, F' the input
// face in the model's frame, Q the fixed (border) list and a the anchor, the
// coefficients c minimise
//
//   E(c) = w1 * sum_{q in Q} |mu_q + B_q c - F'_q|^2
//        + w0 * |mu_a + B_a c - p_a|^2
//        + w2 * sum_i (c_i / sigma_i)^2,
//
//   p_a = g + w3 * (F'_a - g),   g = (1 / |Q|) * sum_{q in Q} F'_q:
//
// the surface follows the input along the border, the anchor moves away from
// the centroid of the border by the factor w3 (1.1 puffs by 10 %), and the
// prior keeps the coefficients where the model's faces are. The gradient
// vanishes where
//
//   (w1 B_Q^T B_Q + w0 B_a^T B_a + w2 diag(sigma)^-2) c
//       = w1 B_Q^T (F'_Q - mu_Q) + w0 B_a^T (p_a - mu_a).
//
// The matrix on the left does not depend on the face: it is formed and
// factorised (Cholesky; it is symmetric positive definite for w2 > 0) once,
// and a fit costs one pass over the constraint rows of B, two triangular
// solves and the rows of mu + B c the region writes. The deformed region
// takes mu + B c at its vertices and w * (mu + B c) + (1 - w) * F' at border
// vertex q with weight w; everything else keeps F'.
#pragma once

#include <vector>

#include <Eigen/Cholesky>
#include <Eigen/Core>

namespace kestrel::meridian::blendshape {

using RowMajorMatrixXd = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

/// One region, as face-vertex indices, and its fit parameters.
struct RegionDefinition {
    std::vector<int> all;              ///< #A vertices that take the fitted surface
    std::vector<int> fixed;            ///< #F border vertices: fit constraints, then blended
    std::vector<double> fixedWeights;  ///< #F blend weights: 1 the fitted surface, 0 the input
    int anchor = 0;                    ///< the vertex pushed away from the border
    double w0 = 1e6;                   ///< weight of the anchor constraint
    double w1 = 1e6;                   ///< weight of each border constraint
    double w2 = 1.0;                   ///< weight of the prior
    double w3 = 1.1;                   ///< anchor push factor
};

class RegionFit {
  public:
    /// The distinct face vertices whose model rows the fit keeps, in the
    /// order it keeps them: the constraint vertices (border, then anchor)
    /// first, then the rest of `all`.
    static std::vector<int> rowVertices(const RegionDefinition& region);

    /// Builds and factorises the fit.
    /// basisRows: 3 * #rowVertices(region) by K, row-major: the basis rows of
    ///            those vertices in that order (x, y, z rows of each). Kept by
    ///            reference: it must outlive the fit.
    /// mean:      3N, the model's mean
    /// sigma:     K standard deviations
    /// Throws std::invalid_argument when an index lies outside the model, a
    /// weight or sigma is not usable (w2 and every sigma must be positive and
    /// finite, w0 and w1 finite and not negative) or the system cannot be
    /// factorised.
    RegionFit(RegionDefinition region, const double* basisRows, Eigen::Index components,
              const Eigen::Ref<const Eigen::VectorXd>& mean,
              const Eigen::Ref<const Eigen::VectorXd>& sigma);

    /// Coefficients c for a face.
    /// face: 3 by N vertices in the model's frame
    Eigen::VectorXd coefficients(const Eigen::Ref<const Eigen::Matrix3Xd>& face) const;

    /// The deformed region of a face: column i is the new position of face
    /// vertex outputVertices()[i], in the model's frame.
    /// face: 3 by N vertices in the model's frame
    /// out:  resized to 3 by #outputVertices()
    void deform(const Eigen::Ref<const Eigen::Matrix3Xd>& face, Eigen::Matrix3Xd& out) const;

    /// deform() for several faces at once: each basis row the fit reads is
    /// streamed once for all of them. outs[k] gets the bits deform() gives
    /// for *faces[k].
    /// faces: K faces, each 3 by N vertices in the model's frame
    /// outs:  resized to K, each to 3 by #outputVertices()
    void deformBatch(const std::vector<const Eigen::Matrix3Xd*>& faces,
                     std::vector<Eigen::Matrix3Xd>& outs) const;

    /// The vertices deform() writes: the distinct entries of `all`, then those
    /// of `fixed` not in `all`, each once.
    const std::vector<int>& outputVertices() const { return outputVertices_; }

    const RegionDefinition& region() const { return region_; }

  private:
    /// The weighted residuals of the mean at the constraint rows
    /// (3 * constraintVertices_ values): the right-hand side is B_C^T times
    /// them.
    Eigen::VectorXd constraintResidual(const Eigen::Ref<const Eigen::Matrix3Xd>& face) const;
    /// The deformed region from the reconstructed rows mu + B c of a face.
    /// surface: 3 * #rowVertices values
    void assemble(const Eigen::VectorXd& surface, const Eigen::Ref<const Eigen::Matrix3Xd>& face,
                  Eigen::Matrix3Xd& out) const;

    Eigen::Map<const RowMajorMatrixXd> rows(Eigen::Index first, Eigen::Index count) const {
        return {basisRows_ + first * components_, count, components_};
    }

    RegionDefinition region_;
    const double* basisRows_;
    Eigen::Index components_;
    std::vector<int> rowVertices_;
    Eigen::Index faceVerticesNeeded_ = 0;  ///< 1 + the largest vertex it reads
    Eigen::Index constraintVertices_ = 0;  ///< leading entries of rowVertices_
    std::vector<int> fixedRow_;            ///< #F: row vertex of each border entry
    int anchorRow_ = 0;
    std::vector<int> allRow_;   ///< #A: row vertex of each entry of `all`
    Eigen::VectorXd meanRows_;  ///< 3 * #rowVertices
    std::vector<int> outputVertices_;
    std::vector<int> outputOfRow_;  ///< output column of each row vertex, or -1
    Eigen::LLT<Eigen::MatrixXd, Eigen::Lower> system_;
};

}  // namespace kestrel::meridian::blendshape
