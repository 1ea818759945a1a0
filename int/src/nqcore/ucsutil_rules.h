// The scalar rules of UTF-8, UTF-16 and UCS-4: every fault, offset and refusal comes from here. The kernels only speed
// up text about which these rules would have nothing to say.
#pragma once

#include "nqcore/ucsutil.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace nqcore::impl {

using Utf8Byte = unsigned char;

// Texts arrive as unsigned short, unsigned, char16_t, char32_t and wchar_t. All are read and written as these, which
// may alias them. (They are classes because templates drop the attribute of other types.)
struct [[gnu::may_alias]] Utf16Unit {
    unsigned short value;

    constexpr operator unsigned() const noexcept { return value; }
};
struct [[gnu::may_alias]] Ucs4Unit {
    unsigned value;

    constexpr operator unsigned() const noexcept { return value; }
};
static_assert(sizeof(Utf16Unit) == sizeof(char16_t) && sizeof(Ucs4Unit) == sizeof(char32_t));

template <class Unit>
constexpr Unit make_unit(unsigned value) noexcept {
    if constexpr (sizeof(Unit) == 1) {
        return static_cast<Unit>(value);
    } else {
        return {static_cast<decltype(Unit::value)>(value)};
    }
}

constexpr bool is_continuation(Utf8Byte byte) noexcept { return (byte & 0xC0u) == 0x80; }
constexpr bool is_high_surrogate(unsigned unit) noexcept { return (unit & 0xFFFFFC00u) == 0xD800; }
constexpr bool is_low_surrogate(unsigned unit) noexcept { return (unit & 0xFFFFFC00u) == 0xDC00; }
constexpr bool is_surrogate(unsigned unit) noexcept { return (unit & 0xFFFFF800u) == 0xD800; }

/// True for the code points that no character function lets through.
constexpr bool is_refused(unsigned codePoint) noexcept {
    return is_surrogate(codePoint) || codePoint == 0xFEFF || codePoint == 0xFFFE || codePoint == 0xFFFF;
}

constexpr unsigned sequence_length(Utf8Byte lead) noexcept {
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xC0) {
        return 0;
    }
    if (lead < 0xF0) {
        return lead < 0xE0 ? 2 : 3;
    }
    return lead < 0xF8 ? 4 : lead < 0xFC ? 5 : lead < 0xFE ? 6 : 0;
}

/// The first byte after `p` at which a character may begin, or `end`.
inline const Utf8Byte* resynchronise(const Utf8Byte* p, const Utf8Byte* end) noexcept {
    ++p;
    while (p != end && is_continuation(*p)) {
        ++p;
    }
    return p;
}

/// The first byte of 0x80 and above, or `end`. Eight bytes at a time.
inline const Utf8Byte* skip_ascii(const Utf8Byte* p, const Utf8Byte* end) noexcept {
    while (end - p >= 8) {
        std::uint64_t bytes;
        std::memcpy(&bytes, p, sizeof bytes);
        if ((bytes & 0x8080808080808080u) != 0) {
            break;
        }
        p += 8;
    }
    while (p != end && *p < 0x80) {
        ++p;
    }
    return p;
}

// ------------------------------------------------------------------------------------------- the whole-string
// validator

/// One sequence by the validator's rules.
struct Utf8Verdict {
    Utf8Fault fault;
    unsigned length;  ///< of the sequence; 0 with a fault
};

constexpr Utf8Verdict bad_sequence(Utf8Fault fault) noexcept { return {fault, 0}; }

/// True when a shorter form exists and the first two bytes tell. They tell for every length but three, whose value is
/// judged after its continuation bytes.
constexpr bool is_overlong_by_prefix(Utf8Byte lead, Utf8Byte second, unsigned length) noexcept {
    switch (length) {
        case 2:
            return lead < 0xC2;
        case 4:
            return lead == 0xF0 && second < 0x90;
        case 5:
            return lead == 0xF8 && second < 0x88;
        case 6:
            return lead == 0xFC && second < 0x84;
        default:
            return false;
    }
}

/// In       `available`: bytes from `p` to the end of the text; at least 1.
inline Utf8Verdict judge_sequence(const Utf8Byte* p, std::size_t available) noexcept {
    const Utf8Byte lead = p[0];
    const unsigned length = sequence_length(lead);
    if (length == 1) {
        return {Utf8Fault::none, 1};
    }
    if (length == 0) {
        return bad_sequence(Utf8Fault::invalid_first_byte);
    }
    if (available < length) {
        return bad_sequence(Utf8Fault::partial_sequence);
    }
    if (is_overlong_by_prefix(lead, p[1], length)) {
        return bad_sequence(Utf8Fault::overlong);
    }
    for (unsigned i = 1; i < length; ++i) {
        if (!is_continuation(p[i])) {
            return bad_sequence(Utf8Fault::invalid_subsequent_byte);
        }
    }
    if (length == 3) {
        const unsigned value = (lead & 0x0Fu) << 12 | (p[1] & 0x3Fu) << 6 | (p[2] & 0x3Fu);
        if (value < 0x800) {
            return bad_sequence(Utf8Fault::overlong);
        }
        if (is_surrogate(value)) {
            return bad_sequence(Utf8Fault::surrogate);
        }
        if (value == 0xFEFF) {
            return bad_sequence(Utf8Fault::bom_feff);
        }
    }
    return {Utf8Fault::none, length};
}

// ------------------------------------------------------------------------------------------------------- one character

/// A decoded character; `length` is 0 when it was refused.
struct DecodedChar {
    unsigned codePoint;
    unsigned length;
};

/// In       `available`: bytes from `p` to the end of the text; at least 1.
inline DecodedChar decode_utf8(const Utf8Byte* p, std::size_t available) noexcept {
    constexpr DecodedChar refused{0, 0};
    constexpr Utf8Byte payload[] = {0, 0x7F, 0x1F, 0x0F, 0x07, 0x03, 0x01};
    constexpr unsigned smallest[] = {0, 0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000};
    const unsigned length = sequence_length(p[0]);
    if (length == 0 || available < length) {
        return refused;
    }
    unsigned value = p[0] & payload[length];
    for (unsigned i = 1; i < length; ++i) {
        if (!is_continuation(p[i])) {
            return refused;
        }
        value = value << 6 | (p[i] & 0x3Fu);
    }
    if (value < smallest[length] || is_refused(value)) {
        return refused;
    }
    return {value, length};
}

/// In       `available`: units from `p` to the end of the text; at least 1.
inline DecodedChar decode_utf16(const Utf16Unit* p, std::size_t available) noexcept {
    const unsigned unit = p[0];
    if (is_high_surrogate(unit) && available >= 2 && is_low_surrogate(p[1])) {
        return {((unit - 0xD7C0u) << 10) | (p[1] & 0x3FFu), 2};
    }
    return is_refused(unit) ? DecodedChar{0, 0} : DecodedChar{unit, 1};
}

enum class EncodeOutcome : unsigned char { done, refused, full };

/// Bytes that `codePoint` takes in UTF-8, 0 when it is refused.
constexpr unsigned utf8_length(unsigned codePoint) noexcept {
    if (codePoint < 0x800) {
        return codePoint < 0x80 ? 1 : 2;
    }
    if (codePoint < 0x10000) {
        return is_refused(codePoint) ? 0 : 3;
    }
    return codePoint < 0x200000 ? 4 : codePoint < 0x4000000 ? 5 : codePoint < 0x80000000u ? 6 : 0;
}

/// Writes at `out` and advances it; on `full` a two-byte character has written its first byte if there was room.
inline EncodeOutcome encode_utf8(unsigned codePoint, Utf8Byte*& out, const Utf8Byte* outEnd) noexcept {
    constexpr Utf8Byte leadBits[] = {0, 0x00, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
    const unsigned length = utf8_length(codePoint);
    if (length == 0) {
        return EncodeOutcome::refused;
    }
    const std::ptrdiff_t room = outEnd - out;
    if (room < static_cast<std::ptrdiff_t>(length)) {
        if (length == 2 && room == 1) {
            *out++ = static_cast<Utf8Byte>(leadBits[2] | codePoint >> 6);
        }
        return EncodeOutcome::full;
    }
    for (unsigned i = length - 1; i > 0; --i) {
        out[i] = static_cast<Utf8Byte>(0x80 | (codePoint & 0x3F));
        codePoint >>= 6;
    }
    out[0] = static_cast<Utf8Byte>(leadBits[length] | codePoint);
    out += length;
    return EncodeOutcome::done;
}

/// Units that `codePoint` takes in UTF-16, 0 when it is refused.
constexpr unsigned utf16_length(unsigned codePoint) noexcept {
    if (codePoint < 0x10000) {
        return is_refused(codePoint) ? 0 : 1;
    }
    return codePoint <= 0x10FFFF ? 2 : 0;
}

/// Writes at `out` and advances it; on `full` a pair has written its high unit if there was room.
inline EncodeOutcome encode_utf16(unsigned codePoint, Utf16Unit*& out, const Utf16Unit* outEnd) noexcept {
    const unsigned length = utf16_length(codePoint);
    if (length == 0) {
        return EncodeOutcome::refused;
    }
    if (out >= outEnd) {
        return EncodeOutcome::full;
    }
    if (length == 1) {
        *out++ = make_unit<Utf16Unit>(codePoint);
        return EncodeOutcome::done;
    }
    *out++ = make_unit<Utf16Unit>((codePoint >> 10) - 0x2840u);
    if (out >= outEnd) {
        return EncodeOutcome::full;
    }
    *out++ = make_unit<Utf16Unit>((codePoint & 0x3FF) | 0xDC00);
    return EncodeOutcome::done;
}

}  // namespace nqcore::impl
