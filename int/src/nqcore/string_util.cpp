#include "nqcore/string_util.h"

#include "kernels/ascii_fold.h"
#include "kernels/ascii_fold_sse2.h"

#include <algorithm>
#include <limits>
#include <string>

namespace nqcore {
namespace {

// Up to here nothing is gained by choosing a kernel.
constexpr std::size_t s_shortText = 64;

// Apart, so that short texts need no stack frame.
[[gnu::noinline]] bool equal_long(const char* a, const char* b, std::size_t length) noexcept {
    return kernels::ascii_fold_kernel().equal_nocase(a, b, length);
}

int clamped_difference(std::size_t a, std::size_t b) noexcept {
    constexpr std::size_t most = std::numeric_limits<int>::max();
    return a >= b ? static_cast<int>(std::min(a - b, most)) : -static_cast<int>(std::min(b - a, most));
}

// The start of the first block of 64 bytes that holds a difference, or of the rest that is shorter.
std::size_t equal_blocks(std::string_view a, std::string_view b, std::size_t length) noexcept {
    constexpr std::size_t block = 64;
    std::size_t at = 0;
    while (at + block <= length && impl::equal_nocase_ascii(a.data() + at, b.data() + at, block)) {
        at += block;
    }
    return at;
}

template <char (*fold)(char)>
std::uint32_t hash_folded(std::string_view text) noexcept {
    std::uint32_t hash = 0;
    for (const char c : text) {
        hash = hash * 5 + static_cast<std::uint32_t>(static_cast<signed char>(fold(c)));
    }
    return hash;
}

}  // namespace

namespace impl {

bool equal_nocase_ascii(const char* a, const char* b, std::size_t length) noexcept {
    return length <= s_shortText ? kernels::equal_nocase_short(a, b, length) : equal_long(a, b, length);
}

}  // namespace impl

int compare_nocase_ascii(std::string_view a, std::string_view b) noexcept {
    const std::size_t shorter = std::min(a.size(), b.size());
    for (std::size_t at = equal_blocks(a, b, shorter); at < shorter; ++at) {
        const auto left = static_cast<signed char>(kernels::lower_ascii(a[at]));
        const auto right = static_cast<signed char>(kernels::lower_ascii(b[at]));
        if (left != right) {
            return left - right;
        }
    }
    return clamped_difference(a.size(), b.size());
}

std::uint32_t string_hash_lowercase_ascii(std::string_view text) noexcept {
    return hash_folded<kernels::lower_ascii>(text);
}

std::uint32_t string_hash_uppercase_ascii(std::string_view text) noexcept {
    return hash_folded<kernels::upper_ascii>(text);
}

std::string to_lower_ascii(std::string_view text) {
    std::string folded(text);
    to_lower_ascii_inplace(folded);
    return folded;
}

std::string to_lower_ascii(const char* text, unsigned length) {
    return to_lower_ascii(impl::measured_text(text, length));
}

std::string to_upper_ascii(std::string_view text) {
    std::string folded(text);
    to_upper_ascii_inplace(folded);
    return folded;
}

std::string to_upper_ascii(const char* text, unsigned length) {
    return to_upper_ascii(impl::measured_text(text, length));
}

void to_lower_ascii_inplace(std::string& text) noexcept {
    kernels::ascii_fold_kernel().to_lower(text.data(), text.size());
}

void to_upper_ascii_inplace(std::string& text) noexcept {
    kernels::ascii_fold_kernel().to_upper(text.data(), text.size());
}

}  // namespace nqcore
