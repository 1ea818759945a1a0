#include "../process.h"

#include <pthread.h>
#include <unistd.h>

namespace nqcore::platform {

std::uint32_t process_id() noexcept { return static_cast<std::uint32_t>(getpid()); }

std::uint32_t thread_id() noexcept { return static_cast<std::uint32_t>(gettid()); }

// The handlers go when the library is unloaded.
void at_fork(const ForkHandlers& handlers) noexcept {
    static_cast<void>(pthread_atfork(handlers.before, handlers.inParent, handlers.inChild));
}

}  // namespace nqcore::platform
