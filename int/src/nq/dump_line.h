// One line of a hex dump, read back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace nq {

/// The bytes of a line and where they come from.
struct DumpLine {
    static constexpr std::size_t s_most = 256;

    std::uint64_t address = 0;
    std::size_t size = 0;
    unsigned char bytes[s_most] = {};
};

/// Reads a line: an address in hex, ": ", bytes of two hex digits with or without one blank between them, and a text that
/// is not looked at, after " :" or two blanks. So dumps by other tools are read too, when they have this shape.
///
/// Out      `out`: means nothing after a fault.
/// Returns  `npos` for a good line; else the offset of the first character that does not fit.
[[nodiscard]] std::size_t find_dump_fault(std::string_view line, DumpLine& out) noexcept;

}  // namespace nq
