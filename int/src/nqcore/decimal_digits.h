// Decimal digits eight at a time, for the number conversions.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace nqcore::decimal {

/// Digits of the largest 64-bit number, and a sign.
constexpr std::size_t s_longest = 21;

/// Most digits whose number always fits 64 bits.
constexpr std::size_t s_safeDigits = 19;

constexpr std::uint64_t s_hundredMillion = 100'000'000;

namespace impl {

// The bytes of a word lie in memory with the lowest first: the first digit of a text is the lowest byte.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);

template <class Word>
[[nodiscard]] inline std::uint64_t load(const char* text) noexcept {
    Word word;
    std::memcpy(&word, text, sizeof(word));
    return word;
}

// The first `count` (1 to 8) bytes of a text as a word of eight digits, '0' in front of them. Loads that may overlap
// read any number of bytes without a loop.
[[nodiscard]] inline std::uint64_t load_padded(const char* text, std::size_t count) noexcept {
    std::uint64_t word = 0;
    if (count >= 4) {
        word = load<std::uint32_t>(text) | (load<std::uint32_t>(text + count - 4) << (8 * (count - 4)));
    } else {
        const std::size_t middle = count / 2;
        word = load<unsigned char>(text) | (load<unsigned char>(text + middle) << (8 * middle)) |
               (load<unsigned char>(text + count - 1) << (8 * (count - 1)));
    }
    constexpr std::uint64_t sevenZeros = 0x0030303030303030;
    return (word << (8 * (8 - count))) | (sevenZeros >> (8 * (count - 1)));
}

// Not 0 when a byte is no digit: its high half is not 3, or would not stay 3 when 6 is added.
[[nodiscard]] inline std::uint64_t not_digits(std::uint64_t word) noexcept {
    constexpr std::uint64_t highHalves = 0xF0F0F0F0F0F0F0F0;
    constexpr std::uint64_t threes = 0x3030303030303030;
    return ((word & highHalves) ^ threes) | (((word + 0x0606060606060606) & highHalves) ^ threes);
}

// Joins neighbours: eight digits to four pairs, two fours, one number.
[[nodiscard]] inline std::uint64_t eight_digits(std::uint64_t word) noexcept {
    word = (word & 0x0F0F0F0F0F0F0F0F) * (10 * 0x100 + 1) >> 8;
    word = (word & 0x00FF00FF00FF00FF) * (100 * 0x10000 + 1) >> 16;
    return (word & 0x0000FFFF0000FFFF) * (10'000 * 0x1'0000'0000 + 1) >> 32;
}

// The reverse: eight digits of a number below 100,000,000, zeros in front. Splits into fours, pairs, digits; the
// products divide each lane by 100 and by 10, exactly for numbers this small.
[[nodiscard]] inline std::uint64_t eight_characters(std::uint32_t value) noexcept {
    const std::uint64_t fours = value / 10'000 | (std::uint64_t{value % 10'000} << 32);
    const std::uint64_t hundreds = (fours * 10'486 >> 20) & 0x0000007F0000007F;
    const std::uint64_t pairs = hundreds | ((fours - hundreds * 100) << 16);
    const std::uint64_t tens = (pairs * 103 >> 10) & 0x000F000F000F000F;
    return (tens | ((pairs - tens * 10) << 8)) + 0x3030303030303030;
}

inline void store(char* out, std::uint64_t word) noexcept { std::memcpy(out, &word, sizeof(word)); }

constexpr std::array<std::uint64_t, 20> s_powers = [] {
    std::array<std::uint64_t, 20> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i) {
        powers[i] = powers[i - 1] * 10;
    }
    return powers;
}();

}  // namespace impl

/// Digits of `value`, 1 to 20.
[[nodiscard]] inline unsigned count(std::uint64_t value) noexcept {
    // 1233 / 4096 is the logarithm of 2 to the base 10; the estimate is right or one too low.
    const unsigned estimate = (static_cast<unsigned>(std::bit_width(value | 1)) * 1233) >> 12;
    return estimate + ((value | 1) >= impl::s_powers[estimate] ? 1 : 0);
}

/// Writes `value`, which has `digits` digits.
///
/// Out      `out`: room for the digits, and for 8 bytes at least; bytes behind the digits may change.
inline void write(char* out, std::uint64_t value, unsigned digits) noexcept {
    if (digits <= 8) {
        return impl::store(out, impl::eight_characters(static_cast<std::uint32_t>(value)) >> (8 * (8 - digits)));
    }
    write(out, value / s_hundredMillion, digits - 8);
    impl::store(out + digits - 8, impl::eight_characters(static_cast<std::uint32_t>(value % s_hundredMillion)));
}

/// Writes a fraction of billionths without its trailing zeros: "5" for 500000000, "0" for 0.
///
/// Out      `out`: room for nine digits; those behind the written ones may change too.
/// Returns  digits written, 1 to 9.
inline unsigned write_fraction(char* out, std::uint32_t billionths) noexcept {
    constexpr std::uint32_t lastEight = s_hundredMillion;  // divisions in 64 bits are slow on win32
    const std::uint64_t last = impl::eight_characters(billionths % lastEight);
    out[0] = static_cast<char>('0' + billionths / lastEight);
    impl::store(out + 1, last);
    // The last digit lies in the highest byte.
    return 9 - static_cast<unsigned>(std::countl_zero(last ^ 0x3030303030303030)) / 8;
}

/// Reads `count` digits, 1 to `s_safeDigits`.
///
/// Returns  false when one of them is no digit; `value` is then meaningless.
[[nodiscard]] inline bool read(const char* text, std::size_t count, std::uint64_t& value) noexcept {
    const std::size_t words = (count - 1) / 8;
    const std::size_t head = count - 8 * words;
    const std::uint64_t first = impl::load_padded(text, head);
    std::uint64_t bad = impl::not_digits(first);
    value = impl::eight_digits(first);
    text += head;
    for (std::size_t i = 0; i < words; ++i, text += 8) {
        const std::uint64_t word = impl::load<std::uint64_t>(text);
        bad |= impl::not_digits(word);
        value = value * s_hundredMillion + impl::eight_digits(word);
    }
    return bad == 0;
}

}  // namespace nqcore::decimal
