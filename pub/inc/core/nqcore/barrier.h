// AnyFutureBarrier and AnyResultBarrier: several operations, of any value types, waited for with one deadline.
//
//     AnyResultBarrier barrier;
//     barrier.push_back(read(a, result_direct_if_synchronous<Text>()));
//     barrier.push_back(write(b, result_direct_if_synchronous<void>()));
//     if (!barrier.wait(RelativeTime::seconds(10))) barrier.cancel(error);
#pragma once

#include "nqcore/abs_rel_time.h"
#include "nqcore/config.h"
#include "nqcore/error_info.h"
#include "nqcore/future.h"
#include "nqcore/refcounted.h"
#include "nqcore/result.h"
#include "nqcore/thin_vector.h"

namespace nqcore {
namespace impl {

/// What both barriers do with their elements, which share a `State`.
template <class AnyElement>
class NQCORE_TEMPLATE_API BarrierBase {
public:
    using iterator = AnyElement*;
    using const_iterator = const AnyElement*;

    void push_back(const AnyElement& element) { m_elements.push_back(element); }
    /// Returns  the place of the element behind the erased one.
    iterator erase(AnyElement* const& at) { return m_elements.erase(at); }
    [[nodiscard]] iterator begin() noexcept { return m_elements.begin(); }
    [[nodiscard]] iterator end() noexcept { return m_elements.end(); }
    [[nodiscard]] const_iterator begin() const noexcept { return m_elements.begin(); }
    [[nodiscard]] const_iterator end() const noexcept { return m_elements.end(); }
    [[nodiscard]] unsigned int size() const noexcept { return static_cast<unsigned int>(m_elements.size()); }
    [[nodiscard]] bool empty() const noexcept { return m_elements.empty(); }
    void clear() { m_elements.clear(); }

    /// Keeps the elements that are not ready, in their order.
    void remove_all_ready() {
        AnyElement* kept = m_elements.begin();
        for (AnyElement& element : m_elements) {
            if (!element.is_ready()) {
                swap_elements(*kept++, element);
            }
        }
        m_elements.truncate(kept);
    }

    // Failed is ready with an error, successful ready without one. Each element is read under its own lock, so an answer
    // may be old by the time it is given, but never half of one.

    /// True also when the barrier is empty: nothing is left to wait for.
    [[nodiscard]] bool any_ready() const {
        return empty() || any([](const AnyElement& element) { return element.is_ready(); });
    }
    [[nodiscard]] bool all_ready() const {
        return !any([](const AnyElement& element) { return !element.is_ready(); });
    }
    // False when the barrier is empty.
    [[nodiscard]] bool any_failed() const { return any(failed); }
    [[nodiscard]] bool all_failed() const {
        return !empty() && !any([](const AnyElement& element) { return !failed(element); });
    }
    [[nodiscard]] bool any_successful() const { return any(successful); }
    [[nodiscard]] bool all_successful() const {
        return !empty() && !any([](const AnyElement& element) { return !successful(element); });
    }

    /// Waits for the elements in their order, all against one deadline.
    ///
    /// Returns  false when the time ran out; the elements behind the one that was late are not looked at.
    bool wait(const AbsoluteTime& deadline) const {
        for (const AnyElement& element : m_elements) {
            if (!element.is_ready() && !element.wait(time_left(deadline))) {
                return false;
            }
        }
        return true;
    }
    bool wait(const RelativeTime& timeout) const { return wait(AbsoluteTime(timeout)); }
    void wait() const { wait(AbsoluteTime::infinite); }

protected:
    BarrierBase() noexcept = default;
    void swap_base(BarrierBase& other) noexcept { m_elements.swap(other.m_elements); }

private:
    // The distance to a deadline of long ago does not fit, and counts as very long.
    static RelativeTime time_left(const AbsoluteTime& deadline) noexcept {
        return deadline <= AbsoluteTime::now() ? RelativeTime::zero : deadline.remaining();
    }
    static bool failed(const AnyElement& element) { return element.has_error(); }
    static bool successful(const AnyElement& element) { return element.has_value(); }
    static void swap_elements(AnyElement& a, AnyElement& b) noexcept {
        AnyElement first(static_cast<AnyElement&&>(a));
        a = static_cast<AnyElement&&>(b);
        b = static_cast<AnyElement&&>(first);
    }
    template <class Question>
    bool any(Question question) const {
        for (const AnyElement& element : m_elements) {
            if (question(element)) {
                return true;
            }
        }
        return false;
    }

    ThinVector<AnyElement> m_elements;
};

/// A future of any type. Null only after a move from it: every operation throws "error.nqcore.result.badParameter" then.
class NQCORE_API AnyFutureElement {
public:
    /// Errors   "error.nqcore.result.badParameter" for a null handle.
    template <class T>
    AnyFutureElement(const Future<T>& future) : AnyFutureElement(RefCountPtr<FutureImplBase>(future.shared())) {}
    explicit AnyFutureElement(RefCountPtr<FutureImplBase> shared);

    [[nodiscard]] bool is_ready() const { return state().is_ready(); }
    [[nodiscard]] bool has_error() const { return state().has_error(); }
    [[nodiscard]] bool has_value() const { return state().has_value(); }
    [[nodiscard]] RefCountPtr<const ErrorInfo> error_info() const { return state().error_info(); }
    bool wait(const RelativeTime& timeout) const { return state().wait(timeout); }

    /// The future as what it is.
    ///
    /// Errors   a `std::exception` "AnyFutureBarrier : bad future cast" when it is of another type.
    template <class T>
    [[nodiscard]] Future<T> get_future() const;

    [[nodiscard]] const RefCountPtr<FutureImplBase>& shared() const noexcept { return m_shared; }

private:
    [[nodiscard]] const FutureImplBase& state() const {
        if (m_shared.is_null()) [[unlikely]] {
            raise_null_future_error();
        }
        return *m_shared;
    }

    RefCountPtr<FutureImplBase> m_shared;
};

/// A result of any type. Not empty.
class NQCORE_API AnyResultElement {
public:
    /// Errors   "error.nqcore.result.notWaitable" for an empty result.
    AnyResultElement(const ResultBase& result);

    [[nodiscard]] bool is_ready() const { return m_result.is_ready(); }
    [[nodiscard]] bool has_error() const { return m_result.has_error(); }
    [[nodiscard]] bool has_value() const { return m_result.has_value(); }
    [[nodiscard]] RefCountPtr<const ErrorInfo> error_info() const { return m_result.error_info(); }
    bool wait(const RelativeTime& timeout) const { return m_result.wait(timeout); }
    void cancel(bool interrupt, const RefCountPtr<const ErrorInfo>& cause) const { m_result.cancel(interrupt, cause); }

    /// The result as what it is.
    ///
    /// Errors   a `std::exception` "AnyResultBarrier : bad result cast" when it is of another type.
    template <class T>
    Result<T> get_result() const;

private:
    ResultBase m_result;
};

}  // namespace impl

/// Futures of any types, in the order in which they were added.
///
/// Threads  one thread owns a barrier; its futures may be signalled by others. Copies share the futures.
class NQCORE_API AnyFutureBarrier : public impl::BarrierBase<impl::AnyFutureElement> {
public:
    using AnyFuture = impl::AnyFutureElement;

    void swap(AnyFutureBarrier& other) noexcept { swap_base(other); }

    /// Signals every future with `error`.
    ///
    /// Returns  how many were made ready by that; the others keep their outcome.
    /// Errors   "error.nqcore.future.nullError" for null.
    unsigned int set_error_if_not_ready(const RefCountPtr<const ErrorInfo>& error) const;

private:
    friend class impl::AnyFutureElement;

    /// Throws the exception of a typed cast that failed.
    [[noreturn]] static void raise_bad_future_cast();
};

/// Results of any types, in the order in which they were added.
///
/// Threads  one thread owns a barrier; its results may become ready by others. Copies share the operations.
class NQCORE_API AnyResultBarrier : public impl::BarrierBase<impl::AnyResultElement> {
public:
    using AnyResult = impl::AnyResultElement;

    void swap(AnyResultBarrier& other) noexcept { swap_base(other); }

    /// Cancels every operation.
    void cancel(const RefCountPtr<const ErrorInfo>& cause) const;

private:
    friend class impl::AnyResultElement;

    [[noreturn]] static void raise_bad_result_cast();
    /// `result`, or an empty result when it is of another type.
    template <class T>
    static Result<T> cast(const ResultBase& result) {
        return Result<T>::dynamic_cast_from(result);
    }
};

template <class T>
Future<T> impl::AnyFutureElement::get_future() const {
    auto* const typed = dynamic_cast<FutureImpl<T>*>(m_shared.get());
    if (typed == nullptr) {
        AnyFutureBarrier::raise_bad_future_cast();
    }
    return Future<T>(RefCountPtr<FutureImpl<T>>(typed));
}

template <class T>
Result<T> impl::AnyResultElement::get_result() const {
    Result<T> typed = AnyResultBarrier::cast<T>(m_result);
    if (!typed.is_waitable()) {
        AnyResultBarrier::raise_bad_result_cast();
    }
    return typed;
}

}  // namespace nqcore
