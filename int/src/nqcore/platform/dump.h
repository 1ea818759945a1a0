// What the library asks of the system about a dump of the whole process, for a debugger to read later.
// Implemented once per folder (win32/dump.cpp, posix/dump*.cpp); the build picks the folder.
#pragma once

#include <string>
#include <string_view>

namespace nqcore::platform {

/// How the names of dumps end: ".dmp" (win32), ".core" (posix).
[[nodiscard]] std::string_view dump_extension() noexcept;

/// Where temporary files go.
///
/// Errors   `std::bad_alloc`.
[[nodiscard]] std::string temporary_folder();

/// Puts a file name behind a folder, with a separator where one is missing.
///
/// Errors   `std::bad_alloc`.
[[nodiscard]] std::string joined_path(std::string_view folder, std::string_view name);

enum class DumpResult { Written, NameTaken, Failed };

/// Writes memory and threads of this process into a new file: a minidump with full memory (win32), an ELF core file
/// (posix).
///
/// In       `path`: UTF-8. A file that exists is left alone.
/// Returns  `Failed` leaves no file behind.
/// Threads  any. Other threads stand still while their memory is read.
[[nodiscard]] DumpResult write_dump(const std::string& path) noexcept;

}  // namespace nqcore::platform
