// Choice of four RGBD frames from a capture: one frontal, one turned to
// about -25 degrees of yaw, one to about +25, and one looking about 6
// degrees above the chosen frontal frame.
#pragma once

#include <array>
#include <vector>

#include "rgbd/head_pose.h"
#include "rgbd/landmark_model.h"

namespace kestrel::meridian {

/// Landmarks and head angles of one colour image.
struct FrameAnalysis {
    bool found = false;       ///< false: no face, or a landmark outside the image
    FaceLandmarks landmarks;  ///< see extractLandmarks
    YawPitch angles;
};

/// Runs the provider on an 8-bit BGR image (`rows` by `cols`, packed) and
/// fits the head angles to its landmarks.
FrameAnalysis analyseFrame(const LandmarkModel& model, const unsigned char* bgr, int rows,
                           int cols);

/// The same from a provider's block already filled for an image of `rows`
/// by `cols` pixels.
FrameAnalysis analyseLandmarks(const CvFaceResult& block, int rows, int cols,
                               const MeanFacePseudoInverse& pinv);

/// What a stored frame keeps: everything the final choice reads, and the
/// landmarks. The colour image itself is not kept: its sharpness score is
/// computed when the frame is stored, from the same float image the score
/// would be computed from later.
struct StoredFrame {
    int frameId = 0;
    float yaw = 0.0f;
    float pitch = 0.0f;
    float sharpness = 0.0f;
    FaceLandmarks landmarks;
};

enum class Bucket { kFront = 0, kYawNegative = 1, kYawPositive = 2, kUp = 3 };

/// Intake codes.
enum IntakeCode {
    kStoredFront = 5,
    kStoredYawNegative = 4,
    kStoredYawPositive = 3,
    kStoredUp = 2,
    kNoLandmarks = -1,
    kEyesClosed = -2,
    kNoBucket = -3,
    kFaceTooSmall = -4,
};

/// Angles written for a frame without landmarks.
constexpr float kNoAngle = -10000.0f;

class FrameSelection {
  public:
    /// Offers one frame (8-bit BGR colour, `rows` by `cols`, packed; the
    /// depth image takes no part in the choice). Returns an IntakeCode.
    /// `yaw` and `pitch` receive the head angles in degrees, or kNoAngle
    /// for kNoLandmarks, and are left as they are for kEyesClosed and
    /// kFaceTooSmall.
    int intake(const LandmarkModel& model, int frameId, const unsigned char* bgr, int rows,
               int cols, float& yaw, float& pitch);

    /// The same for a frame whose landmarks are known: everything after the
    /// provider's call, with no provider needed. A stored frame keeps
    /// `analysis.landmarks`.
    int intake(FrameAnalysis analysis, int frameId, const unsigned char* bgr, int rows, int cols,
               float& yaw, float& pitch);

    /// Names the chosen frame of each bucket. Returns 1, or the code of the
    /// first empty bucket: -5 front, -4 yaw negative, -3 yaw positive, -2 up
    /// (no id written then).
    int finalChoice(int& frontId, int& yawNegativeId, int& yawPositiveId, int& upId);

    /// Forgets every stored frame.
    void clear();

    const std::vector<StoredFrame>& bucket(Bucket b) const {
        return buckets_[static_cast<size_t>(b)];
    }
    /// Pitch of the chosen frontal frame + 6, set by finalChoice.
    float upPitchTarget() const { return upPitchTarget_; }

  private:
    std::vector<StoredFrame>& at(Bucket b) { return buckets_[static_cast<size_t>(b)]; }

    std::array<std::vector<StoredFrame>, 4> buckets_;
    float upPitchTarget_ = 0.0f;
};

}  // namespace kestrel::meridian
