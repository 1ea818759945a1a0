// Folding ASCII letters, and comparing without regard to case, many bytes at a time.
#pragma once

#include <cstddef>
#include <span>

namespace nqcore::kernels {

/// The bit that tells the two alphabets apart.
constexpr char s_asciiCaseBit = 0x20;

/// 'a' to 'z' for 'A' to 'Z'; every other byte as it is.
[[nodiscard]] constexpr char lower_ascii(char c) noexcept {
    return static_cast<char>(c + (static_cast<unsigned char>(c - 'A') < 26 ? 'a' - 'A' : 0));
}
/// 'A' to 'Z' for 'a' to 'z'; every other byte as it is.
[[nodiscard]] constexpr char upper_ascii(char c) noexcept {
    return static_cast<char>(c - (static_cast<unsigned char>(c - 'a') < 26 ? 'a' - 'A' : 0));
}

struct AsciiFoldKernel {
    const char* name;
    bool (*usable)() noexcept;
    void (*to_lower)(char* text, std::size_t length) noexcept;
    void (*to_upper)(char* text, std::size_t length) noexcept;
    bool (*equal_nocase)(const char* a, const char* b, std::size_t length) noexcept;
};

/// All rows, best first; the last one is plain C++.
[[nodiscard]] std::span<const AsciiFoldKernel> ascii_fold_kernels() noexcept;

/// The row for this processor; chosen on first use.
[[nodiscard]] const AsciiFoldKernel& ascii_fold_kernel() noexcept;

}  // namespace nqcore::kernels
