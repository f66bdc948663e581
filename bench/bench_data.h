// Inputs shared by the benchmarks: the demo model set and its sample head.
#pragma once

#include <string>
#include <vector>

namespace meridian::bench {

/// The demo model directory, written once per process and removed at exit.
const std::string& demoModelDir();

/// The demo model directory with its blendshape data ("BS/", 229 MB),
/// written once per process and removed at exit.
const std::string& blendshapeModelDir();

/// The demo sample head as a host passes it: 3 * 20481 floats, planar.
const std::vector<float>& sampleHeadPlanar();

/// Standard output sent to /dev/null while alive (the inits' messages).
class QuietStdout {
  public:
    QuietStdout();
    ~QuietStdout();
    QuietStdout(const QuietStdout&) = delete;
    QuietStdout& operator=(const QuietStdout&) = delete;

  private:
    int saved_ = -1;
};

}  // namespace meridian::bench
