// Dumps of this process in files whose names tell program, time and process.
#pragma once

#include <string>

namespace nqcore::impl {

/// Whether the operator has said where dumps go: KAVO_TRACE_ROOT is set and not empty.
[[nodiscard]] bool is_dump_folder_configured() noexcept;

/// Writes a dump of the whole process to FOLDER/PROGRAM_TIME_PROCESS.EXTENSION, such as
/// "server_20261121T191058.123Z_4711.core". The folder is KAVO_TRACE_ROOT, else that of temporary files.
///
/// Returns  the file's path; empty when there is none.
/// Threads  any. Other threads stand still while their memory is read.
[[nodiscard]] std::string write_dump_file() noexcept;

/// The name without folder and extension.
[[nodiscard]] std::string dump_name(const std::string& programPath, const std::string& utcTime, unsigned long process);

}  // namespace nqcore::impl
