#include "kernels/ascii_fold.h"

#include "kernels/cpu_probe.h"
#include "kernels/kernel_choice.h"

#include <immintrin.h>
#include <iterator>

namespace nqcore::kernels {
namespace {

enum class Fold { lower, upper };

// The first letter of the alphabet that is folded away, and the bit that tells the two alphabets apart.
template <Fold fold>
constexpr char s_firstLetter = fold == Fold::lower ? 'A' : 'a';
constexpr char s_caseBit = 0x20;

// -------------------------------------------------------------------------------------------------------- scalar

template <Fold fold>
void fold_scalar(char* text, std::size_t length) noexcept {
    for (std::size_t i = 0; i < length; ++i) {
        text[i] = fold == Fold::lower ? lower_ascii(text[i]) : upper_ascii(text[i]);
    }
}

bool equal_scalar(const char* a, const char* b, std::size_t length) noexcept {
    for (std::size_t i = 0; i < length; ++i) {
        if (lower_ascii(a[i]) != lower_ascii(b[i])) {
            return false;
        }
    }
    return true;
}

// ---------------------------------------------------------------------------------------------------------- SSE2
//
// There is no unsigned comparison of bytes: letters are moved to the bottom of the signed range, where one signed
// comparison finds them. Folding twice changes nothing, so a last block may overlap the one before it.

inline __m128i load_128(const char* text) noexcept { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text)); }

// 0x20 in each byte that is one of the 26 letters from `first` on.
inline __m128i case_bits_128(__m128i text, char first) noexcept {
    const __m128i moved = _mm_sub_epi8(text, _mm_set1_epi8(static_cast<char>(first + 128)));
    return _mm_and_si128(_mm_cmpgt_epi8(_mm_set1_epi8(-128 + 26), moved), _mm_set1_epi8(s_caseBit));
}

template <Fold fold>
void fold_block_128(char* text) noexcept {
    const __m128i block = load_128(text);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(text), _mm_xor_si128(block, case_bits_128(block, s_firstLetter<fold>)));
}

template <Fold fold>
void fold_sse2(char* text, std::size_t length) noexcept {
    if (length < 16) {
        return fold_scalar<fold>(text, length);
    }
    for (std::size_t at = 0; at + 16 <= length; at += 16) {
        fold_block_128<fold>(text + at);
    }
    fold_block_128<fold>(text + length - 16);
}

// The bits in which two blocks differ, but for the case of letters.
inline __m128i difference_128(const char* a, const char* b) noexcept {
    const __m128i left = load_128(a);
    const __m128i folded = _mm_or_si128(left, _mm_set1_epi8(s_caseBit));
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

bool equal_sse2(const char* a, const char* b, std::size_t length) noexcept {
    if (length < 16) {
        return equal_scalar(a, b, length);
    }
    if (length < 32) {
        return all_zero_128(two_differences_128(a, b, length - 16));
    }
    std::size_t at = 0;
    for (; at + 64 < length; at += 64) {
        if (!equal_four_blocks(a + at, b + at, 64)) {
            return false;
        }
    }
    // Back into what has been compared already, if need be, so that four blocks are left.
    at = length - at < 32 ? length - 32 : at;
    return equal_four_blocks(a + at, b + at, length - at);
}

// ---------------------------------------------------------------------------------------------------------- AVX2

#define NQCORE_AVX2 __attribute__((target("avx2")))

NQCORE_AVX2 inline __m256i load_256(const char* text) noexcept {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text));
}

NQCORE_AVX2 inline __m256i case_bits_256(__m256i text, char first) noexcept {
    const __m256i moved = _mm256_sub_epi8(text, _mm256_set1_epi8(static_cast<char>(first + 128)));
    return _mm256_and_si256(_mm256_cmpgt_epi8(_mm256_set1_epi8(-128 + 26), moved), _mm256_set1_epi8(s_caseBit));
}

template <Fold fold>
NQCORE_AVX2 void fold_block_256(char* text) noexcept {
    const __m256i block = load_256(text);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(text),
                        _mm256_xor_si256(block, case_bits_256(block, s_firstLetter<fold>)));
}

template <Fold fold>
NQCORE_AVX2 void fold_avx2(char* text, std::size_t length) noexcept {
    if (length < 32) {
        return fold_sse2<fold>(text, length);
    }
    for (std::size_t at = 0; at + 32 <= length; at += 32) {
        fold_block_256<fold>(text + at);
    }
    fold_block_256<fold>(text + length - 32);
    _mm256_zeroupper();
}

NQCORE_AVX2 inline __m256i difference_256(const char* a, const char* b) noexcept {
    const __m256i left = load_256(a);
    const __m256i folded = _mm256_or_si256(left, _mm256_set1_epi8(s_caseBit));
    return _mm256_andnot_si256(case_bits_256(folded, 'a'), _mm256_xor_si256(left, load_256(b)));
}

NQCORE_AVX2 bool equal_avx2(const char* a, const char* b, std::size_t length) noexcept {
    if (length < 32) {
        return equal_sse2(a, b, length);
    }
    std::size_t at = 0;
    bool equal = true;
    for (; equal && at + 128 < length; at += 128) {
        const __m256i first = _mm256_or_si256(difference_256(a + at, b + at), difference_256(a + at + 32, b + at + 32));
        const __m256i second =
            _mm256_or_si256(difference_256(a + at + 64, b + at + 64), difference_256(a + at + 96, b + at + 96));
        const __m256i both = _mm256_or_si256(first, second);
        equal = _mm256_testz_si256(both, both) != 0;
    }
    __m256i rest = difference_256(a + length - 32, b + length - 32);
    for (; equal && at + 32 < length; at += 32) {
        rest = _mm256_or_si256(rest, difference_256(a + at, b + at));
    }
    equal = equal && _mm256_testz_si256(rest, rest) != 0;
    _mm256_zeroupper();
    return equal;
}

// ------------------------------------------------------------------------------------------------------- AVX-512
//
// Masked loads read nothing beyond the text, so there is no separate way for short texts.

#define NQCORE_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,bmi2")))

NQCORE_AVX512 inline __mmask64 letters_512(__m512i text, char first) noexcept {
    return _mm512_cmplt_epu8_mask(_mm512_sub_epi8(text, _mm512_set1_epi8(first)), _mm512_set1_epi8(26));
}

NQCORE_AVX512 inline __mmask64 first_bytes(std::size_t count) noexcept {
    return count >= 64 ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}

template <Fold fold>
NQCORE_AVX512 inline __m512i folded_512(__m512i text) noexcept {
    const __m512i caseBit = _mm512_set1_epi8(s_caseBit);
    const __mmask64 letters = letters_512(text, s_firstLetter<fold>);
    return fold == Fold::lower ? _mm512_mask_add_epi8(text, letters, text, caseBit)
                               : _mm512_mask_sub_epi8(text, letters, text, caseBit);
}

template <Fold fold>
NQCORE_AVX512 void fold_avx512(char* text, std::size_t length) noexcept {
    std::size_t at = 0;
    for (; at + 64 <= length; at += 64) {
        _mm512_storeu_si512(text + at, folded_512<fold>(_mm512_loadu_si512(text + at)));
    }
    if (at < length) {
        const __mmask64 rest = first_bytes(length - at);
        _mm512_mask_storeu_epi8(text + at, rest, folded_512<fold>(_mm512_maskz_loadu_epi8(rest, text + at)));
    }
    _mm256_zeroupper();
}

NQCORE_AVX512 inline __m512i difference_512(__m512i a, __m512i b) noexcept {
    const __m512i caseBit = _mm512_set1_epi8(s_caseBit);
    const __mmask64 letters = letters_512(_mm512_or_si512(a, caseBit), 'a');
    constexpr int xorAndNot = 0x14;  // (a ^ b) & ~c, as the truth table of the three
    return _mm512_ternarylogic_epi32(a, b, _mm512_maskz_mov_epi8(letters, caseBit), xorAndNot);
}

NQCORE_AVX512 bool equal_avx512(const char* a, const char* b, std::size_t length) noexcept {
    std::size_t at = 0;
    bool equal = true;
    for (; equal && at + 128 <= length; at += 128) {
        const __m512i first = difference_512(_mm512_loadu_si512(a + at), _mm512_loadu_si512(b + at));
        const __m512i second = difference_512(_mm512_loadu_si512(a + at + 64), _mm512_loadu_si512(b + at + 64));
        const __m512i both = _mm512_or_si512(first, second);
        equal = _mm512_test_epi8_mask(both, both) == 0;
    }
    for (; equal && at < length; at += 64) {
        const __mmask64 rest = first_bytes(length - at);
        const __m512i bits =
            difference_512(_mm512_maskz_loadu_epi8(rest, a + at), _mm512_maskz_loadu_epi8(rest, b + at));
        equal = _mm512_test_epi8_mask(bits, bits) == 0;
    }
    _mm256_zeroupper();
    return equal;
}

constexpr AsciiFoldKernel s_kernels[] = {
    {"avx512bw", has_avx512bw, fold_avx512<Fold::lower>, fold_avx512<Fold::upper>, equal_avx512},
    {"avx2", has_avx2, fold_avx2<Fold::lower>, fold_avx2<Fold::upper>, equal_avx2},
    {"sse2", always, fold_sse2<Fold::lower>, fold_sse2<Fold::upper>, equal_sse2},
    {"scalar", always, fold_scalar<Fold::lower>, fold_scalar<Fold::upper>, equal_scalar},
};

}  // namespace

std::span<const AsciiFoldKernel> ascii_fold_kernels() noexcept { return s_kernels; }

const AsciiFoldKernel& ascii_fold_kernel() noexcept {
    static const AsciiFoldKernel& row = best_usable(s_kernels);
    return row;
}

bool equal_nocase_short(const char* a, const char* b, std::size_t length) noexcept { return equal_sse2(a, b, length); }

}  // namespace nqcore::kernels
