// The bounds of the calling thread's stack, for code that must not ask the system for them.
#pragma once

#include "../stack.h"

namespace nqcore::platform {

/// What `current_stack_bounds` found on this thread; both 0 before its first call. Takes no memory.
[[nodiscard]] StackBounds known_stack_bounds() noexcept;

}  // namespace nqcore::platform
