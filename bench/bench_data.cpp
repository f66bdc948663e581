#include "bench_data.h"

#include <filesystem>
#include <stdexcept>

#include "demo/demo_model.h"
#include "io/planar.h"

namespace meridian::bench {

namespace fs = std::filesystem;

namespace {

struct DemoModelDir {
    DemoModelDir() : path(fs::temp_directory_path() / "meridian-bench-demo") {
        std::string error;
        if (!demo::writeDemoModel(path.string(), error))
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
    static const DemoModelDir dir;
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

}  // namespace meridian::bench
