#include "nqcore/ucsutil.h"

#include "nqcore/error_exception.h"

#include <gtest/gtest.h>

#include <bit>
#include <cerrno>
#include <span>
#include <string>
#include <string_view>

namespace {

using nqcore::ErrorException;
using nqcore::Utf8Fault;
using namespace std::string_literals;
using namespace std::string_view_literals;

unsigned size_of(std::string_view text) { return static_cast<unsigned>(text.size()); }

// ------------------------------------------------------------------------------------------------ validation, repair

constexpr char s_invalidCode[] = "error.nqcore.string.utf8.invalid";

// A bad sequence, what repair makes of it with '?', and how it is reported. What else is good or bad, and where, the
// fuzz target compares with a second reading of the rules.
struct BadSequence {
    std::string_view bytes;
    std::string_view repaired;
    Utf8Fault fault;
    const char* code;
    const char* message;
};

constexpr BadSequence s_badSequences[] = {
    {"\xFE\x80\x41", "??A", Utf8Fault::invalid_first_byte, s_invalidCode, "Invalid first byte of UTF-8 sequence"},
    // From four bytes on, this comes before the test of the continuation bytes.
    {"\xF0\x41\x41\x41", "?AAA", Utf8Fault::overlong, "error.nqcore.string.utf8.overlong",
     "String contains overlong UTF-8 sequence"},
    {"\xE2\x82\xC3\xA9", "??\xC3\xA9", Utf8Fault::invalid_subsequent_byte, s_invalidCode,
     "Invalid subsequent byte in UTF-8 character sequence"},
    // What follows a bad sequence up to the next possible start goes with it.
    {"\xED\xA0\x80\x80\x80x", "?????x", Utf8Fault::surrogate, s_invalidCode,
     "UTF-8 string must not contain UTF-16 surrogates (U+D800...U+DFFF)"},
    {"\xEF\xBB\xBF", "???", Utf8Fault::bom_feff, s_invalidCode, "UTF-8 string must not contain U+FEFF (BOM) character"},
    // Only the count tells, not the bytes that are there; repair takes them along.
    {"\xE2\x41", "??", Utf8Fault::partial_sequence, "error.nqcore.string.utf8.partial",
     "String ends in a partial UTF-8 sequence"},
};

void expect_error(std::string_view text, const BadSequence& bad) {
    try {
        nqcore::check_valid_utf8(text.data(), size_of(text));
        ADD_FAILURE();
    } catch (const ErrorException& exception) {
        const nqcore::ErrorInfo& error = *exception.error();
        EXPECT_EQ(error.code().value().view(), bad.code);
        EXPECT_EQ(error.message().view(), bad.message);
        EXPECT_EQ(error.location().function().view(), "nqcore::check_valid_utf8()");
        EXPECT_TRUE(error.location().file_path().ends_with("/ucsutil.cpp"));
        EXPECT_TRUE(error.params().empty());
    }
}

// Alone, and deep in a long text, where kernels have led up to it.
TEST(Utf8Text, IsJudgedRaisedAndRepaired) {
    for (const BadSequence& bad : s_badSequences) {
        SCOPED_TRACE(bad.message);
        std::string before;
        for (unsigned repeats = 0; repeats <= 40; ++repeats) {
            const std::string after =
                bad.fault == Utf8Fault::partial_sequence ? "" : before;  // that has to be at the end
            std::string text = before + std::string(bad.bytes) + after;
            const nqcore::Utf8Finding finding = nqcore::find_invalid_utf8(text);
            ASSERT_EQ(finding.fault, bad.fault);
            ASSERT_EQ(finding.offset, before.size());
            ASSERT_FALSE(nqcore::is_valid_utf8(text));
            expect_error(text, bad);
            int first = 12345;
            nqcore::make_valid_utf8(text.data(), size_of(text), '?', &first);
            ASSERT_EQ(text, before + std::string(bad.repaired) + after);
            ASSERT_EQ(first, static_cast<int>(before.size()));
            ASSERT_NO_THROW(nqcore::check_valid_utf8(text.data(), size_of(text)));
            before += "plain \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 ";
        }
    }
}

// Values above U+10FFFF and the old long forms too, and what is refused only as a character: U+FFFE and U+FFFF.
TEST(Utf8Text, IsGood) {
    const std::string_view good =
        "A\0\xC2\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD\xF4\x90\x80\x80\xFD\xBF\xBF\xBF\xBF\xBF\xEF\xBF\xBE\xEF\xBF\xBF"sv;
    EXPECT_TRUE(nqcore::is_valid_utf8(good));
    EXPECT_EQ(nqcore::find_invalid_utf8(good).offset, good.size());
    std::string same(good);
    int first = 12345;
    nqcore::make_valid_utf8(same.data(), size_of(same), '?', &first);
    EXPECT_EQ(same, good);
    EXPECT_EQ(first, -1);
}

TEST(Utf8Validation, MeasuresTerminatedTextAndTakesEmptyText) {
    EXPECT_TRUE(nqcore::is_valid_utf8(nullptr, 0));
    EXPECT_FALSE(nqcore::is_valid_utf8("\xE2\x82", 0xFFFFFFFF));
    nqcore::make_valid_utf8(nullptr, 0, '?', nullptr);
    char text[] = "a\xFF\0\xFF";
    int first = 7;
    nqcore::make_valid_utf8(text, 0xFFFFFFFF, '?', &first);
    EXPECT_EQ(std::string_view(text, 4), "a?\0\xFF"s);
    EXPECT_EQ(first, 1);
}

TEST(Utf8Validation, RepairCountsWhatItReplaces) {
    std::string text = "A\xC0\x80\x42\xFF";
    for (const nqcore::Utf8Repair expected : {nqcore::Utf8Repair{1, 3}, {nqcore::Utf8Repair::npos, 0}}) {
        const nqcore::Utf8Repair repair = nqcore::make_valid_utf8(std::span<char>(text), '?');
        EXPECT_EQ(text, "A??B?");
        EXPECT_EQ(repair.firstInvalid, expected.firstInvalid);
        EXPECT_EQ(repair.repairedBytes, expected.repairedBytes);
    }
}

// Two codes have messages though nothing reports them.
TEST(Utf8Validation, EveryFaultHasItsMessage) {
    EXPECT_STREQ(nqcore::utf8_fault_message(Utf8Fault::bom_fffe),
                 "UTF-8 string must not contain U+FFFE (BOM) character");
    EXPECT_STREQ(nqcore::utf8_fault_message(Utf8Fault::char_ffff), "UTF-8 string must not contain U+FFFF character");
}

TEST(Utf8Lead, TellsTheSequenceLength) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        const int ones = std::countl_one(static_cast<unsigned char>(byte));
        const int length = ones == 0 ? 1 : ones == 1 || ones > 6 ? 0 : ones;
        EXPECT_EQ(static_cast<int>(nqcore::utf8_sequence_length(static_cast<char>(byte))), length) << byte;
    }
}

// ------------------------------------------------------------------------------------------------------- characters

struct CodePointRow {
    unsigned codePoint;
    unsigned utf8Length;   ///< 0: refused
    unsigned utf16Length;  ///< 0: refused
};

constexpr CodePointRow s_codePoints[] = {
    {0, 1, 1},         {0x7F, 1, 1},       {0x80, 2, 1},        {0x7FF, 2, 1},       {0x800, 3, 1},
    {0xD7FF, 3, 1},    {0xD800, 0, 0},     {0xDFFF, 0, 0},      {0xE000, 3, 1},      {0xFEFE, 3, 1},
    {0xFEFF, 0, 0},    {0xFFFD, 3, 1},     {0xFFFE, 0, 0},      {0xFFFF, 0, 0},      {0x10000, 4, 2},
    {0x10FFFF, 4, 2},  {0x110000, 4, 0},   {0x1FFFFF, 4, 0},    {0x200000, 5, 0},    {0x3FFFFFF, 5, 0},
    {0x4000000, 6, 0}, {0x7FFFFFFF, 6, 0}, {0x80000000u, 0, 0}, {0xFFFFFFFFu, 0, 0},
};

TEST(Character, IsEncodedAndDecodedOrRefused) {
    for (const auto& [codePoint, utf8Length, utf16Length] : s_codePoints) {
        SCOPED_TRACE(codePoint);
        char bytes[6];
        unsigned short units[2];
        unsigned back = 0;
        errno = 0;
        EXPECT_EQ(nqcore::ucs4_char_to_utf8(codePoint, bytes, bytes + 6), utf8Length);
        EXPECT_EQ(nqcore::ucs4_char_to_utf8(codePoint, nullptr, nullptr), utf8Length);
        EXPECT_EQ(errno, utf8Length == 0 ? EINVAL : 0);
        if (utf8Length != 0) {
            EXPECT_EQ(nqcore::utf8_to_ucs4_char(bytes, utf8Length, &back), utf8Length);
            EXPECT_EQ(back, codePoint);
            EXPECT_EQ(nqcore::utf8_to_ucs4_char(bytes, utf8Length - 1, nullptr), 0u);
        }
        errno = 0;
        EXPECT_EQ(nqcore::ucs4_char_to_utf16(codePoint, units, units + 2), utf16Length);
        EXPECT_EQ(nqcore::ucs4_char_to_utf16(codePoint, nullptr, nullptr), utf16Length);
        EXPECT_EQ(errno, utf16Length == 0 ? EINVAL : 0);
        if (utf16Length != 0) {
            EXPECT_EQ(nqcore::utf16_to_ucs4_char(units, utf16Length, &back), utf16Length);
            EXPECT_EQ(back, codePoint);
        }
        for (unsigned room = 0; room < utf8Length; ++room) {
            char full[6] = {'#', '#', '#', '#', '#', '#'};
            errno = 0;
            EXPECT_EQ(nqcore::ucs4_char_to_utf8(codePoint, full, full + room), 0u);
            EXPECT_EQ(errno, ENOMEM);
            // Two bytes are tested one by one, so the first is there already.
            EXPECT_EQ(full[0] != '#', utf8Length == 2 && room == 1);
            EXPECT_EQ(full[room], '#');
        }
    }
    unsigned short half[2] = {7, 7};
    errno = 0;
    EXPECT_EQ(nqcore::ucs4_char_to_utf16(0x1F600, half, half + 1), 0u);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(half[0], 0xD83D);
    EXPECT_EQ(half[1], 7);
}

TEST(Character, OfUtf16NeedsItsPair) {
    struct {
        std::u16string text;
        unsigned used;
    } const rows[] = {{u"\xDBFF\xDFFF", 2}, {u"\xD83D", 0}, {u"\xD83D\x0041", 0}, {u"\xDE00", 0}, {u"\xFEFF", 0}};
    for (const auto& row : rows) {
        char32_t codePoint = 7;
        errno = 0;
        EXPECT_EQ(nqcore::utf16_to_ucs4_char(row.text.data(), static_cast<unsigned>(row.text.size()), &codePoint),
                  row.used);
        EXPECT_EQ(errno, row.used == 0 ? EINVAL : 0);
        EXPECT_EQ(codePoint == 7, row.used == 0);
    }
}

TEST(Character, OfNoTextIsNoErrorAndOfAnyLengthIsRead) {
    errno = 0;
    EXPECT_EQ(nqcore::utf8_to_ucs4_char("x", 0, nullptr), 0u);
    EXPECT_EQ(nqcore::utf16_to_ucs4_char(static_cast<const unsigned short*>(nullptr), 0, nullptr), 0u);
    EXPECT_EQ(errno, 0);
    // A length may count on more than there is address space: only what the lead asks for is looked at.
    EXPECT_EQ(nqcore::utf8_to_ucs4_char("\xE2\x82\xAC", 0xFFFFFFFF, nullptr), 3u);
    EXPECT_EQ(nqcore::utf16_to_ucs4_char(u"\xD83D\xDE00", 0xFFFFFFFF, nullptr), 2u);
}

}  // namespace
