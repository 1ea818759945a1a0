#include "nqcore/result_inner.h"

#include "nqcore/error_exception.h"
#include "source_id.h"

namespace nqcore::impl {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/result.cpp#1 $");

}  // namespace

ResultInnerInvokerTagBase& ResultInnerInvokerTagBase::operator=(const ResultInnerInvokerTagBase&) noexcept = default;
ResultInnerInvokerTagBase& ResultInnerInvokerTagBase::operator=(ResultInnerInvokerTagBase&&) noexcept = default;

ErrorInfo::Ptr ResultInnerInvokerTagBase::outer_operation_cancelled() {
    return ErrorInfo::create(error::nqcore_result_cancelled_innerOperation,
                             "The outer operation was cancelled before the inner operation completed.",
                             s_source.here("nqcore::impl::ResultInnerInvokerTagBase::outer_operation_cancelled()"));
}

void ResultInnerInvokerTagBase::fail_with_exception_in_flight(AsyncResultBase& outer) {
    const ErrorInfo::Ptr error =
        error_in_flight(s_source.here("nqcore::impl::ResultInnerInvoker::fail_with_exception_in_flight()"));
    try {
        outer.on_async_result_error(error);
    } catch (const ErrorException& refused) {
        if (refused.matches(error::nqcore_result_redundantSignal)) {
            raise_redundant_signal_error(error, true);
        }
        throw;
    }
}

}  // namespace nqcore::impl
