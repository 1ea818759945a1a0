#include "nqcore/future.h"

#include "nqcore/abs_rel_time.h"

#include "ace_object.h"
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/fault_report.h"
#include "platform/event.h"
#include "source_id.h"

#include <ace/Thread_Mutex.h>

#include <cerrno>
#include <utility>

namespace nqcore {
namespace impl {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/future.cpp#1 $");

// An observer that lets an exception escape must not keep the others from hearing, nor the future from being ready.
template <class Notification>
void notify(const Notification& tell) noexcept {
    try {
        tell();
    } catch (...) {
        create_dump_and_trace_anonymous_exception(s_source.here("nqcore::impl::FutureImplBase::set()"));
    }
}

[[noreturn]] NQCORE_COLD void refuse_null_observer() {
    raise_null_parameter_error("observer", SourceString::npos, s_source.here("nqcore::Future::add_observer()"));
}

// What a wait for the event has answered: false when its time ran out.
bool happened(int result) {
    if (result != 0 && result != platform::s_eventTimedOut) {
        throw_errno(s_source.here("nqcore::impl::FutureImplBase::wait()"), result);
    }
    return result == 0;
}

}  // namespace

class FutureImplBase::Lock {
public:
    explicit Lock(const FutureImplBase& state) noexcept : m_mutex(ace_object<ACE_Thread_Mutex>(state.m_mutex)) {
        m_mutex.acquire();
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() { m_mutex.release(); }

private:
    ACE_Thread_Mutex& m_mutex;
};

FutureImplBase::FutureImplBase() { make_ace_object<ACE_Thread_Mutex>(m_mutex); }

FutureImplBase::~FutureImplBase() {
    if (m_eventMade) {
        platform::destroy_event(m_event);
    }
    m_observers.clear();
    m_error.clear();
    ace_object<ACE_Thread_Mutex>(m_mutex).~ACE_Thread_Mutex();
}

bool FutureImplBase::set(ErrorInfo::Ptr error) {
    if (error.is_null()) {
        ErrorComposer("Cannot signal Future with a NULL error")
            .throw_with_nested_errno(error::nqcore_future_nullError,
                                     s_source.here("nqcore::impl::FutureImplBase::set()"), EINVAL);
    }
    return become_ready(std::move(error), nullptr, nullptr);
}

bool FutureImplBase::signal_success(const SuccessSteps& steps, void* value) { return become_ready({}, &steps, value); }

bool FutureImplBase::become_ready(ErrorInfo::Ptr&& error, const SuccessSteps* steps, void* value) {
    ThinVector<Observer> told;  // their references are released after the mutex
    const Lock lock(*this);
    if (m_ready) {
        return false;
    }
    if (steps != nullptr) {
        steps->store(*this, value);
    }
    told.swap(m_observers);
    for (const Observer& observer : told) {
        notify([&] {
            if (steps != nullptr) {
                steps->tell(*this, *observer);
            } else {
                observer->on_future_error(error);
            }
        });
    }
    m_error = std::move(error);
    signal_ready();
    return true;
}

void FutureImplBase::signal_ready() noexcept {
    __atomic_store_n(&m_ready, true, __ATOMIC_RELEASE);
    if (m_eventMade) {
        platform::signal_event(m_event);
    }
}

// An observer that asks is told "not ready": its signaller has the mutex, and holds it still.
bool FutureImplBase::is_ready() const noexcept {
    if (!ready_flag()) {
        return false;
    }
    const Lock lock(*this);
    return m_ready;
}

bool FutureImplBase::has_error() const noexcept { return is_ready() && !m_error.is_null(); }

bool FutureImplBase::has_value() const noexcept { return is_ready() && m_error.is_null(); }

ErrorInfo::Ptr FutureImplBase::error_info() const noexcept { return is_ready() ? m_error : ErrorInfo::Ptr(); }

void FutureImplBase::wait() const {
    if (!ready_flag() && make_event()) {
        happened(platform::wait_for_event(m_event));
    }
}

bool FutureImplBase::wait(const AbsoluteTime& deadline) const {
    if (ready_flag()) {
        return true;
    }
    if (deadline <= AbsoluteTime::now()) {
        return ready_flag();
    }
    return !make_event() ||
           happened(deadline.is_infinite() ? platform::wait_for_event(m_event)
                                           : platform::wait_for_event_until(m_event, deadline.as_nsec()));
}

bool FutureImplBase::wait(const RelativeTime& timeout) const {
    if (ready_flag()) {
        return true;
    }
    if (timeout <= RelativeTime::zero) {
        return false;
    }
    return !make_event() ||
           happened(timeout.is_infinite() ? platform::wait_for_event(m_event)
                                          : platform::wait_for_event_during(m_event, timeout.as_nsec()));
}

// Returns  false when the future has become ready meanwhile.
bool FutureImplBase::make_event() const {
    const Lock lock(*this);
    if (m_ready) {
        return false;
    }
    if (!m_eventMade) {
        if (const int failure = platform::make_event(m_event); failure != 0) {
            throw_errno(s_source.here("nqcore::impl::FutureImplBase::wait()"), failure);
        }
        m_eventMade = true;
    }
    return true;
}

// What is ready does not change any more, and is read without the mutex, which the signaller may still hold.
void FutureImplBase::wait_for_value() const {
    wait();
    if (!m_error.is_null()) {
        ErrorException::throw_if_error(m_error);
    }
}

bool FutureImplBase::add_observer_entry(Observer observer) {
    if (observer.is_null()) [[unlikely]] {
        refuse_null_observer();
    }
    const Lock lock(*this);
    if (m_ready) {
        return false;
    }
    m_observers.make_room();  // while the caller still holds the observer: its reference must not go under the mutex
    m_observers.push_back(std::move(observer));
    return true;
}

bool FutureImplBase::remove_observer(IFutureObserverBase* observer) {
    Observer removed;  // its reference is released after the mutex
    const Lock lock(*this);
    Observer* const entry = find_observer(observer);
    if (entry == m_observers.end()) {
        return false;
    }
    removed = std::move(*entry);
    m_observers.erase(entry);
    return true;
}

FutureImplBase::Observer* FutureImplBase::find_observer(IFutureObserverBase* observer) noexcept {
    Observer* entry = m_observers.begin();
    while (entry != m_observers.end() && entry->get() != observer) {
        ++entry;
    }
    return entry;
}

FutureImpl<void>::FutureImpl() = default;
FutureImpl<void>::~FutureImpl() = default;

bool FutureImpl<void>::set_value() {
    static constexpr SuccessSteps s_steps{
        [](FutureImplBase&, void*) {},
        [](const FutureImplBase&, IFutureObserverBase& observer) { observer.on_future_success(); }};
    return signal_success(s_steps, nullptr);
}

bool FutureImpl<void>::add_observer(IFutureObserver<void>* observer, FutureObserverOwner owner) {
    return add_observer_entry(Observer(observer, std::move(owner)));
}

void signal_abandoned_future(FutureImplBase& future) noexcept {
    if (!future.is_ready()) {
        future.set(create_result_not_signaled_error_nothrow());
    }
}

void raise_null_future_error() {
    raise_null_parameter_error("future", SourceString::npos, s_source.here("nqcore::Future::impl()"));
}

constinit const Nil Nil::instance;

}  // namespace impl

constinit const impl::Nil& nil = impl::Nil::instance;

}  // namespace nqcore
