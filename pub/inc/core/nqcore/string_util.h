// ASCII utilities that know no locale: compare, hash and fold text, and scrub payment-card numbers out of it.
//
//     if (nqcore::string_equal_nocase_ascii(header, "content-length")) { ... }
//     nqcore::mask_credit_card_numbers_in_place(line);   // "card 4111111111111111 ok" -> "card 41111-------1111 ok"
//
// Only 'A' to 'Z' and 'a' to 'z' are letters here; every other byte stands for itself. A length of 0xFFFFFFFF means
// "up to the NUL"; a null pointer counts as empty text. (Include <string> to use the functions that return one.)
#pragma once

#include "nqcore/config.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string_view>

namespace nqcore {

namespace impl {

/// The text that a pointer and a length stand for.
template <class Char>
[[nodiscard]] constexpr std::basic_string_view<Char> measured_text(const Char* text, unsigned length) noexcept {
    if (text == nullptr) {
        return {};
    }
    return length == 0xFFFFFFFFu ? std::basic_string_view<Char>(text) : std::basic_string_view<Char>(text, length);
}

/// Equality of two texts of the same length, without regard to case.
[[nodiscard]] NQCORE_API bool equal_nocase_ascii(const char* a, const char* b, std::size_t length) noexcept;

}  // namespace impl

/// Compares without regard to case.
///
/// Returns  at the first difference within the shorter text: folded a - folded b, both taken as signed bytes; when
///          there is none: length of a - length of b, held within `int`.
[[nodiscard]] NQCORE_API int compare_nocase_ascii(std::string_view a, std::string_view b) noexcept;
[[nodiscard]] inline int compare_nocase_ascii(const char* a, unsigned aLength, const char* b,
                                              unsigned bLength) noexcept {
    return compare_nocase_ascii(impl::measured_text(a, aLength), impl::measured_text(b, bLength));
}

/// True when the texts have the same length and differ in the case of letters at most.
///
/// Cost     nothing but the comparison of the lengths when they differ; up to 128 bytes at a time.
[[nodiscard]] inline bool string_equal_nocase_ascii(std::string_view a, std::string_view b) noexcept {
    return a.size() == b.size() && impl::equal_nocase_ascii(a.data(), b.data(), a.size());
}
[[nodiscard]] inline bool string_equal_nocase_ascii(const char* a, unsigned aLength, const char* b,
                                                    unsigned bLength) noexcept {
    return string_equal_nocase_ascii(impl::measured_text(a, aLength), impl::measured_text(b, bLength));
}

/// A hash that is the same for texts that differ in case only; stable across processes and targets.
///
/// Returns  h = 0, then h = h * 5 + c (32 bits, wrapping) for each folded byte; bytes of 0x80 and above are added as
///          negative numbers.
[[nodiscard]] NQCORE_API std::uint32_t string_hash_lowercase_ascii(std::string_view text) noexcept;
[[nodiscard]] inline std::uint32_t string_hash_lowercase_ascii(const char* text, unsigned length) noexcept {
    return string_hash_lowercase_ascii(impl::measured_text(text, length));
}
/// The same over the upper-case form; its values differ from those of the lower-case form.
[[nodiscard]] NQCORE_API std::uint32_t string_hash_uppercase_ascii(std::string_view text) noexcept;
[[nodiscard]] inline std::uint32_t string_hash_uppercase_ascii(const char* text, unsigned length) noexcept {
    return string_hash_uppercase_ascii(impl::measured_text(text, length));
}

/// A copy with its letters in lower case.
///
/// Errors   `std::bad_alloc`, `std::length_error`.
[[nodiscard]] NQCORE_API std::string to_lower_ascii(std::string_view text);
[[nodiscard]] NQCORE_API std::string to_lower_ascii(const char* text, unsigned length);
/// A copy with its letters in upper case.
///
/// Errors   `std::bad_alloc`, `std::length_error`.
[[nodiscard]] NQCORE_API std::string to_upper_ascii(std::string_view text);
[[nodiscard]] NQCORE_API std::string to_upper_ascii(const char* text, unsigned length);

/// Folds in place.
NQCORE_API void to_lower_ascii_inplace(std::string& text) noexcept;
NQCORE_API void to_upper_ascii_inplace(std::string& text) noexcept;

/// Overwrites the middle of payment-card numbers with '-', in place; the length never changes.
///
/// A number is a whole run of 12 to 16 digits that starts with '1' to '6', does not follow a '/', and passes the Luhn
/// check. Its first five and last four digits stay. Runs that start within the last 12 bytes of the text are left
/// alone, so a text that is nothing but a 12-digit number stays as it is.
///
/// Returns  how many numbers were masked.
/// Cost     one pass; text without long runs of digits goes 32 bytes at a time.
/// Example  "card 4111111111111111 end" becomes "card 41111-------1111 end".
NQCORE_API std::size_t mask_credit_card_numbers_in_place(char* text, unsigned length) noexcept;
NQCORE_API std::size_t mask_credit_card_numbers_in_place(std::string& text) noexcept;

/// For callers that hold text with a NUL in it and must hand it on as a C string.
///
/// Errors   "error.nqcore.string.embeddedNul", always.
[[noreturn]] NQCORE_API NQCORE_COLD void raise_embedded_nul_error();

namespace impl {

using nqcore::mask_credit_card_numbers_in_place;
using nqcore::raise_embedded_nul_error;

}  // namespace impl

}  // namespace nqcore
