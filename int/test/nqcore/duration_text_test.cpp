#include "nqcore/duration_text.h"
#include "nqcore/abs_rel_time.h"

#include "time_text_test_support.h"

#include <sstream>

namespace nqcore {
namespace {

using namespace std::string_view_literals;

constexpr std::int64_t s_ms = 1'000'000;
constexpr std::int64_t s_s = 1000 * s_ms;
constexpr std::int64_t s_m = 60 * s_s;
constexpr std::int64_t s_h = 60 * s_m;

TEST(DurationText, WritesBothForms) {
    constexpr std::tuple<std::int64_t, const char*, const char*> cases[] = {
        {0, "0ns", "PT0S"},
        {1, "1ns", "PT0.000000001S"},
        // On either side of each threshold.
        {1000, "1000ns", "PT0.000001S"},
        {1001, "1.001us", "PT0.000001001S"},
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
        {RelativeTime::TIMEVALUE_INFINITE, "##INFINITE##", "P999999DT23H59M59.999999999S"},
    };
    for (const auto& [ns, plain, iso8601] : cases) {
        const RelativeTime duration(ns);
        EXPECT_EQ(duration.as_string(), plain);
        EXPECT_EQ(duration.as_iso8601_string(), iso8601);
        EXPECT_STREQ(DurationText::plain(duration).c_str(), plain);
        EXPECT_EQ(RelativeTime::from_string(plain).as_nsec(), ns) << plain;
        EXPECT_EQ(RelativeTime::from_string(iso8601).as_nsec(), ns) << iso8601;
    }
    std::ostringstream stream;
    stream << RelativeTime(s_s);
    EXPECT_EQ(stream.str(), "1.0s");
}

TEST(DurationText, ReadsEveryForm) {
    expect_read<RelativeTime>({
        {"0ns", {"", "-", "   ", "0d", "h", ".s", "-.5ns", "PT", "-PT0S", "P0D"}},
        // The human form; a last number without a unit counts nothing.
        {"1d 2h 3m 4.5s", {"1d2h3m4.5s", "  4.5s3m 2h  1d ", "P1DT2H3M4,5S"}},
        {"1h 30m 0.0s", {"90m", ".5h 1h", "1.500000000000000000h", "1h 30m 5.", "pt1.5h", "P0.0625D"}},
        {"20.0us", {"20us", "0.02ms", "20000ns"}},
        {"-2.5s", {"- 2.5s", "-PT2.5S", "-p2.5s"}},
        // What lies below a nanosecond, or behind the eleventh digit of a fraction, is dropped.
        {"1ns", {"1.5ns", "1.99999999999ns", "0.0019us", "0.000000001999s", "PT0.0000000019999S"}},
        {"864ns", {"0.00000000001d", "P0.00000000001D"}},
        // The limits of each unit.
        {"106751d 0h 0m 0.0s", {"106751d", "P106751D"}},
        {"106751d 23h 0m 0.0s", {"2562047h"}},
        {"106751d 23h 47m 0.0s", {"153722867m"}},
        {"106751d 23h 47m 16.0s", {"9223372036s"}},
        {"106751d 23h 47m 16.854s", {"9223372036854ms", "9223372036854000us"}},
        {"106751d 23h 47m 16.854775799s", {"9223372036854775799ns", "0009223372036854775799ns"}},
        // Beyond them there is only infinite, on the negative side too; the total stops at 2^64 - 1.
        {"##INFINITE##",
         {"9223372036.854775807s", "-9223372036.854775809s", "106751.995d", "106751d 106751d 106751d 106751d",
          "PT9223372036854775807S", "-P30000000000W", "P213503DT84413.709551615S", "P213503DT84413.709551616S", "INF",
          "##infinite##"}},
        // ISO 8601, with a fraction that rounds in its 19th digit.
        {"7d 0h 0m 0.0s", {"P1W", "P0Y1W0M", "P0,000Y0.0M7D", "P0YT168H", "P6.5DT.5H11.5H"}},
        {"1.0s", {"P1S", "PT1.0000000000S", "PT0.9999999999999999995S"}},
        {"999.999999ms", {"PT0.999999999999999999S", "PT0.999999999999999999499S"}},
        {"0ns", {"P0.0000000000000016525W"}},  // 0.99973 ns, and 1.0003 with one more in the 18th
    });
}

void expect_refusals(const std::vector<TextRow>& rows) {
    expect_refused(rows, RelativeTime(77), error::nqcore_relativeTime_invalidTimeString, "timeString",
                   "nqcore::RelativeTime::field_from_string() //nqcore/int/src/nqcore/abs_rel_time.cpp");
}

TEST(DurationText, ExplainsWhatIsWrongWithAField) {
    expect_refusals({
        {"Value overflow processing time string \"{@timeString}\", length={@length}",
         {"-106752d", "2562048h", "153722868m", "9223372037s", "9223372036855ms", "9223372036854776us",
          "9223372036854775800ns", "99999999999999999999x"}},
        {"Syntax error processing time string \"{@timeString}\", length={@length}",
         {"1.2.3s", "1 h", "1m.5s", "1m\0"sv}},
        {"Invalid field type in time string \"{@timeString}\", length={@length}", {"1nx", "1u\0s"sv}},
        {"Unexpected end of string in time string \"{@timeString}\", length={@length}", {"1h 5u"}},
        {"Invalid value in time string \"{@timeString}\", length={@length}",
         {"1H", "--1s", "1,5s", " P1D", "-INF", "##INFINITE###", "\0"sv, "1\xC2\xB5s"}},
    });
}

TEST(DurationText, ExplainsWhatIsWrongWithIsoText) {
    struct {
        std::string_view text;
        unsigned position;
        std::string_view message;  // without the text, which ends every one
    } const cases[] = {
        {"P", 1, "Expecting time value after 'P' at position 1"},
        {"P1DT1Ht", 6, "Only one 'T' separator allowed (position 6)"},
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
        {"PT1\xC8", 3, "Unexpected time unit at position 3"},
    };
    for (const auto& [text, position, message] : cases) {
        RelativeTime out(77);
        const ErrorInfo::Ptr error = read_time(text, out);
        EXPECT_THAT(error, AllOf(HasCode(error::nqcore_relativeTime_invalidTimeString),
                                 HasMessage(std::string(message) + ": \"" + std::string(text) + '"')));
        EXPECT_EQ(error->params(), ErrorParams().add("timeString", text).add("stringPos", position));
        EXPECT_EQ(error->location().function().view(), "nqcore::RelativeTime::parse_iso8601_duration()");
        EXPECT_EQ(out, RelativeTime(77));
    }
}

TEST(DurationText, ReadsTextsOfEveryKind) {
    RelativeTime out(77);
    EXPECT_EQ(RelativeTime::from_string(std::string("1m30s")), RelativeTime(90 * s_s));
    EXPECT_TRUE(RelativeTime::from_string_nothrow(std::string("1m30s"), out).is_null());
    EXPECT_EQ(out, RelativeTime(90 * s_s));
    EXPECT_TRUE(RelativeTime::from_string_nothrow(static_cast<const char*>(nullptr), out).is_null());
    EXPECT_EQ(out, RelativeTime::zero);
    EXPECT_THAT([] { static_cast<void>(RelativeTime::from_string("1x")); },
                ThrowsError(HasMessage("Invalid value in time string \"1x\", length=2")));
}

TEST(DurationText, RoundTrip) { expect_round_trip<DurationText>(RelativeTime::nanoseconds); }

TEST(DurationText, AMillionDigits) {
    const std::string digits(1'000'000, '9');
    EXPECT_EQ(RelativeTime::from_string("0." + digits + "s"), RelativeTime(s_s - 1));
    EXPECT_EQ(RelativeTime::from_string("PT0." + digits + "S"), RelativeTime(s_s));
    for (const char* const start : {"", "1d", "P", "P1D"}) {
        RelativeTime out;
        EXPECT_FALSE(read_time(start + digits + "s", out).is_null()) << start;
    }
}

}  // namespace
}  // namespace nqcore
