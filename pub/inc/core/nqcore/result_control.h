// The controls that a caller names in a call:
//
//     save(document, nqcore::result_ignored<void>());                 // do not tell me
//     save(document, nqcore::result_ignored<void>().if_not_ready());  // tell me only what is known when you return
//     save(document, nqcore::result_future(future));                  // fill this future
//     save(document, nqcore::result_direct_if_synchronous<void>());   // a ready result, or one to wait for
//     save(document, nqcore::result_error_if_async<void>());          // answer at once; a later answer is an error
#pragma once

#include "nqcore/async_result.h"
#include "nqcore/config.h"
#include "nqcore/error_info.h"
#include "nqcore/future.h"
#include "nqcore/refcounted.h"
#include "nqcore/result.h"
#include "nqcore/result_errors.h"

namespace nqcore {

template <class T>
class ResultControlIgnored;
template <class T>
class ResultControlIgnoredIfAsync;

namespace impl {

inline void require_error(const RefCountPtr<const ErrorInfo>& error) {
    if (error.is_null()) {
        raise_result_failure_null();
    }
}

/// Drops the outcome; results are empty.
template <class T>
class NQCORE_TEMPLATE_API ResultControlIgnoredBase : public ResultControl<T> {
public:
    [[nodiscard]] bool is_ignored() const override { return true; }
    Result<T> signal_error(const RefCountPtr<const ErrorInfo>& error) override {
        require_error(error);
        return {};
    }
    [[nodiscard]] RefCountPtr<AsyncResult<T>> create_async_handler() override {
        return AsyncResultIgnoredBase<T>::create(*this);
    }

    /// A control that is told a direct answer and ignores a later one.
    [[nodiscard]] ResultControlIgnoredIfAsync<T> if_not_ready() const;
};

/// Signals a future, which the results share. A future that is ready is left alone, silently.
template <class T>
class NQCORE_TEMPLATE_API ResultControlFutureRefBase : public ResultControl<T> {
public:
    [[nodiscard]] bool is_ignored() const override { return true; }
    [[nodiscard]] bool is_cancelled() const override { return result_was_cancelled(m_future.error_info()); }
    Result<T> signal_error(const RefCountPtr<const ErrorInfo>& error) override {
        require_error(error);
        Result<T> result = future_result(m_future);  // first: there may be no memory for it
        m_future.set(error);
        return result;
    }
    [[nodiscard]] RefCountPtr<AsyncResult<T>> create_async_handler() override {
        return AsyncResultFutureBase<T>::create(*this, m_future);
    }

    [[nodiscard]] const Future<T>& future() const noexcept { return m_future; }

protected:
    explicit ResultControlFutureRefBase(const Future<T>& future) : m_future(future) {
        if (future.is_null()) {
            raise_null_future_error();
        }
    }

    Future<T> m_future;
};

/// Turns a direct answer into a ready result; a derived control says what becomes of a later one.
template <class T>
class NQCORE_TEMPLATE_API ResultControlDirectIfSynchronousBase : public ResultControl<T> {
public:
    [[nodiscard]] bool is_ignored() const override { return true; }
    Result<T> signal_error(const RefCountPtr<const ErrorInfo>& error) override { return failed_result<T>(error); }
    Result<T> signal_result(T value) override { return ready_result(static_cast<T&&>(value)); }
};
template <>
class NQCORE_TEMPLATE_API ResultControlDirectIfSynchronousBase<void> : public ResultControl<void> {
public:
    [[nodiscard]] bool is_ignored() const override { return true; }
    Result<void> signal_error(const RefCountPtr<const ErrorInfo>& error) override { return failed_result<void>(error); }
    Result<void> signal_result() override { return ready_result(); }
};

}  // namespace impl

/// "Do not tell me." Results are empty, handlers drop their signals.
template <class T>
class NQCORE_TEMPLATE_API ResultControlIgnored final : public impl::ResultControlIgnoredBase<T> {
public:
    Result<T> signal_result(T) override { return {}; }
};
template <>
class NQCORE_TEMPLATE_API ResultControlIgnored<void> final : public impl::ResultControlIgnoredBase<void> {
public:
    Result<void> signal_result() override { return {}; }
};

/// "Fill this future."
///
/// Errors   making one from a null future throws "error.nqcore.result.badParameter".
template <class T>
class NQCORE_TEMPLATE_API ResultControlFutureRef final : public impl::ResultControlFutureRefBase<T> {
public:
    explicit ResultControlFutureRef(const Future<T>& future) : impl::ResultControlFutureRefBase<T>(future) {}
    Result<T> signal_result(T value) override {
        Result<T> result = future_result(this->m_future);
        this->m_future.set_value(static_cast<T&&>(value));
        return result;
    }
};
template <>
class NQCORE_TEMPLATE_API ResultControlFutureRef<void> final : public impl::ResultControlFutureRefBase<void> {
public:
    explicit ResultControlFutureRef(const Future<void>& future) : impl::ResultControlFutureRefBase<void>(future) {}
    Result<void> signal_result() override {
        Result<void> result = future_result(m_future);
        m_future.set_value();
        return result;
    }
};

/// "Tell me what is known when you return; ignore the rest."
template <class T>
class NQCORE_TEMPLATE_API ResultControlIgnoredIfAsync final : public impl::ResultControlDirectIfSynchronousBase<T> {
public:
    [[nodiscard]] RefCountPtr<AsyncResult<T>> create_async_handler() override {
        return impl::AsyncResultIgnoredBase<T>::create(*this);
    }
};

/// "A ready result, or one that I can wait for": a later answer fills a future of its own.
template <class T>
class NQCORE_TEMPLATE_API ResultControlFutureIfAsync final : public impl::ResultControlDirectIfSynchronousBase<T> {
public:
    [[nodiscard]] RefCountPtr<AsyncResult<T>> create_async_handler() override {
        return impl::AsyncResultFutureBase<T>::create(*this, Future<T>());
    }
};

/// "Answer at once": the result of a later answer is "error.nqcore.result.invalidAsynchrony".
template <class T>
class NQCORE_TEMPLATE_API ResultControlErrorIfAsync final : public impl::ResultControlDirectIfSynchronousBase<T> {
public:
    [[nodiscard]] RefCountPtr<AsyncResult<T>> create_async_handler() override {
        return impl::AsyncResultErrorBase<T>::create(*this);
    }
};

template <class T>
ResultControlIgnoredIfAsync<T> impl::ResultControlIgnoredBase<T>::if_not_ready() const {
    return {};
}

template <class T>
[[nodiscard]] ResultControlIgnored<T> result_ignored() {
    return {};
}
template <class T>
[[nodiscard]] ResultControlFutureRef<T> result_future(const Future<T>& future) {
    return ResultControlFutureRef<T>(future);
}
template <class T>
[[nodiscard]] ResultControlFutureIfAsync<T> result_direct_if_synchronous() {
    return {};
}
template <class T>
[[nodiscard]] ResultControlErrorIfAsync<T> result_error_if_async() {
    return {};
}

}  // namespace nqcore
