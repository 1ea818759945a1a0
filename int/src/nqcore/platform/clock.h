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

}  // namespace nqcore::platform
