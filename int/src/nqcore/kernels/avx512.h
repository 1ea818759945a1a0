// What all 512-bit rows share: their instruction sets, and sets of 64 positions.
//
// Where registers hold 64 bits, such a set is an integer. Where they hold 32, the compiler moves an integer to a mask
// register through memory, by two stores and one load of both halves, and the load waits until both stores have left the
// store queue: some 10 ns. There a set stays in mask registers.
#pragma once

#include "kernels/intrinsics.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#define NQCORE_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi,avx512vbmi2")))
#define NQCORE_AVX512_INLINE NQCORE_AVX512 __attribute__((always_inline)) inline

namespace nqcore::kernels {

/// A set that stays in mask registers.
struct MaskSet {
    __mmask64 mask;

    NQCORE_AVX512_INLINE friend MaskSet operator|(MaskSet a, MaskSet b) noexcept {
        return {_kor_mask64(a.mask, b.mask)};
    }
    NQCORE_AVX512_INLINE friend MaskSet operator&(MaskSet a, MaskSet b) noexcept {
        return {_kand_mask64(a.mask, b.mask)};
    }
    NQCORE_AVX512_INLINE friend MaskSet operator^(MaskSet a, MaskSet b) noexcept {
        return {_kxor_mask64(a.mask, b.mask)};
    }
    NQCORE_AVX512_INLINE friend MaskSet operator~(MaskSet a) noexcept { return {_knot_mask64(a.mask)}; }
};

constexpr bool s_hasWideRegisters = sizeof(std::size_t) == sizeof(std::uint64_t);

/// A set of 64 positions.
using Positions = std::conditional_t<s_hasWideRegisters, std::uint64_t, MaskSet>;

NQCORE_AVX512_INLINE __mmask64 mask_of(std::uint64_t positions) noexcept { return positions; }
NQCORE_AVX512_INLINE __mmask64 mask_of(MaskSet positions) noexcept { return positions.mask; }

/// The positions as an integer. A copy, so that the mask itself stays where it is.
NQCORE_AVX512_INLINE std::uint64_t integer_of(std::uint64_t positions) noexcept { return positions; }
NQCORE_AVX512_INLINE std::uint64_t integer_of(MaskSet positions) noexcept {
    __asm__("" : "+k"(positions.mask));
    return positions.mask;
}

// The positions moved up or down; what leaves at an end is lost.
template <unsigned distance>
NQCORE_AVX512_INLINE std::uint64_t up(std::uint64_t positions) noexcept {
    return positions << distance;
}
template <unsigned distance>
NQCORE_AVX512_INLINE MaskSet up(MaskSet positions) noexcept {
    return {_kshiftli_mask64(positions.mask, distance)};
}
template <unsigned distance>
NQCORE_AVX512_INLINE std::uint64_t down(std::uint64_t positions) noexcept {
    return positions >> distance;
}
template <unsigned distance>
NQCORE_AVX512_INLINE MaskSet down(MaskSet positions) noexcept {
    return {_kshiftri_mask64(positions.mask, distance)};
}

/// The last `count` positions as an integer.
template <unsigned count>
NQCORE_AVX512_INLINE std::size_t top_bits(Positions positions) noexcept {
    return static_cast<std::size_t>(integer_of(down<64 - count>(positions)));
}

NQCORE_AVX512_INLINE bool is_empty(std::uint64_t positions) noexcept { return positions == 0; }
NQCORE_AVX512_INLINE bool is_empty(MaskSet positions) noexcept {
    return _kortestz_mask64_u8(positions.mask, positions.mask) != 0;
}

NQCORE_AVX512_INLINE unsigned count_of(Positions positions) noexcept {
    return static_cast<unsigned>(std::popcount(integer_of(positions)));
}

/// The lowest position; 64 when there is none. By halves where the compiler would call a function for both, with all
/// vectors put on the stack.
inline unsigned lowest_of(std::uint64_t positions) noexcept {
    if constexpr (s_hasWideRegisters) {
        return static_cast<unsigned>(std::countr_zero(positions));
    } else {
        const auto low = static_cast<std::uint32_t>(positions);
        const auto high = static_cast<std::uint32_t>(positions >> 32);
        return static_cast<unsigned>(low != 0 ? std::countr_zero(low) : 32 + std::countr_zero(high));
    }
}

struct Ascending {
    alignas(64) unsigned char at[64];
};

constexpr Ascending make_ascending() noexcept {
    Ascending numbers{};
    for (unsigned i = 0; i < 64; ++i) {
        numbers.at[i] = static_cast<unsigned char>(i);
    }
    return numbers;
}

inline constexpr Ascending s_ascending = make_ascending();

/// The first `count` positions, 64 at most.
NQCORE_AVX512_INLINE Positions first_positions(std::size_t count) noexcept {
    if constexpr (s_hasWideRegisters) {
        return Positions{count == 0 ? 0 : ~std::uint64_t{0} >> (64 - count)};
    } else {
        const __m512i numbers = _mm512_load_si512(s_ascending.at);
        return Positions{_mm512_cmplt_epu8_mask(numbers, _mm512_set1_epi8(static_cast<char>(count)))};
    }
}

/// The same as an integer, 32 positions at most: registers hold them everywhere.
constexpr std::uint32_t first_bits(unsigned count) noexcept {
    constexpr unsigned width = std::numeric_limits<std::size_t>::digits;
    return count == 0 ? 0 : static_cast<std::uint32_t>(~std::size_t{0} >> (width - count));
}

/// Positions from an integer.
NQCORE_AVX512_INLINE Positions positions_of(std::size_t bits) noexcept {
    if constexpr (!s_hasWideRegisters) {
        __asm__("" : "+k"(bits));
    }
    return Positions{bits};
}

/// All positions from `from` on.
template <unsigned from>
NQCORE_AVX512_INLINE Positions positions_from() noexcept {
    return up<from>(~Positions{0});
}

}  // namespace nqcore::kernels
