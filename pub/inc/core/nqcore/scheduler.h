// SchedulerLatency: a request for finer system timers that lasts as long as the object.
//
//     {
//         const nqcore::SchedulerLatency fine(nqcore::RelativeTime::milliseconds(1));
//         play_audio();                                                // sleeps and timed waits end on time
//     }
#pragma once

#include "nqcore/abs_rel_time.h"
#include "nqcore/config.h"

namespace nqcore {
namespace impl {

/// What `SchedulerLatency` asks of the system; tests hand in their own.
///
/// In       whole milliseconds.
/// Returns  0, or the system's code of the failure.
class NQCORE_API TimerPeriodService {
public:
    virtual unsigned begin(unsigned milliseconds) = 0;
    virtual unsigned end(unsigned milliseconds) = 0;

    /// The system's own. On linux a thread's timers follow the requests that it made itself, and are finer than a
    /// millisecond without any, unless the program was started with a coarser timer slack.
    [[nodiscard]] static TimerPeriodService& system() noexcept;

protected:
    TimerPeriodService() = default;
    TimerPeriodService(const TimerPeriodService&) = default;
    TimerPeriodService& operator=(const TimerPeriodService&) = default;
    ~TimerPeriodService() = default;
};

}  // namespace impl

/// Asks the system to end sleeps and timed waits within `latency` of their time, until destruction.
///
/// Threads  destroy it on the thread that made it: on linux the request is that thread's.
/// Cost     finer timers cost the whole machine power: hold the object no longer than needed.
class NQCORE_API SchedulerLatency {
public:
    /// In       `latency`: truncated to milliseconds; infinite asks for 0xFFFFFFFF. The system takes 1 to 65535.
    /// Errors   "error.nqcore.hardware.timeError", with "latency" and "result", the system's code.
    explicit SchedulerLatency(RelativeTime latency) : SchedulerLatency(latency, impl::TimerPeriodService::system()) {}
    /// Lifetime `service` must live longer.
    SchedulerLatency(RelativeTime latency, impl::TimerPeriodService& service);
    /// Errors   "error.nqcore.hardware.timeError", with "result". Thrown, deliberately, so it ends the program when the
    ///          object dies because of another exception.
    ~SchedulerLatency() noexcept(false);
    SchedulerLatency(const SchedulerLatency&) = delete;
    SchedulerLatency& operator=(const SchedulerLatency&) = delete;

    [[nodiscard]] RelativeTime requested_latency() const noexcept { return m_latency; }

    /// The finest latency that the system grants, found by asking: 0 to 14 milliseconds, and 15 when it grants none of
    /// them. No request stays behind.
    [[nodiscard]] static RelativeTime min_scheduler_latency() {
        return min_scheduler_latency(impl::TimerPeriodService::system());
    }
    [[nodiscard]] static RelativeTime min_scheduler_latency(impl::TimerPeriodService& service);

private:
    RelativeTime m_latency;
    impl::TimerPeriodService& m_service;
};

}  // namespace nqcore
