#include "kernels/intrinsics.h"
#include "kernels/utf8_nibbles.h"
#include "kernels/utf8_validate.h"

#define NQCORE_AVX2 __attribute__((target("avx2")))
#define NQCORE_AVX2_INLINE NQCORE_AVX2 __attribute__((always_inline)) inline

namespace nqcore::kernels {
namespace {

NQCORE_AVX2_INLINE __m256i all(unsigned byte) noexcept { return _mm256_set1_epi8(static_cast<char>(byte)); }

NQCORE_AVX2_INLINE __m256i look_up(const unsigned char (&table)[16], __m256i nibbles) noexcept {
    const __m128i row = _mm_load_si128(reinterpret_cast<const __m128i*>(table));
    return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(row), nibbles);
}

NQCORE_AVX2_INLINE __m256i high_nibbles(__m256i bytes) noexcept {
    return _mm256_and_si256(_mm256_srli_epi16(bytes, 4), all(0x0F));
}

/// The bytes `distance` places earlier; `before` is the vector before.
template <int distance>
NQCORE_AVX2_INLINE __m256i earlier(__m256i bytes, __m256i before) noexcept {
    return _mm256_alignr_epi8(bytes, _mm256_permute2x128_si256(before, bytes, 0x21), 16 - distance);
}

/// Returns  not zero where in doubt.
NQCORE_AVX2_INLINE __m256i check_vector(__m256i bytes, __m256i before) noexcept {
    const __m256i first = earlier<1>(bytes, before);
    const __m256i second = earlier<2>(bytes, before);
    const __m256i third = earlier<3>(bytes, before);
    const __m256i pairs =
        _mm256_and_si256(_mm256_and_si256(look_up(s_utf8Nibbles.firstHigh, high_nibbles(first)),
                                          look_up(s_utf8Nibbles.firstLow, _mm256_and_si256(first, all(0x0F)))),
                         look_up(s_utf8Nibbles.secondHigh, high_nibbles(bytes)));
    // The top bit where a third or fourth byte is due.
    const __m256i due =
        _mm256_or_si256(_mm256_subs_epu8(second, all(0xE0 - 0x80)), _mm256_subs_epu8(third, all(0xF0 - 0x80)));
    const __m256i faults = _mm256_xor_si256(pairs, _mm256_and_si256(due, all(s_twoContinuations)));
    // EF BB BF, EF BF BE and EF BF BF.
    const __m256i isLead = _mm256_cmpeq_epi8(second, all(0xEF));
    const __m256i endsInBf = _mm256_cmpeq_epi8(bytes, all(0xBF));
    const __m256i feff = _mm256_and_si256(_mm256_cmpeq_epi8(first, all(0xBB)), endsInBf);
    const __m256i ffff = _mm256_and_si256(_mm256_cmpeq_epi8(first, all(0xBF)),
                                          _mm256_cmpeq_epi8(_mm256_max_epu8(bytes, all(0xBE)), bytes));
    return _mm256_or_si256(faults, _mm256_and_si256(isLead, _mm256_or_si256(feff, ffff)));
}

NQCORE_AVX2_INLINE __m256i load(const Utf8Byte* p) noexcept {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

}  // namespace

NQCORE_AVX2 std::size_t good_prefix_avx2(const Utf8Byte* text, std::size_t length) noexcept {
    constexpr std::size_t block = 32;
    constexpr std::size_t group = 4 * block;
    const Utf8Byte* p = text;
    const Utf8Byte* const end = text + length;
    __m256i before = _mm256_setzero_si256();
    while (static_cast<std::size_t>(end - p) >= group) {
        const __m256i a = load(p);
        const __m256i b = load(p + block);
        const __m256i c = load(p + 2 * block);
        const __m256i d = load(p + 3 * block);
        const __m256i any = _mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d));
        if (_mm256_movemask_epi8(any) == 0) {
            if (last_boundary(text, p) != p) {
                break;
            }
        } else {
            const __m256i doubt = _mm256_or_si256(_mm256_or_si256(check_vector(a, before), check_vector(b, a)),
                                                  _mm256_or_si256(check_vector(c, b), check_vector(d, c)));
            if (_mm256_testz_si256(doubt, doubt) == 0) {
                break;
            }
        }
        before = d;
        p += group;
    }
    while (static_cast<std::size_t>(end - p) >= block) {
        const __m256i bytes = load(p);
        const __m256i doubt = check_vector(bytes, before);
        if (_mm256_testz_si256(doubt, doubt) == 0) {
            break;
        }
        before = bytes;
        p += block;
    }
    return static_cast<std::size_t>(last_boundary(text, p) - text);
}

}  // namespace nqcore::kernels
