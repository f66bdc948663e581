#include "rgbd/capture_files.h"

#include <filesystem>
#include <system_error>

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <ImfOutputFile.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace kestrel::meridian {

namespace fs = std::filesystem;

std::vector<CaptureFramePaths> listCapture(const std::string& captureDir) {
    const std::string colorDir = captureDir + "/jpg";
    size_t count = 0;
    std::error_code ec;
    for (fs::directory_iterator it(colorDir, ec), end; !ec && it != end; it.increment(ec))
        if (it->is_regular_file(ec)) ++count;
    std::vector<CaptureFramePaths> frames(count);
    for (size_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(i + 1);
        frames[i].color = colorDir + "/" + number + ".jpg";
        frames[i].depth = captureDir + "/exr/" + number + ".exr";
    }
    return frames;
}

cv::Mat readColorImage(const std::string& path) {
    cv::Mat image = cv::imread(path, cv::IMREAD_UNCHANGED);
    if (image.empty() || image.depth() != CV_8U) return cv::Mat();
    if (image.channels() == 1) cv::cvtColor(image, image, cv::COLOR_GRAY2BGR);
    if (image.channels() == 4) cv::cvtColor(image, image, cv::COLOR_BGRA2BGR);
    if (image.channels() != 3) return cv::Mat();
    return image.isContinuous() ? image : image.clone();
}

cv::Mat readDepthExr(const std::string& path) {
    try {
        Imf::InputFile file(path.c_str());
        const Imf::ChannelList& channels = file.header().channels();
        const char* name = nullptr;
        for (const char* candidate : {"Y", "Z", "R", "depth"})
            if (channels.findChannel(candidate)) {
                name = candidate;
                break;
            }
        if (name == nullptr) {
            auto first = channels.begin();
            if (first == channels.end() || ++channels.begin() != channels.end()) return cv::Mat();
            name = first.name();
        }
        const Imath::Box2i window = file.header().dataWindow();
        const int width = window.max.x - window.min.x + 1;
        const int height = window.max.y - window.min.y + 1;
        if (width <= 0 || height <= 0) return cv::Mat();
        cv::Mat depth(height, width, CV_32FC1);
        Imf::FrameBuffer buffer;
        char* origin = reinterpret_cast<char*>(depth.ptr<float>()) -
                       (static_cast<ptrdiff_t>(window.min.y) * width + window.min.x) *
                           static_cast<ptrdiff_t>(sizeof(float));
        buffer.insert(name, Imf::Slice(Imf::FLOAT, origin, sizeof(float), sizeof(float) * width));
        file.setFrameBuffer(buffer);
        file.readPixels(window.min.y, window.max.y);
        return depth;
    } catch (...) {
        return cv::Mat();
    }
}

bool writeDepthExr(const std::string& path, const cv::Mat& depth) {
    if (depth.type() != CV_32FC1 || depth.empty()) return false;
    try {
        const cv::Mat packed = depth.isContinuous() ? depth : depth.clone();
        Imf::Header header(packed.cols, packed.rows);
        header.compression() = Imf::ZIP_COMPRESSION;
        header.channels().insert("Y", Imf::Channel(Imf::FLOAT));
        Imf::OutputFile file(path.c_str(), header);
        Imf::FrameBuffer buffer;
        buffer.insert("Y", Imf::Slice(Imf::FLOAT, const_cast<char*>(packed.ptr<char>()),
                                      sizeof(float), sizeof(float) * packed.cols));
        file.setFrameBuffer(buffer);
        file.writePixels(packed.rows);
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace kestrel::meridian
