#include "../dump.h"
#include "../symbols.h"

#include "wide_text.h"

#include <windows.h>

#include <dbghelp.h>
#include <exception>

namespace nqcore::platform {
namespace {

using WriteDump = decltype(&MiniDumpWriteDump);

// Everything that a reader may ask for: who orders a dump does not know yet what the question will be.
constexpr auto s_content = static_cast<MINIDUMP_TYPE>(MiniDumpWithFullMemory | MiniDumpWithHandleData |
                                                      MiniDumpWithUnloadedModules | MiniDumpWithThreadInfo);

DumpResult write_new_file(const wchar_t* path) {
    const HMODULE library = LoadLibraryW(L"dbghelp.dll");
    const auto writeDump =
        library == nullptr
            ? nullptr
            : reinterpret_cast<WriteDump>(reinterpret_cast<void*>(GetProcAddress(library, "MiniDumpWriteDump")));
    if (writeDump == nullptr) {
        return DumpResult::Failed;
    }
    const HANDLE file =
        CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return GetLastError() == ERROR_FILE_EXISTS ? DumpResult::NameTaken : DumpResult::Failed;
    }
    const SymbolScope symbols;  // the library is not made for threads, in this call either
    const bool isWritten =
        writeDump(GetCurrentProcess(), GetCurrentProcessId(), file, s_content, nullptr, nullptr, nullptr) != 0;
    CloseHandle(file);
    if (!isWritten) {
        DeleteFileW(path);
    }
    return isWritten ? DumpResult::Written : DumpResult::Failed;
}

}  // namespace

std::string_view dump_extension() noexcept { return ".dmp"; }

std::string temporary_folder() {
    wchar_t folder[MAX_PATH + 2];
    const DWORD units = GetTempPathW(MAX_PATH + 2, folder);
    return units == 0 || units > MAX_PATH + 1 ? std::string(".") : utf8_text({folder, units});
}

std::string joined_path(std::string_view folder, std::string_view name) {
    std::string path(folder);
    if (!path.empty() && path.find_last_of("\\/:") != path.size() - 1) {
        path += '\\';
    }
    return path.append(name);
}

DumpResult write_dump(const std::string& path) noexcept {
    try {
        return write_new_file(wide_text(path).c_str());
    } catch (const std::exception&) {
        return DumpResult::Failed;
    }
}

}  // namespace nqcore::platform
