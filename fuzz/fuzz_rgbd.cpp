// Frame selection without a landmark provider: random landmark sets offered
// as frames. Every intake gives one of its codes with the documented
// angles, a frame is stored only in the bucket its angles and the order of
// arrival allow, and the final choice names a stored frame of each bucket.
//
// Input: rows and columns of the frames (1..320), the noise amplitude of
// their pixels, then frame records. A record's first byte picks its form:
// even, 212 raw coordinates (2 bytes each, a 64th of a pixel, from -512);
// odd, the mean face turned by yaw and pitch (a signed byte each, degrees),
// scaled and placed (3 bytes), with up to 8 points moved (3 bytes each).
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include <opencv2/core.hpp>

#include "fuzz_input.h"
#include "rgbd/face_points.h"
#include "rgbd/frame_selection.h"
#include "rgbd/head_pose.h"
#include "rgbd/landmark_model.h"

using namespace kestrel::meridian;
using meridian::fuzz::require;

namespace {

struct Reader {
    const uint8_t* data;
    size_t size;
    bool more() const { return size > 0; }
    uint8_t byte() {
        if (size == 0) return 0;
        --size;
        return *data++;
    }
    int16_t half() { return int16_t(byte() | (byte() << 8)); }
};

const cv::Mat& meanFace() {
    static const cv::Mat face = meanFaceMatrix();
    return face;
}

const cv::Mat& pseudoInverse() {
    static const cv::Mat pinv = homogeneousPseudoInverse(meanFace());
    return pinv;
}

CvFaceResult rawPoints(Reader& in) {
    CvFaceResult block{};
    for (float& v : block.points) v = float(in.half()) / 64.0f;
    return block;
}

// The mean face turned, scaled and placed (x right, y down), as the
// provider's 106 points; pupils take the first point.
CvFaceResult posedFace(Reader& in, int rows, int cols) {
    const double yaw = int8_t(in.byte()) * 3.14 / 180, pitch = int8_t(in.byte()) * 3.14 / 180;
    const double scale = 0.5 + in.byte() / 64.0;
    const double cx = cols * (in.byte() / 255.0), cy = rows * (in.byte() / 255.0);
    const cv::Mat& face = meanFace();
    std::array<float, 2 * kKeptPointCount> kept;
    for (int j = 0; j < kKeptPointCount; ++j) {
        const double x = face.at<float>(0, j), y = face.at<float>(1, j), z = face.at<float>(2, j);
        const double turnedX = std::cos(yaw) * x + std::sin(yaw) * z;
        const double turnedZ = -std::sin(yaw) * x + std::cos(yaw) * z;
        kept[2 * j] = float(cx + scale * turnedX);
        kept[2 * j + 1] = float(cy - scale * (std::cos(pitch) * y + std::sin(pitch) * turnedZ));
    }
    for (int moves = in.byte() % 9; moves > 0; --moves) {
        const int j = in.byte() % kKeptPointCount;
        kept[2 * j] += int8_t(in.byte());
        kept[2 * j + 1] += int8_t(in.byte());
    }
    CvFaceResult block{};
    for (int i = 0, column = 0; i < CV_FACE_POINT_COUNT; ++i) {
        const int from = isSkippedPoint(i) ? 0 : column++;
        block.points[2 * i] = kept[2 * from] + 1.0f;
        block.points[2 * i + 1] = kept[2 * from + 1] + 2.0f;
    }
    return block;
}

// Whether a stored frame's angles fit its bucket, given the first frontal
// frame's pitch.
bool fitsBucket(Bucket bucket, const StoredFrame& f, float firstFrontPitch) {
    switch (bucket) {
        case Bucket::kFront:
            return std::fabs(f.yaw) < 2;
        case Bucket::kYawNegative:
            return f.yaw > -30 && f.yaw < -20;
        case Bucket::kYawPositive:
            return f.yaw > 20 && f.yaw < 30;
        case Bucket::kUp:
            return std::fabs(f.yaw) < 5 && f.pitch > firstFrontPitch + 3.0;
    }
    return false;
}

bool stored(const std::vector<StoredFrame>& frames, int id) {
    for (const StoredFrame& f : frames)
        if (f.frameId == id) return true;
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in{data, size};
    const int rows = 1 + in.byte() * 320 / 256, cols = 1 + in.byte() * 320 / 256;
    const int amplitude = in.byte() % 128;
    std::vector<unsigned char> image(size_t(rows) * cols * 3);
    uint32_t state = 12345;
    for (unsigned char& v : image) {
        state = state * 1664525u + 1013904223u;
        v = static_cast<unsigned char>(128 + int(state >> 24) % (amplitude + 1) - amplitude / 2);
    }

    FrameSelection selection;
    for (int id = 0; in.more() && id < 64; ++id) {
        const CvFaceResult block = in.byte() % 2 ? posedFace(in, rows, cols) : rawPoints(in);
        const FrameAnalysis analysis = analyseLandmarks(block, rows, cols, pseudoInverse());
        std::array<size_t, 4> before;
        for (int b = 0; b < 4; ++b) before[b] = selection.bucket(Bucket(b)).size();
        float yaw = 7777.0f, pitch = 7777.0f;
        const int code = selection.intake(analysis, id, image.data(), rows, cols, yaw, pitch);

        require(code == -1 || code == -2 || code == -3 || code == -4 || (code >= 2 && code <= 5));
        require((code == -1) == !analysis.found);
        if (code == -1) require(yaw == kNoAngle && pitch == kNoAngle);
        if (code == -2 || code == -4) require(yaw == 7777.0f && pitch == 7777.0f);
        // Codes 5, 4, 3, 2 store in buckets 0, 1, 2, 3; nothing else stores.
        for (int b = 0; b < 4; ++b) {
            const bool into = code == 5 - b;
            require(selection.bucket(Bucket(b)).size() == before[b] + (into ? 1 : 0));
            if (!into) continue;
            const StoredFrame& f = selection.bucket(Bucket(b)).back();
            require(f.frameId == id && f.yaw == yaw && f.pitch == pitch && f.sharpness >= 0);
            const auto& front = selection.bucket(Bucket::kFront);
            require(fitsBucket(Bucket(b), f, front.empty() ? 0.0f : front.front().pitch));
            // Frontal frames stop once any other bucket has a frame.
            if (b == 0)
                for (int other = 1; other < 4; ++other)
                    require(selection.bucket(Bucket(other)).empty());
            else
                require(!front.empty());
        }
    }

    int ids[4] = {-1, -1, -1, -1};
    const int result = selection.finalChoice(ids[0], ids[1], ids[2], ids[3]);
    int firstEmpty = 1;
    for (int b = 3; b >= 0; --b)
        if (selection.bucket(Bucket(b)).empty()) firstEmpty = -5 + b;
    require(result == firstEmpty);
    if (result == 1)
        for (int b = 0; b < 4; ++b) require(stored(selection.bucket(Bucket(b)), ids[b]));
    else
        for (int id : ids) require(id == -1);
    selection.clear();
    for (int b = 0; b < 4; ++b) require(selection.bucket(Bucket(b)).empty());
    return 0;
}
