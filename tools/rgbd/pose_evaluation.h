// Head angles of the frame selection measured against labelled photos.
#pragma once

#include <string>
#include <vector>

#include "rgbd/landmark_model.h"

namespace meridian::rgbd_eval {

struct PhotoResult {
    std::string image;
    double labelYaw = 0.0;    ///< as labelled: positive = turned toward the image's left
    double labelPitch = 0.0;  ///< as labelled
    bool found = false;
    float yaw = 0.0f;  ///< ours: negative = nose toward the image's left
    float pitch = 0.0f;
    float faceSize = 0.0f;  ///< landmark span in pixels (at the scaled size)
};

struct Summary {
    int photos = 0;
    int found = 0;
    double yawMeanAbsError = 0.0;
    double pitchMeanAbsError = 0.0;
    double pitchMeanSignedError = 0.0;  ///< ours minus label, over found photos
};

/// Reads `dir`/labels.csv (image,yaw_deg,pitch_deg,roll_deg), scales each
/// photo by `scale` (bilinear) and runs the frame selection's landmark and
/// pose chain on it. Throws std::runtime_error when the labels cannot be
/// read.
std::vector<PhotoResult> evaluatePhotos(const kestrel::meridian::LandmarkModel& model,
                                        const std::string& dir, double scale);

/// Errors after matching conventions: our yaw is the negated label yaw and
/// our pitch is the label pitch (both positive looking up).
Summary summarise(const std::vector<PhotoResult>& results);

}  // namespace meridian::rgbd_eval
