// Finding the runs of decimal digits that are long enough for a payment-card number.
#pragma once

#include <cstddef>
#include <span>

namespace nqcore::kernels {

/// Digits of the shortest run that counts.
constexpr std::size_t s_longRun = 12;

[[nodiscard]] constexpr bool is_digit(char c) noexcept { return static_cast<unsigned char>(c - '0') < 10; }

struct CardDigitsKernel {
    const char* name;
    bool (*usable)() noexcept;
    /// The start of the first run of `s_longRun` or more digits at or after `from`; `length` when there is none.
    /// The byte before `from` must not be a digit.
    std::size_t (*find_long_run)(const char* text, std::size_t length, std::size_t from) noexcept;
};

/// All rows, best first; the last one is plain C++.
[[nodiscard]] std::span<const CardDigitsKernel> card_digits_kernels() noexcept;

/// The row for this processor; chosen on first use.
[[nodiscard]] const CardDigitsKernel& card_digits_kernel() noexcept;

}  // namespace nqcore::kernels
