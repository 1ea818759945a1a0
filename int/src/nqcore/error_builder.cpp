#include "nqcore/error_builder.h"

#include "error_text.h"
#include "nqcore/error_exception.h"

#include <string>
#include <utility>

namespace nqcore {
namespace {

// A record that keeps an object alive as long as itself.
class KeepingErrorInfo final : public ErrorInfo {
public:
    KeepingErrorInfo(const ErrorCode& code, const SourceString& message, ErrorParams&& params,
                     const SourceLocation& location, Ptr&& nested, const ErrorBuilder::KeptObject& kept) noexcept
        : ErrorInfo(code, message, std::move(params), location, std::move(nested)), m_kept(kept) {}

private:
    ErrorBuilder::KeptObject m_kept;
};

ErrorParams native_code_params(long nativeCode) {
    ErrorParams params;
    if (nativeCode != 0) {
        params.add_literal_name("nativeCode", impl::DecimalText(static_cast<long long>(nativeCode)).view());
    }
    return params;
}

SourceString message_of(const ErrorBuilder& builder) { return SourceString::create_copy(builder.view()); }

}  // namespace

ErrorBuilder::ErrorBuilder() = default;

ErrorBuilder::~ErrorBuilder() = default;

ErrorInfo::Ptr ErrorBuilder::create(const ErrorCode& code, const SourceLocation& location) const {
    return create(code, location, 0L, ErrorInfo::Ptr());
}

ErrorInfo::Ptr ErrorBuilder::create(const ErrorCode& code, const SourceLocation& location,
                                    const ErrorInfo::Ptr& nested) const {
    return create(code, location, 0L, nested);
}

ErrorInfo::Ptr ErrorBuilder::create(const ErrorCode& code, const SourceLocation& location, long nativeCode) const {
    return create(code, location, nativeCode, ErrorInfo::Ptr());
}

ErrorInfo::Ptr ErrorBuilder::create(const ErrorCode& code, const SourceLocation& location, long nativeCode,
                                    const ErrorInfo::Ptr& nested) const {
    return ErrorInfo::create(code, message_of(*this), native_code_params(nativeCode), location, nested);
}

ErrorInfo::Ptr ErrorBuilder::create(const ErrorCode& code, const SourceLocation& location, long nativeCode,
                                    const ErrorInfo::Ptr& nested, const KeptObject& kept) const {
    return ErrorInfo::Ptr(new KeepingErrorInfo(code, message_of(*this), native_code_params(nativeCode), location,
                                               ErrorInfo::Ptr(nested), kept));
}

ErrorInfo::Ptr ErrorBuilder::create_with_nested_errno(const ErrorCode& code, const SourceLocation& location,
                                                      int errnoValue) const {
    return ErrorInfo::create_with_nested_errno(code, message_of(*this), location, errnoValue);
}

void ErrorBuilder::throw_error(const ErrorCode& code, const SourceLocation& location) const {
    throw ErrorException(create(code, location));
}

void ErrorBuilder::throw_error(const ErrorCode& code, const SourceLocation& location,
                               const ErrorInfo::Ptr& nested) const {
    throw ErrorException(create(code, location, nested));
}

void ErrorBuilder::throw_error(const ErrorCode& code, const SourceLocation& location, long nativeCode) const {
    throw ErrorException(create(code, location, nativeCode));
}

void ErrorBuilder::throw_error(const ErrorCode& code, const SourceLocation& location, long nativeCode,
                               const ErrorInfo::Ptr& nested) const {
    throw ErrorException(create(code, location, nativeCode, nested));
}

void ErrorBuilder::throw_error(const ErrorCode& code, const SourceLocation& location, long nativeCode,
                               const ErrorInfo::Ptr& nested, const KeptObject& kept) const {
    throw ErrorException(create(code, location, nativeCode, nested, kept));
}

void ErrorBuilder::throw_with_nested_errno(const ErrorCode& code, const SourceLocation& location,
                                           int errnoValue) const {
    throw ErrorException(create_with_nested_errno(code, location, errnoValue));
}

}  // namespace nqcore
