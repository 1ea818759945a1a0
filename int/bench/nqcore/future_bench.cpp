// Futures against std::promise and ACE_Future.
#include "nqcore/abs_rel_time.h"
#include "nqcore/future.h"
#include "nqcore/result_control.h"

#include <ace/Future.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace {

using nqcore::AbsoluteTime;
using nqcore::Future;
using nqcore::RelativeTime;

void once_nqcore(benchmark::State& state) {
    for (auto _ : state) {
        Future<int> future;
        future.set_value(1);
        int value = future.get();
        benchmark::DoNotOptimize(&value);
    }
}

void once_std(benchmark::State& state) {
    for (auto _ : state) {
        std::promise<int> promise;
        std::future<int> future = promise.get_future();
        promise.set_value(1);
        int value = future.get();
        benchmark::DoNotOptimize(&value);
    }
}

void once_ace(benchmark::State& state) {
    for (auto _ : state) {
        ACE_Future<int> future;
        future.set(1);
        int value = 0;
        future.get(value);
        benchmark::DoNotOptimize(&value);
    }
}

void past_nqcore(benchmark::State& state) {
    const Future<int> future;
    for (auto _ : state) {
        bool ready = future.wait(AbsoluteTime::zero);
        benchmark::DoNotOptimize(&ready);
    }
}

void past_std(benchmark::State& state) {
    std::promise<int> promise;
    const std::future<int> future = promise.get_future();
    for (auto _ : state) {
        auto status = future.wait_until(std::chrono::system_clock::time_point());
        benchmark::DoNotOptimize(&status);
    }
}

// An operation that keeps its handler and answers after it has returned.
nqcore::Result<int> begin(nqcore::ResultControl<int>&& control, nqcore::RefCountPtr<nqcore::AsyncResult<int>>& kept) {
    kept = control.create_async_handler();
    return kept->get_result();
}

void operation_nqcore(benchmark::State& state) {
    nqcore::RefCountPtr<nqcore::AsyncResult<int>> handler;
    for (auto _ : state) {
        const nqcore::Result<int> result = begin(nqcore::result_direct_if_synchronous<int>(), handler);
        handler->on_async_result_success(1);
        handler.clear();
        int value = result.get();
        benchmark::DoNotOptimize(&value);
    }
}

std::future<int> begin_std(std::shared_ptr<std::promise<int>>& kept) {
    kept = std::make_shared<std::promise<int>>();
    return kept->get_future();
}

void operation_std(benchmark::State& state) {
    std::shared_ptr<std::promise<int>> promise;
    for (auto _ : state) {
        std::future<int> result = begin_std(promise);
        promise->set_value(1);
        promise.reset();
        int value = result.get();
        benchmark::DoNotOptimize(&value);
    }
}

// One thread signals what the other waits for, in turns.
struct NqcoreCell {
    Future<int> future;
    void set() { future.set_value(1); }
    void wait() { future.wait(); }
};
struct StdCell {
    std::promise<int> promise;
    std::future<int> future = promise.get_future();
    void set() { promise.set_value(1); }
    void wait() { future.wait(); }
};

template <class Cell>
void hand_off(benchmark::State& state) {
    constexpr int s_turns = 200;
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<Cell> there(s_turns);
        std::vector<Cell> back(s_turns);
        state.ResumeTiming();
        std::thread other([&] {
            for (int i = 0; i < s_turns; ++i) {
                there[static_cast<std::size_t>(i)].wait();
                back[static_cast<std::size_t>(i)].set();
            }
        });
        for (int i = 0; i < s_turns; ++i) {
            there[static_cast<std::size_t>(i)].set();
            back[static_cast<std::size_t>(i)].wait();
        }
        other.join();
    }
}

BENCHMARK(once_nqcore)->Name("future/make_set_get/nqcore/int");
BENCHMARK(once_std)->Name("future/make_set_get/std/int");
BENCHMARK(once_ace)->Name("future/make_set_get/ACE/int");
BENCHMARK(operation_nqcore)->Name("future/operation/nqcore/int");
BENCHMARK(operation_std)->Name("future/operation/std/int");
BENCHMARK(past_nqcore)->Name("future/past_deadline/nqcore/pending");
BENCHMARK(past_std)->Name("future/past_deadline/std/pending");
BENCHMARK(hand_off<NqcoreCell>)->Name("future/hand_off/nqcore/400")->UseRealTime();
BENCHMARK(hand_off<StdCell>)->Name("future/hand_off/std/400")->UseRealTime();

}  // namespace
