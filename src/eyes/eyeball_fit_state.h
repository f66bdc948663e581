// The plain eyeball task: places one template eyeball into both eye sockets
// of a head and reports each eye's rotation, position and a common scale.
#pragma once

#include <string>
#include <vector>

#include <Eigen/Core>

#include "common/error.h"
#include "eyes/eye_geometry.h"

namespace kestrel::meridian {

/// One eye's placement: a template-eyeball vertex v goes to
/// scale * rotation * v + position.
struct EyePose {
    Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();
    Eigen::Vector3d position = Eigen::Vector3d::Zero();
    double scale = 0.0;
    /// Euler angles of `rotation` in radians, about z, then y, then x, in
    /// Eigen's canonical form (first angle in [0, pi]).
    Eigen::Vector3d angles = Eigen::Vector3d::Zero();
};

/// Per-eye data, fixed at load time.
struct EyeFitRecord {
    std::vector<int> ring;  ///< 45 head vertices of the socket the sphere is fitted to
    Eigen::Vector3d refPoint = Eigen::Vector3d::Zero();   ///< template-eyeball vertex 480
    Eigen::Matrix3Xd eyeVertices;                         ///< 3 by #E template-eyeball vertices
    double refRadius = 0.0;                               ///< radius of the template eyeball
    Eigen::Vector3d refCentre = Eigen::Vector3d::Zero();  ///< centre of the template eyeball
    std::vector<int> gaze;  ///< head vertices whose mean the eye looks at
};

/// The values AI_add_eyeball hands back, in its output units: angles in
/// degrees (computed with 3.14 for pi), the second angle negated, and every
/// infinite value replaced by 0 (NaN is passed on).
struct EyeballReport {
    double eye0Angles[3];
    double eye1Angles[3];
    double eye0Position[3];
    double eye1Position[3];
    double scale;
};

class EyeballFitState {
  public:
    EyeballFitState();

    /// Loads model_files::eyeballPlyPath(modelDir) as a PLY with 9 header
    /// lines and fills the landmark tables and both eye records. False with
    /// `error` set when the file is missing (cannotOpenMesh) or its eyeball
    /// has fewer than 770 vertices (badContent); the tables are then left
    /// empty. The model directory is kept in any case.
    bool load(const std::string& modelDir, Error& error);

    /// True after a successful load().
    bool isLoaded() const { return !landmarks_.empty(); }

    /// Fits both eyes to `head` (3 by 20481) after aligning its landmarks
    /// rigidly to landmark template `templateIndex` (0, 1 or 2) and stores
    /// the poses. Both eyes get the smaller of the two scales. Requires
    /// isLoaded() and templateIndex < 3.
    void fit(const Eigen::Ref<const Eigen::Matrix3Xd>& head, unsigned templateIndex);

    /// The outputs of the last fit().
    EyeballReport report() const { return reportPoses(pose0_, pose1_); }

    const EyePose& pose0() const { return pose0_; }  ///< first eye (ring B)
    const EyePose& pose1() const { return pose1_; }  ///< second eye (ring A)
    const std::string& modelDir() const { return modelDir_; }
    const EyeFitRecord& record(int selector) const { return selector == 1 ? record1_ : record0_; }
    /// Landmark template t as 3 by 25 (empty before a successful load).
    const Eigen::Matrix3Xd& landmarkTemplate(unsigned t) const { return templates_.at(t); }
    const std::vector<int>& landmarks() const { return landmarks_; }

    /// Fills `pose`; its angles are rotation.eulerAngles(2, 1, 0).
    static void storePose(EyePose& pose, const Eigen::Matrix3d& rotation,
                          const Eigen::Vector3d& position, double scale);

    /// The output conversion of two poses; the scale is pose0's.
    static EyeballReport reportPoses(const EyePose& pose0, const EyePose& pose1);

  private:
    struct EyeFit {
        Eigen::Matrix3d rotation;
        Eigen::Vector3d translation;
        double scale;
    };

    /// One eye in the aligned frame: socket sphere, scale and offset, and the
    /// turn toward the gaze vertices with the second Euler angle offset.
    EyeFit fitOneEye(const Eigen::Ref<const Eigen::Matrix3Xd>& head, const RigidMotion& alignment,
                     int selector) const;

    EyePose pose0_;
    EyePose pose1_;
    EyeFitRecord record1_;
    EyeFitRecord record0_;
    std::string modelDir_;
    std::vector<int> gaze0_;
    std::vector<int> gaze1_;
    std::vector<Eigen::Matrix3Xd> templates_;
    std::vector<int> landmarks_;
};

}  // namespace kestrel::meridian
