// What the library asks of the system about memory that may not be there.
// Implemented once per folder (win32/memory_probe.cpp, posix/memory_probe.cpp); the build picks the folder.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nqcore::platform {

/// Copies memory of this process; never faults, whatever the address, and whatever other threads unmap meanwhile.
///
/// Returns  how many bytes from the beginning could be read.
/// Threads  any; takes no lock and no memory.
[[nodiscard]] std::size_t read_memory(void* to, std::uintptr_t from, std::size_t size) noexcept;

/// Whether the whole range can be read at the moment. An empty range can.
[[nodiscard]] bool is_readable(std::uintptr_t from, std::size_t size) noexcept;

/// Whether there is code at the address: memory that can be read and executed.
[[nodiscard]] bool is_code(std::uintptr_t address) noexcept;

}  // namespace nqcore::platform
