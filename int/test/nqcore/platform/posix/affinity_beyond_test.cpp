// Threads that run where masks have no bit, on a machine of 64 processors that the calls below play.
#include "nqcore/affinity.h"
#include "nqcore/cpu.h"

#include "error_test_support.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <ace/OS_NS_Thread.h>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <thread>

namespace {

constexpr std::uint64_t s_all = ~std::uint64_t{0};
constexpr std::uint64_t s_beyond = s_all << 32;

std::uint64_t g_main = s_all;
thread_local std::uint64_t t_processors = s_all;

std::uint64_t& mine() { return gettid() == getpid() ? g_main : t_processors; }

int answer(std::uint64_t processors, std::size_t size, cpu_set_t* set) {
    std::memset(set, 0, size);
    std::memcpy(set, &processors, sizeof processors);
    return 0;
}

}  // namespace

extern "C" int sched_getaffinity(pid_t, std::size_t size, cpu_set_t* set) noexcept { return answer(g_main, size, set); }

extern "C" int pthread_getaffinity_np(pthread_t, std::size_t size, cpu_set_t* set) noexcept {
    return answer(mine(), size, set);
}

extern "C" int pthread_setaffinity_np(pthread_t, std::size_t, const cpu_set_t* set) noexcept {
    std::uint64_t processors = 0;
    std::memcpy(&processors, set, sizeof processors);
    if (processors == 0) {
        return EINVAL;
    }
    mine() = processors;
    return 0;
}

namespace nqcore {
namespace {

TEST(BeyondMasks, ThreadIsLeftThere) {
    constexpr struct {
        std::uint64_t process, before, after;
    } s_cases[] = {
        {s_all, std::uint64_t{1} << 40, s_beyond},    {s_all, s_all, s_all},          {s_beyond, s_beyond, s_beyond},
        {s_beyond, std::uint64_t{1} << 40, s_beyond}, {3, std::uint64_t{1} << 40, 3},
    };
    for (const auto& [process, before, after] : s_cases) {
        g_main = process;
        std::thread([before = before, after = after, process = process] {
            CpuAffinityMask first;
            first.set_cpu(0);
            t_processors = before;
            if ((process & 1) != 0) {
                const ScopedCpuAffinity guard(first);
                EXPECT_EQ(t_processors, 1u);
            }
            { const ScopedCpuAffinity guard(ScopedCpuAffinity::get_process_affinity()); }
            EXPECT_EQ(t_processors, after) << std::hex << process << ' ' << before;
            const hardware::Cpu cpu;
            EXPECT_EQ(cpu.logical_cpus(), std::popcount(static_cast<std::uint32_t>(process)));
            EXPECT_EQ(t_processors, after) << std::hex << process << ' ' << before;
        }).join();
    }
    g_main = s_all;
}

TEST(BeyondMasks, ThreadWithoutHandle) {
    CpuAffinityMask mask;
    EXPECT_THAT([&] { ScopedCpuAffinity::get_thread_affinity(ACE_Thread_ID(0, 0), mask); },
                ThrowsError(HasCause(HasParam("errno", "3"))));
}

}  // namespace
}  // namespace nqcore
