#include "nqcore/utc_text.h"
#include "nqcore/abs_rel_time.h"

#include "time_text_test_support.h"

namespace nqcore {
namespace {

using namespace std::string_view_literals;

TEST(UtcText, ReadsEveryForm) {
    expect_read<AbsoluteTime>({
        // The forms.
        {"2020-02-29 12:34:56.789", {"2020-02-29T12:34:56.789Z"}},
        {"2020-02-29 12:34:56.0", {"2020-02-29 12:34:56", "20200229T123456Z"}},
        {"2020-02-29 12:30:00.0", {"2020-02-29T12:30", "20200229t1230", "2020-02-29T12.5Z", "2020-02-29T12,5z"}},
        {"2020-02-29 12:00:00.0", {"2020-02-29T12z", "2020-02-29T12:", "2020-02-29T12:Z", "2020-02-29T12:00:00."}},
        {"##INFINITE##", {"##iNfInItE##", "inf", "9999-12-31T23:59:59.999999999Z", "99991231T23:59:59,9999999989"}},
        // Roll-over.
        {"2020-03-01 00:00:00.0", {"2020-02-30 00:00:00", "2020-02-29 24:00:00", "2020-02-29T23:59:60Z"}},
        // Fractions of each part, and their rounding.
        {"2020-01-01 12:30:30.0", {"2020-01-01T1230,5", "2020-01-01T12:30.5"}},
        {"2020-01-01 00:00:00.999999999", {"2020-01-01T00:00:00.9999999994", "2020-01-01T00:00:00.99999999949999999"}},
        {"2020-01-01 00:00:00.000000006", {"2020-01-01T00:00.0000000001"}},   // the unit after ten digits is 6 ns
        {"2020-01-01 00:00:00.000000001", {"2020-01-01T00:00.00000000005"}},  // the eleventh rounds
        {"2020-01-01 00:00:00.000000003", {"2020-01-01T00.000000000001"}},    // 3.6 ns, cut to 3
    });
}

void expect_refusals(const std::vector<TextRow>& rows) {
    expect_refused(rows, AbsoluteTime(77), error::nqcore_absoluteTime_invalidUtcString, "utcTime",
                   "nqcore::AbsoluteTime::from_string_nothrow() //nqcore/int/src/nqcore/abs_rel_time.cpp");
}

constexpr std::string_view s_date = "Invalid date in UTC time string: \"{@utcTime}\"";

TEST(UtcText, ExplainsWhatIsWrong) {
    expect_refusals({
        // Twelve characters are too few.
        {"Invalid UTC time string: \"{@utcTime}\"", {"", "##INFINITE#", "INF\0"sv, "20200101T123"}},
        {s_date,
         {"##INFINITE###", "2020-13-01T00:00", "2020-01-32T00:00", "2020-13-01T00:00:00", "2020-00-01T00:00:00",
          "2020-01-32T00:00:00", "2020-01-00T00:00:00", "+020-01-01T00:00"}},
        {"Invalid date/time separator in UTC time string.  Expecting ' ' or 'T': \"{@utcTime}\"",
         {"2020-01-01_00:00", "2020-01-01_00:00:00", "2020-01-01\0\60\60:00"sv}},
        // After a separator only "." may follow the minutes, and no sign either.
        {"Invalid time in UTC time string \"{@utcTime}\"",
         {"2020-01-01T25:00", "2020-01-01T12:60", "2020-01-01T12:60:00", "2020-01-01T12:30:61",
          "2020-01-01T12:30:00.5\0"sv, "2020-01-01T12:30,5", "2020-01-01T12:30:00x5", "2020-01-01T12:30:00.12345678x",
          "2020-01-01T12:30+01:00"}},
        {"Invalid time in UTC time string (unexpected characters after 'Z') \"{@utcTime}\"",
         {"2020-01-01T12:00:00Zx", "2020-01-01T24:00:01Z "}},
        {"Invalid time in UTC time string (time must be UTC, no timezone offset) \"{@utcTime}\"",
         {"2020-01-01T12:00:00+01:00", "2020-01-01T1230-01"}},
        {"Invalid time in UTC time string.  Time must be 00:00:00...24:00:00 (inclusive). \"{@utcTime}\"",
         {"2020-01-01T24:00:00.000000001Z", "2020-01-01T24.1", "2020-01-01T23:59:60.1"}},
        {"Components of UTC date/time string exceeds date range: \"{@utcTime}\"",
         {"9999-12-31T23:59:59.999999998Z", "1677-09-21 00:12:43.145224191", "0970-01-01 00:00:00"},
         error::nqcore_absoluteTime_range},
    });
}

TEST(UtcText, ReadsTextsOfEveryKind) {
    const char* const text = "2020-02-29T12:34:56Z and more";
    EXPECT_EQ(AbsoluteTime::from_string(text, 20), AbsoluteTime(1'582'979'696));
    EXPECT_THAT([&] { static_cast<void>(AbsoluteTime::from_string(text)); }, ThrowsError(HasParam("utcTime", text)));
    AbsoluteTime out;
    EXPECT_TRUE(AbsoluteTime::from_string_nothrow("1970-01-01T00:00:01Z", out).is_null());
    EXPECT_TRUE(AbsoluteTime::from_string_nothrow(std::string("1970-01-01T00:00:01Z"), out).is_null());
    EXPECT_EQ(out, AbsoluteTime(1));
    EXPECT_TRUE(AbsoluteTime::from_string_nothrow(text, 20, nullptr).is_null());
    EXPECT_THAT(AbsoluteTime::from_string_nothrow(nullptr, 5, &out), HasParam("utcTime", ""));
}

TEST(UtcText, WritesBothForms) {
    constexpr std::tuple<std::int64_t, const char*, const char*> cases[] = {
        {0, "1970-01-01 00:00:00.0", "1970-01-01T00:00:00.0Z"},
        {100, "1970-01-01 00:00:00.0000001", "1970-01-01T00:00:00.0000001Z"},
        {-1, "1969-12-31 23:59:59.999999999", "1969-12-31T23:59:59.999999999Z"},
        {AbsoluteTime::TIMEVALUE_MIN, "1677-09-21 00:12:43.145224192", "1677-09-21T00:12:43.145224192Z"},
        {AbsoluteTime::TIMEVALUE_MAX, "2262-04-11 23:47:16.854775806", "2262-04-11T23:47:16.854775806Z"},
        {AbsoluteTime::TIMEVALUE_INFINITE, "##INFINITE##", "9999-12-31T23:59:59.999999999Z"},
    };
    for (const auto& [ns, plain, iso8601] : cases) {
        const AbsoluteTime time = AbsoluteTime::from_nsec(ns);
        EXPECT_EQ(time.as_string(), plain);
        EXPECT_EQ(time.as_iso8601_string(), iso8601);
        EXPECT_STREQ(UtcText::plain(time).c_str(), plain);
        EXPECT_STREQ(UtcText::iso8601(time).c_str(), iso8601);
        EXPECT_EQ(AbsoluteTime::from_string(plain), time);
    }
}

TEST(UtcText, RoundTrip) { expect_round_trip<UtcText>(AbsoluteTime::from_nsec); }

TEST(UtcText, AMillionDigits) {
    const std::string digits(1'000'000, '9');
    expect_refusals({{s_date, {digits}}});
    EXPECT_EQ(AbsoluteTime::from_string("2020-01-01T00:00:00." + digits), AbsoluteTime(1'577'836'801));
}

}  // namespace
}  // namespace nqcore
