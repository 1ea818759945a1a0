#include "nqcore/future_await.h"
#include "error_test_support.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/result_control.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace nqcore {
namespace {

/// A coroutine that this library does not own: it is resumed by what it awaits and destroyed by its handle.
struct Foreign {
    struct promise_type {
        Foreign get_return_object() { return {std::coroutine_handle<promise_type>::from_promise(*this)}; }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_always final_suspend() noexcept { return {}; }
        void return_void() noexcept {}
        void unhandled_exception() noexcept { std::terminate(); }
    };
    std::coroutine_handle<promise_type> handle;
};

/// Suspends a coroutine and gives its handle away.
struct Park {
    std::coroutine_handle<>* parked;
    [[nodiscard]] bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> coroutine) const noexcept { *parked = coroutine; }
    void await_resume() const noexcept {}
};

/// Counts its copies and moves. A copy throws when told to.
struct Counted {
    Counted() = default;
    Counted(const Counted& other) : copies(other.copies + 1), moves(other.moves), throws(other.throws) {
        if (throws) {
            throw std::runtime_error("copied");
        }
    }
    Counted(Counted&& other) noexcept : copies(other.copies), moves(other.moves + 1), throws(other.throws) {}
    ~Counted() = default;
    int copies = 0;
    int moves = 0;
    bool throws = false;
};

template <class T>
Future<T> keep(Future<T> future) {
    co_return co_await future;
}
template <class T>
Future<T> give(Future<T> future) {
    co_return co_await std::move(future);
}
template <class T>
Future<T> keep_result(Result<T> result) {
    co_return co_await result;
}
template <class T>
Result<T> give_result(Result<T> result) {
    co_return co_await std::move(result);
}
Future<void> keep_void(Future<void> future) { co_await future; }
Result<void> give_void(Result<void> result) { co_await std::move(result); }

const auto isCancelled = HasCode("error.nqcore.result.cancelled");

TEST(FutureAwait, GivesTheOutcomeNowOrLater) {
    struct Case {
        const char* name;
        Future<int> (*run)(const Future<int>& future);
    };
    const Case cases[] = {
        {"kept", [](const Future<int>& future) { return keep(future); }},
        {"given", [](const Future<int>& future) { return give(future); }},
        {"result", [](const Future<int>& future) { return keep_result(future_result(future)); }},
        {"given result", [](const Future<int>& future) { return give_result(future_result(future)).future(); }},
        {"three deep", [](const Future<int>& future) { return keep(give(keep(future))); }},
    };
    const ErrorInfo::Ptr why = record("error.why");
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        for (const bool ready : {true, false}) {
            Future<int> value;
            Future<int> failure;
            const auto signal = [&] {
                value.set_value(7);
                failure.set(why);
            };
            if (ready) {
                signal();
            }
            const Future<int> outcome = row.run(value);
            const Future<int> error = row.run(failure);
            EXPECT_EQ(outcome.is_ready(), ready);
            EXPECT_EQ(error.is_ready(), ready);
            signal();
            EXPECT_EQ(outcome.get(), 7);
            EXPECT_EQ(error.error_info(), why);  // the same record
        }
    }
    Future<void> done;
    const Future<void> outcome = keep_void(done);
    const Result<void> result = give_void(future_result(done));
    EXPECT_FALSE(outcome.is_ready() || result.is_ready());
    done.set_value();
    EXPECT_TRUE(outcome.has_value() && result.has_value());
    EXPECT_EQ(keep_void(failed_future<void>(why)).error_info(), why);
}

TEST(FutureAwait, ReadyResultsAndThoseThatCannotBeAwaited) {
    const ErrorInfo::Ptr why = record("error.why");
    EXPECT_EQ(keep_result(ready_result(5)).get(), 5);
    EXPECT_EQ(give_result(failed_result<int>(why)).error_info(), why);
    EXPECT_TRUE(give_void(ready_result()).has_value());
    EXPECT_THAT([] { keep_result(Result<int>()).get(); }, ThrowsError(HasCode("error.nqcore.result.notWaitable")));
    EXPECT_THAT([] { give(Future<int>(nullptr)).get(); }, ThrowsError(HasCode("error.nqcore.result.badParameter")));
}

TEST(FutureAwait, MovesWhatNobodyElseCanRead) {
    struct Case {
        const char* name;
        int copies;
        Future<Counted> (*run)(const Future<Counted>& shared);
    };
    // co_return of a prvalue moves; only awaiting copies.
    const Case cases[] = {
        {"kept", 1, [](const Future<Counted>& shared) { return keep(shared); }},
        {"given but shared", 1, [](const Future<Counted>& shared) { return give(shared); }},
        {"given", 0, [](const Future<Counted>&) { return give(ready_future(Counted())); }},
        {"from a coroutine", 1, [](const Future<Counted>& shared) { return give(give(give(shared))); }},
        {"given result", 0, [](const Future<Counted>&) { return give_result(ready_result(Counted())).future(); }},
        {"kept result", 1, [](const Future<Counted>&) { return keep_result(ready_result(Counted())); }},
        {"given result of a future", 0,
         [](const Future<Counted>&) { return give_result(future_result(ready_future(Counted()))).future(); }},
        {"result of a shared future", 1,
         [](const Future<Counted>& shared) { return give_result(future_result(shared)).future(); }},
    };
    for (const Case& row : cases) {
        for (const bool later : {false, true}) {
            SCOPED_TRACE(testing::Message() << row.name << (later ? ", later" : ""));
            Future<Counted> shared;
            if (!later) {
                shared.set_value(Counted());
            }
            const Future<Counted> outcome = row.run(shared);
            shared.set_value(Counted());
            EXPECT_EQ(outcome.get().copies, row.copies);
        }
    }

    Future<Counted> throwing;
    const Future<Counted> outcome = give(throwing);
    Counted value;
    value.throws = true;
    throwing.set_value(std::move(value));
    EXPECT_THAT([&] { (void)outcome.get(); },
                ThrowsError(AllOf(HasCode("error.exception.runtime_error"), HasMessage("copied"))));
    EXPECT_TRUE(throwing.has_value());

    Future<std::unique_ptr<int>> moveOnly;
    const Future<std::unique_ptr<int>> moved = give(moveOnly);
    moveOnly.set_value(std::make_unique<int>(3));
    EXPECT_EQ(*moved.get(), 3);
    EXPECT_EQ(*give_result(ready_result(std::make_unique<int>(4))).get(), 4);
}

TEST(FutureAwait, LocalObjectsGoBeforeTheOutcomeIsKnown) {
    struct AtEnd {
        std::string* log;
        Future<int>* outcome;
        ~AtEnd() { *log += outcome->is_ready() ? "late " : "local "; }
    };
    std::string log;
    Future<int> go;
    Future<int> outcome(nullptr);
    const auto body = [&](bool fails) -> Future<int> {
        const AtEnd atEnd{&log, &outcome};
        const int value = co_await go;
        if (fails) {
            throw std::runtime_error("body");
        }
        co_return value;
    };
    const auto waiter = [&](Future<int> future) -> Future<void> {
        co_await future;
        log += "waiter ";
    };
    for (const bool fails : {false, true}) {
        log.clear();
        go = Future<int>();
        outcome = body(fails);
        const Future<void> waiting = waiter(outcome);
        go.set_value(1);
        EXPECT_EQ(log, fails ? "local " : "local waiter ");
        EXPECT_EQ(outcome.has_error(), fails);
    }
    EXPECT_THAT([&] { (void)outcome.get(); }, ThrowsError(HasMessage("body")));
}

TEST(FutureAwait, GoesOnOnTheSignallingThreadWithoutTheMutex) {
    Future<int> future;
    std::thread::id resumedOn;
    const auto body = [&]() -> Future<void> {
        co_await future;
        resumedOn = std::this_thread::get_id();
        EXPECT_FALSE(future.set_value(2));  // takes the mutex
        EXPECT_FALSE(future.add_observer(nullptr));
    };
    const Future<void> outcome = body();
    bool doneWhenSet = false;
    std::thread signaller([&] {
        future.set_value(1);
        doneWhenSet = outcome.is_ready() && resumedOn == std::this_thread::get_id();
    });
    signaller.join();
    EXPECT_TRUE(doneWhenSet);
}

TEST(FutureAwait, WaitersGoOnInTheirOrderWithWhatFollowsFromThem) {
    std::string log;
    Future<int> first;
    Future<int> second;
    const auto note = [&](Future<int> future, std::string name) -> Future<int> {
        const int value = co_await future;
        log += name;
        co_return value;
    };
    const auto signal = [&](Future<int> future) -> Future<int> {
        co_await future;
        log += '(';
        second.set_value(2);  // what waits for it goes on inside the call
        log += ')';
        co_return 0;
    };
    const Future<int> a = note(first, "a");
    const Future<int> afterA = note(note(a, "A"), "B");
    const Future<int> s = signal(first);
    const Future<int> afterS = note(s, "S");
    const Future<int> c = note(first, "c");
    const Future<int> two = note(note(second, "x"), "y");
    first.set_value(1);
    EXPECT_EQ(log, "aAB(xy)Sc");
}

TEST(FutureAwait, ResumedByOtherMeans) {
    std::coroutine_handle<> parked;
    std::string log;
    Future<int> go;
    const auto body = [&]() -> Future<int> {
        co_await Park{&parked};
        log += 'b';
        co_return 3;
    };
    const auto waiter = [&](Future<int> future) -> Future<void> { log += static_cast<char>('0' + co_await future); };
    const Future<void> waiting = waiter(body());
    // From inside another coroutine, which a loop has resumed: what follows is not that loop's affair.
    const auto resumer = [&]() -> Future<void> {
        co_await go;
        parked.resume();
        log += 'r';
    };
    const Future<void> resuming = resumer();
    go.set_value(0);
    EXPECT_EQ(log, "b3r");
    EXPECT_TRUE(waiting.has_value());
}

struct TwoSteps {
    int step = 0;
    Foreign run(Future<int> first, Result<int> second) {
        co_await first;
        step = 1;
        co_await second;
        step = 2;
    }
};

TEST(FutureAwait, CoroutinesOfOthersMayBeDestroyedWhileTheyWait) {
    for (const int destroyedAfter : {0, 1}) {
        Future<int> first;
        Future<int> second;
        TwoSteps steps;
        TwoSteps otherSteps;
        const Foreign coroutine = steps.run(first, future_result(second));
        const Foreign other = otherSteps.run(first, future_result(second));
        if (destroyedAfter == 1) {
            first.set_value(1);
        }
        EXPECT_EQ(steps.step, destroyedAfter);
        coroutine.handle.destroy();
        first.set_value(1);
        second.set_value(2);
        EXPECT_EQ(steps.step, destroyedAfter);
        EXPECT_EQ(otherSteps.step, 2);
        other.handle.destroy();  // at its end
    }
}

TEST(FutureAwaitDeathTest, ButNotOnceTheFutureIsReady) {
    const auto destroy_the_next_in_line = [] {
        Future<int> future;
        Foreign next;
        const auto destroyer = [&]() -> Future<void> {
            co_await future;
            next.handle.destroy();  // told already; the signal is about to resume it
        };
        const Future<void> outcome = destroyer();
        TwoSteps steps;
        next = steps.run(future, Result<int>());
        future.set_value(1);
    };
    EXPECT_DEATH(destroy_the_next_in_line(), "destroyed after the future that it awaits had been signaled");
}

TEST(FutureAwait, CancellationPassesThrough) {
    const ErrorInfo::Ptr cause = record("error.cause");
    for (const int depth : {1, 3}) {
        SCOPED_TRACE(depth);
        std::string log;
        const auto step = [&](Future<int> inner, int level) -> Future<int> {
            try {
                co_return co_await inner;
            } catch (const ErrorException& error) {
                log += std::to_string(level);
                EXPECT_THAT(error.error(), AllOf(isCancelled, HasCause(HasCode("error.cause"))));
                throw std::runtime_error("of no interest");
            }
        };
        const Future<int> innermost;
        Future<int> outermost = innermost;
        for (int level = 1; level <= depth; ++level) {
            outermost = step(outermost, level);
        }
        EXPECT_TRUE(outermost.cancel(cause));
        EXPECT_EQ(log, depth == 1 ? "1" : "123");  // innermost first, as a stack unwinds
        EXPECT_EQ(innermost.error_info(), outermost.error_info());
        EXPECT_THAT(outermost.error_info(), AllOf(isCancelled, HasCause(HasCode("error.cause"))));
    }
}

TEST(FutureAwait, OnlyCancellationPassesThrough) {
    Future<int> inner;
    Future<int> outer = keep(inner);
    outer.set(record("error.elsewhere"));
    EXPECT_FALSE(inner.is_ready());
    inner.set_value(1);
    EXPECT_THAT(outer.error_info(), HasCode("error.elsewhere"));

    Future<int> cancelledByItself;
    const Future<int> waiting = keep(cancelledByItself);
    cancelledByItself.cancel();
    EXPECT_EQ(waiting.error_info(), cancelledByItself.error_info());

    const Result<int> result = give_result(future_result(Future<int>()));
    result.cancel(true, nullptr);
    EXPECT_THAT(result.error_info(), isCancelled);
}

/// Waits for three things one after the other and notes how each ended.
Future<void> three_waits(Future<int> a, Future<int> b, Future<int> c, std::string* log) {
    for (const Future<int>& next : {a, b, c}) {
        try {
            *log += static_cast<char>('0' + co_await next);
        } catch (const ErrorException& error) {
            *log += error.matches("error.nqcore.result.cancelled.innerOperation") ? 'i'
                    : error.matches("error.nqcore.result.cancelled")              ? 'c'
                                                                                  : 'e';
        }
    }
    *log += '.';
}

TEST(FutureAwait, ACancelledCoroutineHearsOfItOnce) {
    enum class When { never, while_waiting, before_its_turn };
    enum class Second { ready, pending, failed };
    struct Case {
        const char* name;
        When when;
        Second second;
        const char* log;
    };
    const Case cases[] = {
        {"not cancelled", When::never, Second::pending, "123."},
        {"while it waits", When::while_waiting, Second::pending, "c23."},
        {"between the signal and its turn", When::before_its_turn, Second::pending, "i23."},
        {"the same, then an error", When::before_its_turn, Second::failed, "ie3."},
        {"the same, then a ready one", When::before_its_turn, Second::ready, "i23."},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        std::string log;
        Future<int> first;
        Future<int> second;
        Future<int> third;
        if (row.second == Second::ready) {
            second.set_value(2);
        } else if (row.second == Second::failed) {
            second.set(record());
        }
        Future<void> outcome(nullptr);
        const auto canceller = [&](Future<int> future) -> Future<void> {
            co_await future;
            outcome.cancel();
        };
        Future<void> cancelling(nullptr);
        if (row.when == When::before_its_turn) {
            cancelling = canceller(first);  // registered first, so resumed first
        }
        outcome = three_waits(first, second, third, &log);
        if (row.when == When::while_waiting) {
            outcome.cancel();
            EXPECT_TRUE(first.has_error());
        }
        first.set_value(1);
        second.set_value(2);
        third.set_value(3);
        EXPECT_EQ(log, row.log);
        EXPECT_EQ(outcome.has_value(), row.when == When::never);
    }
}

TEST(FutureAwait, CancelledWhileItRuns) {
    for (const bool nextIsReady : {false, true}) {
        Future<int> go;
        Future<int> next;
        if (nextIsReady) {
            next.set_value(1);
        }
        ErrorInfo::Ptr heard;
        Future<void> outcome(nullptr);
        const auto body = [&]() -> Future<void> {
            co_await go;
            outcome.cancel();
            try {
                co_await next;
            } catch (const ErrorException& error) {
                heard = error.error();
            }
        };
        outcome = body();
        go.set_value(0);
        if (nextIsReady) {
            EXPECT_THAT(heard, HasCode("error.nqcore.result.cancelled.innerOperation"));
        } else {
            EXPECT_EQ(heard, outcome.error_info());
            EXPECT_EQ(next.error_info(), outcome.error_info());
        }
    }
}

/// Between which places of the stack a test runs.
struct StackUse {
    std::uintptr_t lowest = UINTPTR_MAX;
    std::uintptr_t highest = 0;
    __attribute__((noinline)) void note() {
        const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
        lowest = std::min(lowest, here);
        highest = std::max(highest, here);
    }
};

TEST(FutureAwait, LongChainsAndLoopsNeedNoStack) {
    constexpr int length = 2'000;
    StackUse stack;
    const auto sum = [&]() -> Future<int> {
        int total = 0;
        for (int i = 0; i < length; ++i) {
            total += co_await ready_future(1);
            stack.note();
        }
        co_return total;
    };
    EXPECT_EQ(sum().get(), length);
    EXPECT_EQ(stack.highest, stack.lowest);

    const auto link = [&](Future<int> inner) -> Future<int> {
        try {
            const int value = co_await std::move(inner);
            stack.note();
            co_return value;
        } catch (const ErrorException&) {
            stack.note();
            throw;
        }
    };
    for (const bool cancels : {false, true}) {
        SCOPED_TRACE(cancels ? "cancelled" : "completed");
        stack = {};
        Future<int> innermost;
        Future<int> outermost = innermost;
        for (int i = 0; i < length; ++i) {
            outermost = link(std::move(outermost));
        }
        if (cancels) {
            outermost.cancel();
            EXPECT_EQ(innermost.error_info(), outermost.error_info());
        } else {
            innermost.set_value(1);
            EXPECT_EQ(outermost.get(), 1);
        }
        EXPECT_LT(stack.highest - stack.lowest, 4096u);  // two bytes a link
    }
}

/// Two threads that do their parts of every round at the same time.
template <class First, class Second, class Check>
void race(int rounds, const First& first, const Second& second, const Check& check) {
    std::atomic<int> started = 0;
    std::atomic<int> finished = 0;
    std::thread other([&] {
        for (int round = 1; round <= rounds; ++round) {
            while (started.load() < round) {
                std::this_thread::yield();
            }
            second();
            finished.store(round);
        }
    });
    for (int round = 1; round <= rounds; ++round) {
        check([&] {
            started.store(round);
            first();
            while (finished.load() < round) {
                std::this_thread::yield();
            }
        });
    }
    other.join();
}

TEST(FutureAwait, CancellationMeetsCompletion) {
    struct Alive {
        std::atomic<int>* count;
        explicit Alive(std::atomic<int>* counter) : count(counter) { ++*count; }
        Alive(const Alive&) = delete;
        Alive& operator=(const Alive&) = delete;
        ~Alive() { --*count; }
    };
    std::atomic<int> alive = 0;
    std::atomic<int> resumed = 0;
    const auto step = [&](Future<int> inner, Future<int> more) -> Future<int> {
        const Alive guard(&alive);
        int value = 0;
        try {
            value = co_await inner;
        } catch (const ErrorException& error) {
            value = error.matches("error.nqcore.result.cancelled") ? 1 : -1000;
        }
        ++resumed;
        co_return value + co_await more;
    };
    Future<int> innermost;
    Future<int> more;
    Future<int> outermost;
    int cancelled = 0;
    constexpr int rounds = 20'000;
    race(
        rounds,
        [&] {
            innermost.set_value(1);
            more.set_value(1);
        },
        [&] { outermost.cancel(); },
        [&](const auto& run) {
            innermost = Future<int>();
            more = Future<int>();
            resumed = 0;
            outermost = step(step(step(innermost, more), more), more);
            run();
            ASSERT_EQ(resumed, 3);
            ASSERT_EQ(alive, 0);
            ASSERT_TRUE(outermost.is_ready());
            cancelled += outermost.has_error() ? 1 : 0;
            ASSERT_TRUE(outermost.has_error() || outermost.get() == 4);
        });
    EXPECT_EQ(alive, 0);
    RecordProperty("cancelled", cancelled);
}

TEST(FutureAwait, WaitingMeetsSignalling) {
    Future<int> future;
    Future<int> outcome;
    race(
        20'000, [&] { outcome = give(give(future)); }, [&] { future.set_value(7); },
        [&](const auto& run) {
            future = Future<int>();
            run();
            ASSERT_TRUE(outcome.is_ready());
            ASSERT_EQ(outcome.get(), 7);
        });
}

TEST(ForwardFuture, AnswersAsTheControlAsks) {
    const ErrorInfo::Ptr why = record("error.why");
    for (const bool ready : {true, false}) {
        SCOPED_TRACE(ready ? "ready" : "later");
        Future<int> value;
        Future<int> failure;
        Future<void> done;
        Future<std::unique_ptr<int>> moveOnly;
        const auto signal = [&] {
            value.set_value(7);
            failure.set(why);
            done.set_value();
            moveOnly.set_value(std::make_unique<int>(8));
        };
        if (ready) {
            signal();
        }
        const Future<int> filled;
        const Result<int> direct = forward_future(value, result_direct_if_synchronous<int>());
        const Result<int> inFuture = forward_future(value, result_future(filled));
        const Result<int> failed = forward_future(failure, result_direct_if_synchronous<int>());
        const Result<void> nothing = forward_future(done, result_direct_if_synchronous<void>());
        const Result<std::unique_ptr<int>> moved =
            forward_future(moveOnly, result_direct_if_synchronous<std::unique_ptr<int>>());
        EXPECT_FALSE(forward_future(value, result_ignored<int>()).is_waitable());
        EXPECT_EQ(direct.is_ready(), ready);
        EXPECT_EQ(direct.future().is_null(), ready);
        signal();
        EXPECT_EQ(direct.get() + filled.get() + inFuture.get(), 21);
        EXPECT_EQ(failed.error_info(), why);
        EXPECT_TRUE(nothing.has_value());
        EXPECT_EQ(*moved.get(), 8);
    }
}

TEST(ForwardFuture, CancellationReachesTheFuture) {
    const ErrorInfo::Ptr cause = record("error.cause");
    Future<int> future;
    const Result<int> result = forward_future(keep(future), result_direct_if_synchronous<int>());
    result.cancel(true, cause);
    EXPECT_EQ(future.error_info(), result.error_info());
    EXPECT_THAT(result.error_info(), AllOf(isCancelled, HasCause(HasCode("error.cause"))));

    // Nobody wants a later answer.
    Future<int> unwanted;
    EXPECT_THAT(forward_future(unwanted, result_error_if_async<int>()).error_info(),
                HasCode("error.nqcore.result.invalidAsynchrony"));
    EXPECT_THAT(unwanted.error_info(), isCancelled);
    Future<int> given;
    given.cancel();
    Future<int> late;
    EXPECT_EQ(forward_future(late, result_future(given)).error_info(), given.error_info());
    EXPECT_THAT(late.error_info(), isCancelled);
}

}  // namespace
}  // namespace nqcore
