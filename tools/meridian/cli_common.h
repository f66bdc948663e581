// Helpers shared by the subcommands of the `meridian` tool.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
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

/// Reads a head mesh strictly (io/head_reader.h: OBJ, or PLY ascii or
/// binary) and returns its vertices as planar floats (3 * 20481: all x, all
/// y, all z). Throws InputError naming the file and the fault.
std::vector<float> readHeadPlanar(const std::string& path);

/// Throws CommandError unless `dir` is an existing directory.
void requireModelDirectory(const std::string& dir);

/// Refuses an output before any work: "-" (the tool writes no output to
/// standard output), an existing target that is not a regular file, a
/// missing folder. Creates nothing.
void requireWritable(const std::string& path);

/// Writes an output file atomically (io/atomic_file.h): a failed write
/// leaves no partial file and keeps an earlier one intact.
void writeOutputFile(const std::string& path, std::string_view bytes);

/// Help text of an output file option: says that "-" is not standard output.
std::string outputHelp(const std::string& what);

/// Throws CommandError unless `value` is finite and above 0; `option` names
/// it in the message.
void requireFinitePositive(const char* option, double value);

}  // namespace meridian::cli
