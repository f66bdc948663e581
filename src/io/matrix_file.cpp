#include "io/matrix_file.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <vector>

namespace kestrel::meridian {

namespace {

constexpr bool kBigEndianHost =
#if defined(__BYTE_ORDER__) && defined(__ORDER_BIG_ENDIAN__)
    __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
#else
    false;
#endif

// Rows are streamed through a buffer of about this size: it stays in cache,
// so the copy out of it costs little next to the read into it.
constexpr size_t kStreamBufferBytes = size_t{256} << 10;

void toHostOrder(double* values, size_t count) {
    if constexpr (kBigEndianHost) {
        for (size_t i = 0; i < count; ++i) {
            unsigned char bytes[8];
            std::memcpy(bytes, values + i, 8);
            std::reverse(bytes, bytes + 8);
            std::memcpy(values + i, bytes, 8);
        }
    } else {
        (void)values;
        (void)count;
    }
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// The byte count a shape needs, or a failure status.
MatrixFileStatus byteCount(int rows, int cols, uint64_t& bytes) {
    if (rows < 0 || cols < 0) return MatrixFileStatus::invalidShape;
    const uint64_t values = static_cast<uint64_t>(rows) * static_cast<uint64_t>(cols);
    constexpr uint64_t kMaxBytes = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    if (values > kMaxBytes / sizeof(double)) return MatrixFileStatus::tooLarge;
    bytes = values * sizeof(double);
    return MatrixFileStatus::ok;
}

/// Opens the file unbuffered (reads go straight to the caller's memory) and
/// checks its length.
MatrixFileStatus openChecked(const std::string& path, int rows, int cols, File& file) {
    uint64_t needed = 0;
    const MatrixFileStatus shape = byteCount(rows, cols, needed);
    if (shape != MatrixFileStatus::ok) return shape;
    file.reset(std::fopen(path.c_str(), "rb"));
    if (!file) return MatrixFileStatus::cannotOpen;
    std::error_code ec;
    const auto size = std::filesystem::file_size(path, ec);
    if (ec) return MatrixFileStatus::cannotOpen;  // e.g. a directory
    if (size < needed) return MatrixFileStatus::tooShort;
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    return MatrixFileStatus::ok;
}

bool seekTo(std::FILE* file, int64_t offset) {
#if defined(_WIN32)
    return _fseeki64(file, offset, SEEK_SET) == 0;
#else
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0;
#endif
}

bool readDoubles(std::FILE* file, double* values, size_t count) {
    if (std::fread(values, sizeof(double), count, file) != count) return false;
    toHostOrder(values, count);
    return true;
}

}  // namespace

std::string matrixFileMessage(MatrixFileStatus status, const std::string& path, int rows,
                              int cols) {
    const std::string shape = std::to_string(rows) + " x " + std::to_string(cols);
    switch (status) {
        case MatrixFileStatus::ok:
            return "";
        case MatrixFileStatus::cannotOpen:
            return "Unable to open file: " + path;
        case MatrixFileStatus::tooShort: {
            std::error_code ec;
            const auto size = std::filesystem::file_size(path, ec);
            uint64_t needed = 0;
            byteCount(rows, cols, needed);
            return "Matrix file too short: " + path + " holds " +
                   (ec ? std::string("fewer") : std::to_string(size)) + " bytes, " + shape +
                   " doubles need " + std::to_string(needed);
        }
        case MatrixFileStatus::tooLarge:
            return "Matrix too large: " + path + " as " + shape + " doubles";
        case MatrixFileStatus::invalidShape:
            return "Invalid matrix shape " + shape + " for " + path;
    }
    return "";
}

MatrixFileStatus checkMatrixFile(const std::string& path, int rows, int cols) {
    File file;
    return openChecked(path, rows, cols, file);
}

MatrixFileStatus readMatrixFileRows(const std::string& path, int rows, int cols,
                                    const MatrixRowSink& sink, Eigen::Index firstRow,
                                    Eigen::Index rowCount) {
    File file;
    const MatrixFileStatus status = openChecked(path, rows, cols, file);
    if (status != MatrixFileStatus::ok) return status;
    const Eigen::Index end =
        rowCount < 0 ? rows : std::min<Eigen::Index>(rows, firstRow + rowCount);
    if (firstRow >= end || cols == 0) return status;
    const size_t rowValues = static_cast<size_t>(cols);
    const size_t blockRows = std::max<size_t>(1, kStreamBufferBytes / (rowValues * sizeof(double)));
    if (firstRow > 0 && !seekTo(file.get(), static_cast<int64_t>(firstRow) * cols * 8))
        return MatrixFileStatus::tooShort;
    std::vector<double> buffer(std::min<size_t>(blockRows, static_cast<size_t>(end - firstRow)) *
                               rowValues);
    for (Eigen::Index first = firstRow; first < end;) {
        const Eigen::Index count =
            std::min<Eigen::Index>(static_cast<Eigen::Index>(blockRows), end - first);
        // The length was checked; a short read means the file changed since.
        if (!readDoubles(file.get(), buffer.data(), static_cast<size_t>(count) * rowValues))
            return MatrixFileStatus::tooShort;
        sink(first, count, buffer.data());
        first += count;
    }
    return MatrixFileStatus::ok;
}

MatrixFileStatus readMatrixFile(const std::string& path, int rows, int cols, Eigen::MatrixXd& out) {
    if (rows == 1 || cols == 1) {
        // A vector is laid out the same way in the file and in memory.
        File file;
        const MatrixFileStatus status = openChecked(path, rows, cols, file);
        if (status != MatrixFileStatus::ok) return status;
        Eigen::MatrixXd values(rows, cols);
        if (!readDoubles(file.get(), values.data(), static_cast<size_t>(values.size())))
            return MatrixFileStatus::tooShort;
        out.swap(values);
        return MatrixFileStatus::ok;
    }
    Eigen::MatrixXd values;
    const MatrixFileStatus status = readMatrixFileRows(
        path, rows, cols, [&](Eigen::Index first, Eigen::Index count, const double* block) {
            if (first == 0) values.resize(rows, cols);  // only once the file is known good
            values.middleRows(first, count) = Eigen::Map<
                const Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>>(
                block, count, cols);
        });
    if (status != MatrixFileStatus::ok) return status;
    values.resize(rows, cols);  // no-op unless the matrix is empty
    out.swap(values);
    return MatrixFileStatus::ok;
}

bool writeMatrixFileRows(const std::string& path, int rows, int cols,
                         const MatrixRowSource& source) {
    uint64_t bytes = 0;
    if (byteCount(rows, cols, bytes) != MatrixFileStatus::ok) return false;
    File file(std::fopen(path.c_str(), "wb"));
    if (!file) return false;
    const size_t rowValues = std::max<size_t>(1, static_cast<size_t>(cols));
    const size_t blockRows = std::max<size_t>(1, kStreamBufferBytes / (rowValues * sizeof(double)));
    std::vector<double> buffer;
    for (Eigen::Index first = 0; first < rows;) {
        const Eigen::Index count =
            std::min<Eigen::Index>(static_cast<Eigen::Index>(blockRows), rows - first);
        const size_t values = static_cast<size_t>(count) * static_cast<size_t>(cols);
        buffer.resize(values);
        source(first, count, buffer.data());
        toHostOrder(buffer.data(), values);  // host to file order: the same swap
        if (std::fwrite(buffer.data(), sizeof(double), values, file.get()) != values) return false;
        first += count;
    }
    return std::fclose(file.release()) == 0;
}

bool writeMatrixFile(const std::string& path, int rows, int cols, const double* rowMajorValues) {
    return writeMatrixFileRows(path, rows, cols,
                               [&](Eigen::Index first, Eigen::Index count, double* values) {
                                   std::copy(rowMajorValues + first * cols,
                                             rowMajorValues + (first + count) * cols, values);
                               });
}

}  // namespace kestrel::meridian
