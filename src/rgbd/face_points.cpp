#include "rgbd/face_points.h"

#include <algorithm>
#include <cmath>

namespace kestrel::meridian {

bool extractLandmarks(const CvFaceResult& block, int rows, int cols, FaceLandmarks& landmarks) {
    int column = 0;
    for (int i = 0; i < CV_FACE_POINT_COUNT; ++i) {
        if (isSkippedPoint(i)) continue;
        const float x = block.points[2 * i];
        const float y = block.points[2 * i + 1] - 1.0f;
        if (!(x < cols) || !(y < rows) || x < 0 || y < 0) return false;
        landmarks(0, column) = x - 1.0f;
        landmarks(1, column) = y - 1.0f;
        ++column;
    }
    return true;
}

float faceSize(const FaceLandmarks& landmarks) {
    float minX = 10000, minY = 10000, maxX = 0, maxY = 0;
    for (int j = 0; j < kKeptPointCount; ++j) {
        const float x = landmarks(0, j), y = landmarks(1, j);
        minX = std::min(minX, x);
        maxX = std::max(maxX, x);
        minY = std::min(minY, y);
        maxY = std::max(maxY, y);
    }
    return std::max(maxX - minX, maxY - minY);
}

namespace {

// Distance of 1-based columns a and b, in double.
double distance(const FaceLandmarks& l, int a, int b) {
    const double dx = double(l(0, a - 1)) - l(0, b - 1);
    const double dy = double(l(1, a - 1)) - l(1, b - 1);
    return std::sqrt(dx * dx + dy * dy);
}

// Three lid distances summed in float, over the corner distance.
double openness(const FaceLandmarks& l, const int (&pairs)[4][2]) {
    float lids = 0.0f;
    for (int k = 0; k < 3; ++k) lids += distance(l, pairs[k][0], pairs[k][1]);
    return lids / distance(l, pairs[3][0], pairs[3][1]);
}

}  // namespace

int eyeOpenness(const FaceLandmarks& landmarks, bool frontal) {
    static const int kEyeA[4][2] = {{58, 59}, {53, 57}, {54, 56}, {52, 55}};
    static const int kEyeB[4][2] = {{66, 67}, {61, 65}, {62, 64}, {60, 63}};
    const double threshold = frontal ? 0.2 : 0.5;
    const int closed =
        int(openness(landmarks, kEyeA) < threshold) + int(openness(landmarks, kEyeB) < threshold);
    return closed == 2 ? -3 : closed == 1 ? -1 : 1;
}

}  // namespace kestrel::meridian
