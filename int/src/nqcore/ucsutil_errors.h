// The error records of the Unicode functions.
#pragma once

#include "nqcore/config.h"
#include "nqcore/error_info.h"
#include "nqcore/ucsutil.h"

namespace nqcore::impl {

/// The record of a fault, as `check_valid_utf8` raises it.
///
/// In       `fault`: not `none`.
[[nodiscard]] NQCORE_COLD ErrorInfo::Ptr create_utf8_error(Utf8Fault fault);

/// Raises "error.nqcore.string.conversion".
///
/// In       `function`: "nqcore::converter()", a literal; `message`: a literal; `cause`: may be null.
[[noreturn]] NQCORE_COLD void raise_conversion_error(const char* function, const char* message, ErrorInfo::Ptr cause);

}  // namespace nqcore::impl
