// The face model's basis, read once into the layout the region fits compute
// with: row after row, each region's rows in one contiguous block.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "io/matrix_file.h"

namespace kestrel::meridian::blendshape {

/// Holds a 3N by K basis whose rows 3v, 3v+1, 3v+2 belong to face vertex v.
/// Block r holds the rows of the vertices of region r, in the order given;
/// the rows of no region follow in file order. A row that several regions
/// need is kept once per region (the only rows kept twice), so every row of
/// the file is still there and the basis is in memory once, not once in
/// file order and again per region.
class RegionBasisStore {
  public:
    RegionBasisStore() = default;

    /// Plans the layout. regionVertices[r] lists the face vertices of block
    /// r (each in 0..rows/3-1). Throws std::invalid_argument otherwise.
    RegionBasisStore(Eigen::Index rows, Eigen::Index cols,
                     const std::vector<std::vector<int>>& regionVertices);

    /// Reads the basis file (rows by cols, as planned) straight into place,
    /// streaming it through a small buffer. On failure the store is empty.
    MatrixFileStatus read(const std::string& path);

    Eigen::Index rows() const { return rows_; }
    Eigen::Index cols() const { return cols_; }
    /// Rows held: rows() plus the rows kept for more than one region.
    Eigen::Index storedRows() const { return storedRows_; }
    bool loaded() const { return values_ != nullptr; }

    /// First value of block `region`: 3 * #vertices rows of cols() values.
    const double* block(int region) const { return values_.get() + blockStart_[region] * cols_; }
    /// Row `fileRow` of the basis as stored in the file (cols() values).
    const double* row(Eigen::Index fileRow) const {
        return values_.get() + destinations_[destinationStart_[fileRow]] * cols_;
    }

  private:
    Eigen::Index rows_ = 0;
    Eigen::Index cols_ = 0;
    Eigen::Index storedRows_ = 0;
    std::vector<Eigen::Index> blockStart_;
    // Where each file row goes: destinations_[destinationStart_[r] ..
    // destinationStart_[r + 1]), the first being its home row.
    std::vector<Eigen::Index> destinationStart_;
    std::vector<Eigen::Index> destinations_;
    std::unique_ptr<double[]> values_;
};

}  // namespace kestrel::meridian::blendshape
