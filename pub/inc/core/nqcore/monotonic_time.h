// Clocks that never go backwards, and the mapping between their time line and the system clock's.
//
//     const MonotonicTime deadline = MonotonicTime::now() + RelativeTime::seconds(30);
//     while (!done() && deadline.remaining().is_positive()) { ... }    // whatever happens to the system clock
//     const AbsoluteTime shown = deadline.as_absolute_time();
//
// Which clock to use when: doc/clocks.md.
#pragma once

#include "nqcore/abs_rel_time.h"
#include "nqcore/config.h"

#include <compare>
#include <cstdint>

namespace nqcore {

/// A point on a monotonic time line, to derive time types from: one count of nanoseconds. `MonotonicTime` is the type to
/// use on the line that begins at the system's boot.
///
/// Infinite means never, and is tested before any arithmetic; sums wrap round in 64 bits.
/// Threads  a plain value.
class NQCORE_API MonotonicTimeBase {
public:
    static const std::int32_t NANOSECONDS_IN_ONE_MICROSECOND = 1000;
    static const std::int32_t NANOSECONDS_IN_ONE_MILLISECOND = 1'000'000;
    static const std::int32_t NANOSECONDS_IN_ONE_SECOND = 1'000'000'000;
    static const std::int64_t NANOSECONDS_IN_ONE_MINUTE = 60'000'000'000;
    static const std::int64_t NANOSECONDS_IN_ONE_HOUR = 3'600'000'000'000;
    static const std::int64_t NANOSECONDS_IN_ONE_DAY = 86'400'000'000'000;
    static const std::int32_t MICROSECONDS_IN_ONE_SECOND = 1'000'000;
    static const std::int32_t MICROSECONDS_IN_ONE_MILLISECOND = 1000;
    static const std::int32_t MILLISECONDS_IN_ONE_SECOND = 1000;
    static const std::int32_t SECONDS_IN_ONE_MINUTE = 60;
    static const std::int32_t SECONDS_IN_ONE_HOUR = 3600;
    static const std::int32_t SECONDS_IN_ONE_DAY = 86'400;

    // Of the base type; `MonotonicTime` converts from it.
    static const MonotonicTimeBase zero;
    static const MonotonicTimeBase min_time;
    static const MonotonicTimeBase max_time;
    static const MonotonicTimeBase infinite;

    [[nodiscard]] constexpr std::int64_t as_nsec() const noexcept { return m_value; }
    constexpr void set_nsec(std::int64_t nanoseconds) noexcept { m_value = nanoseconds; }
    constexpr void set_infinite() noexcept { m_value = RelativeTime::TIMEVALUE_INFINITE; }
    [[nodiscard]] constexpr bool is_infinite() const noexcept { return m_value == RelativeTime::TIMEVALUE_INFINITE; }
    /// As `RelativeTime::hash`.
    [[nodiscard]] constexpr std::uint32_t hash() const noexcept { return RelativeTime(m_value).hash(); }
    /// The time since the line's origin, as `RelativeTime::as_string` writes it.
    [[nodiscard]] std::string as_string() const;

protected:
    constexpr MonotonicTimeBase() noexcept = default;
    constexpr explicit MonotonicTimeBase(RelativeTime sinceOrigin) noexcept : m_value(sinceOrigin.as_nsec()) {}
    constexpr MonotonicTimeBase(const MonotonicTimeBase&) noexcept = default;
    /// The point at which the system clock shows `time`, when it showed `anchorWall` at `anchorMono`.
    constexpr MonotonicTimeBase(AbsoluteTime time, AbsoluteTime anchorWall,
                                const MonotonicTimeBase& anchorMono) noexcept
        : MonotonicTimeBase(absolutetime_to_monotonictime(time, anchorWall, anchorMono)) {}
    constexpr MonotonicTimeBase& operator=(const MonotonicTimeBase&) noexcept = default;
    ~MonotonicTimeBase() = default;

    /// anchorMono + (time - anchorWall), counted from the line's origin; infinite when any of them is.
    [[nodiscard]] static constexpr RelativeTime absolutetime_to_monotonictime(
        AbsoluteTime time, AbsoluteTime anchorWall, const MonotonicTimeBase& anchorMono) noexcept {
        return RelativeTime(anchorMono.m_value) + (time - anchorWall);
    }
    /// anchorWall + (time - anchorMono); infinite when any of them is.
    [[nodiscard]] static constexpr AbsoluteTime monotonictime_to_absolutetime(
        const MonotonicTimeBase& time, AbsoluteTime anchorWall, const MonotonicTimeBase& anchorMono) noexcept {
        return anchorWall + (RelativeTime(time.m_value) - RelativeTime(anchorMono.m_value));
    }

private:
    std::int64_t m_value = 0;
};

/// A point in time counted from the system's boot, time asleep included.
///
/// It is mapped to the system clock's line through the pair of times that both clocks showed when the library was
/// loaded; so the mapping never changes, and steps of the system clock after that do not enter it.
class NQCORE_API MonotonicTime : public MonotonicTimeBase {
public:
    /// The current time, by `TimeProviderMm`.
    [[nodiscard]] static MonotonicTime now() noexcept;

    /// The boot.
    constexpr MonotonicTime() noexcept = default;
    constexpr MonotonicTime(const MonotonicTime&) noexcept = default;
    /// Takes the special values in: `MonotonicTime deadline = MonotonicTime::infinite;`
    constexpr MonotonicTime(const MonotonicTimeBase& time) noexcept : MonotonicTimeBase(time) {}
    constexpr explicit MonotonicTime(RelativeTime sinceBoot) noexcept : MonotonicTimeBase(sinceBoot) {}
    explicit MonotonicTime(AbsoluteTime time) noexcept;
    constexpr MonotonicTime& operator=(const MonotonicTime&) noexcept = default;
    ~MonotonicTime() = default;

    [[nodiscard]] constexpr RelativeTime since_boot() const noexcept { return RelativeTime(as_nsec()); }
    [[nodiscard]] AbsoluteTime as_absolute_time() const noexcept;

    /// How long until this deadline: zero when it has passed, infinite when it is infinite.
    [[nodiscard]] RelativeTime remaining() const noexcept {
        return is_infinite() ? RelativeTime(as_nsec()) : remaining(now());
    }
    [[nodiscard]] constexpr RelativeTime remaining(MonotonicTime reference) const noexcept {
        return *this <= reference && !reference.is_infinite() ? RelativeTime() : *this - reference;
    }

    // Infinite when either operand is.
    friend constexpr MonotonicTime operator+(MonotonicTime time, RelativeTime duration) noexcept {
        return MonotonicTime(time.since_boot() + duration);
    }
    friend constexpr MonotonicTime operator+(RelativeTime duration, MonotonicTime time) noexcept {
        return time + duration;
    }
    friend constexpr MonotonicTime operator-(MonotonicTime time, RelativeTime duration) noexcept {
        return MonotonicTime(time.since_boot() - duration);
    }
    constexpr MonotonicTime& operator+=(RelativeTime duration) noexcept { return *this = *this + duration; }
    constexpr MonotonicTime& operator-=(RelativeTime duration) noexcept { return *this = *this - duration; }

    /// Saturates, as the difference of two `AbsoluteTime` does.
    friend constexpr RelativeTime operator-(MonotonicTime left, MonotonicTime right) noexcept {
        return left.point() - right.point();
    }

    friend constexpr bool operator==(MonotonicTime a, MonotonicTime b) noexcept { return a.as_nsec() == b.as_nsec(); }
    friend constexpr std::strong_ordering operator<=>(MonotonicTime a, MonotonicTime b) noexcept {
        return a.as_nsec() <=> b.as_nsec();
    }

private:
    // The point as one of `AbsoluteTime`, whose rules for distances hold on any line.
    [[nodiscard]] constexpr AbsoluteTime point() const noexcept { return AbsoluteTime::from_nsec(as_nsec()); }
};

/// The time since boot that the system publishes.
///
/// Units    steps of the system's timer interrupt on win32 (0.5 to 16 ms), of 1 ns on linux.
/// Threads  any.
/// Cost     no system call: a read of memory that the system shares.
class NQCORE_API TimeProviderMm {
public:
    [[nodiscard]] static RelativeTime now() noexcept { return RelativeTime(mmtime_time_now()); }

private:
    [[nodiscard]] static std::int64_t mmtime_time_now() noexcept;
};

/// The system's finest counter, from an origin of its own: for measuring how long something takes.
///
/// Units    the counter's steps (win32: usually 100 ns, linux: 1 ns), until the count passes 2^53 and a double no longer
///          holds every number: on linux after 104 days of running, in steps of 2 ns then.
/// Threads  any.
/// Cost     one call of the system's library.
class NQCORE_API TimeProviderQpc {
public:
    TimeProviderQpc() noexcept;
    [[nodiscard]] RelativeTime now() const noexcept;

private:
    double m_frequency;  // counts per second
};

/// The processor's time-stamp counter, from an origin of its own: the cheapest clock there is, and the finest.
///
/// It is a clock where the processor counts at one rate (`CpuInfo::tsc_invariant`), and as good as its frequency was
/// measured, within some 10 parts in a million: it drifts from the system's clocks by as much. Processors of one machine
/// usually agree on it; nobody promises that, so a thread that moves between them may see it step back.
///
/// Units    the counter's steps, below 1 ns on most processors, until the count passes 2^53 and a double no longer holds
///          every number: after some 35 days of running, in steps of 2 counts then.
/// Threads  any.
/// Cost     one instruction and a multiplication. The first object of the process measures the frequency, for 10 ms: see
///          `hardware::Cpu::timestamp_frequency`.
class NQCORE_API TimeProviderTsc {
public:
    /// Errors   "error.nqcore.hardware.threadAffinity": the thread is bound to one processor while it measures.
    TimeProviderTsc();
    [[nodiscard]] RelativeTime now() const noexcept;

private:
    double m_factor;  // nanoseconds per count
};

/// A time of day for ACE that does not jump with the system clock: `MonotonicTime::now()` on the system clock's line.
///
/// Example  timerQueue.gettimeofday(nqcore::monotonic_synthetic_ace_gettimeofday);  // include <ace/Time_Value.h>
NQCORE_API ACE_Time_Value monotonic_synthetic_ace_gettimeofday();

static_assert(sizeof(MonotonicTime) == 8);

}  // namespace nqcore

template <>
struct std::hash<nqcore::MonotonicTime> {
    std::size_t operator()(nqcore::MonotonicTime time) const noexcept { return time.hash(); }
};
