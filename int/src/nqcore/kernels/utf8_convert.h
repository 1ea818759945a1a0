// Kernels that convert text about which the scalar rules would have nothing to say.
//
// A kernel converts characters from the front and stops where it likes: at a character it is not sure of, before a tail
// shorter than its block, or where the room might not do. It stops between characters, has written exactly the units
// of the characters it has passed, and has touched nothing beyond them. Whoever calls it goes on with the scalar rules.
#pragma once

#include "ucsutil_rules.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace nqcore::kernels {

using impl::Ucs4Unit;
using impl::Utf16Unit;
using impl::Utf8Byte;

/// What is left to read and the room that is left.
template <class In, class Out>
struct Conversion {
    const In* in;
    const In* inEnd;
    Out* out;
    Out* outEnd;

    [[nodiscard]] std::size_t left() const noexcept { return static_cast<std::size_t>(inEnd - in); }
    [[nodiscard]] std::size_t room() const noexcept { return static_cast<std::size_t>(outEnd - out); }
};

/// What is left to read and the units counted so far.
template <class In>
struct Measurement {
    const In* in;
    const In* inEnd;
    std::uint64_t units;

    [[nodiscard]] std::size_t left() const noexcept { return static_cast<std::size_t>(inEnd - in); }
};

template <class In, class Out>
struct ConvertKernel {
    const char* name;
    bool (*usable)() noexcept;
    void (*convert)(Conversion<In, Out>& work) noexcept;
    void (*measure)(Measurement<In>& work) noexcept;
};

using Utf8ToUtf16Kernel = ConvertKernel<Utf8Byte, Utf16Unit>;
using Utf8ToUcs4Kernel = ConvertKernel<Utf8Byte, Ucs4Unit>;
using Utf16ToUtf8Kernel = ConvertKernel<Utf16Unit, Utf8Byte>;
using Ucs4ToUtf8Kernel = ConvertKernel<Ucs4Unit, Utf8Byte>;

/// Best first; the last row needs nothing.
[[nodiscard]] std::span<const Utf8ToUtf16Kernel> utf8_to_utf16_kernels() noexcept;
[[nodiscard]] std::span<const Utf8ToUcs4Kernel> utf8_to_ucs4_kernels() noexcept;
[[nodiscard]] std::span<const Utf16ToUtf8Kernel> utf16_to_utf8_kernels() noexcept;
[[nodiscard]] std::span<const Ucs4ToUtf8Kernel> ucs4_to_utf8_kernels() noexcept;

/// The first usable row of each table, looked up once.
[[nodiscard]] const Utf8ToUtf16Kernel& utf8_to_utf16_kernel() noexcept;
[[nodiscard]] const Utf8ToUcs4Kernel& utf8_to_ucs4_kernel() noexcept;
[[nodiscard]] const Utf16ToUtf8Kernel& utf16_to_utf8_kernel() noexcept;
[[nodiscard]] const Ucs4ToUtf8Kernel& ucs4_to_utf8_kernel() noexcept;

void utf8_to_utf16_avx512(Conversion<Utf8Byte, Utf16Unit>& work) noexcept;
void utf8_to_utf16_ssse3(Conversion<Utf8Byte, Utf16Unit>& work) noexcept;
void utf8_to_ucs4_avx512(Conversion<Utf8Byte, Ucs4Unit>& work) noexcept;
void utf16_to_utf8_avx512(Conversion<Utf16Unit, Utf8Byte>& work) noexcept;
void utf16_to_utf8_ssse3(Conversion<Utf16Unit, Utf8Byte>& work) noexcept;
void ucs4_to_utf8_avx512(Conversion<Ucs4Unit, Utf8Byte>& work) noexcept;

void utf16_utf8_length_avx512(Measurement<Utf16Unit>& work) noexcept;
void utf16_utf8_length_ssse3(Measurement<Utf16Unit>& work) noexcept;
void ucs4_utf8_length_avx512(Measurement<Ucs4Unit>& work) noexcept;

/// Units of the UTF-16 and UCS-4 forms of sound UTF-8.
[[nodiscard]] std::size_t count_utf16_units(const Utf8Byte* text, std::size_t length) noexcept;
[[nodiscard]] std::size_t count_characters(const Utf8Byte* text, std::size_t length) noexcept;

}  // namespace nqcore::kernels
