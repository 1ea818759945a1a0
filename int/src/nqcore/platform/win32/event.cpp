#include "platform/event.h"

#include "ace_longest_wait.h"
#include "platform/clock.h"

#include <ace/Event_Base.h>
#include <ace/OS_NS_Thread.h>

#include <cerrno>
#include <memory>
#include <new>

namespace nqcore::platform {
namespace {

constexpr std::int64_t s_nsPerSecond = 1'000'000'000;
constexpr std::int64_t s_longestWaitNs = impl::s_aceLongestWaitSeconds * s_nsPerSecond;

/// An `ACE_Event` that says whether the system could make it.
class Event : public ACE_Event_Base {
public:
    /// Returns  0, or the error number; such an event can only be destroyed.
    int make() noexcept {
        return ACE_OS::event_init(&handle_, 1, 0, USYNC_THREAD) == 0 ? 0 : errno;  // manual reset, not signalled
    }
};

static_assert(sizeof(impl::EventStorage) == sizeof(Event) && alignof(impl::EventStorage) == alignof(Event));

Event& ace_event(impl::EventStorage& event) noexcept { return *std::launder(reinterpret_cast<Event*>(event.bytes)); }

int answer(int result) noexcept { return result == 0 ? 0 : errno == ETIME ? s_eventTimedOut : errno; }

// Ends no earlier than `ns` from now: ACE drops what lies below a millisecond.
int wait_for_span(impl::EventStorage& event, std::int64_t ns) noexcept {
    ns += 999'999;
    const ACE_Time_Value span(static_cast<time_t>(ns / s_nsPerSecond),
                              static_cast<suseconds_t>(ns % s_nsPerSecond / 1'000));
    return answer(ace_event(event).wait(&span, 0));
}

}  // namespace

int make_event(impl::EventStorage& event) noexcept {
    ::new (event.bytes) Event;
    const int failure = ace_event(event).make();
    if (failure != 0) {
        destroy_event(event);
    }
    return failure;
}

void destroy_event(impl::EventStorage& event) noexcept { std::destroy_at(&ace_event(event)); }

void signal_event(impl::EventStorage& event) noexcept { ace_event(event).signal(); }

int wait_for_event(impl::EventStorage& event) noexcept { return answer(ace_event(event).wait()); }

// A deadline is a moment of the system clock, which may be set meanwhile: what is left is asked again each time.
int wait_for_event_until(impl::EventStorage& event, std::int64_t deadlineNs) noexcept {
    for (;;) {
        std::int64_t left;
        if (__builtin_sub_overflow(deadlineNs, system_time_ns(), &left)) {
            left = deadlineNs < 0 ? 0 : INT64_MAX;
        }
        const bool isLast = left <= 0;
        const int result = wait_for_span(event, isLast ? 0 : left < s_longestWaitNs ? left : s_longestWaitNs);
        if (isLast || result != s_eventTimedOut) {
            return result;
        }
    }
}

int wait_for_event_during(impl::EventStorage& event, std::int64_t timeoutNs) noexcept {
    for (; timeoutNs > s_longestWaitNs; timeoutNs -= s_longestWaitNs) {
        const int result = wait_for_span(event, s_longestWaitNs);
        if (result != s_eventTimedOut) {
            return result;
        }
    }
    return wait_for_span(event, timeoutNs < 0 ? 0 : timeoutNs);
}

}  // namespace nqcore::platform
