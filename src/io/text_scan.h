// Locale-free scanning of text held in memory: lines, blank-separated
// tokens and numbers (std::from_chars), without allocating per line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kestrel::meridian::scan {

/// Walks a text line by line. A line ends at '\n'; one '\r' before it is
/// dropped, so CR LF files read like LF files.
class LineReader {
  public:
    explicit LineReader(std::string_view text) : rest_(text) {}

    /// The next line without its end; false at the end of the text.
    bool next(std::string_view& line);
    /// 1-based number of the line last returned.
    int64_t lineNumber() const { return lineNumber_; }
    /// Offset of the text not yet returned (just after the last line's end).
    size_t consumed(std::string_view whole) const {
        return static_cast<size_t>(rest_.data() - whole.data());
    }

  private:
    std::string_view rest_;
    int64_t lineNumber_ = 0;
};

/// True for the blanks that separate tokens: space, tab, vertical tab, form
/// feed and a carriage return that did not end a line.
inline bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r' && c != '\n');
}

/// Splits one line at runs of blanks. Inline: it runs for every number of
/// a mesh.
class TokenReader {
  public:
    explicit TokenReader(std::string_view line)
        : at_(line.data()), end_(line.data() + line.size()) {}

    /// The next token; false when only blanks are left.
    bool next(std::string_view& token) {
        while (at_ != end_ && isBlank(*at_)) ++at_;
        if (at_ == end_) return false;
        const char* start = at_;
        while (at_ != end_ && !isBlank(*at_)) ++at_;
        token = std::string_view(start, static_cast<size_t>(at_ - start));
        return true;
    }
    /// True when only blanks are left.
    bool atEnd() {
        while (at_ != end_ && isBlank(*at_)) ++at_;
        return at_ == end_;
    }

  private:
    const char* at_;
    const char* end_;
};

/// Outcome of reading one number token.
enum class NumberStatus {
    ok,          ///< the whole token is a finite number
    notANumber,  ///< not a number, trailing characters, or nan / inf
    outOfRange   ///< a number beyond the type's range (e.g. 1e999 as a float)
};

/// Reads a whole token as the nearest float (the rounding of strtof). A value
/// too small for a float reads as 0 or a subnormal; nan and inf are refused.
NumberStatus parseFloat(std::string_view token, float& value);

/// parseFloat of a token that lies inside `text`, which stays readable to
/// its end: the same value, found faster for short tokens.
NumberStatus parseFloat(std::string_view token, std::string_view text, float& value);

/// Reads a whole token as the nearest double, with the same rules.
NumberStatus parseDouble(std::string_view token, double& value);

/// Reads a whole token as a decimal integer (an optional sign, then digits).
NumberStatus parseInt64Slow(std::string_view token, int64_t& value);

/// Reads a whole token as a decimal integer (an optional sign, then digits).
/// Inline, with a fast path for the short indices of a face.
inline NumberStatus parseInt64(std::string_view token, int64_t& value) {
    const char* p = token.data();
    const char* end = p + token.size();
    const bool negative = p != end && *p == '-';
    if (negative) ++p;
    if (p == end || end - p > 18) return parseInt64Slow(token, value);
    int64_t magnitude = 0;
    for (; p != end; ++p) {
        const unsigned digit = static_cast<unsigned>(*p - '0');
        if (digit > 9) return parseInt64Slow(token, value);
        magnitude = magnitude * 10 + digit;
    }
    value = negative ? -magnitude : magnitude;
    return NumberStatus::ok;
}

/// Quotes a token for a message, shortened to 32 characters.
std::string quoted(std::string_view token);

}  // namespace kestrel::meridian::scan
