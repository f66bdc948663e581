// Pictures of the tool, encoded in memory and written atomically.
#pragma once

#include <string>

#include <opencv2/core.hpp>

namespace meridian::cli {

/// The bytes of `image` in the format of `path`'s extension (e.g. ".png").
/// Throws CommandError when it cannot be encoded.
std::string encodeImage(const std::string& path, const cv::Mat& image);

/// Encodes `image` in the format of `path`'s extension (e.g. ".png") and
/// writes it atomically. Throws CommandError when it cannot be encoded and
/// InputError when it cannot be written; nothing is left at `path` then.
void writeImageFile(const std::string& path, const cv::Mat& image);

}  // namespace meridian::cli
