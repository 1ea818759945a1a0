// Assertions: a condition that only a mistake in the program can break.
//
//     NQCORE_ASSERT(index < m_size);
//     NQCORE_ASSERT_DETAILS(m_state == State::Open, state_name(m_state));
//     if (NQCORE_VERIFY(file.close())) { ... }    // evaluated in every build
//     default: NQCORE_ASSERT_UNREACHABLE("no such unit");
//
// A person at the console decides what happens: go on, throw, end the process with or without a memory dump, break into
// the debugger, or hear no more of this place. With KAVO_ASSERT_THROW_ALWAYS set to "true", "yes" or "1" every failed
// assertion throws an `ErrorException` with the code "error.exception.assert", stack trace and all. Where there is nobody
// to ask, a failed assertion is written to the trace and the program goes on.
//
// NQCORE_ASSERTIONS   1: assertions are checked; 0: they are compiled but not evaluated. By default they are checked in
//                     builds without NDEBUG. Define it before the first inclusion, or for the whole build.
#pragma once

#include "nqcore/config.h"

#if !defined(NQCORE_ASSERTIONS)
#    if defined(NDEBUG)
#        define NQCORE_ASSERTIONS 0
#    else
#        define NQCORE_ASSERTIONS 1
#    endif
#endif

namespace nqcore {

/// Reports a failed assertion; what the macros call.
///
/// In       `function`, `expression` and `details` may be null.
/// Returns  true when the program is to go on, false when the caller is to break into the debugger.
/// Errors   `ErrorException` "error.exception.assert" with the parameters "progname", "timestampUtc", "processId",
///          "filename", "line", "function", "expression", "details", "threadId", "stackTrace", "stackDump", when the
///          person or the environment asks for it. "error.nqcore.string.embeddedNul" when the report has a NUL in it.
///          The process ends with exit code 3 when the person says so, and with 4 in place of an exception after `main`.
/// Threads  any; others keep running while one is asked, and wait for their turn when they fail too. An assertion that
///          fails while its thread reports another goes on after a line on standard error. Not in signal handlers: like
///          everything that takes memory.
NQCORE_API NQCORE_COLD bool report_failed_debug_assert(const char* file, unsigned line, const char* function,
                                                       const char* expression, const char* details);

namespace impl {

/// What kind of assertion failed.
enum AssertFlags : unsigned {
    assertAsks = 0,
    assertThrows = 1,  ///< whatever the environment says
};

/// As `report_failed_debug_assert`.
///
/// In       `flags`: `AssertFlags`.
NQCORE_API NQCORE_COLD bool report_failed_assert_aux(const char* file, unsigned line, const char* function,
                                                     const char* expression, const char* details, unsigned flags);

// Inlined, so that the debugger stops in the function that failed.
[[gnu::always_inline]] inline bool fail_assertion(const char* file, unsigned line, const char* function,
                                                  const char* expression, const char* details) {
    if (!report_failed_debug_assert(file, line, function, expression, details)) {
        __asm__ volatile("int3");
    }
    return false;
}

// A call, so that compilers do not warn of a statement whose value nobody uses.
[[gnu::always_inline]] constexpr bool verified(bool condition) noexcept { return condition; }

}  // namespace impl
}  // namespace nqcore

#define NQCORE_IMPL_FAIL_ASSERTION(expression, details) \
    ::nqcore::impl::fail_assertion(__FILE__, __LINE__, __PRETTY_FUNCTION__, expression, details)

#if NQCORE_ASSERTIONS
#    define NQCORE_ASSERT_DETAILS(condition, details) \
        static_cast<void>((condition) || NQCORE_IMPL_FAIL_ASSERTION(#condition, details))
#    define NQCORE_ASSERT(...) static_cast<void>((__VA_ARGS__) || NQCORE_IMPL_FAIL_ASSERTION(#__VA_ARGS__, nullptr))
#    define NQCORE_VERIFY(...) ((__VA_ARGS__) || NQCORE_IMPL_FAIL_ASSERTION(#__VA_ARGS__, nullptr))
#    define NQCORE_ASSERT_UNREACHABLE(details) \
        static_cast<void>(NQCORE_IMPL_FAIL_ASSERTION("unreachable code is not reached", details))
#else
#    define NQCORE_ASSERT_DETAILS(condition, details) static_cast<void>(sizeof((condition) || (details)))
#    define NQCORE_ASSERT(...) static_cast<void>(sizeof((__VA_ARGS__) || true))
#    define NQCORE_VERIFY(...) ::nqcore::impl::verified(static_cast<bool>(__VA_ARGS__))
#    define NQCORE_ASSERT_UNREACHABLE(details) static_cast<void>(sizeof(details))
#endif
