#include "nqcore/abs_rel_time.h"

#include "nqcore/utc_text.h"
#include "platform/clock.h"

#include <limits>
#include <ostream>

namespace nqcore {

// Constant-initialised: usable while other static objects are constructed.
constinit const RelativeTime RelativeTime::zero(TIMEVALUE_ZERO);
constinit const RelativeTime RelativeTime::min_time(TIMEVALUE_MIN);
constinit const RelativeTime RelativeTime::max_time(TIMEVALUE_MAX);
constinit const RelativeTime RelativeTime::infinite(TIMEVALUE_INFINITE);
constinit const AbsoluteTime AbsoluteTime::zero = from_nsec(TIMEVALUE_ZERO);
constinit const AbsoluteTime AbsoluteTime::min_time = from_nsec(TIMEVALUE_MIN);
constinit const AbsoluteTime AbsoluteTime::max_time = from_nsec(TIMEVALUE_MAX);
constinit const AbsoluteTime AbsoluteTime::infinite = from_nsec(TIMEVALUE_INFINITE);

const unsigned AbsoluteTime::npos;

namespace impl {

// The values stand in the header; defined here, and not `constexpr` there, so that the Windows library exports them.
const std::int32_t TimeBase::HOURS_IN_ONE_DAY;
const std::int32_t TimeBase::MINUTES_IN_ONE_HOUR;
const std::int32_t TimeBase::SECONDS_IN_ONE_MINUTE;
const std::int32_t TimeBase::MILLISECONDS_IN_ONE_SECOND;
const std::int32_t TimeBase::MICROSECONDS_IN_ONE_MILLISECOND;
const std::int32_t TimeBase::NANOSECONDS_IN_ONE_MICROSECOND;
const std::int32_t TimeBase::MILLISECONDS_IN_ONE_MINUTE;
const std::int32_t TimeBase::MILLISECONDS_IN_ONE_HOUR;
const std::int32_t TimeBase::MILLISECONDS_IN_ONE_DAY;
const std::int32_t TimeBase::SECONDS_IN_ONE_HOUR;
const std::int32_t TimeBase::SECONDS_IN_ONE_DAY;
const std::int32_t TimeBase::MINUTES_IN_ONE_DAY;
const std::int32_t TimeBase::MAX_TIMEVAL_SEC;
const std::int32_t TimeBase::MAX_TIMEVAL_USEC;
const std::int64_t TimeBase::NANOSECONDS_IN_ONE_MILLISECOND;
const std::int64_t TimeBase::NANOSECONDS_IN_ONE_SECOND;
const std::int64_t TimeBase::NANOSECONDS_IN_ONE_MINUTE;
const std::int64_t TimeBase::NANOSECONDS_IN_ONE_HOUR;
const std::int64_t TimeBase::NANOSECONDS_IN_ONE_DAY;
const std::int64_t TimeBase::MICROSECONDS_IN_ONE_SECOND;
const std::int64_t TimeBase::MICROSECONDS_IN_ONE_MINUTE;
const std::int64_t TimeBase::MICROSECONDS_IN_ONE_HOUR;
const std::int64_t TimeBase::MICROSECONDS_IN_ONE_DAY;
const std::int64_t TimeBase::MAX_I64_MICROSECONDS;
const std::int64_t TimeBase::MAX_I64_MILLISECONDS;
const std::int64_t TimeBase::MAX_TIME_T;
const std::int64_t TimeBase::TIMEVALUE_MIN;
const std::int64_t TimeBase::TIMEVALUE_MAX;
const std::int64_t TimeBase::TIMEVALUE_ZERO;
const std::int64_t TimeBase::TIMEVALUE_INFINITE;
const std::int64_t TimeBase::sm_minValue;
const std::int64_t TimeBase::sm_maxValue;
const std::int64_t TimeBase::sm_zeroValue;
const std::int64_t TimeBase::sm_infiniteValue;
const std::uint64_t TimeBase::FILETIME_TO_EPOCH_OFFSET;
constinit const double TimeBase::MAX_DOUBLE_SECONDS = std::numeric_limits<double>::infinity();
constinit const double TimeBase::INFINITE_DOUBLE_SECONDS = std::numeric_limits<double>::infinity();

double TimeBase::as_sec() const noexcept {
    return is_infinite() ? INFINITE_DOUBLE_SECONDS : static_cast<double>(m_value) / 1e9;
}

// Where seconds become a count. A number that does not fit gives what the processor's own
// conversion gives for it, the lowest count, instead of undefined behaviour.
std::int64_t TimeBase::nsec_from(double seconds) noexcept {
    constexpr double s_limit = 9223372036854775808.0;  // 2^63
    const double nanoseconds = seconds * 1e9;
    return nanoseconds >= -s_limit && nanoseconds < s_limit ? static_cast<std::int64_t>(nanoseconds) : TIMEVALUE_MIN;
}

}  // namespace impl

RelativeTime RelativeTime::operator*(double factor) const noexcept { return RelativeTime(as_sec() * factor); }

AbsoluteTime AbsoluteTime::now() noexcept { return from_nsec(platform::system_time_ns()); }

std::ostream& operator<<(std::ostream& stream, AbsoluteTime time) { return stream << UtcText::plain(time).view(); }

}  // namespace nqcore
