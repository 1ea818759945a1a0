#include "nqcore/ucsutil.h"

#include "nqcore/error_exception.h"

#include "kernel_test_support.h"

#include <gtest/gtest.h>

#include <bit>
#include <cerrno>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

using nqcore::ErrorException;
using nqcore::Utf8Fault;
using nqcore::kernels::words;
using namespace std::string_literals;
using namespace std::string_view_literals;

unsigned size_of(std::string_view text) { return static_cast<unsigned>(text.size()); }

// ------------------------------------------------------------------------------------------------ validation, repair

/// Sequences of UTF-8 that are wrong in the same way.
struct Utf8Cases {
    Utf8Fault fault;
    const char* code;
    const char* message;
    std::string_view rows;  ///< each sequence, and what repair makes of it with '?'
};

// Good sequences, among them values above U+10FFFF, the old long forms, and at the end U+FFFE and U+FFFF, which are
// refused as characters.
constexpr std::string_view s_goodSequences =
    "A \0 \xC2\x80 \xDF\xBF \xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 \xEF\xBB\xBE \xEF\xBF\xBD \xF0\x90\x80\x80 "
    "\xF4\x8F\xBF\xBF \xF4\x90\x80\x80 \xF7\xBF\xBF\xBF \xF8\x88\x80\x80\x80 \xFD\xBF\xBF\xBF\xBF\xBF "
    "\xEF\xBF\xBE \xEF\xBF\xBF"sv;

constexpr char s_invalidCode[] = "error.nqcore.string.utf8.invalid";

constexpr Utf8Cases s_badSequences[] = {
    // A good sequence ends where it ends.
    {Utf8Fault::invalid_first_byte, s_invalidCode, "Invalid first byte of UTF-8 sequence",
     "\x80 ? \xFE\x80\x41 ??A \xFF ? \xC3\xA9\x80x \xC3\xA9?x"},
    // Only the count tells, not the bytes that are there; repair takes them along.
    {Utf8Fault::partial_sequence, "error.nqcore.string.utf8.partial", "String ends in a partial UTF-8 sequence",
     "\xC3 ? \xE2\x82 ?? \xE2\x41 ?? \xC0 ? \xFC\x84\x80\x80\x80 ?????"},
    // From four bytes on, this comes before the test of the continuation bytes.
    {Utf8Fault::overlong, "error.nqcore.string.utf8.overlong", "String contains overlong UTF-8 sequence",
     "\xC0\x80 ?? \xC1\xBF ?? \xC0\x41 ?A \xE0\x9F\xBF ??? \xF0\x41\x41\x41 ?AAA \xF0\x8F\xBF\xBF ???? "
     "\xF8\x87\xBF\xBF\xBF ????? \xFC\x83\xBF\xBF\xBF\xBF ??????"},
    {Utf8Fault::invalid_subsequent_byte, s_invalidCode, "Invalid subsequent byte in UTF-8 character sequence",
     "\xC3\x41 ?A \xE0\x80\x41 ??A \xE2\x41\x41 ?AA \xE2\x82\xC3\xA9 ??\xC3\xA9 \xF0\xC0\x80\x80 ???? "
     "\xFC\x84\x80\x80\x80\x41 ?????A"},
    // What follows a bad sequence up to the next possible start goes with it.
    {Utf8Fault::surrogate, s_invalidCode, "UTF-8 string must not contain UTF-16 surrogates (U+D800...U+DFFF)",
     "\xED\xA0\x80 ??? \xED\xBF\xBF ??? \xED\xA0\x80\x80\x80x ?????x"},
    {Utf8Fault::bom_feff, s_invalidCode, "UTF-8 string must not contain U+FEFF (BOM) character", "\xEF\xBB\xBF ???"},
};

void expect_error(std::string_view text, const Utf8Cases& faults) {
    try {
        nqcore::check_valid_utf8(text.data(), size_of(text));
        ADD_FAILURE();
    } catch (const ErrorException& exception) {
        const nqcore::ErrorInfo& error = *exception.error();
        EXPECT_EQ(error.code().value().view(), faults.code);
        EXPECT_EQ(error.message().view(), faults.message);
        EXPECT_EQ(error.location().function().view(), "nqcore::check_valid_utf8()");
        EXPECT_TRUE(error.location().file_path().ends_with("/ucsutil.cpp"));
        EXPECT_TRUE(error.params().empty());
    }
}

// The sequence alone, and deep in a long text, where kernels have led up to it; a partial one has to be at the end.
void expect_judged(const std::string& bytes, const std::string& repaired, const Utf8Cases* faults) {
    SCOPED_TRACE(testing::PrintToString(bytes));
    const Utf8Fault fault = faults == nullptr ? Utf8Fault::none : faults->fault;
    std::string before;
    for (unsigned repeats = 0; repeats <= 40; ++repeats) {
        const std::string after = fault == Utf8Fault::partial_sequence ? "" : before;
        std::string text = before + bytes + after;
        const nqcore::Utf8Finding finding = nqcore::find_invalid_utf8(text);
        ASSERT_EQ(finding.fault, fault);
        const std::size_t inside = bytes.starts_with("\xC3\xA9") ? 2 : 0;
        ASSERT_EQ(finding.offset, faults == nullptr ? text.size() : before.size() + inside);
        ASSERT_EQ(nqcore::is_valid_utf8(text), faults == nullptr);
        if (faults == nullptr) {
            ASSERT_NO_THROW(nqcore::check_valid_utf8(text.data(), size_of(text)));
        } else {
            expect_error(text, *faults);
        }
        int first = 12345;
        nqcore::make_valid_utf8(text.data(), size_of(text), '?', &first);
        ASSERT_EQ(text, before + repaired + after);
        ASSERT_EQ(first, faults == nullptr ? -1 : static_cast<int>(finding.offset));
        before += "plain \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 ";
    }
}

TEST(Utf8Text, IsJudgedRaisedRepairedAndDecoded) {
    for (const std::string& bytes : words(s_goodSequences)) {
        expect_judged(bytes, bytes, nullptr);
    }
    for (const Utf8Cases& faults : s_badSequences) {
        const std::vector<std::string> rows = words(faults.rows);
        for (std::size_t i = 0; i < rows.size(); i += 2) {
            expect_judged(rows[i], rows[i + 1], &faults);
            if (!rows[i].starts_with("\xC3\xA9")) {
                unsigned codePoint = 0xABCD;
                errno = 0;
                EXPECT_EQ(nqcore::utf8_to_ucs4_char(rows[i].data(), size_of(rows[i]), &codePoint), 0u) << rows[i + 1];
                EXPECT_EQ(codePoint, 0xABCDu);
                EXPECT_EQ(errno, EINVAL);
            }
        }
    }
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

TEST(Utf8Cut, NeverSplitsASequence) {
    struct {
        std::string text;
        unsigned limit, length;
    } const rows[] = {{"a\xC3\xA9", 2, 1},
                      {"a\xC3\xA9", 99, 3},
                      {"a\xC3\xA9", 0, 0},
                      {"\xF0\x9F\x98\x80x", 4, 4},
                      {"\x80\x80\x80", 2, 0}};
    for (const auto& row : rows) {
        EXPECT_EQ(nqcore::utf8_limit_length(row.text.data(), size_of(row.text), row.limit), row.length)
            << row.text << " at " << row.limit;
    }
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
    } const rows[] = {{u"\xE000", 1}, {u"\xDBFF\xDFFF", 2}, {u"\xD83D", 0},       {u"\xD83D\x0041", 0},
                      {u"\xDE00", 0}, {u"\xFFFE", 0},       {u"\xD83D\xD83D", 0}, {u"\xFEFF", 0}};
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
