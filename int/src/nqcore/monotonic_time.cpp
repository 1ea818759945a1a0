#include "nqcore/monotonic_time.h"

#include "monotonic_time_anchors.h"
#include "nqcore/cpu.h"
#include "platform/clock.h"

#include <ace/Time_Value.h>

#include <string>

namespace nqcore {

// The values stand in the header; defined here, and not `constexpr` there, so that the Windows library exports them.
const std::int32_t MonotonicTimeBase::NANOSECONDS_IN_ONE_MICROSECOND;
const std::int32_t MonotonicTimeBase::NANOSECONDS_IN_ONE_MILLISECOND;
const std::int32_t MonotonicTimeBase::NANOSECONDS_IN_ONE_SECOND;
const std::int64_t MonotonicTimeBase::NANOSECONDS_IN_ONE_MINUTE;
const std::int64_t MonotonicTimeBase::NANOSECONDS_IN_ONE_HOUR;
const std::int64_t MonotonicTimeBase::NANOSECONDS_IN_ONE_DAY;
const std::int32_t MonotonicTimeBase::MICROSECONDS_IN_ONE_SECOND;
const std::int32_t MonotonicTimeBase::MICROSECONDS_IN_ONE_MILLISECOND;
const std::int32_t MonotonicTimeBase::MILLISECONDS_IN_ONE_SECOND;
const std::int32_t MonotonicTimeBase::SECONDS_IN_ONE_MINUTE;
const std::int32_t MonotonicTimeBase::SECONDS_IN_ONE_HOUR;
const std::int32_t MonotonicTimeBase::SECONDS_IN_ONE_DAY;

constinit const MonotonicTimeBase MonotonicTimeBase::zero{RelativeTime(RelativeTime::TIMEVALUE_ZERO)};
constinit const MonotonicTimeBase MonotonicTimeBase::min_time{RelativeTime(RelativeTime::TIMEVALUE_MIN)};
constinit const MonotonicTimeBase MonotonicTimeBase::max_time{RelativeTime(RelativeTime::TIMEVALUE_MAX)};
constinit const MonotonicTimeBase MonotonicTimeBase::infinite{RelativeTime(RelativeTime::TIMEVALUE_INFINITE)};

std::string MonotonicTimeBase::as_string() const { return RelativeTime(m_value).as_string(); }

namespace impl {

const StartAnchors& start_anchors() noexcept {
    static const StartAnchors s_anchors = {AbsoluteTime::now(), MonotonicTime::now()};
    return s_anchors;
}

namespace {

// Records the pair while the library is loaded. Another static object that converts times, and is constructed before
// this one, records it itself: there is no order in which it could be missing.
[[maybe_unused]] const StartAnchors& s_recordedAtStart = start_anchors();

}  // namespace
}  // namespace impl

MonotonicTime MonotonicTime::now() noexcept { return MonotonicTime(TimeProviderMm::now()); }

MonotonicTime::MonotonicTime(AbsoluteTime time) noexcept
    : MonotonicTimeBase(time, impl::start_anchors().wall, impl::start_anchors().mono) {}

AbsoluteTime MonotonicTime::as_absolute_time() const noexcept {
    const impl::StartAnchors& anchors = impl::start_anchors();
    return monotonictime_to_absolutetime(*this, anchors.wall, anchors.mono);
}

std::int64_t TimeProviderMm::mmtime_time_now() noexcept { return platform::boot_time_ns(); }

TimeProviderQpc::TimeProviderQpc() noexcept : m_frequency(static_cast<double>(platform::counter_frequency())) {}

RelativeTime TimeProviderQpc::now() const noexcept {
    return RelativeTime(static_cast<double>(platform::counter()) / m_frequency);
}

TimeProviderTsc::TimeProviderTsc() : m_factor(1e9 / hardware::Cpu::timestamp_frequency()) {}

RelativeTime TimeProviderTsc::now() const noexcept {
    return RelativeTime::nanoseconds(static_cast<std::int64_t>(static_cast<double>(platform::time_stamp()) * m_factor));
}

ACE_Time_Value monotonic_synthetic_ace_gettimeofday() {
    return MonotonicTime::now().as_absolute_time().as_ace_time_value();
}

}  // namespace nqcore
