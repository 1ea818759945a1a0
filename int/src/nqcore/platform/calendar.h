// What the library asks of the system about file and calendar times.
// Implemented once per folder (win32/calendar.cpp, posix/calendar.cpp); the build picks the folder.
//
// File times are ticks of 100 ns since 1601-01-01. A conversion that fails returns false and writes nothing.
#pragma once

#include "nqcore/windows_types.h"

#include <cstdint>

namespace nqcore::platform {

/// Errors   ticks of 2^63 and more.
[[nodiscard]] bool system_time_from_file_time(std::uint64_t ticks, SYSTEMTIME& fields) noexcept;

/// The day of the week is not looked at.
///
/// Errors   a year outside 1601 to 30827, or any field outside what the calendar has.
[[nodiscard]] bool file_time_from_system_time(const SYSTEMTIME& fields, std::uint64_t& ticks) noexcept;

/// UTC from local ticks, by the offset that the zone has now, not by the one it had or will have then.
[[nodiscard]] bool utc_from_local_file_time(std::uint64_t localTicks, std::uint64_t& utcTicks) noexcept;

}  // namespace nqcore::platform
