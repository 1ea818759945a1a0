#include "../environment.h"

#include <cstdlib>

namespace nqcore::platform {

VariableState variable_state(const char* name) noexcept {
    return std::getenv(name) != nullptr ? VariableState::Set : VariableState::NotSet;
}

}  // namespace nqcore::platform
