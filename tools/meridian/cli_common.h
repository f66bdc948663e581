// Helpers shared by the subcommands of the `meridian` tool.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "common/template_head.h"

namespace meridian::cli {

/// A failure the tool reports as "error: <message>" with exit code 1.
struct CommandError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Vertices of the template head every run call takes.
constexpr Eigen::Index kHeadVertexCount = kestrel::meridian::kTemplateHeadVertexCount;

/// Reads a head mesh (.obj, or .ply with any header length) and returns its
/// vertices as planar floats (3 * 20481: all x, all y, all z). Throws
/// CommandError for a missing file or a vertex count other than 20481.
std::vector<float> readHeadPlanar(const std::string& path);

/// Throws CommandError unless `dir` is an existing directory.
void requireModelDirectory(const std::string& dir);

/// Opens `path` for writing and throws CommandError when it cannot.
void requireWritable(const std::string& path);

}  // namespace meridian::cli
