// The system has no timer period that a process could ask for; its threads have a timer slack, by which the kernel may
// wake them late. The requests are counted for the process; a thread that makes one takes the finest of them for its slack,
// unless its own slack is finer still, and follows the rest as it ends its own.
#include "platform/timer_period.h"

#include <sys/prctl.h>

#include <cstdint>
#include <mutex>

namespace nqcore::platform {
namespace {

constexpr unsigned s_refused = 97;
constexpr unsigned s_longestPeriod = 65'535;
constexpr unsigned long s_nsPerMillisecond = 1'000'000;

// Both need no construction and no destruction, so requests of static objects are safe at either end of the process.
// The table costs memory only where it is used.
constinit std::mutex s_mutex;
constinit std::uint32_t s_requests[s_longestPeriod + 1] = {};
constinit std::uint64_t s_requestCount = 0;

// The requests that this thread made and has not ended: with the last of them its own slack comes back.
constinit thread_local std::uint64_t t_requestCount = 0;

// The slack that this thread had before it made a request; 0 while it has its own.
constinit thread_local unsigned long t_ownSlackNs = 0;

// The finest period asked for, 0 when there is none. The mutex is held.
unsigned finest_period() noexcept {
    unsigned period = 0;
    if (s_requestCount != 0) {
        while (s_requests[period] == 0) {
            ++period;
        }
    }
    return period;
}

// Best effort, as the period itself is: a system that refuses keeps the slack that it has. Real-time threads have none.
void refine_slack() noexcept {
    ++t_requestCount;
    if (t_ownSlackNs == 0) {
        const int slackNs = prctl(PR_GET_TIMERSLACK);
        t_ownSlackNs = slackNs > 0 ? static_cast<unsigned long>(slackNs) : 0;
    }
    const unsigned long wantedNs = finest_period() * s_nsPerMillisecond;
    if (wantedNs < t_ownSlackNs) {
        prctl(PR_SET_TIMERSLACK, wantedNs);
    }
}

void relax_slack() noexcept {
    if (t_requestCount == 0) {
        return;  // another thread's request
    }
    const unsigned long wantedNs = --t_requestCount == 0 ? 0 : finest_period() * s_nsPerMillisecond;
    if (t_ownSlackNs == 0) {
        return;  // a thread without slack
    }
    if (wantedNs != 0 && wantedNs < t_ownSlackNs) {
        prctl(PR_SET_TIMERSLACK, wantedNs);
    } else {
        prctl(PR_SET_TIMERSLACK, t_ownSlackNs);
        t_ownSlackNs = 0;
    }
}

}  // namespace

unsigned begin_timer_period(unsigned milliseconds) noexcept {
    if (milliseconds == 0 || milliseconds > s_longestPeriod) {
        return s_refused;
    }
    const std::lock_guard lock(s_mutex);
    ++s_requests[milliseconds];
    ++s_requestCount;
    refine_slack();
    return 0;
}

unsigned end_timer_period(unsigned milliseconds) noexcept {
    if (milliseconds > s_longestPeriod) {
        return s_refused;
    }
    const std::lock_guard lock(s_mutex);
    if (s_requests[milliseconds] == 0) {
        return s_refused;
    }
    --s_requests[milliseconds];
    --s_requestCount;
    relax_slack();
    return 0;
}

}  // namespace nqcore::platform
