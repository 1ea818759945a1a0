// AutoSignalAsyncResult: signals a list of handlers when it goes out of scope, with success or with the failure set.
//
//     AutoSignalAsyncResult<void> waiting(handlers, ErrorInfo::Ptr());
//     if (ErrorInfo::Ptr error = flush_nothrow()) waiting.set_failure(error);
//     // here every handler is told
#pragma once

#include "nqcore/async_result.h"
#include "nqcore/config.h"
#include "nqcore/error_info.h"
#include "nqcore/refcounted.h"
#include "nqcore/thin_vector.h"

namespace nqcore {

namespace impl {

/// The list, and the failure that every handler in it gets.
///
/// Threads  one thread owns it. What a handler throws is reported (nqcore/fault_report.h), and the next one is told.
class NQCORE_API AutoSignalAsyncResultBase {
public:
    /// The last failure set wins.
    void set_failure(RefCountPtr<const ErrorInfo> failure) noexcept {
        m_failure = static_cast<RefCountPtr<const ErrorInfo>&&>(failure);
    }
    [[nodiscard]] bool has_failure() const noexcept { return !m_failure.is_null(); }

protected:
    explicit AutoSignalAsyncResultBase(const RefCountPtr<const ErrorInfo>& failure) : m_failure(failure) {}
    AutoSignalAsyncResultBase(const AutoSignalAsyncResultBase&) = default;
    AutoSignalAsyncResultBase& operator=(const AutoSignalAsyncResultBase&) = default;
    /// Gives the failure to every handler that is left. Without one, to a list that is not empty, it is
    /// "error.nqcore.result": the derived class neither set a failure nor signalled success.
    ~AutoSignalAsyncResultBase();

    /// Null is "error.nqcore.result.badParameter".
    void push_back(RefCountPtr<AsyncResultBase> handler);
    void reserve(unsigned int handlers) { m_handlers.reserve(handlers); }

    /// Empties the list, calling `signal` with each handler in order.
    void signal_each(void (*signal)(AsyncResultBase& handler, const void* context), const void* context) noexcept;

private:
    ThinVector<RefCountPtr<AsyncResultBase>> m_handlers;
    RefCountPtr<const ErrorInfo> m_failure;
};

/// What is the same for every `T`.
template <class T>
class AutoSignalAsyncResultOf : public AutoSignalAsyncResultBase {
public:
    explicit AutoSignalAsyncResultOf(const RefCountPtr<const ErrorInfo>& failure)
        : AutoSignalAsyncResultBase(failure) {}
    AutoSignalAsyncResultOf(RefCountPtr<AsyncResult<T>> handler, const RefCountPtr<const ErrorInfo>& failure)
        : AutoSignalAsyncResultBase(failure) {
        push_back(static_cast<RefCountPtr<AsyncResult<T>>&&>(handler));
    }
    /// In       `handlers`: a std::vector, or anything else with a size and handlers to move from, in order.
    template <class Handlers>
        requires requires(Handlers& list) {
            list.begin()->get()->get_result();
            list.size();
        }
    AutoSignalAsyncResultOf(Handlers handlers, const RefCountPtr<const ErrorInfo>& failure)
        : AutoSignalAsyncResultBase(failure) {
        reserve(static_cast<unsigned int>(handlers.size()));
        for (RefCountPtr<AsyncResult<T>>& handler : handlers) {
            push_back(static_cast<RefCountPtr<AsyncResult<T>>&&>(handler));
        }
    }

    /// Errors   "error.nqcore.result.badParameter" for null.
    void push_back(RefCountPtr<AsyncResult<T>> handler) {
        AutoSignalAsyncResultBase::push_back(static_cast<RefCountPtr<AsyncResult<T>>&&>(handler));
    }
};

}  // namespace impl

/// Handlers of a value: success has to be given a value before the end of the scope.
template <class T>
class NQCORE_TEMPLATE_API AutoSignalAsyncResult : public impl::AutoSignalAsyncResultOf<T> {
public:
    using impl::AutoSignalAsyncResultOf<T>::AutoSignalAsyncResultOf;

    /// Gives a copy of `value` to every handler; the list is empty afterwards. Does nothing once a failure is set.
    void signal_success(const T& value) noexcept {
        if (!this->has_failure()) {
            this->signal_each(
                [](AsyncResultBase& handler, const void* context) {
                    static_cast<AsyncResult<T>&>(handler).on_async_result_success(*static_cast<const T*>(context));
                },
                &value);
        }
    }
};

/// Without a failure the handlers are told of success.
template <>
class NQCORE_API AutoSignalAsyncResult<void> : public impl::AutoSignalAsyncResultOf<void> {
public:
    using impl::AutoSignalAsyncResultOf<void>::AutoSignalAsyncResultOf;
    AutoSignalAsyncResult(const AutoSignalAsyncResult&) = default;
    AutoSignalAsyncResult& operator=(const AutoSignalAsyncResult&) = default;
    ~AutoSignalAsyncResult();

    /// Tells every handler now.
    void signal_success() noexcept;
};

namespace impl {

/// An outcome on its way to another thread: a value or an error.
///
/// Lifetime a plain value; it may be copied and moved.
template <class T>
class DispatchedCompletion {
    static_assert(is_result_value<T>, "a completion holds an object or void");

public:
    DispatchedCompletion(T value) : m_value(static_cast<T&&>(value)) {}
    /// Errors   "error.nqcore.result.badParameter" for null.
    DispatchedCompletion(const RefCountPtr<const ErrorInfo>& error) : m_error(error) { require(error); }
    DispatchedCompletion(const DispatchedCompletion& other)
        requires(std::is_copy_constructible_v<T>)
        : m_error(other.m_error) {
        if (m_error.is_null()) {
            ::new (place()) T(other.m_value);
        }
    }
    DispatchedCompletion(DispatchedCompletion&& other) noexcept(std::is_nothrow_move_constructible_v<T>)
        : m_error(other.m_error) {
        if (m_error.is_null()) {
            ::new (place()) T(static_cast<T&&>(other.m_value));
        }
    }
    /// From a temporary, a moved or a copied one.
    DispatchedCompletion& operator=(DispatchedCompletion other) noexcept
        requires(std::is_nothrow_move_constructible_v<T>)
    {
        this->~DispatchedCompletion();
        return *::new (static_cast<void*>(this)) DispatchedCompletion(static_cast<DispatchedCompletion&&>(other));
    }
    ~DispatchedCompletion() {
        if (m_error.is_null()) {
            m_value.~T();
        }
    }

    /// Null for a value.
    [[nodiscard]] const RefCountPtr<const ErrorInfo>& error() const noexcept { return m_error; }

    /// Signals `handler` with the outcome, moving the value out.
    void signal(AsyncResult<T>& handler) {
        if (m_error.is_null()) {
            handler.on_async_result_success(static_cast<T&&>(m_value));
        } else {
            handler.on_async_result_error(m_error);
        }
    }

private:
    static void require(const RefCountPtr<const ErrorInfo>& error) {
        if (error.is_null()) {
            raise_result_failure_null();
        }
    }
    [[nodiscard]] void* place() noexcept { return __builtin_addressof(m_value); }

    RefCountPtr<const ErrorInfo> m_error;
    union {
        T m_value;  // there when the error is null
    };
};
template <>
class NQCORE_API DispatchedCompletion<void> {
public:
    DispatchedCompletion(const Nil&) noexcept {}
    DispatchedCompletion(const RefCountPtr<const ErrorInfo>& error);

    [[nodiscard]] const RefCountPtr<const ErrorInfo>& error() const noexcept { return m_error; }
    void signal(AsyncResult<void>& handler) const;

    static const Nil& value;

private:
    RefCountPtr<const ErrorInfo> m_error;
};

}  // namespace impl
}  // namespace nqcore
