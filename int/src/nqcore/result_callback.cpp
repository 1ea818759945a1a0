#include "nqcore/result_callback.h"

#include "nqcore/fault_report.h"
#include "source_id.h"

namespace nqcore::impl {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/result.cpp#1 $");

}  // namespace

ResultCallbackBase::~ResultCallbackBase() = default;

ResultCallbackBase::State ResultCallbackBase::state() const noexcept {
    return __atomic_load_n(&m_state, __ATOMIC_ACQUIRE);
}

bool ResultCallbackBase::leave_waiting(State next) noexcept {
    State waiting = s_waiting;
    return __atomic_compare_exchange_n(&m_state, &waiting, next, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}

bool ResultCallbackBase::cancelled() const noexcept { return state() == s_cancelled; }

bool ResultCallbackBase::begin_success() {
    if (leave_waiting(s_called)) {
        return true;
    }
    if (!cancelled()) {
        raise_redundant_signal_error({}, false);
    }
    return false;
}

void ResultCallbackBase::note_escape() noexcept { __atomic_store_n(&m_state, s_escaped, __ATOMIC_RELEASE); }

void ResultCallbackBase::fail(const ErrorInfo::Ptr& error) {
    if (error.is_null()) {
        raise_result_failure_null();
    }
    if (leave_waiting(s_called)) {
        call_error(error);
    } else if (!cancelled()) {
        raise_redundant_signal_error(error, state() == s_escaped);
    }
}

void ResultCallbackBase::cancel(const ErrorInfo::Ptr& cause) {
    const ErrorInfo::Ptr error = create_result_cancel_error(cause);
    if (leave_waiting(s_cancelled)) {
        call_error_last(error);
    }
}

void ResultCallbackBase::abandon() noexcept {
    if (leave_waiting(s_called)) {
        call_error_last(create_result_not_signaled_error_nothrow());
    }
}

void ResultCallbackBase::call_error_last(const ErrorInfo::Ptr& error) noexcept {
    try {
        call_error(error);
    } catch (...) {
        create_dump_and_trace_anonymous_exception(s_source.here("nqcore::impl::ResultCallbackBase::call_error_last()"));
    }
}

}  // namespace nqcore::impl
