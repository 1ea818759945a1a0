// The stack trace that an exception keeps. What a trace is belongs to a higher family; here it is only carried.
#pragma once

#include "nqcore/config.h"
#include "nqcore/refcounted.h"

namespace nqcore {

class StackTrace;

namespace impl {

class ErrorTrace : public RefCounted<AtomicRefCount> {
public:
    using Ptr = RefCountPtr<const ErrorTrace>;

    [[nodiscard]] virtual const StackTrace& trace() const noexcept = 0;
};

/// The calling thread's stack from the caller of this on. Defined with `StackTrace`.
///
/// Returns  null for want of memory.
[[nodiscard]] NQCORE_COLD ErrorTrace::Ptr capture_error_trace() noexcept;

}  // namespace impl
}  // namespace nqcore
