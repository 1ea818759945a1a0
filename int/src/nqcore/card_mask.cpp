#include "nqcore/string_util.h"

#include "kernels/card_digits.h"

#include <algorithm>
#include <string>

namespace nqcore {
namespace {

constexpr std::size_t s_longestNumber = 16;
constexpr std::size_t s_shownFirst = 5;
constexpr std::size_t s_shownLast = 4;
// Runs that start in so many last bytes of the text are left alone.
constexpr std::size_t s_blindTail = 12;

// The checksum of card numbers: from the right, every second digit counts double, 9 less when that exceeds 9.
bool passes_luhn(std::string_view digits) noexcept {
    unsigned sum = 0;
    bool doubled = false;
    for (std::size_t i = digits.size(); i-- > 0; doubled = !doubled) {
        const auto digit = static_cast<unsigned>(digits[i] - '0');
        sum += doubled ? 2 * digit - (digit > 4 ? 9u : 0u) : digit;
    }
    return sum % 10 == 0;
}

bool is_card_number(std::string_view text, std::size_t start, std::size_t end) noexcept {
    const bool inPath = start > 0 && text[start - 1] == '/';
    const std::string_view digits = text.substr(start, end - start);
    return digits.size() <= s_longestNumber && digits[0] >= '1' && digits[0] <= '6' && !inPath && passes_luhn(digits);
}

std::size_t mask_numbers(char* text, std::size_t length) noexcept {
    if (length <= s_blindTail) {
        return 0;
    }
    const auto find_long_run = kernels::card_digits_kernel().find_long_run;
    const std::size_t limit = length - s_blindTail;
    std::size_t masked = 0;
    std::size_t at = 0;
    while (at < limit) {
        const std::size_t start = find_long_run(text, length, at);
        if (start >= limit) {
            break;
        }
        const char* const end = std::find_if_not(text + start + kernels::s_longRun, text + length, kernels::is_digit);
        const auto endAt = static_cast<std::size_t>(end - text);
        if (is_card_number(std::string_view(text, length), start, endAt)) {
            std::fill(text + start + s_shownFirst, text + endAt - s_shownLast, '-');
            ++masked;
        }
        at = endAt + 1;
    }
    return masked;
}

}  // namespace

std::size_t mask_credit_card_numbers_in_place(char* text, unsigned length) noexcept {
    return mask_numbers(text, impl::measured_text(text, length).size());
}

std::size_t mask_credit_card_numbers_in_place(std::string& text) noexcept {
    return mask_numbers(text.data(), text.size());
}

}  // namespace nqcore
