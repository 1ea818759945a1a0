// The error of a failed call of the system, with what the system said nested in it.
#pragma once

#include "nqcore/config.h"
#include "nqcore/error_composer.h"

namespace nqcore::impl {

/// Throws what `composer` makes, caused by a failure of the system: a Windows error number on win32, one of `errno` on
/// posix, as the platform's own calls return it.
[[noreturn]] NQCORE_COLD void throw_system_failure(const ErrorComposer& composer, const ErrorCode& code,
                                                   const SourceLocation& location, unsigned long systemError);

}  // namespace nqcore::impl
