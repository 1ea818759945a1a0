#include "nqcore/abs_rel_time.h"

#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <string_view>

namespace nqcore {
namespace {

using Components = AbsoluteTime::Components;
using ErrorPtr = RefCountPtr<const ErrorInfo>;

constexpr std::int64_t s_nsPerDay = AbsoluteTime::NANOSECONDS_IN_ONE_DAY;
constexpr int s_epochJdn = 2'440'588;

Components date(int year, unsigned month, unsigned day) {
    return Components(static_cast<std::int16_t>(year), static_cast<std::uint16_t>(month),
                      static_cast<std::uint16_t>(day), 0, 0, 0, 0);
}

using std::chrono::days;
using std::chrono::sys_days;

Components date(sys_days day) {
    const std::chrono::year_month_day fields(day);
    return date(int(fields.year()), unsigned(fields.month()), unsigned(fields.day()));
}

TEST(TimeComponents, EveryDayThatFieldsCanHoldAgreesWithTheStandardCalendar) {
    constexpr int s_firstDayOfYear0 = 1'721'060;
    constexpr int s_lastDayOfYear32767 = 13'689'325;
    for (int jdn = s_firstDayOfYear0; jdn <= s_lastDayOfYear32767; ++jdn) {
        const int day = jdn - s_epochJdn;
        Components expected = date(sys_days(days(day)));
        // Instants reach from 1677 to 2262.
        if (std::abs(day) <= 106751) {
            const AbsoluteTime midnight = AbsoluteTime::from_nsec(day * s_nsPerDay);
            ASSERT_EQ(Components(midnight), expected) << jdn;
            ASSERT_EQ(AbsoluteTime::from_components(expected), midnight);
            ASSERT_EQ(expected.day_of_week(), std::chrono::weekday(sys_days(days(day))).iso_encoding() - 1) << jdn;
        }
        expected.hour(12);
        ASSERT_EQ(Components(jdn), expected) << jdn;
        ASSERT_EQ(expected.julian_day(), jdn);
    }
}

TEST(TimeComponents, InstantsSplitAndJoin) {
    struct {
        std::int64_t ns;
        Components fields;
    } const cases[] = {
        {0, Components()},
        {-1, Components(1969, 12, 31, 23, 59, 59, 999'999'999)},
        {1'582'979'696'789'000'001, Components(2020, 2, 29, 12, 34, 56, 789'000'001)},
        {AbsoluteTime::TIMEVALUE_INFINITE, Components::infinite},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(AbsoluteTime::from_nsec(row.ns).as_components(), row.fields) << row.ns;
        EXPECT_EQ(AbsoluteTime(row.fields).as_nsec(), row.ns);
    }
}

TEST(TimeComponents, FieldsRollOverUnchecked) {
    struct {
        Components fields;
        Components same;
    } const cases[] = {
        {Components(2020, 2, 30, 0, 0, 0, 0), date(2020, 3, 1)},
        {Components(2020, 12, 31, 24, 0, 0, 0), date(2021, 1, 1)},
        {Components(2021, 0, 1, 0, 0, 0, 0), date(2020, 12, 1)},
        {Components(2020, 3, 0, 0, 0, 0, 0), date(2020, 2, 29)},
        {Components(2020, 1, 1, 0, 0, 0, 4'000'000'000u), Components(2020, 1, 1, 0, 0, 4, 0)},
        {Components(2000, 1, 65535, 65535, 65535, 65535, 0), Components(2187, 1, 10, 21, 27, 15, 0)},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(AbsoluteTime(row.fields).as_string(), AbsoluteTime(row.same).as_string());
    }
    // The months' sum of days goes on by the same formula: month 15 is 367 days after March, in leap years too.
    EXPECT_EQ(date(2020, 15, 1).julian_day(), date(2020, 3, 1).julian_day() + 367);
}

TEST(TimeComponents, YearsBefore4800AreCountedWithoutSign) {
    EXPECT_EQ(date(-4800, 3, 1).julian_day(), -32044);
    EXPECT_EQ(date(-4800, 2, 29).julian_day(), 1'041'497'525);
    EXPECT_EQ(date(-4713, 11, 23).day_of_week(), 6);  // Julian day -1
    EXPECT_EQ(date(32767, 12, 31).julian_day(), 13'689'325);
    EXPECT_EQ(date(-32768, 1, 1).julian_day(), 1'031'282'363);
}

TEST(TimeComponents, OutOfRangeIsExplained) {
    const std::string before =
        "The specified Gregorian date/time represent a date before '1677-09-21 00:12:43.145224192' (the minimum "
        "representable by nqcore::AbsoluteTime)";
    const std::string after =
        "The specified Gregorian date/time represent a date after '2262-04-11 23:47:16.854775806' (the maximum "
        "representable by nqcore::AbsoluteTime)";
    struct {
        Components fields;
        const std::string& message;
    } const cases[] = {
        {Components(1677, 9, 21, 0, 12, 43, 145'224'191), before},
        {Components(1677, 9, 20, 24, 12, 43, 145'224'192), before},  // the day counts, not what it rolls over to
        {Components(2262, 4, 11, 23, 47, 16, 854'775'807), after},
        {date(-32768, 1, 1), after},  // its day number is above 10^9
    };
    for (const auto& row : cases) {
        AbsoluteTime out(5);
        const ErrorPtr error = AbsoluteTime::from_components_nothrow(row.fields, &out);
        ASSERT_FALSE(error.is_null());
        EXPECT_EQ(out, AbsoluteTime(5));
        EXPECT_EQ(error->code(), error::nqcore_absoluteTime_range);
        EXPECT_EQ(error->message().view(), row.message);
        EXPECT_TRUE(error->params().empty());
        EXPECT_EQ(error->location().function().view(), "nqcore::AbsoluteTime::from_components_nothrow()");
        EXPECT_NE(error->location().file_path().find("/abs_rel_time.cpp"), std::string::npos);
        EXPECT_THROW(static_cast<void>(AbsoluteTime::from_components(row.fields)), ErrorException);
    }
    EXPECT_TRUE(AbsoluteTime::from_components_nothrow(Components(), nullptr).is_null());
    EXPECT_LT(date(-1, 12, 31), date(2020, 1, 1));  // field by field
}

template <class Read>
void expect_refused(Read read, const char* code, ErrorPtr& error) {
    EXPECT_TRUE(read(&error).is_infinite());
    ASSERT_FALSE(error.is_null()) << code;
    EXPECT_TRUE(error->matches(code)) << error->code();
    EXPECT_THROW(read(nullptr), ErrorException);
}

TEST(TimeComponents, JulianDays) {
    EXPECT_EQ(AbsoluteTime::from_julian_day(s_epochJdn, nullptr).as_string(), "1970-01-01 12:00:00.0");
    EXPECT_EQ(AbsoluteTime::zero.julian_day(), s_epochJdn);
    EXPECT_EQ(AbsoluteTime::infinite.julian_day(), 5'373'484);
    struct {
        int jdn;
        const char* code;
    } const cases[] = {
        {std::numeric_limits<int>::min(), "error.nqcore.cast.negativeToUnsigned"},
        {0, "error.nqcore.cast.valueTooBig"},           // the year -4713
        {13'689'326, "error.nqcore.cast.valueTooBig"},  // the first day of the year 32768
        {1'721'060, "error.nqcore.absoluteTime.range"},
        {2'547'340, "error.nqcore.absoluteTime.range"},
    };
    for (const auto& row : cases) {
        ErrorPtr error;
        expect_refused([&row](ErrorPtr* slot) { return AbsoluteTime::from_julian_day(row.jdn, slot); }, row.code,
                       error);
        // Success leaves the slot alone.
        EXPECT_EQ(AbsoluteTime::from_julian_day(s_epochJdn, &error).as_time_t(), 43'200);
        EXPECT_FALSE(error.is_null());
    }
}

TEST(TimeComponents, FullJulianDates) {
    struct {
        double jd;
        bool round;
        const char* text;
    } const cases[] = {
        {2440588.75, false, "1970-01-02 06:00:00.0"},
        {2440587.5 + 1.0 / 1048576, false, "1970-01-01 00:00:00.082397460"},
        {2440587.5 + 7.0 / 1048576, true, "1970-01-01 00:00:01.0"},  // 0.58 s
        {2451545.5 - 1.0 / 1048576, true, "2000-01-02 00:00:00.0"},  // into the next day
        {2458909.5 - 1.0 / 1048576, false, "2020-02-29 23:59:59.917602539"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(AbsoluteTime::from_full_julian_date(row.jd, nullptr, row.round), AbsoluteTime::from_string(row.text));
    }
    EXPECT_EQ(Components(2440587.5, false), Components());  // midnight, not 24 o'clock
    EXPECT_EQ(Components(1970, 1, 1, 18, 0, 0, 0).full_julian_date(), 2440588.25);
    EXPECT_TRUE(std::isinf(AbsoluteTime::infinite.full_julian_date()));
}

TEST(TimeComponents, FullJulianDatesComeBackWithinTheirResolution) {
    std::mt19937_64 random(11);
    for (int i = 0; i < 20'000; ++i) {
        const AbsoluteTime second(static_cast<std::int64_t>(random()) / 1'000'000'000);
        ASSERT_EQ(AbsoluteTime::from_full_julian_date(second.full_julian_date(), nullptr, true), second);
    }
}

TEST(TimeComponents, FullJulianDatesOutOfRange) {
    struct {
        double jd;
        const char* code;
        const char* text;  // null where the date is one of 32 bits, but not one that fields can hold
    } const cases[] = {
        {-1.0, "error.nqcore.cast.negativeToUnsigned", "-1"},
        {4294967295.5, "error.nqcore.cast.valueTooBig", "4294967295.5"},
        {std::numeric_limits<double>::infinity(), "error.nqcore.cast.valueTooBig", "inf"},
        {std::numeric_limits<double>::quiet_NaN(), "error.nqcore.cast.valueTooBig", "nan"},
        {0.0, "error.nqcore.cast.valueTooBig.signReversal", nullptr},
        {4294967295.0, "error.nqcore.cast.valueTooBig", nullptr},
        {4294935252.0, "error.nqcore.cast.valueTooBig", nullptr},  // 32044 days on, the day number wraps round
    };
    for (const auto& row : cases) {
        ErrorPtr error;
        expect_refused([&row](ErrorPtr* slot) { return AbsoluteTime::from_full_julian_date(row.jd, slot, true); },
                       row.code, error);
        if (row.text != nullptr) {
            EXPECT_EQ(error->message().view(),
                      "The given date ({@jd}) lies outside of the range of days representable in 32 bits.");
            EXPECT_EQ(error->params().get_value("jd"), row.text);
            EXPECT_EQ(error->location().function().view(), "nqcore::AbsoluteTime::Components::Components()");
        }
        EXPECT_THROW(Components(row.jd, false), ErrorException);
    }
}

}  // namespace
}  // namespace nqcore
