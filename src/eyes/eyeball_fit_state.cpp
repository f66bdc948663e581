#include "eyes/eyeball_fit_state.h"

#include <cmath>
#include <fstream>
#include <string>

#include <Eigen/Geometry>

#include "common/model_paths.h"
#include "common/template_head.h"
#include "eyes/eye_tables.h"
#include "io/mesh_readers.h"

namespace kestrel::meridian {

namespace {

constexpr int kEyeballHeaderLines = 9;

std::vector<int> toVector(const std::array<int, eyes::kRingSize>& ids) {
    return std::vector<int>(ids.begin(), ids.end());
}

/// Columns `ids` of `head` carried into the aligned frame.
Eigen::Matrix3Xd alignedColumns(const Eigen::Ref<const Eigen::Matrix3Xd>& head,
                                const std::vector<int>& ids, const RigidMotion& alignment) {
    Eigen::Matrix3Xd aligned(3, static_cast<Eigen::Index>(ids.size()));
    for (size_t k = 0; k < ids.size(); ++k)
        aligned.col(static_cast<Eigen::Index>(k)) =
            alignment.rotation * head.col(ids[k]) + alignment.translation;
    return aligned;
}

std::vector<int> firstIds(size_t count) {
    std::vector<int> ids(count);
    for (size_t k = 0; k < count; ++k) ids[k] = static_cast<int>(k);
    return ids;
}

double cleanInfinity(double value) {
    return std::isinf(value) ? 0.0 : value;
}

/// Radians to reported degrees, with 3.14 for pi and infinities cleaned
/// before the second angle is negated.
void reportAngles(const Eigen::Vector3d& angles, double* out) {
    for (int i = 0; i < 3; ++i) out[i] = cleanInfinity(angles[i] * 180.0 / kPi314);
    out[1] = -out[1];
}

void reportVector(const Eigen::Vector3d& v, double* out) {
    for (int i = 0; i < 3; ++i) out[i] = cleanInfinity(v[i]);
}

}  // namespace

EyeballFitState::EyeballFitState() : gaze0_{eyes::kGazeFirstEye}, gaze1_{eyes::kGazeSecondEye} {}

bool EyeballFitState::load(const std::string& modelDir, Error& error) {
    modelDir_ = modelDir;
    const std::string path = model_files::eyeballPlyPath(modelDir);
    if (!std::ifstream(path)) {
        error = {ErrorCode::cannotOpenMesh, path, "cannot open " + path};
        return false;
    }
    Eigen::Matrix3Xd eyeball = readPly(path, kEyeballHeaderLines).vertices;
    // The sphere list and the front vertex must exist.
    if (eyeball.cols() < eyes::kEyeballMinVertexCount) {
        error = {ErrorCode::badContent, path,
                 path + ": " + std::to_string(eyeball.cols()) +
                     " vertices; the eyeball needs at least " +
                     std::to_string(eyes::kEyeballMinVertexCount)};
        return false;
    }

    landmarks_.assign(eyes::kLandmarkVertices.begin(), eyes::kLandmarkVertices.end());
    templates_.clear();
    for (const auto& table : eyes::kLandmarkTemplates) {
        Eigen::Matrix3Xd points(3, eyes::kLandmarkCount);
        for (int k = 0; k < eyes::kLandmarkCount; ++k)
            points.col(k) << table[k][0], table[k][1], table[k][2];
        templates_.push_back(points);
    }

    const auto sphereIds = eyes::eyeballSphereVertices();
    const Sphere sphere = fitSphere(eyeball, std::vector<int>(sphereIds.begin(), sphereIds.end()));
    const Eigen::Vector3d front = eyeball.col(eyes::kEyeballFrontVertex);

    auto fill = [&](EyeFitRecord& record, const std::array<int, eyes::kRingSize>& ring,
                    const std::vector<int>& gaze) {
        record.ring = toVector(ring);
        record.refPoint = front;
        record.eyeVertices = eyeball;
        record.refRadius = sphere.radius;
        record.refCentre = sphere.centre;
        record.gaze = gaze;
    };
    fill(record1_, eyes::kRingA, gaze1_);
    fill(record0_, eyes::kRingB, gaze0_);
    return true;
}

EyeballFitState::EyeFit EyeballFitState::fitOneEye(const Eigen::Ref<const Eigen::Matrix3Xd>& head,
                                                   const RigidMotion& alignment,
                                                   int selector) const {
    const EyeFitRecord& eye = record(selector);
    const Eigen::Matrix3Xd ring = alignedColumns(head, eye.ring, alignment);
    const Sphere socket = fitSphere(ring, firstIds(eye.ring.size()));

    EyeFit fit;
    fit.scale = socket.radius / eye.refRadius;
    fit.translation = socket.centre - fit.scale * eye.refCentre;

    const Eigen::Vector3d target = alignedColumns(head, eye.gaze, alignment).rowwise().mean();
    const Eigen::Vector3d direction = normalisedDirection(target - socket.centre);
    const Eigen::Matrix3d turn = rotationBetween(eye.refPoint, direction);

    Eigen::Vector3d degrees = turn.eulerAngles(2, 1, 0) * 180.0 / kPi314;
    degrees[1] += eyes::kSecondAngleOffsetDegrees;
    const Eigen::Vector3d radians = degrees * kPi314 / 180.0;
    fit.rotation = rotationZYX(radians[0], radians[1], radians[2]);
    return fit;
}

void EyeballFitState::fit(const Eigen::Ref<const Eigen::Matrix3Xd>& head, unsigned templateIndex) {
    Eigen::Matrix3Xd landmarks(3, static_cast<Eigen::Index>(landmarks_.size()));
    for (size_t k = 0; k < landmarks_.size(); ++k)
        landmarks.col(static_cast<Eigen::Index>(k)) = head.col(landmarks_[k]);
    const RigidMotion alignment = fitRigid(landmarks, templates_.at(templateIndex));

    const EyeFit eye0 = fitOneEye(head, alignment, 0);
    const EyeFit eye1 = fitOneEye(head, alignment, 1);
    const double scale = eye1.scale < eye0.scale ? eye1.scale : eye0.scale;

    // Back into the head's own frame.
    const Eigen::Matrix3d back = alignment.rotation.transpose();
    storePose(pose0_, back * eye0.rotation, back * (eye0.translation - alignment.translation),
              scale);
    storePose(pose1_, back * eye1.rotation, back * (eye1.translation - alignment.translation),
              scale);
}

void EyeballFitState::storePose(EyePose& pose, const Eigen::Matrix3d& rotation,
                                const Eigen::Vector3d& position, double scale) {
    pose.rotation = rotation;
    pose.position = position;
    pose.scale = scale;
    pose.angles = rotation.eulerAngles(2, 1, 0);
}

EyeballReport EyeballFitState::reportPoses(const EyePose& pose0, const EyePose& pose1) {
    EyeballReport report{};
    reportAngles(pose0.angles, report.eye0Angles);
    reportAngles(pose1.angles, report.eye1Angles);
    reportVector(pose0.position, report.eye0Position);
    reportVector(pose1.position, report.eye1Position);
    report.scale = cleanInfinity(pose0.scale);
    return report;
}

}  // namespace kestrel::meridian
