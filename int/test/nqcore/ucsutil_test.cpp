#include "nqcore/ucsutil.h"

#include "error_test_support.h"

#include <cerrno>
#include <span>
#include <string>
#include <string_view>

namespace nqcore {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

unsigned size_of(std::string_view text) { return static_cast<unsigned>(text.size()); }

// A bad sequence, what repair makes of it with '?', and how it is reported. What else is good or bad, and where, the
// fuzz target compares with a second reading of the rules.
const struct {
    std::string_view bytes;
    std::string_view repaired;
    Utf8Fault fault;
    std::string code;
    const char* message;
} s_badSequences[] = {
    {"\xFE\x80\x41", "??A", Utf8Fault::invalid_first_byte, "invalid", "Invalid first byte of UTF-8 sequence"},
    // From four bytes on, this comes before the test of the continuation bytes.
    {"\xF0\x41\x41\x41", "?AAA", Utf8Fault::overlong, "overlong", "String contains overlong UTF-8 sequence"},
    {"\xE2\x82\xC3\xA9", "??\xC3\xA9", Utf8Fault::invalid_subsequent_byte, "invalid",
     "Invalid subsequent byte in UTF-8 character sequence"},
    // What follows a bad sequence up to the next possible start goes with it.
    {"\xED\xA0\x80\x80\x80x", "?????x", Utf8Fault::surrogate, "invalid",
     "UTF-8 string must not contain UTF-16 surrogates (U+D800...U+DFFF)"},
    {"\xEF\xBB\xBF", "???", Utf8Fault::bom_feff, "invalid", "UTF-8 string must not contain U+FEFF (BOM) character"},
    // Only the count tells, not the bytes that are there; repair takes them along.
    {"\xE2\x41", "??", Utf8Fault::partial_sequence, "partial", "String ends in a partial UTF-8 sequence"},
};

// Alone, and deep in a long text, where kernels have led up to it.
TEST(Utf8Text, IsJudgedRaisedAndRepaired) {
    for (const auto& bad : s_badSequences) {
        SCOPED_TRACE(bad.message);
        std::string before;
        for (const unsigned repeats : {0, 1, 3, 40}) {
            for (unsigned i = 0; i < repeats; ++i) {
                before += "plain \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 ";
            }
            std::string text = before + std::string(bad.bytes);
            const Utf8Finding finding = find_invalid_utf8(text);
            EXPECT_TRUE(finding.fault == bad.fault && finding.offset == before.size()) << finding.offset;
            EXPECT_THAT(
                [&] { check_valid_utf8(text.data(), size_of(text)); },
                ThrowsError(AllOf(HasCode(("error.nqcore.string.utf8." + bad.code).c_str()), HasMessage(bad.message))));
            int first = 12345;
            make_valid_utf8(text.data(), size_of(text), '?', &first);
            EXPECT_EQ(text, before + std::string(bad.repaired));
            EXPECT_EQ(first, static_cast<int>(before.size()));
        }
    }
    try {
        check_valid_utf8("\xFF", 1);
    } catch (const ErrorException& exception) {
        EXPECT_EQ(exception.error()->location().function().view(), "nqcore::check_valid_utf8()");
        EXPECT_TRUE(exception.error()->location().file_path().ends_with("/ucsutil.cpp"));
        EXPECT_TRUE(exception.error()->params().empty());
    }
    // Two codes have messages though nothing reports them.
    EXPECT_STREQ(utf8_fault_message(Utf8Fault::bom_fffe), "UTF-8 string must not contain U+FFFE (BOM) character");
    EXPECT_STREQ(utf8_fault_message(Utf8Fault::char_ffff), "UTF-8 string must not contain U+FFFF character");
}

// Values above U+10FFFF and the old long forms too, and what is refused only as a character: U+FFFE and U+FFFF.
TEST(Utf8Text, IsGood) {
    const std::string_view good =
        "A\0\xC2\x80\xED\x9F\xBF\xF4\x90\x80\x80\xFD\xBF\xBF\xBF\xBF\xBF\xEF\xBF\xBE\xEF\xBF\xBF"sv;
    EXPECT_EQ(find_invalid_utf8(good).offset, good.size());
    std::string same(good);
    int first = 12345;
    make_valid_utf8(same.data(), size_of(same), '?', &first);
    EXPECT_EQ(same, good);
    EXPECT_EQ(first, -1);
}

TEST(Utf8Validation, MeasuresTerminatedTextAndTakesEmptyText) {
    EXPECT_TRUE(is_valid_utf8(nullptr, 0));
    EXPECT_FALSE(is_valid_utf8("\xE2\x82", 0xFFFFFFFF));
    make_valid_utf8(nullptr, 0, '?', nullptr);
    char text[] = "a\xFF\0\xFF";
    int first = 7;
    make_valid_utf8(text, 0xFFFFFFFF, '?', &first);
    EXPECT_EQ(std::string_view(text, 4), "a?\0\xFF"s);
    EXPECT_EQ(first, 1);
}

TEST(Utf8Validation, RepairCountsWhatItReplaces) {
    std::string text = "A\xC0\x80\x42\xFF";
    for (const Utf8Repair expected : {Utf8Repair{1, 3}, {Utf8Repair::npos, 0}}) {
        const Utf8Repair repair = make_valid_utf8(std::span<char>(text), '?');
        EXPECT_EQ(text, "A??B?");
        EXPECT_EQ(repair.firstInvalid, expected.firstInvalid);
        EXPECT_EQ(repair.repairedBytes, expected.repairedBytes);
    }
}

// The code point, and the units of its UTF-8 and UTF-16 forms; 0: refused.
constexpr unsigned s_codePoints[][3] = {
    {0x7F, 1, 1},     {0x7FF, 2, 1},     {0x800, 3, 1},     {0xD7FF, 3, 1},     {0xD800, 0, 0},
    {0xDFFF, 0, 0},   {0xE000, 3, 1},    {0xFEFF, 0, 0},    {0xFFFD, 3, 1},     {0xFFFE, 0, 0},
    {0xFFFF, 0, 0},   {0x10000, 4, 2},   {0x10FFFF, 4, 2},  {0x110000, 4, 0},   {0x1FFFFF, 4, 0},
    {0x200000, 5, 0}, {0x3FFFFFF, 5, 0}, {0x4000000, 6, 0}, {0x7FFFFFFF, 6, 0}, {0x80000000u, 0, 0},
};

// The fuzz target takes UTF-8 apart and puts it together again.
TEST(Character, IsEncodedOrRefused) {
    for (const auto& [codePoint, utf8Length, utf16Length] : s_codePoints) {
        SCOPED_TRACE(codePoint);
        unsigned short units[2];
        unsigned back = 0;
        errno = 0;
        EXPECT_EQ(ucs4_char_to_utf8(codePoint, nullptr, nullptr), utf8Length);
        EXPECT_EQ(errno, utf8Length == 0 ? EINVAL : 0);
        errno = 0;
        EXPECT_EQ(ucs4_char_to_utf16(codePoint, units, units + 2), utf16Length);
        EXPECT_EQ(ucs4_char_to_utf16(codePoint, nullptr, nullptr), utf16Length);
        EXPECT_EQ(errno, utf16Length == 0 ? EINVAL : 0);
        if (utf16Length != 0) {
            EXPECT_EQ(utf16_to_ucs4_char(units, utf16Length, &back), utf16Length);
            EXPECT_EQ(back, codePoint);
        }
        for (unsigned room = 0; room < utf8Length; ++room) {
            char full[6] = {'#', '#', '#', '#', '#', '#'};
            errno = 0;
            EXPECT_EQ(ucs4_char_to_utf8(codePoint, full, full + room), 0u);
            EXPECT_EQ(errno, ENOMEM);
            // Two bytes are tested one by one, so the first is there already.
            EXPECT_EQ(full[0] != '#', utf8Length == 2 && room == 1);
            EXPECT_EQ(full[room], '#');
        }
    }
    unsigned short half[2] = {7, 7};
    errno = 0;
    EXPECT_EQ(ucs4_char_to_utf16(0x1F600, half, half + 1), 0u);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(half[0] == 0xD83D && half[1] == 7);
}

TEST(Character, OfUtf16NeedsItsPair) {
    for (const std::u16string_view bad : {u"\xD83D"sv, u"\xD83D\x0041"sv, u"\xDE00"sv, u"\xFEFF"sv}) {
        char32_t codePoint = 7;
        errno = 0;
        EXPECT_EQ(utf16_to_ucs4_char(bad.data(), static_cast<unsigned>(bad.size()), &codePoint), 0u);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(codePoint, 7u);
    }
}

TEST(Character, OfNoTextIsNoErrorAndOfAnyLengthIsRead) {
    errno = 0;
    EXPECT_EQ(utf8_to_ucs4_char("x", 0, nullptr), 0u);
    EXPECT_EQ(utf16_to_ucs4_char(static_cast<const unsigned short*>(nullptr), 0, nullptr), 0u);
    EXPECT_EQ(errno, 0);
    // A length may count on more than there is address space: only what the lead asks for is looked at.
    EXPECT_EQ(utf8_to_ucs4_char("\xE2\x82\xAC", 0xFFFFFFFF, nullptr), 3u);
    EXPECT_EQ(utf16_to_ucs4_char(u"\xD83D\xDE00", 0xFFFFFFFF, nullptr), 2u);
}

}  // namespace
}  // namespace nqcore
