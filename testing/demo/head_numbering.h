// Vertex numbering of the demo head: which grid vertex each head id names.
// The ids the engines hard-code (landmarks, socket rings, gaze vertices) are
// given to grid vertices at the right places; every other id follows grid
// order.
#pragma once

#include <vector>

#include "demo/head_shape.h"

namespace meridian::demo::detail {

struct HeadNumbering {
    std::vector<int> gridOfId;  ///< #V: grid vertex of each head id
    std::vector<int> idOfGrid;  ///< #V: head id of each grid vertex
};

/// Chooses the grid vertices of the fixed ids and moves the landmark
/// vertices of `shape` exactly onto the landmark positions.
HeadNumbering numberHead(HeadShape& shape);

}  // namespace meridian::demo::detail
