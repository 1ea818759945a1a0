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

// What another thread gets when it tries: 0, or why not.
int tried_elsewhere(ThreadMutex& mutex) {
    int error = 0;
    std::thread([&] { error = mutex.tryacquire() == 0 ? mutex.release() : errno; }).join();
    return error;
}

TEST(ThreadMutex, IsHeldByOneThread) {
    ThreadMutex mutex;
    EXPECT_EQ(mutex.acquire(), 0);
    EXPECT_EQ(tried_elsewhere(mutex), EBUSY);
    EXPECT_EQ(mutex.release(), 0);
    EXPECT_EQ(tried_elsewhere(mutex), 0);
    const std::unique_lock lock(mutex, std::try_to_lock);
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_EQ(tried_elsewhere(mutex), EBUSY);
}

TEST(NullMutex, IsAlwaysFree) {
    NullMutex mutex;
    const std::lock_guard lock(mutex);
    EXPECT_EQ(mutex.acquire() | mutex.tryacquire() | mutex.release(), 0);
}

struct Synchronised : testing::Test {
    ThreadMutex mutex;
    ThreadCondition condition{mutex};
    ThreadCondition other{mutex};
};

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
            while (condition.wait(limit) == 0) {  // nobody signals
            }
            EXPECT_EQ(errno, ETIME) << deadline.as_nsec();
        };
        expect_time_out(deadline);
        // Windows counts whole milliseconds.
        EXPECT_GE(AbsoluteTime::now() + RelativeTime::milliseconds(2), deadline);
        const ACE_Time_Value aceDeadline = deadline.as_ace_time_value();
        expect_time_out(&aceDeadline);
        EXPECT_EQ(tried_elsewhere(mutex), EBUSY);  // held again
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
