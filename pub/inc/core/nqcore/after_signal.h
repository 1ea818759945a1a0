// AfterSignal: what a future sets off when it becomes ready, done after its mutex is free: coroutines that go on, futures
// that are cancelled along with it. For the library's own templates; programs register observers with the future.
#pragma once

#include "nqcore/config.h"
#include "nqcore/error_info.h"
#include "nqcore/future.h"
#include "nqcore/refcounted.h"

namespace nqcore::impl {

class AfterSignalQueue;

/// What is to happen after a future has become ready, when its mutex is free again.
///
/// It is registered with the future as the observer and as the observer's owner, so that the future's reference is the
/// only one: the future tells it, frees its mutex and drops the reference, which calls `destroy`. It needs no memory
/// of its own and may lie in a coroutine's frame.
///
///     not registered --observe--> registered --told (mutex held)--> told --reference dropped--> run, here or queued
///                                     \--refused, or taken back--> dropped
///
/// Threads  `run` is called on the thread that signals, before the signal returns.
class NQCORE_API AfterSignal : public RefCounted<AtomicRefCount> {
protected:
    AfterSignal() noexcept = default;
    AfterSignal(const AfterSignal&) = delete;
    AfterSignal& operator=(const AfterSignal&) = delete;
    ~AfterSignal() override;

    void told(const RefCountPtr<const ErrorInfo>&) noexcept { m_told = true; }
    virtual void run(AfterSignalQueue& queue) noexcept = 0;
    /// Instead of `run`, when the future did not take it or gave it back.
    virtual void dropped() noexcept {}

private:
    friend class AfterSignalQueue;
    void destroy() final;

    AfterSignal* m_next = nullptr;
    bool m_told = false;
};

/// `Base`, an `AfterSignal`, as an observer of a `Future<T>`. Its `told` is called with the error; null on success.
template <class Base, class T>
class FutureListener : public Base, public IFutureObserver<T> {
public:
    using Base::Base;

private:
    void on_future_error(const RefCountPtr<const ErrorInfo>& error) final { this->told(error); }
    void on_future_value(const T&) final { this->told({}); }
};
template <class Base>
class FutureListener<Base, void> : public Base, public IFutureObserver<void> {
public:
    using Base::Base;

private:
    void on_future_error(const RefCountPtr<const ErrorInfo>& error) final { this->told(error); }
    void on_future_success() final { this->told({}); }
};

/// Registers `listener` for the moment of readiness, with the future's reference as its only one.
///
/// Returns  false when the future is ready: the listener has been dropped.
template <class T, class Base>
bool listen(FutureImpl<T>& future, FutureListener<Base, T>& listener) {
    return future.add_observer(&listener, FutureObserverOwner(&listener));
}

/// Hears of a future's cancellation.
class NQCORE_API CancelListener : public AfterSignal {
protected:
    ~CancelListener() override;
    void told(const RefCountPtr<const ErrorInfo>& error) noexcept;
    void run(AfterSignalQueue& queue) noexcept final;
    /// Called also when it was not cancelled, with null. May destroy the object.
    virtual void pass_on(RefCountPtr<const ErrorInfo> cancelled) noexcept = 0;

private:
    RefCountPtr<const ErrorInfo> m_cancelled;
};

}  // namespace nqcore::impl
