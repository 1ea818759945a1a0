// What the library asks of the system about environment variables.
// Implemented once per folder (win32/environment.cpp, posix/environment.cpp); the build picks the folder.
//
// Texts hold no NUL. Whatever converts or allocates throws what that throws.
#pragma once

#include <string>
#include <string_view>

namespace nqcore::platform {

enum class VariableState { NotSet, Set, Unreadable };

/// Whether the variable is there; an empty value is one.
[[nodiscard]] VariableState variable_state(const char* name) noexcept;

/// Out      `value`: set when the variable is there.
/// Returns  0, or the system's error number.
[[nodiscard]] unsigned long read_variable(std::string_view name, std::string& value, bool& found);

/// Out      `isSecondCall`: of a failure, whether the system had told the size of the result before it failed.
/// Returns  0, or the system's error number.
[[nodiscard]] unsigned long expand_variables(std::string_view text, std::string& expanded, bool& isSecondCall);

/// In       `value`: empty removes the variable.
/// Returns  0, or the system's error number.
[[nodiscard]] unsigned long write_variable(std::string_view name, std::string_view value);

}  // namespace nqcore::platform
