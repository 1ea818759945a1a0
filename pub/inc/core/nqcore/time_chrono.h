// Conversions between the library's times and std::chrono's, apart because <chrono> is a large header.
//
//     std::this_thread::sleep_for(nqcore::to_chrono(nqcore::RelativeTime::milliseconds(20)));
//
// std::chrono has no infinite time: the infinite value converts to and from the highest count, which is `max()` of both
// types here.
#pragma once

#include "nqcore/abs_rel_time.h"

#include <chrono>

namespace nqcore {

/// The same nanosecond count; infinite gives `std::chrono::nanoseconds::max()`.
[[nodiscard]] constexpr std::chrono::nanoseconds to_chrono(RelativeTime duration) noexcept {
    return std::chrono::nanoseconds(duration.as_nsec());
}

/// The same nanosecond count; infinite gives `max()` of the result's type.
[[nodiscard]] constexpr std::chrono::sys_time<std::chrono::nanoseconds> to_chrono(AbsoluteTime time) noexcept {
    return std::chrono::sys_time<std::chrono::nanoseconds>(std::chrono::nanoseconds(time.as_nsec()));
}

/// The same nanosecond count; `max()` gives infinite.
[[nodiscard]] constexpr RelativeTime from_chrono(std::chrono::nanoseconds duration) noexcept {
    return RelativeTime::nanoseconds(duration.count());
}

/// The same nanosecond count; `max()` gives infinite.
[[nodiscard]] constexpr AbsoluteTime from_chrono(std::chrono::sys_time<std::chrono::nanoseconds> time) noexcept {
    return AbsoluteTime::from_nsec(time.time_since_epoch().count());
}

}  // namespace nqcore
