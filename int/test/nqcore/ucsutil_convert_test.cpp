// The string converters, as they are called and in what they explain; every rule is the fuzz target's, which compares
// with a second reading of them in rooms of every size.
#include "nqcore/ucsutil.h"

#include "error_test_support.h"

#include <cerrno>
#include <string>
#include <string_view>

namespace nqcore {
namespace {

using namespace std::string_literals;

constexpr char s_invalidUtf8[] = "Invalid UTF-8 character encountered";
constexpr char s_noUtf16Form[] = "Encountered UTF-8 (UCS-4) character that cannot be represented in UTF-16";
constexpr char s_invalidUtf16[] = "Encountered invalid UTF-16 character that cannot be converted to UTF-8";
constexpr char s_invalidUcs4[] = "Encountered invalid UCS-4 character that cannot be converted to UTF-8";

// Measures and converts into exactly that room.
template <class Out, class In, class Converter>
std::basic_string<Out> convert(Converter converter, const std::basic_string<In>& source, Out replacement, int& first) {
    const unsigned length = static_cast<unsigned>(source.size());
    int measuredFirst = 12345;
    const unsigned measured =
        converter(source.data(), length, static_cast<Out*>(nullptr), 0, replacement, &measuredFirst);
    std::basic_string<Out> units(measured, Out());
    EXPECT_EQ(converter(source.data(), length, units.data(), measured, replacement, &first), measured);
    EXPECT_EQ(first, measuredFirst);
    return units;
}

// Overload sets as functions.
constexpr auto s_utf8ToUtf16 = [](auto... arguments) { return utf8_to_utf16(arguments...); };
constexpr auto s_utf8ToUcs4 = [](auto... arguments) { return utf8_to_ucs4(arguments...); };
constexpr auto s_utf8ToWide = [](auto... arguments) { return utf8_to_wstr(arguments...); };
constexpr auto s_utf16ToUtf8 = [](auto... arguments) { return utf16_to_utf8(arguments...); };
constexpr auto s_ucs4ToUtf8 = [](auto... arguments) { return ucs4_to_utf8(arguments...); };

template <class Out, class In, class Converter>
void expect_conversion(Converter converter, const std::basic_string<In>& source, const std::basic_string<Out>& expected,
                       int firstInvalid, const char* message, const char* function) {
    SCOPED_TRACE(testing::Message() << function << " of " << testing::PrintToString(source));
    int first = 12345;
    EXPECT_EQ(convert(converter, source, Out('?'), first), expected);
    EXPECT_EQ(first, firstInvalid);
    try {
        EXPECT_EQ(convert(converter, source, Out('\0'), first), expected);
        EXPECT_EQ(firstInvalid, -1);
    } catch (const ErrorException& exception) {
        EXPECT_NE(firstInvalid, -1);
        EXPECT_THAT(exception.error(), AllOf(HasCode("error.nqcore.string.conversion"), HasMessage(message)));
        EXPECT_EQ(exception.error()->location().function().view(), "nqcore::"s + function + "()");
        EXPECT_TRUE(exception.error()->location().file_path().ends_with("/ucsutil.cpp"));
    }
}

struct FromUtf8Case {
    std::string source;
    std::u16string units;  ///< UTF-16, with '?' for each bad character
    std::u32string codePoints;
    int firstInvalid16;
    int firstInvalid32;
    const char* message16 = s_invalidUtf8;
};

const FromUtf8Case s_fromUtf8[] = {
    {"a\0\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"s, u"a\0\u00E9\u20AC\U0001F600"s, U"a\0\u00E9\u20AC\U0001F600"s, -1, -1},
    // One unit for a bad sequence, not one for each byte.
    {"A\xC0\x80\x42", u"A?B", U"A?B", 1, 1},
    // Unlike repair, conversion resumes at a byte that could begin a character.
    {"x\xE2\x41", u"x?A", U"x?A", 1, 1},
    // Refused as characters, though the validator lets them pass.
    {"a\xEF\xBF\xBE.", u"a?.", U"a?.", 1, 1},
    // Good UTF-8 without a UTF-16 form: the sequence is skipped as a whole, and no further.
    {"\xF4\x90\x80\x80\x80.", u"??.", U"\x110000?.", 0, 4, s_noUtf16Form},
};

// Wide text is UTF-16 or UCS-4, by the width of wchar_t, and its failures name the function that was called.
TEST(FromUtf8, BecomesOtherFormsOrIsRefused) {
    for (const FromUtf8Case& row : s_fromUtf8) {
        expect_conversion(s_utf8ToUtf16, row.source, row.units, row.firstInvalid16, row.message16, "utf8_to_utf16");
        expect_conversion(s_utf8ToUcs4, row.source, row.codePoints, row.firstInvalid32, s_invalidUtf8, "utf8_to_ucs4");
        if constexpr (sizeof(wchar_t) == 2) {
            expect_conversion(s_utf8ToWide, row.source, std::wstring(row.units.begin(), row.units.end()),
                              row.firstInvalid16, row.message16, "utf8_to_wstr");
        } else {
            expect_conversion(s_utf8ToWide, row.source, std::wstring(row.codePoints.begin(), row.codePoints.end()),
                              row.firstInvalid32, s_invalidUtf8, "utf8_to_wstr");
        }
    }
}

TEST(ToUtf8, IsMadeOrRefused) {
    expect_conversion(s_utf16ToUtf8, u"a\u00E9\u20AC\U0001F600"s, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"s, -1, nullptr,
                      "");
    // A high surrogate takes the next unit along, whatever it is...
    expect_conversion(s_utf16ToUtf8, u"a\xD800zy"s, "a?y"s, 1, s_invalidUtf16, "utf16_to_utf8");
    // ... if there is one.
    expect_conversion(s_utf16ToUtf8, u"a\xD800"s, "a?"s, 1, s_invalidUtf16, "utf16_to_utf8");
    for (const char32_t bad : {0xD800u, 0xDFFFu, 0xFEFFu, 0xFFFEu, 0xFFFFu}) {
        expect_conversion(s_ucs4ToUtf8, std::u32string{U'\x7FFFFFFF', bad, U'z'}, "\xFD\xBF\xBF\xBF\xBF\xBF?z"s, 1,
                          s_invalidUcs4, "ucs4_to_utf8");
    }
    const unsigned large = 0x80000000;
    EXPECT_EQ(ucs4_to_utf8(&large, 1, nullptr, 0, 0, nullptr), 6u) << "counted, though writing refuses it";
}

TEST(Conversion, OfATerminatedTextIncludesTheTerminatorAndOfNothingIsNothing) {
    unsigned short units[4] = {9, 9, 9, 9};
    EXPECT_EQ(utf8_to_utf16("abc", 0xFFFFFFFF, units, 4, 0, nullptr), 4u);
    EXPECT_EQ(units[3], 0);
    char bytes[4] = {9, 9, 9, 9};
    EXPECT_EQ(utf16_to_utf8(units, 0xFFFFFFFF, bytes, 4, 0, nullptr), 4u);
    EXPECT_EQ(std::string_view(bytes, 4), "abc\0"s);
    const unsigned codePoints[] = {'a', 0};
    EXPECT_EQ(ucs4_to_utf8(codePoints, 0xFFFFFFFF, bytes, 4, 0, nullptr), 2u);
    EXPECT_EQ(wstr_to_utf8(L"", 0xFFFFFFFF, bytes, 4, 0, nullptr), 1u);
    errno = 0;
    int first = 12345;
    EXPECT_EQ(utf8_to_utf16(nullptr, 0, nullptr, 0, 0, &first), 0u);
    EXPECT_EQ(first, -1);
    EXPECT_EQ(errno, 0);
}

// A full destination is noticed before an invalid character by UTF-8 to UCS-4, and after it by the others.
TEST(Conversion, MeetsAnInvalidCharacterAtAFullDestination) {
    const char source[] = "a\xFF";
    int first = 12345;
    unsigned codePoint = 0;
    errno = 0;
    EXPECT_EQ(utf8_to_ucs4(source, 2, &codePoint, 1, 0, &first), 0u);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(first, -1);
    unsigned short units[2] = {0, 77};
    EXPECT_THROW(utf8_to_utf16(source, 2, units, 1, 0, &first), ErrorException);
    EXPECT_EQ(first, 1);
    errno = 0;
    EXPECT_EQ(utf8_to_utf16(source, 2, units, 1, '?', &first), 0u);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(units[1], 77);
}

}  // namespace
}  // namespace nqcore
