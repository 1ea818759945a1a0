#include "platform/win32/wide_text.h"

#include <windows.h>

namespace nq::platform {

// The library's converters refuse characters that Windows allows in names, so the system's own are used here.

std::wstring wide_path(const std::string& path) {
    const int size = static_cast<int>(path.size());
    if (size == 0 || path.find('\0') != path.npos) {
        return {};
    }
    const int units = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path.data(), size, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path.data(), size, wide.data(), units);
    return wide;
}

std::string utf8_text(std::wstring_view text) {
    const int units = static_cast<int>(text.size());
    if (units == 0) {
        return {};
    }
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, narrow.data(), size, nullptr, nullptr);
    return narrow;
}

}  // namespace nq::platform
