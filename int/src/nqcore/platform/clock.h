// What the library asks of the system about time.
// Implemented once per folder (win32/clock.cpp, posix/clock.cpp); the build picks the folder.
#pragma once

#include <cstdint>

namespace nqcore::platform {

/// Nanoseconds since 1970-01-01T00:00:00 UTC by the system clock; may step backwards.
///
/// Units    steps of 100 ns (win32), 1 ns (posix).
/// Threads  any.
[[nodiscard]] std::int64_t system_time_ns() noexcept;

/// Nanoseconds since boot, time asleep included; never steps backwards.
///
/// Units    steps of the system's timer interrupt (win32: 0.5 to 16 ms), 1 ns (posix).
/// Threads  any.
/// Cost     no system call.
[[nodiscard]] std::int64_t boot_time_ns() noexcept;

/// The finest steady counter, from an origin of its own; never steps backwards, and is not adjusted to any other clock.
///
/// Units    1 / `counter_frequency()` seconds.
/// Threads  any.
[[nodiscard]] std::int64_t counter() noexcept;

/// Counts of `counter` per second; constant while the system runs.
[[nodiscard]] std::int64_t counter_frequency() noexcept;

/// Milliseconds from an origin of its own, modulo 2^32.
///
/// Units    steps of the system's timer interrupt.
[[nodiscard]] std::uint32_t tick_count_ms() noexcept;

/// The processor's own counter: fast and fine, but nobody promises its unit or that processors agree.
[[nodiscard]] std::uint64_t time_stamp() noexcept;

}  // namespace nqcore::platform
