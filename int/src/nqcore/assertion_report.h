// What is known about a failed assertion, and its texts.
#pragma once

#include "diagnostics_impl.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/error_info.h"
#include "platform/stack.h"

#include <cstdint>
#include <string>

namespace nqcore::impl {

/// The moment of failure, captured but for the stack. Takes no memory, so that there is something to say without it.
struct FailedAssertion {
    FailedAssertion(const char* inFile, unsigned inLine, const char* inFunction, const char* inExpression,
                    const char* inDetails) noexcept;

    // Null texts are empty here.
    const char* file;
    unsigned line;
    const char* function;
    const char* expression;
    const char* details;

    AbsoluteTime time;
    std::uint32_t process;
    std::uint32_t thread;
    platform::StackBounds stack;
    platform::Registers registers;
    platform::StackFrame frames[reportFrameLimit + 8];  // so many that a cut can be told from the end
    std::size_t frameCount = 0;
    /// Frames of the reporting itself, which are not shown. They lead to the registers of those that are.
    std::size_t skippedFrames = 0;
    bool hasMoreFrames = false;
};

/// What a person reads: program, time, place, texts that are there, stack trace, and what the buttons do.
///
/// Errors   `std::bad_alloc`.
[[nodiscard]] std::string dialog_text(const FailedAssertion& assertion);

/// The same facts as one record and as text for the trace. The texts of the stack are made once.
class AssertionRecord {
public:
    /// Errors   `std::bad_alloc`.
    explicit AssertionRecord(const FailedAssertion& assertion);

    [[nodiscard]] ErrorInfo::Ptr error() const;
    [[nodiscard]] std::string trace_text() const;

private:
    const FailedAssertion& m_assertion;
    const std::string m_program;
    const std::string m_time;
    const std::string m_stackTrace;
    const std::string m_stackDump;
};

/// A record without values, to be made ahead.
[[nodiscard]] ErrorInfo::Ptr assertion_error_without_values();

/// The end of a path, marked with "..." where it is longer than fits in a dialog.
[[nodiscard]] std::string shortened_path(std::string path);

}  // namespace nqcore::impl
