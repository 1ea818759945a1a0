#include "kernels/utf8_avx512.h"
#include "kernels/utf8_validate.h"

#include <algorithm>

namespace nqcore::kernels {
namespace {

/// Positions in the next 64 bytes at which the characters begun so far go on.
struct Carry {
    std::uint64_t second = 0;
    std::uint64_t third = 0;
    std::uint64_t fourth = 0;
};

/// Positions at fault, and those of second bytes that may be.
struct Findings {
    std::uint64_t faults;
    std::uint64_t badSeconds;
};

NQCORE_AVX512_INLINE Findings check_block(__m512i bytes, __m512i previous, Carry& carry) noexcept {
    const Utf8Masks masks = classify(bytes, previous);
    const std::uint64_t second = masks.leads << 1 | carry.second;
    const std::uint64_t third = masks.leads3 << 2 | carry.third;
    const std::uint64_t fourth = masks.leads4 << 3 | carry.fourth;
    carry = {masks.leads >> 63, masks.leads3 >> 62, masks.leads4 >> 61};
    return {(second | third | fourth) ^ masks.continuations, masks.badSeconds & second};
}

NQCORE_AVX512_INLINE std::uint64_t doubts(__m512i bytes, __m512i previous, Carry& carry) noexcept {
    const Findings findings = check_block(bytes, previous, carry);
    return findings.faults | findings.badSeconds;
}

// The byte before the text must not be read, so the first block makes its predecessors itself.
NQCORE_AVX512_INLINE __m512i predecessors(const Utf8Byte* text, const Utf8Byte* p, __m512i bytes) noexcept {
    return p == text ? shift_up<1>(bytes) : _mm512_loadu_si512(p - 1);
}

}  // namespace

NQCORE_AVX512 std::size_t good_prefix_avx512(const Utf8Byte* text, std::size_t length) noexcept {
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
            std::uint64_t doubt = carry.second | carry.third | carry.fourth;
            if (_mm512_movepi8_mask(any) != 0) {
                doubt = doubts(a, predecessors(text, p, a), carry);
                doubt |= doubts(b, _mm512_loadu_si512(p + block - 1), carry);
                doubt |= doubts(c, _mm512_loadu_si512(p + 2 * block - 1), carry);
                doubt |= doubts(d, _mm512_loadu_si512(p + 3 * block - 1), carry);
            }
            if (doubt == 0) {
                p += group;
                continue;
            }
            carry = before;
        }
        // Block by block, with a closer look, where a whole group is not left or is in doubt. Bytes beyond the end
        // count as zeros.
        for (const Utf8Byte* const groupEnd = p + std::min<std::ptrdiff_t>(end - p, group); p != groupEnd;) {
            const auto size = static_cast<unsigned>(std::min<std::ptrdiff_t>(groupEnd - p, block));
            const __m512i bytes = _mm512_maskz_loadu_epi8(low_bits(size), p);
            const __m512i first = p == text ? _mm512_setzero_si512() : _mm512_castsi128_si512(_mm_cvtsi32_si128(p[-1]));
            const Findings findings = check_block(bytes, _mm512_or_si512(shift_up<1>(bytes), first), carry);
            if (findings.faults != 0 || any_is_bad(findings.badSeconds, p, end)) {
                return static_cast<std::size_t>(last_boundary(text, p) - text);
            }
            p += size;
        }
    }
    return static_cast<std::size_t>(last_boundary(text, p) - text);
}

}  // namespace nqcore::kernels
