// Text of the demo model's mesh, correspondence and index files, and writing
// them. Numbers go through TextOut, so files are byte-identical everywhere.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <Eigen/Core>

namespace meridian::demo::detail {

/// Writes `text` to `path` in binary mode ("\n" line ends everywhere). On
/// failure says why in `error` and returns false.
bool writeTextFile(const std::filesystem::path& path, const std::string& text, std::string& error);

/// OBJ text: "v" records (floats), then "vt" records when `uvs` is given,
/// then faces (1-based): "f a b c" without uvs, "f a/t b/t c/t" with them,
/// t from `uvFaces` or, without it, the vertex index itself. No comments:
/// the readers take every token after a keyword as data.
/// @param vertices 3 by #V
/// @param faces    3 by #F, 0-based
/// @param uvs      2 by #T, or null
/// @param uvFaces  3 by #F, 0-based uv ids, or null
std::string objText(const Eigen::Matrix3Xd& vertices, const Eigen::Matrix3Xi& faces,
                    const Eigen::Matrix2Xd* uvs = nullptr,
                    const Eigen::Matrix3Xi* uvFaces = nullptr);

/// ASCII PLY: x y z per vertex written with the digits of its exact double
/// (PLY readers parse full doubles), and "3 a b c" faces (0-based) when
/// `faces` is given. The header has 7 lines without faces, 9 with them.
std::string plyText(const Eigen::Matrix3Xd& vertices, const Eigen::Matrix3Xi* faces = nullptr);

/// Pair correspondence, base 0, with "# source: <sourceLabel>" and
/// "# target: <targetLabel>" as its two further header lines: line k is
/// "k sources[k]", or "targets[k] sources[k]" when targets are given.
std::string pairCorrespondenceText(const std::vector<int>& sources, std::string_view sourceLabel,
                                   std::string_view targetLabel,
                                   const std::vector<int>* targets = nullptr);

/// One value per line.
std::string indexListText(const std::vector<int>& list);

}  // namespace meridian::demo::detail
