// platform/child.h: what the tool asks of the system about processes that it starts.
#pragma once

#include "nqcore/process_info.h"

#include <cstdint>
#include <string>
#include <vector>

namespace nq::platform {

/// What to run, and for how long.
struct ChildPlan {
    static constexpr std::int64_t unlimited = INT64_MAX;

    std::vector<std::string> words;        ///< the program, which is searched for, and its arguments; at least one
    std::int64_t limitNs = unlimited;      ///< then it is asked to end
    std::int64_t killAfterNs = unlimited;  ///< later, when it has not, it is ended
};

struct ChildEnd {
    nqcore::ExitCode exitCode;
    bool isOverLimit = false;
};

/// Runs a program with the standard streams and the environment of this process, and waits for its end. Signals that
/// come from other processes meanwhile (to interrupt, end, hang up, quit, and the user's own) are passed on; those of
/// the terminal reach the program anyway.
///
/// With a limit the program gets a process group (a job on Windows), which is ended as a whole at the limit; but not when
/// this process is in the foreground of a terminal, which a group in the background could not read. Windows ends a job
/// at the limit without asking it first.
///
/// Returns  0, or the C runtime's error number for a program that cannot be started: ENOENT when it is not found.
[[nodiscard]] int run_child(const ChildPlan& plan, ChildEnd& end);

}  // namespace nq::platform
