// Text to values and back: numbers, booleans, and text between UTF-8 and the wide forms.
//
//     int port = nqcore::string_to<int>("8080");                        // throws when it is not one
//     nqcore::RefCountPtr<const nqcore::ErrorInfo> error;
//     double load = nqcore::string_to<double>(field, &error);           // tells instead of throwing
//     std::string text = nqcore::to_string(port) + nqcore::to_string(L" \u00E9");
//
// Nothing depends on a locale. Where a pointer comes with a length, 0xFFFFFFFF means "up to the NUL", and a null
// pointer counts as empty text. Wide text is UTF-16 where wchar_t has 16 bits and code points where it has 32.
// (Include <string> to use the functions that return one, nqcore/error_info.h to declare an error slot.)
#pragma once

#include "nqcore/config.h"
#include "nqcore/string_util.h"

#include <iosfwd>
#include <string_view>
#include <type_traits>
#include <typeinfo>

namespace nqcore {

class ErrorInfo;
template <class T>
class RefCountPtr;

namespace impl {

template <class T, class... Others>
inline constexpr bool is_one_of = (std::is_same_v<T, Others> || ...);

// The integer types that hold numbers. `char` is one; the other character types and `bool` are not.
template <class T>
concept NumberType = std::is_integral_v<T> && sizeof(T) <= sizeof(long long) &&
                     !is_one_of<T, bool, wchar_t, char8_t, char16_t, char32_t>;

// The 64-bit form that integers of type `T` are widened to.
template <class T>
using Widest = std::conditional_t<std::is_signed_v<T>, long long, unsigned long long>;

// `std::basic_string<Char>`, spelt so that a template may return it where <string> is not included.
template <class T, class Char>
using StringOf = std::basic_string<std::conditional_t<std::is_void_v<T>, void, Char>>;

/// Where a failure goes. Null: it is thrown as an `ErrorException`. Otherwise the record is stored there, replacing
/// what was there, and the function returns its default value. Success leaves the slot alone.
using ErrorSlot = RefCountPtr<const ErrorInfo>*;

}  // namespace impl

/// A number in plain decimal, '-' first when it is negative.
///
/// A `char` is a number too: `to_string('A')` is "65".
/// Errors   `std::bad_alloc`.
[[nodiscard]] NQCORE_API std::string to_string(long long value);
[[nodiscard]] NQCORE_API std::string to_string(unsigned long long value);
template <impl::NumberType T>
[[nodiscard]] impl::StringOf<T, char> to_string(T value) {
    return to_string(static_cast<impl::Widest<T>>(value));
}
[[nodiscard]] NQCORE_API std::wstring to_wstring(long long value);
[[nodiscard]] NQCORE_API std::wstring to_wstring(unsigned long long value);
template <impl::NumberType T>
[[nodiscard]] impl::StringOf<T, wchar_t> to_wstring(T value) {
    return to_wstring(static_cast<impl::Widest<T>>(value));
}

namespace impl {

[[nodiscard]] NQCORE_API std::string bool_to_string(bool value);
[[nodiscard]] NQCORE_API std::wstring bool_to_wstring(bool value);

}  // namespace impl

/// "true" or "false". Templates, so that no pointer turns into a `bool` unseen.
template <class T>
    requires(std::is_same_v<T, bool>)
[[nodiscard]] impl::StringOf<T, char> to_string(T value) {
    return impl::bool_to_string(value);
}
template <class T>
    requires(std::is_same_v<T, bool>)
[[nodiscard]] impl::StringOf<T, wchar_t> to_wstring(T value) {
    return impl::bool_to_wstring(value);
}

/// Wide text as UTF-8.
///
/// Errors   "error.nqcore.string.conversion" for a unit that is no character; `std::length_error` for 536870912 units
///          and more; `std::bad_alloc`.
/// Cost     below 1,000 units one pass through a buffer on the stack; from there on one pass to measure, one to convert.
[[nodiscard]] NQCORE_API std::string to_string(const wchar_t* text, unsigned length);
[[nodiscard]] NQCORE_API std::string to_string(const wchar_t* text);
[[nodiscard]] NQCORE_API std::string to_string(std::wstring_view text);
/// The same, repairing.
///
/// In       `replacement`: written for each unit that is no character; 0 refuses them as above.
/// Out      `firstInvalid`: index of the first such unit, -1 when there is none; may be null.
[[nodiscard]] NQCORE_API std::string to_string(const wchar_t* text, unsigned length, char replacement,
                                               int* firstInvalid);

/// UTF-16 as UTF-8, as for wide text.
[[nodiscard]] NQCORE_API std::string to_string(const char16_t* text, unsigned length);
[[nodiscard]] NQCORE_API std::string to_string(std::u16string_view text);
[[nodiscard]] NQCORE_API std::string to_string(const char16_t* text, unsigned length, char replacement,
                                               int* firstInvalid);

/// UTF-8 as wide text.
///
/// Errors   "error.nqcore.string.conversion" for a sequence that is no character; `std::length_error` for 536870912
///          bytes and more; `std::bad_alloc`.
/// Cost     as for `to_string`.
[[nodiscard]] NQCORE_API std::wstring to_wstring(const char* text, unsigned length);
[[nodiscard]] NQCORE_API std::wstring to_wstring(const char* text);
[[nodiscard]] NQCORE_API std::wstring to_wstring(std::string_view text);
/// The same, repairing.
///
/// In       `replacement`: written for each sequence that is no character; 0 refuses them as above.
/// Out      `firstInvalid`: byte offset of the first such sequence, -1 when there is none; may be null.
[[nodiscard]] NQCORE_API std::wstring to_wstring(const char* text, unsigned length, wchar_t replacement,
                                                 int* firstInvalid);
/// A copy, for code that is generic in the type of its text.
[[nodiscard]] NQCORE_API std::wstring to_wstring(const wchar_t* text);
[[nodiscard]] NQCORE_API std::wstring to_wstring(std::wstring_view text);

/// UTF-8 as UTF-16, as for wide text.
[[nodiscard]] NQCORE_API std::u16string to_u16string(const char* text, unsigned length);
[[nodiscard]] NQCORE_API std::u16string to_u16string(std::string_view text);
[[nodiscard]] NQCORE_API std::u16string to_u16string(const char* text, unsigned length, char16_t replacement,
                                                     int* firstInvalid);

namespace impl {

/// What the integer parser must know of a type.
struct IntegerType {
    unsigned long long max;
    unsigned long long minMagnitude;  ///< of the most negative value; 0 for unsigned types
    bool isSigned;
    const std::type_info* type;
};

template <NumberType T>
inline constexpr IntegerType s_integerType = {
    std::is_signed_v<T> ? (~0ull >> (65 - 8 * sizeof(T))) : (~0ull >> (64 - 8 * sizeof(T))),
    std::is_signed_v<T> ? (~0ull >> (65 - 8 * sizeof(T))) + 1 : 0, std::is_signed_v<T>, &typeid(T)};

/// The integer that a text stands for, as the bits of the 64-bit number; the rules are those of `base_n_string_to`.
[[nodiscard]] NQCORE_API unsigned long long base_n_string_to_bits(std::string_view text, unsigned radix,
                                                                  const IntegerType& type, ErrorSlot error);
[[nodiscard]] NQCORE_API unsigned long long base_n_string_to_bits(std::wstring_view text, unsigned radix,
                                                                  const IntegerType& type, ErrorSlot error);

/// True for "1", "true", "yes", "y"; false for "0", "false", "no", "n"; without regard to case.
///
/// Errors   the conversion failure for anything else; the default is false.
[[nodiscard]] NQCORE_API bool string_to_bool(std::string_view text, ErrorSlot error);
[[nodiscard]] NQCORE_API bool string_to_bool(std::wstring_view text, ErrorSlot error);

/// The nearest double of a text that is a number as a whole, in any form that `strtod` reads in the "C" locale: blanks
/// first, sign, decimal or "0x" digits with a point, exponent, "inf", "infinity", "nan". Empty text is 0.0.
///
/// Range    texts below 128 characters. A number that is too large gives an infinity, one too small 0, as `strtod`.
/// Errors   the conversion failure for anything else; the default is a quiet NaN.
/// Cost     no allocation; up to 15 digits with a small exponent need one multiplication or division.
[[nodiscard]] NQCORE_API double string_to_double(std::string_view text, ErrorSlot error);
[[nodiscard]] NQCORE_API double string_to_double(std::wstring_view text, ErrorSlot error);
/// The nearest double, rounded to float.
///
/// Errors   as for double, and for a magnitude above 3.4028234663852886e38, infinities included; the default is then
///          the number converted to float.
[[nodiscard]] NQCORE_API float string_to_float(std::string_view text, ErrorSlot error);
[[nodiscard]] NQCORE_API float string_to_float(std::wstring_view text, ErrorSlot error);

/// UTF-8 as it stands; wide text converted.
[[nodiscard]] NQCORE_API std::string string_to_string(std::string_view text, ErrorSlot error);
[[nodiscard]] NQCORE_API std::string string_to_string(std::wstring_view text, ErrorSlot error);

// The pointer-and-length forms.
[[nodiscard]] inline bool string_to_bool(const char* text, unsigned length, ErrorSlot error) {
    return string_to_bool(measured_text(text, length), error);
}
[[nodiscard]] inline bool string_to_bool(const wchar_t* text, unsigned length, ErrorSlot error) {
    return string_to_bool(measured_text(text, length), error);
}
[[nodiscard]] inline double string_to_double(const char* text, unsigned length, ErrorSlot error) {
    return string_to_double(measured_text(text, length), error);
}
[[nodiscard]] inline double string_to_double(const wchar_t* text, unsigned length, ErrorSlot error) {
    return string_to_double(measured_text(text, length), error);
}
[[nodiscard]] inline float string_to_float(const char* text, unsigned length, ErrorSlot error) {
    return string_to_float(measured_text(text, length), error);
}
[[nodiscard]] inline float string_to_float(const wchar_t* text, unsigned length, ErrorSlot error) {
    return string_to_float(measured_text(text, length), error);
}

/// Delivers `nqcore::string_to<{@type}>("{@text}") conversion failed.`
///
/// In       `text`: becomes a parameter, cut to 128 bytes at a character boundary.
/// Errors   "error.nqcore.string.extraction", thrown or stored as the slot says.
NQCORE_API NQCORE_COLD void string_to_failure(const char* text, unsigned length, const std::type_info& type,
                                              ErrorSlot error);
NQCORE_API NQCORE_COLD void string_to_failure(const wchar_t* text, unsigned length, const std::type_info& type,
                                              ErrorSlot error);

// The failures of integer parsing. The parameter `text` is the input in quotes, cut to 128 bytes at a character
// boundary and marked with "..." when cut.

/// An argument of the conversion itself is wrong, such as a radix of 37.
NQCORE_API NQCORE_COLD void base_n_string_to_error_bad_arg(const char* name, long long value,
                                                           const std::type_info& type, const char* text,
                                                           unsigned length, ErrorSlot error);
NQCORE_API NQCORE_COLD void base_n_string_to_error_bad_arg(const char* name, long long value,
                                                           const std::type_info& type, const wchar_t* text,
                                                           unsigned length, ErrorSlot error);
/// A character is no digit in this radix.
///
/// In       `character`: a unit of `text`. Where it begins a longer character the whole of that is reported.
NQCORE_API NQCORE_COLD void base_n_string_to_error_bad_numeral(char character, unsigned radix,
                                                               const std::type_info& type, const char* text,
                                                               unsigned length, ErrorSlot error);
NQCORE_API NQCORE_COLD void base_n_string_to_error_bad_numeral(wchar_t character, unsigned radix,
                                                               const std::type_info& type, const wchar_t* text,
                                                               unsigned length, ErrorSlot error);
/// The number lies outside the type, on either side.
NQCORE_API NQCORE_COLD void base_n_string_to_error_overflow(unsigned radix, const std::type_info& type,
                                                            const char* text, unsigned length, ErrorSlot error);
NQCORE_API NQCORE_COLD void base_n_string_to_error_overflow(unsigned radix, const std::type_info& type,
                                                            const wchar_t* text, unsigned length, ErrorSlot error);

template <class T>
inline constexpr bool never = false;

// One body for narrow and wide text.
template <class T, class Char>
[[nodiscard]] T string_to_value(std::basic_string_view<Char> text, ErrorSlot error) {
    if constexpr (NumberType<T>) {
        return static_cast<T>(base_n_string_to_bits(text, 10, s_integerType<T>, error));
    } else if constexpr (std::is_same_v<T, bool>) {
        return string_to_bool(text, error);
    } else if constexpr (std::is_same_v<T, double>) {
        return string_to_double(text, error);
    } else if constexpr (std::is_same_v<T, float>) {
        return string_to_float(text, error);
    } else if constexpr (std::is_same_v<T, std::basic_string<char>>) {
        return string_to_string(text, error);
    } else {
        static_assert(never<T>, "string_to<T> knows integers, bool, float, double and std::string");
    }
}

}  // namespace impl

/// The value that a text stands for; the whole text counts.
///
/// In       `T`: an integer type (decimal, no blanks, a sign for signed types only; `char` is a number), `bool`,
///          `float`, `double` (see `impl::string_to_bool`, `impl::string_to_double`), `std::string`.
/// In       `error`: null throws a failure as an `ErrorException`; otherwise its record is stored there and the default
///          is returned: 0, false, NaN, "". Success leaves `*error` alone.
/// Errors   "error.nqcore.string.extraction".
/// Example  `string_to<int>("-17")` is -17; `string_to<unsigned char>("256")` fails.
template <class T>
[[nodiscard]] T string_to(std::string_view text, RefCountPtr<const ErrorInfo>* error = nullptr) {
    return impl::string_to_value<T, char>(text, error);
}
template <class T>
[[nodiscard]] T string_to(const char* text, unsigned length, RefCountPtr<const ErrorInfo>* error = nullptr) {
    return impl::string_to_value<T, char>(impl::measured_text(text, length), error);
}
template <class T>
[[nodiscard]] T string_to(std::wstring_view text, RefCountPtr<const ErrorInfo>* error = nullptr) {
    return impl::string_to_value<T, wchar_t>(text, error);
}
template <class T>
[[nodiscard]] T string_to(const wchar_t* text, unsigned length, RefCountPtr<const ErrorInfo>* error = nullptr) {
    return impl::string_to_value<T, wchar_t>(impl::measured_text(text, length), error);
}

/// The integer that a text stands for in a given radix.
///
/// In       `radix`: 2 to 36, digits '0' to '9' and letters of either case; a prefix is not part of the number then.
///          0 reads the radix from a prefix after the sign: "0x" 16, "0o" 8, "0b" 2 (or in upper case), none 10.
/// In       `text`: signed types take one '+' or '-' first, unsigned types none; no blanks, no separators.
/// Errors   as `string_to`: a wrong radix, a character that is no digit, a number outside the type; and the conversion
///          failure for a text without digits.
/// Example  `base_n_string_to<unsigned>("ff", 16)` is 255; `base_n_string_to<int>("-0x10", 0)` is -16.
template <impl::NumberType T>
[[nodiscard]] T base_n_string_to(std::string_view text, unsigned radix, RefCountPtr<const ErrorInfo>* error = nullptr) {
    return static_cast<T>(impl::base_n_string_to_bits(text, radix, impl::s_integerType<T>, error));
}
template <impl::NumberType T>
[[nodiscard]] T base_n_string_to(std::wstring_view text, unsigned radix,
                                 RefCountPtr<const ErrorInfo>* error = nullptr) {
    return static_cast<T>(impl::base_n_string_to_bits(text, radix, impl::s_integerType<T>, error));
}

}  // namespace nqcore
