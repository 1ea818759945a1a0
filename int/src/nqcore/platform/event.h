// What the library asks of the system to let threads sleep until something has happened, which happens once.
// Implemented once per folder (win32/event.cpp, posix/event.cpp); the build picks the folder.
#pragma once

#include "nqcore/ace_storage.h"

#include <cstdint>

namespace nqcore::platform {

/// What a wait answers when its time has run out; 0 is success, all else the system's error number.
constexpr int s_eventTimedOut = -1;

/// Makes an event that has not happened; `destroy_event` takes it down.
///
/// Returns  0, or the system's error number: there is no event then.
[[nodiscard]] int make_event(impl::EventStorage& event) noexcept;
void destroy_event(impl::EventStorage& event) noexcept;

/// It has happened: wakes all waiters, and lets later ones pass.
void signal_event(impl::EventStorage& event) noexcept;

/// Sleeps until the event has happened; or until `deadlineNs` since 1970 UTC by the system clock; or for `timeoutNs`.
///
/// Range    any number; what is past is answered at once.
[[nodiscard]] int wait_for_event(impl::EventStorage& event) noexcept;
[[nodiscard]] int wait_for_event_until(impl::EventStorage& event, std::int64_t deadlineNs) noexcept;
[[nodiscard]] int wait_for_event_during(impl::EventStorage& event, std::int64_t timeoutNs) noexcept;

}  // namespace nqcore::platform
