// Stack traces: capturing 20 frames against glibc's backtrace, writing them with names against absl::Symbolize.
#include "nqcore/error_exception.h"
#include "nqcore/stack_trace.h"

#include <absl/debugging/symbolize.h>
#include <benchmark/benchmark.h>
#include <execinfo.h>

#include <sstream>
#include <vector>

namespace {

using nqcore::StackTrace;

constexpr unsigned s_frames = 20;

// A stack of functions with names of their own.
template <unsigned depth>
[[gnu::noinline]] void at_depth(void (*work)(benchmark::State&), benchmark::State& state) {
    if constexpr (depth == 0) {
        work(state);
    } else {
        at_depth<depth - 1>(work, state);
    }
    asm volatile("" : : : "memory");  // a call, not a jump
}

constexpr unsigned s_framesBelow = 13;  // the program's, the benchmark's, `run` and `work`

void run(benchmark::State& state, void (*work)(benchmark::State&)) {
    at_depth<s_frames - s_framesBelow>(work, state);
    asm volatile("" : : : "memory");
}

// Both must see the same stack before they are timed.
bool is_same(const StackTrace& trace, void* const* addresses, int count) {
    if (trace.size() != static_cast<unsigned>(count) || count != static_cast<int>(s_frames)) {
        return false;
    }
    for (int i = 1; i < count; ++i) {
        if (reinterpret_cast<std::uintptr_t>(addresses[i]) != trace.begin()[i].instructionPointer) {
            return false;
        }
    }
    return true;
}

void capture_nqcore(benchmark::State& state) {
    for (auto _ : state) {
        const StackTrace trace = StackTrace::capture();
        benchmark::DoNotOptimize(&trace);
    }
}
BENCHMARK_CAPTURE(run, capture_nqcore, capture_nqcore)->Name("diagnostics/capture/nqcore/20");

void capture_glibc(benchmark::State& state) {
    void* addresses[64];
    if (!is_same(StackTrace::capture(), addresses, backtrace(addresses, 64))) {
        return state.SkipWithError("the two do not see the same frames");
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(backtrace(addresses, 64));
    }
}
BENCHMARK_CAPTURE(run, capture_glibc, capture_glibc)->Name("diagnostics/capture/glibc/20");

void throw_with_trace(benchmark::State& state) {
    const nqcore::ErrorInfo::Ptr error = nqcore::ErrorInfo::create(nqcore::error::nqcore_result, "bench", {});
    nqcore::keep_error_traces(state.range(0) != 0);
    for (auto _ : state) {
        const nqcore::ErrorException exception(error);
        benchmark::DoNotOptimize(exception.stack_trace());
    }
    nqcore::keep_error_traces(false);
}
BENCHMARK(throw_with_trace)->Name("diagnostics/make-exception/nqcore/trace")->Arg(0)->Arg(1);

// A log has its stream; what is timed is the text.
void write_nqcore(benchmark::State& state) {
    const StackTrace trace = StackTrace::capture();
    std::ostringstream log;
    for (auto _ : state) {
        log.seekp(0);
        trace.write_trace(log);
    }
    benchmark::DoNotOptimize(&log);
}
BENCHMARK_CAPTURE(run, write_nqcore, write_nqcore)->Name("diagnostics/write/nqcore/20");

// It searches anew for every address that it has no name for, so it is given only ones that it has.
std::vector<void*> addresses_for_absl() {
    absl::InitializeSymbolizer(nullptr);
    std::vector<void*> addresses;
    const StackTrace trace = StackTrace::capture();
    for (const StackTrace::Frame& frame : trace) {
        char name[256];
        auto* const address = reinterpret_cast<void*>(frame.instructionPointer - frame.isReturnAddress);
        if (absl::Symbolize(address, name, sizeof name)) {
            addresses.push_back(address);
        }
    }
    const std::size_t named = addresses.size();
    for (std::size_t i = 0; addresses.size() < trace.size(); ++i) {
        addresses.push_back(addresses[i % named]);
    }
    return addresses;
}

void write_absl(benchmark::State& state) {
    const std::vector<void*> addresses = addresses_for_absl();
    std::ostringstream log;
    for (auto _ : state) {
        log.seekp(0);
        for (void* const address : addresses) {
            char name[256];
            log << '[' << address << ']' << (absl::Symbolize(address, name, sizeof name) ? name : "?") << '\n';
        }
    }
    benchmark::DoNotOptimize(&log);
}
BENCHMARK_CAPTURE(run, write_absl, write_absl)->Name("diagnostics/write/absl/20");

}  // namespace
