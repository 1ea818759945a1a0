#include "nqcore/thread_sync.h"

#include "nqcore/abs_rel_time.h"

#include <ace/OS_NS_errno.h>
#include <ace/Time_Value.h>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <type_traits>

namespace nqcore {
namespace {

static_assert(!std::is_copy_constructible_v<ThreadMutex> && !std::is_copy_constructible_v<ThreadCondition>);
static_assert(sizeof(ScopedThreadName) == sizeof(void*) && ScopedThreadName::maxNameLength == 0);

// What another thread gets when it tries, and the reason.
int tried_elsewhere(ThreadMutex& mutex, int& error) {
    int result = 99;
    std::thread([&] {
        errno = 0;
        result = mutex.tryacquire();
        error = errno;
        if (result == 0) {
            mutex.release();
        }
    }).join();
    return result;
}

TEST(ThreadMutex, IsHeldByOneThread) {
    ThreadMutex mutex;
    int error = 0;
    EXPECT_EQ(mutex.acquire(), 0);
    EXPECT_EQ(tried_elsewhere(mutex, error), -1);
    EXPECT_EQ(error, EBUSY);
    EXPECT_EQ(mutex.release(), 0);
    EXPECT_EQ(tried_elsewhere(mutex, error), 0);
    {
        ThreadMutex second;
        const std::scoped_lock both(mutex, second);
        EXPECT_EQ(tried_elsewhere(second, error), -1);
        EXPECT_EQ(tried_elsewhere(mutex, error), -1);
    }
    const std::unique_lock lock(mutex, std::try_to_lock);
    EXPECT_TRUE(lock.owns_lock());
}

TEST(ThreadMutex, GuardsFromEveryCore) {
    ThreadMutex mutex;
    unsigned count = 0;
    const auto work = [&] {
        for (unsigned i = 0; i < 20'000; ++i) {
            const std::lock_guard lock(mutex);
            ++count;
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(count, 40'000u);
}

TEST(NullMutex, IsAlwaysFree) {
    NullMutex mutex;
    const std::lock_guard lock(mutex);
    EXPECT_EQ(mutex.acquire() | mutex.tryacquire() | mutex.release(), 0);
    EXPECT_TRUE(std::unique_lock(mutex, std::try_to_lock).owns_lock());
}

// Two threads take turns; each wakes the other and waits for it: by a condition for each, or by one that wakes both.
TEST(ThreadCondition, HandsOver) {
    constexpr unsigned s_turns = 1'000;
    for (const bool shared : {false, true}) {
        ThreadMutex mutex;
        ThreadCondition conditions[2] = {ThreadCondition(mutex), ThreadCondition(mutex)};
        EXPECT_EQ(&conditions[1].mutex(), &mutex);
        unsigned turn = 0;
        const auto play = [&](unsigned side) {
            const std::lock_guard lock(mutex);
            for (unsigned i = 0; i < s_turns; ++i) {
                while (turn % 2 != side) {
                    ASSERT_EQ(conditions[shared ? 0 : side].wait(), 0);
                }
                ++turn;
                ASSERT_EQ(shared ? conditions[0].broadcast() : conditions[1 - side].signal(), 0);
            }
        };
        std::thread other(play, 1u);
        play(0);
        other.join();
        EXPECT_EQ(turn, 2 * s_turns);
    }
}

TEST(ThreadCondition, BroadcastWakesAll) {
    ThreadMutex mutex;
    ThreadCondition condition(mutex);
    ThreadCondition arrived(mutex);
    unsigned waiting = 0;
    bool open = false;
    const auto wait_for_opening = [&] {
        const std::lock_guard lock(mutex);
        ++waiting;
        arrived.signal();
        while (!open) {
            ASSERT_EQ(condition.wait(AbsoluteTime::infinite), 0);
        }
    };
    std::thread threads[] = {std::thread(wait_for_opening), std::thread(wait_for_opening),
                             std::thread(wait_for_opening)};
    {
        const std::lock_guard lock(mutex);
        while (waiting < std::size(threads)) {
            arrived.wait(static_cast<const ACE_Time_Value*>(nullptr));
        }
        open = true;
        EXPECT_EQ(condition.broadcast(), 0);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(ThreadCondition, PastDeadlinesTimeOut) {
    ThreadMutex mutex;
    ThreadCondition condition(mutex);
    const std::lock_guard lock(mutex);
    const AbsoluteTime deadlines[] = {
        AbsoluteTime::zero,         AbsoluteTime::min_time,
        AbsoluteTime(-1, -500'000),  // a fraction that the system's own wait refuses
        AbsoluteTime::now(),        AbsoluteTime(RelativeTime::milliseconds(15)),
    };
    for (const AbsoluteTime deadline : deadlines) {
        const auto expect_time_out = [&](const auto& limit) {
            errno = 0;
            int result = 0;
            while (result == 0) {  // nobody signals
                result = condition.wait(limit);
            }
            const int error = errno;
            EXPECT_EQ(result, -1) << deadline.as_nsec();
            EXPECT_EQ(error, ETIME) << deadline.as_nsec();
        };
        expect_time_out(deadline);
        // Windows counts whole milliseconds.
        EXPECT_GE(AbsoluteTime::now() + RelativeTime::milliseconds(2), deadline);
        const ACE_Time_Value aceDeadline = deadline.as_ace_time_value();
        expect_time_out(&aceDeadline);
        int error = 0;
        EXPECT_EQ(tried_elsewhere(mutex, error), -1);  // held again
    }
}

// 4294967296 ms are 0 in the 32 bits in which Windows counts them, 2147483 s the last that ACE can convert.
TEST(ThreadCondition, FarDeadlinesWait) {
    const AbsoluteTime deadlines[] = {
        AbsoluteTime(RelativeTime::milliseconds(4'294'967'299)),
        AbsoluteTime(RelativeTime::seconds(2'147'600)),
        AbsoluteTime::max_time,
    };
    for (const AbsoluteTime deadline : deadlines) {
        ThreadMutex mutex;
        ThreadCondition condition(mutex);
        ThreadCondition arrived(mutex);
        bool waiting = false;
        bool done = false;
        std::thread waiter([&] {
            const std::lock_guard lock(mutex);
            waiting = true;
            arrived.signal();
            while (!done) {
                ASSERT_EQ(condition.wait(deadline), 0) << deadline.as_nsec();
            }
        });
        const std::lock_guard lock(mutex);
        while (!waiting) {
            arrived.wait();
        }
        // Time in which a wait that cannot last would end.
        const AbsoluteTime soon(RelativeTime::milliseconds(5));
        while (arrived.wait(soon) == 0) {
        }
        done = true;
        condition.signal();
        mutex.release();
        waiter.join();
        mutex.acquire();
    }
}

// Who polls with a time that has passed lets the others in.
TEST(ThreadCondition, PollingFreesTheMutex) {
    ThreadMutex mutex;
    ThreadCondition condition(mutex);
    bool done = false;
    mutex.acquire();
    std::thread other([&] {
        const std::lock_guard lock(mutex);
        done = true;
    });
    while (!done) {
        EXPECT_EQ(condition.wait(AbsoluteTime::zero), -1);
    }
    mutex.release();
    other.join();
}

TEST(ScopedThreadName, TakesAnything) {
    const ScopedThreadName name("worker", 6);
    const ScopedThreadName none(nullptr, 0xFFFFFFFFu);
}

}  // namespace
}  // namespace nqcore
