// Every row of the text kernels against the plain rules, at every length round the edges of their blocks, in buffers of
// exactly the text's size.
#include "kernels/ascii_fold.h"
#include "kernels/card_digits.h"

#include "decimal_digits.h"
#include "kernel_test_support.h"

#include <algorithm>
#include <random>

namespace nqcore::kernels {
namespace {

std::string random_bytes(std::mt19937& random, std::size_t length) {
    std::string text(length, ' ');
    for (char& c : text) {
        // Letters and their neighbours more often than others.
        c = random() % 4 == 0 ? static_cast<char>(random()) : "@AZ[`az{mM"[random() % 10];
    }
    return text;
}

TEST(AsciiFoldKernels, FoldAndCompareAsTheRulesSay) {
    for_each_usable(ascii_fold_kernels(), [](const AsciiFoldKernel& kernel) {
        std::mt19937 random(1);
        for (std::size_t length = 0; length <= s_longest; ++length) {
            const std::string text = random_bytes(random, length);
            std::string lower = text;
            std::string upper = text;
            std::transform(text.begin(), text.end(), lower.begin(), lower_ascii);
            std::transform(text.begin(), text.end(), upper.begin(), upper_ascii);
            Exact<char> folded = exact(text);
            kernel.to_lower(folded.begin(), length);
            ASSERT_EQ(std::string_view(folded.begin(), length), lower);
            Exact<char> right = exact(text);
            kernel.to_upper(right.begin(), length);
            ASSERT_EQ(std::string_view(right.begin(), length), upper);
            Exact<char> left = exact(text);
            ASSERT_TRUE(kernel.equal_nocase(left.begin(), right.begin(), length)) << length;
            for (std::size_t i = 0; i < length; ++i) {
                const char kept = right.begin()[i];
                // The case bit alone makes other characters of characters that are no letters.
                const char changed = static_cast<char>(text[i] ^ (random() % 2 == 0 ? 0x20 : 1 << random() % 8));
                right.begin()[i] = changed;
                ASSERT_EQ(kernel.equal_nocase(left.begin(), right.begin(), length),
                          lower_ascii(changed) == lower_ascii(text[i]))
                    << length << " at " << i;
                right.begin()[i] = kept;
            }
        }
    });
}

TEST(CardDigitsKernels, FindTheFirstLongRun) {
    const auto find_plainly = card_digits_kernels().back().find_long_run;
    for_each_usable(card_digits_kernels(), [find_plainly](const CardDigitsKernel& kernel) {
        // Many runs, neighbours of the digits between them, and any place to begin.
        std::mt19937 random(3);
        for (int round = 0; round < 3000; ++round) {
            std::string text;
            while (text.size() < random() % 200) {
                text += "/:\x80\xB0"[random() % 4] + std::string(random() % 20, static_cast<char>('0' + random() % 10));
            }
            for (std::size_t from = 0; from <= text.size(); ++from) {
                if (from == 0 || !is_digit(text[from - 1])) {
                    ASSERT_EQ(kernel.find_long_run(exact(text).begin(), text.size(), from),
                              find_plainly(text.data(), text.size(), from))
                        << text << " from " << from;
                }
            }
        }
    });
}

TEST(DecimalDigits, CountWriteAndReadEveryPowerAndItsNeighbours) {
    std::vector<std::uint64_t> numbers = {0, ~std::uint64_t{0}};
    for (std::uint64_t power = 1, i = 0; i < 20; power *= 10, ++i) {
        numbers.insert(numbers.end(), {power - 1, power, power + 1});
    }
    for (const std::uint64_t number : numbers) {
        const std::string expected = std::to_string(number);
        ASSERT_EQ(decimal::count(number), expected.size());
        // Room for 8 bytes at least, as the function asks.
        Exact<char> out(std::max<std::size_t>(expected.size(), 8));
        decimal::write(out.begin(), number, decimal::count(number));
        ASSERT_EQ(std::string_view(out.begin(), expected.size()), expected);
        std::uint64_t value = 0;
        if (expected.size() <= decimal::s_safeDigits) {
            ASSERT_TRUE(decimal::read(exact(expected).begin(), expected.size(), value) && value == number) << expected;
        }
    }
}

TEST(DecimalDigits, RefuseEveryOtherByteAtEveryPlace) {
    for (std::size_t length = 1; length <= decimal::s_safeDigits; ++length) {
        for (std::size_t at = 0; at < length; ++at) {
            for (unsigned byte = 0; byte < 256; ++byte) {
                std::string text(length, '7');
                text[at] = static_cast<char>(byte);
                std::uint64_t value = 0;
                ASSERT_EQ(decimal::read(text.data(), length, value), byte >= '0' && byte <= '9')
                    << length << " at " << at << ": " << byte;
            }
        }
    }
}

}  // namespace
}  // namespace nqcore::kernels
