// Depth images read and written with the OpenEXR library.
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <ImfOutputFile.h>

#include "rgbd/capture_files.h"

namespace kestrel::meridian {

DepthImage readDepthExr(const std::string& path) {
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
            if (first == channels.end() || ++channels.begin() != channels.end()) return {};
            name = first.name();
        }
        const Imath::Box2i window = file.header().dataWindow();
        const int width = window.max.x - window.min.x + 1;
        const int height = window.max.y - window.min.y + 1;
        if (width <= 0 || height <= 0) return {};
        DepthImage image;
        image.rows = height;
        image.cols = width;
        image.depth.resize(static_cast<size_t>(width) * static_cast<size_t>(height));
        Imf::FrameBuffer buffer;
        char* origin = reinterpret_cast<char*>(image.depth.data()) -
                       (static_cast<ptrdiff_t>(window.min.y) * width + window.min.x) *
                           static_cast<ptrdiff_t>(sizeof(float));
        buffer.insert(name, Imf::Slice(Imf::FLOAT, origin, sizeof(float), sizeof(float) * width));
        file.setFrameBuffer(buffer);
        file.readPixels(window.min.y, window.max.y);
        return image;
    } catch (...) {
        return {};
    }
}

bool writeDepthExr(const std::string& path, const DepthImage& image) {
    if (image.empty() ||
        image.depth.size() != static_cast<size_t>(image.rows) * static_cast<size_t>(image.cols))
        return false;
    try {
        Imf::Header header(image.cols, image.rows);
        header.compression() = Imf::ZIP_COMPRESSION;
        header.channels().insert("Y", Imf::Channel(Imf::FLOAT));
        Imf::OutputFile file(path.c_str(), header);
        Imf::FrameBuffer buffer;
        buffer.insert(
            "Y",
            Imf::Slice(Imf::FLOAT, reinterpret_cast<char*>(const_cast<float*>(image.depth.data())),
                       sizeof(float), sizeof(float) * image.cols));
        file.setFrameBuffer(buffer);
        file.writePixels(image.rows);
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace kestrel::meridian
