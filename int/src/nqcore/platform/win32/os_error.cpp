#include "../os_error.h"

#include <cstdlib>
#include <memory>

#include <windows.h>

namespace nqcore::platform {
namespace {

std::string utf8_of(const wchar_t* text, int units) {
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, units, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, units, utf8.data(), bytes, nullptr, nullptr);
    return utf8;
}

}  // namespace

ErrnoNumbering errno_numbering() noexcept { return ErrnoNumbering::Windows; }

std::string windows_error_text(unsigned long winError) {
    constexpr DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    // With FORMAT_MESSAGE_ALLOCATE_BUFFER the buffer argument is the address of a pointer.
    wchar_t* text = nullptr;
    const DWORD units = FormatMessageW(flags, nullptr, winError, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                                       reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    const std::unique_ptr<wchar_t, decltype(&LocalFree)> owner(text, &LocalFree);
    return units == 0 ? std::string() : utf8_of(text, static_cast<int>(units));
}

unsigned long saved_os_error() noexcept { return _doserrno; }

void set_saved_os_error(unsigned long error) noexcept { _doserrno = error; }

unsigned long last_os_error() noexcept { return GetLastError(); }

void set_last_os_error(unsigned long error) noexcept { SetLastError(error); }

}  // namespace nqcore::platform
