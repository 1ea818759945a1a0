// The tool without its surroundings: from arguments to exit code.
#pragma once

#include "output.h"

#include <string>
#include <vector>

namespace nq {

/// Parses the command line, runs the command, writes its failure.
///
/// In       `words`: the arguments without the program's name, UTF-8.
/// Returns  the exit code. 0 only when everything was written.
[[nodiscard]] int run_tool(std::vector<std::string> words, Output& out, Output& err);

}  // namespace nq
