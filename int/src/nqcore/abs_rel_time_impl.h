// What the sources of the time family share.
#pragma once

#include "source_id.h"

namespace nqcore::impl {

/// All sources of the family carry this one name in the locations of their errors.
constexpr SourceId s_absRelTimeSource("$Id: //nqcore/int/src/nqcore/abs_rel_time.cpp#1 $");

}  // namespace nqcore::impl
