// The error records of the asynchronous family: made, raised and recognised here.
#pragma once

#include "nqcore/config.h"
#include "nqcore/error_info.h"

namespace nqcore {

class SourceLocation;

namespace impl {

/// Throws "error.nqcore.result.notWaitable": an empty result was asked to wait or for its value.
[[noreturn]] NQCORE_API NQCORE_COLD void raise_not_waitable_error();

/// Throws "error.nqcore.result.badParameter", "Null ErrorInfo pointer": an error signal carries no error.
[[noreturn]] NQCORE_API NQCORE_COLD void raise_result_failure_null();

/// Throws "error.nqcore.result.badParameter" for a parameter that is null, at the caller's location.
///
/// In       `name`: `length` bytes; -1 measures up to the NUL. Null counts as empty.
[[noreturn]] NQCORE_API NQCORE_COLD void raise_null_parameter_error(const char* name, unsigned length,
                                                                    const SourceLocation& location);

/// Throws "error.nqcore.result.redundantSignal".
///
/// In       `cause`: becomes the nested record; may be null.
/// In       `from_success_callback`: the second signal is an error that follows a success callback.
[[noreturn]] NQCORE_API NQCORE_COLD void raise_redundant_signal_error(RefCountPtr<const ErrorInfo> cause,
                                                                      bool from_success_callback);

/// Throws the error of a result.
[[noreturn]] NQCORE_API NQCORE_COLD void throw_result_error(const RefCountPtr<const ErrorInfo>& error);

/// True for "error.nqcore.result.cancelled" and the codes below it; false for null.
[[nodiscard]] NQCORE_API bool result_was_cancelled(const RefCountPtr<const ErrorInfo>& error) noexcept;

// New records. The cause of a cancellation becomes its nested record; null gives none.
[[nodiscard]] NQCORE_API RefCountPtr<const ErrorInfo> create_result_cancel_error(
    const RefCountPtr<const ErrorInfo>& cause);
[[nodiscard]] NQCORE_API RefCountPtr<const ErrorInfo> create_result_not_signaled_error();
/// The same; when memory is exhausted a record that is kept for this: a waiter must be woken then, too.
[[nodiscard]] NQCORE_API RefCountPtr<const ErrorInfo> create_result_not_signaled_error_nothrow() noexcept;
[[nodiscard]] NQCORE_API RefCountPtr<const ErrorInfo> create_unexpected_asynchrony_error();

}  // namespace impl
}  // namespace nqcore
