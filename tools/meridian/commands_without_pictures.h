// Stand-ins for the commands a build without OpenCV leaves out.
#pragma once

#include <CLI/CLI.hpp>

namespace meridian::cli {

/// Adds `tbn`, `eyes`, `blendshapes`, `rgbd-select` and `rgbd-demo` as
/// commands that only fail with a note saying they need OpenCV.
void addCommandsThatNeedOpenCv(CLI::App& app);

}  // namespace meridian::cli
