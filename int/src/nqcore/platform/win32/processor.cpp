#include "platform/processor.h"

#include <windows.h>

namespace nqcore::platform {

double processor_frequency() noexcept {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0", 0, KEY_READ, &key) !=
        ERROR_SUCCESS) {
        return 0;
    }
    static_assert(KEY_READ == 0x20019);
    DWORD megahertz = 0;
    DWORD size = sizeof megahertz;
    DWORD type = REG_NONE;
    const LSTATUS status = RegQueryValueExA(key, "~MHz", nullptr, &type, reinterpret_cast<BYTE*>(&megahertz), &size);
    RegCloseKey(key);
    return status == ERROR_SUCCESS && type == REG_DWORD ? megahertz * 1'000'000.0 : 0;
}

}  // namespace nqcore::platform
