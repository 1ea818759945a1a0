#include "nqcore/string_util.h"

#include "nqcore/testing/error_matchers.h"

#include <gtest/gtest.h>
#include <random>
#include <string>

namespace nqcore {
namespace {

using namespace std::string_view_literals;

constexpr unsigned npos = 0xFFFFFFFFu;

// ------------------------------------------------------------------------------------------------- comparison

struct CompareCase {
    std::string_view a, b;
    int result;
};

constexpr CompareCase s_compareCases[] = {
    {"abc", "ABD", -1},
    {"abc", "ABC", 0},
    {"ab", "ABC", -1},
    {"ABCDE", "ab", 3},
    {"", "", 0},
    {"", "x", -1},
    {"z", "A", 25},
    {"[", "a", '[' - 'a'},      // between the alphabets: folded letters are lower-case
    {"@", "`", '@' - '`'},      // neighbours of the letters are not letters
    {"\x80", "a", -128 - 'a'},  // bytes count as signed
    {"\xFF", "\x7F", -1 - 0x7F},
    {"\xC4", "\xE4", 0xC4 - 0xE4},  // a letter in some code pages, none here
    {"a\0b"sv, "A\0c"sv, -1},
};

TEST(CompareNocaseAscii, GivesTheFirstDifference) {
    for (const CompareCase& row : s_compareCases) {
        SCOPED_TRACE(testing::PrintToString(row.a) + " with " + testing::PrintToString(row.b));
        EXPECT_EQ(compare_nocase_ascii(row.a, row.b), row.result);
        EXPECT_EQ(compare_nocase_ascii(row.b, row.a), -row.result);
        EXPECT_EQ(string_equal_nocase_ascii(row.a, row.b), row.result == 0);
        // The same behind equal text that is longer than any block.
        const std::string head(200, 'q');
        EXPECT_EQ(compare_nocase_ascii(head + std::string(row.a), head + std::string(row.b)), row.result);
        EXPECT_EQ(string_equal_nocase_ascii(head + std::string(row.a), head + std::string(row.b)), row.result == 0);
    }
}

TEST(CompareNocaseAscii, MeasuresTerminatedTextAndTakesNullForEmpty) {
    EXPECT_EQ(compare_nocase_ascii("abcX", 3, "ABC", npos), 0);
    EXPECT_EQ(compare_nocase_ascii(nullptr, npos, "", 0), 0);
    EXPECT_EQ(compare_nocase_ascii("ab", npos, nullptr, 0), 2);
    EXPECT_TRUE(string_equal_nocase_ascii("Content-Length", npos, "content-length", 14));
    EXPECT_TRUE(string_equal_nocase_ascii(nullptr, 0, "x", 0));
    EXPECT_FALSE(string_equal_nocase_ascii("abc", npos, "abcd", npos));
}

// ---------------------------------------------------------------------------------------------- hash and fold

struct HashCase {
    std::string_view text;
    std::uint32_t lower, upper;
};

constexpr HashCase s_hashCases[] = {
    {"", 0, 0},
    {"A", 'a', 'A'},
    {"aB", 'a' * 5 + 'b', 'A' * 5 + 'B'},
    {"\xFF", 0xFFFFFFFFu, 0xFFFFFFFFu},                        // -1
    {"z\x80", 'z' * 5u - 128u, 'Z' * 5u - 128u},               // kept bit-exact: stored hashes depend on it
    {"Content-Length: 1234567890", 0xF499C03Du, 0x8E87A81Du},  // wraps round
};

TEST(HashAscii, FoldsAndAddsSignedBytes) {
    for (const HashCase& row : s_hashCases) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        EXPECT_EQ(string_hash_lowercase_ascii(row.text), row.lower);
        EXPECT_EQ(string_hash_uppercase_ascii(row.text), row.upper);
        EXPECT_EQ(string_hash_lowercase_ascii(to_upper_ascii(row.text)), row.lower);
        EXPECT_EQ(string_hash_uppercase_ascii(row.text.data(), npos), row.upper);
    }
}

TEST(FoldAscii, ChangesLettersOnly) {
    std::string every(256, '\0');
    for (unsigned i = 0; i < 256; ++i) {
        every[i] = static_cast<char>(i);
    }
    const std::string lower = to_lower_ascii(every);
    const std::string upper = to_upper_ascii(every);
    for (unsigned i = 0; i < 256; ++i) {
        const bool isUpper = i >= 'A' && i <= 'Z';
        const bool isLower = i >= 'a' && i <= 'z';
        EXPECT_EQ(static_cast<unsigned char>(lower[i]), isUpper ? i + 32 : i);
        EXPECT_EQ(static_cast<unsigned char>(upper[i]), isLower ? i - 32 : i);
    }
    EXPECT_EQ(to_lower_ascii("ABC def", npos), "abc def");
    EXPECT_EQ(to_upper_ascii("abcdef", 3), "ABC");
    EXPECT_EQ(to_lower_ascii(nullptr, npos), "");
    std::string text =
        "Stra\xC3\x9F"
        "e 1";
    to_upper_ascii_inplace(text);
    EXPECT_EQ(text,
              "STRA\xC3\x9F"
              "E 1");
    to_lower_ascii_inplace(text);
    EXPECT_EQ(text,
              "stra\xC3\x9F"
              "e 1");
}

TEST(RaiseEmbeddedNulError, Throws) {
    EXPECT_THAT(
        [] { raise_embedded_nul_error(); },
        matchers::ThrowsError(testing::AllOf(
            matchers::HasCode("error.nqcore.string.embeddedNul"),
            matchers::HasMessage("String contains embedded NUL character and cannot be converted to a 'C'-string"))));
}

// ----------------------------------------------------------------------------------------------- card masking

struct MaskCase {
    const char* name;
    std::string_view text, masked;
};

constexpr MaskCase s_maskCases[] = {
    {"in_a_line", "card 4111111111111111 end", "card 41111-------1111 end"},
    {"whole_text", "4111111111111111", "41111-------1111"},
    {"twelve_digits", "411111111117 and more", "41111---1117 and more"},
    {"thirteen_digits", "a4222222222222bcdefghijklm", "a42222----2222bcdefghijklm"},
    {"fourteen_digits", "x 30569309025904 y", "x 30569-----5904 y"},
    {"fifteen_digits", "x 378282246310005 y", "x 37828------0005 y"},
    {"first_digit_1", "111111111113 wwwwwwwwwwww", "11111---1113 wwwwwwwwwwww"},
    {"first_digit_6", "6111111111111116", "61111-------1116"},
    {"two_runs_one_byte_apart", "4111111111111111,5555555555554444 ", "41111-------1111,55555-------4444 "},
    {"at_the_very_end", "log 4111111111111111", "log 41111-------1111"},
    {"slash_between", "4111111111111111/4111111111111111 xyz", "41111-------1111/4111111111111111 xyz"},
    {"between_utf8",
     "\xC3\xA9"
     "4111111111111111\xC3\xA9",
     "\xC3\xA9"
     "41111-------1111\xC3\xA9"},
    {"between_nul", "\0004111111111111111\000"sv, "\00041111-------1111\000"sv},
};

// Left alone: too short, too long, wrong first digit, wrong checksum, in a path, too near the end.
constexpr MaskCase s_keptCases[] = {
    {"empty", "", ""},
    {"eleven_digits", "41111111112 wwwwwwwwwwww", ""},
    {"seventeen_digits", "41111111111111113 wwwww", ""},
    {"first_digit_0", "0111111111111119 wwwww", ""},
    {"first_digit_7", "7111111111111114 wwwww", ""},
    {"first_digit_9", "9111111111111110 wwwww", ""},
    {"checksum", "4111111111111112 wwwww", ""},
    {"after_slash", "/4111111111111111", ""},
    {"after_slash_inside", "see /4111111111111111 now", ""},
    {"nothing_but_twelve_digits", "411111111117", ""},
    {"starts_twelve_before_the_end", "wwwwwwww411111111117", ""},
    {"twelve_bytes", "4111111111 x", ""},
};

TEST(MaskCreditCardNumbers, MasksWholeRunsThatPass) {
    for (const MaskCase& row : s_maskCases) {
        SCOPED_TRACE(row.name);
        std::string text(row.text);
        EXPECT_EQ(mask_credit_card_numbers_in_place(text.data(), static_cast<unsigned>(text.size())),
                  row.text.starts_with("4111111111111111,") ? 2u : 1u);
        EXPECT_EQ(text, row.masked);
    }
    for (const MaskCase& row : s_keptCases) {
        SCOPED_TRACE(row.name);
        std::string text(row.text);
        EXPECT_EQ(mask_credit_card_numbers_in_place(text), 0u);
        EXPECT_EQ(text, row.text);
    }
    // One byte more behind it, and the last of these is examined.
    std::string examined = "wwwwwwww411111111117.";
    mask_credit_card_numbers_in_place(examined);
    EXPECT_EQ(examined, "wwwwwwww41111---1117.");
    char terminated[] = "card 4111111111111111 end";
    impl::mask_credit_card_numbers_in_place(terminated, npos);
    EXPECT_STREQ(terminated, "card 41111-------1111 end");
    EXPECT_EQ(mask_credit_card_numbers_in_place(nullptr, npos), 0u);
}

// The rules once more, one character after the other.
std::string masked_slowly(std::string text) {
    const auto digit = [&](std::size_t i) { return i < text.size() && text[i] >= '0' && text[i] <= '9'; };
    for (std::size_t i = 0; i + 12 < text.size(); ++i) {
        if (!digit(i)) {
            continue;
        }
        const std::size_t start = i;
        while (digit(i)) {
            ++i;
        }
        unsigned sum = 0;
        for (std::size_t k = start; k < i; ++k) {
            const auto value = static_cast<unsigned>(text[k] - '0') * ((i - k) % 2 == 0 ? 2 : 1);
            sum += value > 9 ? value - 9 : value;
        }
        const bool inPath = start > 0 && text[start - 1] == '/';
        if (i - start >= 12 && i - start <= 16 && text[start] >= '1' && text[start] <= '6' && !inPath &&
            sum % 10 == 0) {
            text.replace(start + 5, i - start - 9, i - start - 9, '-');
        }
    }
    return text;
}

TEST(MaskCreditCardNumbers, AgreesWithTheSlowRulesOnRandomText) {
    std::mt19937 random(11);
    std::size_t masked = 0;
    for (int round = 0; round < 20'000; ++round) {
        std::string text;
        while (text.size() < random() % 120) {
            text += std::string(1, " ,/x-:"[random() % 6]);
            for (auto run = random() % 19; run > 0; --run) {
                // Few different digits, so that many checksums pass.
                text += "4115000"[random() % 7];
            }
        }
        const std::string expected = masked_slowly(text);
        std::string got = text;
        masked += mask_credit_card_numbers_in_place(got);
        ASSERT_EQ(got, expected) << text;
    }
    EXPECT_GT(masked, 500u);
}

}  // namespace
}  // namespace nqcore
