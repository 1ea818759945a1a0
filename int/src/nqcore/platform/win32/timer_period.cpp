#include "platform/timer_period.h"

#include <windows.h>

#include <mmsystem.h>

namespace nqcore::platform {

unsigned begin_timer_period(unsigned milliseconds) noexcept { return timeBeginPeriod(milliseconds); }

unsigned end_timer_period(unsigned milliseconds) noexcept { return timeEndPeriod(milliseconds); }

}  // namespace nqcore::platform
