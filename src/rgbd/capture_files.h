// A capture on disk: "jpg/1.jpg", "jpg/2.jpg", ... with their depth images
// "exr/1.exr", "exr/2.exr", ...
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace kestrel::meridian {

struct CaptureFramePaths {
    std::string color;
    std::string depth;
};

/// The frames of `captureDir`: as many as the regular files in its "jpg"
/// folder (none when it is missing), named by number from 1 whatever the
/// files are called.
std::vector<CaptureFramePaths> listCapture(const std::string& captureDir);

/// An 8-bit colour image as packed 3-channel BGR (grey and BGRA are
/// converted); empty when it cannot be read.
cv::Mat readColorImage(const std::string& path);

/// A one-channel 32-bit float OpenEXR image (channel "Y", "Z", "R" or
/// "depth", else the file's only channel); empty when it cannot be read.
cv::Mat readDepthExr(const std::string& path);

/// Writes `depth` (CV_32FC1) as a one-channel ("Y") 32-bit float OpenEXR
/// image with ZIP compression. False when it cannot be written.
bool writeDepthExr(const std::string& path, const cv::Mat& depth);

}  // namespace kestrel::meridian
