#include "host_name.h"

#include "platform/host.h"

#include <cerrno>
#include <cstring>

namespace nqcore::impl {
namespace {

// Nothing to destroy, so records may be made until the process ends.
struct HostName {
    static constexpr unsigned size = 128;

    char text[size] = {};
    std::size_t length = 0;

    HostName() noexcept {
        if (platform::network_host_name(text, size - 1) != 0) {
            std::memset(text, 0, size);
            if (const int failure = platform::computer_name(text, size - 1); failure != 0) {
                std::memcpy(text, "<unknown>", sizeof "<unknown>");
                errno = failure;
            }
        }
        length = std::strlen(text);
    }
};

const HostName& captured() noexcept {
    static const HostName s_name;
    return s_name;
}

// Captures at load; a record made earlier, by another static object, captures before that.
[[maybe_unused]] const HostName& s_atLoad = captured();

}  // namespace

std::string_view host_name() noexcept {
    const HostName& name = captured();
    return {name.text, name.length};
}

}  // namespace nqcore::impl
