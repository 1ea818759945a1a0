// The parameters of a function in a frame, with their values.
#pragma once

#include "symbols_locations.h"

#include "platform/symbols.h"

namespace nqcore::platform {

void hand_over_parameters(FunctionFrame& frame, ParameterSink& sink);

}  // namespace nqcore::platform
