// Reading the clock, against std::chrono::system_clock and absl::Now; arithmetic of deadlines.
#include "nqcore/abs_rel_time.h"

#include <absl/time/clock.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>

namespace {

using namespace nqcore;

// Keeps a value alive without touching it.
template <class Value>
void keep(const Value& value) {
    asm volatile("" : : "m"(value) : "memory");
}

void now_nqcore(benchmark::State& state) {
    for (auto _ : state) {
        keep(AbsoluteTime::now());
    }
}

void now_std(benchmark::State& state) {
    for (auto _ : state) {
        keep(std::chrono::system_clock::now());
    }
}

void now_absl(benchmark::State& state) {
    for (auto _ : state) {
        keep(absl::Now());
    }
}

void remaining_nqcore(benchmark::State& state) {
    const AbsoluteTime deadline(RelativeTime::seconds(3600));
    for (auto _ : state) {
        keep(deadline.remaining());
    }
}

void remaining_std(benchmark::State& state) {
    const auto deadline = std::chrono::system_clock::now() + std::chrono::hours(1);
    for (auto _ : state) {
        const auto left = deadline - std::chrono::system_clock::now();
        keep(left.count() < 0 ? left.zero() : left);
    }
}

BENCHMARK(now_nqcore)->Name("abs_rel_time/now/nqcore/clock");
BENCHMARK(now_std)->Name("abs_rel_time/now/std/clock");
BENCHMARK(now_absl)->Name("abs_rel_time/now/absl/clock");
BENCHMARK(remaining_nqcore)->Name("abs_rel_time/remaining/nqcore/deadline");
BENCHMARK(remaining_std)->Name("abs_rel_time/remaining/std/deadline");

}  // namespace
