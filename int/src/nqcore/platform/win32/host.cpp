#include "../host.h"

// The sockets header insists on coming before the system's.
#include <winsock2.h>

#include <windows.h>

namespace nqcore::platform {

int network_host_name(char* name, unsigned size) noexcept {
    return gethostname(name, static_cast<int>(size)) == 0 ? 0 : WSAGetLastError();
}

int computer_name(char* name, unsigned size) noexcept {
    DWORD bytes = size;
    return GetComputerNameA(name, &bytes) != 0 ? 0 : static_cast<int>(GetLastError());
}

}  // namespace nqcore::platform
