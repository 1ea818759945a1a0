// The digits of the binary-to-text transforms, and the plain loops over groups of them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nqcore::kernels {

constexpr char s_hexDigits[] = "0123456789abcdef";
constexpr char s_base64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char s_base32Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";

// What a character is, where it is no digit: larger than any digit, in the top bit.
constexpr unsigned char s_padding = 128;
constexpr unsigned char s_noDigit = 255;

/// What each character is.
struct DigitValues {
    alignas(64) unsigned char of[256];
};

template <std::size_t size>
constexpr DigitValues digit_values(const char (&digits)[size], bool isPadded) noexcept {
    DigitValues values{};
    for (unsigned char& value : values.of) {
        value = s_noDigit;
    }
    for (std::size_t i = 0; i + 1 < size; ++i) {
        values.of[static_cast<unsigned char>(digits[i])] = static_cast<unsigned char>(i);
    }
    if (isPadded) {
        values.of[unsigned{'='}] = s_padding;
    }
    return values;
}

// The same value for the letters of one case as for those of the other.
constexpr DigitValues with_letters_of_both_cases(DigitValues values) noexcept {
    for (unsigned letter = 'A'; letter <= 'Z'; ++letter) {
        unsigned char& upper = values.of[letter];
        unsigned char& lower = values.of[letter | 0x20];
        upper = lower = upper < lower ? upper : lower;
    }
    return values;
}

constexpr DigitValues make_base64_values() noexcept {
    DigitValues values = digit_values(s_base64Digits, true);
    values.of[unsigned{'-'}] = values.of[unsigned{'+'}];
    values.of[unsigned{'_'}] = values.of[unsigned{'/'}];
    return values;
}

inline constexpr DigitValues s_hexValues = with_letters_of_both_cases(digit_values(s_hexDigits, false));
inline constexpr DigitValues s_base64Values = make_base64_values();
inline constexpr DigitValues s_base32Values = digit_values(s_base32Digits, true);
inline constexpr DigitValues s_base32ValuesOfBothCases = with_letters_of_both_cases(s_base32Values);

/// Encodes all whole groups of `groupBytes` bytes; `digitBits` bits become a digit.
template <unsigned groupBytes, unsigned digitBits>
std::size_t encode_plainly(const char* digits, const unsigned char* in, std::size_t inBytes, char* out) noexcept {
    std::size_t at = 0;
    for (; inBytes - at >= groupBytes; at += groupBytes) {
        std::uint64_t bits = 0;
        for (unsigned i = 0; i < groupBytes; ++i) {
            bits = bits << 8 | in[at + i];
        }
        for (unsigned left = groupBytes * 8; left != 0;) {
            left -= digitBits;
            *out++ = digits[bits >> left & ((1u << digitBits) - 1)];
        }
    }
    return at;
}

/// Decodes whole groups up to the first character that is no digit.
template <unsigned groupBytes, unsigned digitBits>
std::size_t decode_plainly(const DigitValues& values, const char* text, std::size_t length,
                           unsigned char* out) noexcept {
    constexpr unsigned s_groupDigits = groupBytes * 8 / digitBits;
    std::size_t at = 0;
    for (; length - at >= s_groupDigits; at += s_groupDigits) {
        std::uint64_t bits = 0;
        unsigned all = 0;
        for (unsigned i = 0; i < s_groupDigits; ++i) {
            const unsigned value = values.of[static_cast<unsigned char>(text[at + i])];
            all |= value;
            bits = bits << digitBits | value;
        }
        if (all >= s_padding) {
            break;
        }
        for (unsigned left = groupBytes * 8; left != 0;) {
            left -= 8;
            *out++ = static_cast<unsigned char>(bits >> left);
        }
    }
    return at;
}

}  // namespace nqcore::kernels
