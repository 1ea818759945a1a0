// Text of any length for the functions that count in 32 bits.
#pragma once

#include <string_view>

namespace nqcore {

/// The length for a function that takes it as `unsigned`, where 0xFFFFFFFF would mean "up to the NUL"; a longer text is
/// cut.
template <class Char>
[[nodiscard]] constexpr unsigned length32(std::basic_string_view<Char> text) noexcept {
    return text.size() < 0xFFFFFFFEu ? static_cast<unsigned>(text.size()) : 0xFFFFFFFEu;
}

}  // namespace nqcore
