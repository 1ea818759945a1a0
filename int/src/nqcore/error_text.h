// Text work that the error families share: hashing, cutting at characters, expanding templates.
#pragma once

#include "nqcore/config.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace nqcore {

class ErrorParams;

namespace impl {

/// h = h x 5 + byte, bytes as signed values, from 0. Equal on every target.
[[nodiscard]] inline std::uint32_t text_hash(std::string_view text) noexcept {
    std::uint32_t hash = 0;
    for (const char byte : text) {
        hash = hash * 5 + static_cast<std::uint32_t>(static_cast<signed char>(byte));
    }
    return hash;
}

[[nodiscard]] constexpr std::uint32_t fold_hash(std::uint32_t seed, std::uint32_t value) noexcept {
    return seed ^ (value + 0x9E3779B9u + (seed << 6) + (seed >> 2));
}

/// The bytes of `text` that fit in `limit` without splitting a UTF-8 character.
[[nodiscard]] inline std::size_t cut_length(std::string_view text, std::size_t limit) noexcept {
    if (text.size() <= limit) {
        return text.size();
    }
    while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0u) == 0x80u) {
        --limit;
    }
    return limit;
}

inline constexpr std::size_t no_limit = static_cast<std::size_t>(-1);

/// Appends `text`, cut to `limit` bytes and marked with "..." when it was cut.
void append_cut(std::string& out, std::string_view text, std::size_t limit);

/// Appends the template with its placeholders replaced, each value cut as by `append_cut`.
void append_expanded(std::string& out, std::string_view messageTemplate, const ErrorParams& params, std::size_t limit);

inline constexpr std::size_t longest_text = 0x7FFFFFFF;

/// Errors   the `std::length_error` of `SourceString`, always.
[[noreturn]] NQCORE_COLD void throw_text_length_error();

/// Errors   `std::length_error` for a length that no `SourceString` can have.
inline void check_text_length(std::size_t length) {
    if (length > longest_text) [[unlikely]] {
        throw_text_length_error();
    }
}

/// The name of a type as the source spells it; the mangled name when it cannot be had.
[[nodiscard]] std::string type_name(const char* mangled);

/// A number in decimal, in a buffer of its own. Lives as long as its text is used.
class DecimalText {
public:
    explicit DecimalText(long long number) noexcept;
    explicit DecimalText(unsigned long long number) noexcept;
    DecimalText(const DecimalText&) = delete;
    DecimalText& operator=(const DecimalText&) = delete;

    [[nodiscard]] std::string_view view() const noexcept { return {m_digits, m_size}; }

private:
    char m_digits[20];
    std::size_t m_size;
};

}  // namespace impl
}  // namespace nqcore
