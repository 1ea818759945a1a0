// Reporting an exception that nobody can be given: from an observer, a callback, a cleanup.
//
//     try { observer.on_future_success(); }
//     catch (...) { nqcore::create_dump_and_trace_anonymous_exception(NQCORE_HERE); }
#pragma once

#include "nqcore/config.h"
#include "nqcore/refcounted.h"

namespace nqcore {

class ErrorInfo;
class SourceLocation;

/// Writes the exception in flight to the trace as an error record, with the place that caught it.
///
/// The trace is ACE's log (`ACE_Log_Msg`, standard error unless the program directs it elsewhere), priority `LM_ERROR`,
/// one entry for each line. Where KAVO_TRACE_ROOT names a folder, the first call in a process also writes a memory dump
/// there, whose path goes to the trace; all threads stand still meanwhile.
/// In       `location`: where the exception was caught.
/// Errors   none: what fails on the way is left out.
/// Threads  any. Call it from a `catch` block; with no exception in flight it says so.
NQCORE_API NQCORE_COLD void create_dump_and_trace_anonymous_exception(const SourceLocation& location) noexcept;

namespace impl {

/// The exception in flight as a record: its own, or one that describes it, or "error.exception.bad_alloc" when there is
/// no memory for that. Null when there is none.
///
/// Threads  any. Call it from a `catch` block.
[[nodiscard]] NQCORE_API NQCORE_COLD RefCountPtr<const ErrorInfo> error_in_flight(
    const SourceLocation& location) noexcept;

}  // namespace impl
}  // namespace nqcore
