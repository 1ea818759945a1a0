#include "platform/file.h"
#include "platform/win32/wide_text.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>

namespace nq::platform {

namespace {

// The runtime's own calls are used because they report the error numbers that the rest of the tool speaks.

int open_file(const std::string& path, int flags, int& file) noexcept {
    file = -1;
    try {
        const std::wstring wide = wide_path(path);
        if (wide.empty()) {
            return path.empty() ? ENOENT : EILSEQ;
        }
        file = ::_wopen(wide.c_str(), flags | _O_BINARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
        if (file >= 0) {
            return 0;
        }
        const int error = errno;
        const DWORD attributes = GetFileAttributesW(wide.c_str());
        const bool isFolder = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        return isFolder ? EISDIR : error;
    } catch (...) {
        return ENOMEM;
    }
}

FileIdentity identity_from(HANDLE handle) noexcept {
    BY_HANDLE_FILE_INFORMATION information = {};
    if (handle == INVALID_HANDLE_VALUE || GetFileType(handle) != FILE_TYPE_DISK ||
        GetFileInformationByHandle(handle, &information) == 0) {
        return {};
    }
    const std::uint64_t high = information.nFileIndexHigh;
    return {(information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0, information.dwVolumeSerialNumber,
            high << 32 | information.nFileIndexLow,
            std::uint64_t{information.nFileSizeHigh} << 32 | information.nFileSizeLow};
}

// The system has three numbers for a pipe that nobody reads from, and not every runtime knows them all.
int error_of_write() noexcept {
    const int error = errno;
    const unsigned long systemError = _doserrno;
    const bool isClosedPipe =
        systemError == ERROR_BROKEN_PIPE || systemError == ERROR_NO_DATA || systemError == ERROR_PIPE_NOT_CONNECTED;
    return isClosedPipe ? EPIPE : error;
}

// The runtime's calls take 32-bit counts, and writes of many megabytes to a console or pipe may be refused.
constexpr std::size_t s_mostAtOnce = 1u << 20;

}  // namespace

int open_for_reading(const std::string& path, int& file) noexcept {
    return open_file(path, _O_RDONLY | _O_SEQUENTIAL, file);
}

int open_for_writing(const std::string& path, int& file) noexcept {
    return open_file(path, _O_WRONLY | _O_CREAT | _O_TRUNC, file);
}

int close_file(int file) noexcept { return ::_close(file) == 0 ? 0 : errno; }

int read_file(int file, char* buffer, std::size_t capacity, std::size_t& count) noexcept {
    const int done = ::_read(file, buffer, static_cast<unsigned>(std::min(capacity, s_mostAtOnce)));
    count = done < 0 ? 0 : static_cast<std::size_t>(done);
    return done < 0 ? errno : 0;
}

bool is_readable_within(int file, int milliseconds) noexcept {
    const HANDLE handle = reinterpret_cast<HANDLE>(::_get_osfhandle(file));
    const DWORD kind = GetFileType(handle);
    if (kind != FILE_TYPE_PIPE) {
        return kind == FILE_TYPE_DISK;
    }
    // A pipe cannot be waited for. Sleeping takes many times longer than was asked for.
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    for (;;) {
        DWORD available = 0;
        if (PeekNamedPipe(handle, nullptr, 0, nullptr, &available, nullptr) == 0) {
            return GetLastError() == ERROR_BROKEN_PIPE;
        }
        if (available > 0) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        SwitchToThread();
    }
}

int write_file(int file, const char* bytes, std::size_t count) noexcept {
    while (count > 0) {
        const int done = ::_write(file, bytes, static_cast<unsigned>(std::min(count, s_mostAtOnce)));
        if (done <= 0) {
            return done < 0 ? error_of_write() : ENOSPC;
        }
        bytes += done;
        count -= static_cast<std::size_t>(done);
    }
    return 0;
}

FileIdentity identity_of(const std::string& path) noexcept {
    try {
        const HANDLE handle =
            CreateFileW(wide_path(path).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        const FileIdentity identity = identity_from(handle);
        if (handle != INVALID_HANDLE_VALUE) {
            CloseHandle(handle);
        }
        return identity;
    } catch (...) {
        return {};
    }
}

FileIdentity identity_of(int file) noexcept { return identity_from(reinterpret_cast<HANDLE>(::_get_osfhandle(file))); }

}  // namespace nq::platform
