// UTF-8 structure by bit masks, for processors with byte permutes and compresses of 512 bits.
#pragma once

#include "kernels/avx512.h"
#include "ucsutil_rules.h"

#include <bit>
#include <cstdint>

namespace nqcore::kernels {

/// Which pairs of lead and second byte are bad, or may be with a third, as classes: a pair is such when its two rows
/// share a bit. Rows are indexed by the low six bits, which tell all leads apart and all continuation bytes apart.
struct SecondByteTables {
    alignas(64) unsigned char byLead[64];
    alignas(64) unsigned char bySecond[64];
};

constexpr SecondByteTables make_second_byte_tables() noexcept {
    enum : unsigned char {
        below_a0 = 1,   // E0: overlong
        from_a0 = 2,    // ED: surrogates
        below_90 = 4,   // F0: overlong
        from_90 = 8,    // F4: above U+10FFFF
        bb_or_bf = 16,  // EF: U+FEFF, U+FFFE and U+FFFF begin like this, and others too
        any = 128,      // C0, C1: overlong; F5 and up: above U+10FFFF, five and six bytes, no lead at all
    };
    SecondByteTables tables{};
    const auto lead = [&tables](unsigned byte) -> unsigned char& { return tables.byLead[byte & 0x3F]; };
    lead(0xC0) = any;
    lead(0xC1) = any;
    lead(0xE0) = below_a0;
    lead(0xED) = from_a0;
    lead(0xEF) = bb_or_bf;
    lead(0xF0) = below_90;
    lead(0xF4) = from_90;
    for (unsigned byte = 0xF5; byte <= 0xFF; ++byte) {
        lead(byte) = any;
    }
    for (unsigned byte = 0x80; byte <= 0xBF; ++byte) {
        const unsigned classes = any | (byte < 0xA0 ? below_a0 : from_a0) | (byte < 0x90 ? below_90 : from_90) |
                                 (byte == 0xBB || byte == 0xBF ? bb_or_bf : 0);
        tables.bySecond[byte & 0x3F] = static_cast<unsigned char>(classes);
    }
    return tables;
}

inline constexpr SecondByteTables s_secondByteTables = make_second_byte_tables();

/// A vector that the compiler takes for a variable, so that it keeps it in a register instead of making it anew in
/// every turn of a loop.
NQCORE_AVX512_INLINE __m512i kept(__m512i vector) noexcept {
    __asm__("" : "+v"(vector));
    return vector;
}

/// Stores the first `count` bytes of a vector.
NQCORE_AVX512_INLINE void store_bytes(unsigned char* out, unsigned count, __m512i bytes) noexcept {
    _mm512_mask_storeu_epi8(out, mask_of(first_positions(count)), bytes);
}

struct ByteOrder {
    alignas(64) unsigned char source[64];
};

template <unsigned distance>
constexpr ByteOrder make_shift_up() noexcept {
    ByteOrder order{};
    for (unsigned i = distance; i < 64; ++i) {
        order.source[i] = static_cast<unsigned char>(i - distance);
    }
    return order;
}

template <unsigned distance>
inline constexpr ByteOrder s_shiftUp = make_shift_up<distance>();

/// The byte `distance` before each byte; zeros at the front and outside of `keep`.
template <unsigned distance>
NQCORE_AVX512_INLINE __m512i shift_up(__m512i bytes, Positions keep = ~Positions{0}) noexcept {
    return _mm512_maskz_permutexvar_epi8(mask_of(keep & positions_from<distance>()),
                                         _mm512_load_si512(s_shiftUp<distance>.source), bytes);
}

/// Row `index & 63` of a table for each byte.
NQCORE_AVX512_INLINE __m512i look_up(const unsigned char (&table)[64], __m512i index) noexcept {
    return _mm512_permutexvar_epi8(index, _mm512_load_si512(table));
}

/// Positions in 64 bytes.
struct Utf8Positions {
    Positions continuations;
    Positions leads;       ///< of two bytes and more
    Positions leads3;      ///< of three and more
    Positions leads4;      ///< of four and more
    Positions badSeconds;  ///< may be bad when the byte before is a lead; means nothing elsewhere
};

/// True when one of the marked second bytes is bad indeed. Few texts have any mark.
///
/// In       `block`: where bit 0 lies; `end`: the end of the text.
inline bool any_is_bad(std::uint64_t seconds, const impl::Utf8Byte* block, const impl::Utf8Byte* end) noexcept {
    for (; seconds != 0; seconds &= seconds - 1) {
        const impl::Utf8Byte* const second = block + lowest_of(seconds);
        const unsigned third = second + 1 < end ? second[1] : 0;
        if (second[-1] != 0xEF || (second[0] == 0xBB ? third == 0xBF : third >= 0xBE)) {
            return true;
        }
    }
    return false;
}

/// In       `previous`: the byte before each byte.
NQCORE_AVX512_INLINE Utf8Positions classify(__m512i bytes, __m512i previous) noexcept {
    const __m512i byLead = look_up(s_secondByteTables.byLead, previous);
    const __m512i bySecond = look_up(s_secondByteTables.bySecond, bytes);
    return {
        Positions{_mm512_cmplt_epi8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xC0)))},
        Positions{_mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xC0)))},
        Positions{_mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xE0)))},
        Positions{_mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xF0)))},
        Positions{_mm512_test_epi8_mask(byLead, bySecond)},
    };
}

}  // namespace nqcore::kernels
