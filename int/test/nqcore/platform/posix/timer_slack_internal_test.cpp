// How requests for a timer period reach the timer slack of threads.
#include "platform/timer_period.h"

#include <sys/prctl.h>

#include <gtest/gtest.h>
#include <thread>

namespace nqcore::platform {
namespace {

constexpr int s_ms = 1'000'000;

int slack() { return prctl(PR_GET_TIMERSLACK); }

// The slack that a new thread sees after each step, its own being 20 ms.
TEST(TimerSlack, FollowsTheFinestRequest) {
    std::thread([] {
        ASSERT_EQ(prctl(PR_SET_TIMERSLACK, 20 * s_ms), 0);
        EXPECT_EQ(end_timer_period(5), 97u);  // no such request
        struct {
            unsigned (*change)(unsigned) noexcept;
            unsigned period;
            int slackMs;
        } const steps[] = {
            {begin_timer_period, 30, 20}, {begin_timer_period, 5, 5}, {begin_timer_period, 1, 1},
            {begin_timer_period, 1, 1},   {end_timer_period, 1, 1},   {end_timer_period, 1, 5},
            {end_timer_period, 5, 20},    {end_timer_period, 30, 20},
        };
        for (const auto& step : steps) {
            EXPECT_EQ(step.change(step.period), 0u);
            EXPECT_EQ(slack(), step.slackMs * s_ms) << step.period;
        }
    }).join();
}

TEST(TimerSlack, IsThatOfTheThreadThatAsks) {
    const int mine = slack();
    EXPECT_EQ(begin_timer_period(1), 0u);
    EXPECT_EQ(slack(), mine);  // finer already
    std::thread([] {
        prctl(PR_SET_TIMERSLACK, 20 * s_ms);
        EXPECT_EQ(begin_timer_period(10), 0u);
        EXPECT_EQ(slack(), 1 * s_ms);  // the finest of the process
        EXPECT_EQ(begin_timer_period(5), 0u);
        EXPECT_EQ(end_timer_period(10), 0u);
        EXPECT_EQ(slack(), 1 * s_ms);
        EXPECT_EQ(end_timer_period(5), 0u);
        EXPECT_EQ(slack(), 20 * s_ms);  // its own, though the other thread's request goes on
    }).join();
    EXPECT_EQ(begin_timer_period(3), 0u);
    std::thread([] {
        prctl(PR_SET_TIMERSLACK, 20 * s_ms);
        EXPECT_EQ(end_timer_period(3), 0u);  // of the process, but not this thread's
        EXPECT_EQ(slack(), 20 * s_ms);
    }).join();
    EXPECT_EQ(end_timer_period(1), 0u);
    EXPECT_EQ(slack(), mine);
}

}  // namespace
}  // namespace nqcore::platform
