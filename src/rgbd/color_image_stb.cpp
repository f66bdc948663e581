// Colour images decoded by stb_image (builds without OpenCV, e.g. Windows).
#include <cstring>
#include <memory>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_NO_STDIO_OVERRIDE
#define STBI_ONLY_JPEG
#define STBI_ONLY_PNG
#include <stb_image.h>

#include "rgbd/capture_files.h"

namespace kestrel::meridian {

ColorImage readColorImage(const std::string& path) {
    int cols = 0, rows = 0, channels = 0;
    const std::unique_ptr<unsigned char, void (*)(void*)> rgb(
        stbi_load(path.c_str(), &cols, &rows, &channels, 3), stbi_image_free);
    if (!rgb || cols <= 0 || rows <= 0) return {};
    ColorImage image;
    image.rows = rows;
    image.cols = cols;
    const size_t count = static_cast<size_t>(rows) * static_cast<size_t>(cols);
    image.bgr.resize(3 * count);
    for (size_t i = 0; i < count; ++i) {
        image.bgr[3 * i] = rgb.get()[3 * i + 2];
        image.bgr[3 * i + 1] = rgb.get()[3 * i + 1];
        image.bgr[3 * i + 2] = rgb.get()[3 * i];
    }
    return image;
}

}  // namespace kestrel::meridian
