#include "../host.h"

#include <cerrno>
#include <cstring>

#include <sys/utsname.h>
#include <unistd.h>

namespace nqcore::platform {

int network_host_name(char* name, unsigned size) noexcept { return gethostname(name, size) == 0 ? 0 : errno; }

int computer_name(char* name, unsigned size) noexcept {
    utsname system = {};
    if (uname(&system) != 0) {
        return errno;
    }
    const std::size_t length = strnlen(system.nodename, sizeof system.nodename);
    if (length > size) {
        return ENAMETOOLONG;
    }
    std::memcpy(name, system.nodename, length);
    return 0;
}

}  // namespace nqcore::platform
