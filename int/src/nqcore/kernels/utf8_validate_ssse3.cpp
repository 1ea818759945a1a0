#include "kernels/intrinsics.h"
#include "kernels/utf8_nibbles.h"
#include "kernels/utf8_validate.h"

#define NQCORE_SSSE3 __attribute__((target("ssse3")))
#define NQCORE_SSSE3_INLINE NQCORE_SSSE3 __attribute__((always_inline)) inline

namespace nqcore::kernels {
namespace {

NQCORE_SSSE3_INLINE __m128i all(unsigned byte) noexcept { return _mm_set1_epi8(static_cast<char>(byte)); }

NQCORE_SSSE3_INLINE __m128i look_up(const unsigned char (&table)[16], __m128i nibbles) noexcept {
    return _mm_shuffle_epi8(_mm_load_si128(reinterpret_cast<const __m128i*>(table)), nibbles);
}

NQCORE_SSSE3_INLINE __m128i high_nibbles(__m128i bytes) noexcept {
    return _mm_and_si128(_mm_srli_epi16(bytes, 4), all(0x0F));
}

/// In       `before`: the vector before.
/// Returns  not zero where in doubt.
NQCORE_SSSE3_INLINE __m128i check_vector(__m128i bytes, __m128i before) noexcept {
    const __m128i first = _mm_alignr_epi8(bytes, before, 15);
    const __m128i second = _mm_alignr_epi8(bytes, before, 14);
    const __m128i third = _mm_alignr_epi8(bytes, before, 13);
    const __m128i pairs = _mm_and_si128(_mm_and_si128(look_up(s_utf8Nibbles.firstHigh, high_nibbles(first)),
                                                      look_up(s_utf8Nibbles.firstLow, _mm_and_si128(first, all(0x0F)))),
                                        look_up(s_utf8Nibbles.secondHigh, high_nibbles(bytes)));
    // The top bit where a third or fourth byte is due.
    const __m128i due = _mm_or_si128(_mm_subs_epu8(second, all(0xE0 - 0x80)), _mm_subs_epu8(third, all(0xF0 - 0x80)));
    const __m128i faults = _mm_xor_si128(pairs, _mm_and_si128(due, all(s_twoContinuations)));
    // EF BB BF, EF BF BE and EF BF BF.
    const __m128i isLead = _mm_cmpeq_epi8(second, all(0xEF));
    const __m128i feff = _mm_and_si128(_mm_cmpeq_epi8(first, all(0xBB)), _mm_cmpeq_epi8(bytes, all(0xBF)));
    const __m128i ffff =
        _mm_and_si128(_mm_cmpeq_epi8(first, all(0xBF)), _mm_cmpeq_epi8(_mm_max_epu8(bytes, all(0xBE)), bytes));
    return _mm_or_si128(faults, _mm_and_si128(isLead, _mm_or_si128(feff, ffff)));
}

NQCORE_SSSE3_INLINE __m128i load(const Utf8Byte* p) noexcept {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

NQCORE_SSSE3_INLINE bool is_zero(__m128i bytes) noexcept {
    return _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_setzero_si128())) == 0xFFFF;
}

}  // namespace

NQCORE_SSSE3 std::size_t good_prefix_ssse3(const Utf8Byte* text, std::size_t length) noexcept {
    constexpr std::size_t block = 16;
    constexpr std::size_t group = 4 * block;
    const Utf8Byte* p = text;
    const Utf8Byte* const end = text + length;
    __m128i before = _mm_setzero_si128();
    while (static_cast<std::size_t>(end - p) >= group) {
        const __m128i a = load(p);
        const __m128i b = load(p + block);
        const __m128i c = load(p + 2 * block);
        const __m128i d = load(p + 3 * block);
        const __m128i any = _mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d));
        if (_mm_movemask_epi8(any) == 0) {
            if (last_boundary(text, p) != p) {
                break;
            }
        } else if (!is_zero(_mm_or_si128(_mm_or_si128(check_vector(a, before), check_vector(b, a)),
                                         _mm_or_si128(check_vector(c, b), check_vector(d, c))))) {
            break;
        }
        before = d;
        p += group;
    }
    while (static_cast<std::size_t>(end - p) >= block) {
        const __m128i bytes = load(p);
        if (!is_zero(check_vector(bytes, before))) {
            break;
        }
        before = bytes;
        p += block;
    }
    return static_cast<std::size_t>(last_boundary(text, p) - text);
}

}  // namespace nqcore::kernels
