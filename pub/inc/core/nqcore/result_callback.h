// result_callback: the control of a caller who wants to be called.
//
//     load(path, nqcore::result_callback<Text>([](Text&& text) { show(text); },
//                                              [](const RefCountPtr<const ErrorInfo>& error) { complain(error); }));
//
// One of the two is called, once: inside the call when the operation answers directly, later on the thread that signals
// otherwise.
#pragma once

#include "nqcore/async_result.h"
#include "nqcore/config.h"
#include "nqcore/error_info.h"
#include "nqcore/refcounted.h"
#include "nqcore/result.h"
#include "nqcore/result_errors.h"

namespace nqcore {
namespace impl {

/// The two callbacks and what has become of them.
///
///     waiting --success--> called --the callback throws--> escaped
///       |  \--error------> called
///       |  \--cancel-----> cancelled (the error callback is called with the cancellation)
///       \--the handler is dropped--> called (with "error.nqcore.result.notSignaled")
///
/// Who moves it out of waiting makes the call. Later signals: in called and escaped they are refused, in cancelled dropped.
///
/// Threads  any.
class NQCORE_API ResultCallbackBase : public RefCounted<AtomicRefCount> {
public:
    /// Calls the error callback, from which an exception passes through.
    ///
    /// Errors   "error.nqcore.result.badParameter" for null; "error.nqcore.result.redundantSignal", with `error` nested,
    ///          when a callback has been called before.
    void fail(const RefCountPtr<const ErrorInfo>& error);
    /// The same for the failures whose sender expects no answer: what the callback throws is reported and dropped.
    void cancel(const RefCountPtr<const ErrorInfo>& cause);
    void abandon() noexcept;

    [[nodiscard]] bool cancelled() const noexcept;

protected:
    ResultCallbackBase() noexcept = default;
    ~ResultCallbackBase() override;

    /// Returns  true when the success callback is to be called; false when the call is to be dropped.
    [[nodiscard]] bool begin_success();
    /// The success callback lets an exception escape.
    void note_escape() noexcept;
    virtual void call_error(const RefCountPtr<const ErrorInfo>& error) = 0;

private:
    enum State : unsigned { s_waiting, s_called, s_escaped, s_cancelled };

    [[nodiscard]] bool leave_waiting(State next) noexcept;
    [[nodiscard]] State state() const noexcept;
    void call_error_last(const RefCountPtr<const ErrorInfo>& error) noexcept;

    State m_state = s_waiting;
};

template <class OnSuccess, class OnError>
class ResultCallback final : public ResultCallbackBase {
public:
    ResultCallback(OnSuccess&& onSuccess, OnError&& onError)
        : m_onSuccess(static_cast<OnSuccess&&>(onSuccess)), m_onError(static_cast<OnError&&>(onError)) {}

    template <class... Value>
    void succeed(Value&&... value) {
        if (!begin_success()) {
            return;
        }
        try {
            m_onSuccess(static_cast<Value&&>(value)...);
        } catch (...) {
            note_escape();
            throw;
        }
    }

protected:
    void call_error(const RefCountPtr<const ErrorInfo>& error) override { m_onError(error); }

private:
    OnSuccess m_onSuccess;
    OnError m_onError;
};

template <class T, class Callback>
class AsyncResultCallbackBase : public AsyncResult<T> {
public:
    AsyncResultCallbackBase(const ResultControlBase& control, const RefCountPtr<Callback>& callback)
        : AsyncResult<T>(control), m_callback(callback) {}
    ~AsyncResultCallbackBase() override { m_callback->abandon(); }
    void cancel(bool, const RefCountPtr<const ErrorInfo>& cause) const override { m_callback->cancel(cause); }
    [[nodiscard]] bool ignored() const override { return true; }
    [[nodiscard]] bool cancelled() const override { return m_callback->cancelled(); }
    [[nodiscard]] Result<T> get_result() override { return {}; }

protected:
    void async_error_impl(const RefCountPtr<const ErrorInfo>& error) override { m_callback->fail(error); }

    RefCountPtr<Callback> m_callback;
};

template <class T, class Callback>
class AsyncResultCallback final : public AsyncResultCallbackBase<T, Callback> {
public:
    using AsyncResultCallbackBase<T, Callback>::AsyncResultCallbackBase;

protected:
    void async_success_impl(T&& value) override { this->m_callback->succeed(static_cast<T&&>(value)); }
};
template <class Callback>
class AsyncResultCallback<void, Callback> final : public AsyncResultCallbackBase<void, Callback> {
public:
    using AsyncResultCallbackBase<void, Callback>::AsyncResultCallbackBase;

protected:
    void async_success_impl() override { this->m_callback->succeed(); }
};

template <class T, class Callback>
class ResultControlCallbackBase : public ResultControl<T> {
public:
    explicit ResultControlCallbackBase(RefCountPtr<Callback> callback)
        : m_callback(static_cast<RefCountPtr<Callback>&&>(callback)) {}
    [[nodiscard]] bool is_ignored() const override { return true; }
    [[nodiscard]] bool is_cancelled() const override { return m_callback->cancelled(); }
    Result<T> signal_error(const RefCountPtr<const ErrorInfo>& error) override {
        m_callback->fail(error);
        return {};
    }
    [[nodiscard]] RefCountPtr<AsyncResult<T>> create_async_handler() override {
        return RefCountPtr<AsyncResult<T>>(new AsyncResultCallback<T, Callback>(*this, m_callback));
    }

protected:
    RefCountPtr<Callback> m_callback;
};

}  // namespace impl

/// Made by `result_callback`. Results are empty: the outcome goes to the callbacks.
template <class T, class Callback>
class ResultControlCallback final : public impl::ResultControlCallbackBase<T, Callback> {
public:
    using impl::ResultControlCallbackBase<T, Callback>::ResultControlCallbackBase;
    Result<T> signal_result(T value) override {
        this->m_callback->succeed(static_cast<T&&>(value));
        return {};
    }
};
template <class Callback>
class ResultControlCallback<void, Callback> final : public impl::ResultControlCallbackBase<void, Callback> {
public:
    using impl::ResultControlCallbackBase<void, Callback>::ResultControlCallbackBase;
    Result<void> signal_result() override {
        this->m_callback->succeed();
        return {};
    }
};

/// "Call me." A handler that is cancelled calls `onError` at once; one that is dropped calls it, too.
///
/// In       `onSuccess`: called with `T&&`, or with nothing for `void`. `onError`: with the error's record.
/// Errors   what a callback throws passes through to the one who signals. When that one then signals the exception as a
///          failure: "error.nqcore.result.redundantSignal", "A success callback PROBABLY allowed an exception to escape."
///          What `onError` throws when it is called for a cancelled or dropped handler is reported
///          (nqcore/fault_report.h) and dropped.
/// Threads  the callbacks run on the thread that signals, cancels or drops the last reference to the handler.
template <class T, class OnSuccess, class OnError>
[[nodiscard]] ResultControlCallback<T, impl::ResultCallback<OnSuccess, OnError>> result_callback(OnSuccess onSuccess,
                                                                                                 OnError onError) {
    using Callback = impl::ResultCallback<OnSuccess, OnError>;
    return ResultControlCallback<T, Callback>(
        RefCountPtr<Callback>(new Callback(static_cast<OnSuccess&&>(onSuccess), static_cast<OnError&&>(onError))));
}

}  // namespace nqcore
