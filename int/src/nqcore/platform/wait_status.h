// What the library asks of the system about the wait statuses of processes, and about signals.
// Implemented once per folder (win32/wait_status.cpp, posix/wait_status.cpp); the build picks the folder.
#pragma once

#include <cstdint>

namespace nqcore::platform {

/// Whether the process ended with an exit code.
[[nodiscard]] bool has_exit_code(int status, std::uint32_t& exitCode) noexcept;

// Of a status without an exit code, or 0; signals are 0 when there is none.
[[nodiscard]] int terminating_signal(int status) noexcept;
[[nodiscard]] int stopping_signal(int status) noexcept;
[[nodiscard]] bool has_dumped_core(int status) noexcept;
[[nodiscard]] bool has_continued(int status) noexcept;

/// Returns  null when it has none.
[[nodiscard]] const char* signal_name(int signal) noexcept;

}  // namespace nqcore::platform
