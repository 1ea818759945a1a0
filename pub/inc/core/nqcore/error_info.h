// ErrorInfo: the library's one error record.
//
//     RefCountPtr<const ErrorInfo> error = ErrorInfo::create(code, "queue is full", NQCORE_HERE);
//     if (error->any_matches("error.nqcore.string")) { ... }
//
// A record is created once, never changed, and passed around as RefCountPtr<const ErrorInfo>. It carries code, message
// template, parameters, place, host name, and the record of its cause.
#pragma once

#include "nqcore/config.h"
#include "nqcore/error_code.h"
#include "nqcore/error_params.h"
#include "nqcore/refcounted.h"
#include "nqcore/source_location.h"
#include "nqcore/source_string.h"

#include <compare>
#include <cstdint>
#include <exception>
#include <iosfwd>

namespace nqcore {

/// An immutable, reference-counted description of one failure, with its chain of causes.
///
/// Threads  any: nothing changes after creation.
/// Errors   creating throws `std::bad_alloc` only; everything else is `noexcept` but for what it says itself.
class NQCORE_API ErrorInfo : public RefCounted<AtomicRefCount> {
public:
    using Ptr = RefCountPtr<const ErrorInfo>;

    ErrorInfo(const ErrorInfo&) = delete;
    ErrorInfo& operator=(const ErrorInfo&) = delete;

    /// A record. A `const char*` message is kept by reference and must be a literal.
    [[nodiscard]] static Ptr create(const ErrorCode& code, const char* message, const SourceLocation& location);
    [[nodiscard]] static Ptr create(const ErrorCode& code, const SourceString& message, const SourceLocation& location);
    [[nodiscard]] static Ptr create(const ErrorCode& code, const char* message, const SourceLocation& location,
                                    Ptr nested);
    [[nodiscard]] static Ptr create(const ErrorCode& code, const SourceString& message, const SourceLocation& location,
                                    Ptr nested);
    [[nodiscard]] static Ptr create(const ErrorCode& code, const char* message, ErrorParams params,
                                    const SourceLocation& location);
    [[nodiscard]] static Ptr create(const ErrorCode& code, const SourceString& message, ErrorParams params,
                                    const SourceLocation& location);
    [[nodiscard]] static Ptr create(const ErrorCode& code, const char* message, ErrorParams params,
                                    const SourceLocation& location, Ptr nested);
    [[nodiscard]] static Ptr create(const ErrorCode& code, const SourceString& message, ErrorParams params,
                                    const SourceLocation& location, Ptr nested);

    /// A record whose cause is `from_errno(location, errnoValue)`; 0 gives no cause.
    [[nodiscard]] static Ptr create_with_nested_errno(const ErrorCode& code, const SourceString& message,
                                                      const SourceLocation& location, int errnoValue);
    [[nodiscard]] static Ptr create_with_nested_errno(const ErrorCode& code, const char* message,
                                                      const SourceLocation& location, int errnoValue);
    [[nodiscard]] static Ptr create_with_nested_errno(const ErrorCode& code, const SourceString& message,
                                                      ErrorParams params, const SourceLocation& location,
                                                      int errnoValue);
    [[nodiscard]] static Ptr create_with_nested_errno(const ErrorCode& code, const char* message, ErrorParams params,
                                                      const SourceLocation& location, int errnoValue);

    /// A record for a C runtime error number, with the parameter "errno".
    ///
    /// In       `errnoValue`: 10035 counts as 11. A number without a name gets the code "error.errno.<number>", and
    ///          the system's text for that number taken as a Windows one, or "Unknown error (errno={@errno})".
    [[nodiscard]] static Ptr from_errno(const SourceLocation& location, int errnoValue);
    [[nodiscard]] static Ptr from_errno(const SourceLocation& location, Ptr nested, int errnoValue);

    /// A record for a Windows error number: code "error.os.windows.<number>", parameter "winErrorCode", and the
    /// system's own text (none on systems that are not Windows).
    [[nodiscard]] static Ptr from_winerror_nomap(const SourceLocation& location, Ptr nested, unsigned long winError);
    /// In       `map`: true gives the record of the corresponding C runtime error number, with the Windows record as
    ///          its cause; a number without a corresponding one gives the Windows record alone.
    [[nodiscard]] static Ptr from_winerror(const SourceLocation& location, unsigned long winError, bool map);
    [[nodiscard]] static Ptr from_winerror(const SourceLocation& location, Ptr nested, unsigned long winError,
                                           bool map);

    /// The record inside an `ErrorException`, or one that describes any other standard exception by its class.
    [[nodiscard]] static Ptr from_exception(const std::exception& exception, const SourceLocation& location);
    /// A record for a caught exception of unknown type: "error.exception.unknown".
    [[nodiscard]] static Ptr from_anonymous_exception(const SourceLocation& location);

    [[nodiscard]] const ErrorCode& code() const noexcept { return m_code; }
    /// The template, not expanded.
    [[nodiscard]] const SourceString& message() const noexcept { return m_message; }
    [[nodiscard]] const ErrorParams& params() const noexcept { return m_params; }
    [[nodiscard]] const SourceLocation& location() const noexcept { return m_location; }
    /// The cause, or null.
    [[nodiscard]] const Ptr& nested() const noexcept { return m_nested; }
    [[nodiscard]] const SourceString& hostname() const noexcept { return m_hostname; }

    /// The message with its placeholders replaced; with `limit`, each value is cut to that many bytes.
    ///
    /// Errors   `std::bad_alloc`, `std::length_error`.
    [[nodiscard]] SourceString expanded_message() const;
    [[nodiscard]] SourceString expanded_message(unsigned limit) const;

    /// The number in the first of "nativeCode", "errno", "winErrorCode" that is present; decimal, hexadecimal with "0x"
    /// or octal with "0".
    ///
    /// Returns  0 when none is present or the text is not a number as a whole.
    /// Errors   "error.nqcore.string.embeddedNul" for a value with a NUL in it.
    [[nodiscard]] long native_code() const;

    /// The family test on this record alone.
    [[nodiscard]] bool matches(const ErrorCode& code) const noexcept;
    [[nodiscard]] bool matches(const SourceString& code) const noexcept;
    [[nodiscard]] bool matches(const char* code) const noexcept;
    [[nodiscard]] bool matches(const char* code, unsigned length) const noexcept;
    /// The family test on this record and all its causes.
    [[nodiscard]] bool any_matches(const ErrorCode& code) const noexcept;
    [[nodiscard]] bool any_matches(const SourceString& code) const noexcept;
    [[nodiscard]] bool any_matches(const char* code) const noexcept;
    [[nodiscard]] bool any_matches(const char* code, unsigned length) const noexcept;
    /// This record or the first of its causes that passes the family test; null when none does.
    [[nodiscard]] Ptr first_matching(const ErrorCode& code) const noexcept;
    [[nodiscard]] Ptr first_matching(const SourceString& code) const noexcept;
    [[nodiscard]] Ptr first_matching(const char* code) const noexcept;
    [[nodiscard]] Ptr first_matching(const char* code, unsigned length) const noexcept;

    /// By code, message template, parameters, location, host name; then along the causes.
    [[nodiscard]] int compare(const ErrorInfo& other) const noexcept;
    friend bool operator==(const ErrorInfo& a, const ErrorInfo& b) noexcept { return a.compare(b) == 0; }
    friend std::strong_ordering operator<=>(const ErrorInfo& a, const ErrorInfo& b) noexcept {
        return a.compare(b) <=> 0;
    }
    [[nodiscard]] std::uint32_t hash() const noexcept;

    /// Writes the record and its causes as text: each field on lines of its own, each line begun (not ended) by a
    /// line feed and 2 x `depth` blanks.
    virtual void write_trace(std::ostream& stream, unsigned depth) const;

    /// A record and the depth to write it at, for a stream.
    struct Trace {
        const ErrorInfo& error;
        unsigned depth = 0;

        friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const Trace& trace);
    };

protected:
    ErrorInfo(const ErrorCode& code, const SourceString& message, ErrorParams&& params, const SourceLocation& location,
              Ptr&& nested) noexcept;
    void destroy() override;
    ~ErrorInfo() override;

private:
    ErrorCode m_code;
    SourceString m_message;
    ErrorParams m_params;
    SourceLocation m_location;
    Ptr m_nested;
    SourceString m_hostname;
};

}  // namespace nqcore

template <>
struct std::hash<nqcore::ErrorInfo> {
    std::size_t operator()(const nqcore::ErrorInfo& record) const noexcept { return record.hash(); }
};
