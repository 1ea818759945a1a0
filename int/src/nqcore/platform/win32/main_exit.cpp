#include "../main_exit.h"

namespace nqcore::platform {

// The C runtime of a program calls what was registered last first, and all that is registered while a library is loaded
// comes before the program's own.
void watch_main_thread() noexcept {}

bool has_main_thread_ended() noexcept { return false; }

}  // namespace nqcore::platform
