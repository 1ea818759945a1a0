#include "../process.h"

#include <windows.h>

namespace nqcore::platform {

std::uint32_t process_id() noexcept { return GetCurrentProcessId(); }

std::uint32_t thread_id() noexcept { return GetCurrentThreadId(); }

void at_fork(const ForkHandlers&) noexcept {}

}  // namespace nqcore::platform
