#include "nqcore/simple_date_time.h"

#include "time_text_test_support.h"

#include <climits>
#include <sstream>
#include <unordered_set>

namespace nqcore {
namespace {

using namespace std::string_view_literals;

constexpr AbsoluteTime s_noon(1'577'880'000);  // 2020-01-01 12:00:00

TEST(SimpleDateTime, NormalisesTheOffset) {
    constexpr struct {
        int given, kept;
        long days;  // that the base moves by
    } cases[] = {
        {720, 720, 0},
        {-720, -720, 0},
        {721, -719, 1},
        {-721, 719, -1},
        {1440, 0, 1},
        {2159, 719, 1},
        {2160, -720, 2},
        {-2160, 720, -2},
        {INT_MAX, 127, 1'491'308},  // the seconds of the days wrap round in 32 bits
        {INT_MIN, -128, -1'491'308},
    };
    for (const auto& [given, kept, days] : cases) {
        const SimpleDateTime time(s_noon, given);
        EXPECT_EQ(time.timezone_offset(), kept) << given;
        EXPECT_EQ(time.timezone_offset_as_relative_time(), RelativeTime::minutes(kept)) << given;
        EXPECT_EQ(time.as_utc_time(), s_noon + RelativeTime::days(days)) << given;
        EXPECT_EQ(time.as_local_time(), s_noon + RelativeTime::days(days) + RelativeTime::minutes(kept)) << given;
    }
    // As durations.
    const auto kept = [](RelativeTime offset) { return SimpleDateTime(s_noon, offset).timezone_offset(); };
    EXPECT_EQ(kept(RelativeTime::seconds(5999)), 99);
    EXPECT_EQ(kept(RelativeTime::seconds(-5999)), -99);
    EXPECT_EQ(kept(RelativeTime::hours(13)), -660);
    EXPECT_EQ(kept(RelativeTime::max_time), 153'722'867 % 1440 - 1440);
}

TEST(SimpleDateTime, InfiniteHasNoOffset) {
    SimpleDateTime time(s_noon, 5);
    const auto code = HasCode(error::nqcore_simpleDateTime_timezoneOffset);
    EXPECT_THAT([&] { time.set(AbsoluteTime::zero, RelativeTime::infinite); },
                ThrowsError(AllOf(code, HasMessage("An infinite timezoneOffset is not valid"))));
    EXPECT_THAT([&] { time.set(AbsoluteTime::infinite, -1500); },
                ThrowsError(AllOf(code, HasMessage("Timezone offset must be 0 if base-UTC time is infinite"),
                                  HasParam("timezoneOffset", "-1500"))));
    EXPECT_EQ(time.as_string(), "2020-01-01 12:00:00.0+00:05");
    time.set(AbsoluteTime::infinite, RelativeTime::seconds(59));
    EXPECT_TRUE(time.as_local_time().is_infinite());
    EXPECT_EQ(time.as_string(), "##INFINITE##");
    // The base meets the marker when it moves.
    time.set(AbsoluteTime::from_nsec(INT64_MAX - RelativeTime::days(1).as_nsec()), 780);
    EXPECT_EQ(time.as_string(), "##INFINITE##");
    EXPECT_EQ(time.timezone_offset(), 0);
}

TEST(SimpleDateTime, LocalTimeDecides) {
    const SimpleDateTime east(s_noon, 60);
    const SimpleDateTime same(s_noon + RelativeTime::hours(1));
    EXPECT_TRUE(east == same && east <= same && east > SimpleDateTime(s_noon));
    EXPECT_LT(SimpleDateTime(s_noon, -1), SimpleDateTime(s_noon));
    EXPECT_EQ(east.hash(), same.hash());
    EXPECT_EQ((std::unordered_set<SimpleDateTime>{east, same}.size()), 1u);
}

TEST(SimpleDateTime, ReadsEveryForm) {
    expect_read<SimpleDateTime>({
        {"2020-01-01 12:00:00.0+02:00", {"2020-01-01T12:00:00+02:00", "2020-01-01 12:00:00+02", "20200101t1200+0200"}},
        {"2020-01-01 12:00:00.5-05:30", {"2020-01-01T12:00:00.5-05:30", "20200101T120000,5-0530"}},
        {"2020-01-01 12:00:00.0Z",
         {"2020-01-01T12:00:00z", "2020-01-01t12", "2020-01-01T12-00", "2019-12-31T12:00+24"}},
        {"2020-01-02 12:00:00.0-11:00", {"2020-01-01T12:00:00+13:00"}},
        {"2019-12-28 12:00:00.0-03:59", {"2020-01-01T12:00:00-9959"}},
        {"##INFINITE##", {"INF", "infZ", "##infinite##+00:00", "9999-12-31T23:59:59.999999999Z"}},
    });
    const SimpleDateTime time = SimpleDateTime::from_string("2020-01-01T12:00:00+02:00");
    EXPECT_EQ(time.as_local_time(), AbsoluteTime(1'577'887'200));
    std::ostringstream stream;
    stream << time;
    EXPECT_EQ(stream.str(), time.as_string());
}

TEST(SimpleDateTime, ExplainsWhatIsWrong) {
    constexpr auto s_offset =
        "Invalid timezone offset in date/time string (must be hh:mm, hhmm, or hh): \"{@dateTime}\"";
    expect_refused(
        {
            {"Parsing UTC base of simple date/time failed (must be ISO8601).  Argument: \"{@dateTime}\"",
             {"", "Z", "+", "2020-01-01", "2020-01-01T12:00:00Z ", "2020-01-01T12:00:00+02:00Z", "\0"sv},
             error::nqcore_absoluteTime_invalidUtcString},
            {"Invalid timezone offset in date/time string (nothing allowed after 'Z' designator): \"{@dateTime}\"",
             {"2020-01-01T12:00:00Zx", "2020-01-01T12:00:00z00:00", "infZ\0"sv}},
            {s_offset,
             {"2020-01-01T12:00:00+2", "2020-01-01T12:00:00-02:", "2020-01-01T12:00:00+0:200",
              "2020-01-01T12:00:00+02000", "2020-01-01T12:00:00+02\0"sv}},
            {"Minutes in timezone must be 0...59: \"{@dateTime}\"",
             {"2020-01-01T12:00:00+02:60", "2020-01-01T12:00:00-0299"}},
            {s_offset, {"##INFINITE##+02:00", "inf-00:01"}, error::nqcore_simpleDateTime_timezoneOffset},
        },
        SimpleDateTime(s_noon, 77), error::nqcore_simpleDateTime_invalidString, "dateTime",
        "nqcore::SimpleDateTime::from_string_nothrow() //nqcore/int/src/nqcore/simple_date_time.cpp");
    EXPECT_THAT([] { static_cast<void>(SimpleDateTime::from_string("2020-01-01T12:00:00+02:60")); },
                ThrowsError(HasParam("dateTime", "2020-01-01T12:00:00+02:60")));
    EXPECT_TRUE(SimpleDateTime::from_string_nothrow("INFxxx", 3, nullptr).is_null());
    EXPECT_THAT(SimpleDateTime::from_string_nothrow(nullptr, 3, nullptr), HasParam("dateTime", ""));
}

}  // namespace
}  // namespace nqcore
