// The name of this machine, as every error record carries it.
#pragma once

#include <string_view>

namespace nqcore::impl {

/// Captured once, while the library is loaded. "<unknown>" when the system gives none.
[[nodiscard]] std::string_view host_name() noexcept;

}  // namespace nqcore::impl
