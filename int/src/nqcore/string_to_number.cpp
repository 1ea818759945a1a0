#include "nqcore/string_to.h"

#include "decimal_digits.h"
#include "text_length.h"

#include <array>
#include <string>

namespace nqcore {
namespace {

// Strings are made by copying so many characters: the sign, and room for digits.
constexpr char s_blank[decimal::s_longest + 1] = "---------------------";
// What a string holds without allocating is at least this much.
constexpr std::size_t s_fewCharacters = 15;

// One variable in each, so that it is built where the caller wants it: copying text whose characters have just been
// written in pieces costs more than writing it.
std::string short_decimal(std::uint64_t magnitude, unsigned digits, unsigned sign) {
    std::string text(s_blank, s_fewCharacters);
    decimal::write(text.data() + sign, magnitude, digits);
    text.erase(digits + sign);
    return text;
}

std::string long_decimal(std::uint64_t magnitude, unsigned digits, unsigned sign) {
    std::string text(s_blank, digits + sign);
    decimal::write(text.data() + sign, magnitude, digits);
    return text;
}

std::string decimal_text(std::uint64_t magnitude, bool negative) {
    const unsigned sign = negative ? 1 : 0;
    const unsigned digits = decimal::count(magnitude);
    return digits + sign <= s_fewCharacters ? short_decimal(magnitude, digits, sign)
                                            : long_decimal(magnitude, digits, sign);
}

std::wstring decimal_wide(std::uint64_t magnitude, bool negative) {
    const std::string text = decimal_text(magnitude, negative);
    return std::wstring(text.begin(), text.end());
}

std::uint64_t magnitude_of(long long value) noexcept {
    const auto bits = static_cast<std::uint64_t>(value);
    return value < 0 ? 0 - bits : bits;
}

// 36 and above: no digit in any radix.
constexpr std::array<unsigned char, 128> s_digitValues = [] {
    std::array<unsigned char, 128> values{};
    for (unsigned c = 0; c < values.size(); ++c) {
        values[c] = static_cast<unsigned char>(c >= '0' && c <= '9'   ? c - '0'
                                               : c >= 'a' && c <= 'z' ? c - 'a' + 10
                                               : c >= 'A' && c <= 'Z' ? c - 'A' + 10
                                                                      : 0xFF);
    }
    return values;
}();

template <class Char>
unsigned digit_value(Char c) noexcept {
    const auto unit = static_cast<std::make_unsigned_t<Char>>(c);
    return unit < s_digitValues.size() ? s_digitValues[unit] : 0xFFu;
}

// The radix that a prefix at `at` names; moves `at` behind it.
template <class Char>
unsigned take_prefix(std::basic_string_view<Char> text, std::size_t& at) noexcept {
    struct Prefix {
        char letter;
        unsigned radix;
    };
    constexpr Prefix prefixes[] = {{'x', 16}, {'o', 8}, {'b', 2}};
    if (text.size() >= at + 2 && text[at] == '0') {
        for (const Prefix& prefix : prefixes) {
            if (text[at + 1] == Char(prefix.letter) || text[at + 1] == Char(prefix.letter - 'a' + 'A')) {
                at += 2;
                return prefix.radix;
            }
        }
    }
    return 10;
}

// Digits one by one, in any radix and of any number; every failure is found here.
template <class Char>
std::uint64_t read_digits(std::basic_string_view<Char> text, std::size_t at, unsigned radix, std::uint64_t max,
                          const impl::IntegerType& type, impl::ErrorSlot error) {
    const unsigned length = length32(text);
    if (at == text.size()) {
        impl::string_to_failure(text.data(), length, *type.type, error);
        return 0;
    }
    std::uint64_t value = 0;
    bool tooLarge = false;
    for (; at < text.size(); ++at) {
        const unsigned digit = digit_value(text[at]);
        if (digit >= radix) {
            impl::base_n_string_to_error_bad_numeral(text[at], radix, *type.type, text.data(), length, error);
            return 0;
        }
        // Goes on after an overflow: a text that is no number at all is told so.
        tooLarge |= __builtin_mul_overflow(value, std::uint64_t{radix}, &value);
        tooLarge |= __builtin_add_overflow(value, std::uint64_t{digit}, &value);
    }
    if (tooLarge || value > max) {
        impl::base_n_string_to_error_overflow(radix, *type.type, text.data(), length, error);
        return 0;
    }
    return value;
}

// Everything but the fast way: a sign, a prefix, digits.
template <class Char>
[[gnu::noinline]] std::uint64_t read_integer(std::basic_string_view<Char> text, unsigned radix,
                                             const impl::IntegerType& type, impl::ErrorSlot error) {
    std::size_t at = 0;
    bool negative = false;
    if (type.isSigned && !text.empty() && (text[0] == Char('-') || text[0] == Char('+'))) {
        negative = text[0] == Char('-');
        at = 1;
    }
    if (radix == 0) {
        radix = take_prefix(text, at);
    } else if (radix == 1 || radix > 36) {
        impl::base_n_string_to_error_bad_arg("radix", radix, *type.type, text.data(), length32(text), error);
        return 0;
    }
    const std::uint64_t value = read_digits(text, at, radix, negative ? type.minMagnitude : type.max, type, error);
    return negative ? 0 - value : value;
}

}  // namespace

std::string to_string(long long value) { return decimal_text(magnitude_of(value), value < 0); }
std::string to_string(unsigned long long value) { return decimal_text(value, false); }
std::wstring to_wstring(long long value) { return decimal_wide(magnitude_of(value), value < 0); }
std::wstring to_wstring(unsigned long long value) { return decimal_wide(value, false); }

namespace impl {

unsigned long long base_n_string_to_bits(std::string_view text, unsigned radix, const IntegerType& type,
                                         ErrorSlot error) {
    // Decimal numbers that surely fit 64 bits; whatever else there is goes the general way. The sign is random to a
    // branch predictor, so it is taken by arithmetic.
    if (radix == 10 && !text.empty()) {
        const std::size_t minus = type.isSigned && text[0] == '-' ? 1 : 0;
        const std::size_t count = text.size() - minus;
        std::uint64_t value = 0;
        if (count - 1 < decimal::s_safeDigits && decimal::read(text.data() + minus, count, value) &&
            value <= type.max + minus) {
            return (value ^ (0 - std::uint64_t{minus})) + minus;
        }
    }
    return read_integer(text, radix, type, error);
}

unsigned long long base_n_string_to_bits(std::wstring_view text, unsigned radix, const IntegerType& type,
                                         ErrorSlot error) {
    return read_integer(text, radix, type, error);
}

}  // namespace impl
}  // namespace nqcore
