// The time-stamp clock against the system's; guards of affinity and priority against the bare system calls.
#include "nqcore/affinity.h"
#include "nqcore/cpu.h"
#include "nqcore/monotonic_time.h"
#include "nqcore/priority.h"

#include <benchmark/benchmark.h>
#include <sched.h>
#include <sys/resource.h>
#include <time.h>

#include <cstdint>

namespace {

using namespace nqcore;

// Keeps a value alive without touching it.
template <class Value>
void keep(const Value& value) {
    asm volatile("" : : "m"(value) : "memory");
}

void timestamp_nqcore(benchmark::State& state) {
    for (auto _ : state) {
        keep(hardware::Cpu::read_timestamp());
    }
}

void timestamp_rdtsc(benchmark::State& state) {
    for (auto _ : state) {
        keep(__builtin_ia32_rdtsc());
    }
}

void now_nqcore(benchmark::State& state) {
    const TimeProviderTsc stamps;
    for (auto _ : state) {
        keep(stamps.now());
    }
}

void now_clock_gettime(benchmark::State& state) {
    for (auto _ : state) {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        keep(now);
    }
}

// To one processor that the thread may use already and back, which moves nothing.
void affinity_nqcore(benchmark::State& state) {
    CpuAffinityMask first;
    first.set_cpu(*ScopedCpuAffinity::get_process_affinity().begin());
    const ScopedCpuAffinity pinned(first);
    for (auto _ : state) {
        const ScopedCpuAffinity guard(first);
        keep(guard);
    }
}

void affinity_kernel(benchmark::State& state) {
    CpuAffinityMask first;
    first.set_cpu(*ScopedCpuAffinity::get_process_affinity().begin());
    const ScopedCpuAffinity pinned(first);
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(*first.begin(), &set);
    for (auto _ : state) {
        cpu_set_t before;
        sched_getaffinity(0, sizeof before, &before);
        sched_setaffinity(0, sizeof set, &set);
        sched_setaffinity(0, sizeof before, &before);
        keep(before);
    }
}

void priority_nqcore(benchmark::State& state) {
    for (auto _ : state) {
        const ScopedThreadPriority guard(ScopedThreadPriority::threadPriorityBelowNormal);
        keep(guard);
    }
}

void priority_kernel(benchmark::State& state) {
    for (auto _ : state) {
        const int before = getpriority(PRIO_PROCESS, 0);
        setpriority(PRIO_PROCESS, 0, before + 2);
        setpriority(PRIO_PROCESS, 0, before);
        keep(before);
    }
}

void table_nqcore(benchmark::State& state) {
    for (auto _ : state) {
        const hardware::Cpu cpu;
        keep(cpu);
    }
}

BENCHMARK(timestamp_nqcore)->Name("cpu/timestamp/nqcore/read");
BENCHMARK(timestamp_rdtsc)->Name("cpu/timestamp/rdtsc/read");
BENCHMARK(now_nqcore)->Name("cpu/now/nqcore/clock");
BENCHMARK(now_clock_gettime)->Name("cpu/now/clock_gettime/clock");
BENCHMARK(affinity_nqcore)->Name("cpu/affinity_guard/nqcore/one");
BENCHMARK(affinity_kernel)->Name("cpu/affinity_guard/kernel/one");
BENCHMARK(priority_nqcore)->Name("cpu/priority_guard/nqcore/below_normal");
BENCHMARK(priority_kernel)->Name("cpu/priority_guard/kernel/below_normal");
BENCHMARK(table_nqcore)->Name("cpu/table/nqcore/machine");

}  // namespace
