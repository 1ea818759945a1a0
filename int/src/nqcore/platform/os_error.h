// What the library asks of the system about error numbers and their texts.
// Implemented once per folder (win32/os_error.cpp, posix/os_error.cpp); the build picks the folder.
#pragma once

#include <string>

namespace nqcore::platform {

/// Whose numbers the C runtime's `errno` holds.
enum class ErrnoNumbering { Windows, Posix };

[[nodiscard]] ErrnoNumbering errno_numbering() noexcept;

/// The system's own text for a Windows error number, in UTF-8, as the system gives it; empty when it has none.
///
/// Errors   `std::bad_alloc`.
[[nodiscard]] std::string windows_error_text(unsigned long winError);

/// The system error number that the runtime keeps beside `errno`, one for each thread.
[[nodiscard]] unsigned long saved_os_error() noexcept;
void set_saved_os_error(unsigned long error) noexcept;

/// The number of the calling thread's last failed system call, where that is not `errno`.
[[nodiscard]] unsigned long last_os_error() noexcept;
void set_last_os_error(unsigned long error) noexcept;

}  // namespace nqcore::platform
