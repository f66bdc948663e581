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

/// Splits one line at runs of blanks (spaces, tabs, vertical tabs, form feeds).
class TokenReader {
  public:
    explicit TokenReader(std::string_view line) : rest_(line) {}

    /// The next token; false when only blanks are left.
    bool next(std::string_view& token);
    /// True when only blanks are left.
    bool atEnd();

  private:
    std::string_view rest_;
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

/// Reads a whole token as the nearest double, with the same rules.
NumberStatus parseDouble(std::string_view token, double& value);

/// Reads a whole token as a decimal integer (an optional sign, then digits).
NumberStatus parseInt64(std::string_view token, int64_t& value);

/// Quotes a token for a message, shortened to 32 characters.
std::string quoted(std::string_view token);

}  // namespace kestrel::meridian::scan
