// Times to and from the structures of the system and of ACE.
#include "nqcore/abs_rel_time.h"

#include "nqcore/ace_timeout.h"
#include "nqcore/windows_types.h"
#include "platform/calendar.h"

#include <limits>

namespace nqcore {
namespace impl {

constinit const FILETIME TimeBase::MAX_FILETIME = {0xFFFFFFFFu, 0xFFFFFFFFu};
constinit const SYSTEMTIME TimeBase::MAX_SYSTEMTIME = {30827, 12, 5, 31, 23, 59, 59, 999};

namespace {

template <class Seconds>
struct SecondsAndFraction {
    Seconds seconds;
    std::int32_t fraction;
};

// Seconds of the type that the receiving field has, and the rest in fractions of `nsPerFraction`. Where the field is too
// narrow (32 bits on win32) the result is the nearest that it can hold; 64-bit fields hold everything.
template <class Seconds>
SecondsAndFraction<Seconds> split_seconds(std::int64_t ns, std::int32_t nsPerFraction) noexcept {
    using Limits = std::numeric_limits<Seconds>;
    const std::int64_t seconds = ns / TimeBase::NANOSECONDS_IN_ONE_SECOND;
    const std::int32_t lastFraction = 999'999'999 / nsPerFraction;
    if (seconds > Limits::max()) {
        return {Limits::max(), lastFraction};
    }
    if (seconds < Limits::min()) {
        return {Limits::min(), -lastFraction};
    }
    const auto fraction = static_cast<std::int32_t>(ns % TimeBase::NANOSECONDS_IN_ONE_SECOND);
    return {static_cast<Seconds>(seconds), fraction / nsPerFraction};
}

}  // namespace

timeval TimeBase::as_timeval() const noexcept {
    timeval result = {};
    if (is_infinite()) {
        result.tv_sec = MAX_TIMEVAL_SEC;
        result.tv_usec = MAX_TIMEVAL_USEC;
        return result;
    }
    const auto split = split_seconds<decltype(result.tv_sec)>(m_value, NANOSECONDS_IN_ONE_MICROSECOND);
    result.tv_sec = split.seconds;
    result.tv_usec = split.fraction;
    return result;
}

long TimeBase::as_timeval_sec() const noexcept { return as_timeval().tv_sec; }

long TimeBase::as_timeval_usec() const noexcept { return as_timeval().tv_usec; }

timespec TimeBase::as_timespec() const noexcept {
    timespec result = {};
    const auto split = split_seconds<decltype(result.tv_sec)>(m_value, 1);
    result.tv_sec = split.seconds;
    result.tv_nsec = split.fraction;
    return result;
}

ACE_Time_Value TimeBase::as_ace_time_value() const {
    const auto split = split_seconds<time_t>(m_value, NANOSECONDS_IN_ONE_MICROSECOND);
    return ACE_Time_Value(split.seconds, split.fraction);
}

AceTimeoutProxy TimeBase::as_ace_timeout() const {
    if (is_infinite()) {
        return AceTimeoutProxy(true, 0, 0);
    }
    const auto split = split_seconds<long>(m_value, NANOSECONDS_IN_ONE_MICROSECOND);
    return AceTimeoutProxy(false, split.seconds, split.fraction);
}

std::int64_t TimeBase::nsec_from(const timeval& time) noexcept {
    return joined(time.tv_sec, time.tv_usec, NANOSECONDS_IN_ONE_MICROSECOND);
}

std::int64_t TimeBase::nsec_from(const timespec& time) noexcept { return joined(time.tv_sec, time.tv_nsec, 1); }

std::int64_t TimeBase::nsec_from(const ACE_Time_Value& time) noexcept {
    return joined(time.sec(), time.usec(), NANOSECONDS_IN_ONE_MICROSECOND);
}

std::int64_t TimeBase::nsec_from(const ACE_Time_Value* time) noexcept {
    return time == nullptr ? TIMEVALUE_INFINITE : nsec_from(*time);
}

AceTimeoutProxy::AceTimeoutProxy(bool infinite, long seconds, long microseconds)
    : m_infinite(infinite), m_value(seconds, microseconds) {}
AceTimeoutProxy::AceTimeoutProxy(const AceTimeoutProxy& other) = default;
AceTimeoutProxy::AceTimeoutProxy(AceTimeoutProxy&& other) noexcept = default;
AceTimeoutProxy& AceTimeoutProxy::operator=(const AceTimeoutProxy& other) = default;
AceTimeoutProxy& AceTimeoutProxy::operator=(AceTimeoutProxy&& other) noexcept = default;
AceTimeoutProxy::~AceTimeoutProxy() = default;

}  // namespace impl

namespace {

constexpr std::uint64_t s_nsPerTick = 100;

std::uint64_t ticks_of(const FILETIME& time) noexcept {
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

FILETIME file_time_of(std::uint64_t ticks) noexcept {
    return {static_cast<std::uint32_t>(ticks), static_cast<std::uint32_t>(ticks >> 32)};
}

}  // namespace

AbsoluteTime::AbsoluteTime(const FILETIME& time, bool local) noexcept {
    std::uint64_t ticks = ticks_of(time);
    if (local) {
        static_cast<void>(platform::utc_from_local_file_time(ticks, ticks));  // a refusal leaves them as they are
    }
    m_value = static_cast<std::int64_t>((ticks - FILETIME_TO_EPOCH_OFFSET) * s_nsPerTick);
}

AbsoluteTime::AbsoluteTime(const SYSTEMTIME& time, bool local) noexcept {
    std::uint64_t ticks = 0;
    if (platform::file_time_from_system_time(time, ticks)) {
        *this = AbsoluteTime(file_time_of(ticks), local);
    }
}

FILETIME AbsoluteTime::as_filetime() const noexcept {
    if (is_infinite()) {
        return MAX_FILETIME;
    }
    // Never negative: the range begins after 1601.
    return file_time_of(static_cast<std::uint64_t>(m_value / static_cast<std::int64_t>(s_nsPerTick)) +
                        FILETIME_TO_EPOCH_OFFSET);
}

SYSTEMTIME AbsoluteTime::as_systemtime() const noexcept {
    SYSTEMTIME result = MAX_SYSTEMTIME;
    if (!is_infinite()) {
        static_cast<void>(platform::system_time_from_file_time(ticks_of(as_filetime()), result));  // all are in range
    }
    return result;
}

}  // namespace nqcore
