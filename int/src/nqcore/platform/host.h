// What the library asks of the system about the machine's name.
// Implemented once per folder (win32/host.cpp, posix/host.cpp); the build picks the folder.
#pragma once

namespace nqcore::platform {

/// The name that the network knows the machine by.
///
/// Out      `name`: at most `size` bytes, terminated only when there is room.
/// Returns  0, or the system error number of the failure.
[[nodiscard]] int network_host_name(char* name, unsigned size) noexcept;

/// The name that the system itself knows the machine by; otherwise as `network_host_name`.
[[nodiscard]] int computer_name(char* name, unsigned size) noexcept;

}  // namespace nqcore::platform
