// What the library asks of the system about itself as a loaded module, and about the debugger that may watch it.
// Implemented once per folder (win32/module.cpp, posix/module.cpp); the build picks the folder.
#pragma once

#include <string>

namespace nqcore::platform {

/// Keeps the module that this code is part of in the process, however often it is unloaded, until `release_module`.
///
/// Returns  null when there is nothing to release: a program is not unloaded.
[[nodiscard]] void* hold_own_module() noexcept;
/// In       `held`: what `hold_own_module` gave; null does nothing.
void release_module(void* held) noexcept;

/// The path of the program that this process runs, UTF-8; empty when it cannot be read.
///
/// Errors   `std::bad_alloc`.
[[nodiscard]] std::string program_path();

/// Stops in the debugger. Without one, the process ends as the system ends it then.
void request_debugger_break() noexcept;

}  // namespace nqcore::platform
