// The rules of the binary-to-text transforms, one character at a time; and what goes wrong, as error records.
//
// The kernels take whole groups that are plainly good. Everything else comes here: line breaks, padding, the last group,
// every fault. TransformDecoder is the state between two characters.
#pragma once

#include "nqcore/error_info.h"
#include "nqcore/transforms.h"

#include <cstdint>
#include <string_view>

namespace nqcore::impl {

enum class TransformFault : unsigned char { none, invalid, truncated, padding };

/// The first fault of a text.
struct TransformFinding {
    TransformFault fault = TransformFault::none;
    std::uint64_t offset = 0;
    unsigned char character = 0;

    [[nodiscard]] bool is_good() const noexcept { return fault == TransformFault::none; }
};

[[nodiscard]] ErrorInfo::Ptr create_transform_error(Transform transform, const TransformFinding& finding);

struct TransformDecoding {
    /// Decodes a piece.
    ///
    /// Out      `out`: moved behind the bytes written.
    [[nodiscard]] static TransformFinding update(TransformDecoder& decoder, std::string_view piece,
                                                 unsigned char*& out) noexcept;
    /// Decodes the last group. The decoder is as new after success.
    [[nodiscard]] static TransformFinding finish(TransformDecoder& decoder, unsigned char*& out) noexcept;

private:
    // In: `at` is not the end.
    [[nodiscard]] static TransformFinding take_group(TransformDecoder& decoder, const char*& at, const char* end,
                                                     unsigned char*& out) noexcept;
};

}  // namespace nqcore::impl
