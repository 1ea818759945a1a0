#include "assertion_report.h"

#include "nqcore/error_composer.h"
#include "nqcore/streamers.h"
#include "nqcore/utc_text.h"
#include "platform/module.h"
#include "platform/process.h"
#include "source_id.h"

#include <algorithm>
#include <exception>
#include <initializer_list>
#include <span>
#include <sstream>
#include <string_view>

namespace nqcore::impl {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/diagnostics_impl.cpp#1 $");
constexpr const char* s_function = "nqcore::impl::report_failed_assert_aux()";

// A box has to fit on the screen.
constexpr std::size_t s_dialogFrames = 16;
constexpr std::size_t s_dialogPath = 60;

constexpr ErrorTemplate s_failed(
    "Debug Assertion Failed! \nProgram: {@progname}\nTimeUTC: {@timestampUtc}\nProcessId: {@processId}\n"
    "File: {@filename}\nLine: {@line}\nFunction: {@function}\n\nExpression: {@expression}\n\nDetails: {@details}\n\n"
    "ThreadId: {@threadId}\n\nStack Trace:\n{@stackTrace}\nStack Dump:\n{@stackDump}",
    "progname", "timestampUtc", "processId", "filename", "line", "function", "expression", "details", "threadId",
    "stackTrace", "stackDump");

constexpr std::string_view s_traceTemplate =
    "Debug Assertion Failed! \nProgram:    {}\nTimeUTC:    {}\nProcessId:  {}\nFile:       {}\nLine:       {}\n"
    "Function:   {}\n\nExpression: {}\n\nDetails:    {}\n\nThreadId:   {}\n\nStack Trace:\n{}\nStack Dump:\n{}";

constexpr std::string_view s_instruction =
    "\n\n(Press Retry to debug, SHIFT+Retry to throw exception, SHIFT+Abort for memory dump and abort, "
    "SHIFT-Ignore to ignore always)";

const char* or_empty(const char* text) noexcept { return text == nullptr ? "" : text; }

std::string program_name() {
    std::string path = platform::program_path();
    return path.empty() ? "<unknown>" : path;
}

std::span<const platform::StackFrame> frames_of(const FailedAssertion& assertion) noexcept {
    return {assertion.frames, assertion.frameCount};
}

// What `write` writes, or `otherwise` when that fails.
template <class Write>
std::string produced(const char* otherwise, Write write) {
    try {
        std::ostringstream stream;
        write(stream);
        if (stream.good()) {
            return stream.str();
        }
    } catch (const std::exception&) {
    }
    return otherwise;
}

void write_omission(std::ostream& stream, const FailedAssertion& assertion) {
    if (assertion.hasMoreFrames) {
        stream << "(subsequent frames omitted)";
    } else if (assertion.frameCount - assertion.skippedFrames > s_dialogFrames) {
        stream << '(' << assertion.frameCount - assertion.skippedFrames - s_dialogFrames << " frames omitted)";
    }
}

void write_stack(std::ostream& stream, const FailedAssertion& assertion, std::size_t limit) {
    write_stack_trace(stream, frames_of(assertion), limit, ParameterValues::Yes, SourceLines::No, &assertion.registers,
                      assertion.skippedFrames);
}

std::string dialog_stack(const FailedAssertion& assertion) {
    return produced("Stack trace failed!", [&assertion](std::ostream& stream) {
        write_stack(stream, assertion, s_dialogFrames);
        write_omission(stream, assertion);
    });
}

std::string record_stack(const FailedAssertion& assertion) {
    return produced(failedText, [&assertion](std::ostream& stream) {
        write_stack(stream, assertion, reportFrameLimit);
        if (assertion.frameCount - assertion.skippedFrames > reportFrameLimit) {
            stream << omittedFramesText;
        }
    });
}

std::string record_dump(const FailedAssertion& assertion) {
    return produced(failedText, [&assertion](std::ostream& stream) {
        write_stack_dump(stream, assertion.registers, assertion.stack,
                         frames_of(assertion).subspan(assertion.skippedFrames));
    });
}

std::string filled(std::string_view text, std::initializer_list<std::string_view> values) {
    std::string result;
    for (const std::string_view value : values) {
        const std::size_t place = text.find("{}");
        result.append(text.substr(0, place)).append(value);
        text.remove_prefix(place + 2);
    }
    return result.append(text);
}

}  // namespace

FailedAssertion::FailedAssertion(const char* inFile, unsigned inLine, const char* inFunction, const char* inExpression,
                                 const char* inDetails) noexcept
    : file(or_empty(inFile)),
      line(inLine),
      function(or_empty(inFunction)),
      expression(or_empty(inExpression)),
      details(or_empty(inDetails)),
      time(AbsoluteTime::now()),
      process(platform::process_id()),
      thread(platform::thread_id()) {}

std::string shortened_path(std::string path) {
    constexpr std::string_view mark = "...";
    if (path.size() > s_dialogPath) {
        std::size_t begin = path.size() - (s_dialogPath - mark.size());
        while (begin < path.size() && (static_cast<unsigned char>(path[begin]) & 0xC0u) == 0x80u) {
            ++begin;  // no character is split
        }
        path.replace(0, begin, mark);
    }
    return path;
}

std::string dialog_text(const FailedAssertion& assertion) {
    std::ostringstream text;
    text << "Debug Assertion Failed!\n\nProgram: " << shortened_path(program_name())
         << "\nTimeUTC: " << UtcText::plain(assertion.time).view() << "\nProcessId: " << assertion.process
         << "\nFile: " << assertion.file << "\nLine: " << assertion.line;
    const struct {
        const char* label;
        const char* value;
    } optional[] = {
        {"\nFunction: ", assertion.function},
        {"\n\nExpression: ", assertion.expression},
        {"\n\nDetails: ", assertion.details},
    };
    for (const auto& row : optional) {
        if (*row.value != '\0') {
            text << row.label << row.value;
        }
    }
    text << "\n\nThreadId: " << assertion.thread << " (" << streamers::Hex(assertion.thread, false)
         << "), Stack Trace:\n"
         << dialog_stack(assertion) << s_instruction;
    return text.str();
}

AssertionRecord::AssertionRecord(const FailedAssertion& assertion)
    : m_assertion(assertion),
      m_program(program_name()),
      m_time(UtcText::plain(assertion.time).view()),
      m_stackTrace(record_stack(assertion)),
      m_stackDump(record_dump(assertion)) {}

ErrorInfo::Ptr AssertionRecord::error() const {
    return s_failed
        .compose(std::string_view(m_program), std::string_view(m_time), m_assertion.process, m_assertion.file,
                 m_assertion.line, m_assertion.function, m_assertion.expression, m_assertion.details,
                 m_assertion.thread, std::string_view(m_stackTrace), std::string_view(m_stackDump))
        .create(error::exception_assert, s_source.here(s_function));
}

std::string AssertionRecord::trace_text() const {
    return filled(s_traceTemplate,
                  {m_program, m_time, std::to_string(m_assertion.process), m_assertion.file,
                   std::to_string(m_assertion.line), m_assertion.function, m_assertion.expression, m_assertion.details,
                   std::to_string(m_assertion.thread), m_stackTrace, m_stackDump});
}

ErrorInfo::Ptr assertion_error_without_values() {
    const std::string_view none = failedText;
    return s_failed.compose(none, none, none, none, none, none, none, none, none, none, none)
        .create(error::exception_assert, s_source.here(s_function));
}

}  // namespace nqcore::impl
