#include "platform/thread_sched.h"

#include <windows.h>

namespace nqcore::platform {
namespace {

SystemError failed_unless(bool done) noexcept { return done ? 0 : GetLastError(); }

HANDLE native(ThreadHandle thread) noexcept { return reinterpret_cast<HANDLE>(thread); }

}  // namespace

std::intptr_t current_thread_number() noexcept { return reinterpret_cast<std::intptr_t>(GetCurrentThread()); }

std::intptr_t current_process_number() noexcept { return reinterpret_cast<std::intptr_t>(GetCurrentProcess()); }

SystemError thread_priority(long& priority) noexcept {
    const int value = GetThreadPriority(GetCurrentThread());
    priority = value;
    return failed_unless(value != THREAD_PRIORITY_ERROR_RETURN);
}

SystemError set_thread_priority(long priority) noexcept {
    return failed_unless(SetThreadPriority(GetCurrentThread(), priority) != FALSE);
}

SystemError thread_priority_trap(long) noexcept { return 0; }

SystemError priority_class(unsigned long& priorityClass) noexcept {
    priorityClass = GetPriorityClass(GetCurrentProcess());
    return failed_unless(priorityClass != 0);
}

SystemError set_priority_class(unsigned long priorityClass) noexcept {
    return failed_unless(SetPriorityClass(GetCurrentProcess(), priorityClass) != FALSE);
}

SystemError priority_class_trap(unsigned long) noexcept { return 0; }

SystemError process_affinity(std::uint32_t& mask) noexcept {
    DWORD_PTR process = 0;
    DWORD_PTR system = 0;
    const bool done = GetProcessAffinityMask(GetCurrentProcess(), &process, &system) != FALSE;
    mask = static_cast<std::uint32_t>(process);
    return failed_unless(done);
}

// The system delivers a thread's mask only in exchange for another.
SystemError thread_affinity(ThreadHandle thread, std::uint32_t processMask, std::uint32_t& mask) noexcept {
    std::uint32_t exchanged = processMask;
    if (const SystemError error = swap_thread_affinity(thread, exchanged); error != 0) {
        return error;
    }
    mask = exchanged;
    return swap_thread_affinity(thread, exchanged);
}

SystemError swap_thread_affinity(ThreadHandle thread, std::uint32_t& mask) noexcept {
    const DWORD_PTR previous = SetThreadAffinityMask(native(thread), mask);
    if (previous == 0) {
        return GetLastError();
    }
    mask = static_cast<std::uint32_t>(previous);
    return 0;
}

SystemError restore_thread_affinity(ThreadHandle thread, std::uint32_t mask) noexcept {
    std::uint32_t process = 0;
    if (process_affinity(process) == 0 && (mask & process) != 0) {
        mask &= process;
    }
    return swap_thread_affinity(thread, mask);
}

// MAXIMUM_PROCESSORS is no processor: it asks without setting.
SystemError ideal_processor(ThreadHandle thread, unsigned& number) noexcept {
    number = SetThreadIdealProcessor(native(thread), MAXIMUM_PROCESSORS);
    return failed_unless(number != static_cast<DWORD>(-1));
}

SystemError swap_ideal_processor(ThreadHandle thread, unsigned& number) noexcept {
    if (number >= MAXIMUM_PROCESSORS) {
        return ERROR_INVALID_PARAMETER;
    }
    const DWORD previous = SetThreadIdealProcessor(native(thread), number);
    if (previous == static_cast<DWORD>(-1)) {
        return GetLastError();
    }
    number = previous;
    return 0;
}

}  // namespace nqcore::platform
