#include "rgbd/depth_exr_tinyexr.h"

#include <cstring>

#include <tinyexr.h>

namespace kestrel::meridian {

namespace {

/// Frees tinyexr's header and image on every way out.
struct LoadedExr {
    EXRHeader header;
    EXRImage image;
    bool headerParsed = false;
    bool imageLoaded = false;
    LoadedExr() {
        InitEXRHeader(&header);
        InitEXRImage(&image);
    }
    ~LoadedExr() {
        if (imageLoaded) FreeEXRImage(&image);
        if (headerParsed) FreeEXRHeader(&header);
    }
    LoadedExr(const LoadedExr&) = delete;
    LoadedExr& operator=(const LoadedExr&) = delete;
};

/// The channel OpenEXR's reader takes: the first of the usual depth names,
/// else the only channel; -1 when there is none to take.
int depthChannel(const EXRHeader& header) {
    for (const char* candidate : {"Y", "Z", "R", "depth"})
        for (int c = 0; c < header.num_channels; ++c)
            if (std::strcmp(header.channels[c].name, candidate) == 0) return c;
    return header.num_channels == 1 ? 0 : -1;
}

}  // namespace

DepthImage readDepthExrWithTinyexr(const std::string& path) {
    EXRVersion version;
    if (ParseEXRVersionFromFile(&version, path.c_str()) != TINYEXR_SUCCESS || version.multipart ||
        version.tiled)
        return {};
    LoadedExr exr;
    const char* error = nullptr;
    if (ParseEXRHeaderFromFile(&exr.header, &version, path.c_str(), &error) != TINYEXR_SUCCESS) {
        FreeEXRErrorMessage(error);
        return {};
    }
    exr.headerParsed = true;
    const int channel = depthChannel(exr.header);
    if (channel < 0) return {};
    // Half channels are widened to float while decoding, as OpenEXR's
    // float slice does; unsigned ones are converted below.
    for (int c = 0; c < exr.header.num_channels; ++c)
        if (exr.header.pixel_types[c] == TINYEXR_PIXELTYPE_HALF)
            exr.header.requested_pixel_types[c] = TINYEXR_PIXELTYPE_FLOAT;
    if (LoadEXRImageFromFile(&exr.image, &exr.header, path.c_str(), &error) != TINYEXR_SUCCESS) {
        FreeEXRErrorMessage(error);
        return {};
    }
    exr.imageLoaded = true;
    if (exr.image.images == nullptr || exr.image.width <= 0 || exr.image.height <= 0) return {};

    DepthImage image;
    image.rows = exr.image.height;
    image.cols = exr.image.width;
    const size_t count = static_cast<size_t>(image.rows) * static_cast<size_t>(image.cols);
    image.depth.resize(count);
    const unsigned char* pixels = exr.image.images[channel];
    if (exr.header.requested_pixel_types[channel] == TINYEXR_PIXELTYPE_UINT) {
        const auto* values = reinterpret_cast<const unsigned int*>(pixels);
        for (size_t i = 0; i < count; ++i) image.depth[i] = static_cast<float>(values[i]);
    } else {
        std::memcpy(image.depth.data(), pixels, count * sizeof(float));
    }
    return image;
}

}  // namespace kestrel::meridian
