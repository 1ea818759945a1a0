#include "nqcore/future.h"
#include "error_test_support.h"
#include "nqcore/abs_rel_time.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace nqcore {
namespace {

/// Notes what it is told, and what the future says meanwhile.
struct Observer : IFutureObserver<int>, RefCounted<AtomicRefCount> {
    void on_future_error(const ErrorInfo::Ptr& error) override {
        note(error->matches("error.nqcore.result.cancelled") ? "cancelled" : "error");
    }
    void on_future_value(const int& value) override { note("value " + std::to_string(value)); }

    void note(std::string text) {
        log += log.empty() ? text : "; " + text;
        if (throws) {
            throw std::runtime_error("from an observer");
        }
    }

    std::string log;
    bool throws = false;
};

TEST(Future, BecomesReadyOnce) {
    Future<int> future;
    EXPECT_FALSE(future.is_ready());
    EXPECT_FALSE(future.has_value());
    EXPECT_FALSE(future.has_error());
    EXPECT_EQ(future.error_info(), nullptr);
    EXPECT_TRUE(future.set_value(7));
    EXPECT_TRUE(future.has_value());
    EXPECT_FALSE(future.has_error());
    EXPECT_FALSE(future.set(record()));
    EXPECT_FALSE(future.set_value(8));
    EXPECT_FALSE(future.cancel());
    EXPECT_EQ(future.get(), 7);
    EXPECT_EQ(future.error_info(), nullptr);

    const ErrorInfo::Ptr first = record("error.first");
    Future<void> failed;
    EXPECT_TRUE(failed.set(first));
    EXPECT_FALSE(failed.set(record("error.second")));
    EXPECT_FALSE(failed.set_value());
    EXPECT_TRUE(failed.has_error());
    EXPECT_FALSE(failed.has_value());
    EXPECT_EQ(failed.error_info(), first);
    EXPECT_THAT([&] { failed.get(); }, ThrowsError(HasCode("error.first")));
}

TEST(Future, NullErrorAndNullHandleAreRefused) {
    Future<int> future;
    EXPECT_THAT([&] { future.set(nullptr); }, ThrowsError(AllOf(HasCode("error.nqcore.future.nullError"),
                                                                HasMessage("Cannot signal Future with a NULL error"),
                                                                HasCause(HasParam("errno", "22")))));
    EXPECT_FALSE(future.is_ready());
    const Future<int> null(nullptr);
    EXPECT_TRUE(null.is_null());
    EXPECT_THAT([&] { null.wait(); }, ThrowsError(AllOf(HasCode("error.nqcore.result.badParameter"),
                                                        HasMessage("Invalid 'future' value: NULL"))));
}

TEST(Future, WaitsThatCannotSucceedAnswerAtOnce) {
    const Future<void> pending;
    for (const RelativeTime timeout : {RelativeTime::zero, RelativeTime::min_time, RelativeTime::milliseconds(-5)}) {
        EXPECT_FALSE(pending.wait(timeout));
    }
    for (const AbsoluteTime deadline : {AbsoluteTime::zero, AbsoluteTime::min_time, AbsoluteTime::now()}) {
        EXPECT_FALSE(pending.wait(deadline));
    }
    EXPECT_FALSE(pending.wait(RelativeTime::milliseconds(5)));
    EXPECT_FALSE(pending.wait(AbsoluteTime(RelativeTime::milliseconds(5))));
    const Future<void> ready = ready_future();
    EXPECT_TRUE(ready.wait(RelativeTime::min_time));
    EXPECT_TRUE(ready.wait(AbsoluteTime::min_time));
    ready.wait();
}

TEST(Future, WakesEveryWaiter) {
    // 2^32 + 3 ms: systems that count milliseconds in 32 bits would wake after 3 of them.
    const RelativeTime weeks = RelativeTime::milliseconds(4'294'967'299);
    const struct {
        RelativeTime timeout;
        AbsoluteTime deadline;
    } rows[] = {
        {RelativeTime::seconds(60), AbsoluteTime(RelativeTime::seconds(60))},
        {weeks, AbsoluteTime(weeks)},
        {RelativeTime::max_time, AbsoluteTime::max_time},
        {RelativeTime::infinite, AbsoluteTime::infinite},
    };
    for (const auto& row : rows) {
        Future<int> future;
        std::atomic<int> waiting = 0;
        std::atomic<int> sum = 0;
        std::vector<std::thread> waiters;
        const auto wait_then_add = [&](auto wait) {
            waiters.emplace_back([&, wait] {
                ++waiting;
                if (wait()) {
                    sum += future.get();
                }
            });
        };
        wait_then_add([&] { return future.wait(), true; });
        wait_then_add([&] { return future.wait(row.timeout); });
        wait_then_add([&] { return future.wait(row.deadline); });
        while (waiting < 3) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        future.set_value(3);
        for (std::thread& waiter : waiters) {
            waiter.join();
        }
        EXPECT_EQ(sum, 9) << row.timeout.as_nsec();
    }
}

TEST(Future, TellsObserversInOrderAndReleasesThem) {
    Future<int> future;
    RefCountPtr<Observer> observers[3];
    for (RefCountPtr<Observer>& observer : observers) {
        observer = RefCountPtr<Observer>(new Observer);
        EXPECT_TRUE(future.add_observer(observer.get(), impl::FutureObserverOwner(observer.get())));
        EXPECT_FALSE(observer->has_unique_ref());
    }
    observers[1]->throws = true;
    EXPECT_TRUE(future.remove_observer(observers[0].get()));
    EXPECT_FALSE(future.remove_observer(observers[0].get()));
    EXPECT_TRUE(future.set_value(5));
    EXPECT_EQ(observers[0]->log, "");
    EXPECT_EQ(observers[1]->log, "value 5");  // and its exception keeps nobody else from hearing
    EXPECT_EQ(observers[2]->log, "value 5");
    EXPECT_FALSE(future.remove_observer(observers[2].get()));
    for (const RefCountPtr<Observer>& observer : observers) {
        EXPECT_TRUE(observer->has_unique_ref());
    }
    EXPECT_FALSE(future.add_observer(observers[0].get()));
    EXPECT_EQ(observers[0]->log, "");

    Future<int> failing;
    failing.add_observer(observers[0].get());
    failing.cancel();
    EXPECT_EQ(observers[0]->log, "cancelled");
}

struct ThrowsWhenMoved {
    explicit ThrowsWhenMoved(int* liveObjects) : live(liveObjects) { ++*live; }
    ThrowsWhenMoved(ThrowsWhenMoved&& other) : live(other.live) {
        if (--movesLeft < 0) {
            throw std::runtime_error("moved");
        }
        ++*live;
    }
    ~ThrowsWhenMoved() { --*live; }
    int* live;
    static inline int movesLeft = 0;
};

TEST(Future, ValuesMayBeMoveOnlyAndMayThrow) {
    Future<std::unique_ptr<int>> future;
    future.set_value(std::make_unique<int>(4));
    EXPECT_EQ(*future.get(), 4);
    EXPECT_EQ(*future.take(), 4);

    int live = 0;
    {
        Future<ThrowsWhenMoved> throwing;
        ThrowsWhenMoved::movesLeft = 1;  // into the call, but not into the future
        EXPECT_THROW(throwing.set_value(ThrowsWhenMoved(&live)), std::runtime_error);
        EXPECT_FALSE(throwing.is_ready());
        EXPECT_EQ(live, 0);
        ThrowsWhenMoved::movesLeft = 2;
        EXPECT_TRUE(throwing.set_value(ThrowsWhenMoved(&live)));
        EXPECT_EQ(live, 1);
    }
    EXPECT_EQ(live, 0);
}

TEST(Future, OneSignalOfManyWins) {
    for (int round = 0; round < 2000; ++round) {
        Future<int> future;
        std::vector<int> won(3, 0);
        std::vector<int> seen(3, 0);
        run_on_threads(won, [&](int& wins) {
            const int index = static_cast<int>(&wins - won.data());
            wins = (index == 2 ? future.cancel() : future.set_value(static_cast<int>(index))) ? 1 : 0;
            future.wait(RelativeTime::seconds(60));
            seen[static_cast<std::size_t>(index)] = future.has_value() ? future.get() : 2;
        });
        ASSERT_EQ(won[0] + won[1] + won[2], 1);
        for (const int outcome : seen) {
            ASSERT_EQ(won[static_cast<std::size_t>(outcome)], 1);
        }
        round += 39;
    }
}

}  // namespace
}  // namespace nqcore
