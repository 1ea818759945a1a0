// ErrorException: the exception that the library throws; it carries one error record.
//
//     try { ... }
//     catch (const nqcore::ErrorException& e) {
//         if (!e.any_matches(nqcore::error::nqcore_absoluteTime)) throw;
//     }
#pragma once

#include "nqcore/config.h"
#include "nqcore/error_code.h"
#include "nqcore/error_info.h"
#include "nqcore/error_params.h"
#include "nqcore/refcounted.h"
#include "nqcore/source_location.h"

#include <exception>
#include <iosfwd>
#include <typeinfo>

namespace nqcore {

class StackTrace;

namespace impl {
struct ExceptionExtras;
}

/// Never carries a null record.
///
/// Threads  an exception object belongs to one thread; `what()` may all the same be called from several at once.
class NQCORE_API ErrorException : public std::exception {
public:
    /// Keeps `error`; null is replaced by a record "error.nqcore", "Unknown error (NULL ErrorInfo pointer)".
    explicit ErrorException(const RefCountPtr<const ErrorInfo>& error);
    ErrorException(const ErrorException& other) noexcept;
    ErrorException& operator=(const ErrorException& other) noexcept;
    ~ErrorException() override;

    /// The record's text form; built on first use and kept. "nqcore::ErrorException" when it cannot be built.
    [[nodiscard]] const char* what() const noexcept override;

    /// Throws a new exception of the true type for the same record, with the same stack trace.
    [[noreturn]] virtual void rethrow() const;

    [[nodiscard]] const RefCountPtr<const ErrorInfo>& error() const noexcept { return m_error; }

    /// Where the exception was made, which is where it was thrown; copies keep the place. Null when nobody had asked
    /// for traces then (`keep_error_traces`), or for want of memory. (Include nqcore/stack_trace.h to use it.)
    ///
    /// Lifetime that of the exception.
    [[nodiscard]] const StackTrace* stack_trace() const noexcept;

    // The record's tests.
    [[nodiscard]] bool matches(const ErrorCode& code) const noexcept { return m_error->matches(code); }
    [[nodiscard]] bool matches(const SourceString& code) const noexcept { return m_error->matches(code); }
    [[nodiscard]] bool matches(const char* code) const noexcept { return m_error->matches(code); }
    [[nodiscard]] bool matches(const char* code, unsigned length) const noexcept {
        return m_error->matches(code, length);
    }
    [[nodiscard]] bool any_matches(const ErrorCode& code) const noexcept { return m_error->any_matches(code); }
    [[nodiscard]] bool any_matches(const SourceString& code) const noexcept { return m_error->any_matches(code); }
    [[nodiscard]] bool any_matches(const char* code) const noexcept { return m_error->any_matches(code); }
    [[nodiscard]] bool any_matches(const char* code, unsigned length) const noexcept {
        return m_error->any_matches(code, length);
    }
    [[nodiscard]] ErrorInfo::Ptr first_matching(const ErrorCode& code) const noexcept {
        return m_error->first_matching(code);
    }
    [[nodiscard]] ErrorInfo::Ptr first_matching(const SourceString& code) const noexcept {
        return m_error->first_matching(code);
    }
    [[nodiscard]] ErrorInfo::Ptr first_matching(const char* code) const noexcept {
        return m_error->first_matching(code);
    }
    [[nodiscard]] ErrorInfo::Ptr first_matching(const char* code, unsigned length) const noexcept {
        return m_error->first_matching(code, length);
    }

    /// Throws an `ErrorException` for `error`.
    [[noreturn]] static void throw_error(const RefCountPtr<const ErrorInfo>& error);
    /// The same when `error` is not null; otherwise nothing.
    static void throw_if_error(const RefCountPtr<const ErrorInfo>& error) {
        if (!error.is_null()) {
            throw_error(error);
        }
    }

    /// Writes `what()`.
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const ErrorException& exception);

protected:
    /// The text of `what()`. (Include <string> to override it.)
    [[nodiscard]] virtual std::string build_what_text() const;

private:
    RefCountPtr<const ErrorInfo> m_error;
    // Owned: the text of `what()` and the stack trace; null while there is neither.
    mutable impl::ExceptionExtras* m_extras = nullptr;
};

/// Has every `ErrorException` made from now on keep a stack trace of the place; off at first.
///
///     nqcore::keep_error_traces(true);
///     ...
///     catch (const nqcore::ErrorException& e) {
///         std::cerr << e;
///         if (const nqcore::StackTrace* trace = e.stack_trace()) std::cerr << *trace;    // nqcore/stack_trace.h
///     }
///
/// Returns  what was asked for before.
/// Threads  any; one answer for the whole process.
/// Cost     some hundred nanoseconds and 2 KiB for each exception while it is on; nothing while it is off.
NQCORE_API bool keep_error_traces(bool keep) noexcept;

/// Thrown when a weak reference cannot become a strong one; its record has the code
/// "error.exception.weakRefPromoteException".
class NQCORE_API WeakRefPromoteException : public ErrorException {
public:
    WeakRefPromoteException();
    explicit WeakRefPromoteException(const RefCountPtr<const ErrorInfo>& error);
    ~WeakRefPromoteException() override;
    [[noreturn]] void rethrow() const override;
};

/// A failed conversion between a value and its text, for code outside the library that wants the standard's
/// `bad_cast` with both types named.
class NQCORE_API BadLexicalCast : public std::bad_cast {
public:
    BadLexicalCast(const std::type_info& source, const std::type_info& target) noexcept
        : m_source(&source), m_target(&target) {}
    ~BadLexicalCast() override;
    [[nodiscard]] const char* what() const noexcept override;
    [[nodiscard]] const std::type_info& source_type() const noexcept { return *m_source; }
    [[nodiscard]] const std::type_info& target_type() const noexcept { return *m_target; }

private:
    const std::type_info* m_source;
    const std::type_info* m_target;
};

// Creating and throwing in one call. A `const char*` message must be a literal.
[[noreturn]] NQCORE_API void throw_error(const RefCountPtr<const ErrorInfo>& error);
[[noreturn]] NQCORE_API void throw_error(const ErrorCode& code, const char* message, const SourceLocation& location);
[[noreturn]] NQCORE_API void throw_error(const ErrorCode& code, const SourceString& message,
                                         const SourceLocation& location);
[[noreturn]] NQCORE_API void throw_error(const ErrorCode& code, const char* message, const SourceLocation& location,
                                         const RefCountPtr<const ErrorInfo>& nested);
[[noreturn]] NQCORE_API void throw_error(const ErrorCode& code, const SourceString& message,
                                         const SourceLocation& location, const RefCountPtr<const ErrorInfo>& nested);
[[noreturn]] NQCORE_API void throw_error(const ErrorCode& code, const char* message, ErrorParams params,
                                         const SourceLocation& location);
[[noreturn]] NQCORE_API void throw_error(const ErrorCode& code, const SourceString& message, ErrorParams params,
                                         const SourceLocation& location);
[[noreturn]] NQCORE_API void throw_error(const ErrorCode& code, const char* message, ErrorParams params,
                                         const SourceLocation& location, const RefCountPtr<const ErrorInfo>& nested);
[[noreturn]] NQCORE_API void throw_error(const ErrorCode& code, const SourceString& message, ErrorParams params,
                                         const SourceLocation& location, const RefCountPtr<const ErrorInfo>& nested);

/// Throws the record of a C runtime error number, `ErrorInfo::from_errno`.
[[noreturn]] NQCORE_API void throw_errno(const SourceLocation& location, int errnoValue);

/// The message of a C runtime error number; "Unknown error (errno=<number>)" when nobody has one.
[[nodiscard]] NQCORE_API SourceString errno_message(int errnoValue);

/// Sets `errno`, and clears the system error number that the runtime keeps beside it.
///
/// In       `value`: 10035 (the socket number for "would block") is stored as 11.
/// Returns  what was stored.
NQCORE_API int set_errno(int value) noexcept;

/// The C runtime error number that corresponds to a Windows error number, or 0 when there is none.
[[nodiscard]] NQCORE_API int errno_from_winerror(unsigned long winError) noexcept;

/// Keeps `winError` as the runtime's system error number and sets `errno` to what it corresponds to, or to EINVAL.
///
/// Returns  what `errno` was set to.
NQCORE_API int set_errno_from_winerror(unsigned long winError) noexcept;

}  // namespace nqcore
