// The tool's own failures, and how failures are shown.
//
// Every failure is an error record: the library's own where the library found it, else one of the codes below, with the
// cause nested. The exit code follows from the record: 2 for wrong usage, 1 for everything else.
#pragma once

#include "nqcore/error_code.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/source_location.h"

#include <string>

namespace nq {

enum ExitCode : int { s_exitDone = 0, s_exitBadData = 1, s_exitBadUsage = 2 };

namespace error {

inline constexpr nqcore::ErrorCode usage("error.nq.usage");  ///< the command line is wrong
inline constexpr nqcore::ErrorCode input("error.nq.input");  ///< cannot open or read
inline constexpr nqcore::ErrorCode input_lineTooLong("error.nq.input.lineTooLong");
inline constexpr nqcore::ErrorCode output("error.nq.output");  ///< cannot open or write
inline constexpr nqcore::ErrorCode text("error.nq.text");      ///< text that is not what it should be
inline constexpr nqcore::ErrorCode env_notSet("error.nq.env.notSet");
inline constexpr nqcore::ErrorCode run("error.nq.run");  ///< cannot start a program
inline constexpr nqcore::ErrorCode run_timeLimit("error.nq.run.timeLimit");
inline constexpr nqcore::ErrorCode work("error.nq.work");  ///< threads that do not do what they should

}  // namespace error

/// One of the tool's sources, as error locations name it: the same text whatever machine built it.
class SourceFile {
public:
    consteval explicit SourceFile(const char* keywordLine) : m_id(keywordLine) {}
    [[nodiscard]] constexpr nqcore::SourceLocation here(const char* function,
                                                        unsigned line = __builtin_LINE()) const noexcept {
        return {function, m_id, line};
    }

private:
    const char* m_id;
};

/// Errors   "error.nq.usage", always. `problem` is a sentence without its full stop.
[[noreturn]] void throw_usage(const std::string& problem, const nqcore::ErrorInfo::Ptr& cause = {});

[[nodiscard]] int exit_code_of(const nqcore::ErrorInfo& error) noexcept;

/// How error records are written.
struct ErrorStyle {
    bool brief = false;        ///< one line
    bool forTerminal = false;  ///< control characters are shown as \xNN, so that no data can steer a terminal
    bool colour = false;
};

/// The record as text that ends in a line feed: all its fields, or in one line the messages and codes of the record
/// and its causes.
[[nodiscard]] std::string error_text(const nqcore::ErrorInfo& error, const ErrorStyle& style);

}  // namespace nq
