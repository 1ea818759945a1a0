// Sizes and offsets that modules built earlier rely on.
#include "nqcore/barrier.h"
#include "nqcore/monotonic_time.h"
#include "nqcore/result_auto_signal.h"
#include "nqcore/result_control.h"
#include "nqcore/scheduler.h"
#include "nqcore/static_instance.h"
#include "nqcore/task.h"
#include "nqcore/thread_sync.h"

#include "error_test_support.h"
#include "static_instance_cleanup.h"

#include <ace/Event.h>
#include <ace/OS_NS_Thread.h>
#include <ace/Thread_Mutex.h>
#include <type_traits>

namespace nqcore {
namespace {

static_assert(sizeof(impl::AsyncOp) == 8 && sizeof(impl::ResultImplBase) == 8);
static_assert(sizeof(impl::ValueResultImpl<void>) == 8 && sizeof(impl::ErrorResultImpl<void>) == 12 &&
              sizeof(impl::FutureResultImpl<void>) == 12);
static_assert(sizeof(Result<void>) == 4 && sizeof(Result<std::string>) == 4);
static_assert(sizeof(ResultControlBase) == 12 && sizeof(ResultControl<void>) == 32 &&
              sizeof(ResultControlIgnored<void>) == 32 && sizeof(ResultControlIgnoredIfAsync<void>) == 32 &&
              sizeof(ResultControlFutureRef<void>) == 36 && sizeof(AsyncHandlerAdapterControl<void>) == 36);
static_assert(sizeof(AsyncResultBase) == 12 && sizeof(impl::AsyncResultIgnored<void>) == 12 &&
              sizeof(impl::AsyncResultCancelled<void>) == 12 && sizeof(impl::AsyncResultError<void>) == 12 &&
              sizeof(impl::AsyncResultFuture<void>) == 16);
static_assert(sizeof(AutoSignalAsyncResult<void>) == 16 && sizeof(AutoSignalAsyncResult<std::string>) == 16);
static_assert(sizeof(Future<void>) == 4 && sizeof(impl::FutureImplBase::Observer) == 8);
static_assert(sizeof(impl::FutureImpl<void>) == 8 + sizeof(ACE_Thread_Mutex) + 4 + 4 + 12 + sizeof(ACE_Event));
static_assert(sizeof(AnyFutureBarrier) == 12 && sizeof(AnyFutureBarrier::AnyFuture) == 4 &&
              sizeof(AnyResultBarrier) == 12 && sizeof(AnyResultBarrier::AnyResult) == 4);
static_assert(sizeof(impl::TaskExecutionOptions) == 8 && sizeof(TaskInvocationContext) == 16 &&
              sizeof(AsyncOpHandle) == 4);
static_assert(sizeof(ThreadMutex) == sizeof(ACE_Thread_Mutex) && sizeof(ThreadCondition) == sizeof(ACE_cond_t) + 4 &&
              std::is_empty_v<NullMutex> && sizeof(ScopedThreadName) == 4);
static_assert(sizeof(MonotonicTimeBase) == 8 && sizeof(TimeProviderQpc) == 8 && std::is_empty_v<TimeProviderMm> &&
              std::is_empty_v<impl::StaticInstanceBase>);
static_assert(sizeof(impl::StaticInstanceCleanup) ==
              sizeof(ACE_Thread_Mutex) + sizeof(std::deque<std::pair<void (*)(void*), void*>>) + 4);

// What lies `offset` bytes into an object.
template <class Field = const void*, class Object>
Field field(const Object& object, std::size_t offset) {
    Field value{};
    std::memcpy(&value, reinterpret_cast<const char*>(&object) + offset, sizeof value);
    return value;
}

struct Observer : IFutureObserver<void>, RefCounted<AtomicRefCount> {
    void on_future_error(const ErrorInfo::Ptr&) override {}
    void on_future_success() override {}
};

TEST(AsyncLayout, Futures) {
    constexpr std::size_t ready = 8 + sizeof(ACE_Thread_Mutex);
    const Future<void> future;
    const auto& state = *future.shared();
    const RefCountPtr<Observer> observer(new Observer);
    future.add_observer(observer.get(), impl::FutureObserverOwner(observer.get()));
    EXPECT_EQ(field<int>(state, 4), 1);
    EXPECT_FALSE(field<bool>(state, ready));
    const auto* const entries = field<const void* const*>(state, ready + 8);
    EXPECT_EQ(entries[0], static_cast<const IFutureObserverBase*>(observer.get()));
    EXPECT_EQ(entries[1], static_cast<const RefCounted<AtomicRefCount>*>(observer.get()));
    const ErrorInfo::Ptr error = record();
    future.shared()->set(error);
    EXPECT_TRUE(field<bool>(state, ready));
    EXPECT_EQ(field(state, ready + 4), error.get());
    EXPECT_EQ(field(state, ready + 8), nullptr);
}

struct Attachment : impl::ControlAttachment {};

TEST(AsyncLayout, ResultsControlsAndHandlers) {
    const Future<void> future;
    const void* const state = future.shared().get();
    const ErrorInfo::Ptr error = record();
    EXPECT_EQ(field(*RefCountPtr<impl::ErrorResultImpl<void>>(new impl::ErrorResultImpl<void>(error)), 8), error.get());
    EXPECT_EQ(field(*RefCountPtr<impl::FutureResultImpl<void>>(new impl::FutureResultImpl<void>(future)), 8), state);

    ResultControlFutureRef<void> control(future);
    EXPECT_EQ(field(control, 12), nullptr);
    EXPECT_EQ(static_cast<void*>(&control.attach<Attachment>()), reinterpret_cast<char*>(&control) + 16);
    EXPECT_EQ(field(control, 12), reinterpret_cast<char*>(&control) + 16);
    EXPECT_EQ(field(control, 32), state);
    const RefCountPtr<AsyncResult<void>> handler = control.create_async_handler();
    EXPECT_EQ(field(*handler, 12), state);
    EXPECT_EQ(field(handler->as_control(), 32), handler.get());

    const AutoSignalAsyncResult<void> holder(handler, error);
    EXPECT_EQ(*field<const void* const*>(holder, 0), handler.get());
    EXPECT_EQ(field(holder, 12), error.get());
    AnyFutureBarrier barrier;
    barrier.push_back(future);
    EXPECT_EQ(*field<const void* const*>(barrier, 0), state);
}

TEST(AsyncLayout, TasksAndConditions) {
    struct Nowhere : IThreadAffinity {
        [[nodiscard]] bool is_current_thread() const override { return false; }
        void post(RefCountPtr<ITask>) override {}
    } thread;
    TaskInvocationContext context(thread);
    context.cancel_after(RelativeTime::seconds(1));
    EXPECT_EQ(field(context, 0), &thread);
    EXPECT_EQ(field<std::int64_t>(context, 8), context.options().deadline().as_nsec());
    ThreadMutex mutex;
    EXPECT_EQ(field(ThreadCondition(mutex), sizeof(ACE_cond_t)), &mutex);
    EXPECT_EQ(field<unsigned>(ScopedThreadName("name", 4), 0), 0u);
}

}  // namespace
}  // namespace nqcore
