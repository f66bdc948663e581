// A landmark provider for tests: it returns whatever landmarks the test
// queued, and records how it was called. Built as libcv_face.so in a folder
// of its own, next to a copy of libmeridian.so (and as libcv_face.dll for
// the Windows runs).
//
// A program that cannot queue (the C consumer) names a replay file in
// CV_FACE_DOUBLE_REPLAY instead: InitModel queues its lines, one per
// GetFaceLandmark call, each 212 numbers or the word "none".
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "meridian/cv_face.h"

#if defined(_WIN32)
#define DOUBLE_API extern "C" __declspec(dllexport)
#else
#define DOUBLE_API extern "C" __attribute__((visibility("default")))
#endif

namespace {

struct Calls {
    std::deque<std::vector<float>> queued;  // 212 values each; empty: no face
    std::string modelDir;
    int initDevice = 0;
    int initFlags = 0;
    int landmarkCalls = 0;
    int rows = 0, cols = 0, channels = 0;
    float scoreBefore = 0.0f;
    int firstPixel = -1;  // first byte of the last image
};

Calls& calls() {
    static Calls state;
    return state;
}

}  // namespace

namespace {

// Queues the lines of the replay file; false when a line is malformed.
bool queueReplay(const char* path) {
    std::ifstream file(path);
    if (!file) return false;
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        std::vector<float> points;
        if (line.rfind("none", 0) != 0) {
            float v = 0.0f;
            while (fields >> v) points.push_back(v);
            if (points.size() != 2 * CV_FACE_POINT_COUNT) return false;
        }
        calls().queued.push_back(std::move(points));
    }
    return true;
}

}  // namespace

/// Fails for a model directory named "fail", and for a replay file that
/// cannot be read.
DOUBLE_API int InitModel(const char* model_dir, int device, int flags) {
    calls().modelDir = model_dir ? model_dir : "(null)";
    calls().initDevice = device;
    calls().initFlags = flags;
    if (const char* replay = std::getenv("CV_FACE_DOUBLE_REPLAY"); replay && *replay) {
        calls().queued.clear();
        if (!queueReplay(replay)) return -1;
    }
    return calls().modelDir == "fail" ? -1 : 0;
}

#ifndef CV_FACE_DOUBLE_WITHOUT_LANDMARKS
DOUBLE_API int GetFaceLandmark(const unsigned char* image, int rows, int cols, int channels,
                               CvFaceResult* result) {
    Calls& c = calls();
    ++c.landmarkCalls;
    c.rows = rows;
    c.cols = cols;
    c.channels = channels;
    c.scoreBefore = result->score;
    c.firstPixel = image ? image[0] : -1;
    if (c.queued.empty()) return 0;
    const std::vector<float> points = std::move(c.queued.front());
    c.queued.pop_front();
    if (points.empty()) return 0;
    std::memcpy(result->points, points.data(), sizeof result->points);
    result->face_count = 1;
    result->point_count = CV_FACE_POINT_COUNT;
    return 1;
}
#endif

/// Queues the landmarks of the next call (212 floats), or "no face" for null.
DOUBLE_API void CvFaceDoubleQueue(const float* points) {
    calls().queued.emplace_back(points ? std::vector<float>(points, points + 212)
                                       : std::vector<float>());
}

/// Forgets queued landmarks and recorded calls.
DOUBLE_API void CvFaceDoubleReset() {
    calls() = Calls();
}

/// What the provider saw: [0] calls to GetFaceLandmark, [1] rows, [2] cols,
/// [3] channels, [4] first byte of the last image, [5] InitModel's device,
/// [6] its flags, [7] landmark sets still queued.
DOUBLE_API void CvFaceDoubleCalls(int* out) {
    const Calls& c = calls();
    const int values[8] = {
        c.landmarkCalls, c.rows,       c.cols,      c.channels,
        c.firstPixel,    c.initDevice, c.initFlags, static_cast<int>(c.queued.size())};
    std::memcpy(out, values, sizeof values);
}

/// The score field as the provider received it.
DOUBLE_API float CvFaceDoubleScoreBefore() {
    return calls().scoreBefore;
}

/// The model directory InitModel was given.
DOUBLE_API const char* CvFaceDoubleModelDir() {
    return calls().modelDir.c_str();
}
