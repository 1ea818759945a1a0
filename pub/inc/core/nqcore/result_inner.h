// result_inner: the control for an operation that is a step of another one.
//
//     // inside an operation that has made its handler:
//     read(path, result_inner<Text>(handler, [handler](const Text& text) { handler->on_async_result_success(size(text)); }));
//
// The step's failure becomes the outer operation's; its success goes to the continuation, unless the outer operation has
// been cancelled meanwhile.
#pragma once

#include "nqcore/async_result.h"
#include "nqcore/config.h"
#include "nqcore/error_info.h"
#include "nqcore/fault_report.h"
#include "nqcore/refcounted.h"
#include "nqcore/result.h"

namespace nqcore {
namespace impl {

/// What inner invokers of all types have in common.
class NQCORE_API ResultInnerInvokerTagBase {
public:
    ResultInnerInvokerTagBase() noexcept = default;
    ResultInnerInvokerTagBase(const ResultInnerInvokerTagBase&) noexcept = default;
    ResultInnerInvokerTagBase& operator=(const ResultInnerInvokerTagBase&) noexcept;
    ResultInnerInvokerTagBase& operator=(ResultInnerInvokerTagBase&&) noexcept;

    /// A new "error.nqcore.result.cancelled.innerOperation".
    [[nodiscard]] static RefCountPtr<const ErrorInfo> outer_operation_cancelled();

protected:
    /// Fails the outer operation with the exception that its continuation let escape. When the continuation had
    /// signalled it before, throws "error.nqcore.result.redundantSignal", with the exception's record nested.
    static void fail_with_exception_in_flight(AsyncResultBase& outer);
};

/// The outer operation's handler and what to do with the inner one's value.
template <class Outer, class Continuation>
class ResultInnerInvoker : public ResultInnerInvokerTagBase {
public:
    ResultInnerInvoker(RefCountPtr<AsyncResult<Outer>> outer, Continuation continuation)
        : m_outer(static_cast<RefCountPtr<AsyncResult<Outer>>&&>(outer)),
          m_continuation(static_cast<Continuation&&>(continuation)) {
        if (m_outer.is_null()) {
            raise_null_handler_error();
        }
    }

    [[nodiscard]] AsyncResult<Outer>& outer() const noexcept { return *m_outer; }

    template <class... Value>
    void succeed(Value&&... value) {
        if (m_outer->cancelled()) {
            m_outer->on_async_result_error(outer_operation_cancelled());
            return;
        }
        try {
            m_continuation(static_cast<Value&&>(value)...);
        } catch (...) {
            fail_with_exception_in_flight(*m_outer);
        }
    }

private:
    RefCountPtr<AsyncResult<Outer>> m_outer;
    Continuation m_continuation;
};

template <class T, class Invoker>
class AsyncResultInnerBase : public AsyncResult<T> {
public:
    AsyncResultInnerBase(const ResultControlBase& control, const Invoker& invoker)
        : AsyncResult<T>(control), m_invoker(invoker) {}
    void cancel(bool interrupt, const RefCountPtr<const ErrorInfo>& cause) const override {
        m_invoker.outer().cancel(interrupt, cause);
    }
    [[nodiscard]] bool ignored() const override { return true; }
    [[nodiscard]] bool cancelled() const override { return m_invoker.outer().cancelled(); }
    [[nodiscard]] Result<T> get_result() override { return {}; }

protected:
    void async_error_impl(const RefCountPtr<const ErrorInfo>& error) override {
        m_invoker.outer().on_async_result_error(error);
    }

    Invoker m_invoker;
};

template <class T, class Invoker>
class AsyncResultInner final : public AsyncResultInnerBase<T, Invoker> {
public:
    using AsyncResultInnerBase<T, Invoker>::AsyncResultInnerBase;

protected:
    void async_success_impl(T&& value) override { this->m_invoker.succeed(static_cast<T&&>(value)); }
};
template <class Invoker>
class AsyncResultInner<void, Invoker> final : public AsyncResultInnerBase<void, Invoker> {
public:
    using AsyncResultInnerBase<void, Invoker>::AsyncResultInnerBase;

protected:
    void async_success_impl() override { this->m_invoker.succeed(); }
};

template <class T, class Invoker>
class ResultControlInnerBase : public ResultControl<T> {
public:
    explicit ResultControlInnerBase(Invoker invoker) : m_invoker(static_cast<Invoker&&>(invoker)) {}
    [[nodiscard]] bool is_cancelled() const override { return m_invoker.outer().cancelled(); }
    Result<T> signal_error(const RefCountPtr<const ErrorInfo>& error) override {
        m_invoker.outer().on_async_result_error(error);
        return {};
    }
    [[nodiscard]] RefCountPtr<AsyncResult<T>> create_async_handler() override {
        return RefCountPtr<AsyncResult<T>>(new AsyncResultInner<T, Invoker>(*this, m_invoker));
    }

protected:
    Invoker m_invoker;
};

}  // namespace impl

/// Made by `result_inner`. Results are empty: the outcome goes to the outer operation.
template <class T, class Invoker>
class ResultControlInner final : public impl::ResultControlInnerBase<T, Invoker> {
public:
    using impl::ResultControlInnerBase<T, Invoker>::ResultControlInnerBase;
    Result<T> signal_result(T value) override {
        this->m_invoker.succeed(static_cast<T&&>(value));
        return {};
    }
};
template <class Invoker>
class ResultControlInner<void, Invoker> final : public impl::ResultControlInnerBase<void, Invoker> {
public:
    using impl::ResultControlInnerBase<void, Invoker>::ResultControlInnerBase;
    Result<void> signal_result() override {
        this->m_invoker.succeed();
        return {};
    }
};

/// A control for a step with a `T` inside the operation that `outer` belongs to.
///
/// In       `continuation`: called with the step's value, on the thread that signals it; copyable. It signals `outer` or
///          starts the next step. What it throws becomes the failure of `outer`.
/// Errors   a step that ends after `outer` was cancelled signals it "error.nqcore.result.cancelled.innerOperation".
///          A null `outer` throws "error.nqcore.result.badParameter".
template <class T, class Outer, class Continuation>
[[nodiscard]] ResultControlInner<T, impl::ResultInnerInvoker<Outer, Continuation>> result_inner(
    RefCountPtr<AsyncResult<Outer>> outer, Continuation continuation) {
    using Invoker = impl::ResultInnerInvoker<Outer, Continuation>;
    return ResultControlInner<T, Invoker>(
        Invoker(static_cast<RefCountPtr<AsyncResult<Outer>>&&>(outer), static_cast<Continuation&&>(continuation)));
}

}  // namespace nqcore
