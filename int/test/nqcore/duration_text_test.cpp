#include "nqcore/duration_text.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/testing/error_matchers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace nqcore {
namespace {

using namespace matchers;
using testing::AllOf;
using namespace std::string_view_literals;
using ErrorPtr = RefCountPtr<const ErrorInfo>;

constexpr std::int64_t s_ms = 1'000'000;
constexpr std::int64_t s_s = 1000 * s_ms;
constexpr std::int64_t s_m = 60 * s_s;
constexpr std::int64_t s_h = 60 * s_m;
constexpr std::int64_t s_d = 24 * s_h;
constexpr std::int64_t s_infinite = INT64_MAX;

TEST(DurationText, WritesBothForms) {
    struct {
        std::int64_t ns;
        std::string_view plain;
        std::string_view iso8601;
    } const cases[] = {
        {0, "0ns", "PT0S"},
        {1, "1ns", "PT0.000000001S"},
        {10, "10ns", "PT0.00000001S"},
        // On either side of each threshold.
        {1000, "1000ns", "PT0.000001S"},
        {1001, "1.001us", "PT0.000001001S"},
        {999'999, "999.999us", "PT0.000999999S"},
        {s_ms, "1000.0us", "PT0.001S"},
        {s_ms + 1, "1.000001ms", "PT0.001000001S"},
        {s_s - 1, "999.999999ms", "PT0.999999999S"},
        {s_s, "1.0s", "PT1S"},
        {61 * s_s - 1, "60.999999999s", "PT1M0.999999999S"},
        {61 * s_s, "1m 01.0s", "PT1M1S"},
        {71 * s_s, "1m 11.0s", "PT1M11S"},
        {3601 * s_s - 1, "60m 00.999999999s", "PT1H0.999999999S"},
        {3601 * s_s, "1h 0m 1.0s", "PT1H1S"},
        {s_h + 2 * s_m + 7 * s_s / 2, "1h 2m 3.5s", "PT1H2M3.5S"},
        {86'401 * s_s - 1, "24h 0m 0.999999999s", "P1DT0.999999999S"},
        {86'401 * s_s, "1d 0h 0m 1.0s", "P1DT1S"},
        {90'061 * s_s + s_s / 2, "1d 1h 1m 1.5s", "P1DT1H1M1.5S"},
        {-1, "-1ns", "-PT0.000000001S"},
        // Seconds beyond 32 bits.
        {5'000'000'000 * s_s, "57870d 8h 53m 20.0s", "P57870DT8H53M20S"},
        {RelativeTime::TIMEVALUE_MIN, "-106751d 23h 47m 16.854775808s", "-P106751DT23H47M16.854775808S"},
        {RelativeTime::TIMEVALUE_MAX, "106751d 23h 47m 16.854775806s", "P106751DT23H47M16.854775806S"},
        {s_infinite, "##INFINITE##", "P999999DT23H59M59.999999999S"},
    };
    for (const auto& row : cases) {
        const RelativeTime duration(row.ns);
        EXPECT_EQ(duration.as_string(), row.plain);
        EXPECT_EQ(duration.as_iso8601_string(), row.iso8601);
        EXPECT_EQ(std::string(DurationText::plain(duration).c_str(), DurationText::plain(duration).length()),
                  row.plain);
        EXPECT_EQ(RelativeTime::from_string(row.plain).as_nsec(), row.ns) << row.plain;
        EXPECT_EQ(RelativeTime::from_string(row.iso8601).as_nsec(), row.ns) << row.iso8601;
    }
    std::ostringstream stream;
    stream << RelativeTime(s_s);
    EXPECT_EQ(stream.str(), "1.0s");
}

// Reads from a heap copy of the exact size, so that the sanitizers see a read past the end. A failure carries the whole
// text and writes nothing.
ErrorPtr read(std::string_view text, RelativeTime& out) {
    const auto copy = std::make_unique<char[]>(text.size());
    text.copy(copy.get(), text.size());
    out = RelativeTime(77);
    const ErrorPtr error = RelativeTime::from_string_nothrow(std::string_view(copy.get(), text.size()), out);
    if (!error.is_null()) {
        EXPECT_EQ(out, RelativeTime(77)) << text;
        EXPECT_EQ(error->code(), error::nqcore_relativeTime_invalidTimeString) << text;
        EXPECT_EQ(error->params().get_value("timeString"), text);
        EXPECT_EQ(error->location().file_path(), "//nqcore/int/src/nqcore/abs_rel_time.cpp");
    }
    return error;
}

struct GoodTexts {
    std::int64_t ns;
    std::vector<std::string_view> texts;
};

const GoodTexts s_goodTexts[] = {
    {0, {"", "-", "   ", "0d", "h", ".s", "-.5ns", "PT", "PT0S", "-PT0S", "P0D"}},
    // The human form; a last number without a unit counts nothing.
    {s_d + 2 * s_h + 3 * s_m + 9 * s_s / 2, {"1d 2h 3m 4.5s", "1d2h3m4.5s", "  4.5s3m 2h  1d ", "P1DT2H3M4,5S"}},
    {90 * s_m, {"1h30m", "90m", ".5h 1h", "1.500000000000000000h", "1h 30m 5.", "PT1H30M", "pt1.5h", "P0.0625D"}},
    {20'000, {"20us", "0.02ms", "20000ns"}},
    {-5 * s_s / 2, {"-2.5s", "- 2.5s", "-PT2.5S", "-p2.5s"}},
    // What lies below a nanosecond, or behind the eleventh digit of a fraction, is dropped.
    {1, {"1.5ns", "1.99999999999ns", "0.0019us", "0.000000001999s", "PT0.0000000019999S"}},
    {864, {"0.00000000001d", "P0.00000000001D"}},
    // The limits of each unit.
    {106'751 * s_d, {"106751d", "P106751D"}},
    {2'562'047 * s_h, {"2562047h"}},
    {153'722'867 * s_m, {"153722867m"}},
    {9'223'372'036 * s_s, {"9223372036s"}},
    {9'223'372'036'854 * s_ms, {"9223372036854ms", "9223372036854000us"}},
    {9'223'372'036'854'775'799, {"9223372036854775799ns", "0009223372036854775799ns"}},
    // Beyond them there is only infinite, on the negative side too; the total stops at 2^64 - 1.
    {s_infinite,
     {"9223372036.854775807s", "-9223372036.854775809s", "106751.995d", "106751d 106751d 106751d 106751d",
      "PT9223372036854775807S", "-P30000000000W", "P213503DT84413.709551615S", "P213503DT84413.709551616S"}},
    {s_infinite, {"INF", "inf", "##INFINITE##", "##infinite##"}},
    // ISO 8601, with a fraction that rounds in its 19th digit.
    {7 * s_d, {"P1W", "P7D", "P0Y1W0M", "P0,000Y0.0M7D", "P0YT168H", "P6.5DT.5H11.5H"}},
    {s_s, {"P1S", "PT1.0000000000S", "PT0.9999999999999999995S"}},
    {s_s - 1, {"PT0.999999999999999999S", "PT0.999999999999999999499S"}},
    {0, {"P0.0000000000000016525W"}},  // 0.99973 ns, and 1.0003 with one more in the 18th
};

TEST(DurationText, ReadsEveryForm) {
    for (const GoodTexts& row : s_goodTexts) {
        for (const std::string_view text : row.texts) {
            RelativeTime out;
            ASSERT_TRUE(read(text, out).is_null()) << text;
            EXPECT_EQ(out.as_nsec(), row.ns) << text;
        }
    }
}

TEST(DurationText, ExplainsWhatIsWrongWithAField) {
    constexpr std::string_view s_overflow = "Value overflow processing time string \"{@timeString}\", length={@length}";
    constexpr std::string_view s_syntax = "Syntax error processing time string \"{@timeString}\", length={@length}";
    constexpr std::string_view s_type = "Invalid field type in time string \"{@timeString}\", length={@length}";
    constexpr std::string_view s_end = "Unexpected end of string in time string \"{@timeString}\", length={@length}";
    constexpr std::string_view s_value = "Invalid value in time string \"{@timeString}\", length={@length}";
    struct {
        std::string_view message;
        std::vector<std::string_view> texts;
    } const cases[] = {
        {s_overflow,
         {"-106752d", "2562048h", "153722868m", "9223372037s", "9223372036855ms", "9223372036854776us",
          "9223372036854775800ns", "99999999999999999999x"}},
        {s_syntax, {"1.2.3s", "1 h", "1m.5s", "1m\0"sv}},
        {s_type, {"1nx", "1u\0s"sv}},
        {s_end, {"1h 5u"}},
        {s_value, {"1H", "--1s", "1,5s", " P1D", "-INF", "##INFINITE###", "\0"sv, "1\xC2\xB5s"}},
    };
    for (const auto& row : cases) {
        for (const std::string_view text : row.texts) {
            RelativeTime out;
            const ErrorPtr error = read(text, out);
            ASSERT_FALSE(error.is_null()) << text;
            EXPECT_EQ(error->message().view(), row.message) << text;
            EXPECT_EQ(error->params().size(), 2u);
            EXPECT_EQ(error->params().get_value("length"), std::to_string(text.size()));
            EXPECT_EQ(error->location().function().view(), "nqcore::RelativeTime::field_from_string()");
        }
    }
}

TEST(DurationText, ExplainsWhatIsWrongWithIsoText) {
    struct {
        std::string_view text;
        unsigned position;
        std::string_view message;  // without the text, which ends every one
    } const cases[] = {
        {"P", 1, "Expecting time value after 'P' at position 1"},
        {"P1DT1Ht", 6, "Only one 'T' separator allowed (position 6)"},
        {"P 1D", 1, "Expecting digits or 'T' (position 1)"},
        {"P1D\0"sv, 3, "Expecting digits or 'T' (position 3)"},
        {"-PT1H1.5", 8, "Expecting unit after time value digits (position 8)"},
        {"PT1Y", 3, "Unit Y(year) not supported after the 'T' separator (position 3)"},
        {"PT1W", 3, "Unit W(eeks) not supported after the 'T' separator (position 3)"},
        {"PT1D", 3, "Unit D(ays) not supported after the 'T' separator (position 3)"},
        {"P1H", 2, "Unit H(ours) not supported before the 'T' separator (position 2)"},
        {"P1D0.1M", 6,
         "Units Y(year) and M(onth) are not supported because they are ambiguous without a reference date "
         "(position 6)"},
        {"P9223372036854775808D", 19, "Value of time segment exceeds 2^63-1 at position 19"},
        {"P1X", 2, "Unexpected time unit at position 2"},
        {"PT1\xC8", 3, "Unexpected time unit at position 3"},
    };
    for (const auto& row : cases) {
        RelativeTime out;
        const ErrorPtr error = read(row.text, out);
        EXPECT_THAT(error, HasMessage(std::string(row.message) + ": \"" + std::string(row.text) + '"'));
        EXPECT_THAT(error, HasParam("stringPos", std::to_string(row.position)));
        EXPECT_EQ(error->params().size(), 2u);
        EXPECT_EQ(error->location().function().view(), "nqcore::RelativeTime::parse_iso8601_duration()");
    }
}

TEST(DurationText, EveryOverloadReadsTheSame) {
    constexpr RelativeTime s_same(90 * s_s);
    EXPECT_EQ(RelativeTime::from_string("1m30s"), s_same);
    EXPECT_EQ(RelativeTime::from_string(std::string("1m30s")), s_same);
    EXPECT_EQ(RelativeTime::from_string(std::string_view("1m30sxxx", 5)), s_same);
    RelativeTime out;
    EXPECT_TRUE(RelativeTime::from_string_nothrow(std::string("1m30s"), out).is_null());
    EXPECT_EQ(out, s_same);
    EXPECT_TRUE(RelativeTime::from_string_nothrow(static_cast<const char*>(nullptr), out).is_null());
    EXPECT_EQ(out, RelativeTime::zero);
    EXPECT_THAT([] { static_cast<void>(RelativeTime::from_string("1x")); },
                ThrowsError(AllOf(HasCode(error::nqcore_relativeTime_invalidTimeString),
                                  HasMessage("Invalid value in time string \"1x\", length=2"))));
}

TEST(DurationText, RoundTrip) {
    std::mt19937_64 random(1970);
    constexpr std::int64_t s_units[] = {1, 1000, s_ms, s_s, s_m, s_h};
    for (int i = 0; i < 200'000; ++i) {
        // All magnitudes alike.
        const auto bits = static_cast<std::int64_t>(random()) >> random() % 63;
        const RelativeTime duration(bits / s_units[i % 6] * s_units[i % 6]);
        ASSERT_EQ(RelativeTime::from_string(DurationText::plain(duration).view()), duration) << duration.as_nsec();
        ASSERT_EQ(RelativeTime::from_string(DurationText::iso8601(duration).view()), duration) << duration.as_nsec();
    }
}

TEST(DurationText, AMillionDigits) {
    const std::string digits(1'000'000, '9');
    EXPECT_EQ(RelativeTime::from_string("0." + digits + "s"), RelativeTime(s_s - 1));
    EXPECT_EQ(RelativeTime::from_string("PT0." + digits + "S"), RelativeTime(s_s));
    for (const char* const start : {"", "1d", "P", "P1D"}) {
        RelativeTime out;
        EXPECT_FALSE(read(start + digits + "s", out).is_null()) << start;
    }
}

}  // namespace
}  // namespace nqcore
