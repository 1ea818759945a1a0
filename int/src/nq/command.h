// How the tool is put together: a table of commands, each with a table of options and a function.
//
// The tables are all that a command tells the frame; help, parsing and usage errors follow from them. A new command is
// one source that defines its `Command`, declared below and listed in commands.cpp.
#pragma once

#include "output.h"

#include <map>
#include <span>
#include <string>
#include <vector>

namespace nqcore {
class ErrorInfo;
}

namespace nq {

/// One option or positional argument.
struct Option {
    const char* name;             ///< "--json", "-o,--output"; "FILE" for a positional argument
    const char* value = nullptr;  ///< what help calls its value; null for a flag
    const char* help = "";
    const char* choices = nullptr;   ///< accepted values, separated by "|"; null for any
    const char* fallback = nullptr;  ///< value when the option is not given
    bool isRequired = false;
    bool isList = false;  ///< a positional that takes any number of values
    /// The only positional: takes the first word that is no option, or "--", and all words behind it as they are.
    bool isRest = false;
};

/// What the command line gave. Options are asked for by their last name without dashes ("output"), positional
/// arguments by their own ("FILE").
class Arguments {
public:
    [[nodiscard]] bool has(const char* name) const { return !values(name).empty(); }
    /// The one value of an option that was given or has a fallback; else empty.
    [[nodiscard]] const std::string& value(const char* name) const;
    [[nodiscard]] const std::vector<std::string>& values(const char* name) const;

    std::map<std::string, std::vector<std::string>, std::less<>> table;
};

/// What a running command works with.
struct Context {
    const Arguments& arguments;
    Output& out;
    Output& err;

    /// Writes an error record to `err` in the style that the command line asks for. The command goes on; its exit
    /// code is its own affair.
    void report(const nqcore::ErrorInfo& error);
    bool isBrief = false;
};

/// A command, or a group of commands when it has children.
struct Command {
    const char* name;
    const char* summary;       ///< one line, for the list of commands
    const char* details = "";  ///< the rest of its help
    std::span<const Option> options = {};
    int (*run)(Context& context) = nullptr;  ///< returns the exit code; failures that end it are thrown
    std::span<const Command* const> children = {};
};

// The commands, each in NAME_command.cpp (those about UTF-16 in utf16_commands.cpp).
extern const Command s_scrubCommand;
extern const Command s_timeCommand;
extern const Command s_durationCommand;
extern const Command s_utf8Command;
extern const Command s_utf8CheckCommand;
extern const Command s_utf8RepairCommand;
extern const Command s_toUtf16Command;
extern const Command s_fromUtf16Command;
extern const Command s_encodeCommand;
extern const Command s_decodeCommand;
extern const Command s_dumpCommand;
extern const Command s_errorCommand;
extern const Command s_uuidCommand;
extern const Command s_hashCommand;
extern const Command s_envCommand;
extern const Command s_runCommand;
extern const Command s_cpuCommand;
extern const Command s_traceCommand;

/// The root of the table.
extern const Command s_nqCommand;

/// Options that several commands share.
inline constexpr Option s_jsonOption{.name = "--json", .help = "Write answers as JSON, one object per line"};
inline constexpr Option s_filesOption{
    .name = "FILE", .value = "FILE", .help = "Files to read; none or - for standard input", .isList = true};
inline constexpr Option s_fileOption{
    .name = "FILE", .value = "FILE", .help = "File to read; none or - for standard input"};
inline constexpr Option s_outputOption{
    .name = "-o,--output", .value = "FILE", .help = "Write to FILE instead of standard output"};

}  // namespace nq
