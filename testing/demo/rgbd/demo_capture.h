// Demo RGBD capture: a real face photograph (the public-domain astronaut
// portrait that Debian's python3-skimage ships) turned in 3-D as a head
// would turn, written as "jpg/<n>.jpg" colour frames and "exr/<n>.exr"
// 32-bit float depth frames (metres), n = 1, 2, ...
#pragma once

#include <string>
#include <vector>

namespace meridian::demo {

/// One frame of the capture.
struct DemoCaptureFrame {
    double yaw = 0.0;    ///< head turn in degrees (negative: nose toward the image's left)
    double pitch = 0.0;  ///< degrees, positive looking up
    double blur = 0.0;   ///< Gaussian blur sigma in pixels, 0 for none
    bool eyesClosed = false;
    const char* note = "";  ///< what the selection should make of it
};

/// The frames in capture order (frame id k is file k + 1).
const std::vector<DemoCaptureFrame>& demoCaptureFrames();

/// The frame ids (0-based) the selection must choose.
struct DemoCaptureChoice {
    int front = 0;
    int yawNegative = 0;
    int yawPositive = 0;
    int up = 0;
};
DemoCaptureChoice demoCaptureExpectedChoice();

/// Where the portrait is read from.
std::string demoCapturePhotoPath();

/// Renders the capture into `dir` (creating jpg/ and exr/). On failure
/// returns false and says why in `error`.
bool writeDemoCapture(const std::string& dir, std::string& error);

}  // namespace meridian::demo
