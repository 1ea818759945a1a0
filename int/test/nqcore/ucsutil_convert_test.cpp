// The string converters.
#include "nqcore/error_exception.h"
#include "nqcore/ucsutil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>

namespace {

using nqcore::ErrorException;
using nqcore::ErrorInfo;
using namespace std::string_literals;

constexpr char s_invalidUtf8[] = "Invalid UTF-8 character encountered";
constexpr char s_noUtf16Form[] = "Encountered UTF-8 (UCS-4) character that cannot be represented in UTF-16";
constexpr char s_invalidUtf16[] = "Encountered invalid UTF-16 character that cannot be converted to UTF-8";
constexpr char s_invalidUcs4[] = "Encountered invalid UCS-4 character that cannot be converted to UTF-8";

/// What a conversion gives: the units, or how it fails.
template <class Unit>
struct Converted {
    std::basic_string<Unit> units;
    int firstInvalid = 12345;
    ErrorInfo::Ptr thrown;
};

/// Measures, converts into exactly that room and compares the two passes.
template <class Out, class In, class Converter>
Converted<Out> convert(Converter converter, std::basic_string_view<In> source, Out replacement) {
    Converted<Out> answer;
    const unsigned length = static_cast<unsigned>(source.size());
    try {
        int first = 12345;
        const unsigned measured = converter(source.data(), length, static_cast<Out*>(nullptr), 0, replacement, &first);
        answer.units.resize(measured);
        errno = 0;
        EXPECT_EQ(converter(source.data(), length, answer.units.data(), measured, replacement, &answer.firstInvalid),
                  measured);
        EXPECT_EQ(answer.firstInvalid, first);
        EXPECT_EQ(errno, 0);
    } catch (const ErrorException& exception) {
        answer.thrown = exception.error();
    }
    return answer;
}

// Overload sets as functions.
constexpr auto s_utf8ToUtf16 = [](auto... arguments) { return nqcore::utf8_to_utf16(arguments...); };
constexpr auto s_utf8ToUcs4 = [](auto... arguments) { return nqcore::utf8_to_ucs4(arguments...); };
constexpr auto s_utf8ToWide = [](auto... arguments) { return nqcore::utf8_to_wstr(arguments...); };
constexpr auto s_utf16ToUtf8 = [](auto... arguments) { return nqcore::utf16_to_utf8(arguments...); };
constexpr auto s_ucs4ToUtf8 = [](auto... arguments) { return nqcore::ucs4_to_utf8(arguments...); };

void expect_error(const ErrorInfo::Ptr& error, std::string_view message, std::string_view function) {
    ASSERT_FALSE(error.is_null());
    EXPECT_EQ(error->code().value().view(), "error.nqcore.string.conversion");
    EXPECT_EQ(error->message().view(), message);
    EXPECT_EQ(error->location().function().view(), function);
    EXPECT_TRUE(error->location().file_path().ends_with("/ucsutil.cpp"));
}

// ------------------------------------------------------------------------------------------------------- from UTF-8

/// A bad place in UTF-8: the units with '?' for each bad character, and how it is raised without a replacement.
struct FromUtf8Case {
    std::string source;
    std::u16string units;  ///< UTF-16
    std::u32string codePoints;
    int firstInvalid16;
    int firstInvalid32;
    const char* cause = nullptr;  ///< message of the cause; null: none
    const char* message16 = firstInvalid16 < 0 ? nullptr : s_invalidUtf8;
};

constexpr char s_badFirst[] = "Invalid first byte of UTF-8 sequence";
constexpr char s_partial[] = "String ends in a partial UTF-8 sequence";

const FromUtf8Case s_fromUtf8[] = {
    {"a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", u"a\u00E9\u20AC\U0001F600", U"a\u00E9\u20AC\U0001F600", -1, -1},
    {"a\0b"s, u"a\0b"s, U"a\0b"s, -1, -1},
    // One unit for a bad sequence, not one for each byte.
    {"A\xC0\x80\x42", u"A?B", U"A?B", 1, 1, "String contains overlong UTF-8 sequence"},
    {"x\xE2\x82", u"x?", U"x?", 1, 1, s_partial},
    // Unlike repair, conversion resumes at a byte that could begin a character.
    {"x\xE2\x41", u"x?A", U"x?A", 1, 1, s_partial},
    // Only the first is told.
    {"\xFF-\xFF-\xFE", u"?-?-?", U"?-?-?", 0, 0, s_badFirst},
    {"\xED\xA0\x80.", u"?.", U"?.", 0, 0, "UTF-8 string must not contain UTF-16 surrogates (U+D800...U+DFFF)"},
    // Continuations go along.
    {"\xEF\xBB\xBF\x80\x80.", u"?.", U"?.", 0, 0, "UTF-8 string must not contain U+FEFF (BOM) character"},
    // Refused as characters, though the validator lets them pass and so has no cause to give...
    {"a\xEF\xBF\xBE.", u"a?.", U"a?.", 1, 1},
    // ... unless the rest of the text has one.
    {"a\xEF\xBF\xBF.\xFF", u"a?.?", U"a?.?", 1, 1, s_badFirst},
    // Good UTF-8 without a UTF-16 form: the sequence is skipped as a whole, and no further.
    {"a\xF4\x90\x80\x80.", u"a?.", U"a\x110000.", 1, -1, nullptr, s_noUtf16Form},
    {"\xFD\xBF\xBF\xBF\xBF\xBF.", u"?.", U"\x7FFFFFFF.", 0, -1, nullptr, s_noUtf16Form},
    {"\xF4\x90\x80\x80\x80.", u"??.", U"\x110000?.", 0, 4, nullptr, s_noUtf16Form},
};

template <class Out, class Converter>
void expect_conversion(Converter converter, const FromUtf8Case& row, std::string_view function) {
    constexpr bool isUtf16 = sizeof(Out) == 2;
    const std::string_view source = row.source;
    SCOPED_TRACE(testing::Message() << function << " of " << testing::PrintToString(row.source));
    const Converted<Out> replaced = convert<Out>(converter, source, Out('?'));
    EXPECT_EQ(replaced.units, isUtf16 ? std::basic_string<Out>(row.units.begin(), row.units.end())
                                      : std::basic_string<Out>(row.codePoints.begin(), row.codePoints.end()));
    const int firstInvalid = isUtf16 ? row.firstInvalid16 : row.firstInvalid32;
    EXPECT_EQ(replaced.firstInvalid, firstInvalid);
    const Converted<Out> strict = convert<Out>(converter, source, Out('\0'));
    if (firstInvalid < 0) {
        EXPECT_EQ(strict.units, replaced.units);
        return;
    }
    expect_error(strict.thrown, isUtf16 ? row.message16 : s_invalidUtf8, function);
    if (isUtf16) {
        const ErrorInfo::Ptr& cause = strict.thrown->nested();
        ASSERT_EQ(cause.is_null(), row.cause == nullptr);
        EXPECT_EQ(cause.is_null() ? "" : cause->message().view(), row.cause == nullptr ? "" : row.cause);
    }
}

// Wide text is UTF-16 or UCS-4, by the width of wchar_t, and its failures name the function that was called.
TEST(FromUtf8, BecomesOtherFormsOrIsRefused) {
    for (const FromUtf8Case& row : s_fromUtf8) {
        expect_conversion<char16_t>(s_utf8ToUtf16, row, "nqcore::utf8_to_utf16()");
        expect_conversion<char32_t>(s_utf8ToUcs4, row, "nqcore::utf8_to_ucs4()");
        expect_conversion<wchar_t>(s_utf8ToWide, row, "nqcore::utf8_to_wstr()");
    }
}

// --------------------------------------------------------------------------------------------------------- to UTF-8

struct FromUtf16Case {
    std::u16string source;
    std::string bytes;  ///< with '?' for each bad character
    int firstInvalid;
};

const FromUtf16Case s_fromUtf16[] = {
    {u"a\u00E9\u20AC\U0001F600", "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", -1},
    {u"a\xDC00z", "a?z", 1},
    // A high surrogate takes the next unit along, whatever it is...
    {u"a\xD800zy", "a?y", 1},
    {u"\xD800\xD83D\xDE00.", "??.", 0},
    // ... if there is one.
    {u"a\xD800", "a?", 1},
    {u"\xFEFF\xFFFE\xFFFF\xFFFD", "???\xEF\xBF\xBD", 0},
};

TEST(FromUtf16, BecomesUtf8OrIsRefused) {
    for (const FromUtf16Case& row : s_fromUtf16) {
        SCOPED_TRACE(row.bytes);
        const std::u16string_view source = row.source;
        const Converted<char> replaced = convert<char>(s_utf16ToUtf8, source, '?');
        EXPECT_EQ(replaced.units, row.bytes);
        EXPECT_EQ(replaced.firstInvalid, row.firstInvalid);
        if (row.firstInvalid == -1) {
            continue;
        }
        expect_error(convert<char>(s_utf16ToUtf8, source, '\0').thrown, s_invalidUtf16, "nqcore::utf16_to_utf8()");
    }
}

TEST(FromUcs4, BecomesUtf8OrIsRefused) {
    for (const char32_t bad : {0xD800u, 0xDFFFu, 0xFEFFu, 0xFFFEu, 0xFFFFu}) {
        const std::u32string source{U'\x7FFFFFFF', bad, U'z'};
        const Converted<char> replaced = convert<char>(s_ucs4ToUtf8, std::u32string_view(source), '?');
        EXPECT_EQ(replaced.units, "\xFD\xBF\xBF\xBF\xBF\xBF?z");
        EXPECT_EQ(replaced.firstInvalid, 1);
        expect_error(convert<char>(s_ucs4ToUtf8, std::u32string_view(source), '\0').thrown, s_invalidUcs4,
                     "nqcore::ucs4_to_utf8()");
    }
}

// ----------------------------------------------------------------------------------------------------- common rules

TEST(Conversion, OfATerminatedTextIncludesTheTerminatorAndOfNothingIsNothing) {
    unsigned short units[4] = {9, 9, 9, 9};
    EXPECT_EQ(nqcore::utf8_to_utf16("abc", 0xFFFFFFFF, units, 4, 0, nullptr), 4u);
    EXPECT_EQ(units[3], 0);
    char bytes[4] = {9, 9, 9, 9};
    EXPECT_EQ(nqcore::utf16_to_utf8(units, 0xFFFFFFFF, bytes, 4, 0, nullptr), 4u);
    EXPECT_EQ(std::string_view(bytes, 4), "abc\0"s);
    const unsigned codePoints[] = {'a', 0};
    EXPECT_EQ(nqcore::ucs4_to_utf8(codePoints, 0xFFFFFFFF, bytes, 4, 0, nullptr), 2u);
    EXPECT_EQ(nqcore::wstr_to_utf8(L"", 0xFFFFFFFF, bytes, 4, 0, nullptr), 1u);
    errno = 0;
    int first = 12345;
    EXPECT_EQ(nqcore::utf8_to_utf16(nullptr, 0, nullptr, 0, 0, &first), 0u);
    EXPECT_EQ(first, -1);
    EXPECT_EQ(errno, 0);
}

// A full destination is noticed before an invalid character by UTF-8 to UCS-4, and after it by the others.
TEST(Conversion, MeetsAnInvalidCharacterAtAFullDestination) {
    const char source[] = "a\xFF";
    int first = 12345;
    unsigned codePoint = 0;
    errno = 0;
    EXPECT_EQ(nqcore::utf8_to_ucs4(source, 2, &codePoint, 1, 0, &first), 0u);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(first, -1);
    unsigned short units[2] = {0, 77};
    EXPECT_THROW(nqcore::utf8_to_utf16(source, 2, units, 1, 0, &first), ErrorException);
    EXPECT_EQ(first, 1);
    errno = 0;
    EXPECT_EQ(nqcore::utf8_to_utf16(source, 2, units, 1, '?', &first), 0u);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(units[1], 77);
}

}  // namespace
