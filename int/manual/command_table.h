// Reading the tool's command table: what the manual page and the shells' completions are made of.
#pragma once

#include "arguments.h"

#include <string>
#include <string_view>
#include <vector>

namespace nq::manual {

/// A command with the words that lead to it, "utf8 check".
struct NamedCommand {
    std::string path;
    const Command* command;
};

/// Every command but the root, each before its children, in the order of the help text.
[[nodiscard]] std::vector<NamedCommand> all_commands();

/// "-o" and "--output" of "-o,--output".
[[nodiscard]] inline std::vector<std::string> spellings(const Option& option) { return split(option.name, ','); }
[[nodiscard]] inline bool is_positional(const Option& option) noexcept { return option.name[0] != '-'; }
[[nodiscard]] inline bool takes_many(const Option& option) noexcept { return option.isList || option.isRest; }
[[nodiscard]] inline bool takes_files(const Option& option) noexcept {
    return option.value != nullptr && std::string_view(option.value) == "FILE";
}

/// Whether a command's words are another program and its arguments.
[[nodiscard]] inline bool takes_command(const Option& option) noexcept { return option.isRest; }

/// What every command takes and no table lists.
inline constexpr Option commonOptions[] = {
    {.name = "-h,--help", .help = "Show this help and exit"},
    {.name = "--brief", .help = "Describe failures in one line each"},
};

// The texts.
[[nodiscard]] std::string manual_page(std::string_view date);
[[nodiscard]] std::string bash_completion();
[[nodiscard]] std::string zsh_completion();
[[nodiscard]] std::string fish_completion();

}  // namespace nq::manual
