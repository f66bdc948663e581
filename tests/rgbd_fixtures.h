// Helpers of the frame-selection tests and fuzz target: faces with known
// head angles, the provider double, and the exports of the library copy
// that loads it.
#pragma once

#include <dlfcn.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "meridian/meridian.h"
#include "rgbd/face_points.h"
#include "rgbd/head_pose.h"
#include "rgbd/landmark_model.h"

namespace meridian::testing {

/// The 102 kept landmarks (2 by 102, image x right, y down) of the mean face
/// turned by `yawRadians` about the vertical axis (positive: nose toward
/// the image's right) and then `pitchRadians` about the horizontal one
/// (positive: looking up), `scale` pixels per unit, centred at (cx, cy).
inline kestrel::meridian::FaceLandmarks projectedFace(double yawRadians, double pitchRadians,
                                                      double scale, double cx, double cy) {
    const kestrel::meridian::MeanFace& face = kestrel::meridian::meanFace();
    const double ct = std::cos(yawRadians), st = std::sin(yawRadians);
    const double cp = std::cos(pitchRadians), sp = std::sin(pitchRadians);
    kestrel::meridian::FaceLandmarks points;
    for (int j = 0; j < kestrel::meridian::kKeptPointCount; ++j) {
        const double x = face(0, j), y = face(1, j), z = face(2, j);
        const double turnedX = ct * x + st * z, turnedZ = -st * x + ct * z;
        const double up = cp * y + sp * turnedZ;
        points(0, j) = float(cx + scale * turnedX);
        points(1, j) = float(cy - scale * up);
    }
    return points;
}

/// The provider's 106 points (x0, y0, x1, y1, ...) that give `kept` after
/// extraction: kept columns shifted by (+1, +2), pupils at the first point.
inline std::vector<float> providerPoints(const kestrel::meridian::FaceLandmarks& kept) {
    std::vector<float> points(2 * CV_FACE_POINT_COUNT);
    int column = 0;
    for (int i = 0; i < CV_FACE_POINT_COUNT; ++i) {
        const int from = kestrel::meridian::isSkippedPoint(i) ? 0 : column++;
        points[2 * i] = kept(0, from) + 1.0f;
        points[2 * i + 1] = kept(1, from) + 2.0f;
    }
    return points;
}

/// A face whose angles the selection reports as about `yawDegrees` and
/// `pitchDegrees` (it converts with 3.14 for pi), 340 pixels wide, in a
/// 640 by 480 frame.
inline std::vector<float> faceAt(double yawDegrees, double pitchDegrees, double scale = 2.5) {
    return providerPoints(
        projectedFace(yawDegrees * 3.14 / 180.0, pitchDegrees * 3.14 / 180.0, scale, 320, 250));
}

/// Moves the six lid points of eye 0 (provider points 51-58) or eye 1
/// (61-68) onto the line between its corners: openness 0.
inline std::vector<float> withEyeClosed(std::vector<float> points, int eye) {
    const int base = eye == 0 ? 51 : 61;  // provider index of the first corner
    const float ax = points[2 * base], ay = points[2 * base + 1];
    const float bx = points[2 * (base + 3)], by = points[2 * (base + 3) + 1];
    for (int k : {1, 2, 4, 5, 6, 7}) {
        const float t = (k == 1 || k == 5) ? 1.0f / 3 : (k == 2 || k == 4) ? 2.0f / 3 : 0.5f;
        points[2 * (base + k)] = ax + t * (bx - ax);
        points[2 * (base + k) + 1] = ay + t * (by - ay);
    }
    return points;
}

constexpr int kFrameRows = 480, kFrameCols = 640;

/// A 640 by 480 BGR frame of uniform noise of the given amplitude about
/// mid grey: the larger the amplitude, the sharper the frame scores.
inline std::vector<unsigned char> noiseFrame(int amplitude, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> noise(-amplitude, amplitude);
    std::vector<unsigned char> frame(size_t(kFrameRows) * kFrameCols * 3);
    for (unsigned char& v : frame) v = static_cast<unsigned char>(128 + noise(rng));
    return frame;
}

/// The function `name` of a library loaded with dlopen (none without one).
template <typename Function>
Function libraryFunction(void* library, const char* name) {
    return library ? reinterpret_cast<Function>(dlsym(library, name)) : nullptr;
}

/// The provider double's control functions, from the double already loaded
/// at `path` (or loading it).
struct ProviderDouble {
    explicit ProviderDouble(const std::string& path)
        : handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {}
    ~ProviderDouble() {
        if (handle) dlclose(handle);
    }
    ProviderDouble(const ProviderDouble&) = delete;
    ProviderDouble& operator=(const ProviderDouble&) = delete;

    void next(const std::vector<float>& points) { queue(points.data()); }
    void nextNoFace() { queue(nullptr); }
    int call(int what) const {
        int values[8];
        calls(values);
        return values[what];
    }

    void* handle;
    void (*queue)(const float*) = libraryFunction<decltype(queue)>(handle, "CvFaceDoubleQueue");
    void (*reset)() = libraryFunction<decltype(reset)>(handle, "CvFaceDoubleReset");
    void (*calls)(int*) = libraryFunction<decltype(calls)>(handle, "CvFaceDoubleCalls");
    float (*scoreBefore)() = libraryFunction<decltype(scoreBefore)>(handle,
                                                                    "CvFaceDoubleScoreBefore");
    const char* (*modelDir)() = libraryFunction<decltype(modelDir)>(handle, "CvFaceDoubleModelDir");
};

/// The frame-selection exports of the library copy at `library`, which
/// loads the provider double at `providerPath` beside it (so the same one),
/// and a uniform grey cols by rows frame with its depth to offer.
struct FrameSelectionExports {
    FrameSelectionExports(const char* library, const char* providerPath, int cols, int rows)
        : library(dlopen(library, RTLD_NOW | RTLD_LOCAL)),
          provider(providerPath),
          cols(cols),
          rows(rows) {}
    /// Offers the frame, the double giving `points` as its landmarks.
    int offer(int id, const std::vector<float>& points, float* yaw, float* pitch) {
        provider.next(points);
        return input(id, color.data(), cols, rows, depth.data(), cols, rows, yaw, pitch);
    }

    template <typename Function>
    Function get(const char* name) const {
        return libraryFunction<Function>(library, name);
    }
    void* library;
    decltype(&AI_system_init_Choose4RGBD) init = get<decltype(init)>("AI_system_init_Choose4RGBD");
    decltype(&AI_Choose4RGBD_input_1_rgbd) input =
        get<decltype(input)>("AI_Choose4RGBD_input_1_rgbd");
    decltype(&AI_Choose4RGBD_get_final_4_rgbd) final4 =
        get<decltype(final4)>("AI_Choose4RGBD_get_final_4_rgbd");
    decltype(&AI_Choose4RGBD_clear) clear = get<decltype(clear)>("AI_Choose4RGBD_clear");
    decltype(&debug_test_RGBD_choose4) driver = get<decltype(driver)>("debug_test_RGBD_choose4");
    decltype(&AI_system_over) over = get<decltype(over)>("AI_system_over");
    ProviderDouble provider;
    int cols, rows;
    std::vector<unsigned char> color = std::vector<unsigned char>(size_t(cols) * rows * 3, 128);
    std::vector<float> depth = std::vector<float>(size_t(cols) * rows, 0.6f);
};

}  // namespace meridian::testing
