// GoogleTest matchers for times.
//
//     EXPECT_THAT(stamp, TimeNear(AbsoluteTime::now(), RelativeTime::milliseconds(50)));
//     EXPECT_THAT(left, TimeNear(RelativeTime::seconds(5), RelativeTime::milliseconds(50)));
//
// A failure tells by how much the times differ.
#pragma once

#include "nqcore/abs_rel_time.h"
#include "nqcore/monotonic_time.h"
#include "nqcore/simple_date_time.h"
#include "nqcore/testing/printers.h"

#include <gmock/gmock.h>
#include <string>

namespace nqcore::matchers {
namespace impl {

/// `time - expected`, both on a line that does not wrap round; infinite when one of them is.
template <class Time>
RelativeTime distance(const Time& time, const Time& expected) noexcept {
    return AbsoluteTime::from_nsec(time.as_nsec()) - AbsoluteTime::from_nsec(expected.as_nsec());
}
/// By local time, as these compare.
inline RelativeTime distance(const SimpleDateTime& time, const SimpleDateTime& expected) noexcept {
    return time.as_local_time() - expected.as_local_time();
}

}  // namespace impl

/// The time differs from `expected`, a time of the same type, by at most `tolerance`. An infinite time is near infinite
/// only; an infinite tolerance takes any finite time besides.
MATCHER_P2(TimeNear, expected, tolerance,
           std::string(negation ? "is not within " : "is within ") + (tolerance).as_string() + " of " +
               ::testing::PrintToString(expected)) {
    const RelativeTime difference = impl::distance(arg, expected);
    if (arg == expected) {
        return true;
    }
    if (difference.is_infinite()) {
        *result_listener << "one of which is infinite";
        return false;
    }
    const RelativeTime magnitude = difference.is_negative() ? -difference : difference;
    *result_listener << "which is " << magnitude << (difference.is_negative() ? " earlier" : " later");
    return magnitude <= tolerance;
}

}  // namespace nqcore::matchers
