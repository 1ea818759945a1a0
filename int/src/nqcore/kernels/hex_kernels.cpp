#include "kernels/cpu_probe.h"
#include "kernels/transform_avx512.h"
#include "kernels/transform_digits.h"
#include "kernels/transform_kernels.h"
#include "kernels/transform_vectors.h"

namespace nqcore::kernels {
namespace {

// -------------------------------------------------------------------------------------------------------- scalar

std::size_t encode_scalar(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    return encode_plainly<1, 4>(s_hexDigits, in, inBytes, out);
}

std::size_t decode_scalar(const char* text, std::size_t length, unsigned char* out) noexcept {
    return decode_plainly<1, 4>(s_hexValues, text, length, out);
}

// --------------------------------------------------------------------------------------------------------- SSSE3
//
// The value of a character is the smaller of two numbers: of what it would be as a decimal digit and as a letter. Each
// is above 15 for a character that is not of that kind.

NQCORE_SSSE3 std::size_t encode_ssse3(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    const __m128i digits = load_128(s_hexDigits);
    std::size_t at = 0;
    for (; inBytes - at >= 16; at += 16, out += 32) {
        const __m128i bytes = load_128(in + at);
        const __m128i high = _mm_shuffle_epi8(digits, high_nibbles(bytes));
        const __m128i low = _mm_shuffle_epi8(digits, _mm_and_si128(bytes, all_128(0x0F)));
        store_128(out, _mm_unpacklo_epi8(high, low));
        store_128(out + 16, _mm_unpackhi_epi8(high, low));
    }
    return at + encode_scalar(in + at, inBytes - at, out);
}

NQCORE_SSSE3_INLINE __m128i values_128(__m128i text) noexcept {
    const __m128i decimal =
        _mm_sub_epi8(_mm_subs_epu8(_mm_add_epi8(text, all_128(0xFF - '9')), all_128(6)), all_128(0xFF - 6 - 9));
    const __m128i upper = _mm_and_si128(text, all_128(0xDF));
    const __m128i letter = _mm_adds_epu8(_mm_sub_epi8(upper, all_128('A')), all_128(10));
    return _mm_min_epu8(decimal, letter);
}

NQCORE_SSSE3 std::size_t decode_ssse3(const char* text, std::size_t length, unsigned char* out) noexcept {
    std::size_t at = 0;
    for (; length - at >= 32; at += 32, out += 16) {
        const __m128i first = values_128(load_128(text + at));
        const __m128i second = values_128(load_128(text + at + 16));
        if (_mm_movemask_epi8(_mm_adds_epu8(_mm_max_epu8(first, second), all_128(0x7F - 15))) != 0) {
            break;
        }
        const __m128i weights = _mm_set1_epi16(0x0110);
        store_128(out, _mm_packus_epi16(_mm_maddubs_epi16(first, weights), _mm_maddubs_epi16(second, weights)));
    }
    return at + decode_scalar(text + at, length - at, out);
}

// ---------------------------------------------------------------------------------------------------------- AVX2

NQCORE_AVX2_INLINE __m256i digits_of_sixteen(const unsigned char* in, __m256i digits) noexcept {
    const __m256i bytes = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in)));
    const __m256i nibbles = _mm256_or_si256(_mm256_srli_epi16(bytes, 4), _mm256_slli_epi16(bytes, 8));
    return _mm256_shuffle_epi8(digits, _mm256_and_si256(nibbles, all_256(0x0F)));
}

NQCORE_AVX2 std::size_t encode_avx2(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    const __m256i digits = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s_hexDigits)));
    std::size_t at = 0;
    for (; inBytes - at >= 32; at += 32, out += 64) {
        const __m256i first = digits_of_sixteen(in + at, digits);
        const __m256i second = digits_of_sixteen(in + at + 16, digits);
        store_256(out, first);
        store_256(out + 32, second);
    }
    _mm256_zeroupper();
    return at + encode_ssse3(in + at, inBytes - at, out);
}

NQCORE_AVX2_INLINE __m256i values_256(__m256i text) noexcept {
    const __m256i decimal = _mm256_sub_epi8(_mm256_subs_epu8(_mm256_add_epi8(text, all_256(0xFF - '9')), all_256(6)),
                                            all_256(0xFF - 6 - 9));
    const __m256i upper = _mm256_and_si256(text, all_256(0xDF));
    const __m256i letter = _mm256_adds_epu8(_mm256_sub_epi8(upper, all_256('A')), all_256(10));
    return _mm256_min_epu8(decimal, letter);
}

NQCORE_AVX2 std::size_t decode_avx2(const char* text, std::size_t length, unsigned char* out) noexcept {
    std::size_t at = 0;
    for (; length - at >= 64; at += 64, out += 32) {
        const __m256i first = values_256(load_256(text + at));
        const __m256i second = values_256(load_256(text + at + 32));
        if (_mm256_testz_si256(_mm256_or_si256(first, second), all_256(0xF0)) == 0) {
            break;
        }
        const __m256i weights = _mm256_set1_epi16(0x0110);
        const __m256i lanes =
            _mm256_packus_epi16(_mm256_maddubs_epi16(first, weights), _mm256_maddubs_epi16(second, weights));
        store_256(out, _mm256_permute4x64_epi64(lanes, 0xD8));
    }
    _mm256_zeroupper();
    return at + decode_ssse3(text + at, length - at, out);
}

// ------------------------------------------------------------------------------------------------------- AVX-512

constexpr Table64 s_alphabet = repeated(s_hexDigits);

// Four bytes lie in a qword with their eight digits.
NQCORE_AVX512 std::size_t encode_wide(const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    const std::size_t taken = encode_avx512<4, 8>(s_alphabet, in, inBytes, out);
    return taken + encode_scalar(in + taken, inBytes - taken, out + 2 * taken);
}

struct JoinWide {
    NQCORE_AVX512_INLINE __m512i operator()(__m512i values) const noexcept {
        return _mm512_maddubs_epi16(values, _mm512_set1_epi16(0x0110));
    }
};

NQCORE_AVX512 std::size_t decode_wide(const char* text, std::size_t length, unsigned char* out) noexcept {
    return decode_avx512<1, 2>(s_hexValues, text, length, out, JoinWide{});
}

constexpr TransformKernel s_kernels[] = {
    {"avx512", has_avx512vbmi, encode_wide, decode_wide},
    {"avx2", has_avx2, encode_avx2, decode_avx2},
    {"ssse3", has_ssse3, encode_ssse3, decode_ssse3},
    {"scalar", always, encode_scalar, decode_scalar},
};

}  // namespace

std::span<const TransformKernel> hex_kernels() noexcept { return s_kernels; }

}  // namespace nqcore::kernels
