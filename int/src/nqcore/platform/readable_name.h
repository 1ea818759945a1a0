// Names of functions as their programmers know them.
#pragma once

#include <string>
#include <string_view>

namespace nqcore::platform {

/// A linker's name of a function as source text without parameters and return type: "ns::Widget::run". A name that is
/// not decorated comes back as it is.
[[nodiscard]] std::string readable_name(const std::string& linkerName);

/// The part of a declaration such as "int* ns::find<char>(char const*) const" that names the function.
[[nodiscard]] std::string_view name_in_declaration(std::string_view declaration) noexcept;

}  // namespace nqcore::platform
