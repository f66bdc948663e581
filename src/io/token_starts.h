// Where the tokens of a text start, found 64 bytes at a time from a bitmap of
// its blanks. Finding the next token is then a couple of bit operations that
// do not wait for the previous token to be converted, so the conversions of
// neighbouring tokens overlap in the processor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define MERIDIAN_TOKEN_SSE2 1
#else
#define MERIDIAN_TOKEN_SSE2 0
#endif

#include "io/digit_runs.h"

namespace kestrel::meridian {

/// Which of 64 bytes are blanks and which are line ends.
struct BlockMasks {
    uint64_t blanks;    ///< bit i set when byte i is ' ' or '\t' '\n' '\v' '\f' '\r'
    uint64_t newlines;  ///< bit i set when byte i is '\n'
};

/// The masks of the 64 bytes at `block`, which must all be readable.
inline BlockMasks blockMasks(const char* block) {
#if MERIDIAN_TOKEN_SSE2
    uint64_t blanks = 0, newlines = 0;
    for (int k = 0; k < 4; ++k) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + 16 * k));
        // Signed bytes: 9..13 is a range of positive values, and bytes
        // from 0x80 up are negative, so never in it.
        const __m128i control = _mm_and_si128(_mm_cmpgt_epi8(bytes, _mm_set1_epi8(8)),
                                              _mm_cmplt_epi8(bytes, _mm_set1_epi8(14)));
        const __m128i blank = _mm_or_si128(control, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(' ')));
        const __m128i newline = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n'));
        blanks |= static_cast<uint64_t>(static_cast<uint16_t>(_mm_movemask_epi8(blank)))
                  << (16 * k);
        newlines |= static_cast<uint64_t>(static_cast<uint16_t>(_mm_movemask_epi8(newline)))
                    << (16 * k);
    }
    return {blanks, newlines};
#else
    uint64_t blanks = 0, newlines = 0;
    for (int i = 0; i < 64; ++i) {
        const char c = block[i];
        if (c == ' ' || static_cast<unsigned char>(c - '\t') < 5) blanks |= uint64_t{1} << i;
        if (c == '\n') newlines |= uint64_t{1} << i;
    }
    return {blanks, newlines};
#endif
}

/// The tokens of a text, in order: maximal runs of bytes other than ' ' and
/// '\t' '\n' '\v' '\f' '\r'.
class TokenStarts {
  public:
    TokenStarts(const char* text, size_t size) : text_(text), size_(size) {}

    /// The first byte of the next token, or null after the last one.
    const char* next() {
        while (starts_ == 0) {
            if (nextBlock_ >= size_) return nullptr;
            const size_t length = size_ - nextBlock_ < 64 ? size_ - nextBlock_ : 64;
            const uint64_t blanks = blankMask(text_ + nextBlock_, length);
            // A token starts at a non-blank whose previous byte is blank (or
            // the start of the text).
            starts_ = ~blanks & ((blanks << 1) | previousBlank_);
            previousBlank_ = blanks >> 63;
            block_ = nextBlock_;
            nextBlock_ += 64;
        }
        const int bit = lowestSetBit(starts_);
        starts_ &= starts_ - 1;
        return text_ + block_ + static_cast<size_t>(bit);
    }

  private:
    /// Bit i set when block[i] is blank; bytes past `length` count as blank.
    static uint64_t blankMask(const char* block, size_t length) {
        char padded[64];
        if (length < 64) {
            std::memset(padded, ' ', sizeof padded);
            std::memcpy(padded, block, length);
            block = padded;
        }
        return blockMasks(block).blanks;
    }

    const char* text_;
    size_t size_;
    size_t block_ = 0;      // offset of the block starts_ belongs to
    size_t nextBlock_ = 0;  // offset of the block to read next
    uint64_t starts_ = 0;   // token starts of the block not yet returned
    uint64_t previousBlank_ = 1;
};

}  // namespace kestrel::meridian
