// A growing text buffer for the demo model files. Numbers are written with
// std::to_chars: locale-independent and round-tripping, so files are
// byte-identical everywhere.
#pragma once

#include <charconv>
#include <string>
#include <string_view>

namespace meridian::demo::detail {

class TextOut {
  public:
    explicit TextOut(size_t reserve = 0) { text_.reserve(reserve); }

    TextOut& operator<<(std::string_view s) {
        text_.append(s);
        return *this;
    }
    TextOut& operator<<(char c) {
        text_.push_back(c);
        return *this;
    }
    TextOut& operator<<(int value) { return number(value); }
    /// Shortest text that reads back as the same float.
    TextOut& operator<<(float value) { return number(value); }
    /// Shortest text that reads back as the same double.
    TextOut& operator<<(double value) { return number(value); }

    const std::string& str() const { return text_; }

  private:
    template <typename T>
    TextOut& number(T value) {
        char buffer[32];
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
        text_.append(buffer, result.ptr);
        return *this;
    }
    std::string text_;
};

}  // namespace meridian::demo::detail
