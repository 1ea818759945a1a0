// What the 128-bit and 256-bit rows of the transforms share.
#pragma once

#include "kernels/intrinsics.h"

#include <cstddef>
#include <cstring>

#define NQCORE_SSSE3 __attribute__((target("ssse3")))
#define NQCORE_SSSE3_INLINE NQCORE_SSSE3 __attribute__((always_inline)) inline
#define NQCORE_AVX2 __attribute__((target("avx2")))
#define NQCORE_AVX2_INLINE NQCORE_AVX2 __attribute__((always_inline)) inline

namespace nqcore::kernels {

/// A table, or an order of bytes, for each 128 bits of a vector. An order takes a zero for s_zero.
struct Table16 {
    alignas(16) unsigned char at[16];
};

constexpr unsigned char s_zero = 0x80;

NQCORE_SSSE3_INLINE __m128i load_128(const void* from) noexcept {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}
NQCORE_SSSE3_INLINE void store_128(void* to, __m128i bytes) noexcept {
    _mm_storeu_si128(static_cast<__m128i*>(to), bytes);
}
NQCORE_SSSE3_INLINE __m128i all_128(unsigned byte) noexcept { return _mm_set1_epi8(static_cast<char>(byte)); }
NQCORE_SSSE3_INLINE __m128i look_up(const Table16& table, __m128i index) noexcept {
    return _mm_shuffle_epi8(_mm_load_si128(reinterpret_cast<const __m128i*>(table.at)), index);
}
NQCORE_SSSE3_INLINE __m128i reorder(__m128i bytes, const Table16& order) noexcept {
    return _mm_shuffle_epi8(bytes, _mm_load_si128(reinterpret_cast<const __m128i*>(order.at)));
}
NQCORE_SSSE3_INLINE __m128i high_nibbles(__m128i bytes) noexcept {
    return _mm_and_si128(_mm_srli_epi16(bytes, 4), all_128(0x0F));
}

/// Stores the first `count` bytes and not one more; `count` is between 8 and 12.
template <unsigned count>
NQCORE_SSSE3_INLINE void store_first(unsigned char* out, __m128i bytes) noexcept {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), bytes);
    const int rest = _mm_cvtsi128_si32(_mm_srli_si128(bytes, 8));
    std::memcpy(out + 8, &rest, count - 8);
}

NQCORE_AVX2_INLINE __m256i load_256(const void* from) noexcept {
    return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}
/// 128 bits from each of two places.
NQCORE_AVX2_INLINE __m256i load_lanes(const void* low, const void* high) noexcept {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(low))),
                                   _mm_loadu_si128(static_cast<const __m128i*>(high)), 1);
}
NQCORE_AVX2_INLINE void store_256(void* to, __m256i bytes) noexcept {
    _mm256_storeu_si256(static_cast<__m256i*>(to), bytes);
}
NQCORE_AVX2_INLINE __m256i all_256(unsigned byte) noexcept { return _mm256_set1_epi8(static_cast<char>(byte)); }
NQCORE_AVX2_INLINE __m256i both_lanes(const Table16& table) noexcept {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(table.at)));
}
NQCORE_AVX2_INLINE __m256i look_up(const Table16& table, __m256i index) noexcept {
    return _mm256_shuffle_epi8(both_lanes(table), index);
}
NQCORE_AVX2_INLINE __m256i reorder(__m256i bytes, const Table16& order) noexcept {
    return _mm256_shuffle_epi8(bytes, both_lanes(order));
}
NQCORE_AVX2_INLINE __m256i high_nibbles(__m256i bytes) noexcept {
    return _mm256_and_si256(_mm256_srli_epi16(bytes, 4), all_256(0x0F));
}

/// Stores the first `laneBytes` bytes of each lane, and up to 8 more behind them that mean nothing.
template <unsigned laneBytes>
NQCORE_AVX2_INLINE void store_lanes(unsigned char* out, __m256i lanes) noexcept {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(lanes));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + laneBytes), _mm256_extracti128_si256(lanes, 1));
}

/// The same, and not one byte more.
template <unsigned laneBytes>
NQCORE_AVX2_INLINE void store_lanes_exactly(unsigned char* out, __m256i lanes) noexcept {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(lanes));
    const __m128i high = _mm256_extracti128_si256(lanes, 1);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + laneBytes), high);
    const int rest = _mm_cvtsi128_si32(_mm_srli_si128(high, 8));
    std::memcpy(out + laneBytes + 8, &rest, laneBytes - 8);
}

}  // namespace nqcore::kernels
