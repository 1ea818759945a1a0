#include "nqcore/monotonic_time.h"

#include <ace/Event_Handler.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Timer_Heap.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>

namespace nqcore {
namespace {

constexpr auto ns = [](std::int64_t count) { return RelativeTime::nanoseconds(count); };
constexpr auto at = [](std::int64_t count) { return AbsoluteTime::from_nsec(count); };
constexpr auto mono = [](std::int64_t count) { return MonotonicTime(ns(count)); };
constexpr std::int64_t s_infinite = RelativeTime::TIMEVALUE_INFINITE;
constexpr std::int64_t s_min = RelativeTime::TIMEVALUE_MIN;
constexpr std::int64_t s_max = RelativeTime::TIMEVALUE_MAX;

static_assert(!std::is_default_constructible_v<MonotonicTimeBase> && !std::is_copy_constructible_v<MonotonicTimeBase>);
static_assert(std::is_trivially_copyable_v<MonotonicTime>);
static_assert(sizeof(TimeProviderQpc) == sizeof(double) && sizeof(TimeProviderTsc) == sizeof(double));
static_assert(std::is_copy_assignable_v<TimeProviderQpc> && std::is_copy_assignable_v<TimeProviderMm>);

// A time line with anchors of its own.
struct Line : MonotonicTimeBase {
    explicit Line(RelativeTime time) : MonotonicTimeBase(time) {}
    Line(AbsoluteTime time, AbsoluteTime wall, const Line& monotonic) : MonotonicTimeBase(time, wall, monotonic) {}
    [[nodiscard]] AbsoluteTime wall_time(AbsoluteTime wall, const Line& monotonic) const {
        return monotonictime_to_absolutetime(*this, wall, monotonic);
    }
};

TEST(MonotonicTime, MapsThroughAnchors) {
    struct {
        std::int64_t wall, anchorWall, anchorMono, mono;
    } const cases[] = {
        {1'000, 1'000, 50, 50},     {1'250, 1'000, 50, 300},  {0, 1'000, 50, -950},
        {s_max, s_max - 10, 5, 15}, {s_min + 1, s_min, 0, 1}, {s_infinite, 1'000, 50, s_infinite},
    };
    for (const auto& row : cases) {
        const Line anchor(ns(row.anchorMono));
        const Line mapped(at(row.wall), at(row.anchorWall), anchor);
        EXPECT_EQ(mapped.as_nsec(), row.mono) << row.wall;
        EXPECT_EQ(mapped.wall_time(at(row.anchorWall), anchor).as_nsec(), row.wall) << row.wall;
    }
    const Line never(RelativeTime::infinite);
    EXPECT_TRUE(Line(at(0), at(0), never).is_infinite());
    EXPECT_TRUE(Line(at(0), AbsoluteTime::infinite, Line(ns(0))).is_infinite());
    EXPECT_TRUE(Line(ns(0)).wall_time(at(0), never).is_infinite());
    EXPECT_TRUE(Line(ns(0)).wall_time(AbsoluteTime::infinite, Line(ns(0))).is_infinite());
    // A distance that does not fit is a long positive one: never a point before the anchor.
    EXPECT_EQ(Line(at(s_min), at(1), Line(ns(0))).as_nsec() >> 32, 0x7FFFFFFF);
}

TEST(MonotonicTime, IsAPointOnItsLine) {
    MonotonicTime time = MonotonicTime::infinite;
    EXPECT_TRUE(time.as_absolute_time().is_infinite() && time.remaining().is_infinite());
    EXPECT_EQ(MonotonicTime(AbsoluteTime::infinite), time);
    EXPECT_EQ(time.as_string(), "##INFINITE##");
    EXPECT_EQ(mono(61'000'000'000).as_string(), "1m 01.0s");
    time.set_nsec(0x5'00000003);
    EXPECT_TRUE(time.hash() == 6 && std::hash<MonotonicTime>()(time) == 6);

    EXPECT_EQ(ns(3) + mono(5) - ns(10), mono(-2));
    EXPECT_EQ(mono(s_max) + ns(2), mono(s_min));
    EXPECT_EQ(mono(5) + RelativeTime::infinite, MonotonicTime::infinite);
    EXPECT_EQ(mono(5) - mono(8), ns(-3));
    EXPECT_EQ(mono(s_min) - mono(s_max), ns(0x7FFFFFFF'FFFFFFFE));
    EXPECT_TRUE((mono(5) - mono(s_infinite)).is_infinite());
    EXPECT_TRUE(mono(s_min) < mono(0) && mono(s_max) < MonotonicTime(MonotonicTime::infinite));
    EXPECT_EQ(mono(8).remaining(mono(5)), ns(3));
    EXPECT_EQ(mono(5).remaining(mono(8)), ns(0));
    EXPECT_EQ(MonotonicTime(MonotonicTimeBase::min_time).remaining(mono(8)), ns(0));
}

TEST(MonotonicTime, FollowsTheSystemClock) {
    const AbsoluteTime wall = AbsoluteTime::now();
    EXPECT_EQ(MonotonicTime(wall).as_absolute_time(), wall);
    EXPECT_EQ(MonotonicTime(AbsoluteTime::zero).as_absolute_time(), AbsoluteTime::zero);
    // The clocks agreed when the library was loaded, a moment ago, within a step of the coarser one.
    EXPECT_LT(AbsoluteTime::now().remaining(MonotonicTime::now().as_absolute_time()), RelativeTime::milliseconds(100));
    EXPECT_LT(MonotonicTime::now().as_absolute_time().remaining(), RelativeTime::milliseconds(100));
}

// Neither the clock nor the counter steps back, and both advance alike until the counter has moved by `span`. The clock
// is read on both sides of the counter, which allows for a machine that is busy in between.
template <class Clock>
void expect_agreement(const Clock& clock, RelativeTime span, RelativeTime tolerance) {
    const TimeProviderQpc counter;
    const RelativeTime outerStart = clock.now();
    const RelativeTime counterStart = counter.now();
    const RelativeTime innerStart = clock.now();
    RelativeTime outerEnd = innerStart;
    RelativeTime innerEnd = innerStart;
    RelativeTime elapsed = RelativeTime::zero;
    while (elapsed < span) {
        innerEnd = clock.now();
        const RelativeTime counted = counter.now() - counterStart;
        ASSERT_TRUE(outerEnd <= innerEnd && elapsed <= counted);
        elapsed = counted;
        outerEnd = clock.now();
        ASSERT_LE(innerEnd, outerEnd);
    }
    EXPECT_GT(outerEnd - outerStart, elapsed - tolerance);
    EXPECT_LT(innerEnd - innerStart, elapsed + tolerance);
}

TEST(TimeProviders, AdvanceTogether) {
    EXPECT_TRUE(TimeProviderMm::now().is_positive());
    expect_agreement(TimeProviderMm(), RelativeTime::milliseconds(25), RelativeTime::milliseconds(20));
    TimeProviderTsc copy;
    copy = TimeProviderTsc();
    expect_agreement(copy, RelativeTime::seconds(1), RelativeTime::milliseconds(1));
}

struct Expiry : ACE_Event_Handler {
    int handle_timeout(const ACE_Time_Value& now, const void*) override {
        at = now;
        ++count;
        return 0;
    }
    ACE_Time_Value at;
    int count = 0;
};

TEST(SyntheticTimeOfDay, DrivesAceTimers) {
    ACE_Timer_Heap timers;
    timers.gettimeofday(monotonic_synthetic_ace_gettimeofday);
    const ACE_Time_Value before = timers.gettimeofday();
    EXPECT_LE(before, monotonic_synthetic_ace_gettimeofday());
    EXPECT_LT(AbsoluteTime(before).remaining(), RelativeTime::milliseconds(100));

    Expiry soon;
    Expiry later;
    const ACE_Time_Value due = before + ACE_Time_Value(0, 10'000);
    ASSERT_NE(timers.schedule(&soon, nullptr, due), -1);
    ASSERT_NE(timers.schedule(&later, nullptr, before + ACE_Time_Value(3'600)), -1);
    while (soon.count == 0) {
        const bool isDue = monotonic_synthetic_ace_gettimeofday() >= due;
        timers.expire();
        ASSERT_TRUE(soon.count == 1 || !isDue);  // never late by this clock
    }
    EXPECT_GE(soon.at, due);
    EXPECT_EQ(later.count, 0);
    timers.cancel(&later);
}

}  // namespace
}  // namespace nqcore
