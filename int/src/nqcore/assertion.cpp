// From a failed assertion to what becomes of it:
//
//     reported already on this thread ----------------------------------------------------------> go on
//     told to throw (environment, flag) -----------------------------------------> throw
//     ignored, or known and nobody to see a box ------------------------------------------------> go on
//     box -- Retry ------> debugger        SHIFT+Retry -----------------------------> throw
//         -- Abort ------> _exit(3)        SHIFT+Abort --> memory dump --> _exit(3)
//         -- Ignore -----> go on           SHIFT+Ignore -> ignored from now on -----------------> go on
//         -- not shown --> to the trace, once for each place -----------------------------------> go on
//     throw -- to the trace -- after main --> _exit(4)
//                           -- else -------> ErrorException
#include "nqcore/assertion.h"

#include "assertion_report.h"
#include "assertion_sites.h"
#include "assertion_turns.h"
#include "dump_file.h"
#include "embedded_nul.h"
#include "error_reserve.h"
#include "fault_report_trace.h"
#include "nqcore/error_exception.h"
#include "nqcore/main_intercept.h"
#include "nqcore/string_util.h"
#include "platform/environment.h"
#include "platform/os_error.h"
#include "platform/ui.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <span>
#include <string>

namespace nqcore::impl {
namespace {

using platform::BoxAnswer;
using platform::BoxButton;

constexpr const char* s_caption = "Meridel Core Library";
// Abort, Retry and Ignore; or OK with the sign for information or for a warning. Each is task-modal and in front.
constexpr std::uint32_t s_assertionBox = 0x12012;
constexpr std::uint32_t s_informationBox = 0x12040;
constexpr std::uint32_t s_warningBox = 0x12030;

constexpr int s_abortExit = 3;
constexpr int s_throwAfterMainExit = 4;

constinit AssertionSites s_ignored;
// Those that nobody could see a box for, and that the trace has.
constinit AssertionSites s_traced;

const ErrorReserve s_outOfMemory(assertion_error_without_values);

// An assertion that goes on has changed nothing for the code around it.
class ErrorNumbersKept {
public:
    ErrorNumbersKept() noexcept = default;
    ErrorNumbersKept(const ErrorNumbersKept&) = delete;
    ErrorNumbersKept& operator=(const ErrorNumbersKept&) = delete;
    ~ErrorNumbersKept() {
        errno = m_errno;
        platform::set_last_os_error(m_osError);
    }

private:
    const unsigned long m_osError = platform::last_os_error();
    const int m_errno = errno;
};

// To be shown from the caller's frame on. In a stack that does not have it, which is damaged, everything is shown.
void capture_frames(FailedAssertion& assertion, const void* caller) noexcept {
    platform::capture_registers(assertion.registers);
    assertion.stack = platform::current_stack_bounds();
    assertion.frameCount = platform::walk_stack(assertion.registers, assertion.frames);
    assertion.hasMoreFrames = assertion.frameCount == std::size(assertion.frames);

    const std::span<const platform::StackFrame> frames(assertion.frames, assertion.frameCount);
    const auto first =
        std::ranges::find(frames, reinterpret_cast<std::uintptr_t>(caller), &platform::StackFrame::instructionPointer);
    assertion.skippedFrames = first == frames.end() ? 0 : static_cast<std::size_t>(first - frames.begin());
}

bool is_told_to_throw() noexcept {
    std::string value;
    bool found = false;
    try {
        static_cast<void>(platform::read_variable("KAVO_ASSERT_THROW_ALWAYS", value, found));
    } catch (const std::exception&) {
    }
    return string_equal_nocase_ascii(value, "true") || string_equal_nocase_ascii(value, "yes") || value == "1";
}

// With stdio alone: whatever the first report is about, this must not depend on it.
void write_nested(const FailedAssertion& assertion) noexcept {
    std::fprintf(stderr, "nqcore: assertion failed while another one was being reported: %s (%s:%u)\n",
                 assertion.expression, assertion.file, assertion.line);
}

void trace(const AssertionRecord& record) noexcept {
    try {
        trace_lines(record.trace_text());
    } catch (const std::exception&) {
    }
}

// Once for each place: what goes on for want of somebody to ask may go on a million times.
void trace_unseen(const FailedAssertion& assertion) noexcept {
    if (s_traced.contains(assertion.file, assertion.line)) {
        return;
    }
    s_traced.add(assertion.file, assertion.line);
    try {
        trace(AssertionRecord(assertion));
    } catch (const std::exception&) {
    }
}

ErrorInfo::Ptr traced_error(const FailedAssertion& assertion) noexcept {
    try {
        const AssertionRecord record(assertion);
        trace(record);
        return record.error();
    } catch (const std::exception&) {
        return s_outOfMemory.get();
    }
}

[[noreturn]] void throw_assertion(const FailedAssertion& assertion) {
    const ErrorInfo::Ptr error = traced_error(assertion);
    if (has_main_exited()) {
        std::_Exit(s_throwAfterMainExit);
    }
    ErrorException::throw_error(error);
}

[[noreturn]] void dump_and_end() noexcept {
    const std::string path = write_dump_file();
    const char* text = "Creation of dump failed";
    std::string created;
    try {
        created = "Dump created and saved to: " + path;
        text = path.empty() ? text : created.c_str();
    } catch (const std::exception&) {
        text = path.c_str();
    }
    static_cast<void>(platform::message_box(text, s_caption, path.empty() ? s_warningBox : s_informationBox));
    std::_Exit(s_abortExit);
}

// When memory has run out, with the facts that need none.
BoxAnswer ask(const FailedAssertion& assertion) {
    std::string text;
    char little[512];
    const char* shown = little;
    try {
        text = dialog_text(assertion);
        if (text.find('\0') != text.npos) {
            raise_embedded_nul_error();
        }
        shown = text.c_str();
    } catch (const std::bad_alloc&) {
        std::snprintf(little, sizeof little, "Debug Assertion Failed!\n\nFile: %s\nLine: %u\n\nExpression: %s",
                      assertion.file, assertion.line, assertion.expression);
    }
    const DialogTurn turn;
    // What was answered meanwhile may have been about this place.
    if (s_ignored.contains(assertion.file, assertion.line)) {
        return {BoxButton::Ignore, false};
    }
    const BoxAnswer answer = platform::message_box(shown, s_caption, s_assertionBox);
    if (answer.button == BoxButton::Ignore && answer.withModifier) {
        s_ignored.add(assertion.file, assertion.line);
    }
    return answer;
}

bool act_on(BoxAnswer answer, const FailedAssertion& assertion) {
    switch (answer.button) {
        case BoxButton::Retry:
            if (answer.withModifier) {
                throw_assertion(assertion);
            }
            return false;
        case BoxButton::Abort:
            if (answer.withModifier) {
                dump_and_end();
            }
            std::_Exit(s_abortExit);
        case BoxButton::Ignore:
            return true;
        default:
            trace_unseen(assertion);
            return true;
    }
}

bool report(FailedAssertion& assertion, const void* caller, unsigned flags) {
    const ErrorNumbersKept numbersKept;
    const ReportingScope scope;
    if (scope.is_nested()) {
        write_nested(assertion);
        return true;
    }
    const bool mustThrow = (flags & assertThrows) != 0 || is_told_to_throw();
    if (!mustThrow && (s_ignored.contains(assertion.file, assertion.line) ||
                       (!platform::can_show_box() && s_traced.contains(assertion.file, assertion.line)))) {
        return true;
    }
    capture_frames(assertion, caller);
    if (mustThrow) {
        throw_assertion(assertion);
    }
    return act_on(ask(assertion), assertion);
}

}  // namespace

bool report_failed_assert_aux(const char* file, unsigned line, const char* function, const char* expression,
                              const char* details, unsigned flags) {
    FailedAssertion assertion(file, line, function, expression, details);
    return report(assertion, __builtin_return_address(0), flags);
}

}  // namespace nqcore::impl

bool nqcore::report_failed_debug_assert(const char* file, unsigned line, const char* function, const char* expression,
                                        const char* details) {
    using namespace impl;
    FailedAssertion assertion(file, line, function, expression, details);
    return report(assertion, __builtin_return_address(0), assertAsks);
}
