#include "io/text_scan.h"

#include "io/digit_runs.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

namespace kestrel::meridian::scan {

namespace {

// from_chars takes no '+'; OBJ and PLY writers sometimes put one.
std::string_view withoutPlus(std::string_view token) {
    if (token.size() > 1 && token[0] == '+' && token[1] != '-' && token[1] != '+')
        token.remove_prefix(1);
    return token;
}

// A number beyond the type's range is either too large (refused) or too
// small (rounds to 0 or a subnormal, as strtod does). strtod tells them
// apart; this runs only for such rare tokens, so the copy does not matter.
template <typename Real>
NumberStatus parseOutOfRange(std::string_view token, Real& value) {
    char buffer[128];
    if (token.size() >= sizeof buffer) return NumberStatus::outOfRange;
    std::memcpy(buffer, token.data(), token.size());
    buffer[token.size()] = '\0';
    const long double wide = std::strtold(buffer, nullptr);
    const long double largest = std::numeric_limits<Real>::max();
    if (!std::isfinite(wide) || std::fabs(wide) > largest) return NumberStatus::outOfRange;
    value = static_cast<Real>(wide);
    return std::isfinite(value) ? NumberStatus::ok : NumberStatus::outOfRange;
}

// Plain decimals ("-1.301489") of at most 2^53 in their digits and at most
// 22 decimals: the digits and the power of ten are exact doubles, so one
// division gives the double nearest the decimal. Narrowing that to a float
// rounds exactly as strtof does unless the double lies exactly halfway
// between two floats (no other float boundary can lie between a decimal
// and its nearest double); those, and everything else, go to from_chars.
bool fastFloat(std::string_view token, const char* readableEnd, float& value) {
    constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                  1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const char* p = token.data();
    const char* end = p + token.size();
    const bool negative = p != end && *p == '-';
    if (negative) ++p;
    // Digits, then at most one point and more digits, then the token's end.
    // The runs are read a word at a time, up to readableEnd rather than the
    // token's end so that short tokens take whole words too; a run that went
    // on past the token ends elsewhere than `end` and is refused below.
    uint64_t digits = 0;
    int count = 0;
    p = readDigitRun(p, readableEnd, digits, count);
    int decimals = -1;  // -1 without a point
    if (p != end && *p == '.') {
        const int whole = count;
        p = readDigitRun(p + 1, readableEnd, digits, count);
        decimals = count - whole;
    }
    if (p != end || count > 16) return false;
    if (count == 0 || digits > (uint64_t{1} << 53) || decimals > 22) return false;
    const double exact = static_cast<double>(digits) / kPowers[decimals < 0 ? 0 : decimals];
    if (exact != 0 &&
        (exact < std::numeric_limits<float>::min() || exact > std::numeric_limits<float>::max()))
        return false;
    // Halfway between two floats: a double whose bits below the float's
    // 24-bit significand are exactly a one followed by zeros.
    uint64_t bits;
    std::memcpy(&bits, &exact, sizeof bits);
    if ((bits & ((uint64_t{1} << 29) - 1)) == (uint64_t{1} << 28)) return false;
    const float magnitude = static_cast<float>(exact);
    value = negative ? -magnitude : magnitude;
    return true;
}

template <typename Real>
NumberStatus parseReal(std::string_view token, const char* readableEnd, Real& value) {
    token = withoutPlus(token);
    if constexpr (std::is_same_v<Real, float>) {
        if (fastFloat(token, readableEnd, value)) return NumberStatus::ok;
    }
    if (token.empty()) return NumberStatus::notANumber;
    // nan and inf are numbers to from_chars, but never coordinates.
    const char first = token[0] == '-' && token.size() > 1 ? token[1] : token[0];
    if (first != '.' && (first < '0' || first > '9')) return NumberStatus::notANumber;
    const char* end = token.data() + token.size();
    const auto [ptr, ec] = std::from_chars(token.data(), end, value, std::chars_format::general);
    if (ptr != end) return NumberStatus::notANumber;
    if (ec == std::errc::result_out_of_range) return parseOutOfRange(token, value);
    if (ec != std::errc()) return NumberStatus::notANumber;
    return std::isfinite(value) ? NumberStatus::ok : NumberStatus::outOfRange;
}

}  // namespace

bool LineReader::next(std::string_view& line) {
    if (rest_.empty()) return false;
    const void* newline = std::memchr(rest_.data(), '\n', rest_.size());
    size_t length = newline ? static_cast<size_t>(static_cast<const char*>(newline) - rest_.data())
                            : rest_.size();
    line = rest_.substr(0, length);
    rest_.remove_prefix(newline ? length + 1 : length);
    if (newline && !line.empty() && line.back() == '\r') line.remove_suffix(1);
    ++lineNumber_;
    return true;
}

NumberStatus parseFloat(std::string_view token, float& value) {
    return parseReal(token, token.data() + token.size(), value);
}

NumberStatus parseFloat(std::string_view token, std::string_view text, float& value) {
    return parseReal(token, text.data() + text.size(), value);
}

NumberStatus parseDouble(std::string_view token, double& value) {
    return parseReal(token, token.data() + token.size(), value);
}

NumberStatus parseInt64Slow(std::string_view token, int64_t& value) {
    token = withoutPlus(token);
    const char* end = token.data() + token.size();
    const auto [ptr, ec] = std::from_chars(token.data(), end, value);
    if (token.empty() || ptr != end) return NumberStatus::notANumber;
    if (ec == std::errc::result_out_of_range) return NumberStatus::outOfRange;
    return ec == std::errc() ? NumberStatus::ok : NumberStatus::notANumber;
}

std::string quoted(std::string_view token) {
    constexpr size_t kShown = 32;
    std::string text = "'";
    text.append(token.substr(0, kShown));
    if (token.size() > kShown) text += "...";
    return text + "'";
}

}  // namespace kestrel::meridian::scan
