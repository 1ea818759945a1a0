// Future: the waitable cell of the asynchronous family. It becomes ready once, with a value or an error, and any number
// of threads may wait for it.
//
//     nqcore::Future<int> answer;
//     std::thread worker([answer]() mutable { answer.set_value(42); });
//     if (answer.wait(RelativeTime::seconds(5))) { use(answer.get()); }   // get() throws the error, if there is one
//
// A Future is a handle: copies share one cell. Times are only declared here: nqcore/abs_rel_time.h has them.
#pragma once

#include "nqcore/ace_storage.h"
#include "nqcore/config.h"
#include "nqcore/error_info.h"
#include "nqcore/interface_ptr.h"
#include "nqcore/refcounted.h"
#include "nqcore/result_errors.h"
#include "nqcore/result_value.h"
#include "nqcore/thin_vector.h"

#include <new>
#include <type_traits>

namespace nqcore {

class AbsoluteTime;
class RelativeTime;

/// Is told of a future's outcome.
///
/// Threads  called once, on the thread that signals, with the future's mutex held and before any waiter wakes: the same
///          future still answers that it is not ready. Do not wait for it, signal it, add observers to it or take them
///          away from here, and do not block. An exception that escapes is reported (nqcore/fault_report.h) and
///          dropped. The reference that was registered with the observer is released when the mutex is free again.
class IFutureObserverBase {
public:
    virtual void on_future_error(const RefCountPtr<const ErrorInfo>& error) = 0;
    /// Success without a value. A value-bearing future calls `IFutureObserver<T>::on_future_value` instead.
    virtual void on_future_success() = 0;

protected:
    ~IFutureObserverBase() = default;
};

/// The observer of a `Future<T>`.
template <class T>
class IFutureObserver : public IFutureObserverBase {
public:
    virtual void on_future_value(const T& value) = 0;
    void on_future_success() final {}

protected:
    ~IFutureObserver() = default;
};
template <>
class IFutureObserver<void> : public IFutureObserverBase {
protected:
    ~IFutureObserver() = default;
};

namespace impl {

/// Keeps the object behind an observer alive while it is registered.
using FutureObserverOwner = RefCountPtr<RefCounted<AtomicRefCount>>;

/// The shared state of a future: everything but the value.
///
///     not ready --set(error)------> ready, error   }  once; every later signal
///               --success(value)--> ready, value   }  returns false and changes nothing
///
/// The mutex guards error, observers and (in a value-bearing state) the value until ready is set; from then on error
/// and value never change. A signal takes the mutex, tells the observers, stores the outcome, sets ready, wakes the
/// waiters, frees the mutex and at last releases the observers' references.
///
/// Waiters look at ready first, without the mutex, and block on the event, never on the mutex. The first one that has
/// to block makes the event; without one a signal costs no system call.
///
/// Threads  any.
class NQCORE_API FutureImplBase : public RefCounted<AtomicRefCount> {
public:
    using Observer = InterfacePtr<IFutureObserverBase, FutureObserverOwner>;

    /// Makes the future ready with `error`.
    ///
    /// Returns  true when this call made it ready; false when it was ready, and `error` is dropped.
    /// Errors   "error.nqcore.future.nullError" for null, before anything else.
    bool set(RefCountPtr<const ErrorInfo> error);

    [[nodiscard]] bool is_ready() const noexcept;
    /// Ready, with an error.
    [[nodiscard]] bool has_error() const noexcept;
    /// Ready, without an error.
    [[nodiscard]] bool has_value() const noexcept;
    /// Null while not ready, and on success.
    [[nodiscard]] RefCountPtr<const ErrorInfo> error_info() const noexcept;

    /// Blocks until ready.
    ///
    /// Errors   the system's error when the wait fails; the future is as it was.
    void wait() const;
    /// Returns  true when ready; false when the time ran out.
    /// Cost     a ready future, a zero time and a deadline in the past are answered without a system call.
    bool wait(const AbsoluteTime& deadline) const;
    bool wait(const RelativeTime& timeout) const;

    /// Takes an observer back.
    ///
    /// Returns  true when it was registered: it will not be called. False when it has been called, or never was there.
    bool remove_observer(IFutureObserverBase* observer);

protected:
    /// What a value adds to the moment of success. `value` is the one given to `signal_success`.
    struct SuccessSteps {
        void (*store)(FutureImplBase& state, void* value);
        void (*tell)(const FutureImplBase& state, IFutureObserverBase& observer);
    };

    FutureImplBase();
    FutureImplBase(const FutureImplBase&) = delete;
    FutureImplBase& operator=(const FutureImplBase&) = delete;
    ~FutureImplBase() override;

    /// As `set`, without an error. When storing throws, the exception passes through and nothing has changed.
    bool signal_success(const SuccessSteps& steps, void* value);
    /// Registers an observer, unless the future is ready.
    ///
    /// Returns  false when ready: the observer is not kept and not called.
    bool add_observer_entry(Observer observer);
    /// Sets ready and wakes the waiters; the caller holds the mutex.
    void signal_ready() noexcept;
    /// The entry of `observer`, or the end; the caller holds the mutex.
    [[nodiscard]] Observer* find_observer(IFutureObserverBase* observer) noexcept;
    /// Waits, then throws the error if there is one.
    void wait_for_value() const;
    /// Without the mutex: true only once the outcome is there to be read.
    [[nodiscard]] bool ready_flag() const noexcept { return __atomic_load_n(&m_ready, __ATOMIC_ACQUIRE); }
    [[nodiscard]] bool holds_value() const noexcept { return m_ready && m_error.is_null(); }

private:
    class Lock;

    bool become_ready(RefCountPtr<const ErrorInfo>&& error, const SuccessSteps* steps, void* value);
    bool make_event() const;

    mutable AceThreadMutexStorage m_mutex;
    bool m_ready = false;
    mutable bool m_eventMade = false;
    RefCountPtr<const ErrorInfo> m_error;
    ThinVector<Observer> m_observers;
    mutable EventStorage m_event;  // made by the first waiter that has to block
};

/// The shared state of a `Future<T>`.
template <class T>
class NQCORE_TEMPLATE_API FutureImpl : public FutureImplBase {
public:
    FutureImpl() {}

    bool set_value(T&& value) { return signal_success(s_steps, __builtin_addressof(value)); }
    bool add_observer(IFutureObserver<T>* observer, FutureObserverOwner owner) {
        return add_observer_entry(Observer(observer, static_cast<FutureObserverOwner&&>(owner)));
    }
    const T& get() const {
        wait_for_value();
        return m_value;
    }
    T take() {
        wait_for_value();
        return static_cast<T&&>(m_value);
    }

protected:
    ~FutureImpl() override {
        if (holds_value()) {
            m_value.~T();
        }
    }

private:
    static void store(FutureImplBase& state, void* value) {
        ::new (static_cast<void*>(__builtin_addressof(static_cast<FutureImpl&>(state).m_value)))
            T(static_cast<T&&>(*static_cast<T*>(value)));
    }
    static void tell(const FutureImplBase& state, IFutureObserverBase& observer) {
        static_cast<IFutureObserver<T>&>(observer).on_future_value(static_cast<const FutureImpl&>(state).m_value);
    }
    static constexpr SuccessSteps s_steps{store, tell};

    union {
        T m_value;  // there once ready without an error
    };
};
template <>
class NQCORE_API FutureImpl<void> : public FutureImplBase {
public:
    FutureImpl();

    bool set_value();
    bool add_observer(IFutureObserver<void>* observer, FutureObserverOwner owner);
    void get() const { wait_for_value(); }
    void take() { wait_for_value(); }

protected:
    ~FutureImpl() override;
};

/// The last one who could signal goes: a future that is still not ready gets "error.nqcore.result.notSignaled".
NQCORE_API void signal_abandoned_future(FutureImplBase& future) noexcept;

/// Throws "error.nqcore.result.badParameter" for an operation on a handle that holds no future.
[[noreturn]] NQCORE_API NQCORE_COLD void raise_null_future_error();

}  // namespace impl

/// A handle on a future cell, or null.
///
/// In       `T`: an object type or `void`. Move-only types will do; references will not: use a pointer.
/// Threads  the cell may be used from any thread. One handle may not be written while another thread uses it.
/// Errors   every operation of a null handle throws "error.nqcore.result.badParameter".
template <class T>
class Future {
    static_assert(impl::is_result_value<T>, "a future holds an object or void: use a pointer in place of a reference");

public:
    using value_type = T;

    /// A new future that is not ready.
    Future() : m_impl(new impl::FutureImpl<T>) {}
    /// A null handle.
    Future(std::nullptr_t) noexcept {}
    explicit Future(RefCountPtr<impl::FutureImpl<T>> shared) noexcept
        : m_impl(static_cast<RefCountPtr<impl::FutureImpl<T>>&&>(shared)) {}
    Future(TransferSource<Future> source) noexcept : Future(source.take()) {}

    [[nodiscard]] bool is_null() const noexcept { return m_impl.is_null(); }

    [[nodiscard]] bool is_ready() const { return impl()->is_ready(); }
    [[nodiscard]] bool has_value() const { return impl()->has_value(); }
    [[nodiscard]] bool has_error() const { return impl()->has_error(); }
    /// Null while not ready, and on success.
    [[nodiscard]] RefCountPtr<const ErrorInfo> error_info() const { return impl()->error_info(); }

    /// As the operations of `impl::FutureImplBase`.
    void wait() const { impl()->wait(); }
    bool wait(const AbsoluteTime& deadline) const { return impl()->wait(deadline); }
    bool wait(const RelativeTime& timeout) const { return impl()->wait(timeout); }

    /// Waits without limit, then gives the value or throws the error.
    ///
    /// Lifetime the reference is good as long as any handle on the cell is. On an rvalue a copy is returned, where
    ///          there can be one.
    impl::ResultValueRef<T> get() const& { return impl()->get(); }
    T get() const&&
        requires(std::is_void_v<T> || std::is_copy_constructible_v<T>)
    {
        return impl()->get();
    }
    /// The same, but moves the value out, for the one who knows that nobody else reads it.
    T take() { return impl()->take(); }

    /// Makes the future ready with an error.
    ///
    /// Returns  true when this call made it ready; false when it was ready already, and nothing has changed.
    /// Errors   "error.nqcore.future.nullError" for null.
    bool set(RefCountPtr<const ErrorInfo> error) {
        return impl()->set(static_cast<RefCountPtr<const ErrorInfo>&&>(error));
    }
    /// Makes the future ready with a value. When moving the value throws, the future is as it was.
    template <class U = T>
        requires(std::is_constructible_v<T, U &&>)
    bool set_value(U&& value) {
        T made(static_cast<U&&>(value));
        return impl()->set_value(static_cast<T&&>(made));
    }
    bool set_value()
        requires(std::is_void_v<T>)
    {
        return impl()->set_value();
    }
    /// Signals "error.nqcore.result.cancelled" with `cause` nested; the operation behind it sees that and stops.
    ///
    /// Returns  false when the future was ready already.
    bool cancel(const RefCountPtr<const ErrorInfo>& cause = {}) {
        return impl()->set(impl::create_result_cancel_error(cause));
    }

    /// Registers an observer for the moment of readiness.
    ///
    /// In       `owner`: keeps the observer alive while it is registered; may be null when the caller sees to that.
    /// Returns  false when the future is ready: the observer is not kept and not called.
    /// Errors   "error.nqcore.result.badParameter" for a null observer.
    bool add_observer(IFutureObserver<T>* observer, impl::FutureObserverOwner owner = {}) const {
        return impl()->add_observer(observer, static_cast<impl::FutureObserverOwner&&>(owner));
    }
    /// Returns  true when it was registered, and will not be called; false when it has been called or was not there.
    bool remove_observer(IFutureObserverBase* observer) const { return impl()->remove_observer(observer); }

    /// The shared state; null for a null handle.
    [[nodiscard]] const RefCountPtr<impl::FutureImpl<T>>& shared() const noexcept { return m_impl; }

    [[nodiscard]] TransferSource<Future> transfer() noexcept {
        return TransferSource<Future>(static_cast<Future&&>(*this));
    }
    void swap(Future& other) noexcept { m_impl.swap(other.m_impl); }
    /// Equal when both share one cell.
    friend bool operator==(const Future& a, const Future& b) noexcept { return a.m_impl == b.m_impl; }

private:
    impl::FutureImpl<T>* impl() const {
        if (m_impl.is_null()) [[unlikely]] {
            impl::raise_null_future_error();
        }
        return m_impl.get();
    }

    RefCountPtr<impl::FutureImpl<T>> m_impl;
};

/// A future that is ready with `value`.
template <class T>
[[nodiscard]] Future<std::remove_cvref_t<T>> ready_future(T&& value) {
    Future<std::remove_cvref_t<T>> future;
    future.set_value(static_cast<T&&>(value));
    return future;
}
[[nodiscard]] inline Future<void> ready_future() {
    Future<void> future;
    future.set_value();
    return future;
}
/// A future that is ready with `error`.
template <class T>
[[nodiscard]] Future<T> failed_future(RefCountPtr<const ErrorInfo> error) {
    Future<T> future;
    future.set(static_cast<RefCountPtr<const ErrorInfo>&&>(error));
    return future;
}

}  // namespace nqcore

/// Of the cell's address, as `==` compares it.
template <class T>
struct std::hash<nqcore::Future<T>> {
    std::size_t operator()(const nqcore::Future<T>& future) const noexcept {
        return std::hash<const void*>()(future.shared().get());
    }
};
