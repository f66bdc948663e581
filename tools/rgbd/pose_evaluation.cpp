#include "pose_evaluation.h"

#include <cmath>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "rgbd/face_points.h"
#include "rgbd/frame_selection.h"

namespace meridian::rgbd_eval {

std::vector<PhotoResult> evaluatePhotos(const kestrel::meridian::LandmarkModel& model,
                                        const std::string& dir, double scale) {
    std::ifstream labels(dir + "/labels.csv");
    if (!labels) throw std::runtime_error("cannot read " + dir + "/labels.csv");
    std::vector<PhotoResult> results;
    std::string line;
    std::getline(labels, line);  // header
    while (std::getline(labels, line)) {
        std::istringstream fields(line);
        PhotoResult r;
        std::string yaw, pitch;
        if (!std::getline(fields, r.image, ',') || !std::getline(fields, yaw, ',') ||
            !std::getline(fields, pitch, ','))
            continue;
        r.labelYaw = std::stod(yaw);
        r.labelPitch = std::stod(pitch);
        cv::Mat photo = cv::imread(dir + "/" + r.image, cv::IMREAD_COLOR);
        if (!photo.empty()) {
            if (scale != 1.0) cv::resize(photo, photo, cv::Size(), scale, scale, cv::INTER_LINEAR);
            const auto analysis =
                kestrel::meridian::analyseFrame(model, photo.data, photo.rows, photo.cols);
            r.found = analysis.found;
            if (r.found) {
                r.yaw = analysis.angles.yaw;
                r.pitch = analysis.angles.pitch;
                r.faceSize = kestrel::meridian::faceSize(analysis.landmarks);
            }
        }
        results.push_back(r);
    }
    return results;
}

Summary summarise(const std::vector<PhotoResult>& results) {
    Summary s;
    s.photos = static_cast<int>(results.size());
    for (const PhotoResult& r : results) {
        if (!r.found) continue;
        ++s.found;
        s.yawMeanAbsError += std::fabs(r.yaw - (-r.labelYaw));
        s.pitchMeanAbsError += std::fabs(r.pitch - r.labelPitch);
        s.pitchMeanSignedError += r.pitch - r.labelPitch;
    }
    if (s.found > 0) {
        s.yawMeanAbsError /= s.found;
        s.pitchMeanAbsError /= s.found;
        s.pitchMeanSignedError /= s.found;
    }
    return s;
}

}  // namespace meridian::rgbd_eval
