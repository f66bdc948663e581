// Frame selection on 1280 by 720 frames: intake without the detector (the
// provider double answers at once) against the literal frame building,
// the final choice over 100 stored frames against scoring their float
// images then, the real provider per frame, and the memory a 300-frame
// capture keeps.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cmath>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "demo/rgbd/demo_capture.h"
#include "rgbd/face_points.h"
#include "rgbd/frame_selection.h"
#include "rgbd/head_pose.h"
#include "rgbd/mean_face.h"
#include "rgbd/sharpness.h"

namespace {

using namespace kestrel::meridian;

constexpr int kRows = 720, kCols = 1280;

// The double's queue: the landmarks its next GetFaceLandmark returns.
void queueLandmarks(const std::vector<float>& points) {
    static void* double_ = dlopen(MERIDIAN_DOUBLE_PROVIDER_PATH, RTLD_NOW | RTLD_LOCAL);
    static auto queue =
        reinterpret_cast<void (*)(const float*)>(dlsym(double_, "CvFaceDoubleQueue"));
    queue(points.data());
}

// The mean face seen from the front, 2.5 pixels per unit, in the middle of
// the frame, as the provider's 106 points.
const std::vector<float>& frontalPoints() {
    static const std::vector<float> points = [] {
        const auto& c = meanFaceConstants();
        std::vector<float> p(2 * CV_FACE_POINT_COUNT);
        int column = 0;
        for (int i = 0; i < CV_FACE_POINT_COUNT; ++i) {
            const int j = isSkippedPoint(i) ? 0 : column++;
            p[2 * i] = float(640 + 2.5 * c[j]) + 1.0f;
            p[2 * i + 1] = float(360 - 2.5 * c[102 + j]) + 2.0f;
        }
        return p;
    }();
    return points;
}

const std::vector<unsigned char>& colorFrame() {
    static const std::vector<unsigned char> frame = [] {
        std::mt19937 rng(3);
        std::vector<unsigned char> f(size_t(kRows) * kCols * 3);
        for (unsigned char& v : f) v = static_cast<unsigned char>(rng() & 0xFF);
        return f;
    }();
    return frame;
}

const std::vector<float>& depthFrame() {
    static const std::vector<float> depth(size_t(kRows) * kCols, 0.6f);
    return depth;
}

std::unique_ptr<LandmarkModel> doubleModel(benchmark::State& state) {
    std::string error;
    auto model = LandmarkModel::load("", MERIDIAN_DOUBLE_PROVIDER_PATH, error);
    if (!model) state.SkipWithError(error.c_str());
    return model;
}

// A line of /proc/self/status in kilobytes ("VmRSS:" resident, "VmHWM:"
// its peak).
long statusKilobytes(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string key;
    long value = 0;
    while (status >> key)
        if (key == field && status >> value) return value;
    return 0;
}

// A 300-frame 1280 by 720 capture kept in the buckets: the process's
// resident memory and its peak afterwards, against the 500 MB bound (runs
// first, before other benchmarks raise the peak).
void BM_RgbdCapture300Memory(benchmark::State& state) {
    const auto model = doubleModel(state);
    if (!model) return;
    for (auto _ : state) {
        FrameSelection selection;
        const long before = statusKilobytes("VmRSS:");
        for (int id = 0; id < 300; ++id) {
            queueLandmarks(frontalPoints());
            float yaw, pitch;
            selection.intake(*model, id, colorFrame().data(), kRows, kCols, yaw, pitch);
        }
        const long after = statusKilobytes("VmRSS:");
        state.counters["stored"] = double(selection.bucket(Bucket::kFront).size());
        state.counters["added_MB"] = double(after - before) / 1024.0;
        state.counters["resident_MB"] = double(after) / 1024.0;
        state.counters["peak_MB"] = double(statusKilobytes("VmHWM:")) / 1024.0;
        // What the 300 literal float colour + depth frames would take.
        state.counters["literal_MB"] = 300.0 * kRows * kCols * 4 * 4 / (1024.0 * 1024.0);
    }
}
BENCHMARK(BM_RgbdCapture300Memory)->Unit(benchmark::kMillisecond)->Iterations(1);

// Frontal intake: landmarks, pose, checks, and the sharpness score of the
// stored frame.
void BM_RgbdIntake(benchmark::State& state) {
    const auto model = doubleModel(state);
    if (!model) return;
    FrameSelection selection;
    int id = 0;
    for (auto _ : state) {
        queueLandmarks(frontalPoints());
        float yaw, pitch;
        const int code =
            selection.intake(*model, id++, colorFrame().data(), kRows, kCols, yaw, pitch);
        if (code != kStoredFront) state.SkipWithError("frame not stored");
    }
}
BENCHMARK(BM_RgbdIntake)->Unit(benchmark::kMillisecond);

// The literal frame: depth converted, transposed and scaled, colour as
// float, landmarks and pose; the float images are what it would keep.
void BM_RgbdIntakeLiteral(benchmark::State& state) {
    const auto model = doubleModel(state);
    if (!model) return;
    for (auto _ : state) {
        queueLandmarks(frontalPoints());
        cv::Mat depth;
        cv::Mat(kRows, kCols, CV_32FC1, const_cast<float*>(depthFrame().data()))
            .convertTo(depth, CV_32F, 1.0, 0.0);
        depth = depth.t();
        depth *= 1000.0;
        const FrameAnalysis analysis = analyseFrame(*model, colorFrame().data(), kRows, kCols);
        cv::Mat color;
        cv::Mat(kRows, kCols, CV_8UC3, const_cast<unsigned char*>(colorFrame().data()))
            .convertTo(color, CV_32FC3, 1.0 / 255.0);
        benchmark::DoNotOptimize(analysis.found);
        benchmark::DoNotOptimize(color.data);
        benchmark::DoNotOptimize(depth.data);
    }
}
BENCHMARK(BM_RgbdIntakeLiteral)->Unit(benchmark::kMillisecond);

// Final choice over 100 stored frames, 25 per bucket.
void BM_RgbdFinalChoice100(benchmark::State& state) {
    FrameSelection selection;
    const auto model = doubleModel(state);
    if (!model) return;
    // Small frames: the scores are taken at intake; their size does not
    // change the choice's work.
    const cv::Mat small(300, 400, CV_8UC3, cv::Scalar(90, 120, 150));
    const auto& c = meanFaceConstants();
    auto offer = [&](int id, double yawDegrees, double pitchDegrees) {
        const double t = yawDegrees * 3.14 / 180, p = pitchDegrees * 3.14 / 180;
        std::vector<float> points(2 * CV_FACE_POINT_COUNT);
        int column = 0;
        for (int i = 0; i < CV_FACE_POINT_COUNT; ++i) {
            const int j = isSkippedPoint(i) ? 0 : column++;
            const double x = c[j], y = c[102 + j], z = c[204 + j];
            const double tx = std::cos(t) * x + std::sin(t) * z;
            const double tz = -std::sin(t) * x + std::cos(t) * z;
            points[2 * i] = float(200 + 1.8 * tx) + 1.0f;
            points[2 * i + 1] = float(150 - 1.8 * (std::cos(p) * y + std::sin(p) * tz)) + 2.0f;
        }
        queueLandmarks(points);
        float yaw, pitch;
        return selection.intake(*model, id, small.data, small.rows, small.cols, yaw, pitch);
    };
    int id = 0, stored = 0;
    for (int k = 0; k < 25; ++k) stored += offer(id++, 0.04 * k, 0) > 0;
    for (int k = 0; k < 25; ++k) stored += offer(id++, -21 - 0.3 * k, 0) > 0;
    for (int k = 0; k < 25; ++k) stored += offer(id++, 21 + 0.3 * k, 0) > 0;
    for (int k = 0; k < 25; ++k) stored += offer(id++, 0, 4 + 0.3 * k) > 0;
    if (stored != 100) state.SkipWithError("not all 100 frames were stored");
    int f, n, p, u;
    for (auto _ : state) benchmark::DoNotOptimize(selection.finalChoice(f, n, p, u));
}
BENCHMARK(BM_RgbdFinalChoice100)->Unit(benchmark::kMicrosecond);

// What the final choice over 100 frames costs when the frames keep their
// colour images and are scored then: 25 frontal + 3 x 5 candidates.
void BM_RgbdFinalChoice100Literal(benchmark::State& state) {
    for (auto _ : state) {
        float smallest = 1e30f;
        for (int k = 0; k < 25 + 3 * 5; ++k)
            smallest = std::min(smallest, sharpnessScore(colorFrame().data(), kRows, kCols));
        benchmark::DoNotOptimize(smallest);
    }
}
BENCHMARK(BM_RgbdFinalChoice100Literal)->Unit(benchmark::kMillisecond);

// The real provider: detection and landmarks of one 1280 by 720 frame (a
// demo-capture portrait on a wider canvas).
void BM_RgbdProviderLandmarks(benchmark::State& state) {
    std::string error;
    const auto model = LandmarkModel::load("", MERIDIAN_PROVIDER_PATH, error);
    if (!model) {
        state.SkipWithError(error.c_str());
        return;
    }
    const cv::Mat photo = cv::imread(meridian::demo::demoCapturePhotoPath(), cv::IMREAD_COLOR);
    if (photo.empty()) {
        state.SkipWithError("no portrait");
        return;
    }
    cv::Mat frame(kRows, kCols, CV_8UC3, cv::Scalar(180, 180, 180));
    cv::Mat face;
    cv::resize(photo(cv::Rect(100, 0, 260, 260)), face, cv::Size(700, 700));
    face(cv::Rect(0, 0, 700, kRows - 20)).copyTo(frame(cv::Rect(290, 10, 700, kRows - 20)));
    for (auto _ : state) {
        const FrameAnalysis analysis = analyseFrame(*model, frame.data, kRows, kCols);
        if (!analysis.found) state.SkipWithError("no face found");
    }
}
BENCHMARK(BM_RgbdProviderLandmarks)->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace
