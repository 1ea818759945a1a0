// Between the tool's UTF-8 and the system's wide text.
#pragma once

#include <string>
#include <string_view>

namespace nq::platform {

/// Returns  empty when the text is not UTF-8, or holds a NUL.
[[nodiscard]] std::wstring wide_path(const std::string& path);
/// Half a surrogate pair, which a file name may hold, becomes U+FFFD.
[[nodiscard]] std::string utf8_text(std::wstring_view text);

}  // namespace nq::platform
