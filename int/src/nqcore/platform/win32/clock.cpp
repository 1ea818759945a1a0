#include "platform/clock.h"

#include "nqcore/abs_rel_time.h"

#include <windows.h>

namespace nqcore::platform {

std::int64_t system_time_ns() noexcept {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return AbsoluteTime(now, false).as_nsec();
}

}  // namespace nqcore::platform
