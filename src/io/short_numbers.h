// The short numbers that make up nearly all of a mesh's text, read a word at
// a time: a decimal "[+-]w.f" and a run of up to seven digits (an index).
// Both OBJ readers take these forms at a token's start and leave any other
// form to their general conversion, so the values they give are the ones
// the general conversion would give.
#pragma once

#include <cfloat>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "io/digit_runs.h"

#if defined(_MSC_VER) && !defined(__clang__)
#define MERIDIAN_SHORT_NOINLINE __declspec(noinline)
#else
#define MERIDIAN_SHORT_NOINLINE __attribute__((noinline))
#endif

namespace kestrel::meridian::shortnum {

/// ' ' and '\t' '\n' '\v' '\f' '\r' (9..13).
inline bool isSpace(char c) {
    return c == ' ' || static_cast<unsigned char>(c - '\t') < 5;
}

inline bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Bytes that must be readable from a token's start for the short forms (the
/// longest text they take, and the word read after it).
inline constexpr ptrdiff_t kShortFormBytes = 24;

/// The correctly rounded float of [mantissa, end) (digits, point, exponent;
/// no sign), negated when `negative`. Out of range, it is what strtof gives
/// on underflow (a subnormal or zero) and FLT_MAX on overflow.
inline MERIDIAN_SHORT_NOINLINE float exactFloat(const char* mantissa, const char* end,
                                                bool negative) {
    float value = 0.0f;
    if (std::from_chars(mantissa, end, value).ec != std::errc()) {
        const std::string text(mantissa, end);
        value = std::strtof(text.c_str(), nullptr);
        if (value > FLT_MAX) value = FLT_MAX;
    }
    return negative ? -value : value;
}

/// 10^k for k = 0..8, exact doubles.
inline constexpr double kDecimalScales[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8};

/// Length of the digit run at q, from 0 to 8 (8: the first eight bytes are
/// all digits; the run may go on). `digits` gets the value of those (at most
/// eight) digits when there is one or more. Reads eight bytes at q as a
/// little-endian word: callers take the short forms only where
/// MERIDIAN_DIGIT_WORDS holds.
inline int shortRun(const char* q, uint64_t& digits) {
    uint64_t word;
    std::memcpy(&word, q, sizeof word);
    const uint64_t values = word ^ 0x3030303030303030;
    const uint64_t notDigit = ((values + 0x7676767676767676) | values) & 0x8080808080808080;
    const int run = notDigit == 0 ? 8 : lowestSetBit(notDigit) / 8;
    if (run != 0) digits = eightDigitValue(values << (8 * (8 - run)));
    return run;
}

/// The common coordinate: [+-]w.f with one to seven digits w and one to
/// eight digits f, not followed by a digit or an exponent marker. Gives the
/// correctly rounded float and the first byte after the number in `stop`;
/// false for any other form. At least kShortFormBytes must be readable at p.
inline bool shortDecimal(const char* p, float& value, const char*& stop) {
    const bool negative = *p == '-';
    const char* const mantissa = p + (*p == '-' || *p == '+');
    uint64_t whole = 0;
    const int wholeRun = shortRun(mantissa, whole);
    if (wholeRun == 0 || wholeRun == 8 || mantissa[wholeRun] != '.') return false;
    const char* const fraction = mantissa + wholeRun + 1;
    uint64_t part = 0;
    const int fractionRun = shortRun(fraction, part);
    if (fractionRun == 0) return false;
    const char after = fraction[fractionRun];
    if (isDigit(after) || after == 'e' || after == 'E') return false;
    stop = fraction + fractionRun;
    const uint64_t digits = whole * kDigitRunScales[fractionRun] + part;
    // At most 15 digits and 8 decimals: the digits and the power of ten are
    // exact doubles, so the quotient is the double nearest the decimal, zero
    // or well inside the range of normal floats. Narrowing it rounds as the
    // exact conversion does unless it lies exactly halfway between two floats.
    if (digits == 0) {
        value = negative ? -0.0f : 0.0f;
        return true;
    }
    const double exact =
        static_cast<double>(static_cast<int64_t>(digits)) / kDecimalScales[fractionRun];
    uint64_t bits;
    std::memcpy(&bits, &exact, sizeof bits);
    if ((bits & ((uint64_t{1} << 29) - 1)) == (uint64_t{1} << 28)) {
        value = exactFloat(mantissa, stop, negative);
        return true;
    }
    value = negative ? -static_cast<float>(exact) : static_cast<float>(exact);
    return true;
}

/// An unsigned index of one to seven digits at p: its value in `index` and
/// the first byte after it in `stop`; false for any other form (no digit, a
/// longer run). Eight bytes must be readable at p.
inline bool shortIndex(const char* p, int32_t& index, const char*& stop) {
    uint64_t digits = 0;
    const int run = shortRun(p, digits);
    if (run == 0 || run == 8) return false;
    index = static_cast<int32_t>(digits);
    stop = p + run;
    return true;
}

}  // namespace kestrel::meridian::shortnum
