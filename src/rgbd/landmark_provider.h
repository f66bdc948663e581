// The landmark provider "libcv_face", a shared library loaded at run time.
#pragma once

#include <memory>
#include <string>

#include "meridian/cv_face.h"
#include "rgbd/dynamic_library.h"

namespace kestrel::meridian {

class LandmarkProvider {
  public:
    /// Opens the provider at `path`, or, when `path` is empty, the library
    /// "libcv_face" next to the module that holds this code and then on the
    /// system loader's search path. Returns null and says what is missing
    /// (the library, or which of its two functions) in `error`.
    static std::unique_ptr<LandmarkProvider> load(const std::string& path, std::string& error);

    /// InitModel(model_dir, -1, 0); true unless it gives -1.
    bool initModel(const std::string& modelDir) const;

    /// GetFaceLandmark on an 8-bit image of `rows` by `cols` pixels with
    /// `channels` interleaved channels. `block` is cleared first (the score
    /// field set to 0), so a provider that writes nothing leaves points at
    /// (0, 0), which extraction rejects.
    void faceLandmarks(const unsigned char* image, int rows, int cols, int channels,
                       CvFaceResult& block) const;

    /// Where the provider was loaded from.
    const std::string& location() const { return location_; }

  private:
    LandmarkProvider() = default;
    std::unique_ptr<DynamicLibrary> library_;
    CvFaceInitModel initModel_ = nullptr;
    CvFaceGetFaceLandmark getFaceLandmark_ = nullptr;
    std::string location_;
};

}  // namespace kestrel::meridian
