#include "blendshape/basis_store.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

#if defined(__linux__)
#include <sys/mman.h>
#endif

#include "blendshape/parallel_tasks.h"

namespace kestrel::meridian::blendshape {

namespace {

using Eigen::Index;

// The file is read in parts of about this size, spread over the cores.
constexpr Index kPartBytes = Index{16} << 20;

/// Uninitialised storage: the pages are touched first by the read, not by
/// a clearing pass. On Linux, large pages are asked for, which makes the
/// first touch of a few hundred megabytes several times cheaper.
std::unique_ptr<double[]> allocateRows(Index rows, Index cols) {
    const size_t count = static_cast<size_t>(rows) * static_cast<size_t>(cols);
    std::unique_ptr<double[]> values(new double[count]);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr uintptr_t kPage = 4096;
    const auto begin = (reinterpret_cast<uintptr_t>(values.get()) + kPage - 1) & ~(kPage - 1);
    const auto end = reinterpret_cast<uintptr_t>(values.get() + count) & ~(kPage - 1);
    if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#endif
    return values;
}

}  // namespace

RegionBasisStore::RegionBasisStore(Index rows, Index cols,
                                   const std::vector<std::vector<int>>& regionVertices)
    : rows_(rows), cols_(cols) {
    if (rows < 0 || cols < 0 || rows % 3 != 0)
        throw std::invalid_argument("basis store: rows must be a multiple of 3");
    std::vector<std::vector<Index>> targets(static_cast<size_t>(rows));
    Index next = 0;
    for (const std::vector<int>& vertices : regionVertices) {
        blockStart_.push_back(next);
        for (int vertex : vertices) {
            if (vertex < 0 || 3 * static_cast<Index>(vertex) >= rows)
                throw std::invalid_argument("basis store: face vertex " + std::to_string(vertex) +
                                            " outside the basis");
            for (int a = 0; a < 3; ++a)
                targets[3 * static_cast<size_t>(vertex) + a].push_back(next++);
        }
    }
    for (std::vector<Index>& t : targets)
        if (t.empty()) t.push_back(next++);
    storedRows_ = next;
    destinationStart_.reserve(targets.size() + 1);
    destinations_.reserve(static_cast<size_t>(next));
    for (const std::vector<Index>& t : targets) {
        destinationStart_.push_back(static_cast<Index>(destinations_.size()));
        destinations_.insert(destinations_.end(), t.begin(), t.end());
    }
    destinationStart_.push_back(static_cast<Index>(destinations_.size()));
}

MatrixFileStatus RegionBasisStore::read(const std::string& path) {
    values_.reset();
    if (rows_ > INT32_MAX || cols_ > INT32_MAX) return MatrixFileStatus::tooLarge;
    // Checked first, so that storage is only allocated for a usable file.
    const int rows = static_cast<int>(rows_), cols = static_cast<int>(cols_);
    const MatrixFileStatus check = checkMatrixFile(path, rows, cols);
    if (check != MatrixFileStatus::ok) return check;
    std::unique_ptr<double[]> values = allocateRows(storedRows_, cols_);
    const size_t rowBytes = static_cast<size_t>(cols_) * sizeof(double);
    auto place = [&](Index first, Index count, const double* block) {
        for (Index r = 0; r < count; ++r) {
            const Index fileRow = first + r;
            for (Index d = destinationStart_[fileRow]; d < destinationStart_[fileRow + 1]; ++d)
                std::memcpy(values.get() + destinations_[d] * cols_, block + r * cols_, rowBytes);
        }
    };
    // Parts of the file are read side by side: copying out of the page cache
    // and touching fresh pages is work for every core.
    const Index partRows = std::max<Index>(1, kPartBytes / static_cast<Index>(rowBytes));
    const int parts = static_cast<int>((rows_ + partRows - 1) / partRows);
    std::vector<MatrixFileStatus> statuses(static_cast<size_t>(parts), MatrixFileStatus::ok);
    runTasks(parts, defaultThreadCount(parts), [&](int part) {
        statuses[part] = readMatrixFileRows(path, rows, cols, place, part * partRows, partRows);
    });
    MatrixFileStatus status = MatrixFileStatus::ok;
    for (MatrixFileStatus s : statuses)
        if (s != MatrixFileStatus::ok) status = s;
    if (status == MatrixFileStatus::ok) values_ = std::move(values);
    return status;
}

}  // namespace kestrel::meridian::blendshape
