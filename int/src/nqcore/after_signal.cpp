#include "nqcore/after_signal.h"

#include "after_signal_queue.h"
#include "nqcore/result_errors.h"

#include <utility>

namespace nqcore::impl {

AfterSignal::~AfterSignal() = default;

void AfterSignal::destroy() {
    if (m_told) {
        AfterSignalQueue::post(*this);
    } else {
        dropped();
    }
}

CancelListener::~CancelListener() = default;

void CancelListener::told(const ErrorInfo::Ptr& error) noexcept {
    AfterSignal::told(error);
    if (result_was_cancelled(error)) {
        m_cancelled = error;
    }
}

void CancelListener::run(AfterSignalQueue& queue) noexcept {
    const AfterSignalQueue::Collecting collecting(queue);
    pass_on(std::move(m_cancelled));
}

}  // namespace nqcore::impl
