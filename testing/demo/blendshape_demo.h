// The demo model set's blendshape back-end data ("BS/"): a face model over
// the demo head's face list, region masks around the five anchors, and the
// other sets of the data set with content of their sizes.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <Eigen/Core>

namespace meridian::demo {

/// One region's mask: face-list positions, ascending.
struct DemoRegionMask {
    std::vector<int> all;        ///< the face vertices nearest the anchor
    std::vector<int> fixed;      ///< the outermost of them: the border
    std::vector<double> weight;  ///< per border vertex: 1 at the inner edge, 0 at the outer
};

/// The mask of region r (in the order of the blendshape regions).
DemoRegionMask demoRegionMask(int region);

/// The demo face in the face model's frame: 3 by 18518, column i the demo
/// head's vertex faceVertexList()[i] mapped by the face-frame transform.
/// This is the face model's mean.
const Eigen::Matrix3Xd& demoModelFace();

/// Writes modelDir/BS/ (creating it): the 27 matrix files and the 15 region
/// mask files. The face model's basis alone is 222 MB; it is generated
/// and written a block of rows at a time. False with `error` set when a file
/// cannot be written.
bool writeBlendshapeDemoData(const std::string& modelDir, std::string& error);

namespace detail {

/// The demo face model: 500 unit-length components, smooth displacement
/// fields of the face with decreasing standard deviations: 30 polynomial
/// fields (translations, linear and quadratic; together they hold small
/// rotations and changes of size), the sample head's feature changes, then
/// bumps of decreasing radius over the front of the head and the ears, one
/// per direction.
class DemoFaceModel {
  public:
    DemoFaceModel();

    Eigen::Index components() const { return sigma_.size(); }
    const Eigen::VectorXd& sigma() const { return sigma_; }

    /// Rows first .. first + count - 1 of the basis (row 3v + a: coordinate a
    /// of face vertex v), row after row into `rows` (count * K values).
    void basisRows(Eigen::Index first, Eigen::Index count, double* rows) const;

  private:
    /// 3N by #global: row 3v + a holds coordinate a at vertex v of the
    /// polynomial fields (the first components).
    Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor> global_;
    /// Per face vertex, the local fields that reach it: (component,
    /// displacement divided by the field's norm).
    std::vector<std::vector<std::pair<int, Eigen::Vector3d>>> localAt_;
    Eigen::VectorXd sigma_;
};

}  // namespace detail

}  // namespace meridian::demo
