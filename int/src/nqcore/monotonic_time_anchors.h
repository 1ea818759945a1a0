// The moment at which the library was loaded, by both clocks: the fixed pair that maps one time line to the other.
#pragma once

#include "nqcore/abs_rel_time.h"
#include "nqcore/monotonic_time.h"

namespace nqcore::impl {

struct StartAnchors {
    const AbsoluteTime wall;
    const MonotonicTime mono;
};

/// Threads  any; the pair never changes.
[[nodiscard]] const StartAnchors& start_anchors() noexcept;

}  // namespace nqcore::impl
