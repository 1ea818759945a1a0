// What awaiting allocates, and memory that runs out at every point of it: nothing leaks, and every coroutine ends with an
// outcome or is not begun.
#include "allocation_test_support.h"
#include "nqcore/future_await.h"
#include "nqcore/result_control.h"

#include <memory>
#include <utility>

namespace nqcore {
namespace {

using allocations::s_made;
using allocations::s_never;
using allocations::s_untilFailure;

Future<int> add_one(Future<int> future) { co_return co_await std::move(future) + 1; }
Result<int> add_two(Result<int> result) { co_return co_await result + 2; }

TEST(FutureAwaitMemory, TheAwaiterNeedsNone) {
    Future<int> first;
    Future<int> second;
    const auto body = [&]() -> Future<int> {
        co_await first;  // and from here on the watch is registered
        co_return co_await second;
    };
    const Future<int> outcome = body();
    struct : IFutureObserver<int> {
        void on_future_error(const ErrorInfo::Ptr&) override {}
        void on_future_value(const int&) override {}
    } observer;
    second.add_observer(&observer);  // leaves room in the future's list
    second.remove_observer(&observer);
    const int before = s_made;
    first.set_value(1);
    second.set_value(2);
    EXPECT_EQ(s_made, before);
    EXPECT_EQ(outcome.get(), 2);
}

TEST(FutureAwaitMemory, AnErrorIsInReserve) {
    Future<int> go;
    const auto body = [&]() -> Future<int> {
        co_await go;
        allocations::s_failures = s_never;
        s_untilFailure = 0;  // also for the record of what is thrown
        throw std::bad_alloc();
    };
    const Future<int> outcome = body();
    go.set_value(1);
    s_untilFailure = s_never;
    ASSERT_TRUE(outcome.has_error());
    EXPECT_TRUE(outcome.error_info()->matches("error.exception.bad_alloc"));
}

TEST(FutureAwaitMemory, RunningOutEndsInAnError) {
    const auto operation = [](bool later, bool cancels) {
        Future<int> go;
        const auto signal = [&go](void*) {
            const int left = std::exchange(s_untilFailure, s_never);
            go.set_value(1);
            s_untilFailure = left;
        };
        later ? void() : signal(nullptr);
        const std::unique_ptr<Future<int>, decltype(signal)> inTheEnd(&go, signal);  // a coroutine may wait for it
        Result<int> result =
            forward_future(add_one(add_two(future_result(add_one(go))).future()), result_direct_if_synchronous<int>());
        if (cancels) {
            result.cancel(true, {});
        }
        signal(nullptr);
        if (!result.has_error()) {
            EXPECT_EQ(result.get(), 5);
        } else if (!impl::result_was_cancelled(result.error_info())) {
            EXPECT_TRUE(result.error_info()->matches("error.exception.bad_alloc"));
            throw std::bad_alloc();
        }
    };
    for (const bool later : {false, true}) {
        for (const bool cancels : {false, true}) {
            allocations::fail_everywhere(cancels ? "cancelled" : "an operation", 8, [&](allocations::Attempt& attempt) {
                attempt([&] { operation(later, cancels); });
            });
        }
    }
}

}  // namespace
}  // namespace nqcore
