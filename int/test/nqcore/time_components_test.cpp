#include "nqcore/abs_rel_time.h"

#include "error_test_support.h"

#include <chrono>
#include <climits>
#include <cmath>
#include <random>

namespace nqcore {
namespace {

using Components = AbsoluteTime::Components;
using std::chrono::sys_days;

constexpr int s_epochJdn = 2'440'588;

Components date(int year, unsigned month, unsigned day) {
    return Components(static_cast<std::int16_t>(year), static_cast<std::uint16_t>(month),
                      static_cast<std::uint16_t>(day), 0, 0, 0, 0);
}

TEST(TimeComponents, EveryDayThatFieldsCanHoldAgreesWithTheStandardCalendar) {
    constexpr int s_firstDayOfYear0 = 1'721'060;
    constexpr int s_lastDayOfYear32767 = 13'689'325;
    for (int jdn = s_firstDayOfYear0; jdn <= s_lastDayOfYear32767; ++jdn) {
        const int day = jdn - s_epochJdn;
        const sys_days standard{std::chrono::days(day)};
        const std::chrono::year_month_day fields(standard);
        Components expected = date(int(fields.year()), unsigned(fields.month()), unsigned(fields.day()));
        // Instants reach from 1677 to 2262.
        if (std::abs(day) <= 106751) {
            const AbsoluteTime midnight = AbsoluteTime::from_nsec(day * AbsoluteTime::NANOSECONDS_IN_ONE_DAY);
            ASSERT_EQ(Components(midnight), expected) << jdn;
            ASSERT_EQ(AbsoluteTime::from_components(expected), midnight);
            ASSERT_EQ(expected.day_of_week(), std::chrono::weekday(standard).iso_encoding() - 1) << jdn;
        }
        expected.hour(12);
        ASSERT_EQ(Components(jdn), expected) << jdn;
        ASSERT_EQ(expected.julian_day(), jdn);
    }
}

TEST(TimeComponents, InstantsSplitAndJoin) {
    const std::pair<std::int64_t, Components> cases[] = {
        {0, Components()},
        {-1, Components(1969, 12, 31, 23, 59, 59, 999'999'999)},
        {1'582'979'696'789'000'001, Components(2020, 2, 29, 12, 34, 56, 789'000'001)},
        {AbsoluteTime::TIMEVALUE_INFINITE, Components::infinite},
    };
    for (const auto& [ns, fields] : cases) {
        EXPECT_EQ(AbsoluteTime::from_nsec(ns).as_components(), fields) << ns;
        EXPECT_EQ(AbsoluteTime(fields).as_nsec(), ns);
    }
}

TEST(TimeComponents, FieldsRollOverUnchecked) {
    const std::pair<Components, Components> cases[] = {
        {date(2020, 2, 30), date(2020, 3, 1)},
        {Components(2020, 12, 31, 24, 0, 0, 0), date(2021, 1, 1)},
        {date(2021, 0, 1), date(2020, 12, 1)},
        {date(2020, 3, 0), date(2020, 2, 29)},
        {Components(2020, 1, 1, 0, 0, 0, 4'000'000'000u), Components(2020, 1, 1, 0, 0, 4, 0)},
        {Components(2000, 1, 65535, 65535, 65535, 65535, 0), Components(2187, 1, 10, 21, 27, 15, 0)},
    };
    for (const auto& [fields, same] : cases) {
        EXPECT_EQ(AbsoluteTime(fields), AbsoluteTime(same));
    }
    // The months' sum of days goes on by the same formula: month 15 is 367 days after March, in leap years too.
    EXPECT_EQ(date(2020, 15, 1).julian_day(), date(2020, 3, 1).julian_day() + 367);
}

TEST(TimeComponents, OutOfRangeIsExplained) {
    constexpr const char* before =
        "The specified Gregorian date/time represent a date before '1677-09-21 00:12:43.145224192' (the minimum "
        "representable by nqcore::AbsoluteTime)";
    constexpr const char* after =
        "The specified Gregorian date/time represent a date after '2262-04-11 23:47:16.854775806' (the maximum "
        "representable by nqcore::AbsoluteTime)";
    const std::pair<Components, const char*> cases[] = {
        {Components(1677, 9, 21, 0, 12, 43, 145'224'191), before},
        {Components(1677, 9, 20, 24, 12, 43, 145'224'192), before},  // the day counts, not what it rolls over to
        {Components(2262, 4, 11, 23, 47, 16, 854'775'807), after},
        {date(-32768, 1, 1), after},  // its day number is above 10^9
    };
    for (const auto& [fields, message] : cases) {
        AbsoluteTime out(5);
        const ErrorInfo::Ptr error = AbsoluteTime::from_components_nothrow(fields, &out);
        ASSERT_THAT(error, AllOf(HasCode(error::nqcore_absoluteTime_range), HasMessage(message)));
        EXPECT_TRUE(out == AbsoluteTime(5) && error->params().empty());
        EXPECT_EQ(error->location().function().view(), "nqcore::AbsoluteTime::from_components_nothrow()");
        EXPECT_EQ(error->location().file_path(), "//nqcore/int/src/nqcore/abs_rel_time.cpp");
        EXPECT_THROW(static_cast<void>(AbsoluteTime::from_components(fields)), ErrorException);
    }
    EXPECT_TRUE(AbsoluteTime::from_components_nothrow(Components(), nullptr).is_null());
}

// `read(slot)` fails with an error of the family `code`, by way of the slot for errors or as an exception without one.
template <class Read>
ErrorInfo::Ptr refusal_of(Read read, const char* code) {
    ErrorInfo::Ptr error;
    EXPECT_TRUE(read(&error).is_infinite());
    EXPECT_THAT(error, matchers::MatchesCode(code));
    EXPECT_THAT([&] { read(nullptr); }, ThrowsError(matchers::MatchesCode(code)));
    return error;
}

TEST(TimeComponents, JulianDays) {
    ErrorInfo::Ptr error = record();
    EXPECT_EQ(AbsoluteTime::from_julian_day(s_epochJdn, &error).as_string(), "1970-01-01 12:00:00.0");
    EXPECT_THAT(error, HasCode("error.a")) << "left alone";
    EXPECT_EQ(AbsoluteTime::zero.julian_day(), s_epochJdn);
    EXPECT_EQ(AbsoluteTime::infinite.julian_day(), 5'373'484);
    constexpr std::pair<int, const char*> cases[] = {
        {INT_MIN, "error.nqcore.cast.negativeToUnsigned"}, {0, "error.nqcore.cast.valueTooBig"},  // the year -4713
        {13'689'326, "error.nqcore.cast.valueTooBig"},  // the first day of the year 32768
        {1'721'060, "error.nqcore.absoluteTime.range"},    {2'547'340, "error.nqcore.absoluteTime.range"},
    };
    for (const auto& [jdn, code] : cases) {
        refusal_of([jdn = jdn](ErrorInfo::Ptr* slot) { return AbsoluteTime::from_julian_day(jdn, slot); }, code);
    }
}

TEST(TimeComponents, FullJulianDates) {
    constexpr std::tuple<double, bool, const char*> cases[] = {
        {2440588.75, false, "1970-01-02 06:00:00.0"},
        {2440587.5 + 1.0 / 1048576, false, "1970-01-01 00:00:00.082397460"},
        {2440587.5 + 7.0 / 1048576, true, "1970-01-01 00:00:01.0"},  // 0.58 s
        {2451545.5 - 1.0 / 1048576, true, "2000-01-02 00:00:00.0"},  // into the next day
        {2458909.5 - 1.0 / 1048576, false, "2020-02-29 23:59:59.917602539"},
    };
    for (const auto& [jd, round, text] : cases) {
        EXPECT_EQ(AbsoluteTime::from_full_julian_date(jd, nullptr, round), AbsoluteTime::from_string(text));
    }
    EXPECT_EQ(Components(2440587.5, false), Components());  // midnight, not 24 o'clock
    EXPECT_EQ(Components(2440587.5), Components(2440587.5, false));
    EXPECT_EQ(Components(2440588u), Components(2440588));
    EXPECT_EQ(Components(1970, 1, 1, 18, 0, 0, 0).full_julian_date(), 2440588.25);
    EXPECT_TRUE(std::isinf(AbsoluteTime::infinite.full_julian_date()));
    std::mt19937_64 random(11);
    for (int i = 0; i < 20'000; ++i) {
        const AbsoluteTime second(static_cast<std::int64_t>(random()) / 1'000'000'000);
        ASSERT_EQ(AbsoluteTime::from_full_julian_date(second.full_julian_date(), nullptr, true), second);
    }
}

TEST(TimeComponents, FullJulianDatesOutOfRange) {
    constexpr std::tuple<double, const char*, const char*> cases[] = {
        {-1.0, "error.nqcore.cast.negativeToUnsigned", "-1"},
        {4294967295.5, "error.nqcore.cast.valueTooBig", "4294967295.5"},
        {HUGE_VAL, "error.nqcore.cast.valueTooBig", "inf"},
        {__builtin_nan(""), "error.nqcore.cast.valueTooBig", "nan"},
        // Dates of 32 bits, but none that fields can hold.
        {0.0, "error.nqcore.cast.valueTooBig.signReversal", nullptr},
        {4294967295.0, "error.nqcore.cast.valueTooBig", nullptr},
        {4294935252.0, "error.nqcore.cast.valueTooBig", nullptr},  // 32044 days on, the day number wraps round
    };
    for (const auto& [jd, code, text] : cases) {
        const auto read = [jd = jd](ErrorInfo::Ptr* slot) {
            return AbsoluteTime::from_full_julian_date(jd, slot, true);
        };
        const ErrorInfo::Ptr error = refusal_of(read, code);
        if (text != nullptr) {
            EXPECT_EQ(error->message().view(),
                      "The given date ({@jd}) lies outside of the range of days representable in 32 bits.");
            EXPECT_EQ(error->params(), ErrorParams().add("jd", text));
            EXPECT_EQ(error->location().function().view(), "nqcore::AbsoluteTime::Components::Components()");
        }
        EXPECT_THROW(Components(jd, false), ErrorException);
    }
}

}  // namespace
}  // namespace nqcore
