// Helpers shared by the tests: temporary directories, files, sample heads
// and running the command-line tool.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

namespace meridian::testing {

/// A fresh directory under the system temp folder, removed at the end of
/// the test.
class TempDir {
  public:
    TempDir() {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        // Unique per process and per instance: tests run in parallel processes
        // and a test may hold several directories.
        static int instances = 0;
        std::string name = "meridian-";
        name += info ? std::string(info->test_suite_name()) + "-" + info->name() : "suite";
        name += "-" + std::to_string(::getpid()) + "-" + std::to_string(instances++);
        for (char& c : name)
            if (c == '/') c = '_';
        path_ = std::filesystem::temp_directory_path() / name;
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::string str() const { return path_.string(); }
    /// Path of `name` inside the directory.
    std::string file(const std::string& name) const { return (path_ / name).string(); }

    /// Writes `text` byte for byte to `name` (creating sub-directories).
    std::string write(const std::string& name, const std::string& text) const {
        const auto target = path_ / name;
        std::filesystem::create_directories(target.parent_path());
        std::ofstream(target, std::ios::binary) << text;
        return target.string();
    }

  private:
    std::filesystem::path path_;
};

/// The whole file as bytes; empty when it cannot be opened.
inline std::string readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

/// What a run of the `meridian` tool gave.
struct ToolRun {
    int exitCode = -1;
    std::string output;  ///< stdout and stderr together
};

/// Runs a shell command line, its standard error joined to its output.
inline ToolRun runCommand(const std::string& commandLine) {
    const std::string command = commandLine + " 2>&1";
    ToolRun run;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return run;
    char buffer[4096];
    size_t got = 0;
    while ((got = fread(buffer, 1, sizeof buffer, pipe)) > 0) run.output.append(buffer, got);
    const int status = pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

#if defined(MERIDIAN_CLI_PATH)
/// Runs the built `meridian` tool with `arguments` (a shell command line).
inline ToolRun runTool(const std::string& arguments) {
    return runCommand(std::string(MERIDIAN_CLI_PATH) + " " + arguments);
}
#endif

/// Deterministic planar head: 3 * 20481 floats in a plausible range.
inline std::vector<float> randomPlanarHead(unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> coordinate(-30.0f, 30.0f);
    std::vector<float> head(3 * 20481);
    for (float& v : head) v = coordinate(rng);
    return head;
}

}  // namespace meridian::testing
