// What `nq run` and `nq env set-and-run` share: a child process and the exit code that follows from it.
#pragma once

#include "command.h"
#include "platform/child.h"

#include <optional>

namespace nq {

// Beside those of the child itself, as other tools that run programs have them.
inline constexpr int s_exitOverLimit = 124;
inline constexpr int s_exitNotStarted = 126;
inline constexpr int s_exitNotFound = 127;
inline constexpr int s_exitBySignal = 128;  // and the signal

inline constexpr char s_childExitCodes[] =
    "The exit code is that of COMMAND; 126 when it cannot be started, 127 when it is not found, 128 + N when signal N\n"
    "ended it (linux), and as everywhere 2 for bad usage.\n";

/// Runs it, after what was written so far has been. A failure to start is reported.
///
/// Out      `exitCode`: of the tool.
/// Returns  how the child ended; nothing when it was not started.
[[nodiscard]] std::optional<platform::ChildEnd> run_child(Context& context, const platform::ChildPlan& plan,
                                                          int& exitCode);

}  // namespace nq
