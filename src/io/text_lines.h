// Line reading that treats CR LF like LF on every platform, as a text-mode
// stream does on Windows, so data files behave the same everywhere.
#pragma once

#include <istream>
#include <string>

namespace kestrel::meridian {

/// std::getline, then drops one trailing '\r' when the line was ended by
/// '\n'. A '\r' before the end of the file or before another '\r' stays.
inline bool getTextLine(std::istream& in, std::string& line) {
    if (!std::getline(in, line)) return false;
    if (!in.eof() && !line.empty() && line.back() == '\r') line.pop_back();
    return true;
}

}  // namespace kestrel::meridian
