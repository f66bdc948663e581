// A capture on disk: "jpg/1.jpg", "jpg/2.jpg", ... with their depth images
// "exr/1.exr", "exr/2.exr", ...
#pragma once

#include <string>
#include <vector>

namespace kestrel::meridian {

struct CaptureFramePaths {
    std::string color;
    std::string depth;
};

/// The frames of `captureDir`: as many as the regular files in its "jpg"
/// folder (none when it is missing), named by number from 1 whatever the
/// files are called.
std::vector<CaptureFramePaths> listCapture(const std::string& captureDir);

/// An 8-bit colour image, packed BGR: channel c of pixel (r, k) at
/// 3 (r cols + k) + c.
struct ColorImage {
    int rows = 0;
    int cols = 0;
    std::vector<unsigned char> bgr;
    bool empty() const { return bgr.empty(); }
};

/// A one-channel float image: pixel (r, k) at r cols + k.
struct DepthImage {
    int rows = 0;
    int cols = 0;
    std::vector<float> depth;
    bool empty() const { return depth.empty(); }
};

/// An 8-bit colour image file (JPEG, PNG, ...) as BGR (grey and BGRA are
/// converted); empty when it cannot be read. OpenCV's imread decodes it
/// where the build has OpenCV, stb_image elsewhere; two JPEG decoders may
/// differ in the last bit of a pixel.
ColorImage readColorImage(const std::string& path);

/// A one-channel 32-bit float OpenEXR image (channel "Y", "Z", "R" or
/// "depth", else the file's only channel); empty when it cannot be read.
DepthImage readDepthExr(const std::string& path);

/// Writes `depth` as a one-channel ("Y") 32-bit float OpenEXR image with ZIP
/// compression. False when it cannot be written.
bool writeDepthExr(const std::string& path, const DepthImage& depth);

}  // namespace kestrel::meridian
