// meridian_rgbd_eval: the frame selection's head angles on labelled photos.
//
//   meridian_rgbd_eval [--photos DIR] [--scale S] [--provider PATH]
//
// Prints one line per photo and the summary: faces found, mean absolute
// yaw and pitch errors, and the mean signed pitch error (the figure the
// mean face's calibration about x cancels).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "pose_evaluation.h"

int main(int argc, char** argv) {
    std::string photos = MERIDIAN_SHARED_DIR "/realdata/head-pose";
    std::string provider = MERIDIAN_PROVIDER_PATH;
    double scale = 2.0;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--photos"))
            photos = argv[i + 1];
        else if (!std::strcmp(argv[i], "--scale"))
            scale = std::atof(argv[i + 1]);
        else if (!std::strcmp(argv[i], "--provider"))
            provider = argv[i + 1];
        else {
            std::cerr << "usage: meridian_rgbd_eval [--photos DIR] [--scale S] [--provider PATH]\n";
            return 2;
        }
    }
    std::string error;
    const auto model = kestrel::meridian::LandmarkModel::load("", provider, error);
    if (!model) {
        std::cerr << "error: " << error << '\n';
        return 1;
    }
    try {
        using namespace meridian::rgbd_eval;
        const auto results = evaluatePhotos(*model, photos, scale);
        std::printf("%-16s %9s %9s %6s %8s %8s %8s %8s %6s\n", "photo", "label yaw", "label pit",
                    "found", "yaw", "pitch", "yaw err", "pit err", "size");
        for (const PhotoResult& r : results) {
            if (!r.found) {
                std::printf("%-16s %9.2f %9.2f %6s\n", r.image.c_str(), r.labelYaw, r.labelPitch,
                            "no");
                continue;
            }
            std::printf("%-16s %9.2f %9.2f %6s %8.2f %8.2f %8.2f %8.2f %6.0f\n", r.image.c_str(),
                        r.labelYaw, r.labelPitch, "yes", r.yaw, r.pitch, r.yaw + r.labelYaw,
                        r.pitch - r.labelPitch, r.faceSize);
        }
        const Summary s = summarise(results);
        std::printf(
            "scale %.2f: faces found %d of %d; yaw mean abs error %.2f deg; pitch mean abs "
            "error %.2f deg; pitch mean signed error %+.2f deg\n",
            scale, s.found, s.photos, s.yawMeanAbsError, s.pitchMeanAbsError,
            s.pitchMeanSignedError);
    } catch (const std::exception& e) {
        std::cerr << "error: " << e.what() << '\n';
        return 1;
    }
    return 0;
}
