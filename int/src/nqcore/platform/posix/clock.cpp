#include "platform/clock.h"

#include <time.h>

namespace nqcore::platform {
namespace {

std::int64_t now_ns(clockid_t clock) noexcept {
    timespec now;
    clock_gettime(clock, &now);  // fails for a bad argument only
    // Unsigned, so that a clock set beyond the range wraps round.
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
                                     static_cast<std::uint64_t>(now.tv_nsec));
}

}  // namespace

std::int64_t system_time_ns() noexcept { return now_ns(CLOCK_REALTIME); }

std::int64_t boot_time_ns() noexcept { return now_ns(CLOCK_BOOTTIME); }

std::int64_t counter() noexcept { return now_ns(CLOCK_MONOTONIC_RAW); }

std::int64_t counter_frequency() noexcept { return 1'000'000'000; }

std::uint32_t tick_count_ms() noexcept {
    return static_cast<std::uint32_t>(now_ns(CLOCK_MONOTONIC_COARSE) / 1'000'000);
}

std::uint64_t time_stamp() noexcept { return __builtin_ia32_rdtsc(); }

}  // namespace nqcore::platform
