#include "result_signal_check.h"

#include "nqcore/error_exception.h"
#include "nqcore/result.h"
#include "source_id.h"

#include <ace/OS_NS_Thread.h>
#include <ace/Thread.h>

#include <cstdlib>

namespace nqcore {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/result.cpp#1 $");

/// The check's switch and the thread slot that holds each thread's newest active control.
struct SignalCheck {
    bool on = false;
    ACE_thread_key_t slot{};
};

SignalCheck read_switch() noexcept {
    SignalCheck check;
    check.on = impl::signal_check_wanted(std::getenv("NQCORE_CHECK_ASYNC_RESULT_SIGNALING")) &&
               ACE_OS::thr_keycreate(&check.slot, nullptr) == 0;
    return check;
}

// Off until the library has started: what runs earlier is not checked.
SignalCheck s_check = read_switch();
unsigned int s_lastActivation = 0;

// The stack of this thread. Only its own thread touches it.
const ResultControlBase* newest() noexcept {
    void* control = nullptr;
    ACE_Thread::getspecific(s_check.slot, &control);
    return static_cast<const ResultControlBase*>(control);
}

// Returns  false when there is no memory for the slot of this thread.
bool set_newest(const ResultControlBase* control) noexcept {
    return ACE_OS::thr_setspecific(s_check.slot, const_cast<ResultControlBase*>(control)) == 0;
}

// 0 means "not active", so it is left out when the counter wraps.
unsigned int next_activation() noexcept {
    const unsigned int number = __atomic_add_fetch(&s_lastActivation, 1, __ATOMIC_RELAXED);
    return number != 0 ? number : __atomic_add_fetch(&s_lastActivation, 1, __ATOMIC_RELAXED);
}

}  // namespace

ResultControlBase::~ResultControlBase() noexcept(false) {
    if (m_activation != 0) {
        deactivate();
    }
}

bool ResultControlBase::is_cancelled() const { return false; }

unsigned int ResultControlBase::activate() const {
    if (m_activation != 0 || !s_check.on) {
        return m_activation;
    }
    m_previous = newest();
    if (set_newest(this)) {
        m_activation = next_activation();
    }
    return m_activation;  // 0 without memory: this one goes unchecked
}

void ResultControlBase::deactivate() {
    const ResultControlBase* at = newest();
    if (at == this) {
        static_cast<void>(set_newest(m_previous));  // the slot is there
        return;
    }
    for (; at != nullptr; at = at->m_previous) {
        if (at->m_previous == this) {
            at->m_previous = m_previous;
            return;
        }
    }
    throw_error(error::nqcore_result_wrongThread,
                "ResultControl deactivated on a thread other than the one for which it was activated.",
                s_source.here("nqcore::ResultControlBase::deactivate()"));
}

void ResultControlBase::validate_async_signal(unsigned int number) {
    if (!s_check.on) {
        return;
    }
    for (const ResultControlBase* at = newest(); at != nullptr; at = at->m_previous) {
        if (at->m_activation == number) {
            throw_error(error::nqcore_result_invalidAsyncSignalScope,
                        "Attempt to use an AsyncResult object to signal a result synchronously.",
                        s_source.here("nqcore::ResultControlBase::validate_async_signal()"));
        }
    }
}

}  // namespace nqcore
