#include "nqcore/string_to.h"

#include "error_test_support.h"

#include <climits>
#include <limits>
#include <random>

namespace nqcore {
namespace {

using namespace std::string_view_literals;
using Error = RefCountPtr<const ErrorInfo>;

constexpr unsigned npos = 0xFFFFFFFFu;

std::wstring widened(std::string_view ascii) { return std::wstring(ascii.begin(), ascii.end()); }

TEST(ToString, WritesNumbersThatComeBack) {
    EXPECT_EQ(to_string('A'), "65") << "a char is a number";
    EXPECT_EQ(to_string(true) + to_string(to_wstring(false)), "truefalse");
    std::mt19937_64 random(1);
    for (int i = 0; i < 100'000; ++i) {
        const auto value = static_cast<long long>(random() >> (random() % 64)) * (random() % 2 == 0 ? 1 : -1);
        const std::string text = to_string(value);
        ASSERT_EQ(text, std::to_string(value));
        ASSERT_EQ(string_to<long long>(text), value);
        ASSERT_EQ(to_wstring(value), widened(text));
        ASSERT_EQ(string_to<long long>(widened(text)), value);
    }
}

TEST(ToWstring, CopiesAndConverts) {
    const std::string text = "caf\xC3\xA9 \xF0\x9F\x98\x80";
    const std::wstring wide = L"caf\u00E9 \U0001F600";
    EXPECT_EQ(to_wstring(text.c_str(), npos), wide) << "the terminator is no part of the text";
    EXPECT_EQ(to_wstring(text.c_str(), 3), L"caf");
    EXPECT_EQ(to_wstring(wide), wide);
    EXPECT_EQ(to_string(wide.c_str(), 4), "caf\xC3\xA9");
    EXPECT_EQ(to_u16string(text), u"caf\u00E9 \U0001F600");
    EXPECT_EQ(to_string(u"caf\u00E9 \U0001F600"sv), text);
    EXPECT_EQ(to_string(L"a\0b"sv) + to_string(L"c"), "a\0bc"sv);
    EXPECT_EQ(to_wstring(static_cast<const char*>(nullptr)) + to_wstring(static_cast<const wchar_t*>(nullptr)), L"");
    EXPECT_EQ(to_string(static_cast<const wchar_t*>(nullptr), npos), "");
}

// Around the length from which text is measured first.
TEST(ToWstring, GivesTheSameBelowAndAboveTheStackBuffer) {
    for (const std::size_t length : {1u, 998u, 999u, 1000u, 5000u}) {
        SCOPED_TRACE(length);
        const std::string head(length, 'h');
        const std::wstring wideHead = widened(head);
        EXPECT_EQ(to_wstring(head + "\xC3\xA9"), wideHead + L'\u00E9');
        EXPECT_EQ(to_string(wideHead + L'\u00E9'), head + "\xC3\xA9");
        const std::string bad = head + "\xC0\x80\x62\xFF";
        int invalid = 0;
        EXPECT_EQ(to_wstring(bad.data(), static_cast<unsigned>(bad.size()), L'?', &invalid), wideHead + L"?b?");
        EXPECT_EQ(invalid, static_cast<int>(length));
        EXPECT_EQ(to_u16string(bad.data(), static_cast<unsigned>(bad.size()), u'?', nullptr).size(), length + 3);
        const std::wstring badWide = wideHead + wchar_t(0xDC00) + L"b";
        EXPECT_EQ(to_string(badWide.c_str(), npos, '?', &invalid), head + "?b");
        EXPECT_THAT([&] { (void)to_string(badWide); }, ThrowsError(HasCode("error.nqcore.string.conversion")));
        // Measuring and writing explain the same thing in different words.
        EXPECT_THAT([&] { (void)to_string(std::u16string(length, u'\xD800')); },
                    ThrowsError(HasMessage(
                        length < 1000 ? "Encountered invalid UCS-4 character that cannot be converted to UTF-8"
                                      : "Encountered invalid UTF-16 character that cannot be converted to UTF-8")));
    }
    // The widest characters there are fill the stack buffer's last byte.
    EXPECT_EQ(to_string(std::wstring(999, L'\uFFFD')).size(), 2997u);
    EXPECT_EQ(to_string(std::u16string(998, u'\uFFFD')).size(), 2994u);
}

TEST(StringToBool, KnowsFourWordsEach) {
    for (const std::string_view text : {"1", "tRuE", "YES", "y", "0", "False", "nO", "n"}) {
        const bool expected = text.find_first_of("1tYy") != text.npos;
        EXPECT_TRUE(string_to<bool>(text) == expected && string_to<bool>(widened(text)) == expected) << text;
    }
    for (const std::string_view text :
         {""sv, "2"sv, "yes "sv, "tru"sv, "y\0"sv, "\xD9"sv /* 'y' but for two bits */, "YE\x13"sv}) {
        Error error;
        EXPECT_FALSE(string_to<bool>(text, &error)) << text;
        EXPECT_THAT(error, AllOf(HasParam("type", "bool"), HasParam("text", std::string(text))));
    }
    EXPECT_THAT([] { (void)string_to<bool>("2"); },
                ThrowsError(HasMessage("nqcore::string_to<bool>(\"2\") conversion failed.")));
    // A wide character is not cut to a byte.
    Error error;
    EXPECT_FALSE(string_to<bool>(L"\u0179\u0131", 2, &error));
    EXPECT_THAT(error, HasParam("text", "\xC5\xB9\xC4\xB1"));
    EXPECT_TRUE(impl::string_to_bool("yes!", 3, nullptr) && impl::string_to_bool(L"y", npos, nullptr));
}

const struct {
    std::string_view text;
    unsigned radix;
    std::string message;
} s_badIntegers[] = {
    {"1\xC3\xA9", 10,
     "Invalid base-10 numeral ('\xC3\xA9') found while attempting to convert \"1\xC3\xA9\" into a value of type int."},
    // No number at all is told before too large a number.
    {"0x99999999999999999G", 0,
     "Invalid base-16 numeral ('G') found while attempting to convert \"0x99999999999999999G\" into a value of type "
     "int."},
    {"-2147483649", 10,
     "The value of the base-10 sequence \"-2147483649\" is too large to be represented by the int type."},
    {"80000000", 16, "The value of the base-16 sequence \"80000000\" is too large to be represented by the int type."},
    {"0x", 0, "nqcore::string_to<int>(\"0x\") conversion failed."},
    {"1", 1, "Invalid 'radix' argument specified (1) while attempting to convert \"1\" into a value of type int."},
    {"1", 37, "Invalid 'radix' argument specified (37) while attempting to convert \"1\" into a value of type int."},
};

// What every text gives in every radix is the fuzz target's.
TEST(BaseNStringTo, ReadsOrExplains) {
    const std::pair<const char*, int> prefixed[] = {{"+7", 7}, {"-0X1A", -26}, {"0b101", 5}, {"0o17", 15}, {"017", 17}};
    for (const auto& [text, value] : prefixed) {
        EXPECT_EQ(base_n_string_to<int>(text, 0), value) << text;
        EXPECT_EQ(base_n_string_to<int>(widened(text), 0), value) << text;
    }
    EXPECT_EQ(base_n_string_to<int>("zZ", 36), 1295);
    EXPECT_EQ(base_n_string_to<int>("-80000000", 16), INT_MIN);
    for (const auto& row : s_badIntegers) {
        const auto isExpected = AllOf(HasCode("error.nqcore.string.extraction"), HasMessage(row.message));
        Error error;
        EXPECT_EQ(base_n_string_to<int>(row.text, row.radix, &error), 0);
        EXPECT_THAT(error, isExpected);
        EXPECT_EQ(base_n_string_to<int>(to_wstring(row.text), row.radix, &error), 0);
        EXPECT_THAT(error, isExpected);
        EXPECT_THAT([&] { (void)base_n_string_to<int>(row.text, row.radix); }, ThrowsError(isExpected));
    }
    Error error;
    for (const std::string& bad : {std::string(1, '\0'), std::string("\xE9")}) {
        EXPECT_EQ(string_to<int>("1" + bad, &error), 0);
        EXPECT_THAT(error, HasParam("character", bad));
    }
    EXPECT_EQ(string_to<int>(L"1\U0001F600"sv, &error), 0);
    EXPECT_THAT(error, AllOf(HasParam("character", "\xF0\x9F\x98\x80"), HasParam("text", "\"1\xF0\x9F\x98\x80\"")));
}

// The limits of a type, one beyond on both sides, and the type's name.
template <class T>
void expect_exact_limits(const char* typeName) {
    SCOPED_TRACE(typeName);
    using Limits = std::numeric_limits<T>;
    std::string above = to_string(Limits::max());
    EXPECT_EQ(string_to<T>(above), Limits::max());
    EXPECT_EQ(string_to<T>(to_wstring(Limits::min())), Limits::min());
    ++above.back();  // no limit's last digit is 9
    std::string below = std::is_signed_v<T> ? to_string(Limits::min()) : "-1";
    ++below.back();
    for (const std::string& text : {above, below, above + "0"}) {
        Error error;
        EXPECT_EQ(string_to<T>(text, &error), T(0)) << text;
        EXPECT_THAT(error, HasParam("type", typeName));
    }
}

TEST(StringTo, HoldsTheLimitsOfEveryIntegerType) {
    expect_exact_limits<char>("char");
    expect_exact_limits<signed char>("signed char");
    expect_exact_limits<unsigned char>("unsigned char");
    expect_exact_limits<short>("short");
    expect_exact_limits<unsigned short>("unsigned short");
    expect_exact_limits<int>("int");
    expect_exact_limits<unsigned>("unsigned int");
    expect_exact_limits<long>("long");
    expect_exact_limits<unsigned long>("unsigned long");
    expect_exact_limits<long long>("long long");
    expect_exact_limits<unsigned long long>("unsigned long long");
    Error error;
    EXPECT_EQ(string_to<unsigned>("+1", &error), 0u) << "unsigned types take no sign";
    EXPECT_THAT(error, HasParam("character", "+"));
}

TEST(StringTo, TakesPointersLengthsAndStrings) {
    EXPECT_EQ(string_to<int>("1234", 2), 12);
    EXPECT_EQ(string_to<int>(L"1234", 3), 123);
    EXPECT_EQ(string_to<std::string>("as it \xFF stands"), "as it \xFF stands");
    const std::wstring bad(3, wchar_t(0xDC00));
    Error error;
    EXPECT_EQ(string_to<std::string>(bad, &error), "");
    EXPECT_THAT(error, AllOf(HasCode("error.nqcore.string.extraction"), HasParam("text", "???")));
    EXPECT_THAT([&] { (void)string_to<std::string>(bad); }, ThrowsError(HasCode("error.nqcore.string.extraction")));
    const Error kept = error;
    EXPECT_EQ(string_to<int>("5", &error), 5);
    EXPECT_EQ(error, kept) << "success leaves the slot alone";
}

// 128 bytes are shown; the cut never splits a character.
TEST(StringToFailures, CutTheTextAtACharacter) {
    const std::string x127(127, 'x');
    std::string emoji;
    while (emoji.size() < 128) {
        emoji += "\xF0\x9F\x98\x80";
    }
    const std::string cases[][3] = {
        // the text, as it stands in a message, and as it stands in quotes
        {x127 + '"', x127 + '"', '"' + x127 + "\"\""},
        {x127 + "yz", x127 + 'y', '"' + x127 + "y...\""},
        {x127 + "\xC3\xA9z", x127, '"' + x127 + "...\""},
        {emoji + "\xF0\x9F\x98\x80", emoji, '"' + emoji + "...\""},
    };
    Error error;
    for (const auto& [text, plain, quoted] : cases) {
        const std::wstring wide = to_wstring(text);
        (void)string_to<bool>(text, &error);
        EXPECT_THAT(error, AllOf(HasParam("text", plain), HasParam("type", "bool")));
        (void)string_to<bool>(wide, &error);
        EXPECT_THAT(error, HasParam("text", plain));
        EXPECT_EQ(error->message().view(), "nqcore::string_to<{@type}>(\"{@text}\") conversion failed.");
        EXPECT_EQ(error->location().function().view(), "nqcore::impl::string_to_failure()");
        EXPECT_EQ(error->location().file_path(), "//nqcore/int/src/nqcore/string_to.cpp");
        (void)string_to<int>(text, &error);
        EXPECT_THAT(error, HasParam("text", quoted));
        (void)string_to<int>(wide, &error);
        EXPECT_THAT(error, HasParam("text", quoted));
    }
    // A numeral that the text does not have.
    impl::base_n_string_to_error_bad_numeral('x', 7, typeid(int), "1", 1, &error);
    EXPECT_THAT(error, HasParam("character", "x"));
    impl::base_n_string_to_error_bad_numeral(L'x', 7, typeid(int), L"1", 1, &error);
    EXPECT_THAT(error, HasParam("character", "x"));
}

}  // namespace
}  // namespace nqcore
