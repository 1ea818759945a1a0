// What the 512-bit rows of the transforms share.
#pragma once

#include "kernels/avx512.h"
#include "kernels/transform_digits.h"

#include <bit>
#include <cstddef>
#include <cstdint>

namespace nqcore::kernels {

struct Table64 {
    alignas(64) unsigned char at[64];
};

NQCORE_AVX512_INLINE __m512i load_table(const unsigned char* table) noexcept { return _mm512_load_si512(table); }

/// The alphabet, repeated to 64 rows: an index counts by its low six bits only.
template <std::size_t size>
constexpr Table64 repeated(const char (&digits)[size]) noexcept {
    Table64 table{};
    for (std::size_t i = 0; i < 64; ++i) {
        table.at[i] = static_cast<unsigned char>(digits[i % (size - 1)]);
    }
    return table;
}

/// The order that turns each group of bytes round, for shifts that take fields from qwords: `bytes` bytes, the first one
/// highest, in every `slot` bytes.
constexpr Table64 big_endian_groups(unsigned bytes, unsigned slot) noexcept {
    Table64 order{};
    for (unsigned i = 0; i < 64; ++i) {
        const unsigned place = i % slot;
        order.at[i] = static_cast<unsigned char>(place < bytes ? i / slot * bytes + bytes - 1 - place : 0);
    }
    return order;
}

/// Where in its qword each digit begins.
constexpr Table64 field_shifts(unsigned digitBits, unsigned slotDigits) noexcept {
    Table64 shifts{};
    for (unsigned i = 0; i < 64; ++i) {
        const unsigned slot = i % 8 / slotDigits;
        shifts.at[i] =
            static_cast<unsigned char>(slot * slotDigits * 8 + (slotDigits - 1 - i % slotDigits) * digitBits);
    }
    return shifts;
}

/// The order that takes `bytes` bytes, the highest first, out of every `slot` bytes.
constexpr Table64 packed_groups(unsigned bytes, unsigned slot) noexcept {
    Table64 order{};
    for (unsigned i = 0; i < 64 / slot * bytes; ++i) {
        order.at[i] = static_cast<unsigned char>(i / bytes * slot + bytes - 1 - i % bytes);
    }
    return order;
}

/// Encodes groups of `bytes` bytes to `digits` digits, 64 digits at a time, the last ones under a mask.
template <unsigned bytes, unsigned digits>
NQCORE_AVX512_INLINE std::size_t encode_avx512(const Table64& alphabet, const unsigned char* in, std::size_t inBytes,
                                               char* out) noexcept {
    constexpr std::size_t s_blockBytes = 64 / digits * bytes;
    static constexpr Table64 s_order = big_endian_groups(bytes, digits);
    static constexpr Table64 s_shifts = field_shifts(bytes * 8 / digits, digits);
    const __m512i order = load_table(s_order.at);
    const __m512i shifts = load_table(s_shifts.at);
    const __m512i table = load_table(alphabet.at);
    const std::size_t whole = inBytes - inBytes % bytes;
    std::size_t left = whole;
    for (; left >= 64; left -= s_blockBytes, in += s_blockBytes, out += 64) {
        const __m512i groups = _mm512_permutexvar_epi8(order, _mm512_loadu_si512(in));
        const __m512i fields = _mm512_multishift_epi64_epi8(shifts, groups);
        _mm512_storeu_si512(out, _mm512_permutexvar_epi8(fields, table));
    }
    while (left != 0) {  // twice at most
        const std::size_t taken = left < s_blockBytes ? left : s_blockBytes;
        const __m512i block = _mm512_maskz_loadu_epi8(mask_of(first_positions(taken)), in);
        const __m512i fields = _mm512_multishift_epi64_epi8(shifts, _mm512_permutexvar_epi8(order, block));
        _mm512_mask_storeu_epi8(out, mask_of(first_positions(taken / bytes * digits)),
                                _mm512_permutexvar_epi8(fields, table));
        left -= taken;
        in += taken;
        out += taken / bytes * digits;
    }
    _mm256_zeroupper();
    return whole;
}

/// Decodes groups of `digits` digits to `bytes` bytes, 64 digits at a time, up to the first character that is none.
///
/// In       `gather`: turns the values of 64 digits into groups of `digits` bytes that hold the result, lowest first.
template <unsigned bytes, unsigned digits, class Gather>
NQCORE_AVX512_INLINE std::size_t decode_avx512(const DigitValues& values, const char* text, std::size_t length,
                                               unsigned char* out, Gather gather) noexcept {
    constexpr std::size_t s_blockBytes = 64 / digits * bytes;
    static constexpr Table64 s_order = packed_groups(bytes, digits);
    const __m512i order = load_table(s_order.at);
    const __m512i low = load_table(values.of);
    const __m512i high = load_table(values.of + 64);
    std::size_t at = 0;
    for (; length - at >= 128; at += 128, out += 2 * s_blockBytes) {
        const __m512i first = _mm512_loadu_si512(text + at);
        const __m512i second = _mm512_loadu_si512(text + at + 64);
        const __m512i firstValue = _mm512_permutex2var_epi8(low, first, high);
        const __m512i secondValue = _mm512_permutex2var_epi8(low, second, high);
        const __m512i doubt = _mm512_or_si512(_mm512_or_si512(first, second), _mm512_or_si512(firstValue, secondValue));
        if (!is_empty(Positions{_mm512_movepi8_mask(doubt)})) {
            break;
        }
        // What the first store writes too much, the second overwrites.
        _mm512_storeu_si512(out, _mm512_permutexvar_epi8(order, gather(firstValue)));
        _mm512_mask_storeu_epi8(out + s_blockBytes, mask_of(first_positions(s_blockBytes)),
                                _mm512_permutexvar_epi8(order, gather(secondValue)));
    }
    // Block by block; all but the last are good to the end. countr_zero(0) is 64.
    std::size_t good = 64;
    while (good == 64 && at != length) {
        const std::size_t rest = length - at < 64 ? length - at : 64;
        const Positions taken = first_positions(rest);
        const __m512i block = _mm512_maskz_loadu_epi8(mask_of(taken), text + at);
        const __m512i value = _mm512_permutex2var_epi8(low, block, high);
        const Positions bad = Positions{_mm512_movepi8_mask(_mm512_or_si512(block, value))} | ~taken;
        const std::size_t groups = lowest_of(integer_of(bad)) / digits;
        _mm512_mask_storeu_epi8(out, mask_of(first_positions(groups * bytes)),
                                _mm512_permutexvar_epi8(order, gather(value)));
        good = groups * digits;
        at += good;
        out += groups * bytes;
    }
    _mm256_zeroupper();
    return at;
}

}  // namespace nqcore::kernels
