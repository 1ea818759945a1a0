#include "nqcore/string_to.h"

#include "kernels/ascii_fold.h"
#include "text_length.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

namespace nqcore::impl {
namespace {

// Texts of so many characters and more are refused unread.
constexpr std::size_t s_tooLong = 128;
// The largest float as it is written in decimal.
constexpr double s_largestFloat = 3.4028234663852886e38;

constexpr bool is_digit(char c) noexcept { return static_cast<unsigned char>(c - '0') < 10; }

constexpr bool is_hex_digit(char c) noexcept {
    return is_digit(c) || static_cast<unsigned char>(kernels::lower_ascii(c) - 'a') < 6;
}

// --------------------------------------------------------------------------------------------------- the fast way
//
// W. D. Clinger, "How to Read Floating Point Numbers Accurately" (1990): an integer up to 2^53 and a power of ten up to
// 10^22 are both exact as doubles, so that their one product or quotient is the nearest double.

constexpr double s_powersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int s_largestPower = 22;
constexpr std::uint64_t s_largestExact = std::uint64_t{1} << 53;
// Leading zeros included; more may not fit 64 bits.
constexpr std::ptrdiff_t s_mostDigits = 19;
// A sign, a point, and an exponent of three digits with its letter and sign.
constexpr std::ptrdiff_t s_mostOthers = 7;

// Reads digits onto the end of `number`; stops at the first other character.
inline const char* read_digits(const char* at, const char* end, std::uint64_t& number) noexcept {
    for (; at != end && is_digit(*at); ++at) {
        number = number * 10 + static_cast<unsigned>(*at - '0');
    }
    return at;
}

enum class Reading {
    done,     // the value is there
    inexact,  // a plain decimal number that one operation cannot give
    other,    // anything else, numbers in other forms among it
};

// [-] digits [. digits] [e [sign] digits]
Reading read_plain(std::string_view text, double& value) noexcept {
    const char* at = text.data();
    const char* const end = at + text.size();
    if (end - at > s_mostDigits + s_mostOthers) {
        return Reading::other;
    }
    const bool negative = at != end && *at == '-';
    at += negative ? 1 : 0;
    std::uint64_t mantissa = 0;
    const char* const first = at;
    at = read_digits(at, end, mantissa);
    std::ptrdiff_t count = at - first;
    int exponent = 0;
    if (at != end && *at == '.') {
        const char* const point = ++at;
        at = read_digits(at, end, mantissa);
        count += at - point;
        exponent = static_cast<int>(point - at);
    }
    if (count == 0 || count > s_mostDigits) {
        return Reading::other;
    }
    if (at != end) {
        if (kernels::lower_ascii(*at) != 'e' || ++at == end) {
            return Reading::other;
        }
        const bool minus = *at == '-';
        at += minus || *at == '+' ? 1 : 0;
        std::uint64_t written = 0;
        if (at == end || end - at > 3 || read_digits(at, end, written) != end) {
            return Reading::other;
        }
        exponent += minus ? -static_cast<int>(written) : static_cast<int>(written);
    }
    if (mantissa > s_largestExact || exponent < -s_largestPower || exponent > s_largestPower) {
        return Reading::inexact;
    }
    // Signed: a conversion that every target does in one instruction.
    const auto exact = static_cast<double>(static_cast<std::int64_t>(mantissa));
    const double magnitude = exponent < 0 ? exact / s_powersOfTen[-exponent] : exact * s_powersOfTen[exponent];
    value = negative ? -magnitude : magnitude;
    return Reading::done;
}

// ------------------------------------------------------------------------------------------------ the general way
//
// The grammar of `strtod` in the "C" locale around `std::from_chars`, which rounds correctly on every target (the C
// runtimes do not agree) and never asks a locale.

bool starts_with_nocase(std::string_view text, std::string_view word) noexcept {
    return text.size() >= word.size() && string_equal_nocase_ascii(text.substr(0, word.size()), word);
}

// "inf", "infinity", "nan", "nan(" letters, digits, underscores ")".
bool read_named(std::string_view text, double& value) noexcept {
    if (string_equal_nocase_ascii(text, "inf") || string_equal_nocase_ascii(text, "infinity")) {
        value = std::numeric_limits<double>::infinity();
        return true;
    }
    if (!starts_with_nocase(text, "nan")) {
        return false;
    }
    std::string_view tail = text.substr(3);
    if (!tail.empty()) {
        if (tail.front() != '(' || tail.back() != ')') {
            return false;
        }
        tail = tail.substr(1, tail.size() - 2);
        for (const char c : tail) {
            if (!is_digit(c) && static_cast<unsigned char>(kernels::lower_ascii(c) - 'a') >= 26 && c != '_') {
                return false;
            }
        }
    }
    value = std::numeric_limits<double>::quiet_NaN();
    return true;
}

// Tells a number that is too large for a double from one that is too small, which `from_chars` does not.
//
// In       `text`: a number other than 0 that is one of the two. The digits of so short a text span less than a double's
//          range, so that only the exponent can have led out of it.
bool is_too_large(std::string_view text) noexcept { return text.find('-') == text.npos; }

bool read_unsigned(std::string_view text, bool hex, double& value) noexcept {
    const char* const end = text.data() + text.size();
    const auto [stop, code] =
        std::from_chars(text.data(), end, value, hex ? std::chars_format::hex : std::chars_format::general);
    if (stop != end) {
        return false;
    }
    if (code == std::errc::result_out_of_range) {
        value = is_too_large(text) ? std::numeric_limits<double>::infinity() : 0.0;
        return true;
    }
    return code == std::errc();
}

bool read_any(std::string_view text, double& value) noexcept {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    // What begins a number: a digit, or a point and a digit. `from_chars` by itself would take a second sign.
    const auto begins = [](std::string_view rest, bool (*digit)(char)) noexcept {
        const std::size_t at = !rest.empty() && rest.front() == '.' ? 1 : 0;
        return rest.size() > at && digit(rest[at]);
    };
    bool read = false;
    if (starts_with_nocase(text, "0x") && begins(text.substr(2), is_hex_digit)) {
        read = read_unsigned(text.substr(2), true, value);
    } else if (begins(text, is_digit)) {
        read = read_unsigned(text, false, value);
    } else {
        read = read_named(text, value);
    }
    if (read && negative) {
        value = -value;
    }
    return read;
}

// ---------------------------------------------------------------------------------------------------------- both

[[gnu::noinline]] bool read_slowly(std::string_view text, Reading reading, double& value) noexcept {
    if (reading == Reading::inexact &&
        std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc()) {
        return true;
    }
    if (text.empty()) {
        value = 0.0;
        return true;
    }
    return text.size() < s_tooLong && read_any(text, value);
}

bool read_double(std::string_view text, double& value) noexcept {
    const Reading reading = read_plain(text, value);
    return reading == Reading::done || read_slowly(text, reading, value);
}

// Numbers are ASCII: a wide character that is not makes the text no number.
bool read_double(std::wstring_view text, double& value) noexcept {
    char narrow[s_tooLong];
    if (text.size() >= s_tooLong) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto unit = static_cast<std::make_unsigned_t<wchar_t>>(text[i]);
        narrow[i] = unit < 0x80 ? static_cast<char>(unit) : '?';
    }
    return read_double(std::string_view(narrow, text.size()), value);
}

template <class Char>
double to_double(std::basic_string_view<Char> text, ErrorSlot error) {
    double value = 0;
    if (!read_double(text, value)) {
        string_to_failure(text.data(), length32(text), typeid(double), error);
        return std::numeric_limits<double>::quiet_NaN();
    }
    return value;
}

template <class Char>
float to_float(std::basic_string_view<Char> text, ErrorSlot error) {
    double value = 0;
    if (!read_double(text, value)) {
        string_to_failure(text.data(), length32(text), typeid(float), error);
        return std::numeric_limits<float>::quiet_NaN();
    }
    if (std::fabs(value) > s_largestFloat) {
        string_to_failure(text.data(), length32(text), typeid(float), error);
    }
    return static_cast<float>(value);
}

}  // namespace

double string_to_double(std::string_view text, ErrorSlot error) { return to_double(text, error); }
double string_to_double(std::wstring_view text, ErrorSlot error) { return to_double(text, error); }
float string_to_float(std::string_view text, ErrorSlot error) { return to_float(text, error); }
float string_to_float(std::wstring_view text, ErrorSlot error) { return to_float(text, error); }

}  // namespace nqcore::impl
