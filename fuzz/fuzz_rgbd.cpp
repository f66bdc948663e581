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
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "../tests/rgbd_fixtures.h"
#include "fuzz_input.h"
#include "rgbd/frame_selection.h"
#include "rgbd/head_pose.h"

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

CvFaceResult rawPoints(Reader& in) {
    CvFaceResult block{};
    for (float& v : block.points) v = float(in.half()) / 64.0f;
    return block;
}

// The mean face turned, scaled and placed, with some points moved, as the
// provider's points.
CvFaceResult posedFace(Reader& in, int rows, int cols) {
    const double yaw = int8_t(in.byte()) * 3.14 / 180, pitch = int8_t(in.byte()) * 3.14 / 180;
    const double scale = 0.5 + in.byte() / 64.0;
    const double cx = cols * (in.byte() / 255.0), cy = rows * (in.byte() / 255.0);
    FaceLandmarks kept = meridian::testing::projectedFace(yaw, pitch, scale, cx, cy);
    for (int moves = in.byte() % 9; moves > 0; --moves) {
        const int j = in.byte() % kKeptPointCount;
        kept(0, j) += int8_t(in.byte());
        kept(1, j) += int8_t(in.byte());
    }
    CvFaceResult block{};
    const std::vector<float> points = meridian::testing::providerPoints(kept);
    std::copy(points.begin(), points.end(), block.points);
    return block;
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

    const MeanFacePseudoInverse& pseudoInverse = meanFacePseudoInverse();
    FrameSelection selection;
    for (int id = 0; in.more() && id < 64; ++id) {
        const CvFaceResult block = in.byte() % 2 ? posedFace(in, rows, cols) : rawPoints(in);
        const FrameAnalysis analysis = analyseLandmarks(block, rows, cols, pseudoInverse);
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
            // The angles fit the bucket; up is measured from the first frontal frame.
            const auto& front = selection.bucket(Bucket::kFront);
            const float frontPitch = front.empty() ? 0.0f : front.front().pitch;
            const bool fits[] = {std::fabs(f.yaw) < 2, -30 < f.yaw && f.yaw < -20,
                                 20 < f.yaw && f.yaw < 30,
                                 std::fabs(f.yaw) < 5 && f.pitch > frontPitch + 3.0};
            require(fits[b]);
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
        for (int b = 0; b < 4; ++b) {
            const auto& frames = selection.bucket(Bucket(b));
            require(std::any_of(frames.begin(), frames.end(),
                                [&](const StoredFrame& f) { return f.frameId == ids[b]; }));
        }
    else
        for (int id : ids) require(id == -1);
    selection.clear();
    for (int b = 0; b < 4; ++b) require(selection.bucket(Bucket(b)).empty());
    return 0;
}
