#include "image_file.h"

#include <filesystem>
#include <vector>

#include <opencv2/imgcodecs.hpp>

#include "cli_common.h"

namespace meridian::cli {

std::string encodeImage(const std::string& path, const cv::Mat& image) {
    std::vector<uchar> bytes;
    bool encoded = false;
    try {
        encoded = cv::imencode(std::filesystem::path(path).extension().string(), image, bytes);
    } catch (const cv::Exception&) {
        encoded = false;
    }
    if (!encoded) throw CommandError("cannot encode the picture " + path);
    return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

void writeImageFile(const std::string& path, const cv::Mat& image) {
    writeOutputFile(path, encodeImage(path, image));
}

}  // namespace meridian::cli
