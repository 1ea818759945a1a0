#include "nqcore/string_util.h"

#include "nqcore/testing/error_matchers.h"

#include <gtest/gtest.h>
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
    {"ab", "ABC", -1},           {"ABCDE", "ab", 3},
    {"[", "a", '[' - 'a'},                                       // between the alphabets: folded letters are lower-case
    {"@", "`", '@' - '`'},                                       // neighbours of the letters are not letters
    {"\x80", "a", -128 - 'a'},                                   // bytes count as signed
    {"\xFF", "\x7F", -1 - 0x7F}, {"\xC4", "\xE4", 0xC4 - 0xE4},  // a letter in some code pages, none here
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
    EXPECT_TRUE(string_equal_nocase_ascii(nullptr, 0, "x", 0));
    EXPECT_FALSE(string_equal_nocase_ascii("abc", npos, "abcd", npos));
}

// ---------------------------------------------------------------------------------------------- hash and fold

struct HashCase {
    std::string_view text;
    std::uint32_t lower, upper;
};

constexpr HashCase s_hashCases[] = {
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
        EXPECT_EQ(static_cast<unsigned char>(lower[i]), i >= 'A' && i <= 'Z' ? i + 32 : i);
        EXPECT_EQ(static_cast<unsigned char>(upper[i]), i >= 'a' && i <= 'z' ? i - 32 : i);
    }
    EXPECT_EQ(to_upper_ascii("abcdef", 3), "ABC");
    EXPECT_EQ(to_lower_ascii(nullptr, npos), "");
    std::string text = "Stra\xC3\x9F\x65 1";
    to_upper_ascii_inplace(text);
    EXPECT_EQ(text, "STRA\xC3\x9F\x45 1");
}

TEST(RaiseEmbeddedNulError, Throws) {
    EXPECT_THAT(
        [] { raise_embedded_nul_error(); },
        matchers::ThrowsError(testing::AllOf(
            matchers::HasCode("error.nqcore.string.embeddedNul"),
            matchers::HasMessage("String contains embedded NUL character and cannot be converted to a 'C'-string"))));
}

// ----------------------------------------------------------------------------------------------- card masking

// The rest of the rules is replayed from the fuzz corpus.
TEST(MaskCreditCardNumbers, MasksWholeRunsThatPass) {
    constexpr std::string_view cases[][2] = {
        {"", ""},
        {"see /4111111111111111", "see /4111111111111111"},
        {"\0004111111111111111\000"sv, "\00041111-------1111\000"sv},
        {"wwwwwwww411111111117.", "wwwwwwww41111---1117."},
        {"wwwwwwww411111111117", "wwwwwwww411111111117"},  // nothing behind it: not examined
    };
    for (const auto& [text, masked] : cases) {
        std::string got(text);
        EXPECT_EQ(mask_credit_card_numbers_in_place(got), text == masked ? 0u : 1u) << text;
        EXPECT_EQ(got, masked);
    }
    char terminated[] = "4111111111111111,5555555555554444 ";
    EXPECT_EQ(impl::mask_credit_card_numbers_in_place(terminated, npos), 2u);
    EXPECT_STREQ(terminated, "41111-------1111,55555-------4444 ");
    EXPECT_EQ(mask_credit_card_numbers_in_place(nullptr, npos), 0u);
}

}  // namespace
}  // namespace nqcore
