// Card masking against its rules, written down one after the other.
#include "nqcore/string_util.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// From the right, every second digit doubled, 9 taken from what exceeds it.
bool passes_luhn(const std::string& digits) {
    int sum = 0;
    for (std::size_t fromRight = 0; fromRight < digits.size(); ++fromRight) {
        int value = digits[digits.size() - 1 - fromRight] - '0';
        if (fromRight % 2 == 1) {
            value *= 2;
            if (value > 9) {
                value -= 9;
            }
        }
        sum += value;
    }
    return sum % 10 == 0;
}

std::string mask_slowly(std::string text, std::size_t& masked) {
    if (text.size() < 12) {
        return text;
    }
    std::size_t position = 0;
    while (position < text.size() - 12) {
        if (!is_digit(text[position])) {
            ++position;
            continue;
        }
        std::size_t end = position;
        while (end < text.size() && is_digit(text[end])) {
            ++end;
        }
        const std::string run = text.substr(position, end - position);
        const bool rightLength = run.size() >= 12 && run.size() <= 16;
        const bool rightStart = run[0] >= '1' && run[0] <= '6';
        const bool inPath = position > 0 && text[position - 1] == '/';
        if (rightLength && rightStart && !inPath && passes_luhn(run)) {
            for (std::size_t i = position + 5; i < end - 4; ++i) {
                text[i] = '-';
            }
            ++masked;
        }
        position = end + 1;
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        // Half of all bytes become digits, so that runs are long enough to matter.
        text[i] = data[i] < 128 ? static_cast<char>(data[i]) : static_cast<char>('0' + data[i] % 10);
    }
    std::size_t expectedCount = 0;
    const std::string expected = mask_slowly(text, expectedCount);
    // Exactly as long as the text, so that a step too far is seen.
    const std::unique_ptr<char[]> exact(new char[size]);
    if (size != 0) {
        std::memcpy(exact.get(), text.data(), size);
    }
    const std::size_t count = nqcore::mask_credit_card_numbers_in_place(exact.get(), static_cast<unsigned>(size));
    if (count != expectedCount || std::string_view(exact.get(), size) != expected) {
        std::abort();
    }
    return 0;
}
