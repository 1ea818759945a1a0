#include "nqcore/async_result.h"
#include "nqcore/error_exception.h"

#include "nqcore/result_control.h"
#include "source_id.h"

namespace nqcore {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/result.cpp#1 $");

}  // namespace

AsyncResultBase::AsyncResultBase(const ResultControlBase& control) : m_originatingActivation(control.activate()) {}

AsyncResultBase::~AsyncResultBase() = default;

void AsyncResultBase::on_async_result_error(const ErrorInfo::Ptr& error) {
    validate_signal_scope();
    if (error.is_null()) {
        impl::raise_result_failure_null();
    }
    async_error_impl(error);
}

namespace impl {

void refuse_redundant_signal(const FutureImplBase& future, const ErrorInfo::Ptr& cause) {
    if (!result_was_cancelled(future.error_info())) {
        raise_redundant_signal_error(cause, false);
    }
}

void raise_null_handler_error() {
    raise_null_parameter_error("handler", SourceString::npos,
                               s_source.here("nqcore::AsyncHandlerAdapterControl::AsyncHandlerAdapterControl()"));
}

template class AsyncResultIgnoredBase<void>;
template class AsyncResultCancelledBase<void>;
template class AsyncResultErrorBase<void>;
template class AsyncResultFutureBase<void>;
template class AsyncHandlerAdapterControlBase<void>;
template class ResultControlIgnoredBase<void>;
template class ResultControlFutureRefBase<void>;
template class ResultControlDirectIfSynchronousBase<void>;

}  // namespace impl
}  // namespace nqcore
