#include "nqcore/future_await.h"
#include "error_test_support.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/result_control.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
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
struct Park : std::suspend_always {
    explicit Park(std::coroutine_handle<>* handle) : parked(handle) {}
    void await_suspend(std::coroutine_handle<> coroutine) const noexcept { *parked = coroutine; }
    std::coroutine_handle<>* parked;
};

template <class Work>
struct AtEnd {
    Work work;
    ~AtEnd() { work(); }
};

/// A value that counts its copies. A copy throws when told to.
struct Counted {
    explicit Counted(int number, bool throwsWhenCopied = false) : value(number), throws(throwsWhenCopied) {}
    Counted(const Counted& other)
        : value(other.value),
          copies(other.copies + 1),
          throws(other.throws ? throw std::runtime_error("copied") : false) {}
    Counted(Counted&&) noexcept = default;
    int value;
    int copies = 0;
    bool throws;
};

template <class Awaited>
Awaited keep(Awaited awaited) {
    co_return co_await awaited;
}
template <class Awaited>
Awaited give(Awaited awaited) {
    co_return co_await std::move(awaited);
}

/// Notes that it goes on when `future` is ready.
Future<int> note(std::string& log, Future<int> future, char name) {
    const int value = co_await future;
    log += name;
    co_return value;
}

const auto isCancelled = HasCode("error.nqcore.result.cancelled");
const auto isCancelledByCause = AllOf(isCancelled, HasCause(HasCode("error.cause")));

TEST(FutureAwait, GivesTheOutcomeNowOrLater) {
    using Counting = Future<Counted>;
    struct {
        int copies;  // of a value that the caller keeps too
        Counting (*run)(const Counting& future);
    } const forms[] = {
        {1, [](const Counting& future) { return keep(future); }},
        {1, [](const Counting& future) { return give(future); }},
        {1, [](const Counting& future) { return keep(future_result(future)).future(); }},
        {1, [](const Counting& future) { return give(future_result(future)).future(); }},
        {2, [](const Counting& future) { return keep(give(keep(future))); }},
    };
    const ErrorInfo::Ptr why = record("error.why");
    for (const auto& row : forms) {
        for (const bool ready : {true, false}) {
            SCOPED_TRACE(testing::Message() << &row - forms << (ready ? "" : ", later"));
            Counting value = ready ? ready_future(Counted(7)) : Counting();
            Counting failure = ready ? failed_future<Counted>(why) : Counting();
            const Counting outcome = row.run(value);
            const Counting error = row.run(failure);
            EXPECT_TRUE(outcome.is_ready() == ready && error.is_ready() == ready);
            value.set_value(Counted(7));
            failure.set(why);
            EXPECT_TRUE(outcome.get().value == 7 && outcome.get().copies == row.copies);
            EXPECT_EQ(error.error_info(), why);  // the same record
        }
    }
    Future<void> done;
    const Result<void> outcome = give(future_result(keep(done)));
    EXPECT_FALSE(outcome.is_ready());
    done.set_value();
    EXPECT_TRUE(outcome.has_value() && give(ready_result()).has_value());
    EXPECT_TRUE(give(failed_result<int>(why)).error_info() == why &&
                give(failed_future<void>(why)).error_info() == why);
    EXPECT_THAT(keep(Result<int>()).error_info(), HasCode("error.nqcore.result.notWaitable"));
    EXPECT_THAT(give(Future<int>(nullptr)).error_info(), HasCode("error.nqcore.result.badParameter"));
}

TEST(FutureAwait, MovesWhatNobodyElseCanRead) {
    const auto copies = [](const auto& outcome) { return outcome.get().copies; };
    EXPECT_EQ(copies(give(ready_future(Counted(1)))), 0);
    EXPECT_EQ(copies(give(ready_result(Counted(1)))), 0);
    EXPECT_EQ(copies(keep(ready_result(Counted(1)))), 1);
    EXPECT_EQ(copies(give(future_result(ready_future(Counted(1))))), 0);

    Future<Counted> throwing;
    const Future<Counted> outcome = give(throwing);
    throwing.set_value(Counted(1, true));
    EXPECT_THAT([&] { (void)outcome.get(); },
                ThrowsError(AllOf(HasCode("error.exception.runtime_error"), HasMessage("copied"))));

    Future<std::unique_ptr<int>> moveOnly;
    const Future<std::unique_ptr<int>> moved = give(moveOnly);
    moveOnly.set_value(std::make_unique<int>(3));
    EXPECT_EQ(*moved.get(), 3);
}

TEST(FutureAwait, LocalObjectsGoBeforeTheOutcomeIsKnown) {
    for (const bool fails : {false, true}) {
        std::string log;
        Future<int> go;
        Future<int> outcome(nullptr);
        const auto body = [&]() -> Future<int> {
            const AtEnd atEnd([&] { log += outcome.is_ready() ? "late " : "local "; });
            const int value = co_await go;
            co_return fails ? throw std::runtime_error("body") : value;
        };
        outcome = body();
        const Future<int> waiting = note(log, outcome, 'w');
        go.set_value(1);
        EXPECT_EQ(log, fails ? "local " : "local w");
        EXPECT_TRUE(!fails || waiting.error_info()->message().view() == "body");
    }
}

TEST(FutureAwait, WaitersGoOnInTheirOrderWithWhatFollowsFromThem) {
    std::string log;
    Future<int> first;
    Future<int> second;
    std::thread::id resumedOn;
    const auto signal = [&]() -> Future<int> {
        const int value = co_await first;
        resumedOn = std::this_thread::get_id();
        EXPECT_FALSE(first.set_value(2) || first.remove_observer(nullptr)) << "the mutex is free";
        log += '(';
        second.set_value(2);  // what waits for it goes on inside the call
        log += ')';
        co_return value;
    };
    const Future<int> a = note(log, first, 'a');
    const Future<int> afterA = note(log, note(log, a, 'A'), 'B');
    const Future<int> afterSignal = note(log, signal(), 'S');
    const Future<int> c = note(log, first, 'c');
    const Future<int> two = note(log, note(log, second, 'x'), 'y');
    std::thread([&] {
        first.set_value(1);
        EXPECT_EQ(log, "aAB(xy)Sc");
        EXPECT_EQ(resumedOn, std::this_thread::get_id());
    }).join();
}

TEST(FutureAwait, ResumedByOtherMeans) {
    std::coroutine_handle<> parked;
    std::string log;
    const auto body = [&]() -> Future<int> {
        co_await Park(&parked);
        log += 'b';
        co_return 3;
    };
    const Future<int> waiting = note(log, body(), 'w');
    // From inside another coroutine, which a loop has resumed: what follows is not that loop's affair.
    Future<int> go;
    const auto resumer = [&]() -> Future<void> {
        co_await go;
        parked.resume();
        log += 'r';
    };
    resumer();
    go.set_value(0);
    EXPECT_EQ(log, "bwr");
}

Foreign two_steps(int& step, Future<int> first, Result<int> second) {
    co_await first;
    step = 1;
    co_await second;
    step = 2;
}

TEST(FutureAwait, CoroutinesOfOthersMayBeDestroyedWhileTheyWait) {
    for (const int destroyedAfter : {0, 1}) {
        Future<int> first;
        Future<int> second;
        int step = 0;
        int otherStep = 0;
        const Foreign coroutine = two_steps(step, first, future_result(second));
        const Foreign other = two_steps(otherStep, first, future_result(second));
        if (destroyedAfter == 1) {
            first.set_value(1);
        }
        coroutine.handle.destroy();
        first.set_value(1);
        second.set_value(2);
        EXPECT_TRUE(step == destroyedAfter && otherStep == 2) << step << otherStep;
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
        destroyer();
        int step = 0;
        next = two_steps(step, future, Result<int>());
        future.set_value(1);
    };
    EXPECT_DEATH(destroy_the_next_in_line(), "destroyed after the future that it awaits had been signaled");
}

TEST(FutureAwait, CancellationPassesThrough) {
    std::string log;
    const auto step = [&](Future<int> inner, char name) -> Future<int> {
        try {
            co_return co_await inner;
        } catch (const ErrorException& error) {
            log += name;
            EXPECT_THAT(error.error(), isCancelledByCause);
            throw std::runtime_error("of no interest");
        }
    };
    const Future<int> innermost;
    Future<int> outermost = step(step(step(innermost, '1'), '2'), '3');
    EXPECT_TRUE(outermost.cancel(record("error.cause")));
    EXPECT_EQ(log, "123");  // innermost first, as a stack unwinds
    EXPECT_THAT(outermost.error_info(), isCancelledByCause);
    EXPECT_EQ(innermost.error_info(), outermost.error_info());

    Future<int> inner;
    Future<int> outer = keep(inner);
    outer.set(record("error.elsewhere"));
    EXPECT_FALSE(inner.is_ready()) << "other errors do not";
    inner.set_value(1);
    EXPECT_THAT(outer.error_info(), HasCode("error.elsewhere"));
}

TEST(FutureAwait, ACancelledCoroutineHearsOfItOnce) {
    enum When { never, while_waiting, before_its_turn, while_running };
    struct {
        When when;
        Future<int> second;
        const char* log;  // of three waits: the value, else c(ancelled), i(nner operation), e(rror)
    } const cases[] = {
        {never, {}, "123"},
        {while_waiting, {}, "c23"},
        {before_its_turn, {}, "i23"},
        {before_its_turn, failed_future<int>(record()), "ie3"},
        {while_running, {}, "1c3"},
        {while_running, failed_future<int>(record()), "1e3"},
        {while_running, ready_future(2), "1i3"},
    };
    for (const auto& row : cases) {
        std::string log;
        Future<int> futures[] = {{}, row.second, {}};
        Future<void> outcome(nullptr);
        const auto canceller = [&]() -> Future<void> {
            co_await futures[0];
            outcome.cancel();
        };
        const auto body = [&]() -> Future<void> {
            for (const Future<int>& next : futures) {
                try {
                    log += std::to_string(co_await next);
                } catch (const ErrorException& error) {
                    const bool isInner = error.matches("error.nqcore.result.cancelled.innerOperation");
                    log += isInner ? 'i' : testing::Matches(isCancelled)(error) ? 'c' : 'e';
                }
                if (row.when == while_running && log == "1") {
                    outcome.cancel();
                }
            }
        };
        if (row.when == before_its_turn) {
            canceller();  // waits first, so goes on first
        }
        outcome = body();
        if (row.when == while_waiting) {
            outcome.cancel();
        }
        for (int i = 0; i < 3; ++i) {
            futures[i].set_value(i + 1);
        }
        EXPECT_EQ(log, row.log) << &row - cases;
        EXPECT_EQ(outcome.has_value(), row.when == never);
    }
}

TEST(FutureAwait, LongChainsAndLoopsNeedNoStack) {
    constexpr int length = 2'000;
    std::set<std::uintptr_t> frames;
    const auto note_frame = [&] { frames.insert(reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0))); };
    const auto loop = [&]() -> Future<void> {
        for (int i = 0; i < length; ++i) {
            co_await ready_future(1);
            note_frame();
        }
    };
    EXPECT_TRUE(loop().has_value());
    EXPECT_EQ(frames.size(), 1u);

    const auto link = [&](Future<int> inner) -> Future<int> {
        const AtEnd atEnd(note_frame);
        co_return co_await std::move(inner);
    };
    for (const bool cancels : {false, true}) {
        frames.clear();
        Future<int> innermost;
        Future<int> outermost = innermost;
        for (int i = 0; i < length; ++i) {
            outermost = link(std::move(outermost));
        }
        cancels ? outermost.cancel() : innermost.set_value(1);
        EXPECT_TRUE(innermost.is_ready() && outermost.is_ready());
        EXPECT_EQ(innermost.error_info(), outermost.error_info());
        EXPECT_LT(*frames.rbegin() - *frames.begin(), 4096u);  // two bytes a link
    }
}

/// Rounds in which two threads do their parts at the same time, between `prepare` and `check`.
template <class Prepare, class First, class Second, class Check>
void race(Prepare prepare, First first, Second second, Check check) {
    std::atomic<int> started = 0;
    std::atomic<int> finished = 0;
    constexpr int rounds = 20'000;
    std::thread other([&] {
        for (int round = 1; round <= rounds; finished = round++) {
            while (started < round) {
                std::this_thread::yield();
            }
            second();
        }
    });
    for (int round = 1; round <= rounds; ++round) {
        prepare();
        started = round;
        first();
        while (finished < round) {
            std::this_thread::yield();
        }
        check();
    }
    other.join();
}

TEST(FutureAwait, CancellationMeetsCompletion) {
    std::atomic<int> resumed = 0;
    const auto inFrames = std::make_shared<int>();
    Future<int> innermost;
    Future<int> more;
    Future<int> outermost;
    const auto step = [&](Future<int> inner, std::shared_ptr<int>) -> Future<int> {
        const Future<int> last = more;
        int value = 0;
        try {
            value = co_await inner;
        } catch (const ErrorException& error) {
            value = error.matches("error.nqcore.result.cancelled") ? 1 : -1000;
        }
        ++resumed;
        co_return value + co_await last;
    };
    const auto prepare = [&] {
        innermost = Future<int>();
        more = Future<int>();
        resumed = 0;
        outermost = step(step(step(innermost, inFrames), inFrames), inFrames);
    };
    const auto complete = [&] {
        innermost.set_value(1);
        more.set_value(1);
    };
    race(
        prepare, complete, [&] { outermost.cancel(); },
        [&] {
            ASSERT_TRUE(resumed == 3 && inFrames.use_count() == 1) << "the frames are gone";
            ASSERT_TRUE(outermost.has_error() || outermost.get() == 4);
        });
}

TEST(FutureAwait, WaitingMeetsSignalling) {
    Future<int> future;
    Future<int> outcome;
    race([&] { future = Future<int>(); }, [&] { outcome = give(give(future)); }, [&] { future.set_value(7); },
         [&] { ASSERT_TRUE(outcome.is_ready() && outcome.get() == 7); });
}

TEST(ForwardFuture, AnswersAsTheControlAsks) {
    const ErrorInfo::Ptr why = record("error.why");
    const auto forward = []<class T>(const Future<T>& future) {
        return forward_future(future, result_direct_if_synchronous<T>());
    };
    for (const bool ready : {true, false}) {
        Future<int> value = ready ? ready_future(7) : Future<int>();
        Future<void> failure = ready ? failed_future<void>(why) : Future<void>();
        Future<void> done = ready ? ready_future() : Future<void>();
        auto moveOnly = ready ? ready_future(std::make_unique<int>(8)) : Future<std::unique_ptr<int>>();
        const Future<int> filled;
        const Result<int> direct = forward(value);
        const Result<int> inFuture = forward_future(value, result_future(filled));
        const Result<void> failed = forward(failure);
        const Result<void> nothing = forward(done);
        const Result<std::unique_ptr<int>> moved = forward(moveOnly);
        EXPECT_FALSE(forward_future(value, result_ignored<int>()).is_waitable());
        EXPECT_TRUE(direct.is_ready() == ready && direct.future().is_null() == ready);
        value.set_value(7);
        failure.set(why);
        done.set_value();
        moveOnly.set_value(std::make_unique<int>(8));
        EXPECT_EQ(direct.get() + filled.get() + inFuture.get() + *moved.get(), 29);
        EXPECT_TRUE(failed.error_info() == why && nothing.has_value());
    }
}

TEST(ForwardFuture, CancellationReachesTheFuture) {
    Future<int> future;
    const Result<int> result =
        forward_future(give(future_result(future)).future(), result_direct_if_synchronous<int>());
    result.cancel(true, record("error.cause"));
    EXPECT_EQ(future.error_info(), result.error_info());
    EXPECT_THAT(result.error_info(), isCancelledByCause);

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
