// What the library asks of the system about the end of the main thread.
// Implemented once per folder (win32/main_exit.cpp, posix/main_exit.cpp); the build picks the folder.
#pragma once

namespace nqcore::platform {

/// Has the end of the main thread noticed from now on; does nothing on any other thread.
void watch_main_thread() noexcept;

/// Whether the watched main thread has left `main` or begun to end the process. False where the system cannot tell.
[[nodiscard]] bool has_main_thread_ended() noexcept;

}  // namespace nqcore::platform
