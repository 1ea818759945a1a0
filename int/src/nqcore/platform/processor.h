// What the library asks of the system about its processors.
// Implemented once per folder (win32/processor.cpp, posix/processor.cpp); the build picks the folder.
#pragma once

namespace nqcore::platform {

/// The frequency that the system gives for the first processor, in Hz; 0 when it gives none.
[[nodiscard]] double processor_frequency() noexcept;

}  // namespace nqcore::platform
