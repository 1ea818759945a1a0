#include "nqcore/task.h"
#include "error_test_support.h"
#include "nqcore/monotonic_time.h"
#include "nqcore/result_auto_signal.h"
#include "nqcore/result_control.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace nqcore {
namespace {

using testing::EndsWith;
using testing::StartsWith;

struct NoThread : IThreadAffinity {
    [[nodiscard]] bool is_current_thread() const override { return false; }
    void post(RefCountPtr<ITask>) override {}
};

TEST(TaskInvocationContext, DeadlinesAreOnTheProvidersClock) {
    NoThread thread;
    TaskInvocationContext context(thread);
    EXPECT_EQ(&context.thread(), &thread);
    EXPECT_TRUE(context.options().deadline().is_infinite());
    const RelativeTime before = TimeProviderMm::now();
    const AbsoluteTime deadline = context.cancel_after(RelativeTime::zero).options().deadline();
    EXPECT_LE(before.as_nsec(), deadline.as_nsec());
    EXPECT_LE(deadline.as_nsec(), TimeProviderMm::now().as_nsec());
    EXPECT_TRUE(context.cancel_after(RelativeTime::infinite).options().deadline().is_infinite());
}

TEST(AsyncOpHandle, CancelsOnce) {
    AsyncOpHandle handle;
    const Future<int> future;
    handle = future_result(future);
    EXPECT_FALSE(handle.empty());
    handle.cancel(true, record("error.why"));
    EXPECT_TRUE(handle.empty());
    EXPECT_THAT(future.error_info(), HasCause(HasCode("error.why")));
    handle.cancel(true, nullptr);
}

TEST(SingleUseTask, RunsOnceOrSaysWhyNot) {
    NoThread thread;
    int runs = 0;
    const auto make = [&](const Future<int>& outcome, RelativeTime limit = RelativeTime::infinite) {
        const auto work = [&runs] { return ++runs < 2 ? 5 : throw std::out_of_range("at 7"); };
        return make_single_use_task(outcome, TaskInvocationContext(thread).cancel_after(limit), work, s_location);
    };
    const Future<int> futures[5];
    const RefCountPtr<ITask> task = make(futures[0]);
    task->execute();
    EXPECT_EQ(futures[0].get(), 5);
    EXPECT_THAT([&] { task->execute(); },
                ThrowsError(AllOf(HasCode("error.nqcore.task.redundantExecution"),
                                  HasMessage(AllOf(StartsWith("The single-use task at 0x"),
                                                   EndsWith(" has been executed previously."))))));
    make(futures[1])->execute();
    EXPECT_THAT(futures[1].error_info(), HasMessage("at 7"));
    (void)make(futures[2]);
    EXPECT_THAT(futures[2].error_info(),
                AllOf(HasCode("error.nqcore.task.notExecuted"),
                      HasMessage(AllOf(StartsWith("The task at 0x"), EndsWith(" was never executed.")))));
    make(futures[3], RelativeTime::milliseconds(-50))->execute();
    EXPECT_THAT(futures[3].error_info(), HasCode("error.nqcore.task.timeLimitExpired"));
    Future<int>(futures[4]).cancel();
    make(futures[4], RelativeTime::seconds(60))->execute();
    EXPECT_EQ(runs, 2);

    const Future<void> nothing;
    make_single_use_task(
        nothing, TaskInvocationContext(thread), [] {}, s_location)
        ->execute();
    EXPECT_TRUE(nothing.has_value());

    const void* const address = reinterpret_cast<const void*>(std::size_t{0xABC});
    EXPECT_THAT(impl::task_expired_error(address, RelativeTime::milliseconds(1500), s_location),
                AllOf(HasMessage("The deadline for executing the task at 0x00000abc expired 1.5s ago."),
                      HasParam("address", "0x00000abc"), HasParam("overtime", "1.5s")));
}

/// Notes who was signalled with what, in order; may throw.
struct Noting : impl::AsyncResultIgnoredBase<int> {
    Noting(std::string& sharedLog, char ownName)
        : AsyncResultIgnoredBase<int>(ResultControlIgnored<int>()), log(sharedLog), name(ownName) {}
    void async_success_impl(int&& value) override { note(std::to_string(value)); }
    void async_error_impl(const ErrorInfo::Ptr& error) override { note(std::string(error->message().view())); }
    void note(const std::string& what) {
        log += name + what + ' ';
        if (name == 'a') {
            throw std::runtime_error("from a handler");
        }
    }
    std::string& log;
    char name;
};

TEST(AutoSignalAsyncResult, SignalsEveryHandlerInOrder) {
    std::string log;
    const auto handlers = [&] {
        std::vector<RefCountPtr<AsyncResult<int>>> list;
        list.emplace_back(new Noting(log, 'a'));
        list.emplace_back(new Noting(log, 'b'));
        return list;
    };
    {
        AutoSignalAsyncResult<int> holder(handlers(), ErrorInfo::Ptr());
        holder.push_back(RefCountPtr<AsyncResult<int>>(new Noting(log, 'c')));
        EXPECT_FALSE(holder.has_failure());
        holder.signal_success(4);
    }
    { const AutoSignalAsyncResult<int> holder(handlers(), ErrorInfo::Ptr()); }
    {
        AutoSignalAsyncResult<int> failing(handlers(), record("error.a", "first"));
        failing.set_failure(record("error.a", "last"));
        failing.signal_success(1);
    }
    const std::string forgotten = "Derived class neither set the failure nor called signal_success(). ";
    EXPECT_EQ(log, "a4 b4 c4 a" + forgotten + "b" + forgotten + "alast blast ");

    const Future<void> futures[2];
    {
        AutoSignalAsyncResult<void> success(result_future(futures[0]).create_async_handler(), ErrorInfo::Ptr());
        success.push_back(result_future(futures[1]).create_async_handler());
        EXPECT_THAT([&] { success.push_back(nullptr); }, ThrowsError(HasCode("error.nqcore.result.badParameter")));
    }
    EXPECT_TRUE(futures[0].has_value() && futures[1].has_value());
}

TEST(DispatchedCompletion, CarriesAnOutcome) {
    const Future<std::string> future;
    const impl::DispatchedCompletion<std::string> completion(std::string("done"));
    impl::DispatchedCompletion<std::string>(completion).signal(*result_future(future).create_async_handler());
    EXPECT_EQ(future.get(), "done");
    const Future<void> failed;
    impl::DispatchedCompletion<void>(record("error.x")).signal(*result_future(failed).create_async_handler());
    EXPECT_THAT(failed.error_info(), HasCode("error.x"));
    EXPECT_EQ(&impl::DispatchedCompletion<void>::value, &nil);
    EXPECT_THROW(impl::DispatchedCompletion<int>(ErrorInfo::Ptr()), ErrorException);
}

}  // namespace
}  // namespace nqcore
