// What priorities, classes and affinity guards do, as the kernel shows it; and what is refused without privileges.
#include "nqcore/affinity.h"
#include "nqcore/priority.h"
#include "platform/posix/nice_values.h"

#include "error_test_support.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ace/OS_NS_Thread.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <latch>
#include <thread>

namespace nqcore {
namespace {

using Thread = ScopedThreadPriority;
using Process = ScopedPriorityClass;

int nice_of(pid_t thread = gettid()) { return getpriority(PRIO_PROCESS, static_cast<id_t>(thread)); }

void set_nice(int nice) { EXPECT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), nice), 0); }

// The first processors of a thread as the kernel has them.
unsigned long cpus_of(pid_t thread = 0) {
    cpu_set_t set;
    EXPECT_EQ(sched_getaffinity(thread, sizeof set, &set), 0);
    return set.__bits[0];
}

CpuAffinityMask only(unsigned cpu) {
    CpuAffinityMask mask;
    mask.set_cpu(cpu);
    return mask;
}

// Runs `work` in a child of nice value 0, with what it expects; the child's failures are printed there.
template <class Work>
void in_child(Work work) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        set_nice(0);  // fails where the test was started with another, and without privileges
        work();
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
}

// A thread that sets `priority`, and stays.
class Waiting {
public:
    explicit Waiting(long priority)
        : m_thread([this, priority] {
              Thread::set_current_thread_priority(priority);
              id = gettid();
              m_ready.count_down();
              m_end.wait();
          }) {
        m_ready.wait();
    }
    ~Waiting() {
        m_end.count_down();
        m_thread.join();
    }
    ACE_Thread_ID ace() { return ACE_Thread_ID(m_thread.native_handle(), m_thread.native_handle()); }

    pid_t id = 0;

private:
    std::latch m_ready{1};
    std::latch m_end{1};
    std::thread m_thread;
};

auto refused(const std::string& message) {
    return ThrowsError(AllOf(HasMessage(message), HasCause(HasParam("errno", "13"))));
}

TEST(Nice, EveryPriorityOfEveryClassHasItsValue) {
    for (const platform::NiceRow& base : platform::s_classes.rows) {
        for (const long priority : {-15L, -2L, -1L, 0L, 1L, 2L, 15L}) {
            int nice = 0;
            EXPECT_TRUE(platform::nice_of_priority(priority, base.nice, platform::s_distances, nice));
            EXPECT_EQ(platform::priority_of_nice(nice, base.nice, platform::s_distances), priority) << nice;
        }
    }
}

TEST(Nice, ClassMovesEveryThreadAndGuardsBringBackWhatTheyFound) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may favour a process; WithoutPrivileges tests the others";
    }
    const std::pair<int, unsigned long> cases[] = {
        {0, Process::priorityClassNormal}, {12, Process::priorityClassIdle}, {-16, Process::priorityClassRealtime}};
    for (const auto& [found, priorityClass] : cases) {
        in_child([&] {
            set_nice(found);
            EXPECT_EQ(Process::get_process_priority_class(), priorityClass) << found;
            EXPECT_EQ(Thread::get_current_thread_priority(), 0) << found;
            const Waiting normal(0), lowest(-2), idle(-15);
            using Nices = std::array<int, 4>;
            const auto nices = [&] {
                return Nices{nice_of(), nice_of(normal.id), nice_of(lowest.id), nice_of(idle.id)};
            };
            {
                const Thread above(Thread::threadPriorityAboveNormal);
                EXPECT_EQ(nices(), (Nices{found - 2, found, found + 4, 19}));
                const Process high(Process::priorityClassHigh);
                EXPECT_EQ(nices(), (Nices{-12, -10, -6, 19}));
                std::thread([] {
                    EXPECT_EQ(Thread::get_current_thread_priority(), 1);  // as the thread that started it
                    set_nice(-7);
                    { const Thread critical(Thread::threadPriorityTimeCritical); }
                    EXPECT_EQ(nice_of(), -7);
                }).join();
            }
            EXPECT_EQ(nices(), (Nices{found, found, found + 4, 19}));
            set_nice(7);  // somebody else changes the process's mind
            EXPECT_EQ(Process::get_process_priority_class(), Process::priorityClassBelowNormal);
        });
    }
}

// Without privileges nothing is changed that could not be changed back, unless that is asked for.
TEST(Nice, WithoutPrivileges) {
    in_child([] {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_NICE, &none);
        ASSERT_TRUE(geteuid() != 0 || setuid(65534) == 0);
        const std::string thread = "SetThreadPriority(" + std::to_string(gettid()) + ", ";
        const std::string process = "SetPriorityClass(" + std::to_string(getpid()) + ", ";
        EXPECT_THAT([] { const Thread guard(2); }, refused(thread + "2"));
        EXPECT_THAT([] { const Thread guard(-2); }, refused(thread + "0"));
        EXPECT_THAT([] { const Process guard(Process::priorityClassHigh); }, refused(process + "128)"));
        EXPECT_THAT([] { const Process guard(Process::priorityClassIdle); }, refused(process + "32)"));
        { const Thread same(0); }
        { const Process same(Process::priorityClassNormal); }
        EXPECT_EQ(nice_of(), 0);

        // What several values are called changes none of them.
        std::thread([] {
            for (const int nice : {3, 5, 10, 12}) {
                set_nice(nice);
                const long priority = Thread::get_current_thread_priority();
                { const Thread same(priority); }
                Thread::set_current_thread_priority(priority);
                EXPECT_EQ(nice_of(), nice);
            }
        }).join();
        for (const int nice : {3, 5}) {
            set_nice(nice);
            const unsigned long priorityClass = Process::get_process_priority_class();
            { const Process same(priorityClass); }
            Process::set_process_priority_class(priorityClass);
            EXPECT_EQ(nice_of(), nice);
        }

        Process::set_process_priority_class(Process::priorityClassIdle);
        const Waiting lowest(-2);
        EXPECT_THAT([] { Process::set_process_priority_class(Process::priorityClassNormal); },
                    refused(process + "32)"));
        EXPECT_EQ((std::array{nice_of(), nice_of(lowest.id)}), (std::array{14, 18}));
        EXPECT_EQ(Process::get_process_priority_class(), Process::priorityClassIdle);
    });
}

TEST(Nice, LimitStandsForThePrivilege) {
    const rlimit downToMinus5 = {25, 25};
    if (setrlimit(RLIMIT_NICE, &downToMinus5) != 0) {
        GTEST_SKIP() << "raising RLIMIT_NICE takes CAP_SYS_RESOURCE, which this process has not";
    }
    in_child([] {
        ASSERT_TRUE(geteuid() != 0 || setuid(65534) == 0);
        { const Thread highest(2); }
        { const Process below(Process::priorityClassBelowNormal); }
        EXPECT_EQ(nice_of(), 0);
    });
}

// A kernel that refuses to change one of the threads: then none is changed.
TEST(Nice, AllThreadsOrNone) {
    in_child([] {
        const Waiting first(-1), stays(-2), last(-2);
        sock_filter rules[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_setpriority, 0, 3),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[1])),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(stays.id), 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        const sock_fprog filter = {sizeof rules / sizeof rules[0], rules};
        ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
        ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
        EXPECT_THAT([] { Process::set_process_priority_class(Process::priorityClassAboveNormal); },
                    refused("SetPriorityClass(" + std::to_string(getpid()) + ", 32768)"));
        EXPECT_EQ((std::array{nice_of(), nice_of(first.id), nice_of(stays.id), nice_of(last.id)}),
                  (std::array{0, 2, 4, 4}));
        EXPECT_EQ(Process::get_process_priority_class(), Process::priorityClassNormal);
    });
}

TEST(Affinity, AnotherThreadRunsWhereItIsBound) {
    Waiting other(0);
    const unsigned long all = cpus_of();
    const CpuAffinityMask last = only(std::ranges::max(ScopedCpuAffinity::get_process_affinity()));
    {
        const ScopedCpuAffinity guard(last, other.ace());
        CpuAffinityMask mask;
        ScopedCpuAffinity::get_thread_affinity(other.ace(), mask);
        EXPECT_EQ(mask, last);
        EXPECT_EQ(cpus_of(other.id), std::bit_floor(all));
        EXPECT_EQ(cpus_of(), all);
    }
    EXPECT_EQ(cpus_of(other.id), all);
}

// The main thread's processors are the process's, as others set them. A mask is taken whole or not at all: the kernel
// would leave out what is not there, and tell nobody.
TEST(Affinity, ProcessFollowsTheMainThread) {
    in_child([] {
        CpuAffinityMask all = ScopedCpuAffinity::get_process_affinity();
        const unsigned cpu = *all.begin();
        const ScopedCpuAffinity guard(only(cpu));
        EXPECT_EQ(sched_getcpu(), static_cast<int>(cpu));
        std::thread([&] {
            const ScopedCpuAffinity wide(all);
            EXPECT_EQ(ScopedCpuAffinity::get_process_affinity(), all);
        }).join();
        EXPECT_EQ(ScopedCpuAffinity::get_process_affinity(), all);
        if (!all.is_set(31)) {
            CpuAffinityMask more = all;
            more.set_cpu(31);
            EXPECT_FALSE(ScopedCpuAffinity::can_set_affinity(more));
            EXPECT_THAT([&] { ScopedCpuAffinity::set_thread_affinity(more); },
                        ThrowsError(HasCause(HasParam("errno", "22"))));
            EXPECT_EQ(cpus_of(), 1ul << cpu);
        }
        const unsigned last = std::ranges::max(all);
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(last, &set);
        EXPECT_EQ(sched_setaffinity(0, sizeof set, &set), 0);
        if (last != cpu) {
            EXPECT_EQ(ScopedCpuAffinity::get_process_affinity(), only(last));
        }
    });
}

// Whatever the other threads are doing at that moment.
TEST(Affinity, ForkedChildIsNotStoppedByALock) {
    std::atomic<bool> ended{false};
    std::thread busy([&] {
        while (!ended) {
            ScopedCpuAffinity::set_thread_affinity(ScopedCpuAffinity::get_process_affinity());
        }
    });
    for (int i = 0; i < 50; ++i) {
        in_child([] { Thread::set_current_thread_priority(Thread::threadPriorityLowest); });
    }
    ended = true;
    busy.join();
}

}  // namespace
}  // namespace nqcore
