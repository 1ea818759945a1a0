#include "nqcore/string_util.h"

#include "error_test_support.h"

namespace nqcore {
namespace {

using namespace std::string_view_literals;

constexpr unsigned npos = 0xFFFFFFFFu;

const std::tuple<std::string_view, std::string_view, int> s_comparisons[] = {
    {"ab", "ABC", -1},           {"ABCDE", "ab", 3},
    {"[", "a", '[' - 'a'},                                       // between the alphabets: folded letters are lower-case
    {"@", "`", '@' - '`'},                                       // neighbours of the letters are not letters
    {"\xFF", "\x7F", -1 - 0x7F}, {"\xC4", "\xE4", 0xC4 - 0xE4},  // signed; a letter in some code pages, none here
    {"a\0b"sv, "A\0c"sv, -1},
};

TEST(CompareNocaseAscii, GivesTheFirstDifference) {
    for (const auto& [a, b, result] : s_comparisons) {
        // Also behind equal text that is longer than any block.
        for (const std::string& head : {std::string(), std::string(200, 'q')}) {
            const std::string left = head + std::string(a);
            const std::string right = head + std::string(b);
            EXPECT_EQ(compare_nocase_ascii(left, right), result) << left << " with " << right;
            EXPECT_EQ(compare_nocase_ascii(right, left), -result) << left << " with " << right;
            EXPECT_FALSE(string_equal_nocase_ascii(left, right)) << left << " with " << right;
        }
    }
}

TEST(CompareNocaseAscii, MeasuresTerminatedTextAndTakesNullForEmpty) {
    EXPECT_EQ(compare_nocase_ascii("abcX", 3, "ABC", npos), 0);
    EXPECT_EQ(compare_nocase_ascii(nullptr, npos, "", 0), 0);
    EXPECT_EQ(compare_nocase_ascii("ab", npos, nullptr, 0), 2);
    EXPECT_TRUE(string_equal_nocase_ascii(nullptr, 0, "x", 0));
    EXPECT_FALSE(string_equal_nocase_ascii("abc", npos, "abcd", npos));
}

// The hashes of a text in lower and in upper case; stored hashes depend on them.
const std::tuple<std::string_view, std::uint32_t, std::uint32_t> s_hashes[] = {
    {"z\x80", 'z' * 5u - 128u, 'Z' * 5u - 128u},               // bytes are signed
    {"Content-Length: 1234567890", 0xF499C03Du, 0x8E87A81Du},  // wraps round
};

TEST(HashAscii, FoldsAndAddsSignedBytes) {
    for (const auto& [text, lower, upper] : s_hashes) {
        EXPECT_EQ(string_hash_lowercase_ascii(text), lower);
        EXPECT_EQ(string_hash_uppercase_ascii(text), upper);
        EXPECT_EQ(string_hash_uppercase_ascii(text.data(), npos), upper);
    }
}

TEST(FoldAscii, ChangesLettersOnly) {
    for (unsigned i = 0; i < 256; ++i) {
        const std::string one(1, static_cast<char>(i));
        EXPECT_EQ(static_cast<unsigned char>(to_lower_ascii(one)[0]), i >= 'A' && i <= 'Z' ? i + 32 : i);
        EXPECT_EQ(static_cast<unsigned char>(to_upper_ascii(one)[0]), i >= 'a' && i <= 'z' ? i - 32 : i);
    }
    EXPECT_EQ(to_upper_ascii("abcdef", 3), "ABC");
    EXPECT_EQ(to_lower_ascii(nullptr, npos), "");
    std::string text = "Stra\xC3\x9F\x65 1";
    to_upper_ascii_inplace(text);
    EXPECT_EQ(text, "STRA\xC3\x9F\x45 1");
}

TEST(RaiseEmbeddedNulError, Throws) {
    EXPECT_THAT(raise_embedded_nul_error,
                ThrowsError(AllOf(
                    HasCode("error.nqcore.string.embeddedNul"),
                    HasMessage("String contains embedded NUL character and cannot be converted to a 'C'-string"))));
}

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
