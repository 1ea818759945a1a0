#include "nqcore/error_composer.h"

#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"

#include <charconv>
#include <utility>

namespace nqcore {

ErrorInfo::Ptr ErrorComposer::create(const ErrorCode& code, const SourceLocation& location) const& {
    return ErrorInfo::create(code, m_message, m_params, location);
}

ErrorInfo::Ptr ErrorComposer::create(const ErrorCode& code, const SourceLocation& location) && {
    return ErrorInfo::create(code, m_message, std::move(m_params), location);
}

ErrorInfo::Ptr ErrorComposer::create(const ErrorCode& code, const SourceLocation& location,
                                     const ErrorInfo::Ptr& nested) const& {
    return ErrorInfo::create(code, m_message, m_params, location, nested);
}

ErrorInfo::Ptr ErrorComposer::create(const ErrorCode& code, const SourceLocation& location,
                                     const ErrorInfo::Ptr& nested) && {
    return ErrorInfo::create(code, m_message, std::move(m_params), location, nested);
}

ErrorInfo::Ptr ErrorComposer::create_with_nested_errno(const ErrorCode& code, const SourceLocation& location,
                                                       int errnoValue) const {
    return ErrorInfo::create_with_nested_errno(code, m_message, m_params, location, errnoValue);
}

ErrorInfo::Ptr ErrorComposer::create_with_nested_exception(const ErrorCode& code, const SourceLocation& location,
                                                           const std::exception& cause) const {
    return create(code, location, ErrorInfo::from_exception(cause, location));
}

ErrorInfo::Ptr ErrorComposer::create_with_nested_winerror(const ErrorCode& code, const SourceLocation& location,
                                                          unsigned long winError, bool map) const {
    return create(code, location, ErrorInfo::from_winerror(location, winError, map));
}

void ErrorComposer::create_transfer(ErrorInfo::Ptr& out, const ErrorCode& code, const SourceLocation& location) const {
    out = create(code, location);
}

void ErrorComposer::create_transfer(ErrorInfo::Ptr& out, const ErrorCode& code, const SourceLocation& location,
                                    const ErrorInfo::Ptr& nested) const {
    out = create(code, location, nested);
}

void ErrorComposer::create_transfer_with_nested_errno(ErrorInfo::Ptr& out, const ErrorCode& code,
                                                      const SourceLocation& location, int errnoValue) const {
    out = create_with_nested_errno(code, location, errnoValue);
}

void ErrorComposer::create_transfer_with_nested_exception(ErrorInfo::Ptr& out, const ErrorCode& code,
                                                          const SourceLocation& location,
                                                          const std::exception& cause) const {
    out = create_with_nested_exception(code, location, cause);
}

void ErrorComposer::create_transfer_with_nested_winerror(ErrorInfo::Ptr& out, const ErrorCode& code,
                                                         const SourceLocation& location, unsigned long winError,
                                                         bool map) const {
    out = create_with_nested_winerror(code, location, winError, map);
}

void ErrorComposer::throw_error(const ErrorCode& code, const SourceLocation& location) const {
    throw ErrorException(create(code, location));
}

void ErrorComposer::throw_error(const ErrorCode& code, const SourceLocation& location,
                                const ErrorInfo::Ptr& nested) const {
    throw ErrorException(create(code, location, nested));
}

void ErrorComposer::throw_with_nested_errno(const ErrorCode& code, const SourceLocation& location,
                                            int errnoValue) const {
    throw ErrorException(create_with_nested_errno(code, location, errnoValue));
}

void ErrorComposer::throw_with_nested_exception(const ErrorCode& code, const SourceLocation& location,
                                                const std::exception& cause) const {
    throw ErrorException(create_with_nested_exception(code, location, cause));
}

void ErrorComposer::throw_with_nested_winerror(const ErrorCode& code, const SourceLocation& location,
                                               unsigned long winError, bool map) const {
    throw ErrorException(create_with_nested_winerror(code, location, winError, map));
}

namespace impl {

void ParamText::write_signed(long long number) noexcept {
    char* const end = std::to_chars(m_digits, m_digits + sizeof m_digits, number).ptr;
    m_text = std::string_view(m_digits, static_cast<std::size_t>(end - m_digits));
}

void ParamText::write_unsigned(unsigned long long number) noexcept {
    char* const end = std::to_chars(m_digits, m_digits + sizeof m_digits, number).ptr;
    m_text = std::string_view(m_digits, static_cast<std::size_t>(end - m_digits));
}

ErrorComposer compose_error(std::string_view message, const std::string_view* names, const std::string_view* values,
                            unsigned count) {
    return ErrorComposer(SourceString::create_reference(message), ErrorParams::from_literals(names, values, count));
}

}  // namespace impl
}  // namespace nqcore
