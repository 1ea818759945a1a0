// What the library asks of the system about memory that each thread has for itself: one pointer.
// Implemented once per folder (win32/thread_slot.cpp, posix/thread_slot.cpp); the build picks the folder.
#pragma once

namespace nqcore::platform {

/// The pointer that this thread has set; null until then.
[[nodiscard]] void* thread_slot() noexcept;

/// Failing for want of memory leaves the pointer as it was. It cannot fail on a thread where it has succeeded before.
void set_thread_slot(void* pointer) noexcept;

}  // namespace nqcore::platform
