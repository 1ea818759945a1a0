#include "platform/process.h"
#include "platform/win32/wide_text.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>
#include <cstdlib>
#include <string_view>

// After <windows.h>, whose types it uses.
#include <shellapi.h>

namespace nq::platform {

namespace {

// The console outlives the program, and gets its code page back.
UINT s_outputCodePage = 0;

// `main` is given the arguments in the system's code page, which cannot hold every file name.
std::vector<std::string> wide_command_line() {
    std::vector<std::string> arguments;
    int count = 0;
    LPWSTR* const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int index = 1; wide != nullptr && index < count; ++index) {
        arguments.push_back(utf8_text(wide[index]));
    }
    LocalFree(wide);
    return arguments;
}

}  // namespace

std::vector<std::string> start(int, char**) {
    for (int file = 0; file < 3; ++file) {
        ::_setmode(file, _O_BINARY);
    }
    s_outputCodePage = GetConsoleOutputCP();
    SetConsoleOutputCP(CP_UTF8);
    std::atexit([] { SetConsoleOutputCP(s_outputCodePage); });
    return wide_command_line();
}

bool is_terminal(int file) noexcept {
    constexpr DWORD takesCodes = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
    const HANDLE handle = reinterpret_cast<HANDLE>(::_get_osfhandle(file));
    DWORD mode = 0;
    const char* const kind = std::getenv("TERM");
    if (kind != nullptr && std::string_view(kind) == "dumb") {
        return false;
    }
    return GetConsoleMode(handle, &mode) != 0 && SetConsoleMode(handle, mode | takesCodes) != 0;
}

}  // namespace nq::platform
