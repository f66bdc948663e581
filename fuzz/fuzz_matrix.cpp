// Binary matrix files: any bytes under any claimed shape (negative, or far
// larger than the file) are read or refused without reading past the data,
// refused before anything is allocated for the claim, and a matrix read
// whole or by a range of rows holds the file's doubles in place.
//
// Input: rows and columns as signed 16-bit numbers, a flags byte (bits 0
// and 1 scale rows and columns by 2^16, bits 2-3 pick the row count of the
// range), the first row of the range, then the file.
#include <cstring>
#include <limits>

#include <Eigen/Core>

#include "fuzz_input.h"
#include "io/matrix_file.h"

using namespace kestrel::meridian;
using meridian::fuzz::require;

namespace {

constexpr size_t kHeader = 6;

MatrixFileStatus expectedStatus(int rows, int cols, size_t bytes) {
    if (rows < 0 || cols < 0) return MatrixFileStatus::invalidShape;
    const uint64_t values = uint64_t(rows) * uint64_t(cols);
    if (values > uint64_t(std::numeric_limits<int64_t>::max()) / 8)
        return MatrixFileStatus::tooLarge;
    return values * 8 > bytes ? MatrixFileStatus::tooShort : MatrixFileStatus::ok;
}

// Value r * cols + c of the file, as the little-endian double it holds.
double fileValue(const uint8_t* file, int64_t index) {
    double value;
    std::memcpy(&value, file + 8 * index, 8);
    return value;
}

bool sameBits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < kHeader) return 0;
    int16_t rows16, cols16;
    std::memcpy(&rows16, data, 2);
    std::memcpy(&cols16, data + 2, 2);
    const uint8_t flags = data[4];
    const int rows = (flags & 1) ? rows16 * 65536 : rows16;
    const int cols = (flags & 2) ? cols16 * 65536 : cols16;
    const uint8_t* file = data + kHeader;
    const size_t bytes = size - kHeader;
    const std::string& path = meridian::fuzz::writeInput(file, bytes);

    const MatrixFileStatus expected = expectedStatus(rows, cols, bytes);
    require(checkMatrixFile(path, rows, cols) == expected);
    Eigen::MatrixXd out = Eigen::MatrixXd::Constant(1, 1, 42.0);
    require(readMatrixFile(path, rows, cols, out) == expected);
    if (expected != MatrixFileStatus::ok) {
        // Refused: nothing changed, and the message names the file.
        require(out.rows() == 1 && out.cols() == 1 && out(0, 0) == 42.0);
        require(matrixFileMessage(expected, path, rows, cols).find(path) != std::string::npos);
        return 0;
    }
    require(out.rows() == rows && out.cols() == cols);
    for (int64_t i = 0; i < int64_t(rows) * cols; ++i)
        require(sameBits(out(Eigen::Index(i / cols), Eigen::Index(i % cols)), fileValue(file, i)));

    // A range of rows: consecutive blocks from its first row, nothing else.
    const Eigen::Index first = rows > 0 ? data[5] % (rows + 1) : 0;
    const Eigen::Index count = (flags >> 2) % 4 - 1;  // -1: to the end
    const Eigen::Index end = count < 0 ? rows : std::min<Eigen::Index>(rows, first + count);
    Eigen::Index next = first;
    const auto sink = [&](Eigen::Index from, Eigen::Index n, const double* values) {
        require(from == next && n > 0 && from + n <= end);
        for (Eigen::Index k = 0; k < n * cols; ++k)
            require(sameBits(values[k], fileValue(file, from * cols + k)));
        next += n;
    };
    require(readMatrixFileRows(path, rows, cols, sink, first, count) == MatrixFileStatus::ok);
    require(next == (cols == 0 ? first : std::max(first, end)));
    return 0;
}
