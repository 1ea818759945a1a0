#include "nqcore/result_errors.h"

#include "error_reserve.h"
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "source_id.h"

#include <string_view>
#include <utility>

namespace nqcore::impl {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/result.cpp#1 $");
constexpr ErrorTemplate s_invalidValue{"Invalid '{@param}' value: {@value}", "param", "value"};

std::string_view measured(const char* name, unsigned length) noexcept {
    if (name == nullptr) {
        return {};
    }
    return length == SourceString::npos ? std::string_view(name) : std::string_view(name, length);
}

const ErrorReserve s_notSignaled(&create_result_not_signaled_error);

}  // namespace

void raise_not_waitable_error() {
    throw_error(error::nqcore_result_notWaitable,
                "Operation requiring a waitable object attemped on a Result which is not waitable.",
                s_source.here("nqcore::impl::raise_not_waitable_error()"));
}

void raise_result_failure_null() {
    throw_error(error::nqcore_result_badParameter, "Null ErrorInfo pointer",
                s_source.here("nqcore::impl::raise_result_failure_null()"));
}

void raise_null_parameter_error(const char* name, unsigned length, const SourceLocation& location) {
    s_invalidValue.compose(measured(name, length), "NULL").throw_error(error::nqcore_result_badParameter, location);
}

void raise_redundant_signal_error(ErrorInfo::Ptr cause, bool from_success_callback) {
    throw_error(error::nqcore_result_redundantSignal,
                from_success_callback ? "A success callback PROBABLY allowed an exception to escape."
                                      : "A result which had already been signaled, was signaled again.",
                s_source.here("nqcore::impl::raise_redundant_signal_error()"), cause);
}

void throw_result_error(const ErrorInfo::Ptr& error) { ErrorException::throw_error(error); }

bool result_was_cancelled(const ErrorInfo::Ptr& error) noexcept {
    return !error.is_null() && error->matches(error::nqcore_result_cancelled);
}

ErrorInfo::Ptr create_result_cancel_error(const ErrorInfo::Ptr& cause) {
    return ErrorInfo::create(error::nqcore_result_cancelled, "Operation cancelled",
                             s_source.here("nqcore::impl::create_result_cancel_error()"), cause);
}

ErrorInfo::Ptr create_result_not_signaled_error() {
    return ErrorInfo::create(error::nqcore_result_notSignaled,
                             "An asynchronous result handler is being destroyed but the result has not been signaled.",
                             s_source.here("nqcore::impl::create_result_not_signaled_error()"));
}

ErrorInfo::Ptr create_result_not_signaled_error_nothrow() noexcept { return s_notSignaled.get(); }

ErrorInfo::Ptr create_unexpected_asynchrony_error() {
    return ErrorInfo::create(error::nqcore_result_invalidAsynchrony,
                             "Asynchronous operation initiated with result_error_if_async()",
                             s_source.here("nqcore::impl::create_unexpected_asynchrony_error()"));
}

}  // namespace nqcore::impl
