#include "tool.h"

#include "arguments.h"
#include "command.h"
#include "errors.h"
#include "platform/file.h"
#include "platform/process.h"

#include "nqcore/error_info.h"

#include <algorithm>
#include <cstdlib>
#include <exception>

namespace nq {

namespace {

using nqcore::ErrorInfo;

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/tool.cpp#1 $");

ErrorStyle error_style(bool isBrief) {
    const bool isTerminal = platform::is_terminal(platform::s_standardError);
    const char* const noColour = std::getenv("NO_COLOR");
    return {isBrief, isTerminal, isTerminal && (noColour == nullptr || *noColour == '\0')};
}

int run_command(std::vector<std::string> words, Output& out, Output& err, bool& isBrief) {
    // For failures of the parsing itself.
    isBrief = std::find(words.begin(), words.end(), "--brief") != words.end();
    const Invocation invocation = parse_command_line(std::move(words), s_nqCommand);
    isBrief = invocation.isBrief;
    int exitCode = s_exitDone;
    if (invocation.command == nullptr) {
        out.write(invocation.answer);
    } else {
        Context context{invocation.arguments, out, err, isBrief};
        exitCode = invocation.command->run(context);
    }
    out.close();
    err.close();
    return exitCode;
}

// A failure of standard error itself has nowhere to go.
void write_error(Output& err, const ErrorInfo& error, bool isBrief) noexcept {
    try {
        err.write(error_text(error, error_style(isBrief)));
        err.close();
    } catch (const std::exception&) {
    }
}

// What was answered before a failure is still written; a second failure would only repeat the first.
void flush_quietly(Output& output) noexcept {
    try {
        output.flush();
    } catch (const std::exception&) {
    }
}

}  // namespace

void Context::report(const ErrorInfo& error) {
    out.flush();
    err.write(error_text(error, error_style(isBrief)));
    err.flush();
}

int run_tool(std::vector<std::string> words, Output& out, Output& err) {
    bool isBrief = false;
    try {
        return run_command(std::move(words), out, err, isBrief);
    } catch (const std::exception& exception) {
        flush_quietly(out);
        const ErrorInfo::Ptr error = ErrorInfo::from_exception(exception, s_source.here("nq::run_tool()"));
        if (error->matches(error::output) && error->any_matches(nqcore::error::errno_EPIPE)) {
            return s_exitBadData;  // who closed the pipe knows, as `head` does
        }
        write_error(err, *error, isBrief);
        return exit_code_of(*error);
    }
}

}  // namespace nq
