// Strict reading of the model directory's text tables: correspondence,
// index and weight files. Unlike the lenient loaders behind the legacy
// exports, these refuse a header that does not parse, a body that does not
// hold exactly its count of complete lines, and any non-finite value.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "io/correspondence.h"

namespace kestrel::meridian {

/// Reads a correspondence file: "# base B" (0 or 1), "# element count N",
/// header lines up to "# end_header" (two of them: pairs "target source";
/// any other number: "target second a b c w0 w1 w2"), then exactly N body
/// lines of that form. Base 1 shifts the first two fields down, as the
/// lenient loader does. Throws InputError naming the file and the line.
Correspondence readStrictCorrespondence(const std::string& path);

/// Reads an index list: whitespace-separated integers and nothing else.
std::vector<int32_t> readStrictIndexList(const std::string& path);

/// Reads a weight file: whitespace-separated finite numbers and nothing else.
std::vector<double> readStrictWeights(const std::string& path);

}  // namespace kestrel::meridian
