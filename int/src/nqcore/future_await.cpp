#include "nqcore/future_await.h"

#include "nqcore/abs_rel_time.h"

#include "after_signal_queue.h"
#include "nqcore/error_exception.h"
#include "nqcore/fault_report.h"
#include "nqcore/result_inner.h"
#include "source_id.h"

#include <utility>

namespace nqcore::impl {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/future_await.cpp#1 $");

}  // namespace

CoroutineWatch::~CoroutineWatch() = default;

void CoroutineWatch::pass_on(ErrorInfo::Ptr cancelled) noexcept {
    const RefCountPtr<CoroutineBase> owner = std::move(m_owner);
    if (cancelled) {
        if (const RefCountPtr<FutureImplBase> awaited = owner->exchange_awaited({})) {
            awaited->set(std::move(cancelled));
        }
    }
}

void CoroutineWatch::dropped() noexcept { m_owner.clear(); }

CancelLink::CancelLink(RefCountPtr<FutureImplBase> target) noexcept : m_target(std::move(target)) {}

CancelLink::~CancelLink() = default;

void CancelLink::pass_on(ErrorInfo::Ptr cancelled) noexcept {
    if (cancelled) {
        m_target->set(std::move(cancelled));
    }
    delete this;
}

void CancelLink::dropped() noexcept { delete this; }

CoroutineBase::~CoroutineBase() = default;

ErrorInfo::Ptr CoroutineBase::failure_in_flight() noexcept {
    return error_in_flight(s_source.here("nqcore::impl::CoroutineBase::unhandled_exception()"));
}

void CoroutineBase::unhandled_exception() noexcept { m_error = failure_in_flight(); }

void CoroutineBase::finish() noexcept {
    // The frame may go with this reference, or later with the watch's: from then on only the stack is used.
    RefCountPtr<CoroutineBase> self = std::move(m_self);
    if (AfterSignalQueue* const loop = AfterSignalQueue::that_resumed(m_frame)) {
        {
            const AfterSignalQueue::Collecting collecting(*loop);
            signal_outcome(std::move(m_error));
        }
        self.clear();
        return;  // to the loop
    }
    AfterSignalQueue own;
    {
        const AfterSignalQueue::Collecting collecting(own);
        signal_outcome(std::move(m_error));
    }
    self.clear();
    own.run();
}

// Null while the outcome has not been cancelled.
ErrorInfo::Ptr CoroutineBase::cancellation() const noexcept {
    ErrorInfo::Ptr error = m_outcome->error_info();
    return result_was_cancelled(error) ? error : ErrorInfo::Ptr();
}

void CoroutineBase::watch() {
    if (!m_watching) {
        m_watch->m_owner = RefCountPtr<CoroutineBase>(this);
        watch_outcome();
        m_watching = true;
    }
}

RefCountPtr<FutureImplBase> CoroutineBase::exchange_awaited(RefCountPtr<FutureImplBase> next) noexcept {
    return {__atomic_exchange_n(&m_awaited, next.detach(), __ATOMIC_ACQ_REL), false};
}

// Cancelling and waiting may meet. The canceller makes the outcome ready, then takes `m_awaited` out; the coroutine puts
// `m_awaited` down, then looks at the outcome. The exchanges have an order, so at least one of the two sees the other.
void CoroutineBase::begin_wait(FutureImplBase& inner) {
    if (m_cancelSeen) {
        return;  // cleaning up
    }
    watch();
    exchange_awaited(RefCountPtr<FutureImplBase>(&inner));
    if (ErrorInfo::Ptr cancelled = cancellation()) {
        give_up_wait();
        inner.set(std::move(cancelled));
    }
}

bool CoroutineBase::end_wait() noexcept {
    give_up_wait();
    if (m_cancelSeen || !cancellation()) {
        return false;
    }
    m_cancelSeen = true;
    return true;
}

FutureAwaiterBase::~FutureAwaiterBase() = default;

bool FutureAwaiterBase::suspend(std::coroutine_handle<> coroutine) {
    if (m_future == nullptr || m_future->wait(RelativeTime::zero)) {
        return false;
    }
    // Once the future has the observer, the coroutine may go on elsewhere and drop its handle, while the mutex is
    // still being freed here.
    const RefCountPtr<FutureImplBase> future(m_future);
    m_coroutine = coroutine;
    try {
        if (m_owner != nullptr) {
            m_owner->begin_wait(*future);
        }
        m_waiting = true;
        if (observe()) {
            return true;
        }
        m_waiting = false;
    } catch (...) {
        m_waiting = false;
        if (m_owner != nullptr) {
            m_owner->give_up_wait();
        }
        throw;
    }
    return false;
}

void FutureAwaiterBase::run(AfterSignalQueue& queue) noexcept {
    m_waiting = false;
    queue.resume(m_coroutine);
}

void FutureAwaiterBase::take_back(IFutureObserverBase* observer) noexcept {
    if (!m_future->remove_observer(observer)) {
        // Leaving this function ends the program: the thread that signalled would resume what is no more.
        throw_error(error::nqcore_future,
                    "A coroutine was destroyed after the future that it awaits had been signaled.",
                    s_source.here("nqcore::impl::FutureAwaiterBase::take_back()"));
    }
}

void FutureAwaiterBase::throw_cancelled() {
    ErrorException::throw_error(ResultInnerInvokerTagBase::outer_operation_cancelled());
}

void fail_handler_with_exception_in_flight(AsyncResultBase& handler) noexcept {
    constexpr SourceLocation location = s_source.here("nqcore::forward_future()");
    try {
        handler.on_async_result_error(error_in_flight(location));
    } catch (...) {
        create_dump_and_trace_anonymous_exception(location);
    }
}

}  // namespace nqcore::impl
