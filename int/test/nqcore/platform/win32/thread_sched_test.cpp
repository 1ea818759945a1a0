// What the guards of priorities and affinity do, as Windows shows it.
#include "nqcore/affinity.h"
#include "nqcore/priority.h"

#include "error_test_support.h"

#include <ace/OS_NS_Thread.h>

#include <windows.h>

namespace nqcore {
namespace {

TEST(ThreadSched, PrioritiesReachTheSystem) {
    for (const long priority : {-15, -2, -1, 1, 2, 15}) {
        const ScopedThreadPriority guard(priority);
        EXPECT_EQ(GetThreadPriority(GetCurrentThread()), priority);
    }
    EXPECT_EQ(GetThreadPriority(GetCurrentThread()), THREAD_PRIORITY_NORMAL);
    {
        const ScopedPriorityClass guard(IDLE_PRIORITY_CLASS);
        EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), static_cast<DWORD>(IDLE_PRIORITY_CLASS));
    }
    EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), static_cast<DWORD>(NORMAL_PRIORITY_CLASS));
    EXPECT_THAT([] { ScopedThreadPriority::set_current_thread_priority(99); },
                ThrowsError(HasMessage("SetThreadPriority(-2, 99")));
    EXPECT_THAT([] { ScopedPriorityClass::set_process_priority_class(99); },
                ThrowsError(HasMessage("SetPriorityClass(-1, 99)")));
}

DWORD WINAPI wait_for(void* event) { return WaitForSingleObject(event, 20'000); }

// Of another thread, whose identity has a real handle.
TEST(ThreadSched, AffinityReachesTheSystem) {
    DWORD_PTR process = 0;
    DWORD_PTR system = 0;
    ASSERT_TRUE(GetProcessAffinityMask(GetCurrentProcess(), &process, &system));
    const HANDLE ended = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    DWORD id = 0;
    const HANDLE other = CreateThread(nullptr, 0, wait_for, ended, 0, &id);
    const auto bound = [=] {  // by exchange
        const DWORD_PTR mask = SetThreadAffinityMask(other, process);
        SetThreadAffinityMask(other, mask);
        return mask;
    };
    for (const unsigned cpu : ScopedCpuAffinity::get_process_affinity()) {
        CpuAffinityMask mask;
        mask.set_cpu(cpu);
        const ScopedCpuAffinity guard(mask, ACE_Thread_ID(id, other));
        EXPECT_EQ(bound(), DWORD_PTR{1} << cpu);
        CpuAffinityMask read;
        ScopedCpuAffinity::get_thread_affinity(ACE_Thread_ID(id, other), read);
        EXPECT_EQ(read, mask);
    }
    EXPECT_EQ(bound(), process);
    SetEvent(ended);
    WaitForSingleObject(other, 20'000);
    CloseHandle(other);
    CloseHandle(ended);
}

}  // namespace
}  // namespace nqcore
