// What the library asks of the system about the process that it runs in.
// Implemented once per folder (win32/process.cpp, posix/process.cpp); the build picks the folder.
#pragma once

#include <cstdint>

namespace nqcore::platform {

[[nodiscard]] std::uint32_t process_id() noexcept;

/// The calling thread's.
[[nodiscard]] std::uint32_t thread_id() noexcept;

/// What is called on the forking thread around every fork: just before, and afterwards in each of the two processes.
struct ForkHandlers {
    void (*before)() noexcept;
    void (*inParent)() noexcept;
    void (*inChild)() noexcept;
};

/// Has handlers called from the next fork on, the `before` of the newest first, the others of the oldest first. Does
/// nothing where processes do not fork, or when there is no memory.
void at_fork(const ForkHandlers& handlers) noexcept;

}  // namespace nqcore::platform
