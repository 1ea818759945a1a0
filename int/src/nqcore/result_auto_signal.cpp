#include "nqcore/result_auto_signal.h"

#include "error_reserve.h"
#include "nqcore/fault_report.h"
#include "source_id.h"

#include <utility>

namespace nqcore {
namespace impl {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/result_auto_signal.cpp#1 $");

ErrorInfo::Ptr forgotten_signal_error() {
    return ErrorInfo::create(error::nqcore_result, "Derived class neither set the failure nor called signal_success().",
                             s_source.here("nqcore::impl::AutoSignalAsyncResultBase::~AutoSignalAsyncResultBase()"));
}

const ErrorReserve s_forgottenSignal(&forgotten_signal_error);

}  // namespace

AutoSignalAsyncResultBase::~AutoSignalAsyncResultBase() {
    if (m_handlers.empty()) {
        return;
    }
    if (m_failure.is_null()) {
        m_failure = s_forgottenSignal.get();
    }
    signal_each(
        [](AsyncResultBase& handler, const void* failure) {
            handler.on_async_result_error(*static_cast<const ErrorInfo::Ptr*>(failure));
        },
        &m_failure);
}

void AutoSignalAsyncResultBase::push_back(RefCountPtr<AsyncResultBase> handler) {
    if (handler.is_null()) {
        raise_null_parameter_error("handler", SourceString::npos,
                                   s_source.here("nqcore::impl::AutoSignalAsyncResultBase::push_back()"));
    }
    m_handlers.push_back(std::move(handler));
}

void AutoSignalAsyncResultBase::signal_each(void (*signal)(AsyncResultBase&, const void*),
                                            const void* context) noexcept {
    const ThinVector<RefCountPtr<AsyncResultBase>> handlers(std::move(m_handlers));
    for (const RefCountPtr<AsyncResultBase>& handler : handlers) {
        try {
            signal(*handler, context);
        } catch (...) {
            create_dump_and_trace_anonymous_exception(
                s_source.here("nqcore::AutoSignalAsyncResult::~AutoSignalAsyncResult()"));
        }
    }
}

DispatchedCompletion<void>::DispatchedCompletion(const ErrorInfo::Ptr& error) : m_error(error) {
    if (error.is_null()) {
        raise_result_failure_null();
    }
}

void DispatchedCompletion<void>::signal(AsyncResult<void>& handler) const {
    if (m_error.is_null()) {
        handler.on_async_result_success();
    } else {
        handler.on_async_result_error(m_error);
    }
}

constinit const Nil& DispatchedCompletion<void>::value = Nil::instance;

}  // namespace impl

AutoSignalAsyncResult<void>::~AutoSignalAsyncResult() { signal_success(); }

void AutoSignalAsyncResult<void>::signal_success() noexcept {
    if (!has_failure()) {
        signal_each([](AsyncResultBase& handler,
                       const void*) { static_cast<AsyncResult<void>&>(handler).on_async_result_success(); },
                    nullptr);
    }
}

}  // namespace nqcore
