// A word that waiters sleep on while it is 0. Who wakes need not take a mutex that the signaller still holds, as with a
// condition variable.
#include "platform/event.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>

namespace nqcore::platform {
namespace {

constexpr std::int64_t s_nsPerSecond = 1'000'000'000;

static_assert(sizeof(impl::EventStorage) == sizeof(int));

int* word(impl::EventStorage& event) noexcept { return reinterpret_cast<int*>(event.bytes); }

// Null waits without limit; `clock` is FUTEX_CLOCK_REALTIME, or 0 for the monotonic one.
int wait_on_word(impl::EventStorage& event, const timespec* deadline, int clock) noexcept {
    while (__atomic_load_n(word(event), __ATOMIC_ACQUIRE) == 0) {
        const long result = syscall(SYS_futex, word(event), FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG | clock, 0, deadline,
                                    nullptr, FUTEX_BITSET_MATCH_ANY);
        if (result == 0 || errno == EAGAIN || errno == EINTR) {
            continue;
        }
        return errno == ETIMEDOUT ? s_eventTimedOut : errno;
    }
    return 0;
}

// The kernel refuses times before the origin of its clocks.
timespec timespec_of(std::int64_t ns) noexcept {
    ns = ns < 0 ? 0 : ns;
    return {static_cast<time_t>(ns / s_nsPerSecond), static_cast<long>(ns % s_nsPerSecond)};
}

}  // namespace

int make_event(impl::EventStorage& event) noexcept {
    __atomic_store_n(word(event), 0, __ATOMIC_RELAXED);
    return 0;
}

void destroy_event(impl::EventStorage&) noexcept {}

void signal_event(impl::EventStorage& event) noexcept {
    __atomic_store_n(word(event), 1, __ATOMIC_RELEASE);
    syscall(SYS_futex, word(event), FUTEX_WAKE | FUTEX_PRIVATE_FLAG, INT_MAX);
}

int wait_for_event(impl::EventStorage& event) noexcept { return wait_on_word(event, nullptr, 0); }

int wait_for_event_until(impl::EventStorage& event, std::int64_t deadlineNs) noexcept {
    const timespec deadline = timespec_of(deadlineNs);
    return wait_on_word(event, &deadline, FUTEX_CLOCK_REALTIME);
}

int wait_for_event_during(impl::EventStorage& event, std::int64_t timeoutNs) noexcept {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::int64_t end;
    if (__builtin_add_overflow(now.tv_sec * s_nsPerSecond + now.tv_nsec, timeoutNs, &end)) {
        end = INT64_MAX;
    }
    const timespec deadline = timespec_of(end);
    return wait_on_word(event, &deadline, 0);
}

}  // namespace nqcore::platform
