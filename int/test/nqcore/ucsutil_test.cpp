#include "nqcore/ucsutil.h"

#include "nqcore/error_exception.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

using nqcore::ErrorException;
using nqcore::ErrorInfo;
using nqcore::Utf8Fault;
using namespace std::string_literals;

unsigned size_of(std::string_view text) { return static_cast<unsigned>(text.size()); }

/// The record that `action` throws; null when it throws none.
template <class Action>
ErrorInfo::Ptr error_of(Action action) {
    try {
        action();
    } catch (const ErrorException& exception) {
        return exception.error();
    }
    return {};
}

constexpr char s_badFirst[] = "Invalid first byte of UTF-8 sequence";
constexpr char s_partial[] = "String ends in a partial UTF-8 sequence";
constexpr char s_overlong[] = "String contains overlong UTF-8 sequence";
constexpr char s_badNext[] = "Invalid subsequent byte in UTF-8 character sequence";
constexpr char s_surrogate[] = "UTF-8 string must not contain UTF-16 surrogates (U+D800...U+DFFF)";
constexpr char s_feff[] = "UTF-8 string must not contain U+FEFF (BOM) character";

// ------------------------------------------------------------------------------------------------ validation, repair

/// A sequence of UTF-8: what is wrong with it, what repair makes of it, and how many characters it holds as UCS-4.
struct Utf8Case {
    const char* name;
    std::string bytes;
    Utf8Fault fault;
    const char* code;      ///< null for valid text
    const char* message;   ///< null for valid text
    std::string repaired;  ///< with '?'
    bool decodes;          ///< `utf8_to_ucs4_char` takes the first character
};

constexpr char s_invalidCode[] = "error.nqcore.string.utf8.invalid";
constexpr char s_overlongCode[] = "error.nqcore.string.utf8.overlong";
constexpr char s_partialCode[] = "error.nqcore.string.utf8.partial";

const std::vector<Utf8Case>& utf8_cases() {
    using F = Utf8Fault;
    static const std::vector<Utf8Case> cases = {
        {"ascii", "A", F::none, nullptr, nullptr, "A", true},
        {"nul", "\0"s, F::none, nullptr, nullptr, "\0"s, true},
        {"two_smallest", "\xC2\x80", F::none, nullptr, nullptr, "\xC2\x80", true},
        {"two_largest", "\xDF\xBF", F::none, nullptr, nullptr, "\xDF\xBF", true},
        {"three_smallest", "\xE0\xA0\x80", F::none, nullptr, nullptr, "\xE0\xA0\x80", true},
        {"before_surrogates", "\xED\x9F\xBF", F::none, nullptr, nullptr, "\xED\x9F\xBF", true},
        {"after_surrogates", "\xEE\x80\x80", F::none, nullptr, nullptr, "\xEE\x80\x80", true},
        {"before_feff", "\xEF\xBB\xBE", F::none, nullptr, nullptr, "\xEF\xBB\xBE", true},
        {"fffd", "\xEF\xBF\xBD", F::none, nullptr, nullptr, "\xEF\xBF\xBD", true},
        // Valid as text, refused as a character.
        {"fffe", "\xEF\xBF\xBE", F::none, nullptr, nullptr, "\xEF\xBF\xBE", false},
        {"ffff", "\xEF\xBF\xBF", F::none, nullptr, nullptr, "\xEF\xBF\xBF", false},
        {"four_smallest", "\xF0\x90\x80\x80", F::none, nullptr, nullptr, "\xF0\x90\x80\x80", true},
        {"10ffff", "\xF4\x8F\xBF\xBF", F::none, nullptr, nullptr, "\xF4\x8F\xBF\xBF", true},
        // No upper bound, and the old long forms.
        {"110000", "\xF4\x90\x80\x80", F::none, nullptr, nullptr, "\xF4\x90\x80\x80", true},
        {"four_largest", "\xF7\xBF\xBF\xBF", F::none, nullptr, nullptr, "\xF7\xBF\xBF\xBF", true},
        {"five_smallest", "\xF8\x88\x80\x80\x80", F::none, nullptr, nullptr, "\xF8\x88\x80\x80\x80", true},
        {"six_largest", "\xFD\xBF\xBF\xBF\xBF\xBF", F::none, nullptr, nullptr, "\xFD\xBF\xBF\xBF\xBF\xBF", true},

        {"continuation_first", "\x80", F::invalid_first_byte, s_invalidCode, s_badFirst, "?", false},
        {"fe", "\xFE\x80\x41", F::invalid_first_byte, s_invalidCode, s_badFirst, "??A", false},
        {"ff", "\xFF", F::invalid_first_byte, s_invalidCode, s_badFirst, "?", false},
        {"partial_two", "\xC3", F::partial_sequence, s_partialCode, s_partial, "?", false},
        {"partial_three", "\xE2\x82", F::partial_sequence, s_partialCode, s_partial, "??", false},
        // Only the count tells, not the bytes that are there; repair takes them along.
        {"partial_with_ascii", "\xE2\x41", F::partial_sequence, s_partialCode, s_partial, "??", false},
        {"partial_overlong_lead", "\xC0", F::partial_sequence, s_partialCode, s_partial, "?", false},
        {"partial_six", "\xFC\x84\x80\x80\x80", F::partial_sequence, s_partialCode, s_partial, "?????", false},
        {"c0", "\xC0\x80", F::overlong, s_overlongCode, s_overlong, "??", false},
        {"c1", "\xC1\xBF", F::overlong, s_overlongCode, s_overlong, "??", false},
        {"c0_before_ascii", "\xC0\x41", F::overlong, s_overlongCode, s_overlong, "?A", false},
        {"three_overlong", "\xE0\x80\x80", F::overlong, s_overlongCode, s_overlong, "???", false},
        {"three_overlong_last", "\xE0\x9F\xBF", F::overlong, s_overlongCode, s_overlong, "???", false},
        {"three_bad_before_overlong", "\xE0\x80\x41", F::invalid_subsequent_byte, s_invalidCode, s_badNext, "??A",
         false},
        // From four bytes on, the overlong test comes before the one of the continuation bytes.
        {"four_overlong_before_bad", "\xF0\x41\x41\x41", F::overlong, s_overlongCode, s_overlong, "?AAA", false},
        {"four_overlong", "\xF0\x8F\xBF\xBF", F::overlong, s_overlongCode, s_overlong, "????", false},
        {"five_overlong", "\xF8\x87\xBF\xBF\xBF", F::overlong, s_overlongCode, s_overlong, "?????", false},
        {"six_overlong", "\xFC\x83\xBF\xBF\xBF\xBF", F::overlong, s_overlongCode, s_overlong, "??????", false},
        {"two_bad_second", "\xC3\x41", F::invalid_subsequent_byte, s_invalidCode, s_badNext, "?A", false},
        {"three_bad_second", "\xE2\x41\x41", F::invalid_subsequent_byte, s_invalidCode, s_badNext, "?AA", false},
        {"three_bad_third", "\xE2\x82\xC3\xA9", F::invalid_subsequent_byte, s_invalidCode, s_badNext, "??\xC3\xA9",
         false},
        {"four_bad_second", "\xF0\xC0\x80\x80", F::invalid_subsequent_byte, s_invalidCode, s_badNext, "????", false},
        {"six_bad_last", "\xFC\x84\x80\x80\x80\x41", F::invalid_subsequent_byte, s_invalidCode, s_badNext, "?????A",
         false},
        {"first_surrogate", "\xED\xA0\x80", F::surrogate, s_invalidCode, s_surrogate, "???", false},
        {"last_surrogate", "\xED\xBF\xBF", F::surrogate, s_invalidCode, s_surrogate, "???", false},
        {"feff", "\xEF\xBB\xBF", F::bom_feff, s_invalidCode, s_feff, "???", false},
        // What follows a bad sequence up to the next possible start goes with it; a good one ends where it ends.
        {"continuations_go_along", "\xED\xA0\x80\x80\x80x", F::surrogate, s_invalidCode, s_surrogate, "?????x", false},
        {"continuation_after_good", "\xC3\xA9\x80x", F::invalid_first_byte, s_invalidCode, s_badFirst, "\xC3\xA9?x",
         true},
    };
    return cases;
}

class Utf8Text : public testing::TestWithParam<Utf8Case> {};

// Each sequence alone, and deep in a long text, where kernels have led up to it; a partial one has to be at the end.
TEST_P(Utf8Text, IsJudgedRaisedAndRepaired) {
    const Utf8Case& row = GetParam();
    const bool isPartial = row.fault == Utf8Fault::partial_sequence;
    const std::string mixed = "plain \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 ";
    for (unsigned repeats = 0; repeats <= 40; ++repeats) {
        std::string before;
        for (unsigned i = 0; i < repeats; ++i) {
            before += mixed;
        }
        const std::string after = isPartial ? "" : before;
        const std::string text = before + row.bytes + after;
        const nqcore::Utf8Finding finding = nqcore::find_invalid_utf8(text);
        ASSERT_EQ(finding.fault, row.fault);
        const std::size_t inside = row.bytes.starts_with("\xC3\xA9\x80") ? 2 : 0;
        ASSERT_EQ(finding.offset, row.code == nullptr ? text.size() : before.size() + inside);
        ASSERT_EQ(nqcore::is_valid_utf8(text.data(), size_of(text)), row.code == nullptr);
        ASSERT_EQ(nqcore::is_valid_utf8(text), row.code == nullptr);

        const ErrorInfo::Ptr error = error_of([&text] { nqcore::check_valid_utf8(text.data(), size_of(text)); });
        ASSERT_EQ(error.is_null(), row.code == nullptr);
        if (row.code != nullptr) {
            ASSERT_EQ(error->code().value().view(), row.code);
            ASSERT_EQ(error->message().view(), row.message);
            ASSERT_EQ(error->location().function().view(), "nqcore::check_valid_utf8()");
            ASSERT_TRUE(error->location().file_path().ends_with("/ucsutil.cpp"));
            ASSERT_TRUE(error->params().empty());
        }

        std::string repaired = text;
        int first = 12345;
        nqcore::make_valid_utf8(repaired.data(), size_of(repaired), '?', &first);
        ASSERT_EQ(repaired, before + row.repaired + after);
        ASSERT_EQ(first, row.code == nullptr ? -1 : static_cast<int>(finding.offset));
    }
}

TEST_P(Utf8Text, DecodesItsFirstCharacter) {
    const Utf8Case& row = GetParam();
    unsigned codePoint = 0xABCD;
    errno = 0;
    const unsigned used = nqcore::utf8_to_ucs4_char(row.bytes.data(), size_of(row.bytes), &codePoint);
    EXPECT_EQ(used != 0, row.decodes);
    EXPECT_EQ(errno, row.decodes ? 0 : EINVAL);
    EXPECT_EQ(nqcore::utf8_to_ucs4_char(row.bytes.data(), size_of(row.bytes), nullptr), used);
    if (row.decodes) {
        EXPECT_EQ(used, nqcore::utf8_sequence_length(row.bytes[0]));
        char encoded[6];
        EXPECT_EQ(nqcore::ucs4_char_to_utf8(codePoint, encoded, encoded + sizeof encoded), used);
        EXPECT_EQ(std::string_view(encoded, used), std::string_view(row.bytes).substr(0, used));
        // One byte short, it is no character.
        EXPECT_EQ(nqcore::utf8_to_ucs4_char(row.bytes.data(), used - 1, nullptr), 0u);
    } else {
        EXPECT_EQ(codePoint, 0xABCDu);
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, Utf8Text, testing::ValuesIn(utf8_cases()),
                         [](const testing::TestParamInfo<Utf8Case>& row) { return row.param.name; });

TEST(Utf8Validation, MeasuresTerminatedTextAndTakesEmptyText) {
    EXPECT_TRUE(nqcore::is_valid_utf8(nullptr, 0));
    EXPECT_TRUE(nqcore::is_valid_utf8(std::string_view()));
    EXPECT_NO_THROW(nqcore::check_valid_utf8(nullptr, 0));
    EXPECT_TRUE(nqcore::is_valid_utf8("text", 0xFFFFFFFF));
    EXPECT_FALSE(nqcore::is_valid_utf8("\xE2\x82", 0xFFFFFFFF));
    int first = 7;
    nqcore::make_valid_utf8(nullptr, 0, '?', &first);
    EXPECT_EQ(first, -1);
    nqcore::make_valid_utf8(nullptr, 0, '?', nullptr);
    char text[] = "a\xFF\0\xFF";
    nqcore::make_valid_utf8(text, 0xFFFFFFFF, '?', &first);
    EXPECT_EQ(std::string_view(text, 4), "a?\0\xFF"s);
    EXPECT_EQ(first, 1);
}

TEST(Utf8Validation, RepairCountsWhatItReplaces) {
    std::string text =
        "A\xC0\x80"
        "B\xFF";
    const nqcore::Utf8Repair repair = nqcore::make_valid_utf8(std::span<char>(text), '\x3F');
    EXPECT_EQ(text, "A??B?");
    EXPECT_EQ(repair.firstInvalid, 1u);
    EXPECT_EQ(repair.repairedBytes, 3u);
    const nqcore::Utf8Repair none = nqcore::make_valid_utf8(std::span<char>(text), '?');
    EXPECT_EQ(none.firstInvalid, nqcore::Utf8Repair::npos);
    EXPECT_EQ(none.repairedBytes, 0u);
}

// Two codes have messages though nothing reports them.
TEST(Utf8Validation, EveryFaultHasItsMessage) {
    EXPECT_STREQ(nqcore::utf8_fault_message(Utf8Fault::none), "");
    EXPECT_STREQ(nqcore::utf8_fault_message(Utf8Fault::bom_fffe),
                 "UTF-8 string must not contain U+FFFE (BOM) character");
    EXPECT_STREQ(nqcore::utf8_fault_message(Utf8Fault::char_ffff), "UTF-8 string must not contain U+FFFF character");
}

TEST(Utf8Cut, NeverSplitsASequence) {
    struct Row {
        std::string text;
        unsigned limit;
        unsigned length;
    };
    const Row rows[] = {
        {"a\xC3\xA9", 2, 1},         {"a\xC3\xA9", 3, 3},         {"a\xC3\xA9", 99, 3},
        {"a\xC3\xA9", 0, 0},         {"a\xC3\xA9", 1, 1},         {"abc", 2, 2},
        {"\xF0\x9F\x98\x80x", 3, 0}, {"\xF0\x9F\x98\x80x", 4, 4}, {"\x80\x80\x80", 2, 0},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(nqcore::utf8_limit_length(row.text.data(), size_of(row.text), row.limit), row.length)
            << row.text << " at " << row.limit;
    }
}

TEST(Utf8Lead, TellsTheSequenceLength) {
    struct Row {
        unsigned from, to, length;
    };
    for (const Row row : {Row{0x00, 0x7F, 1},
                          {0x80, 0xBF, 0},
                          {0xC0, 0xDF, 2},
                          {0xE0, 0xEF, 3},
                          {0xF0, 0xF7, 4},
                          {0xF8, 0xFB, 5},
                          {0xFC, 0xFD, 6},
                          {0xFE, 0xFF, 0}}) {
        for (unsigned byte = row.from; byte <= row.to; ++byte) {
            EXPECT_EQ(nqcore::utf8_sequence_length(static_cast<char>(byte)), row.length) << byte;
        }
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
    for (const CodePointRow& row : s_codePoints) {
        char bytes[6];
        unsigned short units[2];
        errno = 0;
        EXPECT_EQ(nqcore::ucs4_char_to_utf8(row.codePoint, bytes, bytes + 6), row.utf8Length) << row.codePoint;
        EXPECT_EQ(nqcore::ucs4_char_to_utf8(row.codePoint, nullptr, nullptr), row.utf8Length);
        EXPECT_EQ(errno, row.utf8Length == 0 ? EINVAL : 0);
        errno = 0;
        EXPECT_EQ(nqcore::ucs4_char_to_utf16(row.codePoint, units, units + 2), row.utf16Length) << row.codePoint;
        EXPECT_EQ(nqcore::ucs4_char_to_utf16(row.codePoint, nullptr, nullptr), row.utf16Length);
        EXPECT_EQ(errno, row.utf16Length == 0 ? EINVAL : 0);
        if (row.utf16Length != 0) {
            unsigned back = 0;
            EXPECT_EQ(nqcore::utf16_to_ucs4_char(units, row.utf16Length, &back), row.utf16Length);
            EXPECT_EQ(back, row.codePoint);
        }
    }
}

TEST(Character, MeetsAFullOutput) {
    for (const CodePointRow& row : s_codePoints) {
        for (unsigned room = 0; room < row.utf8Length; ++room) {
            char bytes[6] = {'#', '#', '#', '#', '#', '#'};
            errno = 0;
            EXPECT_EQ(nqcore::ucs4_char_to_utf8(row.codePoint, bytes, bytes + room), 0u);
            EXPECT_EQ(errno, ENOMEM);
            // Two bytes are tested one by one, so the first is there already.
            EXPECT_EQ(bytes[0] != '#', row.utf8Length == 2 && room == 1) << row.codePoint;
            EXPECT_EQ(bytes[room], '#');
        }
    }
    unsigned short units[2] = {7, 7};
    errno = 0;
    EXPECT_EQ(nqcore::ucs4_char_to_utf16(0x1F600, units, units + 1), 0u);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(units[0], 0xD83D);
    EXPECT_EQ(units[1], 7);
    EXPECT_EQ(nqcore::ucs4_char_to_utf16('a', units, units), 0u);
}

TEST(Character, OfUtf16NeedsItsPair) {
    struct Row {
        std::u16string text;
        unsigned used;
    };
    const Row rows[] = {{u"\xD7FF", 1}, {u"\xE000", 1},       {u"\xD83D\xDE00", 2}, {u"\xDBFF\xDFFF", 2},
                        {u"\xD83D", 0}, {u"\xD83D\x0041", 0}, {u"\xDE00", 0},       {u"\xD83D\xD83D", 0},
                        {u"\xFEFF", 0}, {u"\xFFFE", 0},       {u"\xFFFF", 0},       {u"\xFFFD", 1}};
    for (const Row& row : rows) {
        char32_t codePoint = 7;
        errno = 0;
        EXPECT_EQ(nqcore::utf16_to_ucs4_char(row.text.data(), static_cast<unsigned>(row.text.size()), &codePoint),
                  row.used);
        EXPECT_EQ(errno, row.used == 0 ? EINVAL : 0);
        EXPECT_EQ(codePoint == 7, row.used == 0);
    }
}

TEST(Character, OfNoTextIsNoError) {
    errno = 0;
    EXPECT_EQ(nqcore::utf8_to_ucs4_char("x", 0, nullptr), 0u);
    EXPECT_EQ(nqcore::utf16_to_ucs4_char(static_cast<const unsigned short*>(nullptr), 0, nullptr), 0u);
    EXPECT_EQ(errno, 0);
}

// A length may count on more than there is address space: only what the lead asks for is looked at.
TEST(Character, TakesAnyLength) {
    EXPECT_EQ(nqcore::utf8_to_ucs4_char("\xE2\x82\xAC", 0xFFFFFFFF, nullptr), 3u);
    EXPECT_EQ(nqcore::utf16_to_ucs4_char(u"\xD83D\xDE00", 0xFFFFFFFF, nullptr), 2u);
}

}  // namespace
