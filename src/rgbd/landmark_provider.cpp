#include "rgbd/landmark_provider.h"

#include <cstring>

namespace kestrel::meridian {

namespace {

constexpr const char* kProviderName = "libcv_face";

// Any function of this module: its address tells which file the code was
// loaded from.
void anchor() {}

}  // namespace

std::unique_ptr<LandmarkProvider> LandmarkProvider::load(const std::string& path,
                                                         std::string& error) {
    std::unique_ptr<DynamicLibrary> library;
    std::string location = path;
    if (!path.empty()) {
        library = DynamicLibrary::open(path, error);
    } else {
        const std::string file = DynamicLibrary::fileName(kProviderName);
        const std::string besideUs =
            DynamicLibrary::directoryOf(reinterpret_cast<const void*>(&anchor)) + file;
        std::string besideError;
        library = DynamicLibrary::open(besideUs, besideError);
        location = besideUs;
        if (!library) {
            library = DynamicLibrary::open(file, error);
            location = file;
            if (!library)
                error = "landmark provider " + file + " not found next to the library (" +
                        besideError + ") nor on the loader's search path (" + error + ")";
        }
    }
    if (!library) return nullptr;

    auto provider = std::unique_ptr<LandmarkProvider>(new LandmarkProvider());
    provider->initModel_ = reinterpret_cast<CvFaceInitModel>(library->symbol("InitModel"));
    provider->getFaceLandmark_ =
        reinterpret_cast<CvFaceGetFaceLandmark>(library->symbol("GetFaceLandmark"));
    for (const auto& [found, name] :
         {std::pair<bool, const char*>{provider->initModel_ != nullptr, "InitModel"},
          {provider->getFaceLandmark_ != nullptr, "GetFaceLandmark"}}) {
        if (!found) {
            error = "landmark provider " + location + " has no function " + name;
            return nullptr;
        }
    }
    provider->library_ = std::move(library);
    provider->location_ = location;
    return provider;
}

bool LandmarkProvider::initModel(const std::string& modelDir) const {
    return initModel_(modelDir.c_str(), -1, 0) != -1;
}

void LandmarkProvider::faceLandmarks(const unsigned char* image, int rows, int cols, int channels,
                                     CvFaceResult& block) const {
    std::memset(&block, 0, sizeof block);
    block.score = 0.0f;
    getFaceLandmark_(image, rows, cols, channels, &block);
}

}  // namespace kestrel::meridian
