#include "../module.h"

#include <dlfcn.h>
#include <csignal>

namespace nqcore::platform {

void* hold_own_module() noexcept {
    Dl_info module = {};
    static const char s_address = 0;
    // Found by the name that it was loaded under; a program's own name is not.
    return dladdr(&s_address, &module) != 0 ? dlopen(module.dli_fname, RTLD_LAZY | RTLD_NOLOAD) : nullptr;
}

void release_module(void* held) noexcept {
    if (held != nullptr) {
        dlclose(held);
    }
}

void request_debugger_break() noexcept { std::raise(SIGTRAP); }

}  // namespace nqcore::platform
