#include "rgbd/capture_driver.h"

#include "rgbd/capture_files.h"

namespace kestrel::meridian {

int runCapture(const LandmarkModel& model, FrameSelection& selection,
               const std::string& captureDir) {
    selection.clear();
    const std::vector<CaptureFramePaths> frames = listCapture(captureDir);
    for (size_t k = 0; k < frames.size(); ++k) {
        const ColorImage color = readColorImage(frames[k].color);
        float yaw = 0.0f, pitch = 0.0f;
        if (color.empty()) continue;  // no landmarks in an empty image
        selection.intake(model, static_cast<int>(k), color.bgr.data(), color.rows, color.cols, yaw,
                         pitch);
    }
    int front = 0, yawNegative = 0, yawPositive = 0, up = 0;
    return selection.finalChoice(front, yawNegative, yawPositive, up);
}

}  // namespace kestrel::meridian
