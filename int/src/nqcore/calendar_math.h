// The proleptic Gregorian calendar in integers: dates to and from Julian day numbers, instants to and from fields.
//
// Every function is total. Fields that no calendar has (month 13, day 65535, year -32768) give what the formulas give,
// on every target the same.
#pragma once

#include <cstdint>

namespace nqcore::calendar {

constexpr std::int64_t s_nsPerSecond = 1'000'000'000;
constexpr std::int64_t s_nsPerMinute = 60 * s_nsPerSecond;
constexpr std::int64_t s_nsPerHour = 60 * s_nsPerMinute;
constexpr std::int64_t s_nsPerDay = 24 * s_nsPerHour;
constexpr int s_epochJdn = 2'440'588;             // 1970-01-01
constexpr unsigned s_marchDayOfJdnZero = 32'044;  // days from March 1 of the year -4800 to Julian day 0

/// The Julian day number of a date, by Fliegel and Van Flandern's rule.
///
/// The leap years are counted without a sign: years before -4800 give day numbers above 10^9.
constexpr int julian_day_number(int year, int month, int day) noexcept {
    const int january = (14 - month) / 12;  // 1 in January and February, which belong to the year before
    const int monthFromMarch = month + 12 * january - 3;
    const auto y = static_cast<unsigned>(year + 4800 - january);
    return static_cast<int>(static_cast<unsigned>(day) + static_cast<unsigned>((153 * monthFromMarch + 2) / 5) +
                            365 * y + y / 4 - y / 100 + y / 400 - 32'045);
}

/// A date whose year counts from -4800.
struct Date {
    unsigned year;
    unsigned month;
    unsigned day;
};

/// The date of a day counted from March 1 of the year -4800: Neri and Schneider's affine forms.
///
/// In       `Count`: an unsigned type that holds four times the day and 3.
template <class Count>
constexpr Date date_of_march_day(Count marchDay) noexcept {
    const Count fourDays = 4 * marchDay + 3;
    const auto century = static_cast<unsigned>(fourDays / 146'097);
    const unsigned dayOfCentury = static_cast<unsigned>(fourDays % 146'097) / 4;
    // 2939745 is 2^32 / 1461, rounded up: the high half is the year of the century, the low half the part of the year.
    const std::uint64_t scaled = std::uint64_t{2'939'745} * (4 * dayOfCentury + 3);
    const auto yearOfCentury = static_cast<unsigned>(scaled >> 32);
    const unsigned dayOfYear = static_cast<unsigned>(scaled) / 2'939'745 / 4;
    // 2141 is 5 / 153 of 2^16, rounded: the high half is the month, from 3 (March) to 14 (February).
    const unsigned scaledMonth = 2141 * dayOfYear + 197'913;
    const unsigned month = scaledMonth >> 16;
    const unsigned day = (scaledMonth & 0xFFFF) / 2141 + 1;
    const bool nextYear = dayOfYear >= 306;  // January and February
    return {100 * century + yearOfCentury + nextYear, nextYear ? month - 12 : month, day};
}

struct TimeOfDay {
    unsigned hour;
    unsigned minute;
    unsigned second;
    unsigned nanosecond;
};

/// In       `ns`: 0 to 24 hours.
constexpr TimeOfDay time_of_day(std::int64_t ns) noexcept {
    const auto unsignedNs = static_cast<std::uint64_t>(ns);
    const auto second = static_cast<unsigned>(unsignedNs / s_nsPerSecond);
    const auto nanosecond = static_cast<unsigned>(unsignedNs - std::uint64_t{second} * s_nsPerSecond);
    const unsigned minute = second / 60;
    return {minute / 60, minute % 60, second % 60, nanosecond};
}

/// A day counted from 1970-01-01, and the nanoseconds since its start.
struct DayAndTime {
    int day;
    std::int64_t ns;
};

constexpr DayAndTime split_instant(std::int64_t nsSinceEpoch) noexcept {
    const std::int64_t truncated = nsSinceEpoch / s_nsPerDay;
    const std::int64_t rest = nsSinceEpoch - truncated * s_nsPerDay;
    const int borrowed = rest < 0 ? 1 : 0;
    return {static_cast<int>(truncated) - borrowed, rest + borrowed * s_nsPerDay};
}

/// The date of a day counted from 1970-01-01; the year counts from 0. Only for days that `split_instant` gives.
constexpr Date date_of_epoch_day(int day) noexcept {
    Date date = date_of_march_day(static_cast<std::uint32_t>(day + s_epochJdn) + s_marchDayOfJdnZero);
    date.year -= 4800;
    return date;
}

}  // namespace nqcore::calendar
