// A duration as the value of an error parameter.
#pragma once

#include "nqcore/abs_rel_time.h"

#include <string>

namespace nqcore::impl {

/// "1500ns", or "##INFINITE##".
inline std::string duration_param(RelativeTime duration) {
    return duration.is_infinite() ? "##INFINITE##" : std::to_string(duration.as_nsec()) + "ns";
}

}  // namespace nqcore::impl
