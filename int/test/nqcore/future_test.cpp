#include "nqcore/future.h"
#include "error_test_support.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/barrier.h"
#include "nqcore/monotonic_time.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace nqcore {
namespace {

/// Notes what it is told, and what the future says meanwhile.
struct Observer : IFutureObserver<int> {
    explicit Observer(const Future<int>& observed) : future(observed) {}
    void on_future_error(const ErrorInfo::Ptr&) override {}
    void on_future_value(const int& value) override {
        told = value;
        isReady = future.wait(RelativeTime::zero) || future.is_ready() || future.has_value() || future.has_error();
        throw std::runtime_error("from an observer");
    }
    Future<int> future;
    int told = 0;
    bool isReady = false;
};

TEST(Future, OfNothingBecomesReadyOnce) {
    const ErrorInfo::Ptr first = record("error.first");
    Future<void> failed;
    EXPECT_EQ(failed.error_info(), nullptr);
    EXPECT_TRUE(failed.set(first));
    EXPECT_FALSE(failed.set_value());
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
    const Future<void> ready = ready_future();
    for (const auto time : {RelativeTime::zero, RelativeTime::min_time, RelativeTime::milliseconds(5)}) {
        EXPECT_TRUE(!pending.wait(time) && !pending.wait(AbsoluteTime(time)));
        EXPECT_TRUE(ready.wait(time) && ready.wait(AbsoluteTime(time)));
    }
    EXPECT_FALSE(pending.wait(AbsoluteTime::now()));
    ready.wait();
}

TEST(Future, WaitsEndNoEarlierThanTheirTime) {
    const Future<void> pending;
    AnyFutureBarrier barrier;
    barrier.push_back(pending);
    for (const int us : {300, 900, 1400, 2999}) {
        const AbsoluteTime deadline = AbsoluteTime::now() + RelativeTime::microseconds(us);
        EXPECT_FALSE(pending.wait(deadline));
        EXPECT_GE(AbsoluteTime::now(), deadline) << us;
        const AbsoluteTime later = AbsoluteTime::now() + RelativeTime::microseconds(us);
        EXPECT_FALSE(barrier.wait(later));
        EXPECT_GE(AbsoluteTime::now(), later) << us;
        const MonotonicTime start = MonotonicTime::now();
        EXPECT_FALSE(pending.wait(RelativeTime::microseconds(us)));
        EXPECT_GE(MonotonicTime::now() - start, RelativeTime::microseconds(us));
    }
}

// 4294967296 ms are 0 in the 32 bits in which Windows counts them, 2147483 s the last that ACE can convert.
TEST(Future, FarTimesWaitUntilTheSignalWakesAll) {
    const RelativeTime times[] = {RelativeTime::milliseconds(4'294'967'299), RelativeTime::seconds(2'147'600),
                                  RelativeTime::nanoseconds(7'000'000'000'000'000'000), RelativeTime::infinite};
    Future<int> future;
    std::vector<int> seen(2 * std::size(times) + 1);
    std::atomic<std::size_t> waiting = 0;
    run_on_threads(seen, [&](int& value) {
        const std::size_t index = static_cast<std::size_t>(&value - seen.data());
        if (++waiting == seen.size()) {
            EXPECT_FALSE(future.wait(RelativeTime::milliseconds(5)));  // meanwhile the others wait
            future.set_value(3);
        }
        const RelativeTime time = times[index / 2 % std::size(times)];
        if (index % 2 == 0 ? future.wait(time) : future.wait(AbsoluteTime(time))) {
            value = future.get();
        }
    });
    EXPECT_EQ(seen, std::vector<int>(seen.size(), 3));
}

// Order, removal and release: future_model_test.cpp.
TEST(Future, AnObserverThatThrowsKeepsNobodyFromHearing) {
    Future<int> future;
    Observer observers[] = {Observer(future), Observer(future)};
    for (Observer& observer : observers) {
        EXPECT_TRUE(future.add_observer(&observer));
    }
    testing::internal::CaptureStderr();
    EXPECT_TRUE(future.set_value(5));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("from an observer"));
    for (const Observer& observer : observers) {
        EXPECT_TRUE(observer.told == 5 && !observer.isReady);
    }
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

}  // namespace
}  // namespace nqcore
