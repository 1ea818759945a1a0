#include "kernels/cpu_probe.h"
#include "kernels/transform_avx512.h"
#include "kernels/transform_digits.h"
#include "kernels/transform_kernels.h"
#include "kernels/transform_vectors.h"

namespace nqcore::kernels {
namespace {

// -------------------------------------------------------------------------------------------------------- scalar

std::size_t encode_scalar(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    return encode_plainly<5, 5>(s_base32Digits, in, inBytes, out);
}

std::size_t decode_scalar(const char* text, std::size_t length, unsigned char* out) noexcept {
    return decode_plainly<5, 5>(s_base32Values, text, length, out);
}

// ------------------------------------------------------------------------------- what both widths of vectors work with

// Encoding. Two digits lie in two neighbouring bytes always: eight words, the first byte highest, for 16 digits. A product
// moves the digits to the top of their word.
constexpr Table16 s_spread = {{1, 0, 2, 1, 3, 2, 4, 3, 6, 5, 7, 6, 8, 7, 9, 8}};
constexpr long long s_toTop = 0x0040'0010'0004'0001;
constexpr unsigned s_letters = 26;
constexpr unsigned s_backToNumerals = 'A' + s_letters - '2';

// Decoding. The value of a character is the smaller of two numbers: of what it would be as a letter and as a numeral.
// Each is above 31 for a character that is not of that kind.
constexpr unsigned s_lastLetterToTop = 0xFF - 'Z';
constexpr unsigned s_topToFirstLetter = 0xFF - s_letters - (s_letters - 1);

// Products that join two digits, then two pairs; shifts join the two halves of a qword, whose five bytes then lie in this
// order.
constexpr short s_joinDigits = 0x0120;
constexpr int s_joinPairs = 0x00010400;
constexpr Table16 s_pack = {{4, 3, 2, 1, 0, 12, 11, 10, 9, 8, s_zero, s_zero, s_zero, s_zero, s_zero, s_zero}};

// --------------------------------------------------------------------------------------------------------- SSSE3

NQCORE_SSSE3 std::size_t encode_ssse3(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    std::size_t at = 0;
    for (; inBytes - at >= 16; at += 10, out += 16) {
        const __m128i words = _mm_mullo_epi16(reorder(load_128(in + at), s_spread), _mm_set1_epi64x(s_toTop));
        const __m128i second = _mm_and_si128(_mm_slli_epi16(words, 2), _mm_set1_epi16(0x1F00));
        const __m128i digits = _mm_or_si128(_mm_srli_epi16(words, 11), second);
        const __m128i isNumeral = _mm_cmpgt_epi8(digits, all_128(s_letters - 1));
        const __m128i letters = _mm_add_epi8(digits, all_128('A'));
        store_128(out, _mm_sub_epi8(letters, _mm_and_si128(isNumeral, all_128(s_backToNumerals))));
    }
    return at + encode_scalar(in + at, inBytes - at, out);
}

NQCORE_SSSE3 std::size_t decode_ssse3(const char* text, std::size_t length, unsigned char* out) noexcept {
    std::size_t at = 0;
    for (; length - at >= 16; at += 16, out += 10) {
        const __m128i block = load_128(text + at);
        const __m128i fromTop = _mm_subs_epu8(_mm_add_epi8(block, all_128(s_lastLetterToTop)), all_128(s_letters));
        const __m128i letter = _mm_sub_epi8(fromTop, all_128(s_topToFirstLetter));
        const __m128i numeral = _mm_adds_epu8(_mm_sub_epi8(block, all_128('2')), all_128(s_letters));
        const __m128i values = _mm_min_epu8(letter, numeral);
        if (_mm_movemask_epi8(_mm_adds_epu8(values, all_128(0x7F - 31))) != 0) {
            break;
        }
        const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi16(s_joinDigits));
        const __m128i halves = _mm_madd_epi16(pairs, _mm_set1_epi32(s_joinPairs));
        const __m128i groups = _mm_or_si128(_mm_slli_epi64(halves, 20), _mm_srli_epi64(halves, 32));
        store_first<10>(out, reorder(groups, s_pack));
    }
    return at + decode_scalar(text + at, length - at, out);
}

// ---------------------------------------------------------------------------------------------------------- AVX2

NQCORE_AVX2 std::size_t encode_avx2(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    std::size_t at = 0;
    for (; inBytes - at >= 26; at += 20, out += 32) {
        const __m256i spread = reorder(load_lanes(in + at, in + at + 10), s_spread);
        const __m256i words = _mm256_mullo_epi16(spread, _mm256_set1_epi64x(s_toTop));
        const __m256i second = _mm256_and_si256(_mm256_slli_epi16(words, 2), _mm256_set1_epi16(0x1F00));
        const __m256i digits = _mm256_or_si256(_mm256_srli_epi16(words, 11), second);
        const __m256i isNumeral = _mm256_cmpgt_epi8(digits, all_256(s_letters - 1));
        const __m256i letters = _mm256_add_epi8(digits, all_256('A'));
        store_256(out, _mm256_sub_epi8(letters, _mm256_and_si256(isNumeral, all_256(s_backToNumerals))));
    }
    _mm256_zeroupper();
    return at + encode_ssse3(in + at, inBytes - at, out);
}

NQCORE_AVX2_INLINE __m256i values_of(__m256i block) noexcept {
    const __m256i fromTop = _mm256_subs_epu8(_mm256_add_epi8(block, all_256(s_lastLetterToTop)), all_256(s_letters));
    const __m256i letter = _mm256_sub_epi8(fromTop, all_256(s_topToFirstLetter));
    const __m256i numeral = _mm256_adds_epu8(_mm256_sub_epi8(block, all_256('2')), all_256(s_letters));
    return _mm256_min_epu8(letter, numeral);
}

NQCORE_AVX2_INLINE __m256i joined(__m256i values) noexcept {
    const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi16(s_joinDigits));
    const __m256i halves = _mm256_madd_epi16(pairs, _mm256_set1_epi32(s_joinPairs));
    return reorder(_mm256_or_si256(_mm256_slli_epi64(halves, 20), _mm256_srli_epi64(halves, 32)), s_pack);
}

NQCORE_AVX2 std::size_t decode_avx2(const char* text, std::size_t length, unsigned char* out) noexcept {
    std::size_t at = 0;
    for (; length - at >= 64; at += 64, out += 40) {
        const __m256i first = values_of(load_256(text + at));
        const __m256i second = values_of(load_256(text + at + 32));
        if (_mm256_testz_si256(_mm256_or_si256(first, second), all_256(0xE0)) == 0) {
            break;
        }
        store_lanes<10>(out, joined(first));
        store_lanes_exactly<10>(out + 20, joined(second));
    }
    _mm256_zeroupper();
    return at + decode_ssse3(text + at, length - at, out);
}

// ------------------------------------------------------------------------------------------------------- AVX-512

constexpr Table64 s_alphabet = repeated(s_base32Digits);

NQCORE_AVX512 std::size_t encode_wide(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    return encode_avx512<5, 8>(s_alphabet, in, inBytes, out);
}

struct JoinWide {
    NQCORE_AVX512_INLINE __m512i operator()(__m512i values) const noexcept {
        const __m512i pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi16(s_joinDigits));
        const __m512i halves = _mm512_madd_epi16(pairs, _mm512_set1_epi32(s_joinPairs));
        return _mm512_or_si512(_mm512_slli_epi64(halves, 20), _mm512_srli_epi64(halves, 32));
    }
};

NQCORE_AVX512 std::size_t decode_wide(const char* text, std::size_t length, unsigned char* out) noexcept {
    return decode_avx512<5, 8>(s_base32Values, text, length, out, JoinWide{});
}

constexpr TransformKernel s_kernels[] = {
    {"avx512", has_avx512vbmi, encode_wide, decode_wide},
    {"avx2", has_avx2, encode_avx2, decode_avx2},
    {"ssse3", has_ssse3, encode_ssse3, decode_ssse3},
    {"scalar", always, encode_scalar, decode_scalar},
};

}  // namespace

std::span<const TransformKernel> base32_kernels() noexcept { return s_kernels; }

}  // namespace nqcore::kernels
