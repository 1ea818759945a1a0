// What the library asks of the system about environment variables.
// Implemented once per folder (win32/environment.cpp, posix/environment.cpp); the build picks the folder.
#pragma once

namespace nqcore::platform {

enum class VariableState { NotSet, Set, Unreadable };

/// Whether the variable is there; an empty value is one.
[[nodiscard]] VariableState variable_state(const char* name) noexcept;

}  // namespace nqcore::platform
