#include "nqcore/abs_rel_time.h"

#include "nqcore/ace_timeout.h"
#include "nqcore/time_chrono.h"
#include "nqcore/windows_types.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>

namespace nqcore {
namespace {

using impl::TimeBase;

constexpr std::int64_t s_min = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t s_infinite = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t s_max = s_infinite - 1;

AbsoluteTime at(std::int64_t ns) { return AbsoluteTime::from_nsec(ns); }
RelativeTime span(std::int64_t ns) { return RelativeTime(ns); }

// Reads the constants before main, in a translation unit that the library knows nothing of.
const std::int64_t s_readAtStart[] = {AbsoluteTime::infinite.as_nsec(), AbsoluteTime::min_time.as_nsec(),
                                      RelativeTime::max_time.as_nsec(), RelativeTime::zero.as_nsec(),
                                      TimeBase::MAX_SYSTEMTIME.wYear};

TEST(AbsRelTime, ConstantsAreThereBeforeMainAndForReferences) {
    EXPECT_THAT(s_readAtStart, testing::ElementsAre(s_infinite, s_min, s_max, 0, 30827));
    std::int64_t product = 1;
    for (const std::int32_t* factor :
         {&TimeBase::HOURS_IN_ONE_DAY, &TimeBase::MINUTES_IN_ONE_HOUR, &TimeBase::SECONDS_IN_ONE_MINUTE,
          &TimeBase::MILLISECONDS_IN_ONE_SECOND, &TimeBase::MICROSECONDS_IN_ONE_MILLISECOND,
          &TimeBase::NANOSECONDS_IN_ONE_MICROSECOND}) {
        product *= *factor;
    }
    EXPECT_EQ(product, TimeBase::NANOSECONDS_IN_ONE_DAY);
    EXPECT_TRUE(AbsoluteTime::max_time.is_max_time() && !AbsoluteTime::max_time.is_infinite());
    EXPECT_TRUE(RelativeTime::infinite.is_positive() && RelativeTime::min_time.is_negative());
}

TEST(AbsRelTime, NumbersAreSecondsForPointsAndNanosecondsForSpans) {
    EXPECT_EQ(AbsoluteTime(-7LL).as_nsec(), -7'000'000'000);
    EXPECT_EQ(RelativeTime(-7L).as_nsec(), -7);
    EXPECT_EQ(AbsoluteTime(-1, -5).as_nsec(), -1'000'005'000);
    EXPECT_EQ(RelativeTime(2, 3'000'000).as_nsec(), 5'000'000'000);
    // No overflow check: the products wrap round.
    EXPECT_EQ(AbsoluteTime(s_infinite).as_nsec(), -1'000'000'000);
    AbsoluteTime time;
    time.set_usec(s_min);
    EXPECT_EQ(time, AbsoluteTime::zero);
    time.set_msec(3);
    EXPECT_EQ(time.as_nsec(), 3'000'000);
    time.set(RelativeTime(9), time);
    EXPECT_EQ(time.as_nsec(), 3'000'009);
}

TEST(AbsRelTime, SystemStructuresGoInAndOut) {
    const timeval micro = {-3, -250'000};
    EXPECT_EQ(AbsoluteTime(micro).as_nsec(), -3'250'000'000);
    const timespec nano = {3, 250'000'001};
    EXPECT_EQ(RelativeTime(nano).as_nsec(), 3'250'000'001);

    const RelativeTime negative(-3'250'000'999);
    EXPECT_EQ(negative.as_timeval().tv_usec, -250'000);
    EXPECT_EQ(negative.as_timespec().tv_nsec, -250'000'999);
    EXPECT_EQ(negative.as_ace_time_value(), ACE_Time_Value(-3, -250'000));
}

TEST(AbsRelTime, AceTimeOutOfInfiniteIsNull) {
    EXPECT_TRUE(RelativeTime(nullptr).is_infinite());
    const ACE_Time_Value two(2, 5);
    EXPECT_EQ(AbsoluteTime(&two).as_nsec(), 2'000'005'000);
    impl::AceTimeoutProxy timeOut = RelativeTime(1'500'000'999).as_ace_timeout();
    EXPECT_EQ(*static_cast<const ACE_Time_Value*>(timeOut), ACE_Time_Value(1, 500'000));
    const impl::AceTimeoutProxy none = AbsoluteTime::infinite.as_ace_timeout();
    timeOut = none;
    EXPECT_EQ(static_cast<const ACE_Time_Value*>(timeOut), nullptr);
}

TEST(AbsRelTime, InfiniteConvertsToMarkersOfEachForm) {
    const AbsoluteTime infinite = AbsoluteTime::infinite;
    EXPECT_EQ(infinite.as_usec(), s_infinite);
    EXPECT_EQ(infinite.as_msec(), s_infinite);
    EXPECT_EQ(infinite.as_time_t(), s_infinite);
    EXPECT_TRUE(std::isinf(infinite.as_sec()));
    EXPECT_EQ(infinite.as_timeval_sec(), 2147483647);
    EXPECT_EQ(infinite.as_timeval_usec(), 2147483647);
    EXPECT_EQ(infinite.as_filetime().dwLowDateTime, 0xFFFFFFFFu);
    EXPECT_EQ(infinite.as_systemtime().wYear, 30827);
    // The value below is an ordinary number; all divisions truncate toward zero.
    EXPECT_EQ(AbsoluteTime::max_time.as_usec(), 9'223'372'036'854'775);
    EXPECT_EQ(AbsoluteTime::min_time.as_msec(), -9'223'372'036'854);
    EXPECT_EQ(at(-1'500'000'000).as_time_t(), -1);
    EXPECT_EQ(at(-1'500'000'000).as_sec(), -1.5);
}

// Fields of 64 bits take everything; narrower ones take their nearest value.
template <class Seconds>
void expect_split(Seconds seconds, std::int64_t fraction, std::int64_t trueSeconds, std::int64_t trueFraction,
                  std::int64_t lastFraction) {
    using Limits = std::numeric_limits<Seconds>;
    const std::int64_t nearest = std::clamp<std::int64_t>(trueSeconds, Limits::min(), Limits::max());
    EXPECT_EQ(seconds, nearest);
    EXPECT_EQ(fraction, nearest == trueSeconds ? trueFraction : trueSeconds > 0 ? lastFraction : -lastFraction);
}

TEST(AbsRelTime, SecondsBeyondTheFieldAreClamped) {
    const timeval early = RelativeTime::min_time.as_timeval();
    expect_split(early.tv_sec, early.tv_usec, -9'223'372'036, -854'775, 999'999);
    const timespec never = AbsoluteTime::infinite.as_timespec();  // no special case
    expect_split(never.tv_sec, never.tv_nsec, 9'223'372'036, 854'775'807, 999'999'999);
    const ACE_Time_Value late = AbsoluteTime::infinite.as_ace_time_value();
    expect_split(late.sec(), late.usec(), 9'223'372'036, 854'775, 999'999);
}

TEST(AbsRelTime, FloatingSecondsTruncateAndNeverOverflow) {
    EXPECT_EQ(AbsoluteTime(1.5).as_nsec(), 1'500'000'000);
    EXPECT_EQ(RelativeTime(-1.9e-9).as_nsec(), -1);
    constexpr double s_nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double s_inf = std::numeric_limits<double>::infinity();
    for (const double outside : {9223372036.9, -9223372037.0, 1e300, s_inf, -s_inf, s_nan}) {
        EXPECT_TRUE(AbsoluteTime(outside).is_min_time()) << outside;
    }
    EXPECT_EQ(RelativeTime::seconds(3) * 0.5, RelativeTime::microseconds(1'500'000));
    EXPECT_TRUE((RelativeTime::infinite * 1.0).is_min_time());
}

TEST(AbsRelTime, Win32TimeOuts) {
    constexpr std::int64_t cases[][2] = {
        {0, 0}, {1, 1'000'000}, {0xFFFFFFFE, 4'294'967'294'000'000}, {0xFFFFFFFF, s_infinite}};
    for (const auto& [milliseconds, ns] : cases) {
        RelativeTime timeOut(77);
        timeOut.set_win32_timeout(static_cast<std::uint32_t>(milliseconds));
        EXPECT_EQ(timeOut.as_nsec(), ns);
        EXPECT_EQ(timeOut.as_win32_timeout(), milliseconds);
    }
    EXPECT_EQ(RelativeTime(-1'999'999).as_win32_timeout(), 0xFFFFFFFFu);          // -1 ms, not clamped
    EXPECT_EQ(RelativeTime::milliseconds(0x1'0000'0005).as_win32_timeout(), 5u);  // the low 32 bits
}

TEST(AbsRelTime, DaysHoursMinutesWrapAt32Bits) {
    EXPECT_EQ(RelativeTime::days(24855).as_time_t(), 2'147'472'000);
    EXPECT_EQ(RelativeTime::days(24856).as_time_t(), 2'147'558'400 - 4'294'967'296);
    EXPECT_EQ(RelativeTime::hours(596'524).as_time_t(), 2'147'486'400 - 4'294'967'296);
    EXPECT_EQ(RelativeTime::minutes(-35'791'395).as_time_t(), 4'294'967'296 - 2'147'483'700);
}

TEST(AbsRelTime, SumsAreInfiniteOrWrap) {
    constexpr std::int64_t cases[][3] = {{s_infinite, s_min, s_infinite}, {0, s_infinite, s_infinite},
                                         {s_max, 1, s_infinite},          {s_max, 2, s_min},
                                         {s_min, -1, s_infinite},         {s_min, -2, s_max}};
    for (const auto& [left, right, ns] : cases) {
        SCOPED_TRACE(testing::Message() << left << " + " << right);
        EXPECT_EQ(at(left) + span(right), at(ns));
        EXPECT_EQ(span(right) + at(left), at(ns));
        EXPECT_EQ(AbsoluteTime(span(right), at(left)), at(ns));
        EXPECT_EQ(at(left) - -span(right), at(ns));
        RelativeTime total = span(left);
        total += span(right);
        EXPECT_EQ(total, span(ns));
        total = span(left);
        total -= -span(right);
        EXPECT_EQ(total, span(ns));
    }
    AbsoluteTime moved;
    moved -= span(5);
    EXPECT_EQ(moved, at(-5));
    EXPECT_TRUE(AbsoluteTime(RelativeTime::infinite).is_infinite());
    // What minus leaves as it is.
    EXPECT_EQ(-RelativeTime::min_time, RelativeTime::min_time);
    EXPECT_EQ(-RelativeTime::infinite, RelativeTime::infinite);
    RelativeTime value = RelativeTime::max_time;
    value.negate();
    EXPECT_EQ(value, span(s_min + 2));
}

TEST(AbsRelTime, DifferenceOfPoints) {
    // A difference that does not fit keeps its low 32 bits below 0x7FFFFFFF: never negative, and infinite only where
    // they are all ones.
    constexpr std::int64_t cases[][3] = {{3, 5, -2},
                                         {7, 7, 0},
                                         {s_infinite, s_min, s_infinite},
                                         {0, s_infinite, s_infinite},
                                         {0, s_max, -s_max},
                                         {s_max, -1, s_infinite},
                                         {0, s_min, 0x7FFFFFFF'00000000},
                                         {s_max, s_min, 0x7FFFFFFF'FFFFFFFE},
                                         {s_min, s_max, 0x7FFFFFFF'FFFFFFFE},
                                         {s_max - 5, s_min + 4, 0x7FFFFFFF'FFFFFFF5}};
    for (const auto& [left, right, ns] : cases) {
        EXPECT_EQ((at(left) - at(right)).as_nsec(), ns) << left << " - " << right;
    }
}

TEST(AbsRelTime, DeadlinesCountDownToZero) {
    EXPECT_EQ(at(100).remaining(at(60)), RelativeTime(40));
    EXPECT_EQ(at(100).remaining(at(130)), RelativeTime::zero);
    EXPECT_EQ(at(100).overtime(at(130)), RelativeTime(30));
    EXPECT_EQ(at(100).overtime(at(60)), RelativeTime::zero);
    // Against the clock.
    EXPECT_TRUE(AbsoluteTime::zero.remaining().is_zero());
    EXPECT_GT(AbsoluteTime::zero.overtime(), RelativeTime::days(365));
    EXPECT_TRUE(AbsoluteTime::infinite.remaining().is_infinite());
    EXPECT_TRUE(AbsoluteTime::infinite.overtime().is_infinite());
}

TEST(AbsRelTime, NowIsTheSystemClock) {
    const auto before = std::chrono::system_clock::now().time_since_epoch();
    const AbsoluteTime now = AbsoluteTime::now();
    const AbsoluteTime soon(RelativeTime::zero);
    const auto after = std::chrono::system_clock::now().time_since_epoch();
    // The clocks read differ in resolution, by less than 20 ms.
    const auto slack = std::chrono::milliseconds(20);
    EXPECT_GE(to_chrono(now).time_since_epoch(), before - slack);
    EXPECT_LE(to_chrono(soon).time_since_epoch(), after + slack);
}

TEST(AbsRelTime, OrderHashAndStream) {
    EXPECT_LT(AbsoluteTime::max_time, AbsoluteTime::infinite);
    EXPECT_GE(RelativeTime::infinite, RelativeTime::max_time);
    EXPECT_EQ(AbsoluteTime::infinite.hash(), 0x80000000u);
    EXPECT_EQ(span(0x12345678'9ABCDEF0).hash(), 0x12345678u ^ 0x9ABCDEF0u);
    EXPECT_EQ(std::hash<AbsoluteTime>()(at(3)), 3u);
    std::ostringstream stream;
    stream << AbsoluteTime::zero << ' ' << AbsoluteTime::infinite;
    EXPECT_EQ(stream.str(), "1970-01-01 00:00:00.0 ##INFINITE##");
}

std::uint64_t ticks_of(const FILETIME& time) { return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime; }

TEST(AbsRelTime, FileTimes) {
    EXPECT_EQ(ticks_of(at(-199).as_filetime()), 116444735999999999u);  // toward zero
    EXPECT_EQ(ticks_of(AbsoluteTime::min_time.as_filetime()), 24211015631452242u);
    EXPECT_EQ(ticks_of(AbsoluteTime::max_time.as_filetime()), 208678456368547758u);
    EXPECT_EQ(AbsoluteTime(AbsoluteTime::max_time.as_filetime(), false).as_nsec(), s_max / 100 * 100);
    // Wraps round: 1601 lies before the range, all bits set beyond it.
    EXPECT_EQ(AbsoluteTime(FILETIME{0, 0}, false).as_nsec(), 6'802'270'473'709'551'616);
    EXPECT_EQ(AbsoluteTime(TimeBase::MAX_FILETIME, false).as_nsec(),
              static_cast<std::int64_t>((0u - 1ull - 116444736000000000u) * 100));
}

TEST(AbsRelTime, SystemTimes) {
    const SYSTEMTIME leap = {2020, 2, 6, 29, 12, 34, 56, 789};
    EXPECT_EQ(AbsoluteTime(leap, false).as_nsec(), 1'582'979'696'789'000'000);
    // What the calendar does not have is not reported; the result is the epoch.
    for (const SYSTEMTIME& bad : {SYSTEMTIME{2020, 2, 0, 30, 0, 0, 0, 0}, SYSTEMTIME{1600, 1, 0, 1, 0, 0, 0, 0}}) {
        EXPECT_EQ(AbsoluteTime(bad, true), AbsoluteTime::zero);
    }
}

TEST(AbsRelTime, ChronoRoundTrip) {
    for (const std::int64_t ns : {s_min, s_max, std::int64_t{-1}}) {
        EXPECT_EQ(from_chrono(to_chrono(at(ns))), at(ns));
        EXPECT_EQ(to_chrono(span(ns)).count(), ns);
    }
    EXPECT_TRUE(from_chrono(std::chrono::sys_time<std::chrono::nanoseconds>::max()).is_infinite());
}

}  // namespace
}  // namespace nqcore
