#include "bench_data.h"

#if defined(_WIN32)
#include <process.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "demo/demo_model.h"
#include "io/planar.h"

namespace meridian::bench {

namespace fs = std::filesystem;

namespace {

// One folder per process: two benchmark runs at once must not delete each
// other's model when the first one exits.
fs::path processTempPath(const char* name) {
#if defined(_WIN32)
    const long processId = _getpid();
#else
    const long processId = getpid();
#endif
    return fs::temp_directory_path() / (std::string(name) + "-" + std::to_string(processId));
}

struct DemoModelDir {
    DemoModelDir(const char* name, bool blendshapes) : path(processTempPath(name)) {
        std::string error;
        demo::DemoModelOptions options;
        options.blendshapes = blendshapes;
        if (!demo::writeDemoModel(path.string(), error, options))
            throw std::runtime_error("demo model: " + error);
    }
    ~DemoModelDir() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    fs::path path;
};

}  // namespace

const std::string& demoModelDir() {
    static const DemoModelDir dir("meridian-bench-demo", false);
    static const std::string path = dir.path.string();
    return path;
}

const std::string& blendshapeModelDir() {
    static const DemoModelDir dir("meridian-bench-blendshape-demo", true);
    static const std::string path = dir.path.string();
    return path;
}

const std::vector<float>& sampleHeadPlanar() {
    static const std::vector<float> head = [] {
        const Eigen::Matrix3Xd sample = demo::sampleHead();
        std::vector<float> planar(3 * sample.cols());
        kestrel::meridian::matrixToPlanar(sample, planar.data());
        return planar;
    }();
    return head;
}

#if !defined(_WIN32)
QuietStdout::QuietStdout() {
    std::fflush(stdout);
    saved_ = dup(STDOUT_FILENO);
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    close(null);
}

QuietStdout::~QuietStdout() {
    std::fflush(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
}
#else
QuietStdout::QuietStdout() = default;
QuietStdout::~QuietStdout() = default;
#endif

}  // namespace meridian::bench
