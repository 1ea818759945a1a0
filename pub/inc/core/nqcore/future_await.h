// future_await: `co_await` on futures and results, and coroutines that return them.
//
//     Future<Size> copy(Path from, Path to) {
//         const Text text = co_await read(from);        // a Future<Text>; throws its error, the same record
//         co_await write(to, text);                     // a Future<void> or a Result<void>
//         co_return size(text);
//     }
//     Future<Size> done = copy(a, b);                   // runs at once, up to its first wait
//     done.cancel();                                    // cancels what it waits for
//
// doc/async.md has the picture: who owns what when, on which thread things run, what may be destroyed when.
#pragma once

#include "nqcore/after_signal.h"
#include "nqcore/config.h"
#include "nqcore/error_info.h"
#include "nqcore/future.h"
#include "nqcore/refcounted.h"
#include "nqcore/result.h"
#include "nqcore/result_value.h"

#include <coroutine>
#include <new>
#include <type_traits>

namespace nqcore {
namespace impl {

class CoroutineBase;

/// Watches the outcome of a coroutine for its cancellation. It lies in the frame and keeps it while it is registered.
class NQCORE_API CoroutineWatch : public CancelListener {
protected:
    ~CoroutineWatch() override;
    void pass_on(RefCountPtr<const ErrorInfo> cancelled) noexcept final;

private:
    friend class CoroutineBase;
    void dropped() noexcept final;

    RefCountPtr<CoroutineBase> m_owner;
};

/// What the coroutines of this header have in common; lies in the frame.
///
/// The frame has an owner for as long as the coroutine runs or waits (itself), and another one while the watch is
/// registered. The last one to go destroys it.
///
/// Threads  one at a time, but for `m_awaited`: a reference that the coroutine puts down when it waits, and that is
///          taken out by the one who comes first, the coroutine when it goes on or the watch to cancel.
class NQCORE_API CoroutineBase : public RefCounted<AtomicRefCount> {
public:
    class Final {
    public:
        explicit Final(CoroutineBase& coroutine) noexcept : m_coroutine(&coroutine) {}
        [[nodiscard]] bool await_ready() const noexcept { return false; }
        void await_suspend(std::coroutine_handle<>) const noexcept { m_coroutine->finish(); }
        void await_resume() const noexcept {}

    private:
        CoroutineBase* m_coroutine;
    };

    // What the language asks for.
    std::suspend_never initial_suspend() noexcept {
        m_self = RefCountPtr<CoroutineBase>(this);
        return {};
    }
    Final final_suspend() noexcept { return Final(*this); }
    void unhandled_exception() noexcept;

    /// Before a wait for `inner`. A cancellation of the outcome that came while the coroutine was running is passed on
    /// at once.
    void begin_wait(FutureImplBase& inner);
    /// After a wait.
    ///
    /// Returns  true, once, when the outcome has been cancelled.
    [[nodiscard]] bool end_wait() noexcept;
    /// After `begin_wait`, when it failed or there will be no wait after all.
    void give_up_wait() noexcept { exchange_awaited({}).clear(); }

protected:
    CoroutineBase() noexcept = default;
    ~CoroutineBase() override;

    void set_up(std::coroutine_handle<> frame, FutureImplBase& outcome, CoroutineWatch& watch) noexcept {
        m_frame = frame;
        m_outcome = &outcome;
        m_watch = &watch;
    }
    /// Registers the watch.
    virtual void watch_outcome() = 0;
    /// Signals the outcome and drops the handle on it. `error` is null on success.
    virtual void signal_outcome(RefCountPtr<const ErrorInfo> error) noexcept = 0;
    /// The exception in flight as a record; never null, also when there is no memory for a new one.
    [[nodiscard]] static RefCountPtr<const ErrorInfo> failure_in_flight() noexcept;

private:
    friend class CoroutineWatch;

    void destroy() final { m_frame.destroy(); }
    void finish() noexcept;
    void watch();
    RefCountPtr<FutureImplBase> exchange_awaited(RefCountPtr<FutureImplBase> next) noexcept;
    [[nodiscard]] RefCountPtr<const ErrorInfo> cancellation() const noexcept;

    std::coroutine_handle<> m_frame;
    RefCountPtr<CoroutineBase> m_self;
    FutureImplBase* m_outcome = nullptr;
    CoroutineWatch* m_watch = nullptr;
    FutureImplBase* m_awaited = nullptr;  // owns a reference
    RefCountPtr<const ErrorInfo> m_error;
    bool m_watching = false;
    bool m_cancelSeen = false;
};

/// Suspends a coroutine until a future is ready.
class NQCORE_API FutureAwaiterBase : public AfterSignal {
public:
    // Always asks `await_suspend`, which knows the coroutine; a ready future does not suspend it.
    [[nodiscard]] bool await_ready() const noexcept { return false; }
    /// Works in coroutines of any type; cancellation passes through those of this header.
    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> coroutine) {
        if constexpr (std::is_base_of_v<CoroutineBase, Promise>) {
            m_owner = &coroutine.promise();
        }
        return suspend(coroutine);
    }

protected:
    /// In       `future`: kept alive by the derived class; null counts as ready.
    explicit FutureAwaiterBase(FutureImplBase* future) noexcept : m_future(future) {}
    ~FutureAwaiterBase() override;

    /// Registers with the future. Once it has answered true, the coroutine may be running elsewhere.
    virtual bool observe() = 0;
    /// For the destructor of the derived class: takes the observer back when the coroutine is destroyed while it
    /// waits. The future must not be ready by then: the thread that signalled it is about to resume the coroutine.
    void abandon(IFutureObserverBase* observer) noexcept {
        if (m_waiting) [[unlikely]] {
            take_back(observer);
        }
    }
    /// Returns  true when the coroutine has been cancelled and does not know yet.
    [[nodiscard]] bool cancelled() noexcept { return m_owner != nullptr && m_owner->end_wait(); }
    /// Throws "error.nqcore.result.cancelled.innerOperation".
    [[noreturn]] static NQCORE_COLD void throw_cancelled();

private:
    bool suspend(std::coroutine_handle<> coroutine);
    NQCORE_COLD void take_back(IFutureObserverBase* observer) noexcept;
    void run(AfterSignalQueue& queue) noexcept final;

    FutureImplBase* m_future;
    CoroutineBase* m_owner = nullptr;
    std::coroutine_handle<> m_coroutine;
    bool m_waiting = false;
};

/// What the awaiters of futures and results with a `T` have in common.
template <class T>
class FutureAwaiter : public FutureListener<FutureAwaiterBase, T> {
protected:
    explicit FutureAwaiter(FutureImpl<T>* future) noexcept
        : FutureListener<FutureAwaiterBase, T>(future), m_state(future) {}
    ~FutureAwaiter() override { this->abandon(this); }

    [[nodiscard]] const FutureImpl<T>* state() const noexcept { return m_state; }
    bool observe() final { return listen(*m_state, *this); }
    /// An operation that succeeds after its caller was cancelled counts as cancelled; one that fails, as failed.
    template <class Handle>
    void check_cancelled(const Handle& awaited) {
        if (this->cancelled() && !awaited.has_error()) [[unlikely]] {
            this->throw_cancelled();
        }
    }

private:
    FutureImpl<T>* m_state;
};

template <class T>
FutureImpl<T>* state_of(const Future<T>& future) {
    if (future.is_null()) [[unlikely]] {
        raise_null_future_error();
    }
    return future.shared().get();
}

/// The value out of a ready future that the caller is done with: moved when nobody else can read it or it cannot be
/// copied, else copied.
template <class T>
T take_value(const Future<T>& future) {
    FutureImpl<T>& state = *future.shared();
    if constexpr (std::is_void_v<T>) {
        state.get();
    } else if constexpr (!std::is_copy_constructible_v<T>) {
        return state.take();
    } else {
        return state.has_unique_ref() ? state.take() : T(state.get());
    }
}

/// `co_await` on a future that the caller keeps.
template <class T>
class FutureReadAwaiter final : public FutureAwaiter<T> {
public:
    explicit FutureReadAwaiter(const Future<T>& future) : FutureAwaiter<T>(state_of(future)), m_awaited(future) {}
    ResultValueRef<T> await_resume() {
        this->check_cancelled(m_awaited);
        return m_awaited.shared()->get();
    }

private:
    Future<T> m_awaited;
};

/// `co_await` on a future that the caller gives away.
template <class T>
class FutureTakeAwaiter final : public FutureAwaiter<T> {
public:
    explicit FutureTakeAwaiter(Future<T>&& future)
        : FutureAwaiter<T>(state_of(future)), m_awaited(static_cast<Future<T>&&>(future)) {}
    T await_resume() {
        this->check_cancelled(m_awaited);
        return take_value(m_awaited);
    }

private:
    Future<T> m_awaited;
};

/// A result that tells whether others share what it stands for; `future` is the state behind it, or null.
template <class T>
class AwaitedResult : public Result<T> {
public:
    explicit AwaitedResult(Result<T>&& result) noexcept : Result<T>(static_cast<Result<T>&&>(result)) {}
    [[nodiscard]] bool is_shared(const FutureImpl<T>* future) const noexcept {
        return !this->impl()->has_unique_ref() || (future != nullptr && !future->has_unique_ref());
    }
};

/// `co_await` on a result; `Value` is what it gives: a reference to the caller's, or the value.
template <class T, class Value>
class ResultAwaiter final : public FutureAwaiter<T> {
public:
    explicit ResultAwaiter(Result<T> result)
        : FutureAwaiter<T>(result.future().shared().get()), m_awaited(static_cast<Result<T>&&>(result)) {}
    Value await_resume() {
        this->check_cancelled(m_awaited);
        const Result<T>& result = m_awaited;
        if constexpr (std::is_void_v<T> || std::is_reference_v<Value>) {
            return result.get();
        } else {
            const T& value = result.get();
            if constexpr (std::is_copy_constructible_v<T>) {
                if (m_awaited.is_shared(this->state())) {
                    return value;
                }
            }
            return static_cast<T&&>(const_cast<T&>(value));
        }
    }

private:
    AwaitedResult<T> m_awaited;
};

/// The part of a coroutine that knows the type of its outcome, but for `co_return`.
template <class T>
class CoroutineOutcome : public CoroutineBase {
protected:
    [[nodiscard]] Future<T> start(std::coroutine_handle<> frame) {
        set_up(frame, *m_future.shared(), m_cancelWatch);
        return m_future;
    }
    void watch_outcome() final { listen(*m_future.shared(), m_cancelWatch); }
    /// Gives the handle away: the caller's may then be the only one.
    [[nodiscard]] Future<T> take_future() noexcept { return static_cast<Future<T>&&>(m_future); }

private:
    Future<T> m_future;
    FutureListener<CoroutineWatch, T> m_cancelWatch;
};

/// `co_return` of a value. It is kept until the body's local objects are gone; only then does the future tell.
template <class T>
class Coroutine : public CoroutineOutcome<T> {
public:
    Coroutine() {}
    ~Coroutine() override {
        if (m_hasValue) {
            m_value.~T();
        }
    }
    template <class U = T>
        requires(std::is_constructible_v<T, U &&>)
    void return_value(U&& value) {
        ::new (static_cast<void*>(__builtin_addressof(m_value))) T(static_cast<U&&>(value));
        m_hasValue = true;
    }

protected:
    void signal_outcome(RefCountPtr<const ErrorInfo> error) noexcept final {
        Future<T> future = this->take_future();
        if (error.is_null()) {
            try {
                future.shared()->set_value(static_cast<T&&>(m_value));
                return;
            } catch (...) {
                error = this->failure_in_flight();
            }
        }
        future.set(static_cast<RefCountPtr<const ErrorInfo>&&>(error));
    }

private:
    union {
        T m_value;
    };
    bool m_hasValue = false;
};
template <>
class Coroutine<void> : public CoroutineOutcome<void> {
public:
    void return_void() noexcept {}

protected:
    void signal_outcome(RefCountPtr<const ErrorInfo> error) noexcept final {
        Future<void> future = take_future();
        if (error.is_null()) {
            future.set_value();
        } else {
            future.set(static_cast<RefCountPtr<const ErrorInfo>&&>(error));
        }
    }
};

template <class T>
class FutureCoroutine final : public Coroutine<T> {
public:
    Future<T> get_return_object() { return this->start(std::coroutine_handle<FutureCoroutine>::from_promise(*this)); }
};
template <class T>
class ResultCoroutine final : public Coroutine<T> {
public:
    Result<T> get_return_object() {
        return future_result(this->start(std::coroutine_handle<ResultCoroutine>::from_promise(*this)));
    }
};

/// Signals `handler` with the exception in flight; reports it when the handler refuses.
NQCORE_API NQCORE_COLD void fail_handler_with_exception_in_flight(AsyncResultBase& handler) noexcept;

/// Hands the outcome of a future to a handler.
template <class T>
class HandlerForwarder : public AfterSignal {
public:
    HandlerForwarder(const Future<T>& future, const RefCountPtr<AsyncResult<T>>& handler)
        : m_future(future), m_handler(handler) {}

protected:
    void run(AfterSignalQueue&) noexcept final {
        try {
            if (const RefCountPtr<const ErrorInfo> error = m_future.error_info()) {
                m_handler->on_async_result_error(error);
            } else if constexpr (std::is_void_v<T>) {
                m_handler->on_async_result_success();
            } else {
                m_handler->on_async_result_success(take_value(m_future));
            }
        } catch (...) {
            fail_handler_with_exception_in_flight(*m_handler);
        }
        delete this;
    }
    void dropped() noexcept final { delete this; }

private:
    Future<T> m_future;
    RefCountPtr<AsyncResult<T>> m_handler;
};

/// Cancels a future when another one is cancelled.
class NQCORE_API CancelLink : public CancelListener {
public:
    explicit CancelLink(RefCountPtr<FutureImplBase> target) noexcept;

protected:
    ~CancelLink() override;
    void pass_on(RefCountPtr<const ErrorInfo> cancelled) noexcept final;
    void dropped() noexcept final;

private:
    RefCountPtr<FutureImplBase> m_target;
};

template <class T>
Result<T> signal_control(const Future<T>& ready, ResultControl<T>& control) {
    if (const RefCountPtr<const ErrorInfo> error = ready.error_info()) {
        return control.signal_error(error);
    }
    if constexpr (std::is_void_v<T>) {
        return control.signal_result();
    } else {
        return control.signal_result(take_value(ready));
    }
}

}  // namespace impl

/// Waits for a future without blocking a thread, then gives the value or throws the error, the same record.
///
/// Returns  for a handle that the caller keeps, a reference that is good as long as any handle on the cell is. For one
///          that is given away (`co_await read(path)`), the value: moved when nobody else has a handle or when it
///          cannot be copied, else copied.
/// Errors   those of the future; "error.nqcore.result.cancelled.innerOperation" when the future holds a value, but the
///          coroutine's own future was cancelled meanwhile; "error.nqcore.result.badParameter" for a null handle.
/// Threads  a ready future does not suspend the coroutine. Otherwise it goes on inside the call that signals the
///          future, on that thread, with no mutex held.
/// Cost     no memory of its own; the future's list of observers may grow.
template <class T>
impl::FutureReadAwaiter<T> operator co_await(const Future<T>& future) {
    return impl::FutureReadAwaiter<T>(future);
}
template <class T>
impl::FutureTakeAwaiter<T> operator co_await(Future<T>&& future) {
    return impl::FutureTakeAwaiter<T>(static_cast<Future<T>&&>(future));
}

/// The same for a result.
///
/// Errors   also "error.nqcore.result.notWaitable" for an empty result.
template <class T>
impl::ResultAwaiter<T, impl::ResultValueRef<T>> operator co_await(const Result<T>& result) {
    return impl::ResultAwaiter<T, impl::ResultValueRef<T>>(result);
}
template <class T>
impl::ResultAwaiter<T, T> operator co_await(Result<T>&& result) {
    return impl::ResultAwaiter<T, T>(static_cast<Result<T>&&>(result));
}

/// Gives the outcome of a future to the control of an operation: the bridge for an operation whose body is a coroutine.
///
///     Result<Size> copy(Path from, Path to, ResultControl<Size>&& control) {
///         return forward_future(copy_steps(from, to), std::move(control));
///     }
///
/// A ready future answers through the control at once. Otherwise the control's handler is signalled when the future is
/// ready; cancelling the operation cancels the future, as far as its handler stands for a future of its own.
/// In       `T`: handlers are only declared here; nqcore/async_result.h has them.
/// Returns  what the operation returns to its caller.
template <class T>
[[nodiscard]] Result<T> forward_future(const Future<T>& future, ResultControl<T>&& control) {
    static_assert(
        requires { sizeof(AsyncResult<T>); }, "include nqcore/async_result.h");
    if (future.is_ready()) {
        return impl::signal_control(future, control);
    }
    const RefCountPtr<AsyncResult<T>> handler = control.create_async_handler();
    Result<T> result = handler->get_result();
    if (const Future<T> outcome = result.future(); !outcome.is_null()) {
        impl::listen(*outcome.shared(), *new impl::FutureListener<impl::CancelLink, T>(future.shared()));
    }
    if (handler->cancelled()) {
        Future<T>(future).cancel();  // nobody wants the answer
        return result;
    }
    if (impl::listen(*future.shared(), *new impl::FutureListener<impl::HandlerForwarder<T>, T>(future, handler))) {
        return result;
    }
    // It has become ready meanwhile. A handler may not be signalled inside the call that made it, so the control answers.
    return impl::signal_control(future, control);
}

}  // namespace nqcore

/// A coroutine that returns a future or a result runs at once, on the caller's thread, up to its first wait. What it
/// returns or throws becomes the outcome when its local objects are gone; an `ErrorException` keeps its record.
///
/// Cancelling the outcome cancels what the coroutine waits for, with the same record; from its `co_await` it sees that
/// error, or, when it was running, from the next one. It may go on waiting for other things to clean up. How it ends
/// then is of no interest to anybody.
///
/// Lifetime the coroutine keeps itself alive, with its copies of its arguments, until it ends; handles on the outcome
///          do not matter to it. One that waits for a future that nobody ever signals stays for good: cancel it.
/// Errors   `std::bad_alloc` to the caller when there is no memory for the frame or the future.
template <class T, class... Arguments>
struct std::coroutine_traits<nqcore::Future<T>, Arguments...> {
    using promise_type = nqcore::impl::FutureCoroutine<T>;
};
template <class T, class... Arguments>
struct std::coroutine_traits<nqcore::Result<T>, Arguments...> {
    using promise_type = nqcore::impl::ResultCoroutine<T>;
};
