// Inputs shared by the benchmarks: the demo model set and its sample head.
#pragma once

#include <string>
#include <vector>

namespace meridian::bench {

/// The demo model directory, written once per process and removed at exit.
const std::string& demoModelDir();

/// The demo sample head as a host passes it: 3 * 20481 floats, planar.
const std::vector<float>& sampleHeadPlanar();

}  // namespace meridian::bench
