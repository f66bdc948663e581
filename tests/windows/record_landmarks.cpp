// Records what a landmark provider finds on each frame of a capture, as the
// replay file of the provider double (CV_FACE_DOUBLE_REPLAY): one line per
// frame, in the order the frame selection's driver offers them.
//
//     meridian_record_landmarks PROVIDER CAPTURE_DIR > replay.txt
#include <cstdio>
#include <string>

#include "rgbd/capture_files.h"
#include "rgbd/landmark_provider.h"

int main(int argc, char** argv) {
    using namespace kestrel::meridian;
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s PROVIDER CAPTURE_DIR\n", argv[0]);
        return 2;
    }
    std::string error;
    const auto provider = LandmarkProvider::load(argv[1], error);
    if (!provider || !provider->initModel("")) {
        std::fprintf(stderr, "error: %s\n", provider ? "no landmark model" : error.c_str());
        return 1;
    }
    for (const CaptureFramePaths& frame : listCapture(argv[2])) {
        const ColorImage image = readColorImage(frame.color);
        if (image.empty()) continue;  // the driver offers no such frame
        CvFaceResult block;
        provider->faceLandmarks(image.bgr.data(), image.rows, image.cols, 3, block);
        if (block.face_count < 1) {
            std::printf("none\n");
            continue;
        }
        for (int i = 0; i < 2 * CV_FACE_POINT_COUNT; ++i)
            std::printf(i ? " %.9g" : "%.9g", static_cast<double>(block.points[i]));
        std::printf("\n");
    }
    return 0;
}
