#include "platform/calendar.h"

#include "calendar_math.h"

#include <time.h>

namespace nqcore::platform {
namespace {

constexpr std::int64_t s_ticksPerMillisecond = 10'000;
constexpr std::int64_t s_ticksPerSecond = 1000 * s_ticksPerMillisecond;
constexpr std::int64_t s_ticksPerDay = 86'400 * s_ticksPerSecond;
constexpr int s_jdnOf1601 = 2'305'814;
static_assert(calendar::julian_day_number(1601, 1, 1) == s_jdnOf1601);

bool is_leap_year(unsigned year) noexcept { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

unsigned days_of_month(unsigned year, unsigned month) noexcept {
    constexpr unsigned s_days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && is_leap_year(year) ? 29 : s_days[month - 1];
}

}  // namespace

bool system_time_from_file_time(std::uint64_t ticks, SYSTEMTIME& fields) noexcept {
    if (ticks > INT64_MAX) {
        return false;
    }
    const auto day = static_cast<std::uint32_t>(ticks / s_ticksPerDay);
    const auto millisecond = static_cast<std::uint32_t>(ticks % s_ticksPerDay / s_ticksPerMillisecond);
    const calendar::Date date = calendar::date_of_march_day(day + s_jdnOf1601 + calendar::s_marchDayOfJdnZero);
    fields.wYear = static_cast<std::uint16_t>(date.year - 4800);
    fields.wMonth = static_cast<std::uint16_t>(date.month);
    fields.wDayOfWeek = static_cast<std::uint16_t>((day + 1) % 7);  // 1601-01-01 was a Monday
    fields.wDay = static_cast<std::uint16_t>(date.day);
    fields.wHour = static_cast<std::uint16_t>(millisecond / 3'600'000);
    fields.wMinute = static_cast<std::uint16_t>(millisecond / 60'000 % 60);
    fields.wSecond = static_cast<std::uint16_t>(millisecond / 1000 % 60);
    fields.wMilliseconds = static_cast<std::uint16_t>(millisecond % 1000);
    return true;
}

bool file_time_from_system_time(const SYSTEMTIME& fields, std::uint64_t& ticks) noexcept {
    const bool isDate = fields.wYear >= 1601 && fields.wYear <= 30827 && fields.wMonth >= 1 && fields.wMonth <= 12 &&
                        fields.wDay >= 1 && fields.wDay <= days_of_month(fields.wYear, fields.wMonth);
    const bool isTime =
        fields.wHour <= 23 && fields.wMinute <= 59 && fields.wSecond <= 59 && fields.wMilliseconds <= 999;
    if (!isDate || !isTime) {
        return false;
    }
    const int day = calendar::julian_day_number(fields.wYear, fields.wMonth, fields.wDay) - s_jdnOf1601;
    const int second = (fields.wHour * 60 + fields.wMinute) * 60 + fields.wSecond;
    ticks = static_cast<std::uint64_t>(day * s_ticksPerDay + second * s_ticksPerSecond +
                                       fields.wMilliseconds * s_ticksPerMillisecond);
    return true;
}

bool utc_from_local_file_time(std::uint64_t localTicks, std::uint64_t& utcTicks) noexcept {
    const time_t now = time(nullptr);
    tm local;
    tzset();  // localtime_r need not look at a changed TZ
    if (localtime_r(&now, &local) == nullptr) {
        return false;
    }
    utcTicks = localTicks - static_cast<std::uint64_t>(local.tm_gmtoff * s_ticksPerSecond);
    return true;
}

}  // namespace nqcore::platform
