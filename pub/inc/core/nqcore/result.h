// Result: the caller's handle on the outcome of an operation, and ResultControl: how the caller wants to learn it.
//
//     nqcore::Result<int> answer = ask(question, nqcore::result_future(future));   // nqcore/result_control.h
//     if (answer.wait(RelativeTime::seconds(5))) { use(answer.get()); }            // get() throws the error
//
// An operation takes a control and returns a result. It answers at once through `signal_result` or `signal_error`, or
// asks for a handler (nqcore/async_result.h), returns the handler's result, and signals the handler later:
//
//     Result<int> ask(const Question& question, ResultControl<int>&& control) {
//         if (known(question)) return control.signal_result(answer_to(question));
//         RefCountPtr<AsyncResult<int>> handler = control.create_async_handler();
//         queue(question, handler);
//         return handler->get_result();
//     }
#pragma once

#include "nqcore/config.h"
#include "nqcore/error_info.h"
#include "nqcore/future.h"
#include "nqcore/refcounted.h"
#include "nqcore/result_errors.h"
#include "nqcore/result_value.h"
#include "nqcore/transfer_source.h"

#include <new>
#include <type_traits>

namespace nqcore {

class AnyResultBarrier;
class AsyncOpHandle;
class AsyncResultBase;
class ResultBase;
template <class T>
class AsyncHandlerAdapterControl;
template <class T>
class AsyncResult;

namespace impl {

/// Anything that can be asked to stop: every shared result object and every handler.
class NQCORE_API AsyncOp : public RefCounted<AtomicRefCount> {
public:
    AsyncOp() noexcept = default;
    ~AsyncOp() override;

    /// Asks the operation to stop.
    ///
    /// In       `interrupt`: whether it may be broken off while it runs; the library's own objects treat both alike.
    /// In       `cause`: why; may be null.
    virtual void cancel(bool interrupt, const RefCountPtr<const ErrorInfo>& cause) const = 0;
};

/// The shared object behind a result of any type.
///
/// Threads  any. Once ready, the outcome never changes.
class NQCORE_API ResultImplBase : public AsyncOp {
public:
    ~ResultImplBase() override;

    [[nodiscard]] virtual bool is_ready() const = 0;
    [[nodiscard]] virtual bool has_error() const = 0;
    [[nodiscard]] virtual bool is_waitable() const = 0;
    /// Returns  true when ready within the time.
    virtual bool wait(const RelativeTime& timeout) const = 0;
    /// Waits without limit, then gives the place of the value (`Nil::instance` for `void`) or throws the error.
    virtual const void* get() const = 0;
    /// Null when there is no error, or not yet.
    [[nodiscard]] virtual RefCountPtr<const ErrorInfo> error_info() const = 0;
};

/// The shared object behind a `Result<T>`.
template <class T>
class NQCORE_TEMPLATE_API ResultImpl : public ResultImplBase {};

/// A value, ready from birth.
template <class T>
class NQCORE_TEMPLATE_API ValueResultImpl final : public ResultImpl<T> {
public:
    explicit ValueResultImpl(T&& value) : m_value(static_cast<T&&>(value)) {}

    void cancel(bool, const RefCountPtr<const ErrorInfo>&) const override {}
    [[nodiscard]] bool is_ready() const override { return true; }
    [[nodiscard]] bool has_error() const override { return false; }
    [[nodiscard]] bool is_waitable() const override { return true; }
    bool wait(const RelativeTime&) const override { return true; }
    const void* get() const override { return __builtin_addressof(m_value); }
    [[nodiscard]] RefCountPtr<const ErrorInfo> error_info() const override { return {}; }

private:
    T m_value;
};
template <>
class NQCORE_API ValueResultImpl<void> final : public ResultImpl<void> {
public:
    ValueResultImpl() noexcept;
    ~ValueResultImpl() override;
    void cancel(bool interrupt, const RefCountPtr<const ErrorInfo>& cause) const override;
    [[nodiscard]] bool is_ready() const override;
    [[nodiscard]] bool has_error() const override;
    [[nodiscard]] bool is_waitable() const override;
    bool wait(const RelativeTime& timeout) const override;
    const void* get() const override;
    [[nodiscard]] RefCountPtr<const ErrorInfo> error_info() const override;
};

/// An error, ready from birth.
template <class T>
class NQCORE_TEMPLATE_API ErrorResultImpl final : public ResultImpl<T> {
public:
    /// In       `error`: not null.
    explicit ErrorResultImpl(RefCountPtr<const ErrorInfo> error) noexcept
        : m_error(static_cast<RefCountPtr<const ErrorInfo>&&>(error)) {}

    void cancel(bool, const RefCountPtr<const ErrorInfo>&) const override {}
    [[nodiscard]] bool is_ready() const override { return true; }
    [[nodiscard]] bool has_error() const override { return true; }
    [[nodiscard]] bool is_waitable() const override { return true; }
    bool wait(const RelativeTime&) const override { return true; }
    const void* get() const override { throw_result_error(m_error); }
    [[nodiscard]] RefCountPtr<const ErrorInfo> error_info() const override { return m_error; }

private:
    RefCountPtr<const ErrorInfo> m_error;
};

/// What a future says.
template <class T>
class NQCORE_TEMPLATE_API FutureResultImpl final : public ResultImpl<T> {
public:
    explicit FutureResultImpl(Future<T> future) noexcept : m_future(static_cast<Future<T>&&>(future)) {}

    /// Signals the future with `create_result_cancel_error(cause)`; one that is ready keeps its outcome.
    void cancel(bool, const RefCountPtr<const ErrorInfo>& cause) const override {
        m_future.shared()->set(create_result_cancel_error(cause));
    }
    [[nodiscard]] bool is_ready() const override { return m_future.is_ready(); }
    [[nodiscard]] bool has_error() const override { return m_future.has_error(); }
    [[nodiscard]] bool is_waitable() const override { return true; }
    bool wait(const RelativeTime& timeout) const override { return m_future.wait(timeout); }
    const void* get() const override {
        if constexpr (std::is_void_v<T>) {
            m_future.get();
            return &Nil::instance;
        } else {
            return __builtin_addressof(m_future.get());
        }
    }
    [[nodiscard]] RefCountPtr<const ErrorInfo> error_info() const override { return m_future.error_info(); }

    [[nodiscard]] const Future<T>& future() const noexcept { return m_future; }

private:
    Future<T> m_future;
};

}  // namespace impl

/// What results of all types have in common; may be empty.
///
/// Threads  the outcome may be signalled from any thread; one handle may not be written while another thread uses it.
class NQCORE_API ResultBase {
public:
    ResultBase() noexcept = default;

    // All false for an empty result.
    [[nodiscard]] bool is_ready() const;
    [[nodiscard]] bool has_error() const;
    /// Ready, without an error.
    [[nodiscard]] bool has_value() const;
    /// `wait` and `get` may be called.
    [[nodiscard]] bool is_waitable() const;

    /// Null when there is no error, or not yet, and for an empty result.
    [[nodiscard]] RefCountPtr<const ErrorInfo> error_info() const;
    /// Throws the error, when there is one by now.
    void throw_if_error() const;

    /// Blocks until ready.
    ///
    /// Errors   "error.nqcore.result.notWaitable" for an empty result.
    void wait() const;
    /// Returns  true when ready within the time.
    bool wait(const RelativeTime& timeout) const;

    /// Asks the operation to stop; does nothing for an empty result.
    void cancel(bool interrupt, const RefCountPtr<const ErrorInfo>& cause) const;

protected:
    explicit ResultBase(RefCountPtr<const impl::ResultImplBase> shared) noexcept
        : m_impl(static_cast<RefCountPtr<const impl::ResultImplBase>&&>(shared)) {}

    [[nodiscard]] const impl::ResultImplBase* impl() const noexcept { return m_impl.get(); }
    /// The object, or "error.nqcore.result.notWaitable".
    [[nodiscard]] const impl::ResultImplBase& waitable_impl() const;
    void swap_base(ResultBase& other) noexcept { m_impl.swap(other.m_impl); }

private:
    template <class T>
    friend class Result;
    friend class AnyResultBarrier;
    friend class AsyncOpHandle;

    RefCountPtr<const impl::ResultImplBase> m_impl;
};

/// The outcome of an operation: a value, an error, not yet known, or (empty) never to be known here.
///
/// In       `T`: an object type, which may be move-only, or `void`.
template <class T>
class [[nodiscard]] Result : public ResultBase {
    static_assert(impl::is_result_value<T>, "a result holds an object or void: use a pointer in place of a reference");

public:
    using value_type = T;

    Result() noexcept = default;
    explicit Result(RefCountPtr<const impl::ResultImpl<T>> shared) noexcept
        : ResultBase(
              RefCountPtr<const impl::ResultImplBase>(static_cast<RefCountPtr<const impl::ResultImpl<T>>&&>(shared))) {}
    Result(TransferSource<Result> source) noexcept : Result(source.take()) {}

    /// Waits without limit, then gives the value or throws the error.
    ///
    /// Errors   the operation's own, the same record; "error.nqcore.result.notWaitable" for an empty result.
    /// Lifetime the reference is good as long as any result that shares the outcome. An rvalue returns a
    ///          copy, where there can be one.
    impl::ResultValueRef<T> get() const& {
        [[maybe_unused]] const void* const value = waitable_impl().get();
        if constexpr (!std::is_void_v<T>) {
            return *static_cast<const T*>(value);
        }
    }
    T get() const&&
        requires(std::is_void_v<T> || std::is_copy_constructible_v<T>)
    {
        return static_cast<const Result&>(*this).get();
    }

    /// The future behind the outcome; null when there is none, because the outcome was known at once.
    [[nodiscard]] Future<T> future() const {
        const auto* const shared = dynamic_cast<const impl::FutureResultImpl<T>*>(impl());
        return shared == nullptr ? Future<T>(nullptr) : shared->future();
    }

    void swap(Result& other) noexcept { swap_base(other); }
    [[nodiscard]] TransferSource<Result> transfer() noexcept {
        return TransferSource<Result>(static_cast<Result&&>(*this));
    }

private:
    friend class AnyResultBarrier;

    /// `other`, or an empty result when its object is of another type.
    static Result dynamic_cast_from(const ResultBase& other) {
        return Result(RefCountPtr<const impl::ResultImpl<T>>(dynamic_cast<const impl::ResultImpl<T>*>(other.impl())));
    }
};

/// A result that is ready with `value`.
template <class T>
Result<std::remove_cvref_t<T>> ready_result(T&& value) {
    using Value = std::remove_cvref_t<T>;
    return Result<Value>(
        RefCountPtr<const impl::ResultImpl<Value>>(new impl::ValueResultImpl<Value>(Value(static_cast<T&&>(value)))));
}
inline Result<void> ready_result() {
    return Result<void>(RefCountPtr<const impl::ResultImpl<void>>(new impl::ValueResultImpl<void>));
}
/// A result that is ready with `error`.
///
/// Errors   "error.nqcore.result.badParameter" for null.
template <class T>
Result<T> failed_result(RefCountPtr<const ErrorInfo> error) {
    if (error.is_null()) {
        impl::raise_result_failure_null();
    }
    return Result<T>(RefCountPtr<const impl::ResultImpl<T>>(
        new impl::ErrorResultImpl<T>(static_cast<RefCountPtr<const ErrorInfo>&&>(error))));
}
/// A result that becomes ready with `future`.
///
/// Errors   "error.nqcore.result.badParameter" for a null handle.
template <class T>
Result<T> future_result(Future<T> future) {
    if (future.is_null()) {
        impl::raise_null_future_error();
    }
    return Result<T>(
        RefCountPtr<const impl::ResultImpl<T>>(new impl::FutureResultImpl<T>(static_cast<Future<T>&&>(future))));
}

/// What a caller names in a call to say how the outcome is to reach it; normally a temporary of that call.
///
/// With the signalling check on (`NQCORE_CHECK_ASYNC_RESULT_SIGNALING`), a control becomes active when a handler is
/// made from it, and stays so until it is destroyed. The active controls of a thread form a stack:
///
///     thread slot -> newest -> ... -> oldest -> null       activate: push      deactivate: unlink, from any place
///
/// Threads  belongs to the thread that made it. Destroying an active control on another thread throws
///          "error.nqcore.result.wrongThread" from the destructor: a hard failure, on purpose.
class NQCORE_API ResultControlBase {
public:
    ResultControlBase() noexcept = default;
    // A copy starts inactive.
    ResultControlBase(const ResultControlBase&) noexcept {}
    ResultControlBase& operator=(const ResultControlBase&) noexcept { return *this; }
    virtual ~ResultControlBase() noexcept(false);

    [[nodiscard]] virtual bool is_ignored() const = 0;
    /// True when the operation need not go on.
    [[nodiscard]] virtual bool is_cancelled() const;

private:
    friend class AsyncResultBase;
    template <class T>
    friend class AsyncHandlerAdapterControl;

    /// Returns  this control's activation number; 0 when the check is off.
    unsigned int activate() const;
    void deactivate();
    /// Throws "error.nqcore.result.invalidAsyncSignalScope" when the control with this number is still active on this
    /// thread: the call that was given the control has not returned yet.
    static void validate_async_signal(unsigned int number);

    // 0 while not active.
    mutable unsigned int m_activation = 0;
    mutable const ResultControlBase* m_previous = nullptr;
};

namespace impl {

/// An object that a control owns in place.
class NQCORE_API ControlAttachment {
public:
    ControlAttachment() noexcept = default;
    ControlAttachment(const ControlAttachment&) = delete;
    ControlAttachment& operator=(const ControlAttachment&) = delete;
    virtual ~ControlAttachment();
};

/// The control's own storage for at most one attachment. A copy has none.
class NQCORE_API ControlAttachmentHolder : public ResultControlBase {
public:
    ControlAttachmentHolder() noexcept = default;
    ControlAttachmentHolder(const ControlAttachmentHolder& other) noexcept : ResultControlBase(other) {}
    ControlAttachmentHolder& operator=(const ControlAttachmentHolder&) noexcept { return *this; }
    ~ControlAttachmentHolder() noexcept(false) override;

    [[nodiscard]] bool is_ignored() const override;

    /// Makes an `Attachment` in the control; it goes with the control. Replaces an earlier one.
    template <class Attachment, class... Arguments>
    Attachment& attach(Arguments&&... arguments) {
        static_assert(std::is_base_of_v<ControlAttachment, Attachment> && sizeof(Attachment) <= sizeof m_room &&
                          alignof(Attachment) <= alignof(void*),
                      "an attachment has 16 bytes for itself");
        detach();
        auto* const made = ::new (m_room) Attachment(static_cast<Arguments&&>(arguments)...);
        m_attachment = made;
        return *made;
    }
    [[nodiscard]] ControlAttachment* attachment() const noexcept { return m_attachment; }

private:
    void detach();

    ControlAttachment* m_attachment = nullptr;
    alignas(void*) unsigned char m_room[16];
};

}  // namespace impl

/// How the caller of an operation with a `T` wants to learn the outcome.
///
/// An operation uses its control once: `signal_result` or `signal_error` before it returns, or `create_async_handler`.
/// Errors   `signal_error` with null: "error.nqcore.result.badParameter".
template <class T>
class NQCORE_TEMPLATE_API ResultControl : public impl::ControlAttachmentHolder {
    static_assert(impl::is_result_value<T>, "a result holds an object or void: use a pointer in place of a reference");

public:
    virtual Result<T> signal_result(T value) = 0;
    virtual Result<T> signal_error(const RefCountPtr<const ErrorInfo>& error) = 0;
    [[nodiscard]] virtual RefCountPtr<AsyncResult<T>> create_async_handler() = 0;
};
template <>
class NQCORE_TEMPLATE_API ResultControl<void> : public impl::ControlAttachmentHolder {
public:
    virtual Result<void> signal_result() = 0;
    virtual Result<void> signal_error(const RefCountPtr<const ErrorInfo>& error) = 0;
    [[nodiscard]] virtual RefCountPtr<AsyncResult<void>> create_async_handler() = 0;
};

}  // namespace nqcore
