// AsyncResult: the handler that an operation keeps when it cannot finish inside the call, and signals later.
//
//     RefCountPtr<AsyncResult<int>> handler = control.create_async_handler();
//     ...                                                // later, on any thread, once:
//     handler->on_async_result_success(42);              // or on_async_result_error(error)
//
// What a signal does depends on the control that made the handler: it fills a future, or is dropped.
#pragma once

#include "nqcore/config.h"
#include "nqcore/error_info.h"
#include "nqcore/future.h"
#include "nqcore/refcounted.h"
#include "nqcore/result.h"
#include "nqcore/result_errors.h"

namespace nqcore {

/// What handlers of all types have in common.
///
/// Threads  any; signal a handler once.
class NQCORE_API AsyncResultBase : public impl::AsyncOp {
public:
    ~AsyncResultBase() override;

    [[nodiscard]] virtual bool ignored() const = 0;
    /// True when the operation should stop working.
    [[nodiscard]] virtual bool cancelled() const = 0;

    /// Signals failure.
    ///
    /// Errors   "error.nqcore.result.invalidAsyncSignalScope" (with the check on) while the call that was given the
    ///          control still runs on this thread; "error.nqcore.result.badParameter" for null;
    ///          "error.nqcore.result.redundantSignal", with `error` nested, from a handler that has been signalled.
    void on_async_result_error(const RefCountPtr<const ErrorInfo>& error);

protected:
    /// Activates `control`.
    explicit AsyncResultBase(const ResultControlBase& control);

    virtual void async_error_impl(const RefCountPtr<const ErrorInfo>& error) = 0;

    /// Refuses a signal from inside the call that made the handler.
    void validate_signal_scope() const {
        if (m_originatingActivation != 0) {
            ResultControlBase::validate_async_signal(m_originatingActivation);
        }
    }

private:
    template <class T>
    friend class AsyncHandlerAdapterControl;

    unsigned int m_originatingActivation;
};

/// The handler of an operation with a `T`.
template <class T>
class NQCORE_TEMPLATE_API AsyncResult : public AsyncResultBase {
public:
    /// What the operation returns to its caller.
    [[nodiscard]] virtual Result<T> get_result() = 0;

    /// Signals success. The errors are those of `on_async_result_error`.
    void on_async_result_success(T value) {
        this->validate_signal_scope();
        async_success_impl(static_cast<T&&>(value));
    }

    /// A control that hands this handler to an inner operation.
    [[nodiscard]] AsyncHandlerAdapterControl<T> as_control();

protected:
    using AsyncResultBase::AsyncResultBase;
    virtual void async_success_impl(T&& value) = 0;

private:
    friend class AsyncHandlerAdapterControl<T>;
};
template <>
class NQCORE_TEMPLATE_API AsyncResult<void> : public AsyncResultBase {
public:
    [[nodiscard]] virtual Result<void> get_result() = 0;

    void on_async_result_success() {
        this->validate_signal_scope();
        async_success_impl();
    }

    [[nodiscard]] AsyncHandlerAdapterControl<void> as_control();

protected:
    using AsyncResultBase::AsyncResultBase;
    virtual void async_success_impl() = 0;

private:
    friend class AsyncHandlerAdapterControl<void>;
};

namespace impl {

template <class T>
class AsyncResultIgnored;
template <class T>
class AsyncResultCancelled;
template <class T>
class AsyncResultError;
template <class T>
class AsyncResultFuture;

/// What the kinds have in common that drop every signal.
template <class T>
class NQCORE_TEMPLATE_API AsyncResultDropping : public AsyncResult<T> {
public:
    void cancel(bool, const RefCountPtr<const ErrorInfo>&) const override {}
    [[nodiscard]] bool ignored() const override { return true; }
    [[nodiscard]] Result<T> get_result() override { return {}; }

protected:
    using AsyncResult<T>::AsyncResult;
    void async_error_impl(const RefCountPtr<const ErrorInfo>&) override {}
};

/// The caller does not want to know.
template <class T>
class NQCORE_TEMPLATE_API AsyncResultIgnoredBase : public AsyncResultDropping<T> {
public:
    [[nodiscard]] static RefCountPtr<AsyncResult<T>> create(const ResultControlBase& control) {
        return RefCountPtr<AsyncResult<T>>(new AsyncResultIgnored<T>(control));
    }
    [[nodiscard]] bool cancelled() const override { return false; }

protected:
    using AsyncResultDropping<T>::AsyncResultDropping;
};

/// The operation need not even start.
template <class T>
class NQCORE_TEMPLATE_API AsyncResultCancelledBase : public AsyncResultDropping<T> {
public:
    [[nodiscard]] static RefCountPtr<AsyncResult<T>> create(const ResultControlBase& control) {
        return RefCountPtr<AsyncResult<T>>(new AsyncResultCancelled<T>(control));
    }
    [[nodiscard]] bool cancelled() const override { return true; }

protected:
    using AsyncResultDropping<T>::AsyncResultDropping;
};

/// The result says that the caller did not allow an asynchronous answer.
template <class T>
class NQCORE_TEMPLATE_API AsyncResultErrorBase : public AsyncResultDropping<T> {
public:
    [[nodiscard]] static RefCountPtr<AsyncResult<T>> create(const ResultControlBase& control) {
        return RefCountPtr<AsyncResult<T>>(new AsyncResultError<T>(control));
    }
    [[nodiscard]] bool cancelled() const override { return true; }
    [[nodiscard]] Result<T> get_result() override { return failed_result<T>(create_unexpected_asynchrony_error()); }

protected:
    using AsyncResultDropping<T>::AsyncResultDropping;
};

/// A signal that found its future ready: silent when the future was cancelled, else a redundant-signal error with
/// `cause` nested.
NQCORE_API void refuse_redundant_signal(const FutureImplBase& future, const RefCountPtr<const ErrorInfo>& cause);

/// Signals a future.
///
///     unsignalled --success or error--> signalled --any other signal--> redundantSignal error
///         |    \--cancel--> cancelled --any signal--> dropped: finishing after the caller gave up is no fault
///         \--last reference goes--> the future gets "error.nqcore.result.notSignaled", so that no waiter hangs
template <class T>
class NQCORE_TEMPLATE_API AsyncResultFutureBase : public AsyncResult<T> {
public:
    [[nodiscard]] static RefCountPtr<AsyncResult<T>> create(const ResultControlBase& control, const Future<T>& future) {
        return RefCountPtr<AsyncResult<T>>(new AsyncResultFuture<T>(control, future));
    }
    void cancel(bool, const RefCountPtr<const ErrorInfo>& cause) const override {
        m_future.shared()->set(create_result_cancel_error(cause));
    }
    [[nodiscard]] bool ignored() const override { return true; }
    [[nodiscard]] bool cancelled() const override { return result_was_cancelled(m_future.error_info()); }
    [[nodiscard]] Result<T> get_result() override { return future_result(m_future); }

protected:
    AsyncResultFutureBase(const ResultControlBase& control, const Future<T>& future)
        : AsyncResult<T>(control), m_future(future) {
        if (future.is_null()) {
            raise_null_future_error();
        }
    }
    ~AsyncResultFutureBase() override {
        if (!m_future.is_null()) {
            signal_abandoned_future(*m_future.shared());
        }
    }
    void async_error_impl(const RefCountPtr<const ErrorInfo>& error) override {
        if (!m_future.set(error)) {
            refuse_redundant_signal(*m_future.shared(), error);
        }
    }

    Future<T> m_future;
};

// What each kind does with success.

template <class T, class Base>
class NQCORE_TEMPLATE_API AsyncResultDropsSuccess : public Base {
protected:
    using Base::Base;
    void async_success_impl(T&&) override {}
};
template <class Base>
class NQCORE_TEMPLATE_API AsyncResultDropsSuccess<void, Base> : public Base {
protected:
    using Base::Base;
    void async_success_impl() override {}
};

template <class T>
class NQCORE_TEMPLATE_API AsyncResultIgnored final : public AsyncResultDropsSuccess<T, AsyncResultIgnoredBase<T>> {
public:
    explicit AsyncResultIgnored(const ResultControlBase& control)
        : AsyncResultDropsSuccess<T, AsyncResultIgnoredBase<T>>(control) {}
};

template <class T>
class NQCORE_TEMPLATE_API AsyncResultCancelled final : public AsyncResultDropsSuccess<T, AsyncResultCancelledBase<T>> {
public:
    explicit AsyncResultCancelled(const ResultControlBase& control)
        : AsyncResultDropsSuccess<T, AsyncResultCancelledBase<T>>(control) {}
};

template <class T>
class NQCORE_TEMPLATE_API AsyncResultError final : public AsyncResultDropsSuccess<T, AsyncResultErrorBase<T>> {
public:
    explicit AsyncResultError(const ResultControlBase& control)
        : AsyncResultDropsSuccess<T, AsyncResultErrorBase<T>>(control) {}
};

template <class T>
class NQCORE_TEMPLATE_API AsyncResultFuture final : public AsyncResultFutureBase<T> {
public:
    AsyncResultFuture(const ResultControlBase& control, const Future<T>& future)
        : AsyncResultFutureBase<T>(control, future) {}

protected:
    void async_success_impl(T&& value) override {
        if (!this->m_future.set_value(static_cast<T&&>(value))) {
            refuse_redundant_signal(*this->m_future.shared(), {});
        }
    }
};
template <>
class NQCORE_TEMPLATE_API AsyncResultFuture<void> final : public AsyncResultFutureBase<void> {
public:
    AsyncResultFuture(const ResultControlBase& control, const Future<void>& future)
        : AsyncResultFutureBase<void>(control, future) {}

protected:
    void async_success_impl() override {
        if (!this->m_future.set_value()) {
            refuse_redundant_signal(*this->m_future.shared(), {});
        }
    }
};

/// Throws "error.nqcore.result.badParameter" for an adapter of no handler.
[[noreturn]] NQCORE_API NQCORE_COLD void raise_null_handler_error();

/// What the adapter control of every type does, but for success.
template <class T>
class NQCORE_TEMPLATE_API AsyncHandlerAdapterControlBase : public ResultControl<T> {
public:
    [[nodiscard]] bool is_ignored() const override { return true; }
    [[nodiscard]] bool is_cancelled() const override { return m_handler->cancelled(); }
    [[nodiscard]] RefCountPtr<AsyncResult<T>> create_async_handler() override { return m_handler; }
    /// Signals the handler; the result is empty.
    Result<T> signal_error(const RefCountPtr<const ErrorInfo>& error) override {
        m_handler->on_async_result_error(error);
        return {};
    }

    /// The adapted handler.
    operator const RefCountPtr<AsyncResult<T>>&() const noexcept { return m_handler; }

protected:
    explicit AsyncHandlerAdapterControlBase(RefCountPtr<AsyncResult<T>> handler)
        : m_handler(static_cast<RefCountPtr<AsyncResult<T>>&&>(handler)) {
        if (m_handler.is_null()) {
            raise_null_handler_error();
        }
    }

    RefCountPtr<AsyncResult<T>> m_handler;
};

}  // namespace impl

/// A control made from a handler: an operation hands its own handler down to an inner operation.
template <class T>
class NQCORE_TEMPLATE_API AsyncHandlerAdapterControl final : public impl::AsyncHandlerAdapterControlBase<T> {
public:
    explicit AsyncHandlerAdapterControl(RefCountPtr<AsyncResult<T>> handler)
        : impl::AsyncHandlerAdapterControlBase<T>(static_cast<RefCountPtr<AsyncResult<T>>&&>(handler)) {}
    /// Asks `control` for its handler.
    explicit AsyncHandlerAdapterControl(ResultControl<T>& control)
        : AsyncHandlerAdapterControl(control.create_async_handler()) {}
    explicit AsyncHandlerAdapterControl(ResultControl<T>&& control)
        : AsyncHandlerAdapterControl(control.create_async_handler()) {}
    AsyncHandlerAdapterControl(const AsyncHandlerAdapterControl&) = default;
    AsyncHandlerAdapterControl& operator=(const AsyncHandlerAdapterControl&) = default;

    /// Signals the handler; the result is empty.
    Result<T> signal_result(T value) override {
        this->m_handler->validate_signal_scope();
        this->m_handler->async_success_impl(static_cast<T&&>(value));
        return {};
    }
};
template <>
class NQCORE_TEMPLATE_API AsyncHandlerAdapterControl<void> final : public impl::AsyncHandlerAdapterControlBase<void> {
public:
    explicit AsyncHandlerAdapterControl(RefCountPtr<AsyncResult<void>> handler)
        : impl::AsyncHandlerAdapterControlBase<void>(static_cast<RefCountPtr<AsyncResult<void>>&&>(handler)) {}
    explicit AsyncHandlerAdapterControl(ResultControl<void>& control)
        : AsyncHandlerAdapterControl(control.create_async_handler()) {}
    explicit AsyncHandlerAdapterControl(ResultControl<void>&& control)
        : AsyncHandlerAdapterControl(control.create_async_handler()) {}
    AsyncHandlerAdapterControl(const AsyncHandlerAdapterControl&) = default;
    AsyncHandlerAdapterControl& operator=(const AsyncHandlerAdapterControl&) = default;

    Result<void> signal_result() override {
        this->m_handler->validate_signal_scope();
        this->m_handler->async_success_impl();
        return {};
    }
};

template <class T>
AsyncHandlerAdapterControl<T> AsyncResult<T>::as_control() {
    return AsyncHandlerAdapterControl<T>(RefCountPtr<AsyncResult<T>>(this));
}
inline AsyncHandlerAdapterControl<void> AsyncResult<void>::as_control() {
    return AsyncHandlerAdapterControl<void>(RefCountPtr<AsyncResult<void>>(this));
}

}  // namespace nqcore
