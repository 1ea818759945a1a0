// The name of this machine, as every error record carries it.
#pragma once

#include "nqcore/source_string.h"

namespace nqcore::impl {

/// Never destroyed, so records may be made until the process ends.
struct HostName {
    char text[128];
    unsigned length;  // written last, 0 until then
};
extern HostName s_hostName;

void capture_host_name() noexcept;

/// Captured once, while the library is loaded, or earlier when another static object needs it. "<unknown>" when the
/// system gives none.
[[nodiscard]] inline SourceString host_name() noexcept {
    unsigned length = __atomic_load_n(&s_hostName.length, __ATOMIC_ACQUIRE);
    if (length == 0) [[unlikely]] {
        capture_host_name();
        length = s_hostName.length;
    }
    return SourceString(s_hostName.text, length, true);
}

}  // namespace nqcore::impl
