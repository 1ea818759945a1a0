// Between the library's texts and the system's, which are UTF-16, for texts that must come through whatever they hold:
// what is invalid becomes the replacement character.
#pragma once

#include <string>
#include <string_view>

namespace nqcore::platform {

[[nodiscard]] std::wstring wide_text(std::string_view utf8);
[[nodiscard]] std::string utf8_text(std::wstring_view wide);

}  // namespace nqcore::platform
