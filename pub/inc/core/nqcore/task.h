// What a task executor shares with the operations that it runs: the invocation context, the thread-affinity interface, a
// handle that cancels any operation, and single-use tasks that tell when they are not run, run twice or run late.
//
//     auto task = make_single_use_task(outcome, TaskInvocationContext(executor).cancel_after(RelativeTime::seconds(2)),
//                                      [] { return fetch(); }, NQCORE_HERE);
//     executor.post(task);                // runs it on a thread of its own
//     use(outcome.get());                 // the value, or the error of the task
//
// The library ships no executor: examples/ has one of a hundred lines.
#pragma once

#include "nqcore/abs_rel_time.h"
#include "nqcore/config.h"
#include "nqcore/error_info.h"
#include "nqcore/fault_report.h"
#include "nqcore/future.h"
#include "nqcore/refcounted.h"
#include "nqcore/result.h"
#include "nqcore/source_location.h"

#include <type_traits>

namespace nqcore {

namespace impl {

/// By when a task must begin.
class NQCORE_API TaskExecutionOptions {
public:
    /// No deadline.
    constexpr TaskExecutionOptions() noexcept = default;
    constexpr explicit TaskExecutionOptions(AbsoluteTime deadline) noexcept : m_deadline(deadline) {}

    /// Nanoseconds on the clock of `TimeProviderMm`; infinite means no deadline.
    [[nodiscard]] constexpr AbsoluteTime deadline() const noexcept { return m_deadline; }

private:
    AbsoluteTime m_deadline = AbsoluteTime::from_nsec(AbsoluteTime::TIMEVALUE_INFINITE);
};

[[nodiscard]] NQCORE_API RefCountPtr<const ErrorInfo> task_not_executed_error(const void* task,
                                                                              const SourceLocation& location);
[[nodiscard]] NQCORE_API RefCountPtr<const ErrorInfo> task_expired_error(const void* task, const RelativeTime& overtime,
                                                                         const SourceLocation& location);
[[noreturn]] NQCORE_API NQCORE_COLD void throw_redundant_task_execution_error(const void* task,
                                                                              const SourceLocation& location);

}  // namespace impl

/// Work that an executor runs once.
class NQCORE_API ITask : public RefCounted<AtomicRefCount> {
public:
    /// Runs the task on the calling thread.
    ///
    /// Errors   "error.nqcore.task.redundantExecution" for a second call. Any other failure is the task's outcome.
    virtual void execute() = 0;
    ~ITask() override;
};

/// An executor, seen from its tasks: the thread, or threads, that they run on.
class NQCORE_API IThreadAffinity {
public:
    /// True on a thread that tasks of this executor run on.
    [[nodiscard]] virtual bool is_current_thread() const = 0;
    /// Takes a task; it is run later, on a thread of the executor.
    ///
    /// Threads  any.
    virtual void post(RefCountPtr<ITask> task) = 0;

protected:
    ~IThreadAffinity();
};

/// Where a task runs and by when it must begin.
///
/// Lifetime refers to the executor, which must outlive it.
class NQCORE_API TaskInvocationContext {
public:
    explicit TaskInvocationContext(IThreadAffinity& thread) noexcept : m_thread(&thread) {}

    [[nodiscard]] IThreadAffinity& thread() const noexcept { return *m_thread; }
    [[nodiscard]] const impl::TaskExecutionOptions& options() const noexcept { return m_options; }

    /// The task must begin within `timeout` from now; infinite takes the deadline away.
    ///
    /// Units    the sum is not saturated: a time-out of centuries is the caller's responsibility.
    TaskInvocationContext& cancel_after(const RelativeTime& timeout) noexcept;

private:
    IThreadAffinity* m_thread;
    impl::TaskExecutionOptions m_options;
};

/// Cancels an operation of any type, once; may be empty.
class NQCORE_API AsyncOpHandle {
public:
    AsyncOpHandle() noexcept = default;
    AsyncOpHandle(const ResultBase& result) noexcept;
    AsyncOpHandle& operator=(const ResultBase& result) noexcept;

    /// Takes the operation out and asks it to stop. A second call does nothing.
    ///
    /// Errors   what the operation throws, `std::bad_alloc` among it; the handle keeps the operation then.
    void cancel(bool interrupt, const RefCountPtr<const ErrorInfo>& cause);
    [[nodiscard]] bool empty() const noexcept { return m_operation.is_null(); }

private:
    RefCountPtr<const impl::AsyncOp> m_operation;
};

namespace impl {

/// A task that runs once, in time, or says why not.
///
///     waiting --execute, in time--> running --> done: the outcome is what `run` signals
///        |    \--execute, too late--> done: "error.nqcore.task.timeLimitExpired"
///        |     (any further execute throws "error.nqcore.task.redundantExecution")
///        \--destroyed--> "error.nqcore.task.notExecuted"
class NQCORE_API SingleUseTaskBase : public ITask {
public:
    void execute() final;

protected:
    SingleUseTaskBase(const TaskExecutionOptions& options, const SourceLocation& location) noexcept
        : m_options(options), m_location(location) {}
    ~SingleUseTaskBase() override;

    virtual void run() = 0;
    virtual void fail(RefCountPtr<const ErrorInfo> error) = 0;

    [[nodiscard]] bool begun() const noexcept { return __atomic_load_n(&m_begun, __ATOMIC_ACQUIRE); }
    /// For the destructor of the derived class.
    void fail_if_not_executed() noexcept;
    [[nodiscard]] const SourceLocation& location() const noexcept { return m_location; }

private:
    void fail_as_expired(RelativeTime overtime);

    TaskExecutionOptions m_options;
    SourceLocation m_location;
    bool m_begun = false;
};

template <class T, class Work>
class SingleUseTask final : public SingleUseTaskBase {
public:
    SingleUseTask(const Future<T>& outcome, const TaskExecutionOptions& options, Work&& work,
                  const SourceLocation& location)
        : SingleUseTaskBase(options, location), m_outcome(outcome), m_work(static_cast<Work&&>(work)) {
        if (outcome.is_null()) {
            raise_null_future_error();
        }
    }
    ~SingleUseTask() override {
        fail_if_not_executed();
        signal_abandoned_future(*m_outcome.shared());  // when there was no memory for that error
    }

protected:
    void run() override {
        if (m_outcome.is_ready()) {
            return;  // cancelled before it began
        }
        try {
            if constexpr (std::is_void_v<T>) {
                m_work();
                m_outcome.set_value();
            } else {
                m_outcome.set_value(m_work());
            }
        } catch (...) {
            m_outcome.set(error_in_flight(location()));
        }
    }
    void fail(RefCountPtr<const ErrorInfo> error) override {
        m_outcome.set(static_cast<RefCountPtr<const ErrorInfo>&&>(error));
    }

private:
    Future<T> m_outcome;
    Work m_work;
};

}  // namespace impl

/// A task that fills `outcome` with what `work()` returns or throws, or with why it was not run. A future that is ready
/// (cancelled) before the task begins keeps it from running.
///
/// In       `location`: names the place in the task's errors.
template <class T, class Work>
[[nodiscard]] RefCountPtr<ITask> make_single_use_task(const Future<T>& outcome, const TaskInvocationContext& context,
                                                      Work work, const SourceLocation& location) {
    return RefCountPtr<ITask>(
        new impl::SingleUseTask<T, Work>(outcome, context.options(), static_cast<Work&&>(work), location));
}

}  // namespace nqcore
