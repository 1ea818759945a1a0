#include "nqcore/scheduler.h"

#include "nqcore/error_code.h"
#include "nqcore/error_composer.h"
#include "platform/timer_period.h"
#include "source_id.h"

#include <string>

namespace nqcore {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/scheduler.cpp#1 $");

constexpr ErrorTemplate s_notSet{"Failed setting scheduler latency to {@latency}: result={@result}", "latency",
                                 "result"};
constexpr ErrorTemplate s_notRestored{"Failed restoring scheduler latency: result={@result}", "result"};

// Finest first; what is not below it is the latency that every system has.
constexpr unsigned s_coarsestPeriod = 15;

class SystemTimerPeriods final : public impl::TimerPeriodService {
public:
    unsigned begin(unsigned milliseconds) override { return platform::begin_timer_period(milliseconds); }
    unsigned end(unsigned milliseconds) override { return platform::end_timer_period(milliseconds); }
};

}  // namespace

impl::TimerPeriodService& impl::TimerPeriodService::system() noexcept {
    constinit static SystemTimerPeriods s_system;
    return s_system;
}

SchedulerLatency::SchedulerLatency(RelativeTime latency, impl::TimerPeriodService& service)
    : m_latency(latency), m_service(service) {
    const unsigned result = m_service.begin(latency.as_win32_timeout());
    if (result != 0) {
        s_notSet.compose(latency.as_string(), result)
            .throw_error(error::nqcore_hardware_timeError,
                         s_source.here("nqcore::SchedulerLatency::SchedulerLatency()"));
    }
}

SchedulerLatency::~SchedulerLatency() noexcept(false) {
    const unsigned result = m_service.end(m_latency.as_win32_timeout());
    if (result != 0) {
        s_notRestored.compose(result).throw_error(error::nqcore_hardware_timeError,
                                                  s_source.here("nqcore::SchedulerLatency::~SchedulerLatency()"));
    }
}

RelativeTime SchedulerLatency::min_scheduler_latency(impl::TimerPeriodService& service) {
    unsigned period = 0;
    while (period < s_coarsestPeriod && service.begin(period) != 0) {
        ++period;
    }
    if (period < s_coarsestPeriod) {
        static_cast<void>(service.end(period));
    }
    return RelativeTime::milliseconds(period);
}

}  // namespace nqcore
