// How long one call of ACE may wait.
#pragma once

#include <ctime>

namespace nqcore::impl {

/// ACE's waits on Windows count milliseconds in 32 bits, which a time-out of weeks overflows: such a wait would end at
/// once. Longer waits are therefore made of several.
constexpr std::time_t s_aceLongestWaitSeconds = 86'400;

}  // namespace nqcore::impl
