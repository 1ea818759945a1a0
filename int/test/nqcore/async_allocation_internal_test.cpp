// Memory that runs out at every point of every operation of the asynchronous family: nothing leaks, what was being
// changed is as it was and works, and whoever waits for an outcome gets one.
#include "nqcore/barrier.h"
#include "nqcore/result_auto_signal.h"
#include "nqcore/result_control.h"
#include "nqcore/result_inner.h"
#include "nqcore/static_instance.h"
#include "nqcore/task.h"

#include "allocation_test_support.h"
#include "error_test_support.h"
#include "static_instance_cleanup.h"

#include <optional>
#include <string>

namespace nqcore {
namespace {

using allocations::Attempt;
using allocations::fail_everywhere;
using Handler = RefCountPtr<AsyncResult<int>>;

constexpr const char* s_long = "a value that lies on the heap, not in the string";

Handler handler_of(const Future<int>& future) { return ResultControlFutureRef<int>(future).create_async_handler(); }

// Does it once more when memory was short: nothing has happened by then.
template <class Work>
void insist(Attempt& attempt, const Future<int>& pending, Work work) {
    if (!attempt(work)) {
        EXPECT_FALSE(pending.is_ready());
        work();
    }
}

// An owner that takes its observer back when it goes: it must not go while the future's mutex is held.
struct Observer : IFutureObserver<int>, RefCounted<AtomicRefCount> {
    explicit Observer(const Future<int>& observed) : future(observed) {}
    ~Observer() override { future.remove_observer(this); }
    void on_future_error(const ErrorInfo::Ptr&) override {}
    void on_future_value(const int&) override {}
    Future<int> future;
};

TEST(AsyncMemory, Futures) {
    fail_everywhere("make", 1, [](Attempt& attempt) { attempt([] { Future<int>(); }); });
    fail_everywhere("value", 0, [](Attempt& attempt) {
        const std::string value(s_long);
        Future<std::string> future;
        const bool done = attempt([&] { future.set_value(value); });
        EXPECT_EQ(future.is_ready(), done);
        EXPECT_NE(future.set_value(value), done);
        EXPECT_EQ(future.get(), value);
    });
    fail_everywhere("wait, error", 0, [](Attempt& attempt) {
        const ErrorInfo::Ptr error = record();
        const Future<int> future;
        EXPECT_TRUE(attempt([&] { EXPECT_FALSE(future.wait(RelativeTime::microseconds(100))); }));
        EXPECT_FALSE(attempt.reached()) << "a wait needs none";
        EXPECT_TRUE(attempt([&] { Future<int>(future).set(error); }));
        EXPECT_TRUE(attempt([&] { EXPECT_THROW(future.get(), ErrorException); }));
    });
    fail_everywhere("cancel", 1, [](Attempt& attempt) {
        Future<int> future;
        insist(attempt, future, [&] { EXPECT_TRUE(future.cancel()); });
        EXPECT_TRUE(future.is_ready());
    });
    fail_everywhere("observer", 1, [](Attempt& attempt) {
        Future<int> future;
        auto* const observer = new Observer(future);
        const bool done = attempt([&] { future.add_observer(observer, impl::FutureObserverOwner(observer)); });
        EXPECT_TRUE(!done || future.remove_observer(observer));
        EXPECT_TRUE(future.set_value(1));
    });
}

// Each control: answers at once, and its handlers.
template <class Make>
void use_control(const char* name, int direct, int later, Make make) {
    const ErrorInfo::Ptr why = record();
    for (const bool fails : {false, true}) {
        const auto is_right = [&](const auto& outcome) {
            return fails ? outcome.error_info() == why : outcome.get() == 7;
        };
        fail_everywhere(name, direct, [&](Attempt& attempt) {
            const Future<int> future;
            auto control = make(future);
            Result<int> result;
            insist(attempt, future, [&] { result = fails ? control.signal_error(why) : control.signal_result(7); });
            EXPECT_TRUE(!result.is_waitable() || is_right(result));
            EXPECT_TRUE(!future.is_ready() || is_right(future));
        });
    }
    enum class End { success, error, cancel, drop };
    for (const End end : {End::success, End::error, End::cancel, End::drop}) {
        fail_everywhere(name, later, [&](Attempt& attempt) {
            Future<int> future;
            auto control = std::make_optional(make(future));
            Handler handler;
            insist(attempt, future, [&] { handler = control->create_async_handler(); });
            Result<int> result;
            insist(attempt, future, [&] { result = handler->get_result(); });
            if (future.shared()->has_unique_ref() && !result.future().is_null()) {
                future = result.future();  // the control makes one of its own
            }
            const bool fills = !future.shared()->has_unique_ref();
            control.reset();
            EXPECT_FALSE(future.is_ready());
            const bool done = attempt([&] {
                end == End::success  ? handler->on_async_result_success(7)
                : end == End::error  ? handler->on_async_result_error(why)
                : end == End::cancel ? handler->cancel(true, why)
                                     : void();
            });
            EXPECT_TRUE(done || end == End::cancel);
            EXPECT_EQ(future.has_value(), fills && end == End::success);
            EXPECT_EQ(future.error_info() == why, fills && end == End::error);
            EXPECT_EQ(future.is_ready(), fills && done && end != End::drop);
            EXPECT_TRUE(attempt([&] { handler.clear(); }));
            EXPECT_EQ(future.is_ready(), fills);  // no memory for a record: somebody may be waiting all the same
        });
    }
}

TEST(AsyncMemory, Controls) {
    use_control("ignored", 0, 1, [](const Future<int>&) { return result_ignored<int>(); });
    use_control("ignored, if ready", 1, 1, [](const Future<int>&) { return result_ignored<int>().if_not_ready(); });
    use_control("future", 1, 1, [](const Future<int>& future) { return result_future(future); });
    use_control("direct", 1, 2, [](const Future<int>&) { return result_direct_if_synchronous<int>(); });
    use_control("error", 1, 2, [](const Future<int>&) { return result_error_if_async<int>(); });
    use_control("adapter", 0, 0, [](const Future<int>& future) { return handler_of(future)->as_control(); });
    use_control("inner", 0, 1, [](const Future<int>& future) {
        return result_inner<int>(
            handler_of(future), [handler = handler_of(future)](int value) { handler->on_async_result_success(value); });
    });
    fail_everywhere("adapter of a control", 1,
                    [](Attempt& attempt) { attempt([] { AsyncHandlerAdapterControl<int>(result_ignored<int>()); }); });
}

// The exception of a continuation or a task becomes an outcome also when there is no memory to describe it.
TEST(AsyncMemory, ExceptionsOfUserCode) {
    fail_everywhere("continuation", 1, [](Attempt& attempt) {
        const Future<int> future;
        const Handler outer = handler_of(future);
        auto step = result_inner<int>(outer, [](int) { throw std::bad_cast(); });
        EXPECT_TRUE(attempt([&] { (void)step.signal_result(1); }));
        EXPECT_TRUE(future.has_error());
    });
    struct Nowhere : IThreadAffinity {
        [[nodiscard]] bool is_current_thread() const override { return false; }
        void post(RefCountPtr<ITask>) override {}
    } nowhere;
    const auto work = [&](const Future<int>& outcome, RelativeTime limit) {
        return make_single_use_task(
            outcome, TaskInvocationContext(nowhere).cancel_after(limit), []() -> int { throw std::bad_cast(); },
            s_location);
    };
    for (const RelativeTime limit : {RelativeTime::infinite, RelativeTime::milliseconds(-50)}) {
        for (const bool runs : {true, false}) {
            fail_everywhere("task", 1, [&](Attempt& attempt) {
                const Future<int> future;
                RefCountPtr<ITask> task;
                if (!attempt([&] { task = work(future, limit); })) {
                    EXPECT_FALSE(future.is_ready());
                    task = work(future, limit);
                }
                EXPECT_TRUE(attempt([&] { runs ? task->execute() : task.clear(); }));
                EXPECT_TRUE(future.has_error());
                EXPECT_TRUE(!runs || limit.is_infinite() ||
                            future.error_info()->matches(attempt.reached() ? "error.exception.bad_alloc"
                                                                           : "error.nqcore.task.timeLimitExpired"));
            });
        }
    }
}

TEST(AsyncMemory, AutoSignal) {
    fail_everywhere("forgotten", 1, [](Attempt& attempt) {
        const Future<int> futures[3];
        const Handler kept = handler_of(futures[0]);  // dropping the list is not enough for this one
        Handler others[] = {handler_of(futures[1]), handler_of(futures[2])};
        std::optional<AutoSignalAsyncResult<int>> holder;
        insist(attempt, futures[0], [&] { holder.emplace(kept, ErrorInfo::Ptr()); });
        for (Handler& handler : others) {
            attempt([&] { holder->push_back(static_cast<Handler&&>(handler)); });
        }
        EXPECT_TRUE(attempt([&] { holder.reset(); }));
        for (const Future<int>& future : futures) {
            EXPECT_TRUE(future.has_error());
        }
    });
    fail_everywhere("list", 1, [](Attempt& attempt) {
        const Future<int> futures[2];
        std::vector<Handler> list{handler_of(futures[0]), handler_of(futures[1])};
        attempt([&] { AutoSignalAsyncResult<int>(std::move(list), ErrorInfo::Ptr()).signal_success(5); });
        list.clear();
        EXPECT_TRUE(futures[0].is_ready() && futures[1].is_ready());
        EXPECT_EQ(futures[0].has_value(), futures[1].has_value());
    });
    fail_everywhere("completion", 1, [](Attempt& attempt) {
        using Completion = impl::DispatchedCompletion<std::string>;
        Completion completion{std::string(s_long)};
        attempt([&] { (void)Completion(completion); });
        const Future<std::string> future;
        const auto handler = ResultControlFutureRef<std::string>(future).create_async_handler();
        EXPECT_TRUE(attempt([&] { completion.signal(*handler); }));
        EXPECT_EQ(future.get(), s_long);
    });
}

TEST(AsyncMemory, Barriers) {
    fail_everywhere("barrier", 1, [](Attempt& attempt) {
        Future<int> pending;
        AnyFutureBarrier futures;
        AnyResultBarrier results;
        for (unsigned i = 0; i < 3; ++i) {
            const bool grown = attempt([&] { futures.push_back(pending); });
            ASSERT_EQ(futures.size(), i + (grown ? 1 : 0));
            grown ? void() : futures.push_back(pending);
        }
        results.push_back(future_result(pending));
        attempt([&] { EXPECT_EQ(AnyFutureBarrier(futures).size(), 3u); });
        const bool cancelled = attempt([&] { results.cancel(record()); });
        EXPECT_EQ(futures.any_ready(), cancelled);
        AsyncOpHandle handle(future_result(pending));
        insist(attempt, cancelled ? Future<int>() : pending, [&] {
            EXPECT_FALSE(handle.empty());
            handle.cancel(true, nullptr);
        });
        EXPECT_TRUE(futures.all_ready() && handle.empty());
    });
}

TEST(AsyncMemory, Results) {
    fail_everywhere("make", 1, [error = record()](Attempt& attempt) {
        std::string value(s_long);
        EXPECT_TRUE(attempt([&] { (void)ready_result(static_cast<std::string&&>(value)); }) || value == s_long);
        attempt([&] { (void)failed_result<int>(error); });
        Future<int> future;
        attempt([&] { (void)future_result(future); });
        EXPECT_TRUE(future.shared()->has_unique_ref());
        const Result<int> result = future_result(future);
        const bool cancelled = attempt([&] { result.cancel(true, error); });
        EXPECT_EQ(future.is_ready(), cancelled);
    });
}

struct Costly {
    std::string text = s_long;
};
constinit StaticInstance<Costly> s_instances[64];

struct Registrar : impl::StaticInstanceBase {
    static void add() {
        register_cleanup_aux([](void*) {}, nullptr);
    }
};

// Sixty-four instances fill a block of the queue, so one of them meets its end.
TEST(AsyncMemory, StaticInstances) {
    Registrar::add();
    int failed = 0;
    for (StaticInstance<Costly>& instance : s_instances) {
        for (int before = 0;; ++before) {
            const int live = allocations::s_live;
            Attempt attempt(before, 1);
            if (attempt([&] { instance.get(); })) {
                EXPECT_EQ(instance->text, s_long);
                break;
            }
            ++failed;
            EXPECT_EQ(allocations::s_live, live);
            EXPECT_EQ(instance.get_if_ready(), nullptr);
        }
    }
    EXPECT_GT(failed, 64);
}

TEST(AsyncMemory, CleanupQueue) {
    static int s_ran;
    fail_everywhere("queue", 2, [](Attempt& attempt) {
        std::optional<impl::StaticInstanceCleanup> queue;
        const auto make = [&] { queue.emplace([](void*, void (*)(void*, void*)) { return 0; }); };
        attempt(make) ? void() : make();
        s_ran = 0;
        int registered = 0;
        attempt([&] {
            for (; registered < 100; ++registered) {
                queue->register_for_cleanup([](void*) { ++s_ran; }, nullptr);
            }
        });
        queue->empty();
        EXPECT_EQ(s_ran, registered);
    });
}

}  // namespace
}  // namespace nqcore
