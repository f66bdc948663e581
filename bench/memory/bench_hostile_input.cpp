// Peak resident memory of the readers on hostile files: each read runs in a
// forked child, and the child's maximum RSS (minus that of a child that reads
// nothing) is reported against the file size. Counters:
//   file_MB  size of the input
//   peak_MB  extra resident memory of the read
//   ratio    peak_MB / file_MB
//   refused  1 when the reader refused the file (an exception), else 0
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <benchmark/benchmark.h>

#include "io/correspondence.h"
#include "io/input_limits.h"
#include "io/matrix_file.h"
#include "io/mesh_readers.h"

namespace {

namespace fs = std::filesystem;
using namespace kestrel::meridian;

constexpr double kMiB = 1024.0 * 1024.0;

const fs::path& workDir() {
    static const fs::path dir = [] {
        fs::path d = fs::temp_directory_path() / ("meridian-hostile-" + std::to_string(getpid()));
        fs::create_directories(d);
        return d;
    }();
    return dir;
}

// Exit code of the child: 0 read, 2 refused, 3 anything else.
struct ChildResult {
    int exitCode = -1;
    double maxRssMiB = 0.0;
};

ChildResult runInChild(const std::function<void()>& read) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        int code = 0;
        try {
            read();
        } catch (const std::exception&) {
            code = 2;
        } catch (...) {
            code = 3;
        }
        _exit(code);
    }
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, usage.ru_maxrss / 1024.0};
}

double idleChildMiB() {
    static const double idle = runInChild([] {}).maxRssMiB;
    return idle;
}

void measure(benchmark::State& state, const fs::path& file, const std::function<void()>& read) {
    const double fileMiB = static_cast<double>(fs::file_size(file)) / kMiB;
    ChildResult result;
    for (auto _ : state) result = runInChild(read);
    const double peak = result.maxRssMiB - idleChildMiB();
    state.counters["file_MB"] = fileMiB;
    state.counters["peak_MB"] = peak;
    state.counters["ratio"] = peak / fileMiB;
    state.counters["refused"] = result.exitCode == 2;
    if (result.exitCode != 0 && result.exitCode != 2) state.SkipWithError("reader crashed");
}

// One line: a keyword, then `unit` repeated up to `megabytes` MiB.
fs::path singleLineObj(const std::string& name, const std::string& keyword, const std::string& unit,
                       int megabytes) {
    const fs::path path = workDir() / name;
    if (fs::exists(path)) return path;
    std::string block;
    while (block.size() < (1 << 20)) block += unit;
    std::ofstream out(path, std::ios::binary);
    out << keyword;
    for (int i = 0; i < megabytes; ++i) out << block;
    out << '\n';
    return path;
}

// 100 MiB on one line, three contents: short numbers (the densest), face
// tokens with texture indices, and full-length coordinates.
void BM_ObjSingleLine(benchmark::State& state) {
    static const char* const kinds[][3] = {
        {"v-short.obj", "v", " 1"}, {"f-slash.obj", "f", " 1/1"}, {"v-long.obj", "v", " 0.123456"}};
    const auto* kind = kinds[state.range(0)];
    const fs::path file = singleLineObj(kind[0], kind[1], kind[2], 100);
    state.SetLabel(kind[0]);
    measure(state, file, [&] { benchmark::DoNotOptimize(readObj(file.string()).vertices.data()); });
}
BENCHMARK(BM_ObjSingleLine)->DenseRange(0, 2)->Iterations(1)->Unit(benchmark::kMillisecond);

// A correspondence file that claims 2^k entries and holds one body line.
void BM_CorrespondenceCount(benchmark::State& state) {
    const int64_t count = int64_t{1} << state.range(0);
    const fs::path file = workDir() / ("count-" + std::to_string(state.range(0)) + ".corresp");
    std::ofstream(file) << "# base 1\n# element count " << count
                        << "\n# end_header\n1 1 0 1 2 0.2 0.3 0.5\n";
    measure(state, file, [&] {
        Correspondence record;
        kestrel::meridian::Error error;
        loadCorrespondence(record, file.string(), error);
        benchmark::DoNotOptimize(record.targets.data());
    });
}
BENCHMARK(BM_CorrespondenceCount)
    ->DenseRange(16, 24, 4)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// A PLY header that claims 2^24 vertices and faces, and no body.
void BM_PlyCount(benchmark::State& state) {
    const fs::path file = workDir() / "count.ply";
    std::ofstream(file) << "ply\nformat ascii 1.0\nelement vertex 16777216\n"
                           "element face 16777216\nend_header\n0 0 0\n";
    measure(state, file,
            [&] { benchmark::DoNotOptimize(readPly(file.string(), 5).vertices.data()); });
}
BENCHMARK(BM_PlyCount)->Iterations(1)->Unit(benchmark::kMillisecond);

// A 48-byte matrix file read with the shape of the blendshape basis (its
// name claims 55554 x 500), with the largest shape, with a negative one, and
// with its own (3 x 2).
void BM_MatrixClaim(benchmark::State& state) {
    static const int shapes[][2] = {{55554, 500}, {INT32_MAX, INT32_MAX}, {-1, 2}, {3, 2}};
    const int rows = shapes[state.range(0)][0], cols = shapes[state.range(0)][1];
    const fs::path file = workDir() / "six_r_55554_c_500.bin";
    const double six[6] = {1, 2, 3, 4, 5, 6};
    writeMatrixFile(file.string(), 3, 2, six);
    state.SetLabel(std::to_string(rows) + " x " + std::to_string(cols));
    measure(state, file, [&] {
        Eigen::MatrixXd m;
        const MatrixFileStatus status = readMatrixFile(file.string(), rows, cols, m);
        if (status != MatrixFileStatus::ok)
            throw InputRefused(matrixFileMessage(status, file.string(), rows, cols));
    });
}
BENCHMARK(BM_MatrixClaim)->DenseRange(0, 3)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code ignored;
    fs::remove_all(workDir(), ignored);
    return 0;
}
