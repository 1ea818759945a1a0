#include "debug_library.h"

#include <dlfcn.h>
#include <atomic>
#include <memory>

namespace nqcore::platform {
namespace {

constexpr char s_name[] = "libdw.so.1";

constinit const DebugLibrary s_none;
constinit std::atomic<const DebugLibrary*> s_library = nullptr;  // null: not looked for yet
constinit std::atomic<const char*> s_chosenName = s_name;

template <class Function>
[[nodiscard]] bool find(void* library, const char* name, Function& function) noexcept {
    function = reinterpret_cast<Function>(dlsym(library, name));
    return function != nullptr;
}

[[nodiscard]] bool find_all(DebugLibrary& library) noexcept {
    bool found = true;
#define NQCORE_FIND_FUNCTION(name) found = found && find(library.handle, #name, library.name);
    NQCORE_DEBUG_FUNCTIONS(NQCORE_FIND_FUNCTION)
#undef NQCORE_FIND_FUNCTION
    return found;
}

void close(const DebugLibrary* library) noexcept {
    if (library != nullptr && library != &s_none) {
        dlclose(library->handle);
        delete library;
    }
}

[[nodiscard]] const DebugLibrary* open(const char* name) {
    auto library = std::make_unique<DebugLibrary>();
    library->handle = dlopen(name, RTLD_NOW | RTLD_LOCAL);
    if (library->handle == nullptr) {
        return &s_none;
    }
    if (!find_all(*library) || library->elf_version(EV_CURRENT) == EV_NONE) {
        close(library.release());
        return &s_none;
    }
    return library.release();
}

}  // namespace

// Two threads may open it at once; one of them gives it back. There is no lock for them to wait at, because the other
// could be a constructor that the dynamic linker runs.
const DebugLibrary* debug_library() {
    const DebugLibrary* library = s_library.load(std::memory_order_acquire);
    if (library == nullptr) [[unlikely]] {
        const DebugLibrary* const opened = open(s_chosenName.load());
        if (s_library.compare_exchange_strong(library, opened, std::memory_order_acq_rel)) {
            library = opened;
        } else {
            close(opened);
        }
    }
    return library != &s_none ? library : nullptr;
}

void choose_debug_library(const char* name) noexcept {
    s_chosenName = name != nullptr ? name : s_name;
    close(s_library.exchange(nullptr));
}

}  // namespace nqcore::platform
