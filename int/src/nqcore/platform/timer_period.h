// What the library asks of the system about the precision of its timers.
// Implemented once per folder (win32/timer_period.cpp, posix/timer_period.cpp); the build picks the folder.
#pragma once

namespace nqcore::platform {

/// Asks that timers be precise to `milliseconds` until the matching `end_timer_period`; the finest request counts.
///
/// Returns  0; 97 for a period that the system does not have: 0, and those above 65535.
/// Threads  any. On posix a thread's timers follow the requests that it made itself.
[[nodiscard]] unsigned begin_timer_period(unsigned milliseconds) noexcept;

/// Takes one request back.
///
/// Returns  0; 97 as above. On posix 97 also when there is no such request.
[[nodiscard]] unsigned end_timer_period(unsigned milliseconds) noexcept;

}  // namespace nqcore::platform
