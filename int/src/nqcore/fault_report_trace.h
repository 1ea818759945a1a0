// Writing reports to the trace: ACE's log.
#pragma once

#include <string>

namespace nqcore::impl {

/// Priority `LM_ERROR`, one entry for each line.
///
/// Errors   `std::bad_alloc`, and what the log's own callbacks throw.
void trace_lines(const std::string& text);

}  // namespace nqcore::impl
