#include "platform/clock.h"

#include <time.h>

namespace nqcore::platform {

std::int64_t system_time_ns() noexcept {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);  // fails for a bad argument only
    // Unsigned, so that a clock set beyond the range wraps round.
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
                                     static_cast<std::uint64_t>(now.tv_nsec));
}

}  // namespace nqcore::platform
