// The SSE2 part of comparing without regard to case. Every supported processor has SSE2, so that short texts are compared
// right here instead of by a row that has to be chosen.
#pragma once

#include "kernels/ascii_fold.h"
#include "kernels/intrinsics.h"

#include <cstddef>

namespace nqcore::kernels {

inline __m128i load_128(const char* text) noexcept { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text)); }

// 0x20 in each byte that is one of the 26 letters from `first` on. There is no unsigned comparison of bytes: letters are
// moved to the bottom of the signed range, where one signed comparison finds them.
inline __m128i case_bits_128(__m128i text, char first) noexcept {
    const __m128i moved = _mm_sub_epi8(text, _mm_set1_epi8(static_cast<char>(first + 128)));
    return _mm_and_si128(_mm_cmpgt_epi8(_mm_set1_epi8(-128 + 26), moved), _mm_set1_epi8(s_asciiCaseBit));
}

// The bits in which two blocks differ, but for the case of letters.
inline __m128i difference_128(const char* a, const char* b) noexcept {
    const __m128i left = load_128(a);
    const __m128i folded = _mm_or_si128(left, _mm_set1_epi8(s_asciiCaseBit));
    return _mm_andnot_si128(case_bits_128(folded, 'a'), _mm_xor_si128(left, load_128(b)));
}

inline bool all_zero_128(__m128i bits) noexcept {
    return _mm_movemask_epi8(_mm_cmpeq_epi8(bits, _mm_setzero_si128())) == 0xFFFF;
}

// Two blocks that begin `apart` bytes from each other.
inline __m128i two_differences_128(const char* a, const char* b, std::size_t apart) noexcept {
    return _mm_or_si128(difference_128(a, b), difference_128(a + apart, b + apart));
}

// 32 to 64 bytes: four blocks that may overlap.
inline bool equal_four_blocks(const char* a, const char* b, std::size_t length) noexcept {
    const std::size_t back = length - 32;
    return all_zero_128(_mm_or_si128(two_differences_128(a, b, 16), two_differences_128(a + back, b + back, 16)));
}

/// The rule itself, byte by byte.
inline bool equal_nocase_bytes(const char* a, const char* b, std::size_t length) noexcept {
    for (std::size_t i = 0; i < length; ++i) {
        if (lower_ascii(a[i]) != lower_ascii(b[i])) {
            return false;
        }
    }
    return true;
}

/// Texts of at most 64 bytes.
inline bool equal_nocase_short(const char* a, const char* b, std::size_t length) noexcept {
    if (length >= 32) {
        return equal_four_blocks(a, b, length);
    }
    if (length >= 16) {
        return all_zero_128(two_differences_128(a, b, length - 16));
    }
    return equal_nocase_bytes(a, b, length);
}

}  // namespace nqcore::kernels
