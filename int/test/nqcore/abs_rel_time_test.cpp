#include "nqcore/abs_rel_time.h"

#include "nqcore/ace_timeout.h"
#include "nqcore/time_chrono.h"
#include "nqcore/windows_types.h"

#include <gmock/gmock.h>
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <sstream>

namespace nqcore {
namespace {

using impl::TimeBase;
using testing::ElementsAre;

constexpr std::int64_t s_min = INT64_MIN;
constexpr std::int64_t s_infinite = INT64_MAX;
constexpr std::int64_t s_max = s_infinite - 1;

AbsoluteTime at(std::int64_t ns) { return AbsoluteTime::from_nsec(ns); }
RelativeTime span(std::int64_t ns) { return RelativeTime(ns); }

// Reads the constants before main, in a translation unit that the library knows nothing of.
const std::int64_t s_readAtStart[] = {AbsoluteTime::infinite.as_nsec(), AbsoluteTime::min_time.as_nsec(),
                                      RelativeTime::max_time.as_nsec(), RelativeTime::zero.as_nsec(),
                                      TimeBase::MAX_SYSTEMTIME.wYear};

TEST(AbsRelTime, ConstantsAreThereBeforeMain) {
    EXPECT_THAT(s_readAtStart, ElementsAre(s_infinite, s_min, s_max, 0, 30827));
    EXPECT_EQ(TimeBase::NANOSECONDS_IN_ONE_DAY,
              std::int64_t{TimeBase::HOURS_IN_ONE_DAY} * TimeBase::MINUTES_IN_ONE_HOUR *
                  TimeBase::SECONDS_IN_ONE_MINUTE * TimeBase::MILLISECONDS_IN_ONE_SECOND *
                  TimeBase::MICROSECONDS_IN_ONE_MILLISECOND * TimeBase::NANOSECONDS_IN_ONE_MICROSECOND);
    EXPECT_TRUE(RelativeTime::infinite.is_positive() && RelativeTime::min_time.is_negative());
}

TEST(AbsRelTime, NumbersAreSecondsForPointsAndNanosecondsForSpans) {
    const ACE_Time_Value two(2, 5);
    AbsoluteTime set;
    set.set_sec(3);
    set.set(RelativeTime(9), set);
    EXPECT_THAT((std::vector{AbsoluteTime(-7LL).as_nsec(), RelativeTime(-7L).as_nsec(), AbsoluteTime(-1, -5).as_nsec(),
                             set.as_nsec(), AbsoluteTime(timeval{-3, -250'000}).as_nsec(),
                             RelativeTime(timespec{3, 250'000'001}).as_nsec(), AbsoluteTime(&two).as_nsec(),
                             RelativeTime(nullptr).as_nsec(),
                             // No overflow check: the products wrap round.
                             AbsoluteTime(s_infinite).as_nsec(), RelativeTime::microseconds(s_min).as_nsec()}),
                ElementsAre(-7'000'000'000, -7, -1'000'005'000, 3'000'000'009, -3'250'000'000, 3'250'000'001,
                            2'000'005'000, s_infinite, -1'000'000'000, 0));
    const RelativeTime negative(-3'250'000'999);
    EXPECT_EQ(negative.as_timeval().tv_usec, -250'000);
    EXPECT_EQ(negative.as_timespec().tv_nsec, -250'000'999);
    EXPECT_EQ(negative.as_ace_time_value(), ACE_Time_Value(-3, -250'000));
}

TEST(AbsRelTime, AceTimeOutOfInfiniteIsNull) {
    impl::AceTimeoutProxy finite = RelativeTime(1'500'000'999).as_ace_timeout();
    impl::AceTimeoutProxy copy(finite);
    const impl::AceTimeoutProxy moved(std::move(copy));
    copy = moved;
    finite = AbsoluteTime::infinite.as_ace_timeout();
    EXPECT_EQ(static_cast<const ACE_Time_Value*>(finite), nullptr);
    EXPECT_EQ(*static_cast<const ACE_Time_Value*>(copy), ACE_Time_Value(1, 500'000));
}

TEST(AbsRelTime, InfiniteConvertsToMarkersOfEachForm) {
    const AbsoluteTime infinite = AbsoluteTime::infinite;
    EXPECT_THAT((std::vector{infinite.as_usec(), infinite.as_msec(), infinite.as_time_t()}), testing::Each(s_infinite));
    EXPECT_TRUE(std::isinf(infinite.as_sec()));
    EXPECT_TRUE(infinite.as_timeval_sec() == 2147483647 && infinite.as_timeval_usec() == 2147483647);
    EXPECT_EQ(infinite.as_filetime().dwLowDateTime, 0xFFFFFFFFu);
    EXPECT_THAT((std::bit_cast<std::array<unsigned short, 8>>(infinite.as_systemtime())),
                ElementsAre(30827, 12, 5, 31, 23, 59, 59, 999));
    // The value below is an ordinary number; all divisions truncate toward zero.
    EXPECT_EQ(AbsoluteTime::max_time.as_usec(), 9'223'372'036'854'775);
    EXPECT_EQ(AbsoluteTime::min_time.as_msec(), -9'223'372'036'854);
    EXPECT_TRUE(at(-1'500'000'000).as_time_t() == -1 && at(-1'500'000'000).as_sec() == -1.5);
}

// Fields of 64 bits take everything; narrower ones take their nearest value.
template <class Seconds>
void expect_split(Seconds seconds, std::int64_t fraction, std::int64_t trueSeconds, std::int64_t trueFraction) {
    using Limits = std::numeric_limits<Seconds>;
    const std::int64_t nearest = std::clamp<std::int64_t>(trueSeconds, Limits::min(), Limits::max());
    EXPECT_EQ(seconds, nearest);
    const std::int64_t last = std::abs(trueFraction) < 1'000'000 ? 999'999 : 999'999'999;
    EXPECT_EQ(fraction, nearest == trueSeconds ? trueFraction : trueSeconds > 0 ? last : -last);
}

TEST(AbsRelTime, SecondsBeyondTheFieldAreClamped) {
    const timeval early = RelativeTime::min_time.as_timeval();
    expect_split(early.tv_sec, early.tv_usec, -9'223'372'036, -854'775);
    const timespec never = AbsoluteTime::infinite.as_timespec();  // no special case
    expect_split(never.tv_sec, never.tv_nsec, 9'223'372'036, 854'775'807);
    const ACE_Time_Value late = AbsoluteTime::infinite.as_ace_time_value();
    expect_split(late.sec(), late.usec(), 9'223'372'036, 854'775);
}

TEST(AbsRelTime, FloatingSecondsTruncateAndNeverOverflow) {
    EXPECT_EQ(AbsoluteTime(1.5).as_nsec(), 1'500'000'000);
    EXPECT_EQ(RelativeTime(-1.9e-9).as_nsec(), -1);
    for (const double outside : {9223372036.9, -9223372037.0, 1e300, HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        EXPECT_TRUE(AbsoluteTime(outside).is_min_time()) << outside;
    }
    EXPECT_EQ(RelativeTime::seconds(3) * 0.5, RelativeTime::microseconds(1'500'000));
    EXPECT_TRUE((RelativeTime::infinite * 1.0).is_min_time());
}

TEST(AbsRelTime, Win32TimeOuts) {
    constexpr std::int64_t cases[][2] = {{1, 1'000'000}, {0xFFFFFFFE, 4'294'967'294'000'000}, {0xFFFFFFFF, s_infinite}};
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
        AbsoluteTime point = at(left);
        RelativeTime total = span(left);
        RelativeTime rest = span(left);
        EXPECT_EQ(span(right) + point, at(ns));
        EXPECT_EQ(point -= -span(right), at(ns));
        EXPECT_EQ(total += span(right), span(ns));
        EXPECT_EQ(rest -= -span(right), span(ns));
    }
    EXPECT_TRUE(AbsoluteTime(RelativeTime::infinite).is_infinite());
    // What minus leaves as it is.
    EXPECT_EQ(-RelativeTime::min_time, RelativeTime::min_time);
    RelativeTime value = RelativeTime::max_time;
    value.negate();
    EXPECT_EQ(value, span(-s_max));
}

TEST(AbsRelTime, DifferenceOfPoints) {
    // A difference that does not fit keeps its low 32 bits below 0x7FFFFFFF: never negative, and infinite only where
    // they are all ones.
    constexpr std::int64_t cases[][3] = {{3, 5, -2},
                                         {s_infinite, s_min, s_infinite},
                                         {0, s_infinite, s_infinite},
                                         {0, s_max, -s_max},
                                         {s_max, -1, s_infinite},
                                         {-1, s_max, s_infinite},
                                         {0, s_min, 0x7FFFFFFF'00000000},
                                         {s_min, s_max, 0x7FFFFFFF'FFFFFFFE},
                                         {s_max - 5, s_min + 4, 0x7FFFFFFF'FFFFFFF5}};
    for (const auto& [left, right, ns] : cases) {
        EXPECT_EQ((at(left) - at(right)).as_nsec(), ns) << left << " - " << right;
    }
}

TEST(AbsRelTime, DeadlinesCountDownToZero) {
    EXPECT_TRUE(at(100).remaining(at(60)) == span(40) && at(100).remaining(at(130)).is_zero());
    EXPECT_TRUE(at(100).overtime(at(130)) == span(30) && at(100).overtime(at(60)).is_zero());
    const AbsoluteTime clock = from_chrono(std::chrono::system_clock::now());
    EXPECT_LT(std::abs((AbsoluteTime::now() - clock).as_sec()), 30);
    // Against the clock.
    EXPECT_TRUE(AbsoluteTime::zero.remaining().is_zero());
    EXPECT_GT(AbsoluteTime::zero.overtime(), RelativeTime::days(365));
    EXPECT_GT(AbsoluteTime(RelativeTime::seconds(60)).remaining(), RelativeTime::zero);
    EXPECT_TRUE(AbsoluteTime::infinite.remaining().is_infinite() && AbsoluteTime::infinite.overtime().is_infinite());
}

TEST(AbsRelTime, OrderHashAndStream) {
    EXPECT_LT(AbsoluteTime::max_time, AbsoluteTime::infinite);
    EXPECT_GE(RelativeTime::infinite, RelativeTime::max_time);
    EXPECT_EQ(span(0x12345678'9ABCDEF0).hash(), 0x12345678u ^ 0x9ABCDEF0u);
    EXPECT_EQ(std::hash<AbsoluteTime>()(at(3)), 3u);
    std::ostringstream stream;
    stream << AbsoluteTime::zero << ' ' << AbsoluteTime::infinite;
    EXPECT_EQ(stream.str(), "1970-01-01 00:00:00.0 ##INFINITE##");
}

TEST(AbsRelTime, FileTimesAndSystemTimes) {
    constexpr std::int64_t cases[][2] = {{-199, 116444735999999999},  // toward zero
                                         {s_min, 24211015631452242},
                                         {s_max, 208678456368547758}};
    for (const auto& [ns, ticks] : cases) {
        const FILETIME time = at(ns).as_filetime();
        EXPECT_EQ(std::int64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime, ticks);
        EXPECT_EQ(AbsoluteTime(time, false).as_nsec(), ns / 100 * 100);
    }
    // Wraps round: 1601 lies before the range, all bits set beyond it.
    EXPECT_EQ(AbsoluteTime(FILETIME{0, 0}, false).as_nsec(), 6'802'270'473'709'551'616);
    EXPECT_EQ(AbsoluteTime(TimeBase::MAX_FILETIME, false).as_nsec(),
              static_cast<std::int64_t>((0u - 1ull - 116444736000000000u) * 100));
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
