// Kernels that vouch for UTF-8.
#pragma once

#include "ucsutil_rules.h"

#include <cstddef>
#include <span>

namespace nqcore::kernels {

using impl::Utf8Byte;

/// Returns  the length of a prefix of whole characters that are plainly good: every function of the family takes them,
///          and UTF-16 has a form for them. What follows may be good too: it is for the scalar rules to say.
using GoodPrefix = std::size_t (*)(const Utf8Byte* text, std::size_t length) noexcept;

struct Utf8ValidateKernel {
    const char* name;
    bool (*usable)() noexcept;
    GoodPrefix good_prefix;
};

/// Best first; the last row needs nothing.
[[nodiscard]] std::span<const Utf8ValidateKernel> utf8_validate_kernels() noexcept;

/// The first usable row, looked up once.
[[nodiscard]] GoodPrefix utf8_good_prefix() noexcept;

std::size_t good_prefix_avx512(const Utf8Byte* text, std::size_t length) noexcept;
std::size_t good_prefix_avx2(const Utf8Byte* text, std::size_t length) noexcept;
std::size_t good_prefix_ssse3(const Utf8Byte* text, std::size_t length) noexcept;
std::size_t good_prefix_scalar(const Utf8Byte* text, std::size_t length) noexcept;

/// The end of the last character that is complete at `end`, when every pair of neighbouring bytes before `end` is good.
/// A lead that is the last byte has not been judged yet, so it may be one that begins nothing.
///
/// In       [`start`, `end`): `start` begins a character.
inline const Utf8Byte* last_boundary(const Utf8Byte* start, const Utf8Byte* end) noexcept {
    for (std::ptrdiff_t back = 1; back <= 3 && back <= end - start; ++back) {
        const Utf8Byte byte = end[-back];
        if (!impl::is_continuation(byte)) {
            const std::ptrdiff_t length = impl::sequence_length(byte);
            return length == 0 || length > back ? end - back : end;
        }
    }
    return end;
}

}  // namespace nqcore::kernels
