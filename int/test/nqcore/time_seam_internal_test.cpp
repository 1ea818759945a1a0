// The seam platform/calendar.h, the same on both targets.
#include "platform/calendar.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <tuple>

namespace nqcore::platform {
namespace {

constexpr std::uint64_t s_ticksPerSecond = 10'000'000;
constexpr std::uint64_t s_timeOfDay = 452'967'890'000;  // 12:34:56.789
constexpr std::uint64_t s_ticksPerDay = 86'400 * s_ticksPerSecond;

auto fields_of(const SYSTEMTIME& t) {
    return std::tuple(t.wYear, t.wMonth, t.wDayOfWeek, t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds);
}

TEST(TimeSeam, EveryDayAgreesWithTheStandardCalendar) {
    using namespace std::chrono;
    constexpr sys_days s_first = 1601y / January / 1;
    // The standard's years end at 32767, the system's at 30827.
    for (sys_days day = s_first; day <= sys_days(30827y / December / 31); day += days(13)) {
        const year_month_day date(day);
        const auto ticks = static_cast<std::uint64_t>((day - s_first).count()) * s_ticksPerDay + s_timeOfDay;
        SYSTEMTIME fields = {};
        ASSERT_TRUE(system_time_from_file_time(ticks, fields));
        ASSERT_EQ(fields.wYear, int(date.year()));
        ASSERT_EQ(std::tuple(fields.wMonth, fields.wDay, fields.wDayOfWeek),
                  std::tuple(unsigned(date.month()), unsigned(date.day()), weekday(day).c_encoding()));
        ASSERT_EQ(std::tuple(fields.wHour, fields.wMinute, fields.wSecond, fields.wMilliseconds),
                  std::tuple(12, 34, 56, 789));
        fields.wDayOfWeek = 99;  // not looked at
        std::uint64_t back = 0;
        ASSERT_TRUE(file_time_from_system_time(fields, back));
        ASSERT_EQ(back, ticks);
    }
}

TEST(TimeSeam, RefusalsWriteNothing) {
    SYSTEMTIME fields = {};
    ASSERT_TRUE(system_time_from_file_time(0x7FFFFFFF'FFFFFFFF, fields));
    const auto last = std::tuple(30828, 9, 4, 14, 2, 48, 5, 477);
    EXPECT_EQ(fields_of(fields), last);
    EXPECT_FALSE(system_time_from_file_time(0x80000000'00000000, fields));
    EXPECT_EQ(fields_of(fields), last);

    const SYSTEMTIME refused[] = {
        {1600, 12, 0, 31, 0, 0, 0, 0}, {0, 1, 0, 1, 0, 0, 0, 0},       {2020, 0, 0, 1, 0, 0, 0, 0},
        {2020, 13, 0, 1, 0, 0, 0, 0},  {2020, 1, 0, 0, 0, 0, 0, 0},    {2020, 4, 0, 31, 0, 0, 0, 0},
        {2020, 2, 0, 30, 0, 0, 0, 0},  {2020, 1, 0, 1, 24, 0, 0, 0},   {2020, 1, 0, 1, 0, 60, 0, 0},
        {2020, 1, 0, 1, 0, 0, 60, 0},  {2020, 1, 0, 1, 0, 0, 0, 1000},
    };
    std::uint64_t ticks = 42;
    for (const SYSTEMTIME& row : refused) {
        EXPECT_FALSE(file_time_from_system_time(row, ticks)) << row.wYear << '-' << row.wMonth << '-' << row.wDay;
        EXPECT_EQ(ticks, 42u);
    }
}

TEST(TimeSeam, LocalTicksShiftByOneOffset) {
    // Summer or winter, then or now: the offset is today's.
    std::uint64_t january = 0;
    std::uint64_t july = 0;
    ASSERT_TRUE(utc_from_local_file_time(132'000'000'000'000'000, january));
    ASSERT_TRUE(utc_from_local_file_time(132'157'000'000'000'000, july));
    EXPECT_EQ(july - january, 157'000'000'000'000u);
    const auto offset = static_cast<std::int64_t>(132'000'000'000'000'000 - january);
    EXPECT_EQ(offset % static_cast<std::int64_t>(900 * s_ticksPerSecond), 0);
    EXPECT_LE(std::abs(offset), static_cast<std::int64_t>(15 * 3600 * s_ticksPerSecond));
}

}  // namespace
}  // namespace nqcore::platform
