// Kernels of the binary-to-text transforms: whole groups of digits, many at a time.
#pragma once

#include "nqcore/transforms.h"

#include <cstddef>
#include <span>

namespace nqcore::kernels {

struct TransformKernel {
    const char* name;
    bool (*usable)() noexcept;
    /// Encodes all whole groups.
    ///
    /// Returns  bytes taken: all but those of a last group that is not whole.
    std::size_t (*encode)(const unsigned char* in, std::size_t inBytes, char* out) noexcept;
    /// Decodes whole groups up to the first character that is no digit. Writes nothing behind what it decodes, and nothing
    /// before it has been read, so `out` may be the place of the text.
    ///
    /// Returns  characters taken.
    std::size_t (*decode)(const char* text, std::size_t length, unsigned char* out) noexcept;
};

// All rows of each codec, best first; the last one is plain C++.
[[nodiscard]] std::span<const TransformKernel> hex_kernels() noexcept;
[[nodiscard]] std::span<const TransformKernel> base64_kernels() noexcept;
[[nodiscard]] std::span<const TransformKernel> base32_kernels() noexcept;

/// The row for this processor; chosen on first use.
[[nodiscard]] const TransformKernel& transform_kernel(Transform transform) noexcept;

}  // namespace nqcore::kernels
