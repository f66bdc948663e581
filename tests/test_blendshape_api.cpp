// The blendshape exports without the demo data: the process exit of a
// missing or short data file (in a child process), bad data refused with a
// message, and run calls that must not run.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "blendshape/backend_files.h"
#include "fixtures.h"
#include "io/matrix_file.h"
#include "meridian/meridian.h"

namespace {

namespace bs = kestrel::meridian::blendshape;
using meridian::testing::randomPlanarHead;
using meridian::testing::readBytes;
using meridian::testing::TempDir;

/// Runs `AI_system_initDynamic_BS(modelDir)` in a forked child: its exit
/// code (-1 when it did not exit normally) and its standard output. A call
/// that returns ends the child with exit code 0.
std::pair<int, std::string> initInChild(const std::string& modelDir, const TempDir& scratch) {
    const std::string captured = scratch.file("stdout.txt");
    std::cout.flush();
    std::fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(open(captured.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
        const int64_t result = AI_system_initDynamic_BS(modelDir.c_str());
        std::cout << "returned " << result << std::endl;
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readBytes(captured)};
}

/// A complete "BS/" tree of the right sizes: zeros everywhere (every index
/// names vertex 0), sigmas of 1, and the 222 MB basis as a sparse file that
/// takes no disk space (it is never read: everything here fails before).
void writeZeroBackend(const std::string& modelDir) {
    namespace fs = std::filesystem;
    const fs::path root = fs::path(modelDir) / "BS";
    auto write = [&](const fs::path& path, const bs::MatrixFileEntry& entry, double value) {
        fs::create_directories(path.parent_path());
        const std::vector<double> values(static_cast<size_t>(entry.rows) * entry.cols, value);
        ASSERT_TRUE(kestrel::meridian::writeMatrixFile(path.string(), entry.rows, entry.cols,
                                                       values.data()));
    };
    for (int f = 0; f < bs::kBackendFileCount; ++f) {
        const bs::MatrixFileEntry& entry = bs::kBackendFiles[f];
        if (f == bs::kBasisFile) {
            std::ofstream(root / entry.name, std::ios::binary).close();
            fs::resize_file(root / entry.name, uintmax_t{8} * entry.rows * entry.cols);
        } else {
            write(root / entry.name, entry, f == bs::kSigmaFile ? 1.0 : 0.0);
        }
    }
    for (const bs::RegionEntry& region : bs::kRegions)
        for (const bs::MatrixFileEntry& entry : {region.all, region.fixed, region.weights})
            write(root / region.directory / entry.name, entry, 0.0);
}

/// Overwrites entry `entry` of matrix file `name` (under "BS/").
void setEntry(const std::string& modelDir, const std::string& name, long entry, double value) {
    std::fstream file(modelDir + "/BS/" + name, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(entry * 8);
    file.write(reinterpret_cast<const char*>(&value), 8);
}

TEST(BlendshapeInit, EndsTheProcessOnAMissingOrShortDataFile) {
    TempDir empty, partial, shortFile;
    partial.write("BS/kp_86_h_r_1_c_86.bin", std::string(8 * 86, '\0'));
    shortFile.write("BS/kp_86_h_r_1_c_86.bin", std::string(40, '\0'));
    const struct {
        std::string modelDir, says;
    } cases[] = {
        {empty.str(), "Unable to open file: " + empty.str() + "/BS/kp_86_h_r_1_c_86.bin\n"},
        // The directory is used as given: a trailing slash doubles.
        {empty.str() + "/", "Unable to open file: " + empty.str() + "//BS/kp_86_h_r_1_c_86.bin\n"},
        // Files are read in their order: the second one is missing here.
        {partial.str(),
         "Unable to open file: " + partial.str() + "/BS/tri_h_used_r_3_c_19394.bin\n"},
        {shortFile.str(), "Matrix file too short: " + shortFile.str() +
                              "/BS/kp_86_h_r_1_c_86.bin holds 40 bytes, 1 x 86 doubles need 688\n"},
    };
    for (const auto& c : cases) {
        const auto [exitCode, output] = initInChild(c.modelDir, empty);
        EXPECT_EQ(exitCode, 255) << output;  // exit(-1)
        EXPECT_EQ(output, "init backend datas" + c.modelDir + "\n" + c.says);
    }
}

TEST(BlendshapeInit, RefusesIndicesOfNoVertexWithAMessageAndNoEngine) {
    TempDir model;
    writeZeroBackend(model.str());
    // Each message is the file's path, then what is wrong with it.
    const struct {
        std::string file;
        long entry;
        double value;
        std::string says;
    } cases[] = {
        {"up_r_1_c_18518.bin", 7, 20481.0, "entry 7 names head vertex 20481, outside 0..20480"},
        {"up_r_1_c_18518.bin", 0, -1.0, "entry 0 names head vertex -1, outside 0..20480"},
        {"mask/nose/idx_fix_r_1_c_657.bin", 656, 18518.0,
         "entry 656 names face vertex 18518, outside 0..18517"},
        {"zf_all_face_V9_500_sigma_r_500_c_1.bin", 3, 0.0,
         "entry 3 is 0, not a positive standard deviation"},
    };
    const std::vector<float> head = randomPlanarHead(3);
    std::vector<float> out(6 * 3 * 20481, 5.0f);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        setEntry(model.str(), c.file, c.entry, c.value);
        ::testing::internal::CaptureStdout();
        const int64_t result = AI_system_initDynamic_BS(model.str().c_str());
        const std::string output = ::testing::internal::GetCapturedStdout();
        EXPECT_EQ(result, 1);
        EXPECT_EQ(output, "init backend datas" + model.str() + "\n" + model.str() + "/BS/" +
                              c.file + ": " + c.says + "\n");
        EXPECT_EQ(AI_get_BS(head.data(), out.data()), 0);
        setEntry(model.str(), c.file, c.entry,
                 c.file.find("sigma") != std::string::npos ? 1.0 : 0.0);
    }
    for (float v : out) ASSERT_EQ(v, 5.0f) << "a refused call wrote output";
    AI_system_over();
}

TEST(BlendshapeGet, WithoutAnEngineOrWithANullArrayReturnsZeroAndWritesNothing) {
    const std::vector<float> head = randomPlanarHead(4);
    std::vector<float> out(6 * 3 * 20481, 5.0f);
    EXPECT_EQ(AI_get_BS(head.data(), out.data()), 0);  // before any init
    AI_system_over();
    EXPECT_EQ(AI_get_BS(head.data(), out.data()), 0);  // after tear-down
    EXPECT_EQ(AI_get_BS(nullptr, out.data()), 0);
    EXPECT_EQ(AI_get_BS(head.data(), nullptr), 0);
    EXPECT_EQ(AI_system_initDynamic_BS(nullptr), 0);
    for (float v : out) ASSERT_EQ(v, 5.0f);
}

}  // namespace
