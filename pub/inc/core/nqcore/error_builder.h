// ErrorBuilder: a text stream whose text becomes the message of an error record.
//
//     nqcore::ErrorBuilder message;
//     message << "row " << row << " has " << columns << " columns";
//     message.throw_error(code, NQCORE_HERE);
//
// In a header of its own because it is a standard stream. ErrorComposer keeps message and values apart, is cheaper, and
// needs no stream: prefer it where values should stay readable by name.
#pragma once

#include "nqcore/config.h"
#include "nqcore/error_code.h"
#include "nqcore/error_info.h"
#include "nqcore/refcounted.h"
#include "nqcore/source_location.h"

#include <sstream>

namespace nqcore {

/// The written text is the message of each record made from it.
///
/// In       `nativeCode`: kept as the parameter "nativeCode", in decimal; 0 adds nothing.
/// Threads  a stream: one thread at a time.
/// Errors   `std::bad_alloc`, `std::length_error`; with memory the `throw_*` operations always throw `ErrorException`.
class NQCORE_API ErrorBuilder : public virtual std::ostringstream {
public:
    /// Any reference-counted object.
    using KeptObject = RefCountPtr<const RefCounted<AtomicRefCount>>;

    ErrorBuilder();
    ~ErrorBuilder() override;

    [[nodiscard]] ErrorInfo::Ptr create(const ErrorCode& code, const SourceLocation& location) const;
    [[nodiscard]] ErrorInfo::Ptr create(const ErrorCode& code, const SourceLocation& location,
                                        const ErrorInfo::Ptr& nested) const;
    [[nodiscard]] ErrorInfo::Ptr create(const ErrorCode& code, const SourceLocation& location, long nativeCode) const;
    [[nodiscard]] ErrorInfo::Ptr create(const ErrorCode& code, const SourceLocation& location, long nativeCode,
                                        const ErrorInfo::Ptr& nested) const;
    /// Keeps `kept` alive as long as the record lives: for a cause that is an object, such as the connection or the
    /// module whose texts the record refers to.
    [[nodiscard]] ErrorInfo::Ptr create(const ErrorCode& code, const SourceLocation& location, long nativeCode,
                                        const ErrorInfo::Ptr& nested, const KeptObject& kept) const;
    /// The nested record describes the C runtime error number; 0 nests nothing.
    [[nodiscard]] ErrorInfo::Ptr create_with_nested_errno(const ErrorCode& code, const SourceLocation& location,
                                                          int errnoValue) const;

    // The same, thrown as an `ErrorException`.
    [[noreturn]] void throw_error(const ErrorCode& code, const SourceLocation& location) const;
    [[noreturn]] void throw_error(const ErrorCode& code, const SourceLocation& location,
                                  const ErrorInfo::Ptr& nested) const;
    [[noreturn]] void throw_error(const ErrorCode& code, const SourceLocation& location, long nativeCode) const;
    [[noreturn]] void throw_error(const ErrorCode& code, const SourceLocation& location, long nativeCode,
                                  const ErrorInfo::Ptr& nested) const;
    [[noreturn]] void throw_error(const ErrorCode& code, const SourceLocation& location, long nativeCode,
                                  const ErrorInfo::Ptr& nested, const KeptObject& kept) const;
    [[noreturn]] void throw_with_nested_errno(const ErrorCode& code, const SourceLocation& location,
                                              int errnoValue) const;
};

}  // namespace nqcore
