// The frame selection run over a capture on disk.
#pragma once

#include <string>

#include "rgbd/frame_selection.h"

namespace kestrel::meridian {

/// Empties `selection`, offers every frame of `captureDir` (see
/// listCapture) in order with 0-based ids (frame k is file k + 1; an
/// unreadable colour image is offered as an empty one and gives no
/// landmarks; the depth files are not needed), then makes the final choice
/// and returns its code.
int runCapture(const LandmarkModel& model, FrameSelection& selection,
               const std::string& captureDir);

}  // namespace kestrel::meridian
