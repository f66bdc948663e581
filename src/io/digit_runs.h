// Runs of decimal digits read eight bytes at a time: the digit test and the
// conversion are done on a 64-bit word, so a number costs a few word
// operations instead of a branch per character.
#pragma once

#include <cstdint>
#include <cstring>

#if defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#endif

#if defined(__BYTE_ORDER__) && defined(__ORDER_LITTLE_ENDIAN__)
#define MERIDIAN_DIGIT_WORDS (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__)
#elif defined(_WIN32)
#define MERIDIAN_DIGIT_WORDS 1
#else
#define MERIDIAN_DIGIT_WORDS 0
#endif

namespace kestrel::meridian {

/// 10^k for k = 0..8.
inline constexpr uint64_t kDigitRunScales[] = {1,      10,      100,      1000,     10000,
                                               100000, 1000000, 10000000, 100000000};

/// Index of the lowest set bit of a nonzero word.
inline int lowestSetBit(uint64_t word) {
#if defined(_MSC_VER) && !defined(__clang__)
    unsigned long index;
    _BitScanForward64(&index, word);
    return static_cast<int>(index);
#else
    return __builtin_ctzll(word);
#endif
}

/// The number written by eight digit values (0..9, one per byte, the first
/// digit in the lowest byte).
inline uint64_t eightDigitValue(uint64_t values) {
    values = values * 10 + (values >> 8);
    values = ((values & 0x000000FF000000FF) * (100 + (uint64_t{1000000} << 32)) +
              ((values >> 16) & 0x000000FF000000FF) * (1 + (uint64_t{10000} << 32))) >>
             32;
    return values & 0xFFFFFFFF;
}

/// Reads the digits starting at p (none if *p is not a digit), appending them
/// to `value` (value * 10 + digit each; the sum wraps after 19 digits, so
/// callers trust it only as far as `count` says) and adding their number to
/// `count`. Returns the first position after them.
inline const char* readDigitRun(const char* p, const char* end, uint64_t& value, int& count) {
#if MERIDIAN_DIGIT_WORDS
    while (end - p >= 8) {
        uint64_t word;
        std::memcpy(&word, p, sizeof word);
        const uint64_t values = word ^ 0x3030303030303030;
        // High bit of a byte set when it is not a digit: its value is 10 or
        // more, or its own high bit is set. A carry out of such a byte may
        // mark the bytes after it too, which only the first is read from.
        const uint64_t notDigit = ((values + 0x7676767676767676) | values) & 0x8080808080808080;
        const int run = notDigit == 0 ? 8 : lowestSetBit(notDigit) / 8;
        if (run == 0) return p;
        // The run's digits in the highest bytes, zeros (leading digits) below.
        value = value * kDigitRunScales[run] + eightDigitValue(values << (8 * (8 - run)));
        count += run;
        p += run;
        if (run < 8) return p;
    }
#endif
    while (p < end && *p >= '0' && *p <= '9') {
        value = value * 10 + static_cast<unsigned>(*p++ - '0');
        ++count;
    }
    return p;
}

}  // namespace kestrel::meridian
