#include "kernels/utf8_avx512.h"
#include "kernels/utf8_validate.h"

namespace nqcore::kernels {
namespace {

/// Positions in the next 64 bytes at which the characters begun so far go on.
struct Carry {
    std::uint64_t second = 0;
    std::uint64_t third = 0;
    std::uint64_t fourth = 0;
};

/// Returns  positions in doubt.
NQCORE_AVX512_INLINE std::uint64_t check_block(__m512i bytes, __m512i previous, Carry& carry) noexcept {
    const Utf8Masks masks = classify(bytes, previous);
    const std::uint64_t second = masks.leads << 1 | carry.second;
    const std::uint64_t third = masks.leads3 << 2 | carry.third;
    const std::uint64_t fourth = masks.leads4 << 3 | carry.fourth;
    carry = {masks.leads >> 63, masks.leads3 >> 62, masks.leads4 >> 61};
    return ((second | third | fourth) ^ masks.continuations) | (masks.badSeconds & second);
}

// The byte before the text must not be read, so the first block makes its predecessors itself.
NQCORE_AVX512_INLINE __m512i predecessors(const Utf8Byte* text, const Utf8Byte* p, __m512i bytes) noexcept {
    return p == text ? shift_up<1>(bytes) : _mm512_loadu_si512(p - 1);
}

}  // namespace

NQCORE_AVX512 std::size_t good_prefix_avx512(const Utf8Byte* text, std::size_t length) noexcept {
    constexpr std::size_t block = 64;
    constexpr std::size_t group = 4 * block;
    const Utf8Byte* p = text;
    const Utf8Byte* const end = text + length;
    Carry carry;
    while (static_cast<std::size_t>(end - p) >= group) {
        const __m512i a = _mm512_loadu_si512(p);
        const __m512i b = _mm512_loadu_si512(p + block);
        const __m512i c = _mm512_loadu_si512(p + 2 * block);
        const __m512i d = _mm512_loadu_si512(p + 3 * block);
        const __m512i any = _mm512_or_si512(_mm512_or_si512(a, b), _mm512_or_si512(c, d));
        const Carry before = carry;
        std::uint64_t doubt = carry.second | carry.third | carry.fourth;
        if (_mm512_movepi8_mask(any) != 0) {
            doubt = check_block(a, predecessors(text, p, a), carry);
            doubt |= check_block(b, _mm512_loadu_si512(p + block - 1), carry);
            doubt |= check_block(c, _mm512_loadu_si512(p + 2 * block - 1), carry);
            doubt |= check_block(d, _mm512_loadu_si512(p + 3 * block - 1), carry);
        }
        if (doubt != 0) {
            carry = before;
            break;
        }
        p += group;
    }
    // Block by block where a whole group is not left or is in doubt. Bytes beyond the end count as zeros.
    while (p != end) {
        const std::size_t left = static_cast<std::size_t>(end - p);
        const std::size_t size = left < block ? left : block;
        const __m512i bytes = _mm512_maskz_loadu_epi8(low_bits(static_cast<unsigned>(size)), p);
        const __m512i first = p == text ? _mm512_setzero_si512() : _mm512_castsi128_si512(_mm_cvtsi32_si128(p[-1]));
        if (check_block(bytes, _mm512_or_si512(shift_up<1>(bytes), first), carry) != 0) {
            break;
        }
        p += size;
    }
    return static_cast<std::size_t>(last_boundary(text, p) - text);
}

}  // namespace nqcore::kernels
