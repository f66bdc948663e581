#include "cli_common.h"

#include <cmath>
#include <filesystem>

#include "io/atomic_file.h"
#include "io/head_reader.h"

namespace meridian::cli {

namespace fs = std::filesystem;

std::vector<float> readHeadPlanar(const std::string& path) {
    return kestrel::meridian::readHeadPlanar(path);
}

void requireModelDirectory(const std::string& dir) {
    if (!fs::is_directory(dir)) throw CommandError("model directory not found: " + dir);
}

void requireWritable(const std::string& path) {
    if (path == "-")
        throw CommandError("cannot write to standard output (\"-\"); name an output file");
    kestrel::meridian::checkAtomicTarget(path);
}

void writeOutputFile(const std::string& path, std::string_view bytes) {
    requireWritable(path);
    kestrel::meridian::writeFileAtomically(path, bytes);
}

std::string outputHelp(const std::string& what) {
    return what + " (a file; \"-\" is not standard output)";
}

void requireFinitePositive(const char* option, double value) {
    if (!std::isfinite(value) || value <= 0)
        throw CommandError(std::string(option) + " must be a finite number above 0, not " +
                           std::to_string(value));
}

}  // namespace meridian::cli
