// What the library asks of the system about when and where threads run.
// Implemented once per folder (win32/thread_sched.cpp, posix/thread_sched.cpp); the build picks the folder.
//
// Priorities and classes are the Windows numbers on both systems; on posix they are nice values (posix/nice_values.h).
// A set of processors is a word with a bit for each of the first 32.
#pragma once

#include <cstdint>

namespace nqcore::platform {

/// A failure of the system, 0 for none: the last error (win32), a number of `errno` (posix).
using SystemError = unsigned long;

/// A thread as the system's calls know it: the handle in ACE's identity of the thread.
using ThreadHandle = std::uintptr_t;

/// What the calls about the calling thread and about this process take, for error texts: on win32 the constants -2 and
/// -1, on posix the numbers that every tool shows.
[[nodiscard]] std::intptr_t current_thread_number() noexcept;
[[nodiscard]] std::intptr_t current_process_number() noexcept;

/// Of the calling thread.
[[nodiscard]] SystemError thread_priority(long& priority) noexcept;
[[nodiscard]] SystemError set_thread_priority(long priority) noexcept;
/// The failure that setting today's priority again would meet once `next` has been set.
[[nodiscard]] SystemError thread_priority_trap(long next) noexcept;

[[nodiscard]] SystemError priority_class(unsigned long& priorityClass) noexcept;
/// On posix all or none of the threads follow.
[[nodiscard]] SystemError set_priority_class(unsigned long priorityClass) noexcept;
/// The failure that setting today's class again would meet once `next` has been set.
[[nodiscard]] SystemError priority_class_trap(unsigned long next) noexcept;

/// The processors that this process may use.
[[nodiscard]] SystemError process_affinity(std::uint32_t& mask) noexcept;
/// The processors that a thread may use.
///
/// In  `processMask`: the process's. Where the system cannot be asked, the thread has it for a moment.
[[nodiscard]] SystemError thread_affinity(ThreadHandle thread, std::uint32_t processMask, std::uint32_t& mask) noexcept;
/// Sets a thread's processors, all or none, and delivers those that it had.
[[nodiscard]] SystemError swap_thread_affinity(ThreadHandle thread, std::uint32_t& mask) noexcept;
/// Sets a thread's processors to those of `mask` that the process still has.
[[nodiscard]] SystemError restore_thread_affinity(ThreadHandle thread, std::uint32_t mask) noexcept;

/// The processor that the system prefers for a thread.
[[nodiscard]] SystemError ideal_processor(ThreadHandle thread, unsigned& number) noexcept;
/// Sets it and delivers the one before.
[[nodiscard]] SystemError swap_ideal_processor(ThreadHandle thread, unsigned& number) noexcept;

}  // namespace nqcore::platform
