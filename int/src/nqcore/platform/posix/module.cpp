#include "../module.h"

#include <dlfcn.h>
#include <unistd.h>
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

std::string program_path() {
    std::string path(256, '\0');
    for (;;) {
        const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
        if (length < 0) {
            return {};
        }
        if (static_cast<std::size_t>(length) < path.size()) {
            path.resize(static_cast<std::size_t>(length));
            return path;
        }
        path.resize(2 * path.size());
    }
}

void request_debugger_break() noexcept { std::raise(SIGTRAP); }

}  // namespace nqcore::platform
