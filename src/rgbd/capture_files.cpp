#include "rgbd/capture_files.h"

#include <filesystem>
#include <system_error>

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

}  // namespace kestrel::meridian
