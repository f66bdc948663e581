// The frame selection's image and matrix operations are plain loops, the
// same on every platform. Here they meet OpenCV, the reference the
// selection was first written against: the pose fit bit for bit, the
// sharpness score bit for bit except where OpenCV's own grey conversion
// rounds its last pixels of a row differently (see GreyMatchesExceptRowTails).
#include <cmath>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "demo/rgbd/demo_capture.h"
#include "fixtures.h"
#include "rgbd/head_pose.h"
#include "rgbd/sharpness.h"

namespace {

using namespace kestrel::meridian;
using meridian::testing::TempDir;

// OpenCV's grey of the 8-bit BGR image scaled to [0, 1].
cv::Mat openCvGrey(const unsigned char* bgr, int rows, int cols) {
    const cv::Mat wrapped(rows, cols, CV_8UC3, const_cast<unsigned char*>(bgr));
    cv::Mat colorFloat, grey;
    wrapped.convertTo(colorFloat, CV_32FC3, 1.0 / 255.0);
    cv::cvtColor(colorFloat, grey, cv::COLOR_BGR2GRAY);
    return grey;
}

cv::Mat openCvLaplacian(const cv::Mat& grey) {
    static const cv::Mat kLaplacian = (cv::Mat_<signed char>(3, 3) << 0, 1, 0, 1, -4, 1, 0, 1, 0);
    cv::Mat filtered;
    cv::filter2D(grey, filtered, -1, kLaplacian, cv::Point(-1, -1), 0.0, cv::BORDER_REFLECT_101);
    return filtered;
}

float openCvScore(const unsigned char* bgr, int rows, int cols) {
    cv::Scalar mean, deviation;
    cv::meanStdDev(openCvLaplacian(openCvGrey(bgr, rows, cols)), mean, deviation);
    return static_cast<float>(std::fabs(deviation[0]) * 255);
}

// Smoothed noise: neighbouring pixels close, as in a photograph.
std::vector<unsigned char> randomImage(int rows, int cols, unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<unsigned char> image(size_t(rows) * cols * 3);
    for (auto& v : image) v = static_cast<unsigned char>(rng() & 255);
    for (size_t i = 3; i < image.size(); ++i) image[i] = (image[i] + 3 * image[i - 3]) / 4;
    return image;
}

size_t differingElements(const std::vector<float>& ours, const cv::Mat& reference) {
    size_t count = 0;
    for (size_t i = 0; i < ours.size(); ++i) count += ours[i] != reference.ptr<float>()[i];
    return count;
}

TEST(RgbdOpenCvReference, PseudoInverseTableIsOpenCvsSvd) {
    cv::Mat homogeneous(4, kKeptPointCount, CV_32F);
    for (int r = 0; r < 3; ++r)
        for (int j = 0; j < kKeptPointCount; ++j) homogeneous.at<float>(r, j) = meanFace()(r, j);
    homogeneous.row(3).setTo(1.0f);
    const cv::Mat reference = homogeneous.inv(cv::DECOMP_SVD);
    const MeanFacePseudoInverse& table = meanFacePseudoInverse();
    for (int j = 0; j < kKeptPointCount; ++j)
        for (int c = 0; c < 4; ++c)
            ASSERT_EQ(table(j, c), reference.at<float>(j, c)) << "row " << j << " column " << c;
    // And it is a pseudo-inverse: [face; 1] * pinv is the 4 by 4 identity.
    const cv::Mat product = homogeneous * reference;
    EXPECT_LT(cv::norm(product, cv::Mat::eye(4, 4, CV_32F), cv::NORM_INF), 1e-4);
}

TEST(RgbdOpenCvReference, PoseFitEqualsOpenCvsMatrixProduct) {
    // OpenCV multiplies single-precision matrices with a double accumulator;
    // the fit's angles follow from the product, so equal products give equal
    // angles.
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> pixel(-100.0f, 1400.0f);
    cv::Mat pinv(kKeptPointCount, 4, CV_32F, const_cast<float*>(meanFacePseudoInverse().data()));
    for (int trial = 0; trial < 50; ++trial) {
        FaceLandmarks landmarks;
        for (int j = 0; j < kKeptPointCount; ++j) {
            landmarks(0, j) = pixel(rng);
            landmarks(1, j) = pixel(rng);
        }
        const cv::Mat camera = cv::Mat(2, kKeptPointCount, CV_32F, landmarks.data()) * pinv;
        // The same angles from OpenCV's product, by the fit's own steps.
        float r[3][3];
        for (int row = 0; row < 2; ++row) {
            const float* m = camera.ptr<float>(row);
            const float length = sqrtf(m[0] * m[0] + m[1] * m[1] + m[2] * m[2]);
            for (int k = 0; k < 3; ++k) r[row][k] = m[k] / length;
        }
        r[2][0] = r[0][1] * r[1][2] - r[0][2] * r[1][1];
        r[2][1] = r[0][2] * r[1][0] - r[0][0] * r[1][2];
        r[2][2] = r[0][0] * r[1][1] - r[0][1] * r[1][0];
        const std::array<float, 3> expected = {atan2f(r[0][1], r[0][0]), asinf(-r[0][2]),
                                               atan2f(r[1][2], r[2][2])};
        ASSERT_EQ(affinePoseAngles(landmarks, meanFacePseudoInverse()), expected) << trial;
    }
}

TEST(RgbdOpenCvReference, LaplacianAndDeviationEqualOpenCv) {
    // Fed OpenCV's own grey, the filter and the deviation match bit for bit,
    // borders included, from one pixel up.
    int trial = 0;
    for (const auto& [rows, cols] :
         {std::pair{480, 640}, {1, 1}, {1, 7}, {2, 5}, {17, 33}, {300, 300}, {720, 1280}}) {
        const auto image = randomImage(rows, cols, unsigned(++trial));
        const cv::Mat grey = openCvGrey(image.data(), rows, cols);
        const std::vector<float> greyValues(grey.ptr<float>(), grey.ptr<float>() + grey.total());
        const std::vector<float> filtered = laplacian3x3(greyValues, rows, cols);
        const cv::Mat reference = openCvLaplacian(grey);
        EXPECT_EQ(differingElements(filtered, reference), 0u) << rows << " by " << cols;
        cv::Scalar mean, deviation;
        cv::meanStdDev(reference, mean, deviation);
        EXPECT_EQ(standardDeviation(filtered), deviation[0]) << rows << " by " << cols;
    }
}

TEST(RgbdOpenCvReference, GreyMatchesExceptRowTails) {
    // OpenCV converts a row in vector blocks (16 pixels on this machine's
    // widest unit), each grey a fused multiply-add chain, and finishes the
    // row's remaining pixels with scalar code that rounds differently. Our
    // grey is the vector formula for every pixel: equal to OpenCV's on rows
    // whose width is a multiple of the block, and at most one unit in the
    // last place (6e-8) off on the last pixels of other rows.
    int trial = 0;
    for (const auto& [rows, cols, exact] : {std::tuple{480, 640, true},
                                            {720, 1280, true},
                                            {640, 640, true},
                                            {3, 16, true},
                                            {17, 33, false},
                                            {300, 300, false},
                                            {2, 5, false}}) {
        const auto image = randomImage(rows, cols, unsigned(100 + ++trial));
        const std::vector<float> grey = greyFromBgr(image.data(), rows, cols);
        const cv::Mat reference = openCvGrey(image.data(), rows, cols);
        const int vectorPart = cols / 16 * 16;
        size_t differing = 0;
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < cols; ++c) {
                const float ours = grey[size_t(r) * cols + c];
                const float theirs = reference.at<float>(r, c);
                if (ours == theirs) continue;
                ++differing;
                EXPECT_GE(c, vectorPart) << "row " << r << " column " << c;
                EXPECT_LE(std::fabs(ours - theirs), std::nextafter(theirs, 2.0f) - theirs)
                    << "row " << r << " column " << c;
            }
        if (exact) {
            EXPECT_EQ(differing, 0u) << rows << " by " << cols;
            EXPECT_EQ(sharpnessScore(image.data(), rows, cols),
                      openCvScore(image.data(), rows, cols));
        }
    }
}

TEST(RgbdOpenCvReference, ScoresOfTheDemoCaptureAndTheLabelledPhotos) {
    // The demo capture's frames are 640 wide: their scores are OpenCV's, bit
    // for bit, so its choice is unchanged. The labelled photographs have
    // other widths too: their scores agree to a few units in the seventh
    // digit, far below the gaps between frames the choice compares.
    TempDir capture;
    std::string error;
    ASSERT_TRUE(meridian::demo::writeDemoCapture(capture.str(), error)) << error;
    std::vector<std::string> images;
    for (const std::string& dir :
         {capture.file("jpg"), std::string(MERIDIAN_SHARED_DIR) + "/realdata/head-pose"}) {
        std::error_code ec;
        for (const auto& entry : std::filesystem::directory_iterator(dir, ec))
            if (entry.path().extension() == ".jpg") images.push_back(entry.path().string());
    }
    int exact = 0;
    double largest = 0;
    for (const std::string& path : images) {
        const cv::Mat image = cv::imread(path, cv::IMREAD_COLOR);
        ASSERT_FALSE(image.empty()) << path;
        const float ours = sharpnessScore(image.data, image.rows, image.cols);
        const float theirs = openCvScore(image.data, image.rows, image.cols);
        exact += ours == theirs;
        largest = std::max(largest, std::fabs(double(ours) - theirs) / theirs);
        if (image.cols % 16 == 0) {
            EXPECT_EQ(ours, theirs) << path;
        }
    }
    EXPECT_LT(largest, 1e-5);
    std::printf("%d of %zu scores equal OpenCV's, largest relative difference %.2g\n", exact,
                images.size(), largest);
}

}  // namespace
