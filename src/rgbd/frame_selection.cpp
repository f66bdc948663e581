#include "rgbd/frame_selection.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "rgbd/face_points.h"
#include "rgbd/sharpness.h"

namespace kestrel::meridian {

FrameAnalysis analyseFrame(const LandmarkModel& model, const unsigned char* bgr, int rows,
                           int cols) {
    CvFaceResult block;
    model.provider().faceLandmarks(bgr, rows, cols, 3, block);
    return analyseLandmarks(block, rows, cols, model.meanFacePseudoInverse());
}

FrameAnalysis analyseLandmarks(const CvFaceResult& block, int rows, int cols,
                               const MeanFacePseudoInverse& pinv) {
    FrameAnalysis analysis;
    if (!extractLandmarks(block, rows, cols, analysis.landmarks)) return analysis;
    analysis.angles = toYawPitch(affinePoseAngles(analysis.landmarks, pinv));
    analysis.found = true;
    return analysis;
}

int FrameSelection::intake(const LandmarkModel& model, int frameId, const unsigned char* bgr,
                           int rows, int cols, float& yaw, float& pitch) {
    return intake(analyseFrame(model, bgr, rows, cols), frameId, bgr, rows, cols, yaw, pitch);
}

int FrameSelection::intake(FrameAnalysis analysis, int frameId, const unsigned char* bgr, int rows,
                           int cols, float& yaw, float& pitch) {
    if (!analysis.found) {
        yaw = pitch = kNoAngle;
        return kNoLandmarks;
    }
    if (faceSize(analysis.landmarks) < kMinFaceSize) return kFaceTooSmall;

    const float frameYaw = analysis.angles.yaw;
    const float framePitch = analysis.angles.pitch;
    auto& front = at(Bucket::kFront);
    auto& yawNegative = at(Bucket::kYawNegative);
    auto& yawPositive = at(Bucket::kYawPositive);
    auto& up = at(Bucket::kUp);

    int result = kNoBucket;
    std::vector<StoredFrame>* target = nullptr;
    bool frontal = false;
    if (std::fabs(frameYaw) < 2 && up.empty() && yawPositive.empty() && yawNegative.empty()) {
        target = &front;
        frontal = true;
        result = kStoredFront;
    } else if (frameYaw > -30 && frameYaw < -20 && !front.empty()) {
        target = &yawNegative;
        result = kStoredYawNegative;
    } else if (frameYaw > 20 && frameYaw < 30 && !front.empty()) {
        target = &yawPositive;
        result = kStoredYawPositive;
    } else if (!front.empty() && !yawNegative.empty() && !yawPositive.empty() &&
               framePitch > front.front().pitch + 3.0 && std::fabs(frameYaw) < 5) {
        target = &up;
        result = kStoredUp;
    }
    if (target != nullptr) {
        if (eyeOpenness(analysis.landmarks, frontal) < 0) return kEyesClosed;
        StoredFrame stored;
        stored.frameId = frameId;
        stored.yaw = frameYaw;
        stored.pitch = framePitch;
        stored.sharpness = sharpnessScore(bgr, rows, cols);
        stored.landmarks = analysis.landmarks;
        target->push_back(std::move(stored));
    }
    yaw = frameYaw;
    pitch = framePitch;
    return result;
}

namespace {

// Of the first `limit` frames in `order`, the one with the smallest score;
// the first of equal scores wins.
const StoredFrame& blurriest(const std::vector<StoredFrame>& frames,
                             const std::vector<size_t>& order, size_t limit) {
    const size_t count = std::min(limit, order.size());
    size_t chosen = order[0];
    for (size_t k = 1; k < count; ++k)
        if (frames[order[k]].sharpness < frames[chosen].sharpness) chosen = order[k];
    return frames[chosen];
}

template <typename Key>
std::vector<size_t> orderBy(const std::vector<StoredFrame>& frames, Key key) {
    std::vector<size_t> order(frames.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return key(frames[a]) < key(frames[b]); });
    return order;
}

}  // namespace

int FrameSelection::finalChoice(int& frontId, int& yawNegativeId, int& yawPositiveId, int& upId) {
    if (at(Bucket::kFront).empty()) return -5;
    if (at(Bucket::kYawNegative).empty()) return -4;
    if (at(Bucket::kYawPositive).empty()) return -3;
    if (at(Bucket::kUp).empty()) return -2;

    const auto& front = at(Bucket::kFront);
    std::vector<size_t> arrival(front.size());
    std::iota(arrival.begin(), arrival.end(), size_t{0});
    const StoredFrame& chosenFront = blurriest(front, arrival, front.size());
    frontId = chosenFront.frameId;

    constexpr size_t kCandidates = 5;
    const auto& negative = at(Bucket::kYawNegative);
    yawNegativeId =
        blurriest(negative,
                  orderBy(negative, [](const StoredFrame& f) { return std::fabs(f.yaw - (-25)); }),
                  kCandidates)
            .frameId;
    const auto& positive = at(Bucket::kYawPositive);
    yawPositiveId =
        blurriest(positive,
                  orderBy(positive, [](const StoredFrame& f) { return std::fabs(f.yaw - 25); }),
                  kCandidates)
            .frameId;

    upPitchTarget_ = static_cast<float>(chosenFront.pitch + 6.0);
    const float target = upPitchTarget_;
    const auto& up = at(Bucket::kUp);
    upId =
        blurriest(
            up, orderBy(up, [target](const StoredFrame& f) { return std::fabs(f.pitch - target); }),
            kCandidates)
            .frameId;
    return 1;
}

void FrameSelection::clear() {
    for (auto& bucket : buckets_) {
        bucket.clear();
        bucket.shrink_to_fit();
    }
}

}  // namespace kestrel::meridian
