#include "host_name.h"

#include "platform/host.h"

#include <cerrno>
#include <cstring>

namespace nqcore::impl {

constinit HostName s_hostName = {};

namespace {

constexpr unsigned s_longestHostName = sizeof s_hostName.text - 1;

bool capture() noexcept {
    char* const text = s_hostName.text;
    int failure = platform::network_host_name(text, s_longestHostName);
    if (failure != 0 || *text == '\0') {
        std::memset(text, 0, sizeof s_hostName.text);
        failure = platform::computer_name(text, s_longestHostName);
    }
    if (failure != 0 || *text == '\0') {
        std::memcpy(text, "<unknown>", sizeof "<unknown>");
        errno = failure;
    }
    __atomic_store_n(&s_hostName.length, static_cast<unsigned>(std::strlen(text)), __ATOMIC_RELEASE);
    return true;
}

[[maybe_unused]] const bool s_atLoad = (capture_host_name(), true);

}  // namespace

void capture_host_name() noexcept { [[maybe_unused]] static const bool s_captured = capture(); }

}  // namespace nqcore::impl
