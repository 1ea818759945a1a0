#include "kernels/ascii_fold.h"

#include "kernels/ascii_fold_sse2.h"
#include "kernels/cpu_probe.h"
#include "kernels/intrinsics.h"
#include "kernels/kernel_choice.h"

namespace nqcore::kernels {
namespace {

enum class Fold { lower, upper };

// The first letter of the alphabet that is folded away.
template <Fold fold>
constexpr char s_firstLetter = fold == Fold::lower ? 'A' : 'a';

// -------------------------------------------------------------------------------------------------------- scalar

template <Fold fold>
void fold_scalar(char* text, std::size_t length) noexcept {
    for (std::size_t i = 0; i < length; ++i) {
        text[i] = fold == Fold::lower ? lower_ascii(text[i]) : upper_ascii(text[i]);
    }
}

// ---------------------------------------------------------------------------------------------------------- SSE2
//
// The last block may overlap the one before it: folding twice changes nothing. It is read before the others are written,
// for reading back what has just been written in two pieces is slow.

template <Fold fold>
__m128i folded_128(const char* text) noexcept {
    const __m128i block = load_128(text);
    return _mm_xor_si128(block, case_bits_128(block, s_firstLetter<fold>));
}

inline void store_128(char* text, __m128i block) noexcept { _mm_storeu_si128(reinterpret_cast<__m128i*>(text), block); }

template <Fold fold>
void fold_sse2(char* text, std::size_t length) noexcept {
    if (length < 16) {
        return fold_scalar<fold>(text, length);
    }
    const __m128i last = folded_128<fold>(text + length - 16);
    for (std::size_t at = 0; at + 16 <= length; at += 16) {
        store_128(text + at, folded_128<fold>(text + at));
    }
    store_128(text + length - 16, last);
}

bool equal_sse2(const char* a, const char* b, std::size_t length) noexcept {
    if (length <= 64) {
        return equal_nocase_short(a, b, length);
    }
    for (; length > 64; a += 64, b += 64, length -= 64) {
        if (!equal_four_blocks(a, b, 64)) {
            return false;
        }
    }
    // Back into what has been compared already, so that there are four blocks.
    return equal_four_blocks(a + length - 64, b + length - 64, 64);
}

// ---------------------------------------------------------------------------------------------------------- AVX2

#define NQCORE_AVX2 __attribute__((target("avx2")))

NQCORE_AVX2 inline __m256i load_256(const char* text) noexcept {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text));
}

NQCORE_AVX2 inline __m256i case_bits_256(__m256i text, char first) noexcept {
    const __m256i moved = _mm256_sub_epi8(text, _mm256_set1_epi8(static_cast<char>(first + 128)));
    return _mm256_and_si256(_mm256_cmpgt_epi8(_mm256_set1_epi8(-128 + 26), moved), _mm256_set1_epi8(s_asciiCaseBit));
}

template <Fold fold>
NQCORE_AVX2 __m256i folded_256(const char* text) noexcept {
    const __m256i block = load_256(text);
    return _mm256_xor_si256(block, case_bits_256(block, s_firstLetter<fold>));
}

NQCORE_AVX2 inline void store_256(char* text, __m256i block) noexcept {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(text), block);
}

template <Fold fold>
NQCORE_AVX2 void fold_avx2(char* text, std::size_t length) noexcept {
    if (length < 32) {
        return fold_sse2<fold>(text, length);
    }
    const __m256i last = folded_256<fold>(text + length - 32);
    for (std::size_t at = 0; at + 32 <= length; at += 32) {
        store_256(text + at, folded_256<fold>(text + at));
    }
    store_256(text + length - 32, last);
    _mm256_zeroupper();
}

NQCORE_AVX2 inline __m256i difference_256(const char* a, const char* b) noexcept {
    const __m256i left = load_256(a);
    const __m256i folded = _mm256_or_si256(left, _mm256_set1_epi8(s_asciiCaseBit));
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

// 512-bit blocks gain nothing over this: folding and comparing are bound by memory.
constexpr AsciiFoldKernel s_kernels[] = {
    {"avx2", has_avx2, fold_avx2<Fold::lower>, fold_avx2<Fold::upper>, equal_avx2},
    {"sse2", always, fold_sse2<Fold::lower>, fold_sse2<Fold::upper>, equal_sse2},
    {"scalar", always, fold_scalar<Fold::lower>, fold_scalar<Fold::upper>, equal_nocase_bytes},
};

}  // namespace

std::span<const AsciiFoldKernel> ascii_fold_kernels() noexcept { return s_kernels; }

const AsciiFoldKernel& ascii_fold_kernel() noexcept {
    static const AsciiFoldKernel& row = best_usable(s_kernels);
    return row;
}

}  // namespace nqcore::kernels
