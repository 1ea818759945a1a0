// The command line, read against the table of commands.
#pragma once

#include "command.h"

#include <string>
#include <string_view>
#include <vector>

namespace nq {

/// What to do.
struct Invocation {
    const Command* command = nullptr;  ///< null: write `answer` and be done
    Arguments arguments;
    bool isBrief = false;
    std::string answer;  ///< help, or the version
};

/// In       `words`: the arguments without the program's name, UTF-8.
/// Errors   "error.nq.usage".
[[nodiscard]] Invocation parse_command_line(std::vector<std::string> words, const Command& root);

/// The parts between separators: "-o" and "--output" of "-o,--output".
[[nodiscard]] std::vector<std::string> split(std::string_view text, char separator);

}  // namespace nq
