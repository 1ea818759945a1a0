#include "nqcore/string_to.h"

#include "error_test_support.h"

#include <bit>
#include <clocale>
#include <cmath>
#include <limits>
#include <random>

namespace nqcore {
namespace {

using namespace std::string_view_literals;
using Error = RefCountPtr<const ErrorInfo>;

constexpr double s_infinity = std::numeric_limits<double>::infinity();

std::uint64_t bits_of(double value) { return std::bit_cast<std::uint64_t>(value); }

const std::pair<double, std::vector<std::string_view>> s_numbers[] = {
    // The empty text deliberately; then what is below half the smallest.
    {0.0, {"", "0e99999999999999999999", "0.000e-99999999999999999999", "0x1p-99999999999", "2.4703282292062327e-324"}},
    {-0.0, {"-0", "-1e-99999999999999999999"}},
    {4.9406564584124654e-324, {"2.4703282292062328e-324", "0x1p-1074"}},
    {0.5, {"+.5", "0x.8"}},
    {12.5, {" \t\n\v\f\r00012.500", "125.e-1", "0X1.9p+3"}},
    {9007199254740992.0, {"9007199254740993"}},  // halfway: to even
    {9007199254740994.0, {"9007199254740993.00000000001"}},
    {1e23, {"1E+23"}},
    {1.7976931348623157e308, {"179769313486231570e291", "0x1.fffffffffffff7p1023"}},
    {s_infinity, {"1e309", "0x1.fffffffffffff8p1023", "0x1p99999999999", "+Inf"}},
    {-s_infinity, {"-1e99999999999999999999", "-INFINITY"}},
};

TEST(StringToDouble, ReadsWhatStrtodReads) {
    for (const auto& [value, texts] : s_numbers) {
        for (const std::string_view text : texts) {
            EXPECT_EQ(bits_of(string_to<double>(text)), bits_of(value)) << text;
            EXPECT_EQ(bits_of(string_to<double>(std::wstring(text.begin(), text.end()))), bits_of(value)) << text;
        }
    }
    for (const std::string_view text : {"NaN", "-nan", "nan()", "nan(1a_Z)"}) {
        EXPECT_TRUE(std::isnan(string_to<double>(text)) && std::isnan(string_to<float>(text))) << text;
        EXPECT_EQ(std::signbit(string_to<double>(text)), text[0] == '-') << text;
    }
}

TEST(StringToDouble, RefusesTheRest) {
    for (const std::string_view text : {" "sv, "."sv, "+-1"sv, "1.5 "sv, "1e+"sv, "0x."sv, "0x1p"sv, "nan("sv, "nan)"sv,
                                        "nan(-)"sv, "1\0"sv, "\xC2\xA0\x31"sv}) {
        SCOPED_TRACE(testing::PrintToString(text));
        Error error;
        EXPECT_TRUE(std::isnan(string_to<double>(text, &error)));
        EXPECT_THAT(error, AllOf(HasCode("error.nqcore.string.extraction"), HasParam("type", "double"),
                                 HasParam("text", std::string(text))));
        EXPECT_TRUE(std::isnan(string_to<float>(text, &error)));
        EXPECT_THAT(error, HasParam("type", "float"));
        EXPECT_THAT([&] { (void)string_to<double>(text); }, ThrowsError(HasCode("error.nqcore.string.extraction")));
    }
    // Digits of other scripts, and a unit whose low byte is a digit.
    Error error;
    EXPECT_TRUE(std::isnan(string_to<double>(L"\uFF11", 1, &error)));
    EXPECT_TRUE(std::isnan(string_to<float>(L"\u0131", 1, &error)));
    EXPECT_THAT(error, HasParam("text", "\xC4\xB1"));
}

TEST(StringToDouble, RefusesTextsOf128Characters) {
    const std::string longest = "1" + std::string(126, '0');
    EXPECT_EQ(string_to<double>(longest), 1e126);
    Error error;
    EXPECT_TRUE(std::isnan(string_to<double>(longest + "0", &error)));
    EXPECT_THAT(error, HasParam("text", longest + "0"));
    EXPECT_TRUE(std::isnan(string_to<double>(std::wstring(longest.begin(), longest.end()) + L"0", &error)));
    EXPECT_THAT(error, HasParam("text", longest + "0"));
}

TEST(StringToFloat, RefusesMagnitudesBeyondTheLargestAndReturnsThemAllTheSame) {
    using Limits = std::numeric_limits<float>;
    const std::tuple<const char*, float, bool> rows[] = {
        {"-3.4028234663852886e38", Limits::lowest(), true},
        {"3.4028234663852889e38", Limits::max(), false},  // still nearer to it than to the next power of two
        {"inf", Limits::infinity(), false},
        {"1e-60", 0.0f, true},
    };
    for (const auto& [text, value, good] : rows) {
        Error error;
        EXPECT_EQ(string_to<float>(text, &error), value);
        EXPECT_EQ(error.is_null(), good) << text;
    }
}

TEST(StringToDouble, AsksNoLocale) {
    const std::string before = std::setlocale(LC_NUMERIC, nullptr);
    for (const char* locale : {"de_DE.UTF-8", "de_DE", "German"}) {
        std::setlocale(LC_NUMERIC, locale);  // where it is missing the "C" locale stays, which proves less
    }
    EXPECT_EQ(string_to<double>("1.5"), 1.5);
    EXPECT_EQ(string_to<double>("0x1.8"), 1.5);
    std::setlocale(LC_NUMERIC, before.c_str());
}

// One draw in each statement: the order of evaluation within one is the compiler's, and the sequence must not be.
std::string random_number(std::mt19937_64& random) {
    const auto pick = [&random](std::uint64_t below) { return static_cast<int>(random() % below); };
    const bool hex = pick(4) == 0;
    const int largest = hex ? 1200 : 350;
    std::string text = pick(4) == 0 ? "-" : "";
    text += hex ? "0x" : "";
    const auto append_digits = [&](int count) {
        for (; count > 0; --count) {
            text += "0123456789abcdefABCDEF"[pick(hex ? 22 : 10)];
        }
    };
    append_digits(1 + pick(25));
    if (pick(2) == 0) {
        text += '.';
        append_digits(pick(25));
    }
    if (pick(2) == 0) {
        text += hex ? 'p' : 'e';
        text += std::to_string(pick(700) * largest / 350 - largest);
    }
    return text;
}

TEST(StringToDouble, GivesTheBitsOfStrtodOnRandomNumbers) {
    std::mt19937_64 random(20);
    std::uint64_t all = 0;
    for (int i = 0; i < 500'000; ++i) {
        const std::string text = random_number(random);
        const std::uint64_t got = bits_of(string_to<double>(text));
        ASSERT_EQ(got, bits_of(std::strtod(text.c_str(), nullptr))) << text;
        all = all * 31 + got;
    }
    // The same on every target.
    EXPECT_EQ(all, 16559769581443930817u);
}

}  // namespace
}  // namespace nqcore
