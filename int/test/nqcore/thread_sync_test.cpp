#include "nqcore/thread_sync.h"

#include "nqcore/abs_rel_time.h"

#include <ace/OS_NS_errno.h>
#include <ace/Time_Value.h>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

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

TEST(NullMutex, IsAlwaysFree) {
    NullMutex mutex;
    const std::lock_guard lock(mutex);
    EXPECT_EQ(mutex.acquire() | mutex.tryacquire() | mutex.release(), 0);
    EXPECT_TRUE(std::unique_lock(mutex, std::try_to_lock).owns_lock());
}

struct Synchronised : testing::Test {
    ThreadMutex mutex;
    ThreadCondition condition{mutex};
    ThreadCondition other{mutex};
};

// Two threads take turns; each wakes the other and waits for it.
TEST_F(Synchronised, ThreadsHandOver) {
    constexpr unsigned s_turns = 1'000;
    EXPECT_EQ(&condition.mutex(), &mutex);
    unsigned turn = 0;
    const auto play = [&](unsigned side) {
        ThreadCondition* const conditions[] = {&condition, &other};
        const std::lock_guard lock(mutex);
        for (unsigned i = 0; i < s_turns; ++i) {
            while (turn % 2 != side) {
                ASSERT_EQ(conditions[side]->wait(), 0);
            }
            ++turn;
            ASSERT_EQ(conditions[1 - side]->signal(), 0);
        }
    };
    std::thread second(play, 1u);
    play(0);
    second.join();
    EXPECT_EQ(turn, 2 * s_turns);
}

// 4294967296 ms are 0 in the 32 bits in which Windows counts them, 2147483 s the last that ACE can convert.
TEST_F(Synchronised, FarDeadlinesWaitUntilABroadcastWakesAll) {
    const AbsoluteTime deadlines[] = {
        AbsoluteTime::infinite,
        AbsoluteTime(RelativeTime::milliseconds(4'294'967'299)),
        AbsoluteTime(RelativeTime::seconds(2'147'600)),
        AbsoluteTime::max_time,
    };
    unsigned waiting = 0;
    bool open = false;
    std::vector<std::thread> threads;
    for (const AbsoluteTime deadline : deadlines) {
        threads.emplace_back([&, deadline] {
            const std::lock_guard lock(mutex);
            ++waiting;
            other.signal();
            while (!open) {
                ASSERT_EQ(condition.wait(deadline), 0) << deadline.as_nsec();
            }
        });
    }
    {
        const std::lock_guard lock(mutex);
        while (waiting < std::size(deadlines)) {
            other.wait(static_cast<const ACE_Time_Value*>(nullptr));
        }
        // Time in which a wait that cannot last would end.
        const AbsoluteTime soon(RelativeTime::milliseconds(5));
        while (other.wait(soon) == 0) {
        }
        open = true;
        EXPECT_EQ(condition.broadcast(), 0);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(Synchronised, PastDeadlinesTimeOut) {
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
            EXPECT_EQ(errno, ETIME) << deadline.as_nsec();
            EXPECT_EQ(result, -1) << deadline.as_nsec();
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

// Who polls with a time that has passed lets the others in.
TEST_F(Synchronised, PollingFreesTheMutex) {
    bool done = false;
    mutex.acquire();
    std::thread thread([&] {
        const std::lock_guard lock(mutex);
        done = true;
    });
    while (!done) {
        EXPECT_EQ(condition.wait(AbsoluteTime::zero), -1);
    }
    mutex.release();
    thread.join();
}

TEST(ScopedThreadName, TakesAnything) {
    const ScopedThreadName name("worker", 6);
    const ScopedThreadName none(nullptr, 0xFFFFFFFFu);
}

}  // namespace
}  // namespace nqcore
