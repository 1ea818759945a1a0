// A failure that the error family raises too, declared here because the family that owns it builds on errors.
#pragma once

#include "nqcore/config.h"

namespace nqcore {

/// Errors   "error.nqcore.string.embeddedNul", always.
[[noreturn]] NQCORE_API NQCORE_COLD void raise_embedded_nul_error();

}  // namespace nqcore
