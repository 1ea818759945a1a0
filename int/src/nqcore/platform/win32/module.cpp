#include "../module.h"

#include <windows.h>

namespace nqcore::platform {

void* hold_own_module() noexcept {
    static const wchar_t s_address = 0;
    HMODULE module = nullptr;
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, &s_address, &module) != 0 ? module : nullptr;
}

void release_module(void* held) noexcept {
    if (held != nullptr) {
        FreeLibrary(static_cast<HMODULE>(held));
    }
}

void request_debugger_break() noexcept { DebugBreak(); }

}  // namespace nqcore::platform
