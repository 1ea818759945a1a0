// UTF-8, UTF-16 and UCS-4: validation, repair, safe cuts, conversion.
//
//     if (!nqcore::is_valid_utf8(line)) { nqcore::make_valid_utf8(text, length, '?', nullptr); }
//     unsigned units = nqcore::utf8_to_utf16(text, length, nullptr, 0, 0, nullptr);          // measures
//     nqcore::utf8_to_utf16(text, length, buffer, units, 0, nullptr);                        // converts
//
// This is the only place of the library that knows UTF-8's byte rules. They differ from the standard's: the five- and
// six-byte forms (up to 0x7FFFFFFF) are characters, U+FEFF is not, and U+FFFE and U+FFFF pass the whole-string
// validator but not the character functions and converters. Surrogates (U+D800 to U+DFFF) are refused everywhere.
#pragma once

#include "nqcore/config.h"

#include <concepts>
#include <cstddef>
#include <span>
#include <string_view>
#include <type_traits>

namespace nqcore {

/// What is wrong with a sequence of UTF-8 bytes; each has one message.
enum class Utf8Fault : unsigned char {
    none = 0,
    invalid_first_byte = 1,  ///< 0x80 to 0xBF, 0xFE or 0xFF where a character must begin
    partial_sequence = 2,    ///< fewer bytes remain than the first byte asks for, whatever they are
    overlong = 3,            ///< a shorter form exists; in four bytes and more this is found before a bad second byte
    invalid_subsequent_byte = 4,  ///< not 0x80 to 0xBF
    surrogate = 5,                ///< U+D800 to U+DFFF
    bom_fffe = 6,                 ///< never found by the whole-string functions
    bom_feff = 7,                 ///< U+FEFF
    char_ffff = 8,                ///< never found by the whole-string functions
};

/// The first fault of a text.
struct Utf8Finding {
    Utf8Fault fault = Utf8Fault::none;
    std::size_t offset = 0;  ///< bytes before the sequence at fault; the text's length when there is no fault

    [[nodiscard]] bool is_valid() const noexcept { return fault == Utf8Fault::none; }
};

/// What a repair did.
struct Utf8Repair {
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    std::size_t firstInvalid = npos;  ///< byte offset of the first bad sequence
    std::size_t repairedBytes = 0;    ///< bytes that became the replacement
};

// ---------------------------------------------------------------------------------------------- whole strings of UTF-8

/// True when the text is valid.
///
/// In       `text`: `length` bytes, need not be terminated; 0xFFFFFFFF means "up to the NUL". Null only with length 0.
/// Threads  any, as for every function here; they touch nothing but their arguments and `errno`.
/// Cost     one pass, up to 256 bytes at a time.
[[nodiscard]] NQCORE_API bool is_valid_utf8(const char* text, unsigned length) noexcept;
/// The same for a text of any length.
[[nodiscard]] NQCORE_API bool is_valid_utf8(std::string_view text) noexcept;

/// Does nothing for a valid text.
///
/// In       as for `is_valid_utf8`.
/// Errors   "error.nqcore.string.utf8.invalid", ".overlong" or ".partial" for the first fault.
NQCORE_API void check_valid_utf8(const char* text, unsigned length);
NQCORE_API void check_valid_utf8(std::string_view text);

/// The first fault and where it is.
[[nodiscard]] NQCORE_API Utf8Finding find_invalid_utf8(std::string_view text) noexcept;

/// The fault's message, as in the error records; empty for `none`.
///
/// Lifetime a literal.
[[nodiscard]] NQCORE_API const char* utf8_fault_message(Utf8Fault fault) noexcept;

/// Repairs UTF-8 text in place; the length never changes.
///
/// In       `text`: `length` bytes, need not be terminated; 0xFFFFFFFF means "up to the NUL". Null only with length 0.
/// In       `replacement`: written over every byte of a bad sequence: its first byte and all that follow up to the next
///          byte that is ASCII or could begin a character. A sequence for which too few bytes remain is bad through to
///          the end of the text.
/// Out      `firstInvalid`: byte offset of the first bad sequence, -1 when there is none; may be null.
/// Errors   none: every input can be repaired.
/// Cost     one pass; valid stretches at the speed of `is_valid_utf8`.
NQCORE_API void make_valid_utf8(char* text, unsigned length, char replacement, int* firstInvalid) noexcept;
/// The same for a text of any length, with a count of the bytes replaced.
NQCORE_API Utf8Repair make_valid_utf8(std::span<char> text, char replacement) noexcept;

/// Where to cut so that at most `limit` bytes remain and no multi-byte sequence is split.
///
/// Returns  `length` when `limit` is not below it; otherwise the nearest place at or before `limit` that does not
///          hold a byte of 0x80 to 0xBF, or 0.
[[nodiscard]] NQCORE_API unsigned utf8_limit_length(const char* text, unsigned length, unsigned limit) noexcept;

/// Bytes of the sequence that `lead` begins.
///
/// Returns  1 to 6; 0 for a byte that begins none (0x80 to 0xBF, 0xFE, 0xFF).
[[nodiscard]] NQCORE_API unsigned utf8_sequence_length(char lead) noexcept;

// ---------------------------------------------------------------------------------------------------- one character
//
// All four return the number of units consumed or produced. 0 is failure: `errno` is EINVAL for a character that is
// refused and ENOMEM for an output that is full. U+D800 to U+DFFF, U+FEFF, U+FFFE and U+FFFF are refused. A null output
// only measures.

/// Decodes the first character of a UTF-8 text.
///
/// Out      `codePoint`: up to 0x7FFFFFFF; untouched on failure; may be null.
/// Returns  bytes consumed, 1 to 6; 0 without touching `errno` when `length` is 0.
NQCORE_API unsigned utf8_to_ucs4_char(const char* text, unsigned length, unsigned* codePoint) noexcept;

/// Encodes one code point, up to 0x7FFFFFFF, as UTF-8.
///
/// In       `outEnd`: end of the room at `out`.
/// Returns  bytes produced, 1 to 6. A two-byte character that meets one free byte fills it before it fails.
NQCORE_API unsigned ucs4_char_to_utf8(unsigned codePoint, char* out, char* outEnd) noexcept;

/// Encodes one code point, up to 0x10FFFF, as UTF-16.
///
/// In       `outEnd`: end of the room at `out`.
/// Returns  units produced, 1 or 2. A pair that meets one free unit fills it before it fails.
NQCORE_API unsigned ucs4_char_to_utf16(unsigned codePoint, unsigned short* out, unsigned short* outEnd) noexcept;

/// Decodes the first character of a UTF-16 text.
///
/// Out      `codePoint`: untouched on failure; may be null.
/// Returns  units consumed, 1 or 2; 0 without touching `errno` when `length` is 0.
NQCORE_API unsigned utf16_to_ucs4_char(const unsigned short* text, unsigned length, unsigned* codePoint) noexcept;

// ---------------------------------------------------------------------------------------------------------- strings
//
// All converters take (source, source length, destination, capacity, replacement, firstInvalid):
//
// In       `length`: source units. 0xFFFFFFFF means "terminated by a zero unit"; the terminator is converted and
//          counted too. Null source only with length 0.
// In       `destination`: null only measures: the same walk and the same errors, nothing is written.
// In       `replacement`: 0 throws at the first invalid character; any other value is written as one unit in its place.
// Out      `firstInvalid`: index, in source units, of the first invalid character, -1 when there is none; may be null.
// Returns  destination units written, or needed when measuring. 0 with `errno` ENOMEM when the destination is full or
//          the count exceeds 0xFFFFFFFF; what has been written stays, and nothing is ever written past the capacity.
//          Units between the result and the capacity are left as they are.
// Errors   "error.nqcore.string.conversion" when there is no replacement; for invalid UTF-8 its cause is the fault that
//          `check_valid_utf8` finds from the invalid character on, if it finds one.
// Cost     one pass; no allocation.

/// UTF-8 to UTF-16. A code point above 0x10FFFF is invalid: it has no UTF-16 form.
NQCORE_API unsigned utf8_to_utf16(const char* source, unsigned length, unsigned short* destination, unsigned capacity,
                                  unsigned short replacement, int* firstInvalid);

/// UTF-8 to the platform's wide text: UTF-16 where `wchar_t` has 16 bits (as `utf8_to_utf16`), UCS-4 where it has 32
/// (as `utf8_to_ucs4`).
NQCORE_API unsigned utf8_to_wstr(const char* source, unsigned length, wchar_t* destination, unsigned capacity,
                                 wchar_t replacement, int* firstInvalid);

/// UTF-8 to UCS-4.
///
/// Returns  as above, but a full destination sets EINVAL, and is noticed before the next character is looked at.
NQCORE_API unsigned utf8_to_ucs4(const char* source, unsigned length, unsigned* destination, unsigned capacity,
                                 unsigned replacement, int* firstInvalid);

/// UTF-16 to UTF-8.
NQCORE_API unsigned utf16_to_utf8(const unsigned short* source, unsigned length, char* destination, unsigned capacity,
                                  char replacement, int* firstInvalid);

/// The platform's wide text to UTF-8: `utf16_to_utf8` or `ucs4_to_utf8`, by the size of `wchar_t`.
NQCORE_API unsigned wstr_to_utf8(const wchar_t* source, unsigned length, char* destination, unsigned capacity,
                                 char replacement, int* firstInvalid);

/// UCS-4 to UTF-8.
///
/// Returns  as above; measuring counts a code point of 0x80000000 and above as 6 bytes, though writing refuses it.
NQCORE_API unsigned ucs4_to_utf8(const unsigned* source, unsigned length, char* destination, unsigned capacity,
                                 char replacement, int* firstInvalid);

// ------------------------------------------------------------------------------- the same for char16_t and char32_t
//
// Templates, so that a literal null still means the functions above.

template <std::same_as<char32_t> CodePoint>
unsigned utf8_to_ucs4_char(const char* text, unsigned length, CodePoint* codePoint) noexcept {
    return utf8_to_ucs4_char(text, length, reinterpret_cast<unsigned*>(codePoint));
}

template <std::same_as<char16_t> Unit>
unsigned ucs4_char_to_utf16(unsigned codePoint, Unit* out, Unit* outEnd) noexcept {
    return ucs4_char_to_utf16(codePoint, reinterpret_cast<unsigned short*>(out),
                              reinterpret_cast<unsigned short*>(outEnd));
}

template <std::same_as<char16_t> Unit, class CodePoint>
    requires std::same_as<CodePoint, char32_t> || std::same_as<CodePoint, unsigned>
unsigned utf16_to_ucs4_char(const Unit* text, unsigned length, CodePoint* codePoint) noexcept {
    return utf16_to_ucs4_char(reinterpret_cast<const unsigned short*>(text), length,
                              reinterpret_cast<unsigned*>(codePoint));
}

template <std::same_as<char16_t> Unit>
unsigned utf16_to_ucs4_char(const Unit* text, unsigned length, std::nullptr_t) noexcept {
    return utf16_to_ucs4_char(reinterpret_cast<const unsigned short*>(text), length, nullptr);
}

template <std::same_as<char16_t> Unit>
unsigned utf8_to_utf16(const char* source, unsigned length, Unit* destination, unsigned capacity,
                       std::type_identity_t<Unit> replacement, int* firstInvalid) {
    return utf8_to_utf16(source, length, reinterpret_cast<unsigned short*>(destination), capacity, replacement,
                         firstInvalid);
}

template <std::same_as<char32_t> CodePoint>
unsigned utf8_to_ucs4(const char* source, unsigned length, CodePoint* destination, unsigned capacity,
                      std::type_identity_t<CodePoint> replacement, int* firstInvalid) {
    return utf8_to_ucs4(source, length, reinterpret_cast<unsigned*>(destination), capacity, replacement, firstInvalid);
}

template <std::same_as<char16_t> Unit>
unsigned utf16_to_utf8(const Unit* source, unsigned length, char* destination, unsigned capacity, char replacement,
                       int* firstInvalid) {
    return utf16_to_utf8(reinterpret_cast<const unsigned short*>(source), length, destination, capacity, replacement,
                         firstInvalid);
}

template <std::same_as<char32_t> CodePoint>
unsigned ucs4_to_utf8(const CodePoint* source, unsigned length, char* destination, unsigned capacity, char replacement,
                      int* firstInvalid) {
    return ucs4_to_utf8(reinterpret_cast<const unsigned*>(source), length, destination, capacity, replacement,
                        firstInvalid);
}

}  // namespace nqcore
