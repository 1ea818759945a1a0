#include "../module.h"

#include "wide_text.h"

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

std::string program_path() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD units = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (units == 0) {
            return {};
        }
        if (units < path.size()) {
            return utf8_text({path.data(), units});
        }
        path.resize(2 * path.size());
    }
}

void request_debugger_break() noexcept { DebugBreak(); }

}  // namespace nqcore::platform
