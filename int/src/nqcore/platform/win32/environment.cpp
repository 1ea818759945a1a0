#include "../environment.h"

#include <windows.h>

namespace nqcore::platform {

VariableState variable_state(const char* name) noexcept {
    // The length with the terminator, so not even an empty value gives 0.
    if (GetEnvironmentVariableA(name, nullptr, 0) != 0) {
        return VariableState::Set;
    }
    return GetLastError() == ERROR_ENVVAR_NOT_FOUND ? VariableState::NotSet : VariableState::Unreadable;
}

}  // namespace nqcore::platform
