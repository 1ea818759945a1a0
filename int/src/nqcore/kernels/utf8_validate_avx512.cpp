#include "kernels/utf8_avx512.h"
#include "kernels/utf8_validate.h"

#include <algorithm>

namespace nqcore::kernels {
namespace {

/// Positions in the next 64 bytes at which the characters begun so far go on.
struct Carry {
    std::size_t second = 0;
    std::size_t third = 0;
    std::size_t fourth = 0;
};

/// Positions at fault, and those of second bytes that may be.
struct Findings {
    Positions faults;
    Positions badSeconds;
};

NQCORE_AVX512_INLINE Findings check_block(__m512i bytes, __m512i previous, Carry& carry) noexcept {
    const Utf8Positions found = classify(bytes, previous);
    const Positions second = up<1>(found.leads) | positions_of(carry.second);
    const Positions third = up<2>(found.leads3) | positions_of(carry.third);
    const Positions fourth = up<3>(found.leads4) | positions_of(carry.fourth);
    carry = {top_bits<1>(found.leads), top_bits<2>(found.leads3), top_bits<3>(found.leads4)};
    return {(second | third | fourth) ^ found.continuations, found.badSeconds & second};
}

NQCORE_AVX512_INLINE Positions doubts(__m512i bytes, __m512i previous, Carry& carry) noexcept {
    const Findings findings = check_block(bytes, previous, carry);
    return findings.faults | findings.badSeconds;
}

// The byte before the text must not be read, so the first block makes its predecessors itself.
NQCORE_AVX512_INLINE __m512i predecessors(const Utf8Byte* text, const Utf8Byte* p, __m512i bytes) noexcept {
    return p == text ? shift_up<1>(bytes) : _mm512_loadu_si512(p - 1);
}

// Up to 64 bytes.
NQCORE_AVX512_INLINE bool is_short_ascii(const Utf8Byte* text, std::size_t length) noexcept {
    const __m512i bytes = _mm512_maskz_loadu_epi8(mask_of(first_positions(length)), text);
    return is_empty(Positions{_mm512_movepi8_mask(bytes)});
}

// Apart, so that short texts need no stack frame and no constants.
[[gnu::noinline]] NQCORE_AVX512 std::size_t good_prefix_by_blocks(const Utf8Byte* text, std::size_t length) noexcept {
    constexpr std::ptrdiff_t block = 64;
    constexpr std::ptrdiff_t group = 4 * block;
    const Utf8Byte* p = text;
    const Utf8Byte* const end = text + length;
    Carry carry;
    while (p != end) {
        if (end - p >= group) {
            const __m512i a = _mm512_loadu_si512(p);
            const __m512i b = _mm512_loadu_si512(p + block);
            const __m512i c = _mm512_loadu_si512(p + 2 * block);
            const __m512i d = _mm512_loadu_si512(p + 3 * block);
            const __m512i any = _mm512_or_si512(_mm512_or_si512(a, b), _mm512_or_si512(c, d));
            const Carry before = carry;
            Positions doubt = positions_of(carry.second | carry.third | carry.fourth);
            if (!is_empty(Positions{_mm512_movepi8_mask(any)})) {
                doubt = doubts(a, predecessors(text, p, a), carry);
                doubt = doubt | doubts(b, _mm512_loadu_si512(p + block - 1), carry);
                doubt = doubt | doubts(c, _mm512_loadu_si512(p + 2 * block - 1), carry);
                doubt = doubt | doubts(d, _mm512_loadu_si512(p + 3 * block - 1), carry);
            }
            if (is_empty(doubt)) {
                p += group;
                continue;
            }
            carry = before;
        }
        // Block by block, with a closer look, where a whole group is not left or is in doubt. Bytes beyond the end
        // count as zeros.
        for (const Utf8Byte* const groupEnd = p + std::min<std::ptrdiff_t>(end - p, group); p != groupEnd;) {
            const auto size = static_cast<unsigned>(std::min<std::ptrdiff_t>(groupEnd - p, block));
            const __m512i bytes = _mm512_maskz_loadu_epi8(mask_of(first_positions(size)), p);
            const __m512i first = p == text ? _mm512_setzero_si512() : _mm512_castsi128_si512(_mm_cvtsi32_si128(p[-1]));
            const Findings findings = check_block(bytes, _mm512_or_si512(shift_up<1>(bytes), first), carry);
            if (!is_empty(findings.faults) || any_is_bad(integer_of(findings.badSeconds), p, end)) {
                return static_cast<std::size_t>(last_boundary(text, p) - text);
            }
            p += size;
        }
    }
    return static_cast<std::size_t>(last_boundary(text, p) - text);
}

}  // namespace

// Short texts are ASCII mostly.
NQCORE_AVX512 std::size_t good_prefix_avx512(const Utf8Byte* text, std::size_t length) noexcept {
    return length <= 64 && is_short_ascii(text, length) ? length : good_prefix_by_blocks(text, length);
}

}  // namespace nqcore::kernels
