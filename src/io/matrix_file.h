// Headerless binary matrix files: R by C little-endian doubles stored row
// after row, exactly 8 * R * C bytes. The shape is not in the file; by
// convention the name ends in "_r_<R>_c_<C>.bin" and callers pass R and C.
//
// The readers report every failure to their caller and never read past the
// data: a missing file, a file shorter than 8 * R * C bytes and a shape
// whose byte count does not fit are results, not process exits.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <Eigen/Core>

namespace kestrel::meridian {

enum class MatrixFileStatus {
    ok,
    cannotOpen,    ///< missing, a directory, or unreadable
    tooShort,      ///< fewer than 8 * rows * cols bytes
    tooLarge,      ///< 8 * rows * cols does not fit in a signed 64-bit size
    invalidShape,  ///< a negative row or column count
};

/// One line that says what went wrong with `path`, e.g.
/// "Matrix file too short: <path> holds 40 bytes, 3 x 2 doubles need 48".
/// For cannotOpen it is "Unable to open file: <path>".
std::string matrixFileMessage(MatrixFileStatus status, const std::string& path, int rows, int cols);

/// Opens `path` and checks that it holds at least 8 * rows * cols bytes,
/// without reading the values.
MatrixFileStatus checkMatrixFile(const std::string& path, int rows, int cols);

/// Reads a rows by cols matrix: element (r, c) of the file is element (r, c)
/// of `out`. On failure `out` is left as it was.
MatrixFileStatus readMatrixFile(const std::string& path, int rows, int cols, Eigen::MatrixXd& out);

/// Receives consecutive blocks of whole rows: `count` rows starting at row
/// `first`, row after row (cols values each). The values live in a buffer
/// that is reused for the next block.
using MatrixRowSink =
    std::function<void(Eigen::Index first, Eigen::Index count, const double* values)>;

/// Streams the file's rows through one small reused buffer into `sink`, so a
/// large matrix can be laid out by the caller without a second full-size
/// copy. Only rows firstRow .. firstRow + rowCount - 1 are read (all rows by
/// default), so several readers can share a file. Nothing is passed to
/// `sink` unless the file holds the whole rows by cols matrix.
MatrixFileStatus readMatrixFileRows(const std::string& path, int rows, int cols,
                                    const MatrixRowSink& sink, Eigen::Index firstRow = 0,
                                    Eigen::Index rowCount = -1);

/// Writes rows by cols values given row after row. False when the file
/// cannot be written.
bool writeMatrixFile(const std::string& path, int rows, int cols, const double* rowMajorValues);

/// Fills `count` rows starting at row `first` into `values` (row after row).
using MatrixRowSource = std::function<void(Eigen::Index first, Eigen::Index count, double* values)>;

/// Writes a matrix produced a block of rows at a time, for matrices too
/// large to build whole. False when the file cannot be written.
bool writeMatrixFileRows(const std::string& path, int rows, int cols,
                         const MatrixRowSource& source);

}  // namespace kestrel::meridian
