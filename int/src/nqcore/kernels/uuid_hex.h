// UUIDs as hexadecimal digits and back. Every supported processor has SSE2, and only writing with hyphens gains from
// more, so that the rest is right here instead of in rows that have to be chosen.
//
// The bytes go in and out in memory order, the digits in text order: the first three fields of a UUID are numbers that
// lie little-endian in memory.
#pragma once

#include "kernels/intrinsics.h"

#include <atomic>
#include <span>

namespace nqcore::kernels {

/// 32 characters.
struct HexDigits {
    __m128i first;
    __m128i second;
};

// Memory order to text order; the same way back.
inline __m128i swap_uuid_fields(__m128i bytes) noexcept {
    const __m128i swapped = _mm_or_si128(_mm_slli_epi16(bytes, 8), _mm_srli_epi16(bytes, 8));
    const __m128i fields = _mm_shufflelo_epi16(swapped, _MM_SHUFFLE(3, 2, 0, 1));
    return _mm_castpd_si128(_mm_shuffle_pd(_mm_castsi128_pd(fields), _mm_castsi128_pd(bytes), 2));
}

// Numbers below 16 to digits.
inline __m128i hex_characters(__m128i halves) noexcept {
    const __m128i letters = _mm_and_si128(_mm_cmpgt_epi8(halves, _mm_set1_epi8(9)), _mm_set1_epi8('a' - '0' - 10));
    return _mm_add_epi8(_mm_add_epi8(halves, _mm_set1_epi8('0')), letters);
}

/// Lower-case.
inline HexDigits uuid_digits(__m128i memory) noexcept {
    const __m128i bytes = swap_uuid_fields(memory);
    const __m128i mask = _mm_set1_epi8(0x0F);
    const __m128i high = _mm_and_si128(_mm_srli_epi16(bytes, 4), mask);
    const __m128i low = _mm_and_si128(bytes, mask);
    return {hex_characters(_mm_unpacklo_epi8(high, low)), hex_characters(_mm_unpackhi_epi8(high, low))};
}

// The values of 16 characters; above 15 for one that is no digit of either case.
inline __m128i hex_values(__m128i characters) noexcept {
    // '9' becomes 255 and what is above wraps round; the saturation then parts the two, so that only '0' to '9' come
    // back to 0 to 9.
    const __m128i topped = _mm_add_epi8(characters, _mm_set1_epi8(static_cast<char>(255 - '9')));
    const __m128i parted = _mm_subs_epu8(topped, _mm_set1_epi8(6));
    const __m128i digits = _mm_sub_epi8(parted, _mm_set1_epi8(static_cast<char>(255 - 9 - 6)));
    // What is below 'A' wraps round to much, and stays there.
    const __m128i upperCase = _mm_and_si128(characters, _mm_set1_epi8(static_cast<char>(0xDF)));
    const __m128i letters = _mm_adds_epu8(_mm_sub_epi8(upperCase, _mm_set1_epi8('A')), _mm_set1_epi8(10));
    return _mm_min_epu8(digits, letters);
}

/// Returns  false when a character is no digit of either case; `memory` is then meaningless.
inline bool read_uuid_digits(const HexDigits& text, __m128i& memory) noexcept {
    const __m128i first = hex_values(text.first);
    const __m128i second = hex_values(text.second);
    const __m128i mask = _mm_set1_epi16(0xFF);
    const __m128i high = _mm_packus_epi16(_mm_and_si128(first, mask), _mm_and_si128(second, mask));
    const __m128i low = _mm_packus_epi16(_mm_srli_epi16(first, 8), _mm_srli_epi16(second, 8));
    memory = swap_uuid_fields(_mm_or_si128(_mm_slli_epi16(high, 4), low));
    const __m128i tooMuch = _mm_adds_epu8(_mm_or_si128(first, second), _mm_set1_epi8(127 - 15));
    return _mm_movemask_epi8(tooMuch) == 0;
}

struct UuidTextKernel {
    /// In       `uuid`: 16 bytes.
    /// Out      `text`: 36 characters.
    using Write = void (*)(const void* uuid, char* text) noexcept;

    const char* name;
    bool (*usable)() noexcept;
    Write write_hyphenated;
};

/// All rows, best first.
[[nodiscard]] std::span<const UuidTextKernel> uuid_text_kernels() noexcept;

/// Chooses the row for this processor on the first call; afterwards it is the row. Finding the row by a call of its own
/// would take as long as the work.
extern std::atomic<UuidTextKernel::Write> s_writeUuidHyphenated;

inline void write_uuid_hyphenated(const void* uuid, char* text) noexcept {
    s_writeUuidHyphenated.load(std::memory_order_relaxed)(uuid, text);
}

}  // namespace nqcore::kernels
