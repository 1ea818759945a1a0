// platform/process.h: what the tool asks of the system about itself: arguments, standard streams, the terminal.
#pragma once

#include <string>
#include <vector>

namespace nq::platform {

/// Makes the standard streams carry bytes unchanged and a closed pipe an error like any other, lets a terminal show
/// UTF-8, and gives the arguments (without the program's name) as UTF-8.
///
/// In       what `main` was given.
[[nodiscard]] std::vector<std::string> start(int count, char** arguments);

/// True when a person reads along, and the terminal takes control codes: a dumb one does not.
[[nodiscard]] bool is_terminal(int file) noexcept;

}  // namespace nq::platform
