// The pieces that the diagnostic texts are put together from, at the end of a string.
#pragma once

#include "platform/symbols.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace nqcore::impl {

/// Digits of an address in register and memory texts.
inline constexpr unsigned addressDigits = 2 * sizeof(std::uintptr_t);

/// The longest name of a function that is shown whole, in bytes.
inline constexpr std::size_t longestName = 1024;

/// Lower-case hex, at least `minDigits` digits.
void append_hex(std::string& out, std::uint64_t value, unsigned minDigits);
/// "0x" and an address, at least 8 digits, as `streamers::Pointer` writes it.
void append_pointer(std::string& out, std::uintptr_t address);
void append_decimal(std::string& out, unsigned long long value);

/// As `clean_type_name`, cut to `longestName` with "..." when it is longer.
void append_type_name(std::string& out, std::string_view name);

/// A parameter's name and value, or the marker that stands for the value.
void append_parameter(std::string& out, const platform::Parameter& parameter);

}  // namespace nqcore::impl
