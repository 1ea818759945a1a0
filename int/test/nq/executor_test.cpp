#include "executor.h"

#include "nqcore/error_exception.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using nqcore::Future;
using nqcore::RelativeTime;

const RelativeTime s_soon = RelativeTime::seconds(1);

template <class T, class Work>
Future<T> post(nq::Executor& executor, Work work, Future<T> outcome = {}) {
    executor.post(nqcore::make_single_use_task(outcome, nqcore::TaskInvocationContext(executor), work, NQCORE_HERE));
    return outcome;
}

TEST(Executor, RunsEverythingOnItsThreads) {
    nq::Executor executor(3);
    EXPECT_FALSE(executor.is_current_thread());
    std::vector<Future<bool>> outcomes;
    for (int task = 0; task < 1000; ++task) {
        outcomes.push_back(post<bool>(executor, [&] { return executor.is_current_thread(); }));
    }
    for (const Future<bool>& outcome : outcomes) {
        ASSERT_TRUE(outcome.wait(s_soon) && outcome.get());
    }
}

TEST(Executor, RunsAsManyAtOnceAsItHasThreads) {
    nq::Executor executor(3);
    std::atomic<int> running = 0;
    const auto meetTwoOthers = [&] {
        const nqcore::AbsoluteTime deadline(s_soon);
        for (++running; running < 3 && nqcore::AbsoluteTime::now() < deadline;) {
            std::this_thread::yield();
        }
        return running.load();
    };
    Future<int> outcomes[3];
    for (Future<int>& outcome : outcomes) {
        post<int>(executor, meetTwoOthers, outcome);
    }
    for (const Future<int>& outcome : outcomes) {
        EXPECT_EQ(outcome.get(), 3);
    }
}

TEST(Executor, DropsWhatHasNotBegun) {
    Future<void> begun;
    Future<bool> running;
    Future<void> dropped;
    {
        nq::Executor executor(1);
        const auto waitForOther = [&] {
            begun.set_value();
            return dropped.wait(s_soon);
        };
        const auto nothing = [] {};
        post<bool>(executor, waitForOther, running);
        ASSERT_TRUE(begun.wait(s_soon));
        post<void>(executor, nothing, dropped);
    }
    EXPECT_TRUE(running.get()) << "the one that ran was told of the other while it ran";
    ASSERT_TRUE(dropped.has_error());
    EXPECT_TRUE(dropped.error_info()->matches("error.nqcore.task.notExecuted"));
}

struct ThrowingTask final : nqcore::ITask {
    void execute() override { throw std::runtime_error("escapes"); }
};

TEST(Executor, SurvivesATaskThatThrows) {
    nq::Executor executor(1);
    executor.post(nqcore::RefCountPtr<nqcore::ITask>(new ThrowingTask));
    EXPECT_TRUE(post<void>(executor, [] {}).wait(s_soon));
}

}  // namespace
